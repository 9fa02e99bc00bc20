#include "maintenance/RemovableInstall.h"
#include "tests/common/TestMain.h"
#include "tests/maintenance/MaintTestKit.h"

#include <QDirIterator>
#include <QProcess>
#include <QTest>

#include <algorithm>

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

} // namespace

class PortableTest : public QObject {
    Q_OBJECT
private slots:
    void copyHoldsProgramsDatabasesAndItsOwnSettingsOnce() {
        TestEnv env;
        addPrograms(env);
        openAnna();
        DoAutobackup(CurUsDB);
        SaveConfig(ProgCfgPath);
        const QByteArray ownConfig = digestOf(ProgCfgPath);
        const QString ownFolder = ProgConfig[5];
        const QString target = env.root() + "/stick/Argent";
        QDir().mkpath(target);
        // A writer of the folder holds anna's lock while the copy is made.
        writeFileText(ownFolder + "/.anna.bdb.lock", "4242\nargentpm\nhost\n");
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
        // The copy's programs load Qt and libsodium from its lib/; Qt's window plugins
        // are in its plugins/, which its qt.conf names.
        QVERIFY(QFileInfo(target + "/plugins/platforms/libqxcb.so").isFile());
        for (const char* exe : {"/argentpm", "/ArgentPasswordMngr"}) {
            QProcess ldd;
            ldd.start("ldd", {target + QLatin1String(exe)});
            QVERIFY(ldd.waitForFinished());
            const QString out = QString::fromLocal8Bit(ldd.readAllStandardOutput());
            QVERIFY2(out.contains("libQt6Core.so.6 => " + target + "/lib/libQt6Core.so.6"), qPrintable(out));
            QVERIFY2(out.contains("libsodium.so.23 => " + target + "/lib/"), qPrintable(out));
            QVERIFY2(!out.contains("not found"), qPrintable(out));
        }
        QVERIFY(readAllOf(target + "/qt.conf").contains("\nPlugins=plugins\n"));
        QVERIFY(!QFile::exists(target + "/lib/libc.so.6"));
        // Everything but the users' lock files, which belong to the folder's own writers.
        QStringList own = treeOf(ownFolder);
        QVERIFY(own.removeAll(".anna.bdb.lock") == 1);
        QCOMPARE(treeOf(target + "/DataBases"), own);
        QCOMPARE(digestOf(target + "/DataBases/anna.bdb"), digestOf(UsDBFilePath("anna")));
        QCOMPARE(posixMode(target + "/DataBases/Backup/anna_1.bdb.BACKUP"), 0600);
        QCOMPARE(posixMode(target + "/config.dat"), 0600);
        // The copy's settings name its DataBases folder; the program's own are unchanged.
        QCOMPARE(QString::fromUtf8(readAllOf(target + "/config.dat")).split("\r\n").value(4),
                 target + "/DataBases");
        QCOMPARE(ProgConfig[5], ownFolder);
        QCOMPARE(digestOf(ProgCfgPath), ownConfig);

        // A second install into the same folder: the program files come first and are
        // written again, then it stops at DataBases; nothing after them is touched.
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
        QCOMPARE(digestOf(target + "/start.dat"), digestOf(env.progDir() + "/start.dat"));
        QCOMPARE(readAllOf(target + "/DataBases/mine.txt"), QByteArray("kept"));
        QCOMPARE(readAllOf(target + "/config.dat"), QByteArray("stick settings"));
    }

    void copyDirCountsEveryEntryAndNeverCopiesIntoItself() {
        TestEnv env;
        const QString from = env.root() + "/from/";
        QDir().mkpath(from + "a/b/c");
        QDir().mkpath(env.root() + "/to");
        writeFileText(from + "a/b/c/3.txt", "3");
        QVERIFY(QFile::link(from + "a", from + "loop"));
        QCOMPARE(CopyDir(from, env.root() + "/to", true), 4);
        QCOMPARE(treeOf(env.root() + "/to"), QStringList({"a", "a/b", "a/b/c", "a/b/c/3.txt"}));
        QCOMPARE(posixMode(env.root() + "/to/a/b/c/3.txt"), 0600);
        QCOMPARE(posixMode(env.root() + "/to/a/b"), 0700);
        QDir().mkpath(from + "a/inner");
        QVERIFY(CopyDir(from, from + "a/inner") > 0);
        QVERIFY(QFile::exists(from + "a/inner/a/b/c/3.txt"));
        QVERIFY(!QFile::exists(from + "a/inner/a/inner/a"));
    }
};
ARGENT_TEST(PortableTest)

#include "tst_portable.moc"
