// Storage benchmark: users of 1,000, 10,000 and 100,000 records (one folder per 50
// records, three levels of folders, field lengths of real use), and for each the file
// size, the password check (TestUsPasw), the full load without a window (FullUserLoad),
// a save (SaveUsDB), the tree order of the main window, the peak memory once the user is
// open and the peak of the whole process (the save builds its file image beside the
// open user). Every measurement runs in a fresh process, three times; the median is
// printed.
//
//   bench_storage [N ...]          (default 1000 10000 100000)
//   bench_storage --fields N       the user of N records against the same user whose
//                                  records all have a web address, every tenth a TOTP seed
//                                  and every second a custom field (the field table); the
//                                  two measured in turns, five times each, and the time
//                                  the first record's fields take (the table's split)
//   bench_storage --gen N DIR      writes user BenchN into DIR (password "bench-password-1")
//   bench_storage --xml N DIR OUT  writes user BenchN of DIR as a KeePass XML export (the
//                                  same folders and records, for bench/compare_keepassxc.py)

#include "app/DiagnosticsHookup.h"
#include "app/ProgConfig.h"
#include "app/StrMass.h"
#include "bench/BenchUser.h"
#include "diagnostics/ErrorTrap.h"
#include "storage/FieldTable.h"
#include "storage/Md5.h"
#include "users/UsDBTree.h"
#include "users/UserAccounts.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QProcess>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QUuid>
#include <QXmlStreamWriter>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <sys/resource.h>
#include <vector>

namespace {

const char kPasw[] = "bench-password-1";

bool g_fields = false; // the user with the field table (--fields)

QString userName(int n) {
    return QStringLiteral("Bench%1%2").arg(n).arg(g_fields ? QStringLiteral("F") : QString());
}

// Records First..First+N-1 get a web address each, every tenth a TOTP seed and every
// second a custom field (every fourth of those hidden), in one table made in bulk.
void addFieldTable(clsDatabase& Db, int First, int N, QRandomGenerator& Rng) {
    TableEntry t = NewFieldTable();
    t.Records.reserve(N + N / 10 + N / 2);
    auto key = [&] {
        return BenchRandomText(Rng, 12, 12,
                               "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_");
    };
    for (int r = 0; r < N; ++r) {
        const QString id = QString::number(First + r);
        t.Records.append({key(), id, QString::number(rffUrl), QString(),
                          QStringLiteral("https://") +
                              BenchRandomText(Rng, 5, 14, "abcdefghijklmnopqrstuvwxyz") +
                              QStringLiteral(".example.org/login"),
                          QString()});
        if (r % 10 == 0)
            t.Records.append({key(), id, QString::number(rffOtp), QString(),
                              QStringLiteral("otpauth://totp/Example:anna?secret=") +
                                  BenchRandomText(Rng, 32, 32, "ABCDEFGHIJKLMNOPQRSTUVWXYZ234567") +
                                  QStringLiteral("&issuer=Example"),
                              QString()});
        if (r % 2 == 0)
            t.Records.append({key(), id, QString::number(r % 8 == 0 ? rffHidden : 0),
                              r % 8 == 0 ? QStringLiteral("PIN") : QStringLiteral("Account number"),
                              BenchRandomText(Rng, 4, 16, "0123456789"), QString()});
    }
    Db.AppendTable(std::move(t));
}

int generate(int n, const QString& dir) {
    BenchProgramIn(dir);
    QString pasw = QString::fromLatin1(kPasw);
    const QString name = userName(n);
    AddUser(UsDBFilePath(name), name, pasw);
    const QString key = GetTruePasw(pasw);
    if (LoadUser(UsDBFilePath(name), key) != 2)
        return 1;
    clsDatabase& db = *CurUsDB;
    const int tbl = db.FindTable(QStringLiteral("DataTable"));
    QRandomGenerator rng(n);
    const int folders = std::max(3, n / 50);
    const int level1 = std::max(1, folders / 20), level2 = std::max(1, folders / 5);
    int id = 0;
    auto row = [&](int parent, bool folder, const QString& title, const QString& login, const QString& pw,
                   const QString& desc, const QString& flags) {
        const int r = db.AddRecord(tbl);
        const QStringList v{QString::number(++id),
                            QString::number(parent),
                            folder ? "1" : "2",
                            title,
                            login,
                            pw,
                            desc,
                            folder ? "2key" : "1key",
                            flags};
        db.SetTblRecord(tbl, r, v);
    };
    for (int f = 0; f < folders; ++f) {
        int parent = 0;
        if (f >= level1 + level2)
            parent = level1 + 1 + static_cast<int>(rng.bounded(level2));
        else if (f >= level1)
            parent = 1 + static_cast<int>(rng.bounded(level1));
        row(parent, true, BenchWords(rng, 5, 24), QString(), QString(), QString(), QStringLiteral("0|0"));
    }
    for (int r = 0; r < n; ++r) {
        const int parent = 1 + static_cast<int>(rng.bounded(folders));
        const QString login = BenchLogin(rng);
        const QString pw = BenchPasw(rng);
        const QString desc = rng.bounded(2) ? BenchWords(rng, 10, 120) : QString();
        const QString flags = rng.bounded(10) == 0 ? QStringLiteral("255|1") : QStringLiteral("0|0");
        row(parent, false, BenchWords(rng, 8, 32), login, pw, desc, flags);
    }
    db.SetTblTag(tbl, QString::number(id));
    if (g_fields)
        addFieldTable(db, folders + 1, n, rng);
    return SaveUsDB(CurUsDB, key) > 0 ? 0 : 1;
}

// The same tree as a KeePass XML export: folders become groups, records entries, the top
// level the root group.
int exportXml(int n, const QString& dir, const QString& out) {
    BenchProgramIn(dir);
    if (LoadUser(UsDBFilePath(userName(n)), GetTruePasw(HashString(QString::fromLatin1(kPasw)))) != 2)
        return 1;
    const TableEntry& t = CurUsDB->DBView().Tables[0];
    QHash<QString, QList<int>> kids;
    for (int i = 0; i < t.RecNum(); ++i)
        kids[t.Records.value(i, 1)].append(i);
    QFile f(out);
    if (!f.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return 1;
    QXmlStreamWriter w(&f);
    w.writeStartDocument();
    w.writeStartElement(QStringLiteral("KeePassFile"));
    w.writeStartElement(QStringLiteral("Meta"));
    w.writeTextElement(QStringLiteral("Generator"), QStringLiteral("bench_storage"));
    w.writeEndElement();
    w.writeStartElement(QStringLiteral("Root"));
    auto uuid = [] { return QString::fromLatin1(QUuid::createUuid().toRfc4122().toBase64()); };
    auto field = [&](const char* key, const QString& value) {
        w.writeStartElement(QStringLiteral("String"));
        w.writeTextElement(QStringLiteral("Key"), QLatin1String(key));
        w.writeTextElement(QStringLiteral("Value"), value);
        w.writeEndElement();
    };
    std::function<void(const QString&, const QString&)> group = [&](const QString& id, const QString& title) {
        w.writeStartElement(QStringLiteral("Group"));
        w.writeTextElement(QStringLiteral("UUID"), uuid());
        w.writeTextElement(QStringLiteral("Name"), title);
        const QList<int> rows = kids.value(id);
        for (int r : rows) {
            const QStringList v = t.Records.row(r);
            if (v.value(2) == QLatin1String("1"))
                continue;
            w.writeStartElement(QStringLiteral("Entry"));
            w.writeTextElement(QStringLiteral("UUID"), uuid());
            field("Title", v.value(3));
            field("UserName", v.value(4));
            field("Password", v.value(5));
            field("Notes", v.value(6));
            w.writeEndElement();
        }
        for (int r : rows)
            if (t.Records.value(r, 2) == QLatin1String("1"))
                group(t.Records.value(r, 0), t.Records.value(r, 3));
        w.writeEndElement();
    };
    group(QStringLiteral("0"), QStringLiteral("Root"));
    w.writeEndElement();
    w.writeEndElement();
    w.writeEndDocument();
    return f.error() == QFileDevice::NoError ? 0 : 1;
}

long peakKiB() {
    rusage ru{};
    getrusage(RUSAGE_SELF, &ru);
    return ru.ru_maxrss;
}

// One measuring process: prints "check load save tree openPeakKiB peakKiB fields".
int measure(int n, const QString& dir) {
    BenchProgramIn(dir);
    const QString name = userName(n);
    const QString md5 = HashString(QString::fromLatin1(kPasw));
    QElapsedTimer t;
    t.start();
    const int ok = TestUsPasw(UsDBFilePath(name), md5);
    const double check = BenchMs(t);
    t.restart();
    const int loaded = FullUserLoad(name, md5);
    const double load = BenchMs(t);
    const long openPeak = peakKiB();
    if (g_fields && FieldTableNum(CurUsDB->DBView()) == 0)
        return 1;
    // The fields of the first record shown (the last one, which has some): the field table is split into rows
    // here.
    t.restart();
    const RecExtras first =
        ReadRecExtras(CurUsDB->DBView(), CurUsDB->GetTblFldValNm(1, CurUsDB->GetTblRecNum(1), "IndNum"));
    const double fields = BenchMs(t);
    t.restart();
    const QList<UsTreeNode> order = UsDBTreeOrder(*CurUsDB);
    const double tree = BenchMs(t);
    t.restart();
    const int saved = SaveUsDB(CurUsDB, GetTruePasw(CurUsPasw));
    const double save = BenchMs(t);
    if (ok != 1 || loaded != 0 || saved != 1 || order.size() != CurUsDB->GetTblRecNum(1) ||
        first.Url.isEmpty() != !g_fields)
        return 1;
    std::printf("%.2f %.2f %.2f %.2f %ld %ld %.2f\n", check, load, save, tree, openPeak, peakKiB(), fields);
    return 0;
}

QString runSelf(const QStringList& args) {
    QProcess p;
    p.start(QCoreApplication::applicationFilePath(), args);
    p.waitForFinished(-1);
    if (p.exitCode() != 0) {
        std::fprintf(stderr, "bench_storage %s failed\n", args.join(u' ').toLocal8Bit().constData());
        std::exit(1);
    }
    return QString::fromLatin1(p.readAllStandardOutput()).trimmed();
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    ConnectDiagnostics();
    const QStringList args = QCoreApplication::arguments();
    int rc = 1;
    if (args.size() == 5 && args[1] == QLatin1String("--xml")) {
        argent::diag::trapped([&] { rc = exportXml(args[2].toInt(), args[3], args[4]); });
        return rc;
    }
    g_fields = args.size() == 5 && args[4] == QLatin1String("fields");
    if ((args.size() == 4 || g_fields) &&
        (args[1] == QLatin1String("--gen") || args[1] == QLatin1String("--measure"))) {
        argent::diag::trapped([&] {
            rc = args[1] == QLatin1String("--gen") ? generate(args[2].toInt(), args[3])
                                                   : measure(args[2].toInt(), args[3]);
        });
        return rc;
    }
    const bool compareFields = args.size() == 3 && args[1] == QLatin1String("--fields");
    QList<int> sizes;
    for (int i = compareFields ? 2 : 1; i < args.size(); ++i)
        sizes << args[i].toInt();
    if (sizes.isEmpty())
        sizes = {1000, 10000, 100000};

    QTemporaryDir dir;
    // The program's private temporary folder lives in the session's runtime folder, which
    // a desktop session keeps in memory (tmpfs); so does the bench, when it can.
    QTemporaryDir runtime(QFileInfo(QStringLiteral("/dev/shm")).isDir()
                              ? QStringLiteral("/dev/shm/argent-bench-XXXXXX")
                              : dir.path() + QStringLiteral("/run-XXXXXX"));
    QFile::setPermissions(runtime.path(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    qputenv("XDG_RUNTIME_DIR", QFile::encodeName(runtime.path()));
    std::printf("user files in %s, temporary copies in %s\n", dir.path().toLocal8Bit().constData(),
                runtime.path().toLocal8Bit().constData());
    std::printf("%9s %10s %10s %10s %10s %10s %10s %10s\n", "records", "file KiB", "check ms", "load ms",
                "save ms", "tree ms", "open MiB", "peak MiB");
    struct Row {
        int n;
        double check, load, save, tree, open, peak, fields;
    };
    std::vector<Row> rows;
    // With --fields the two users are measured in turns, five times each, so that what
    // else the machine does falls on both alike.
    const int variants = compareFields ? 2 : 1;
    const int runs = compareFields ? 5 : 3;
    auto variant = [](int v) { return v == 1 ? QStringList{QStringLiteral("fields")} : QStringList(); };
    for (int n : sizes) {
        for (int v = 0; v < variants; ++v)
            runSelf(QStringList{QStringLiteral("--gen"), QString::number(n), dir.path()} + variant(v));
        std::vector<std::vector<double>> got(static_cast<std::size_t>(variants) * 7);
        for (int k = 0; k < runs; ++k)
            for (int v = 0; v < variants; ++v) {
                const QStringList f =
                    runSelf(QStringList{QStringLiteral("--measure"), QString::number(n), dir.path()} +
                            variant(v))
                        .split(u' ');
                for (int i = 0; i < 7; ++i)
                    got[static_cast<std::size_t>(v * 7 + i)].push_back(f.value(i).toDouble() /
                                                                       (i == 4 || i == 5 ? 1024.0 : 1.0));
            }
        for (int v = 0; v < variants; ++v) {
            auto med = [&](int i) { return BenchMedian(got[static_cast<std::size_t>(v * 7 + i)]); };
            g_fields = v == 1;
            const qint64 size = QFileInfo(dir.path() + u'/' + userName(n) + QStringLiteral(".bdb")).size();
            const Row r{n, med(0), med(1), med(2), med(3), med(4), med(5), med(6)};
            rows.push_back(r);
            std::printf("%9d %10.0f %10.1f %10.1f %10.1f %10.1f %10.1f %10.1f%s\n", n,
                        static_cast<double>(size) / 1024.0, r.check, r.load, r.save, r.tree, r.open, r.peak,
                        v == 1        ? "   with fields"
                        : n == 100000 ? "   target: save <= 100 ms"
                                      : "");
            std::fflush(stdout);
        }
    }
    if (compareFields && rows.size() == 2) {
        const Row& a = rows[0];
        const Row& b = rows[1];
        std::printf("with fields: check+load x%.2f, memory when open x%.2f   target: at most x1.25\n"
                    "             save x%.2f, peak memory with the save x%.2f\n"
                    "             the first record's fields %.1f ms (the field table split into rows)\n",
                    (b.check + b.load) / (a.check + a.load), b.open / a.open, b.save / a.save,
                    b.peak / a.peak, b.fields);
        return 0;
    }
    for (std::size_t i = 1; i < rows.size(); ++i) {
        const Row& a = rows[i - 1];
        const Row& b = rows[i];
        std::printf("%d -> %d records (x%.0f): check+load x%.1f, save x%.1f   target: at most x%.0f\n", a.n,
                    b.n, static_cast<double>(b.n) / a.n, (b.check + b.load) / (a.check + a.load),
                    b.save / a.save, 1.1 * b.n / a.n);
    }
    return 0;
}
