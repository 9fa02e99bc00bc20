// Merge benchmark: a user of 100,000 records (one folder per 50) changed in two places at
// once, 1,000 changes on each side (edits, new rows of which some collide on their
// identifiers, deletes). Prints the time of the three-way merge of the two versions
// against their base (median of 5), and of a whole save that finds the file changed
// elsewhere and merges: lock, read and decipher the file, merge, write, identity. Then a
// sync engine's conflict copy of the same changes: its merge end to end (open the user,
// read the copy, choose the base among the kept versions and read it, merge, save, move
// the copy to Backup/), and the choice of the base among 20 kept versions.
//
//   bench_merge [ROWS] [CHANGES]      (default 100000 1000)

#include "app/DiagnosticsHookup.h"
#include "app/ProgConfig.h"
#include "app/StrMass.h"
#include "bench/BenchUser.h"
#include "storage/FileLineage.h"
#include "storage/Md5.h"
#include "storage/UserFile.h"
#include "storage/UserFileMerge.h"
#include "users/ConflictMerge.h"
#include "users/UserAccounts.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QRandomGenerator>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <vector>

namespace {

constexpr double kMergeTargetMs = 150.0;
constexpr double kCopyTargetMs = 500.0;
constexpr double kChoiceTargetMs = 50.0;

TableEntry makeTable(int Rows) {
    TableEntry t;
    t.Name = "DataTable";
    t.FldNames = {"IndNum", "Parent", "Type", "Title", "Login", "Password", "Description", "Image", "Flags"};
    QRandomGenerator rng(Rows);
    const int folders = std::max(1, Rows / 50);
    auto text = [&](int len) {
        QString s(len, Qt::Uninitialized);
        for (int i = 0; i < len; ++i)
            s[i] = QLatin1Char(static_cast<char>('a' + rng.bounded(26)));
        return s;
    };
    QList<QStringList> rows;
    for (int i = 1; i <= Rows; ++i) {
        const bool folder = i <= folders;
        rows.append({QString::number(i), folder ? "0" : QString::number(1 + rng.bounded(folders)),
                     folder ? "1" : "2", text(20), folder ? QString() : text(10),
                     folder ? QString() : text(16), rng.bounded(2) ? text(60) : QString(),
                     folder ? "2key" : "1key", "0|0"});
    }
    t.Records = RecordStore::fromRows(rows);
    t.Tag = QString::number(Rows);
    return t;
}

// Each row and text copied, as a table read from a file shares nothing with memory.
TableEntry deepCopy(const TableEntry& T) {
    TableEntry c = T;
    c.Records = RecordStore::fromRows(T.Records.rows());
    return c;
}

// Changes: 40 % edited fields, 30 % new rows, 30 % deleted rows, spread over the table.
void change(TableEntry& T, int Changes, quint32 Seed, const QString& Mark) {
    QRandomGenerator rng(Seed);
    const int n = T.RecNum();
    int tag = T.Tag.toInt();
    for (int k = 0; k < Changes * 4 / 10; ++k)
        T.Records.setValue(static_cast<int>(rng.bounded(n)), 3, Mark + QString::number(k));
    for (int k = 0; k < Changes * 3 / 10; ++k)
        T.Records.append({QString::number(++tag), "1", "2", Mark + " new", "", "", "", "1key", "0|0"});
    std::vector<int> del;
    for (int k = 0; k < Changes * 3 / 10; ++k)
        del.push_back(static_cast<int>(rng.bounded(n)));
    std::sort(del.rbegin(), del.rend());
    del.erase(std::unique(del.begin(), del.end()), del.end());
    for (int r : del)
        T.Records.removeAt(r);
    T.Tag = QString::number(tag);
}

// Processor time of this thread: on a busy machine the wall clock also counts the time
// spent waiting for a processor.
double cpuMs() {
    timespec ts{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return static_cast<double>(ts.tv_sec) * 1e3 + static_cast<double>(ts.tv_nsec) / 1e6;
}

void setRows(clsDatabase& Db, const TableEntry& T) {
    DatabaseRecord rec = Db.DBView();
    rec.Tables[0].Records = T.Records;
    rec.Tables[0].Tag = T.Tag;
    Db.ReplaceDB(rec);
}

// The conflict copy: the user saved with Base here and on another machine, which saved
// Theirs; this computer then saved Ours, and the engine put the other version beside it.
// Returns false when a step failed.
bool benchConflictCopy(const QString& Dir, const TableEntry& Base, const TableEntry& Ours,
                       const TableEntry& Theirs) {
    QString pasw = "bench-password-2";
    const QString path = UsDBFilePath("copy");
    const QString copyPath = Dir + "/copy.sync-conflict-20261124-211129-EEACIID.bdb";
    AddUser(path, "copy", pasw);
    const QString key = GetTruePasw(pasw);
    if (LoadUser(path, key) != 2)
        return false;
    CurUser = "copy";
    CurUsPasw = pasw;
    CurUsDBPath = path;
    setRows(*CurUsDB, Base);
    if (SaveUsDB(CurUsDB, key) < 0)
        return false;
    const QString there = Dir + "/other/copy.bdb";
    QDir().mkpath(Dir + "/other");
    QFile::copy(path, there);
    {
        clsUserFile file(there, key);
        clsDatabase db;
        if (file.Open(db) != tbeOk)
            return false;
        setRows(db, Theirs);
        if (file.Save(db) < 0)
            return false;
    }
    QFile::copy(there, copyPath);
    setRows(*CurUsDB, Ours);
    if (SaveUsDB(CurUsDB, key) < 0)
        return false;
    // Up to 20 kept versions: the others are versions of ours, newer than the base.
    for (int i = 0; KeptVersions(path).size() < kKeptVersionsMax && i < kKeptVersionsMax; ++i) {
        CurUsDB->SetTblFldValNm(1, 1, "Title", QString::number(i));
        if (SaveUsDB(CurUsDB, key) < 0)
            return false;
    }
    DatabaseRecord copy;
    clsFileIdentity id;
    if (clsUserFile::Read(copyPath, key, copy, id) != tbeOk)
        return false;
    std::vector<double> choice;
    QStringList bases;
    for (int run = 0; run < 5; ++run) {
        QElapsedTimer t;
        t.start();
        bases = CommonAncestors(path, CurUsDB->DBView().Lineage, copy.Lineage);
        choice.push_back(BenchMs(t));
    }
    // End to end: the user opened afresh, then the copy merged, saved and moved.
    CurUsDB = std::make_shared<clsDatabase>();
    QElapsedTimer t;
    t.start();
    const double c0 = cpuMs();
    if (LoadUser(path, key) != 2)
        return false;
    const double open = BenchMs(t);
    int save = 0;
    const QList<clsCopyMerge> done = MergeCopiesOfOpenUser({}, save);
    const double whole = BenchMs(t);
    const double cpu = cpuMs() - c0;
    if (done.size() != 1 || done[0].Result != ccMerged || save < 0)
        return false;
    std::printf(
        "conflict copy merged end to end (open, read the copy, choose and read the base, merge, save, "
        "move): %.0f ms (target < %.0f ms; processor time %.0f ms; the open alone %.0f ms)\n  %s\n",
        whole, kCopyTargetMs, cpu, open, qPrintable(DescribeCopyMerge(done[0])));
    std::printf("choice of the base among %lld kept versions: %.3f ms (target < %.0f ms), %lld common\n",
                static_cast<long long>(KeptVersions(path).size()), BenchMedian(choice), kChoiceTargetMs,
                static_cast<long long>(bases.size()));
    return true;
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    ConnectDiagnostics();
    const int rows = argc > 1 ? std::atoi(argv[1]) : 100000;
    const int changes = argc > 2 ? std::atoi(argv[2]) : 1000;

    const TableEntry base = makeTable(rows);
    TableEntry ours = base;
    change(ours, changes, 1, "ours");
    TableEntry theirs = deepCopy(base);
    change(theirs, changes, 2, "theirs");
    std::vector<double> times, cpu;
    int merged = 0;
    for (int run = 0; run < 5; ++run) {
        QElapsedTimer t;
        t.start();
        const double c0 = cpuMs();
        const clsMergeResult r = MergeDataTable(base, ours, theirs);
        cpu.push_back(cpuMs() - c0);
        times.push_back(BenchMs(t));
        merged = r.Records.size();
    }
    std::sort(times.begin(), times.end());
    std::sort(cpu.begin(), cpu.end());
    std::printf(
        "merge of %d rows, %d changes on each side: %.1f ms (target < %.0f ms; processor time %.1f ms), "
        "%d rows merged\n",
        rows, changes, times[2], kMergeTargetMs, cpu[2], merged);

    // The whole save: the file was changed by another writer since it was loaded.
    QTemporaryDir dir;
    // The kept versions go to the per-user folder: one of the benchmark's own.
    qputenv("XDG_DATA_HOME", QFile::encodeName(dir.path() + "/data"));
    BenchProgramIn(dir.path());
    QString pasw = "bench-password-1";
    AddUser(UsDBFilePath("bench"), "bench", pasw);
    const QString key = GetTruePasw(pasw);
    if (LoadUser(UsDBFilePath("bench"), key) != 2)
        return 1;
    DatabaseRecord rec = CurUsDB->DBView();
    rec.Tables[0].Records = base.Records;
    rec.Tables[0].Tag = base.Tag;
    CurUsDB->ReplaceDB(rec);
    QElapsedTimer t;
    t.start();
    if (SaveUsDB(CurUsDB, key) != 1)
        return 1;
    const double plainSave = BenchMs(t);
    const clsDatabasePtr other = std::make_shared<clsDatabase>();
    rec.Tables[0].Records = theirs.Records;
    rec.Tables[0].Tag = theirs.Tag;
    other->SetDB(rec);
    if (SaveUsDB(other, key) != 1)
        return 1;
    rec.Tables[0].Records = ours.Records;
    rec.Tables[0].Tag = ours.Tag;
    CurUsDB->ReplaceDB(rec);
    t.start();
    const int r = SaveUsDB(CurUsDB, key);
    const double mergeSave = BenchMs(t);
    std::printf(
        "save of %d rows: %.0f ms; save that finds the file changed and merges: %.0f ms (result %d)\n", rows,
        plainSave, mergeSave, r);
    if (!benchConflictCopy(dir.path(), base, ours, theirs)) {
        std::printf("conflict copy: a step failed\n");
        return 1;
    }
    return r == 2 ? 0 : 1;
}
