#include "records/RecordTree.h"
#include "storage/Md5.h"
#include "tests/common/TestMain.h"
#include "tests/records/CliRunner.h"
#include "tests/records/RecordsTestKit.h"

#include <QTest>

namespace {

const QString kPw = QStringLiteral("anna password");

// The rows of anna's file, read with the library.
QList<QStringList> rowsOf(const CliRunner& cli) {
    ProgConfig.Reset();
    for (int i = 1; i <= 20; ++i)
        AddElemToStrMass(ProgConfig, QString());
    ProgConfig[5] = cli.dbs();
    CreateProgramObjects();
    if (LoadUser(cli.dbs() + "/anna.bdb", GetTruePasw(HashString(kPw))) != 2)
        return {};
    return allRows();
}

} // namespace

class CliRecordsTest : public QObject {
    Q_OBJECT
private slots:
    void everyCommandHasItsHelp() {
        TestEnv env;
        CliRunner cli(env);
        for (const char* cmd : {"mkdir", "add", "rename", "mv", "rm", "edit", "find", "generate"}) {
            const CliRun r = cli({QString::fromLatin1(cmd), "--help"});
            QCOMPARE(r.code, 0);
            QVERIFY2(r.out.contains(QStringLiteral(" ") + cmd + " ") && r.out.contains("Exit status"), cmd);
        }
        const CliRun all = cli({"--help"});
        for (const char* cmd : {"mkdir NAME", "add NAME", "find NAME TEXT", "generate [LENGTH]"})
            QVERIFY2(all.out.contains(QLatin1String(cmd)), cmd);
        // Options belong to their command.
        QCOMPARE(cli({"ls", "anna", "--title", "x"}).code, 2);
        QCOMPARE(cli({"find", "anna", "x", "--titles-only=yes"}).code, 2);
        QCOMPARE(cli({"add", "anna", "0", "--title"}).code, 2);
    }

    void buildAndChangeATree() {
        TestEnv env;
        CliRunner cli(env);
        QCOMPARE(cli({"add-user", "anna", "--password-stdin"}, kPw.toUtf8() + '\n').code, 0);
        CliRun r = cli.as(kPw, {"mkdir", "anna", "0", "Mail"});
        QCOMPARE(r.code, 0);
        QCOMPARE(r.out, QStringLiteral("1\n"));
        r = cli.as(kPw, {"add", "anna", "1", "--title", "Post", "--login=anna@example.org", "--desc",
                         "two\nlines", "--generate", "20"});
        QCOMPARE(r.out, QStringLiteral("2\n"));
        r = cli.as(kPw, {"add", "anna", "0", "--title", "Bank", "--ask-password"}, "the record's password\n");
        QCOMPARE(r.out, QStringLiteral("3\n"));
        QCOMPARE(cli.as(kPw, {"add", "anna", "0", "--title", "Empty"}).out, QStringLiteral("4\n"));
        QList<QStringList> rows = rowsOf(cli);
        QCOMPARE(rows.size(), 4);
        QCOMPARE(rows[0], QStringList({"1", "0", "1", "Mail", "", "", "", "2key", "0|0"}));
        QCOMPARE(rows[1].mid(0, 5), QStringList({"2", "1", "2", "Post", "anna@example.org"}));
        QCOMPARE(rows[1][5].size(), 20);
        QCOMPARE(rows[1][6], QStringLiteral("two\nlines"));
        QCOMPARE(rows[2][5], QStringLiteral("the record's password"));
        QCOMPARE(rows[3][5], QString());

        // Wrong places: a record cannot hold rows, a folder cannot go into its own.
        QCOMPARE(cli.as(kPw, {"mkdir", "anna", "2", "Sub"}).code, 7);
        QCOMPARE(cli.as(kPw, {"mkdir", "anna", "9", "Sub"}).code, 6);
        QCOMPARE(cli.as(kPw, {"mkdir", "anna", "x", "Sub"}).code, 2);
        QCOMPARE(cli.as(kPw, {"add", "anna", "0"}).code, 2);
        QCOMPARE(cli.as(kPw, {"add", "anna", "0", "--title", "t", "--generate", "0"}).code, 2);
        QCOMPARE(cli.as(kPw, {"add", "anna", "0", "--title", "t", "--generate", "8", "--ask-password"}).code,
                 2);
        QCOMPARE(cli.as("wrong", {"mkdir", "anna", "0", "Sub"}).code, 3);
        QCOMPARE(cli.as(kPw, {"mv", "anna", "1", "1"}).code, 7);
        QCOMPARE(cli.as(kPw, {"mv", "anna", "0", "1"}).code, 7);
        QCOMPARE(cli.as(kPw, {"rename", "anna", "77", "x"}).code, 6);
        QCOMPARE(rowsOf(cli), rows);

        QCOMPARE(cli.as(kPw, {"mv", "anna", "3", "1"}).code, 0);
        QCOMPARE(cli.as(kPw, {"rename", "anna", "3", "Bank account"}).code, 0);
        QCOMPARE(cli.as(kPw, {"edit", "anna", "3", "--color", "#ff8000", "--bold", "on"}).code, 0);
        rows = rowsOf(cli);
        QCOMPARE(rows[2][1], QStringLiteral("1"));
        QCOMPARE(rows[2][3], QStringLiteral("Bank account"));
        QCOMPARE(rows[2][8], QStringLiteral("33023|1")); // 0x0080FF
        QCOMPARE(cli.as(kPw, {"edit", "anna", "3", "--bold", "off", "--color", "-1"}).code, 0);
        QCOMPARE(rowsOf(cli)[2][8], QStringLiteral("-1|0"));
        QCOMPARE(cli.as(kPw, {"edit", "anna", "3"}).code, 2);
        QCOMPARE(cli.as(kPw, {"edit", "anna", "3", "--bold", "maybe"}).code, 2);

        // Deleting asks; without a terminal only --yes confirms.
        QCOMPARE(cli.as(kPw, {"rm", "anna", "1"}).code, 7);
        r = cli.as(kPw, {"rm", "anna", "1", "--yes"});
        QCOMPARE(r.code, 0);
        QCOMPARE(r.out, QStringLiteral("Deleted 3 folders and records.\n"));
        rows = rowsOf(cli);
        QCOMPARE(rows.size(), 1);
        QCOMPARE(rows[0][3], QStringLiteral("Empty"));
        // Identifiers are not reused.
        QCOMPARE(cli.as(kPw, {"mkdir", "anna", "0", "Again"}).out, QStringLiteral("5\n"));
        QCOMPARE(posixMode(cli.dbs() + "/anna.bdb"), 0600);
    }

    void findListsEveryMatch() {
        TestEnv env;
        CliRunner cli(env);
        cli({"add-user", "anna", "--password-stdin"}, kPw.toUtf8() + '\n');
        cli.as(kPw, {"mkdir", "anna", "0", "Banking"});
        cli.as(kPw, {"add", "anna", "1", "--title", "Savings", "--login", "bank-login"});
        cli.as(kPw, {"add", "anna", "0", "--title", "Mail"});
        cli.as(kPw, {"add", "anna", "0", "--title", "Shop", "--desc", "paid by BANK card"});
        CliRun r = cli.as(kPw, {"find", "anna", "bank"});
        QCOMPARE(r.code, 0);
        QCOMPARE(r.out, QStringLiteral("1  Banking\n2  Savings\n4  Shop\n"));
        QCOMPARE(cli.as(kPw, {"find", "anna", "bank", "--titles-only"}).out, QStringLiteral("1  Banking\n"));
        QCOMPARE(cli.as(kPw, {"find", "anna", "BANK", "--case-sensitive"}).out, QStringLiteral("4  Shop\n"));
        QCOMPARE(cli.as(kPw, {"find", "anna", "key"}).code, 6);
    }

    void generatePrintsAPassword() {
        TestEnv env;
        CliRunner cli(env);
        CliRun r = cli({"generate", "32"});
        QCOMPARE(r.code, 0);
        QCOMPARE(r.out.size(), 33);
        QVERIFY(QRegularExpression("^[0-8A-Ya-y]{32}\n$").match(r.out).hasMatch());
        QVERIFY(cli({"generate", "32"}).out != r.out);
        // Without a length: the generator's length from the settings (12 in a new one).
        QCOMPARE(cli({"generate"}).out.size(), 13);
        QCOMPARE(cli({"generate", "0"}).code, 2);
        QCOMPARE(cli({"generate", "x"}).code, 2);
        QCOMPARE(cli({"generate", "99999999999"}).code, 2);
    }
};
ARGENT_TEST(CliRecordsTest)

#include "tst_cli_records.moc"
