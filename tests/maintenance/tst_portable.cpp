#include "maintenance/Autobackup.h"
#include "maintenance/RemovableInstall.h"
#include "tests/common/TestMain.h"
#include "tests/maintenance/MaintTestKit.h"

#include <QDirIterator>
#include <QElapsedTimer>
#include <QProcess>
#include <QTest>
#include <QThread>

#include <algorithm>
#include <unistd.h>

namespace {

// The program folder of the test gets the real programs beside its resources.
void addPrograms(const TestEnv& env) {
    for (const char* exe : {"ArgentPasswordMngr", "argentpm"})
        QFile::copy(QStringLiteral(ARGENT_BIN_DIR "/") + exe, env.progDir() + u'/' + QLatin1String(exe));
}

// Relative paths of everything under a folder, sorted.
QStringList treeOf(const QString& root) {
    QStringList out;
    QDirIterator it(root, QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    while (it.hasNext())
        out << QDir(root).relativeFilePath(it.next());
    std::sort(out.begin(), out.end());
    return out;
}

// Environment of a program started from the copy: a home of its own, no settings there.
QProcessEnvironment strangerEnv(const QString& home) {
    QProcessEnvironment e = QProcessEnvironment::systemEnvironment();
    e.remove(QStringLiteral("ARGENT_TEST_CHILD"));
    for (const char* d : {"home", "data", "config", "run"})
        QDir().mkpath(home + u'/' + QLatin1String(d));
    QFile::setPermissions(home + "/run", QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    e.insert("HOME", home + "/home");
    e.insert("XDG_DATA_HOME", home + "/data");
    e.insert("XDG_CONFIG_HOME", home + "/config");
    e.insert("XDG_RUNTIME_DIR", home + "/run");
    e.insert("QT_QPA_PLATFORM", "offscreen");
    return e;
}

QString runCli(const QString& exe, const QStringList& args, const QProcessEnvironment& e,
               const QByteArray& input, int* code) {
    QProcess p;
    p.setProcessEnvironment(e);
    p.setChildProcessModifier([] { setsid(); });
    p.start(exe, args);
    p.write(input);
    p.closeWriteChannel();
    *code = p.waitForFinished(20000) && p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1;
    return QString::fromUtf8(p.readAllStandardOutput());
}

} // namespace

class PortableTest : public QObject {
    Q_OBJECT
private slots:
    void copyRunsFromItsNewPlaceAndFindsItsUsers() {
        TestEnv env;
        addPrograms(env);
        firstRun();
        const QString annaMd5 = makeUser("anna", "anna password");
        makeUser("bob", "bob password");
        FullUserLoad("anna", annaMd5);
        addTitle("on the stick");
        DoAutobackup(CurUsDB);
        SaveConfig(ProgCfgPath);
        const QByteArray ownConfig = digestOf(ProgCfgPath);
        const QString ownFolder = ProgConfig[5];

        const QString target = env.root() + "/stick/Argent";
        QDir().mkpath(target);
        QList<int> done;
        int total = 0;
        const int n = InstallToRemovableDevice(target, [&](int d, int t, const QString&) {
            done << d;
            total = t;
        });
        QCOMPARE(done.size(), n);
        QCOMPARE(done.last(), total);
        QVERIFY(std::is_sorted(done.begin(), done.end()));

        for (const QString& f : PortableProgramFiles())
            QCOMPARE(digestOf(target + u'/' + f), digestOf(env.progDir() + u'/' + f));
        QVERIFY(QFileInfo(target + "/argentpm").isExecutable());
        QCOMPARE(treeOf(target + "/Languages"), treeOf(env.progDir() + "/Languages"));
        QCOMPARE(treeOf(target + "/DataBases"), treeOf(ownFolder));
        QCOMPARE(digestOf(target + "/DataBases/anna.bdb"), digestOf(UsDBFilePath("anna")));
        QCOMPARE(posixMode(target + "/DataBases"), 0700);
        QCOMPARE(posixMode(target + "/DataBases/Backup"), 0700);
        QCOMPARE(posixMode(target + "/DataBases/anna.bdb"), 0600);
        QCOMPARE(posixMode(target + "/DataBases/Backup/anna_1.bdb.BACKUP"), 0600);
        QCOMPARE(posixMode(target + "/config.dat"), 0600);
        const QStringList cfg = QString::fromUtf8(readAllOf(target + "/config.dat")).split("\r\n");
        QCOMPARE(cfg.value(4), target + "/DataBases");
        QCOMPARE(cfg.value(13), ProgConfig[14]);
        // The program's own settings still name its own folder.
        QCOMPARE(ProgConfig[5], ownFolder);
        QCOMPARE(digestOf(ProgCfgPath), ownConfig);

        // The copy, started by someone without settings, runs portable and finds its users.
        const QProcessEnvironment e = strangerEnv(env.root() + "/stranger");
        int code = 0;
        QString out = runCli(target + "/argentpm", {"users"}, e, {}, &code);
        QCOMPARE(code, 0);
        QStringList users = out.split('\n', Qt::SkipEmptyParts);
        std::sort(users.begin(), users.end());
        QCOMPARE(users, QStringList({"SampleUser", "anna", "bob"}));
        out = runCli(target + "/argentpm", {"ls", "anna", "--password-stdin"}, e, "anna password\n", &code);
        QCOMPARE(code, 0);
        QVERIFY2(out.contains("on the stick"), qPrintable(out));
        QVERIFY(!QFile::exists(env.root() + "/stranger/data/ArgentPM"));

        // Mounted elsewhere later: the copy follows its own folder.
        QDir().mkpath(env.root() + "/media/other");
        QVERIFY(QDir().rename(env.root() + "/stick", env.root() + "/media/other/stick"));
        const QString moved = env.root() + "/media/other/stick/Argent";
        out = runCli(moved + "/argentpm", {"users"}, e, {}, &code);
        QCOMPARE(code, 0);
        QCOMPARE(out.split(u'\n', Qt::SkipEmptyParts).size(), 3);

        // The desktop program of the copy starts in portable mode too: its log is beside it.
        QProcess gui;
        gui.setProcessEnvironment(e);
        gui.start(moved + "/ArgentPasswordMngr", {});
        QVERIFY(gui.waitForStarted());
        QElapsedTimer t;
        t.start();
        QString log;
        while (t.elapsed() < 15000 && !log.contains("Language Loading... Ok")) {
            QThread::msleep(50);
            log = QString::fromUtf8(readAllOf(moved + "/DbgFile.dat"));
        }
        gui.kill();
        gui.waitForFinished();
        QVERIFY2(log.contains("Configuration Loading... Ok") && log.contains("Language Loading... Ok"),
                 qPrintable(log));
        QVERIFY(!QFile::exists(env.root() + "/stranger/data/ArgentPM"));
        QCOMPARE(QString::fromUtf8(readAllOf(moved + "/config.dat")).split("\r\n").value(4),
                 target + "/DataBases");
    }

    void secondInstallStopsAtTheDatabasesFolder() {
        TestEnv env;
        addPrograms(env);
        firstRun();
        makeUser("anna", "anna password");
        const QString target = env.root() + "/stick";
        QDir().mkpath(target);
        InstallToRemovableDevice(target);
        writeFileText(target + "/start.dat", "changed on the stick");
        writeFileText(target + "/DataBases/mine.txt", "kept");
        writeFileText(target + "/config.dat", "stick settings");
        try {
            InstallToRemovableDevice(target);
            QFAIL("installed twice");
        } catch (const VbError& e) {
            QCOMPARE(e.number(), 75);
            QVERIFY(e.description().contains("DataBases"));
        }
        argent::diag::clearSnapshot();
        // The program files came first and were written again; nothing after them.
        QCOMPARE(digestOf(target + "/start.dat"), digestOf(env.progDir() + "/start.dat"));
        QCOMPARE(readAllOf(target + "/DataBases/mine.txt"), QByteArray("kept"));
        QCOMPARE(readAllOf(target + "/config.dat"), QByteArray("stick settings"));
    }

    void missingProgramOrUnwritableTarget() {
        TestEnv env;
        firstRun();
        // No programs in the program folder: nothing can be copied.
        try {
            InstallToRemovableDevice(env.root() + "/stick");
            QFAIL("no error");
        } catch (const VbError& e) {
            QCOMPARE(e.number(), 53);
        }
        argent::diag::clearSnapshot();
        addPrograms(env);
        // A target below a file.
        writeFileText(env.root() + "/file", "x");
        QVERIFY_THROWS_EXCEPTION(VbError, InstallToRemovableDevice(env.root() + "/file/stick"));
        argent::diag::clearSnapshot();
    }

    void copyDirCountsEveryEntry() {
        TestEnv env;
        const QString from = env.root() + "/from/", to = env.root() + "/to/";
        QDir().mkpath(from + "a/b/c");
        QDir().mkpath(from + "empty");
        QDir().mkpath(to);
        writeFileText(from + "1.txt", "1");
        writeFileText(from + ".hidden", "h");
        writeFileText(from + "a/2.txt", "2");
        writeFileText(from + "a/b/c/3.txt", "3");
        QVERIFY(QFile::link(from + "a", from + "loop"));
        QCOMPARE(CopyDir(from, to), 8);
        QCOMPARE(treeOf(to),
                 QStringList({".hidden", "1.txt", "a", "a/2.txt", "a/b", "a/b/c", "a/b/c/3.txt", "empty"}));
        // Nothing in an empty folder.
        QDir().mkpath(env.root() + "/e1");
        QDir().mkpath(env.root() + "/e2");
        QCOMPARE(CopyDir(env.root() + "/e1", env.root() + "/e2"), 0);
        // Copying a folder into a folder of its own does not go round in circles.
        QDir().mkpath(from + "a/inner");
        const int n = CopyDir(from, from + "a/inner");
        QVERIFY(n > 0);
        QVERIFY(QFile::exists(from + "a/inner/a/2.txt"));
        QVERIFY(!QFile::exists(from + "a/inner/a/inner/a"));
        // Private data: 0600 files, 0700 folders.
        QDir().mkpath(env.root() + "/priv");
        CopyDir(from, env.root() + "/priv", true);
        QCOMPARE(posixMode(env.root() + "/priv/1.txt"), 0600);
        QCOMPARE(posixMode(env.root() + "/priv/a/b"), 0700);
    }
};
ARGENT_TEST(PortableTest)

#include "tst_portable.moc"
