#include "tests/common/FullDisk.h"
#include "tests/common/TestMain.h"
#include "tests/records/CliRunner.h"

#include <QDir>
#include <QTest>

namespace {

const QString kPw = QStringLiteral("anna password");

QString fixture(const QString& Name) {
    return QStringLiteral(ARGENT_SOURCE_DIR "/tests/records/fixtures/") + Name;
}

} // namespace

class CliImportExportTest : public QObject {
    Q_OBJECT
private slots:
    void importAndExportFromTheCommandLine() {
        TestEnv env;
        CliRunner cli(env);
        QCOMPARE(cli({"add-user", "anna", "--password-stdin"}, kPw.toUtf8() + '\n').code, 0);
        QCOMPARE(cli.as(kPw, {"mkdir", "anna", "0", "Home"}).out, QStringLiteral("1\n"));
        const QString user = cli.dbs() + "/anna.bdb";

        CliRun r = cli.as(kPw, {"import", "anna", fixture("keepassxc.xml"), "--into", "1"});
        QCOMPARE(r.code, 0);
        QCOMPARE(r.out, QStringLiteral("2\nImported 3 folders and 3 records (keepass-xml) into folder 2.\n"));
        r = cli.as(kPw, {"import", "anna", fixture("generic.csv"), "--map",
                         "title=Account,password=Secret,group=5"});
        QCOMPARE(r.out, QStringLiteral("9\nImported 2 folders and 3 records (csv) into folder 9.\n"));

        // Refused before anything changes: a damaged file (with its line), a format that
        // does not fit, a column that is not there, a record as the target.
        const QByteArray before = readAllOf(user);
        writeFileText(env.root() + "/bad.csv", "url,username,password\nu,a,\"b\nc,d\n");
        r = cli.as(kPw, {"import", "anna", env.root() + "/bad.csv"});
        QCOMPARE(r.code, 1);
        QVERIFY2(r.err.contains("line 2: a quoted field is not closed; nothing was imported"),
                 qPrintable(r.err));
        QCOMPARE(cli.as(kPw, {"import", "anna", fixture("keepassxc.xml"), "--format", "bitwarden-json"}).code,
                 1);
        QCOMPARE(cli.as(kPw, {"import", "anna", fixture("generic.csv"), "--map", "title=Nope"}).code, 2);
        QCOMPARE(cli.as(kPw, {"import", "anna", fixture("chrome.csv"), "--into", "3"}).code, 7);
        QCOMPARE(readAllOf(user), before);

        // Export of a folder to standard output, of the user to a private file.
        r = cli.as(kPw, {"export", "anna", "--folder", "2", "--format", "csv"});
        QCOMPARE(r.code, 0);
        QVERIFY(r.out.startsWith("\"Group\",\"Title\",\"Username\",\"Password\",\"URL\",\"Notes\""));
        QVERIFY(r.out.contains("\"keepassxc/Banking/Cards\",\"Карта Ї\",\"Юзер\",\"Пароль-Ї\""));
        QVERIFY(!r.out.contains("Mail"));
        const QString out = env.root() + "/anna.xml";
        r = cli.as(kPw, {"export", "anna", "-o", out});
        QCOMPARE(r.out, QStringLiteral("Exported 8 folders and 6 records to %1.\n").arg(out));
        QCOMPARE(posixMode(out), 0600);
        // ... which imports back whole.
        r = cli.as(kPw, {"import", "anna", out});
        QCOMPARE(r.out,
                 QStringLiteral("15\nImported 8 folders and 6 records (keepass-xml) into folder 15.\n"));
        QCOMPARE(cli.as(kPw, {"export", "anna", "-o", user + "/x.xml"}).code, 1);
    }

    // An export that cannot be written in whole fails with the reason and leaves the file
    // that was there byte for byte, with no temporary file beside it.
    void failedExportLeavesTheOldFile_data() {
        QTest::addColumn<bool>("fullDisk");
        QTest::newRow("folder that is a file") << false;
        QTest::newRow("full disk") << true;
    }
    void failedExportLeavesTheOldFile() {
        QFETCH(bool, fullDisk);
        TestEnv env;
        CliRunner cli(env);
        QCOMPARE(cli({"add-user", "anna", "--password-stdin"}, kPw.toUtf8() + '\n').code, 0);
        QCOMPARE(cli.as(kPw, {"import", "anna", fixture("keepassxc.xml")}).code, 0);
        const QString disk = env.root() + "/disk";
        FullDisk full(disk, 16 * 1024);
        const QString old = disk + "/anna.xml";
        QCOMPARE(cli.as(kPw, {"export", "anna", "-o", old, "--format", "csv"}).code, 0);
        const QByteArray before = readAllOf(old);
        QVERIFY(before.contains("Пароль-Ї"));
        QString target = old;
        CliRun r;
        if (fullDisk) {
            full.Fill();
            r = full.Run([&] { return cli.as(kPw, {"export", "anna", "-o", target}); });
        } else {
            target = old + "/anna.xml";
            r = cli.as(kPw, {"export", "anna", "-o", target});
        }
        QCOMPARE(r.code, 1);
        QVERIFY2(r.err.startsWith("argentpm: " + target + " could not be written (") &&
                     r.err.contains("); a file that was there is unchanged"),
                 qPrintable(r.err));
        QVERIFY(r.out.isEmpty());
        QCOMPARE(readAllOf(old), before);
        QStringList left = QDir(disk).entryList(QDir::Files | QDir::Hidden);
        left.removeAll("filler");
        QCOMPARE(left, QStringList{"anna.xml"});
    }
};

ARGENT_TEST(CliImportExportTest)
#include "tst_cli_importexport.moc"
