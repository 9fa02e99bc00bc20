// Import and export benchmark: a KeePass 2 XML file of 100,000 entries in 2,000 groups on
// three levels (field lengths of the other benchmarks, every element KeePassXC writes for
// an entry), imported into a new user the way File > Import does it (read, add the rows,
// one save); then that user exported to KeePass XML and to KeePassXC CSV (build and
// checked write), and the CSV imported again. Every measurement runs in a fresh process,
// three times; the median of each figure and the largest peak memory are printed.
//
//   bench_import_export [ENTRIES]          (default 100000)

#include "app/DiagnosticsHookup.h"
#include "app/ProgConfig.h"
#include "app/StrMass.h"
#include "bench/BenchUser.h"
#include "diagnostics/ErrorTrap.h"
#include "records/ImportExport.h"
#include "storage/Md5.h"
#include "users/UserAccounts.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QXmlStreamWriter>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <sys/resource.h>
#include <vector>

namespace {

const char kPasw[] = "bench-password-1";

// The XML file, entry for entry in the form KeePassXC exports.
int generate(int n, const QString& path) {
    QRandomGenerator rng(n);
    const int folders = std::max(3, n / 50);
    const int level1 = std::max(1, folders / 20), level2 = std::max(1, folders / 5);
    // Parent of each folder (-1 the root group), then the entries of each folder.
    std::vector<int> parent(folders, -1);
    for (int f = level1; f < folders; ++f)
        parent[f] = f >= level1 + level2 ? level1 + static_cast<int>(rng.bounded(level2))
                                         : static_cast<int>(rng.bounded(level1));
    std::vector<std::vector<int>> kids(folders), entries(folders);
    std::vector<int> top;
    for (int f = 0; f < folders; ++f)
        (parent[f] < 0 ? top : kids[parent[f]]).push_back(f);
    for (int e = 0; e < n; ++e)
        entries[rng.bounded(folders)].push_back(e);

    QFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return 1;
    QXmlStreamWriter w(&file);
    w.setAutoFormatting(true);
    w.setAutoFormattingIndent(-1);
    const QString time = QStringLiteral("WCCX4g4AAAA=");
    auto times = [&] {
        w.writeStartElement("Times");
        for (const char* t : {"LastModificationTime", "CreationTime", "LastAccessTime", "ExpiryTime"})
            w.writeTextElement(QLatin1String(t), time);
        w.writeTextElement("Expires", "False");
        w.writeTextElement("UsageCount", "0");
        w.writeTextElement("LocationChanged", time);
        w.writeEndElement();
    };
    auto string = [&](const char* key, const QString& value, bool protect) {
        w.writeStartElement("String");
        w.writeTextElement("Key", QLatin1String(key));
        w.writeStartElement("Value");
        if (protect)
            w.writeAttribute("ProtectInMemory", "True");
        w.writeCharacters(value);
        w.writeEndElement();
        w.writeEndElement();
    };
    auto uuid = [&] {
        w.writeTextElement("UUID", QString::number(rng.generate64(), 36).leftJustified(22, u'A') + "==");
    };
    auto entry = [&] {
        w.writeStartElement("Entry");
        uuid();
        w.writeTextElement("IconID", "0");
        for (const char* e : {"ForegroundColor", "BackgroundColor", "OverrideURL", "Tags"})
            w.writeEmptyElement(QLatin1String(e));
        times();
        const QString login = BenchLogin(rng);
        const QString pw = BenchPasw(rng);
        string("Notes", rng.bounded(2) ? BenchWords(rng, 10, 120) : QString(), false);
        string("Password", pw, true);
        string("Title", BenchWords(rng, 8, 32), false);
        string("URL", QString(), false);
        string("UserName", login, false);
        w.writeStartElement("AutoType");
        w.writeTextElement("Enabled", "True");
        w.writeTextElement("DataTransferObfuscation", "0");
        w.writeEmptyElement("DefaultSequence");
        w.writeEndElement();
        w.writeEmptyElement("History");
        w.writeEndElement();
    };
    std::function<void(int)> group = [&](int f) {
        w.writeStartElement("Group");
        uuid();
        w.writeTextElement("Name", f < 0 ? QStringLiteral("Passwords") : BenchWords(rng, 5, 24));
        w.writeEmptyElement("Notes");
        w.writeTextElement("IconID", "48");
        times();
        w.writeTextElement("IsExpanded", "True");
        if (f >= 0) {
            for (std::size_t i = 0; i < entries[f].size(); ++i)
                entry();
            for (int k : kids[f])
                group(k);
        } else {
            for (int k : top)
                group(k);
        }
        w.writeEndElement();
    };
    w.writeStartDocument();
    w.writeStartElement("KeePassFile");
    w.writeStartElement("Meta");
    w.writeTextElement("Generator", "KeePassXC");
    w.writeEndElement();
    w.writeStartElement("Root");
    group(-1);
    w.writeEndElement();
    w.writeEndElement();
    w.writeEndDocument();
    return file.error() == QFileDevice::NoError ? 0 : 1;
}

long peakKiB() {
    rusage ru{};
    getrusage(RUSAGE_SELF, &ru);
    return ru.ru_maxrss;
}

// Processor time of the process so far, user and system, in ms.
double cpuMs() {
    rusage ru{};
    getrusage(RUSAGE_SELF, &ru);
    return (ru.ru_utime.tv_sec + ru.ru_stime.tv_sec) * 1e3 +
           (ru.ru_utime.tv_usec + ru.ru_stime.tv_usec) / 1e3;
}

// Imports FILE into user NAME (created first): prints "read add save total cpu peakKiB".
int measureImport(const QString& dir, const QString& name, const QString& file) {
    BenchProgramIn(dir);
    QString pasw = QString::fromLatin1(kPasw);
    AddUser(UsDBFilePath(name), name, pasw);
    if (FullUserLoad(name, pasw) != 0)
        return 1;
    QElapsedTimer t, all;
    t.start();
    all.start();
    const double cpu0 = cpuMs();
    ImpData d;
    ImpError err;
    if (!ReadImportFile(file, ImpFormat::Detect, CsvMapping(), d, err)) {
        std::fprintf(stderr, "%s\n", err.Text().toLocal8Bit().constData());
        return 1;
    }
    const double read = BenchMs(t);
    t.restart();
    if (ImportIntoDB(d, QStringLiteral("0"), ImportFolderName(file), nullptr, err).isEmpty())
        return 1;
    const double add = BenchMs(t);
    t.restart();
    if (SaveUsDB(CurUsDB, GetTruePasw(CurUsPasw)) != 1)
        return 1;
    const double save = BenchMs(t);
    std::printf("%.1f %.1f %.1f %.1f %.1f %ld\n", read, add, save, BenchMs(all), cpuMs() - cpu0, peakKiB());
    return 0;
}

// Exports user NAME to FILE: prints "build write total cpu peakKiB" (opening the user not
// timed).
int measureExport(const QString& dir, const QString& name, const QString& file, bool xml) {
    BenchProgramIn(dir);
    if (FullUserLoad(name, HashString(QString::fromLatin1(kPasw))) != 0)
        return 1;
    QElapsedTimer t, all;
    t.start();
    all.start();
    const double cpu0 = cpuMs();
    ExpCounts c;
    const QByteArray bytes = ExportRecordTree(*CurUsDB, QStringLiteral("0"),
                                              xml ? ExpFormat::KeePassXml : ExpFormat::KeePassXcCsv, &c);
    const double build = BenchMs(t);
    t.restart();
    QString why;
    if (bytes.isEmpty() || !WriteExportFile(file, bytes, why))
        return 1;
    const double write = BenchMs(t);
    std::printf("%.1f %.1f %.1f %.1f %ld\n", build, write, BenchMs(all), cpuMs() - cpu0, peakKiB());
    return 0;
}

QList<double> runSelf(const QStringList& args) {
    QProcess p;
    p.start(QCoreApplication::applicationFilePath(), args);
    p.waitForFinished(-1);
    if (p.exitCode() != 0) {
        std::fprintf(stderr, "bench_import_export %s failed\n", args.join(u' ').toLocal8Bit().constData());
        std::exit(1);
    }
    QList<double> out;
    for (const QString& v : QString::fromLatin1(p.readAllStandardOutput()).split(u' ', Qt::SkipEmptyParts))
        out << v.toDouble();
    return out;
}

// Three runs: the median of every figure, the largest of the last (peak memory).
QList<double> threeRuns(const std::function<QStringList(int)>& args) {
    std::vector<QList<double>> runs;
    for (int i = 0; i < 3; ++i)
        runs.push_back(runSelf(args(i)));
    QList<double> out;
    for (qsizetype k = 0; k < runs[0].size(); ++k) {
        std::vector<double> v;
        for (const auto& r : runs)
            v.push_back(r[k]);
        std::sort(v.begin(), v.end());
        out << (k + 1 == runs[0].size() ? v.back() : v[1]);
    }
    return out;
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    ConnectDiagnostics();
    const QStringList a = QCoreApplication::arguments();
    int rc = 1;
    if (a.size() >= 4 && a[1].startsWith(QLatin1String("--"))) {
        argent::diag::trapped([&] {
            if (a[1] == QLatin1String("--gen"))
                rc = generate(a[2].toInt(), a[3]);
            else if (a[1] == QLatin1String("--import") && a.size() == 5)
                rc = measureImport(a[2], a[3], a[4]);
            else if (a[1] == QLatin1String("--export") && a.size() == 6)
                rc = measureExport(a[2], a[3], a[4], a[5] == QLatin1String("xml"));
        });
        return rc;
    }
    const int n = a.size() > 1 ? a[1].toInt() : 100000;
    QTemporaryDir dir;
    QTemporaryDir runtime(QFileInfo(QStringLiteral("/dev/shm")).isDir()
                              ? QStringLiteral("/dev/shm/argent-bench-XXXXXX")
                              : dir.path() + QStringLiteral("/run-XXXXXX"));
    QFile::setPermissions(runtime.path(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    qputenv("XDG_RUNTIME_DIR", QFile::encodeName(runtime.path()));
    const QString xml = dir.path() + QStringLiteral("/keepassxc.xml");
    runSelf({QStringLiteral("--gen"), QString::number(n), xml});
    std::printf("%d entries; KeePassXC-style XML %lld KiB\n", n, QFileInfo(xml).size() / 1024);

    const QList<double> imp = threeRuns([&](int i) {
        return QStringList{QStringLiteral("--import"), dir.path(), QStringLiteral("Imp%1").arg(i), xml};
    });
    auto printImport = [](const char* What, const QList<double>& r) {
        std::printf(
            "import %-18s: read %5.0f ms, add %4.0f ms, save %4.0f ms, total %5.0f ms (processor %5.0f ms), "
            "peak %5.1f MiB\n",
            What, r[0], r[1], r[2], r[3], r[4], r[5] / 1024);
    };
    printImport("KeePassXC's XML", imp);
    QString out[2] = {dir.path() + QStringLiteral("/out.xml"), dir.path() + QStringLiteral("/out.csv")};
    for (int k = 0; k < 2; ++k) {
        const QList<double> e = threeRuns([&](int) {
            return QStringList{QStringLiteral("--export"), dir.path(), QStringLiteral("Imp0"), out[k],
                               k == 0 ? QStringLiteral("xml") : QStringLiteral("csv")};
        });
        std::printf(
            "export %-18s: build %4.0f ms, write %4.0f ms, total %5.0f ms (processor %5.0f ms), peak %5.1f "
            "MiB, file %lld KiB\n",
            k == 0 ? "XML" : "CSV", e[0], e[1], e[2], e[3], e[4] / 1024, QFileInfo(out[k]).size() / 1024);
    }
    for (int k = 0; k < 2; ++k)
        printImport(k == 0 ? "our XML" : "KeePassXC CSV", threeRuns([&](int i) {
                        return QStringList{QStringLiteral("--import"), dir.path(),
                                           QStringLiteral("Back%1x%2").arg(k).arg(i), out[k]};
                    }));
    return 0;
}
