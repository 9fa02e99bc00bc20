#include "tests/common/TestMain.h"
#include "tests/maintenance/MaintTestKit.h"
#include "tests/records/CliRunner.h"

#include <QTest>

class CliMaintenanceTest : public QObject {
    Q_OBJECT
private slots:
    void backupRestoreAndDeleteAskFirst() {
        TestEnv env;
        CliRunner cli(env);
        QCOMPARE(cli.as(kAnnaPw, {"add-user", "anna"}).code, 0);
        QCOMPARE(cli.as(kAnnaPw, {"backup", "anna"}).out, cli.dbs() + "/Backup/anna_1.bdb.BACKUP\n");
        const QByteArray first = digestOf(cli.dbs() + "/anna.bdb");
        cli.as(kAnnaPw, {"mkdir", "anna", "0", "v2"});
        QVERIFY(cli({"backups"}).out.startsWith("anna_1.bdb.BACKUP Date: "));
        QCOMPARE(cli({"restore", "anna_1.bdb.BACKUP"}).code, 7);
        QCOMPARE(cli({"restore", "anna_1.bdb.BACKUP", "--yes"}).code, 0);
        QCOMPARE(digestOf(cli.dbs() + "/anna.bdb"), first);
        QCOMPARE(cli({"delete-backup", "anna_1.bdb.BACKUP"}).code, 7);
        QCOMPARE(cli({"delete-backup", "anna_1.bdb.BACKUP", "--yes"}).code, 0);
        QCOMPARE(cli({"backups"}).out, QString());
    }
};
ARGENT_TEST(CliMaintenanceTest)

#include "tst_cli_maintenance.moc"
