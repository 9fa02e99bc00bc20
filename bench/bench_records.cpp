// Records benchmark: a user of 100,000 rows (2,000 folders on three levels, records
// spread over them in random order of creation, field lengths of real use) and on it
//  - deleting a folder with 10,000 descendants (with its 10,001 debug-log lines),
//  - counting the children of the root and of a folder (GetStatBarData),
//  - one press of "find" over every column that wraps round to the top, and one that
//    finds nothing at all (the longest press there is), with and without case,
//  - listing every match (the command line's find),
//  - generating 1,000,000 password characters,
// and for comparison the deletion done the step-by-step way (search for the first child
// from the top again after every deletion) on a 1,000-row folder. Each figure is the
// median of several runs.
//
// The caches are flushed before each measured run.
//
//   bench_records [ROWS] [--compare]     (default 100000; --compare adds the step-by-step
//                                         deletion, which takes many seconds)

#include "app/DiagnosticsHookup.h"
#include "app/ProgConfig.h"
#include "app/StrMass.h"
#include "app/modMain.h"
#include "bench/BenchUser.h"
#include "diagnostics/DbgPrint.h"
#include "diagnostics/ErrorTrap.h"
#include "records/PaswGenerator.h"
#include "records/RecordSearch.h"
#include "records/RecordTree.h"
#include "storage/clsDatabase.h"
#include "users/UserAccounts.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QRandomGenerator>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <vector>

namespace {

struct Plan {
    int bigId = 0;     // the folder with 10,000 descendants
    int smallId = 0;   // the folder with 1,000 descendants
    int needleRow = 0; // the only row holding the needle
};

// Fills CurUsDB's DataTable with n rows.
Plan fill(int n) {
    clsDatabase& db = *CurUsDB;
    const int tbl = db.FindTable(QStringLiteral("DataTable"));
    QRandomGenerator rng(20261122);
    struct R {
        int id, parent;
        bool folder;
    };
    std::vector<R> rows;
    int id = 0;
    Plan plan;
    // The big folder: 100 sub-folders of 99 records each; the small one: 10 of 99.
    auto subtree = [&](int subFolders) {
        const int top = ++id;
        rows.push_back({top, 0, true});
        std::vector<int> subs;
        for (int i = 0; i < subFolders; ++i) {
            rows.push_back({++id, top, true});
            subs.push_back(id);
        }
        for (int s : subs)
            for (int k = 0; k < 99; ++k)
                rows.push_back({++id, s, false});
        return top;
    };
    plan.bigId = subtree(100);
    plan.smallId = subtree(10);
    const int rest = n - static_cast<int>(rows.size());
    const int folders = std::max(3, rest / 50);
    const int level1 = std::max(1, folders / 20), level2 = std::max(1, folders / 5);
    const int firstFolder = id + 1;
    for (int f = 0; f < folders; ++f) {
        int parent = 0;
        if (f >= level1 + level2)
            parent = firstFolder + level1 + static_cast<int>(rng.bounded(level2));
        else if (f >= level1)
            parent = firstFolder + static_cast<int>(rng.bounded(level1));
        rows.push_back({++id, parent, true});
    }
    while (static_cast<int>(rows.size()) < n)
        rows.push_back({++id, firstFolder + static_cast<int>(rng.bounded(folders)), false});
    // Rows are created over time: a folder before what it holds, otherwise mixed.
    std::vector<R> order;
    std::vector<R> folderRows, recordRows;
    for (const R& r : rows)
        (r.folder ? folderRows : recordRows).push_back(r);
    std::shuffle(recordRows.begin(), recordRows.end(), std::mt19937(7));
    order = folderRows;
    order.insert(order.end(), recordRows.begin(), recordRows.end());
    for (const R& r : order) {
        const int rec = db.AddRecord(tbl);
        const QString login = BenchLogin(rng);
        const QString pw = BenchPasw(rng);
        db.SetTblRecord(tbl, rec,
                        {QString::number(r.id), QString::number(r.parent), r.folder ? "1" : "2",
                         BenchWords(rng, 8, 32), r.folder ? QString() : login, r.folder ? QString() : pw,
                         r.folder || rng.bounded(2) ? QString() : BenchWords(rng, 10, 120),
                         r.folder ? "2key" : "1key", rng.bounded(10) == 0 ? "255|1" : "0|0"});
    }
    db.SetTblTag(tbl, QString::number(id));
    // One record near the top holds a text nothing else has, in its login only.
    plan.needleRow = static_cast<int>(folderRows.size()) + 100;
    db.SetTblFldValNm(tbl, plan.needleRow, QStringLiteral("Login"), QStringLiteral("Zqxj-Needle"));
    return plan;
}

// Pushes the table out of the processor's caches, as hours of other work would: every
// figure is that of an operation on a table that is not in the cache.
void evict() {
    static std::vector<char> junk(96u << 20);
    for (std::size_t i = 0; i < junk.size(); i += 64)
        junk[i] = static_cast<char>(junk[i] + 1);
}

double timeMs(const std::function<void()>& fn) {
    evict();
    QElapsedTimer t;
    t.start();
    fn();
    return static_cast<double>(t.nsecsElapsed()) / 1e6;
}

// Deletion as the step-by-step description reads: after every deletion the next child is
// searched from the top of the table again.
void naiveDelete(clsDatabase& db, int tbl, int idF, int parentF, const QString& id, int curRec) {
    for (;;) {
        const int child = db.GetRecNumFromVal(tbl, parentF, id, 1);
        if (child == 0)
            break;
        naiveDelete(db, tbl, idF, parentF, db.GetTblFldVal(tbl, child, idF), child);
    }
    db.DeleteRec(tbl, curRec);
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    ConnectDiagnostics();
    int rc = 1;
    argent::diag::trapped([&] {
        const QStringList args = QCoreApplication::arguments();
        const bool compare = args.contains(QStringLiteral("--compare"));
        const bool deleteOnly = args.contains(QStringLiteral("--delete-only"));
        int n = 100000;
        for (const QString& a : args.mid(1))
            if (a.toInt() > 0)
                n = a.toInt();
        QTemporaryDir dir;
        BenchProgramAllIn(dir.path());
        QString pasw = QStringLiteral("bench-password-1");
        AddUser(UsDBFilePath(QStringLiteral("Bench")), QStringLiteral("Bench"), pasw);
        if (LoadUser(UsDBFilePath(QStringLiteral("Bench")), GetTruePasw(pasw)) != 2)
            return;

        const Plan plan = fill(n);
        clsDatabase& db = *CurUsDB;
        const int tbl = db.FindTable(QStringLiteral("DataTable"));
        const DatabaseRecord pristine = db.DB();
        std::printf("rows: %d\n", db.GetTblRecNum(tbl));

        // Deleting the folder with 10,000 descendants.
        std::vector<double> del;
        int deleted = 0;
        for (int k = 0; k < 5; ++k) {
            db.SetDB(pristine);
            del.push_back(timeMs([&] {
                deleted = DelRecordTreeFromDataTable(QStringLiteral("IndNum"), QString::number(plan.bigId),
                                                     QStringLiteral("Parent"));
            }));
        }
        std::printf("delete folder with %d rows (log lines included): %.1f ms\n", deleted, BenchMedian(del));
        {
            db.SetDB(pristine);
            const int parentF = db.FindField(tbl, QStringLiteral("Parent"));
            std::vector<double> touch;
            long long sum = 0;
            for (int k = 0; k < 5; ++k)
                touch.push_back(timeMs([&] {
                    const RecordStore& rs = db.DBView().Tables[tbl - 1].Records;
                    for (int r = 0; r < rs.size(); ++r) {
                        const QString v = rs.value(r, parentF - 1);
                        sum += v.size() + v.at(0).unicode();
                    }
                }));
            std::printf("  for scale, reading the parent link of every row once: %.1f ms\n",
                        BenchMedian(touch));
        }
        if (deleteOnly) {
            for (int k = 0; k < 40; ++k) {
                db.SetDB(pristine);
                DelRecordTreeFromDataTable(QStringLiteral("IndNum"), QString::number(plan.bigId),
                                           QStringLiteral("Parent"));
            }
            rc = 0;
            return;
        }
        std::vector<double> logOnly;
        for (int k = 0; k < 3; ++k)
            logOnly.push_back(timeMs([&] {
                for (int i = 0; i < deleted; ++i)
                    DbgPrint(QStringLiteral("-= DELETE: bench"));
            }));
        std::printf("  for scale, the same %d log lines written by one DbgPrint call each: %.1f ms\n",
                    deleted, BenchMedian(logOnly));

        // Counting.
        db.SetDB(pristine);
        int folds = 0, recs = 0;
        std::vector<double> cnt, cntF;
        for (int k = 0; k < 21; ++k) {
            cnt.push_back(timeMs([&] {
                folds = recs = 0;
                GetStatBarData(db, QStringLiteral("0"), folds, recs);
            }));
            cntF.push_back(timeMs([&] {
                int f = 0, r = 0;
                GetStatBarData(db, QString::number(plan.bigId), f, r);
            }));
        }
        std::printf("GetStatBarData of the root (%d folders, %d records): %.2f ms; of a folder: %.2f ms\n",
                    folds, recs, BenchMedian(cnt), BenchMedian(cntF));

        // Search.
        const int titleF = db.FindField(tbl, QStringLiteral("Title"));
        const int half = db.GetTblRecNum(tbl) / 2;
        for (bool cs : {false, true}) {
            std::vector<double> wrap, none;
            QString r1, r2;
            for (int k = 0; k < 7; ++k) {
                int start = half;
                wrap.push_back(timeMs([&] {
                    r1 = FindRecordInDB(cs ? QStringLiteral("Zqxj-Needle") : QStringLiteral("zqxj-needle"),
                                        tbl, titleF, start, db, true, cs);
                }));
                start = half;
                none.push_back(timeMs([&] {
                    r2 = FindRecordInDB(QStringLiteral("no such text"), tbl, titleF, start, db, true, cs);
                }));
            }
            std::printf("find over every column, %s: wrapping round from row %d to row %s: %.1f ms; "
                        "nothing found (%s): %.1f ms   target at 100,000 rows: <= 10 ms each\n",
                        cs ? "case-sensitive" : "any case", half, qPrintable(r1), BenchMedian(wrap),
                        qPrintable(r2), BenchMedian(none));
        }
        std::vector<double> all;
        qsizetype matches = 0;
        for (int k = 0; k < 3; ++k)
            all.push_back(
                timeMs([&] { matches = FindAllRecords(db, QStringLiteral("bank"), true, false).size(); }));
        std::printf("every match of \"bank\" over every column (%lld rows): %.1f ms\n",
                    static_cast<long long>(matches), BenchMedian(all));

        // Generator.
        std::vector<double> gen;
        for (int k = 0; k < 5; ++k)
            gen.push_back(timeMs([&] { (void)GeneratePassword(1000000); }));
        std::printf("GeneratePassword(1,000,000): %.1f ms\n", BenchMedian(gen));

        // The step-by-step deletion, for comparison, on the 1,000-row folder.
        if (!compare) {
            rc = 0;
            return;
        }
        std::vector<double> naive, fast;
        const int idF = db.FindField(tbl, QStringLiteral("IndNum"));
        const int parentF = db.FindField(tbl, QStringLiteral("Parent"));
        for (int k = 0; k < 1; ++k) {
            db.SetDB(pristine);
            const QString id = QString::number(plan.smallId);
            const int cur = db.GetRecNumFromVal(tbl, idF, id, 1);
            naive.push_back(timeMs([&] { naiveDelete(db, tbl, idF, parentF, id, cur); }));
            db.SetDB(pristine);
            fast.push_back(timeMs([&] { DelRecordTree(tbl, idF, id, parentF, cur, db); }));
        }
        std::printf("1,001-row folder: step by step %.1f ms (no log lines), one pass %.1f ms (with them)\n",
                    BenchMedian(naive), BenchMedian(fast));
        rc = 0;
    });
    return rc;
}
