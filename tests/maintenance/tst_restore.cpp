#include "maintenance/Autobackup.h"
#include "maintenance/RestoreBackup.h"
#include "tests/common/TestMain.h"
#include "tests/maintenance/MaintTestKit.h"

#include <QCoreApplication>
#include <QTest>

#include <algorithm>
#include <csignal>
#include <sys/mount.h>
#include <sys/resource.h>

namespace {

QString itemFor(const QString& file) {
    const QStringList items = ListDBsForRestore(backupDir());
    for (const QString& i : items)
        if (BackupFileFromItem(i) == file)
            return i;
    return QString();
}

// Child: restores a copy under a file size limit below the copy's size.
int limitedRestoreChild(int& argc, char** argv) {
    QCoreApplication app(argc, argv);
    const QStringList args = QCoreApplication::arguments().mid(1);
    childWorld();
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit lim{16 * 1024, 16 * 1024};
    setrlimit(RLIMIT_FSIZE, &lim);
    argent::diag::trapped([&] { RestoreBackupFile(args.value(0)); });
    return 0;
}
ARGENT_CHILD("limited-restore", limitedRestoreChild)

} // namespace

class RestoreTest : public QObject {
    Q_OBJECT
private slots:
    void listShowsBackupCopiesWithTheirDates() {
        TestEnv env;
        firstRun();
        const QString dir = backupDir();
        QDir().mkpath(dir + "/c_1.bdb.BACKUP");
        const QDateTime when(QDate(2026, 11, 14), QTime(22, 40, 1));
        for (const char* f : {"anna_2.bdb.BACKUP", "bob_1.bdb.BACKUP", "x.BDB.BACKUP", "anna_1.bdb.backup",
                              "notes.txt", ".bdb.BACKUP"}) {
            writeFileText(dir + u'/' + QLatin1String(f), "x");
            QFile file(dir + u'/' + QLatin1String(f));
            QVERIFY(file.open(QIODevice::ReadWrite));
            QVERIFY(file.setFileTime(when, QFileDevice::FileModificationTime));
        }
        QStringList items = ListDBsForRestore(dir);
        std::sort(items.begin(), items.end());
        const QString date = DefaultDateTimeText(when);
        QCOMPARE(items, QStringList({".bdb.BACKUP Date: " + date, "anna_2.bdb.BACKUP Date: " + date,
                                     "bob_1.bdb.BACKUP Date: " + date}));
        QVERIFY2(date.contains(":40:01"), qPrintable(date));
        QCOMPARE(BackupFileFromItem(items[1]), QStringLiteral("anna_2.bdb.BACKUP"));
        QCOMPARE(BackupUserFromItem(items[1]), QStringLiteral("anna"));
        QCOMPARE(BackupFileFromItem("anna_2.bdb.BACKUP"), QStringLiteral("anna_2.bdb.BACKUP"));
        // A user named with "_" is cut at the first one: the program's rule.
        QCOMPARE(BackupUserFromItem("mary_ann_1.bdb.BACKUP Date: x"), QStringLiteral("mary"));

        // A missing or empty folder: an empty list and one line in the debug log.
        QFile::remove(DbgFilePath());
        QVERIFY(ListDBsForRestore(env.root() + "/nowhere").isEmpty());
        QDir().mkpath(env.root() + "/empty");
        QVERIFY(ListDBsForRestore(env.root() + "/empty").isEmpty());
        QCOMPARE(logTexts(), QStringList({"Error#0003. DBPath = " + env.root() + "/nowhere",
                                          "Error#0003. DBPath = " + env.root() + "/empty"}));

        QDateTime c, a, w;
        GetFileTimes(dir + "/bob_1.bdb.BACKUP", c, a, w, false);
        QCOMPARE(w, when.toUTC());
        QCOMPARE(w.timeSpec(), Qt::UTC);
        GetFileTimes(env.root() + "/nowhere", c, a, w, false);
        QCOMPARE(w, QDateTime(QDate(1601, 1, 1), QTime(0, 0), Qt::UTC));
    }

    void restoringTheCurrentUserOpensTheOldVersion() {
        TestEnv env;
        firstRun();
        const QString md5 = makeUser("anna", "anna password");
        FullUserLoad("anna", md5);
        for (int k = 1; k <= 3; ++k) {
            addTitle(QStringLiteral("v%1").arg(k));
            DoAutobackup(CurUsDB);
        }
        addTitle("unsaved");
        const QByteArray copy1 = digestOf(copyOf("anna", 1));
        const QString item = itemFor("anna_1.bdb.BACKUP");
        QVERIFY(!item.isEmpty());
        QCOMPARE(RestoreDBFromBackup(item), 0);
        QCOMPARE(digestOf(UsDBFilePath("anna")), copy1);
        QCOMPARE(CurUser, QStringLiteral("anna"));
        QCOMPARE(CurUsPasw, md5);
        QCOMPARE(ProgConfig[4], QStringLiteral("anna"));
        const int tbl = CurUsDB->FindTable("DataTable");
        QCOMPARE(CurUsDB->GetTblRecNum(tbl), 1);
        QCOMPARE(CurUsDB->GetTblFldValNm(tbl, 1, "Title"), QStringLiteral("v1"));
        // Every copy is still there.
        QCOMPARE(copiesOnDisk(),
                 QStringList({"anna_1.bdb.BACKUP", "anna_2.bdb.BACKUP", "anna_3.bdb.BACKUP"}));
        QCOMPARE(posixMode(UsDBFilePath("anna")), 0600);
    }

    void restoringAnotherUserLogsOut() {
        TestEnv env;
        firstRun();
        const QString annaMd5 = makeUser("anna", "anna password");
        const QString bobMd5 = makeUser("bob", "bob password");
        FullUserLoad("bob", bobMd5);
        addTitle("bob's");
        DoAutobackup(CurUsDB);
        UnloadUser();
        FullUserLoad("anna", annaMd5);
        QCOMPARE(RestoreDBFromBackup(itemFor("bob_1.bdb.BACKUP")), 1);
        QVERIFY(CurUser.isEmpty());
        QCOMPARE(CurUsDB->TabNum(), 0);
        QCOMPARE(titlesInFile(UsDBFilePath("bob"), bobMd5), QStringList({"bob's"}));
        // A user whose file is gone gets it back.
        QFile::remove(UsDBFilePath("bob"));
        QCOMPARE(RestoreBackupFile("bob_1.bdb.BACKUP"), 1);
        QCOMPARE(titlesInFile(UsDBFilePath("bob"), bobMd5), QStringList({"bob's"}));
    }

    void badNamesChangeNothing() {
        TestEnv env;
        firstRun();
        const QString md5 = makeUser("anna", "anna password");
        FullUserLoad("anna", md5);
        DoAutobackup(CurUsDB);
        writeFileText(backupDir() + "/_1.bdb.BACKUP", "x");
        writeFileText(backupDir() + "/nouser.bdb.BACKUP", "x");
        writeFileText(Pt(ProgConfig[5]) + "evil_1.bdb.BACKUP", "x");
        const QByteArray before = digestOf(UsDBFilePath("anna"));
        QCOMPARE(RestoreDBFromBackup("anna_7.bdb.BACKUP Date: 1.1.2026 0:00:00"), -2);
        QCOMPARE(RestoreDBFromBackup("../evil_1.bdb.BACKUP"), -2);
        QCOMPARE(RestoreDBFromBackup("anna_1.bdb"), -2);
        QCOMPARE(RestoreDBFromBackup("_1.bdb.BACKUP"), -3);
        QCOMPARE(RestoreDBFromBackup("nouser.bdb.BACKUP"), -3);
        QCOMPARE(RestoreBackupFile("../evil_1.bdb.BACKUP"), -2);
        QCOMPARE(CurUser, QStringLiteral("anna"));
        QCOMPARE(digestOf(UsDBFilePath("anna")), before);
        QVERIFY(!QFile::exists(Pt(ProgConfig[5]) + ".bdb"));

        QCOMPARE(DeleteBackup(itemFor("anna_1.bdb.BACKUP")), 1);
        QVERIFY(!QFile::exists(copyOf("anna", 1)));
        QCOMPARE(DeleteBackup("anna_1.bdb.BACKUP"), -2);
        QCOMPARE(DeleteBackup("../evil_1.bdb.BACKUP"), -2);
        QVERIFY(QFile::exists(Pt(ProgConfig[5]) + "evil_1.bdb.BACKUP"));
    }

    void failedRestoreLeavesTheUserFileWhole() {
        TestEnv env;
        firstRun();
        const QString md5 = makeUser("anna", "anna password");
        FullUserLoad("anna", md5);
        for (int i = 0; i < 1000; ++i)
            addTitle(QStringLiteral("a longer title, so that the file grows %1").arg(i));
        DoAutobackup(CurUsDB);
        QVERIFY(QFileInfo(copyOf("anna", 1)).size() > 16 * 1024);
        UnloadUser();
        QString pasw = QStringLiteral("anna password");
        AddUser(UsDBFilePath("anna"), "anna", pasw);
        const QByteArray before = digestOf(UsDBFilePath("anna"));
        QString err;
        QCOMPARE(runChild(env, "limited-restore", {"anna_1.bdb.BACKUP"}, &err),
                 argent::diag::kTrappedExitCode);
        QVERIFY2(err.contains("Path/File access error"), qPrintable(err));
        QCOMPARE(digestOf(UsDBFilePath("anna")), before);
        QCOMPARE(titlesInFile(UsDBFilePath("anna"), md5), QStringList());
    }

    // A real full disk: the databases folder on a small tmpfs (where the system allows it).
    void fullTmpfsLeavesTheUserFileWhole() {
        TestEnv env;
        firstRun();
        const QString dbs = env.root() + "/small";
        QDir().mkpath(dbs);
        if (mount("tmpfs", QFile::encodeName(dbs).constData(), "tmpfs", 0, "size=256k,mode=0700") != 0)
            QSKIP("no tmpfs can be mounted here");
        ProgConfig[5] = dbs;
        const QString md5 = makeUser("anna", "anna password");
        const QByteArray before = digestOf(UsDBFilePath("anna"));
        QDir().mkpath(backupDir());
        writeFileText(copyOf("anna", 1), QByteArray(100 * 1024, 'c'));
        // Fill what is left.
        QFile filler(dbs + "/filler");
        filler.open(QIODevice::WriteOnly);
        while (filler.write(QByteArray(4096, 'f')) == 4096 && filler.flush()) {
        }
        filler.close();
        int error = 0;
        try {
            RestoreBackupFile("anna_1.bdb.BACKUP");
        } catch (const VbError& e) {
            error = e.number();
        }
        argent::diag::clearSnapshot();
        const QByteArray after = digestOf(UsDBFilePath("anna"));
        const QStringList left = QDir(dbs).entryList(QDir::Files | QDir::Hidden);
        umount(QFile::encodeName(dbs).constData());
        QCOMPARE(error, 75);
        QCOMPARE(after, before);
        QCOMPARE(left, QStringList({"anna.bdb", "filler"}));
    }
};
ARGENT_TEST(RestoreTest)

#include "tst_restore.moc"
