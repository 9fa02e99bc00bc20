#include "maintenance/RestoreBackup.h"
#include "tests/common/TestMain.h"
#include "tests/maintenance/MaintTestKit.h"

#include <QTest>

class RestoreTest : public QObject {
    Q_OBJECT
private slots:
    void listShowsBackupCopiesWithTheirDates() {
        TestEnv env;
        firstRun();
        QDir().mkpath(backupDir() + "/c_1.bdb.BACKUP");
        const QDateTime when(QDate(2026, 11, 14), QTime(22, 40, 1));
        for (const char* f : {"anna_2.bdb.BACKUP", "x.BDB.BACKUP", "notes.txt"}) {
            QFile file(backupDir() + u'/' + QLatin1String(f));
            QVERIFY(file.open(QIODevice::WriteOnly) &&
                    file.setFileTime(when, QFileDevice::FileModificationTime));
        }
        const QStringList items = ListDBsForRestore(backupDir());
        QCOMPARE(items, QStringList({"anna_2.bdb.BACKUP Date: " + DefaultDateTimeText(when)}));
        QCOMPARE(BackupFileFromItem(items[0]), QStringLiteral("anna_2.bdb.BACKUP"));
        QCOMPARE(BackupUserFromItem("mary_ann_1.bdb.BACKUP Date: x"), QStringLiteral("mary"));
        clearLog();
        QVERIFY(ListDBsForRestore(env.root() + "/nowhere").isEmpty());
        QCOMPARE(logLines(), QStringList({"Error#0003. DBPath = " + env.root() + "/nowhere"}));
    }

    void restoringReplacesTheUserFileAndKeepsEveryCopy() {
        TestEnv env;
        const QString md5 = openAnna();
        for (int k = 1; k <= 3; ++k) {
            addTitle(QStringLiteral("v%1").arg(k));
            DoAutobackup(CurUsDB);
        }
        addTitle("unsaved");
        const QByteArray copy1 = digestOf(copyOf("anna", 1));
        QCOMPARE(RestoreDBFromBackup(ListDBsForRestore(backupDir()).filter("anna_1.bdb").value(0)), 0);
        QCOMPARE(digestOf(UsDBFilePath("anna")), copy1);
        QCOMPARE(CurUser, QStringLiteral("anna"));
        QCOMPARE(CurUsPasw, md5);
        QCOMPARE(allRows().value(0).value(3), QStringLiteral("v1"));
        QCOMPARE(copiesOnDisk(),
                 QStringList({"anna_1.bdb.BACKUP", "anna_2.bdb.BACKUP", "anna_3.bdb.BACKUP"}));
        QCOMPARE(posixMode(UsDBFilePath("anna")), 0600);
        // Another user's copy: the current user is logged out, the missing file comes back.
        QFile::copy(copyOf("anna", 2), copyOf("bob", 1));
        QCOMPARE(RestoreDBFromBackup("bob_1.bdb.BACKUP"), 1);
        QVERIFY(CurUser.isEmpty());
        QCOMPARE(digestOf(UsDBFilePath("bob")), digestOf(copyOf("bob", 1)));
        QCOMPARE(DeleteBackup("bob_1.bdb.BACKUP"), 1);
    }

    void badNamesChangeNothing() {
        TestEnv env;
        openAnna();
        DoAutobackup(CurUsDB);
        for (const char* f : {"/Backup/_1.bdb.BACKUP", "/Backup/nouser.bdb.BACKUP", "/evil_1.bdb.BACKUP"})
            writeFileText(ProgConfig[5] + QLatin1String(f), "x");
        const QByteArray before = digestOf(UsDBFilePath("anna"));
        for (auto [item, result] : {std::pair{"anna_7.bdb.BACKUP Date: 1.1.2026 0:00:00", -2},
                                    {"../evil_1.bdb.BACKUP", -2},
                                    {"anna_1.bdb", -2},
                                    {"_1.bdb.BACKUP", -3},
                                    {"nouser.bdb.BACKUP", -3}})
            QVERIFY2(RestoreDBFromBackup(QString::fromLatin1(item)) == result, item);
        QCOMPARE(CurUser, QStringLiteral("anna"));
        QCOMPARE(digestOf(UsDBFilePath("anna")), before);
        QCOMPARE(DeleteBackup("../evil_1.bdb.BACKUP"), -2);
        QCOMPARE(copiesOnDisk().size(), 3);
        QVERIFY(QFile::exists(ProgConfig[5] + "/evil_1.bdb.BACKUP"));
    }
};
ARGENT_TEST(RestoreTest)

#include "tst_restore.moc"
