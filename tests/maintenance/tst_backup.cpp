#include "app/VbConv.h"
#include "app/modTimer.h"
#include "maintenance/Autobackup.h"
#include "tests/common/TestMain.h"
#include "tests/maintenance/MaintTestKit.h"

#include <QCoreApplication>
#include <QTest>

#include <climits>
#include <csignal>
#include <sys/mount.h>
#include <sys/resource.h>

namespace {

const char kTyped[] = "anna password";

QString openAnna() {
    firstRun();
    const QString md5 = makeUser("anna", kTyped);
    FullUserLoad("anna", md5);
    return md5;
}

// One backup after a change, so that every copy differs from the one before.
QByteArray backupWithChange(const QString& title) {
    addTitle(title);
    DoAutobackup(CurUsDB);
    return digestOf(UsDBFilePath("anna"));
}

// Child: a backup under a file size limit below the size of the user's file, either
// with a save first (the database was just used) or copying the file as it stands.
int limitedBackupChild(int& argc, char** argv) {
    QCoreApplication app(argc, argv);
    const QStringList args = QCoreApplication::arguments().mid(1);
    childWorld();
    ProgConfig[13] = "3";
    if (FullUserLoad("anna", args.value(0)) != 0)
        return 3;
    addTitle("changed in the child");
    if (args.value(1) == QLatin1String("stale"))
        CurUsDB->SetDBLastAccess(CLng(GetQueryPerf()) - 7200);
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit lim{16 * 1024, 16 * 1024};
    setrlimit(RLIMIT_FSIZE, &lim);
    argent::diag::trapped([] { DoAutobackup(CurUsDB); });
    return 0;
}
ARGENT_CHILD("limited-backup", limitedBackupChild)

} // namespace

class BackupTest : public QObject {
    Q_OBJECT
private slots:
    void rotationKeepsTheNewestCopies() {
        TestEnv env;
        openAnna();
        QByteArray v[8];
        for (int k = 1; k <= 3; ++k) {
            v[k] = backupWithChange(QStringLiteral("v%1").arg(k));
            QCOMPARE(copiesOnDisk().size(), k);
            QCOMPARE(digestOf(copyOf("anna", k)), v[k]);
        }
        // Full: the oldest goes, the others move down, the new copy is the highest.
        v[4] = backupWithChange("v4");
        QCOMPARE(copiesOnDisk(),
                 QStringList({"anna_1.bdb.BACKUP", "anna_2.bdb.BACKUP", "anna_3.bdb.BACKUP"}));
        QCOMPARE(digestOf(copyOf("anna", 1)), v[2]);
        QCOMPARE(digestOf(copyOf("anna", 2)), v[3]);
        QCOMPARE(digestOf(copyOf("anna", 3)), v[4]);
        // A copy is the user's file as it is on disk: still enciphered, byte for byte.
        QCOMPARE(titlesInFile(copyOf("anna", 1), CurUsPasw), QStringList({"v1", "v2"}));
        QCOMPARE(posixMode(copyOf("anna", 3)), 0600);
        QCOMPARE(posixMode(backupDir()), 0700);
        int lines = 0;
        for (const QString& l : logTexts())
            lines += l == QLatin1String("!!!AUTOBACKUP!!!");
        QCOMPARE(lines, 4);

        // Only _3 left (the others deleted by hand): it moves to _2, the new one is _3.
        QFile::remove(copyOf("anna", 1));
        QFile::remove(copyOf("anna", 2));
        v[5] = backupWithChange("v5");
        QCOMPARE(copiesOnDisk(), QStringList({"anna_2.bdb.BACKUP", "anna_3.bdb.BACKUP"}));
        QCOMPARE(digestOf(copyOf("anna", 2)), v[4]);
        QCOMPARE(digestOf(copyOf("anna", 3)), v[5]);
    }

    void fewerCopiesLeaveTheStaleOnesAlone() {
        TestEnv env;
        openAnna();
        ProgConfig[13] = "5";
        QByteArray v[8];
        for (int k = 1; k <= 5; ++k)
            v[k] = backupWithChange(QStringLiteral("v%1").arg(k));
        ProgConfig[13] = "n3"; // switched off, the number still counts
        v[6] = backupWithChange("v6");
        QCOMPARE(digestOf(copyOf("anna", 1)), v[2]);
        QCOMPARE(digestOf(copyOf("anna", 2)), v[3]);
        QCOMPARE(digestOf(copyOf("anna", 3)), v[6]);
        QCOMPARE(digestOf(copyOf("anna", 4)), v[4]);
        QCOMPARE(digestOf(copyOf("anna", 5)), v[5]);

        // One copy: always _1, the newest.
        ProgConfig[13] = "1";
        v[7] = backupWithChange("v7");
        QCOMPARE(digestOf(copyOf("anna", 1)), v[7]);
        QCOMPARE(copiesOnDisk().size(), 5);
        // None: copy 1 goes and the new copy is _0, replacing the one before.
        ProgConfig[13] = "0";
        backupWithChange("v8");
        const QByteArray last = backupWithChange("v9");
        QVERIFY(!QFile::exists(copyOf("anna", 1)));
        QCOMPARE(digestOf(copyOf("anna", 0)), last);
    }

    void usedDatabasesAreSavedFirst() {
        TestEnv env;
        const QString md5 = openAnna();
        addTitle("unsaved");
        // Not used for two hours: the file is copied as it stands.
        const QByteArray before = digestOf(UsDBFilePath("anna"));
        CurUsDB->SetDBLastAccess(CLng(GetQueryPerf()) - 7200);
        DoAutobackup(CurUsDB);
        QCOMPARE(digestOf(UsDBFilePath("anna")), before);
        QCOMPARE(digestOf(copyOf("anna", 1)), before);
        QCOMPARE(titlesInFile(copyOf("anna", 1), md5), QStringList());
        // With a 1-second timer the limit is 60 seconds: 100 seconds ago is too long.
        CurUsDB->SetDBLastAccess(CLng(GetQueryPerf()) - 100);
        DoAutobackup(CurUsDB, 1000);
        QCOMPARE(digestOf(copyOf("anna", 2)), before);
        // Used just now: saved, and the copy holds the change.
        CurUsDB->SetDBLastAccess(CLng(GetQueryPerf()));
        DoAutobackup(CurUsDB);
        QCOMPARE(titlesInFile(copyOf("anna", 3), md5), QStringList({"unsaved"}));
        QCOMPARE(digestOf(copyOf("anna", 3)), digestOf(UsDBFilePath("anna")));
        // The interval times 60 is a 32-bit product.
        QVERIFY_THROWS_EXCEPTION(VbError, DoAutobackup(CurUsDB, INT_MAX / 30));
        argent::diag::clearSnapshot();
    }

    void timerBacksUpOnTheFirstTickAndHourly() {
        TestEnv env;
        firstRun();
        const QString md5 = makeUser("anna", kTyped);
        int ticks = 0;
        // No user: the ticks do not count.
        QVERIFY(!AutobackupTick(ticks, CurUsDB));
        QCOMPARE(ticks, 0);
        FullUserLoad("anna", md5);
        QVERIFY(AutobackupTick(ticks, CurUsDB));
        QCOMPARE(ticks, 1);
        int made = 1;
        for (int i = 1; i <= 120; ++i)
            made += AutobackupTick(ticks, CurUsDB);
        QCOMPARE(ticks, 121);
        QCOMPARE(made, 3); // ticks 0, 60 and 120
        QCOMPARE(copiesOnDisk().size(), 3);
        ticks = INT_MAX;
        QVERIFY_THROWS_EXCEPTION(VbError, AutobackupTick(ticks, CurUsDB));
        argent::diag::clearSnapshot();
        // The main window's handler: the program-wide counter and the current user.
        AutobackupTickCount = 59;
        QVERIFY(!AutobackupTick());
        QVERIFY(AutobackupTick());
        QCOMPARE(AutobackupTickCount, 61);
    }

    void nonsenseInTheSettingsStopsBeforeAnyChange() {
        TestEnv env;
        openAnna();
        const QByteArray before = digestOf(UsDBFilePath("anna"));
        for (const char* bad : {"abc", "n", "", "9999999999"}) {
            ProgConfig[13] = QString::fromLatin1(bad);
            try {
                DoAutobackup(CurUsDB);
                QFAIL(bad);
            } catch (const VbError& e) {
                QVERIFY2(e.number() == 13 || e.number() == 6, bad);
            }
            argent::diag::clearSnapshot();
        }
        QVERIFY(!QFile::exists(backupDir()));
        QCOMPARE(digestOf(UsDBFilePath("anna")), before);
        ProgConfig[13] = "n2";
        QCOMPARE(BackupCopiesNumber(), 2);
    }

    void failedBackupLeavesTheUserFileWhole() {
        TestEnv env;
        const QString md5 = openAnna();
        // Bigger than the file size limit of the child below.
        for (int i = 0; i < 1000; ++i)
            addTitle(QStringLiteral("a longer title, so that the file grows %1").arg(i));
        addTitle("kept");
        QCOMPARE(SaveUsDB(CurUsDB, GetTruePasw(md5)), 1);
        QVERIFY(QFileInfo(UsDBFilePath("anna")).size() > 16 * 1024);
        const QByteArray before = digestOf(UsDBFilePath("anna"));
        // A file where the backup folder should be.
        writeFileText(backupDir(), "not a folder");
        CurUsDB->SetDBLastAccess(CLng(GetQueryPerf()) - 7200);
        try {
            DoAutobackup(CurUsDB);
            QFAIL("no error");
        } catch (const VbError& e) {
            QCOMPARE(e.number(), 75);
        }
        argent::diag::clearSnapshot();
        QCOMPARE(digestOf(UsDBFilePath("anna")), before);
        QFile::remove(backupDir());

        // A disk that fills up while the copy is written, and one that fills up while the
        // database is saved first: the error report, and the user's file as it was.
        for (const char* mode : {"stale", "used"}) {
            QString err;
            QCOMPARE(runChild(env, "limited-backup", {md5, QString::fromLatin1(mode)}, &err),
                     argent::diag::kTrappedExitCode);
            QVERIFY2(err.contains("Path/File access error"), qPrintable(err));
            QCOMPARE(digestOf(UsDBFilePath("anna")), before);
            const QStringList titles = titlesInFile(UsDBFilePath("anna"), md5);
            QCOMPARE(titles.size(), 1001);
            QCOMPARE(titles.last(), QStringLiteral("kept"));
        }
    }

    // A real full disk: the backup folder on a small tmpfs (where the system allows it).
    void fullTmpfsLeavesTheUserFileWhole() {
        TestEnv env;
        const QString md5 = openAnna();
        for (int i = 0; i < 3000; ++i)
            addTitle(QStringLiteral("a longer title, so that the file grows %1").arg(i));
        QCOMPARE(SaveUsDB(CurUsDB, GetTruePasw(md5)), 1);
        QVERIFY(QFileInfo(UsDBFilePath("anna")).size() > 64 * 1024);
        QDir().mkpath(backupDir());
        if (mount("tmpfs", QFile::encodeName(backupDir()).constData(), "tmpfs", 0, "size=64k,mode=0700") != 0)
            QSKIP("no tmpfs can be mounted here");
        const QByteArray before = digestOf(UsDBFilePath("anna"));
        CurUsDB->SetDBLastAccess(CLng(GetQueryPerf()) - 7200);
        int error = 0;
        try {
            DoAutobackup(CurUsDB);
        } catch (const VbError& e) {
            error = e.number();
        }
        argent::diag::clearSnapshot();
        const QStringList left = copiesOnDisk();
        umount(QFile::encodeName(backupDir()).constData());
        QCOMPARE(error, 75);
        QVERIFY2(left.isEmpty(), qPrintable(left.join(", ")));
        QCOMPARE(digestOf(UsDBFilePath("anna")), before);
    }
};
ARGENT_TEST(BackupTest)

#include "tst_backup.moc"
