#include "maintenance/RestoreBackup.h"
#include "tests/common/TestMain.h"
#include "tests/maintenance/MaintTestKit.h"
#include "tests/records/CliRunner.h"

#include <QTest>

namespace {
const QByteArray kPw = "anna password\n";
}

class CliMaintenanceTest : public QObject {
    Q_OBJECT
private slots:
    void everyCommandHasItsHelp() {
        TestEnv env;
        CliRunner cli(env);
        for (const char* cmd : {"backup", "backups", "restore", "delete-backup", "install-portable"}) {
            const CliRun r = cli({QString::fromLatin1(cmd), "--help"});
            QCOMPARE(r.code, 0);
            QVERIFY2(r.out.startsWith(QStringLiteral("Usage: argentpm [--databases DIR] ") + cmd), cmd);
        }
        QCOMPARE(cli({"backups", "extra"}).code, 2);
        QCOMPARE(cli({"restore"}).code, 2);
    }

    void backupListRestoreAndDelete() {
        TestEnv env;
        CliRunner cli(env);
        QCOMPARE(cli({"add-user", "anna", "--password-stdin"}, kPw).code, 0);
        QCOMPARE(cli({"backups"}).out, QString());
        QByteArray version[4];
        for (int k = 1; k <= 3; ++k) {
            QCOMPARE(cli({"mkdir", "anna", "0", QStringLiteral("v%1").arg(k), "--password-stdin"}, kPw).code,
                     0);
            const CliRun r = cli({"backup", "anna", "--password-stdin"}, kPw);
            QCOMPARE(r.code, 0);
            QCOMPARE(r.out, cli.dbs() + QStringLiteral("/Backup/anna_%1.bdb.BACKUP\n").arg(k));
            version[k] = digestOf(cli.dbs() + "/anna.bdb");
            QCOMPARE(digestOf(cli.dbs() + QStringLiteral("/Backup/anna_%1.bdb.BACKUP").arg(k)), version[k]);
        }
        QCOMPARE(cli({"backup", "anna", "--password-stdin"}, "wrong\n").code, 3);
        QCOMPARE(cli({"backup", "nobody", "--password-stdin"}, kPw).code, 4);

        QStringList listed = cli({"backups"}).out.split(u'\n', Qt::SkipEmptyParts);
        listed.sort();
        QCOMPARE(listed.size(), 3);
        QVERIFY(listed[0].startsWith("anna_1.bdb.BACKUP Date: "));

        // Restoring asks first; the item text as listed works as well as the file name.
        QCOMPARE(cli({"restore", "anna_1.bdb.BACKUP"}).code, 7);
        QCOMPARE(digestOf(cli.dbs() + "/anna.bdb"), version[3]);
        QCOMPARE(cli({"restore", listed[0], "--yes"}).code, 0);
        QCOMPARE(digestOf(cli.dbs() + "/anna.bdb"), version[1]);
        QCOMPARE(cli({"ls", "anna", "--password-stdin"}, kPw).out, QStringLiteral("0  anna\n1    v1/\n"));
        QCOMPARE(cli({"backups"}).out.count(u'\n'), 3);
        QCOMPARE(cli({"restore", "anna_9.bdb.BACKUP", "--yes"}).code, 8);
        QCOMPARE(cli({"restore", "../anna.bdb", "--yes"}).code, 8);
        writeFileText(cli.dbs() + "/Backup/nouser.bdb.BACKUP", "x");
        QCOMPARE(cli({"restore", "nouser.bdb.BACKUP", "--yes"}).code, 7);

        QCOMPARE(cli({"delete-backup", "anna_2.bdb.BACKUP"}).code, 7);
        QCOMPARE(cli({"delete-backup", "anna_2.bdb.BACKUP", "--yes"}).code, 0);
        QVERIFY(!QFile::exists(cli.dbs() + "/Backup/anna_2.bdb.BACKUP"));
        QCOMPARE(cli({"delete-backup", "anna_2.bdb.BACKUP", "--yes"}).code, 8);
    }

    void badNumberOfCopiesIsSaidPlainly() {
        TestEnv env;
        CliRunner cli(env);
        QCOMPARE(cli({"add-user", "anna", "--password-stdin"}, kPw).code, 0);
        // The settings of the tool's first run: entry 13 made nonsense.
        const QString cfg = env.userFolder() + "/config.dat";
        QStringList lines = QString::fromUtf8(readAllOf(cfg)).split("\r\n");
        lines[12] = "abc";
        writeFileText(cfg, lines.join("\r\n").toUtf8());
        const CliRun r = cli({"backup", "anna", "--password-stdin"}, kPw);
        QCOMPARE(r.code, 9);
        QVERIFY2(r.err.contains("entry 13") && r.err.contains("\"abc\""), qPrintable(r.err));
        QVERIFY(!QFile::exists(cli.dbs() + "/Backup"));
    }

    void portableInstall() {
        TestEnv env;
        CliRunner cli(env);
        QFile::copy(QStringLiteral(ARGENT_BIN_DIR "/ArgentPasswordMngr"),
                    env.progDir() + "/ArgentPasswordMngr");
        QCOMPARE(cli({"add-user", "anna", "--password-stdin"}, kPw).code, 0);
        const QString target = env.root() + "/stick/Argent";
        CliRun r = cli({"install-portable", target});
        QCOMPARE(r.code, 0);
        QVERIFY(r.out.startsWith("Installed to " + target));
        QCOMPARE(digestOf(target + "/DataBases/anna.bdb"), digestOf(cli.dbs() + "/anna.bdb"));
        QCOMPARE(QString::fromUtf8(readAllOf(target + "/config.dat")).split("\r\n").value(4),
                 target + "/DataBases");
        // A second time: refused before anything is written.
        writeFileText(target + "/start.dat", "changed");
        r = cli({"install-portable", target});
        QCOMPARE(r.code, 7);
        QCOMPARE(readAllOf(target + "/start.dat"), QByteArray("changed"));
        // The copy's own tool sees the copy's users only.
        QProcess p;
        p.start(target + "/argentpm", {"users"});
        QVERIFY(p.waitForFinished(20000));
        QCOMPARE(QString::fromUtf8(p.readAllStandardOutput()).split(u'\n', Qt::SkipEmptyParts),
                 QStringList({"anna"}));
    }
};
ARGENT_TEST(CliMaintenanceTest)

#include "tst_cli_maintenance.moc"
