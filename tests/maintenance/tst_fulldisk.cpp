// A full disk never costs a file: saving a user, restoring a backup copy over a user and
// saving the settings fail, say so, and leave the old file byte for byte, for a file of a
// few hundred bytes (smaller than any write buffer) and one of 2 MB.

#include "app/ProgConfig.h"
#include "maintenance/RestoreBackup.h"
#include "tests/common/FullDisk.h"
#include "tests/common/TestMain.h"
#include "tests/maintenance/MaintTestKit.h"

#include <QTest>

class FullDiskTest : public QObject {
    Q_OBJECT
private slots:
    void oldFileStays_data() {
        QTest::addColumn<QString>("what");
        QTest::addColumn<int>("rows");
        for (const char* what : {"user file", "restore", "settings"}) {
            QTest::newRow(qPrintable(QString("%1, small").arg(what))) << what << 0;
            QTest::newRow(qPrintable(QString("%1, 2 MB").arg(what))) << what << 20000;
        }
    }
    void oldFileStays() {
        QFETCH(QString, what);
        QFETCH(int, rows);
        TestEnv env;
        firstRun();
        const QString disk = env.root() + "/disk";
        FullDisk full(disk, rows ? 10 * 1024 * 1024 : 16 * 1024);
        ProgConfig[5] = disk;
        const QString md5 = makeUser("anna");
        QCOMPARE(FullUserLoad("anna", md5), 0);
        for (int i = 0; i < rows; ++i)
            AddRecordToDB(*CurUsDB, "0", QString("record %1").arg(i), "login", QString::number(i * 7919, 36),
                          QString(80, QChar('a' + i % 26)));
        QCOMPARE(SaveUsDB(CurUsDB, GetTruePasw(md5)), 1);
        const QString user = UsDBFilePath("anna");
        QVERIFY(rows ? QFileInfo(user).size() > 2 * 1024 * 1024 : QFileInfo(user).size() < 400);

        QString target = user;
        if (what == "restore") {
            DoAutobackup(CurUsDB);
            addTitle("after the copy");
            QCOMPARE(SaveUsDB(CurUsDB, GetTruePasw(md5)), 1);
        } else if (what == "settings") {
            target = disk + "/config.dat";
            for (int i = 0; i < rows / 4; ++i)
                AddElemToStrMass(ProgConfig, QString(120, 'x'));
            SaveConfig(target);
        }
        const QByteArray before = readAllOf(target);
        const QStringList files = QDir(disk).entryList(QDir::Files | QDir::Hidden);
        full.Fill();

        addTitle("never written");
        int result = 0;
        full.Run([&] {
            if (what == "user file") {
                result = SaveUsDB(CurUsDB, GetTruePasw(md5));
            } else if (what == "restore") {
                result = RestoreDBFromBackup("anna_1.bdb.BACKUP");
            } else {
                ProgConfig[4] = "changed";
                try {
                    SaveConfig(target);
                } catch (const VbError& e) {
                    result = -e.number();
                }
                argent::diag::clearSnapshot();
            }
        });
        QCOMPARE(result, what == "settings" ? -75 : -1);
        QVERIFY(readAllOf(target) == before);
        // Nothing half-written stays behind either.
        QStringList now = QDir(disk).entryList(QDir::Files | QDir::Hidden);
        now.removeAll("filler");
        QCOMPARE(now, files);
        if (what != "settings")
            QCOMPARE(TestUsPasw(user, md5), 1);
        // A restore that did not happen leaves the open user open, unsaved change and all.
        if (what == "restore") {
            QCOMPARE(CurUser, QStringLiteral("anna"));
            QVERIFY(CurUsDB->HasUnsavedChanges());
            QCOMPARE(allRows().last().value(3), QStringLiteral("never written"));
        }
    }
};
ARGENT_TEST(FullDiskTest)

#include "tst_fulldisk.moc"
