#include "tests/common/TestMain.h"
#include "tests/maintenance/MaintTestKit.h"
#include "tests/records/CliRunner.h"

#include <QTest>

class CliMaintenanceTest : public QObject {
    Q_OBJECT
private slots:
    void backupListRestoreAndDelete() {
        TestEnv env;
        CliRunner cli(env);
        QCOMPARE(cli.as(kAnnaPw, {"add-user", "anna"}).code, 0);
        QByteArray version[3];
        for (int k = 1; k <= 2; ++k) {
            cli.as(kAnnaPw, {"mkdir", "anna", "0", QStringLiteral("v%1").arg(k)});
            QCOMPARE(cli.as(kAnnaPw, {"backup", "anna"}).out,
                     cli.dbs() + QStringLiteral("/Backup/anna_%1.bdb.BACKUP\n").arg(k));
            version[k] = digestOf(cli.dbs() + "/anna.bdb");
        }
        QStringList listed = cli({"backups"}).out.split(u'\n', Qt::SkipEmptyParts);
        listed.sort();
        QCOMPARE(listed.size(), 2);
        QVERIFY(listed[0].startsWith("anna_1.bdb.BACKUP Date: "));
        // Restoring and deleting ask first; the item as listed works as well as the file name.
        QCOMPARE(cli({"restore", "anna_1.bdb.BACKUP"}).code, 7);
        QCOMPARE(cli({"restore", listed[0], "--yes"}).code, 0);
        QCOMPARE(digestOf(cli.dbs() + "/anna.bdb"), version[1]);
        QCOMPARE(cli({"delete-backup", "anna_2.bdb.BACKUP"}).code, 7);
        QCOMPARE(cli({"delete-backup", "anna_2.bdb.BACKUP", "--yes"}).code, 0);
        QCOMPARE(cli({"backups"}).out.count(u'\n'), 1);
    }
};
ARGENT_TEST(CliMaintenanceTest)

#include "tst_cli_maintenance.moc"
