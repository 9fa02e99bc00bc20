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
    void buildChangeAndSearchATree() {
        TestEnv env;
        CliRunner cli(env);
        QCOMPARE(cli({"add-user", "anna", "--password-stdin"}, kPw.toUtf8() + '\n').code, 0);
        QCOMPARE(cli.as(kPw, {"mkdir", "anna", "0", "Banking"}).out, QStringLiteral("1\n"));
        QCOMPARE(
            cli.as(kPw, {"add", "anna", "1", "--title", "Savings", "--login=bank-login", "--generate", "20"})
                .out,
            QStringLiteral("2\n"));
        QCOMPARE(
            cli.as(kPw,
                   {"add", "anna", "0", "--title", "Shop", "--desc", "paid by BANK card", "--ask-password"},
                   "the record's password\n")
                .out,
            QStringLiteral("3\n"));
        QList<QStringList> rows = rowsOf(cli);
        QCOMPARE(rows.size(), 3);
        QCOMPARE(rows[1].mid(0, 5), QStringList({"2", "1", "2", "Savings", "bank-login"}));
        QCOMPARE(rows[1][5].size(), 20);
        QCOMPARE(rows[2][5], QStringLiteral("the record's password"));

        QCOMPARE(cli.as(kPw, {"find", "anna", "bank"}).out,
                 QStringLiteral("1  Banking\n2  Savings\n3  Shop\n"));
        QCOMPARE(cli.as(kPw, {"find", "anna", "bank", "--titles-only"}).out, QStringLiteral("1  Banking\n"));
        QCOMPARE(cli.as(kPw, {"find", "anna", "key"}).code, 6);

        // Usage errors, a wrong password, a missing row, a record as a parent, a loop.
        QCOMPARE(cli.as(kPw, {"add", "anna", "0"}).code, 2);
        QCOMPARE(cli.as("wrong", {"mkdir", "anna", "0", "Sub"}).code, 3);
        QCOMPARE(cli.as(kPw, {"rename", "anna", "77", "x"}).code, 6);
        QCOMPARE(cli.as(kPw, {"mkdir", "anna", "2", "Sub"}).code, 7);
        QCOMPARE(cli.as(kPw, {"mv", "anna", "1", "1"}).code, 7);
        QCOMPARE(rowsOf(cli), rows);

        QCOMPARE(cli.as(kPw, {"mv", "anna", "3", "1"}).code, 0);
        QCOMPARE(cli.as(kPw, {"rename", "anna", "3", "Shop 2"}).code, 0);
        QCOMPARE(cli.as(kPw, {"edit", "anna", "3", "--color", "#ff8000", "--bold", "on"}).code, 0);
        rows = rowsOf(cli);
        QCOMPARE(rows[2].mid(1, 3), QStringList({"1", "2", "Shop 2"}));
        QCOMPARE(rows[2][8], QStringLiteral("33023|1")); // 0x0080FF

        // Deleting asks; without a terminal only --yes confirms. Identifiers are not reused.
        QCOMPARE(cli.as(kPw, {"rm", "anna", "1"}).code, 7);
        QCOMPARE(cli.as(kPw, {"rm", "anna", "1", "--yes"}).out,
                 QStringLiteral("Deleted 3 folders and records.\n"));
        QCOMPARE(cli.as(kPw, {"mkdir", "anna", "0", "Again"}).out, QStringLiteral("4\n"));
        QCOMPARE(posixMode(cli.dbs() + "/anna.bdb"), 0600);
    }

    void generatePrintsAPassword() {
        TestEnv env;
        CliRunner cli(env);
        const CliRun r = cli({"generate", "32"});
        QVERIFY(QRegularExpression("^[0-8A-Ya-y]{32}\n$").match(r.out).hasMatch());
        QCOMPARE(cli({"generate"}).out.size(), 13); // the settings' length, 12 in a new one
        QCOMPARE(cli({"generate", "0"}).code, 2);
    }
};
ARGENT_TEST(CliRecordsTest)

#include "tst_cli_records.moc"
