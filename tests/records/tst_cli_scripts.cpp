#include "storage/Md5.h"
#include "tests/common/TestMain.h"
#include "tests/records/CliRunner.h"
#include "tests/records/RecordsTestKit.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QTest>

namespace {

const QString kPw = QStringLiteral("anna password");
// Quotes, a backslash, the file format's separator character and Cyrillic (with "Ї",
// whose UTF-8 form holds the byte 0x87).
const QString kOddTitle =
    QStringLiteral("He said \"hi\" \\ back ") + QChar(0x87) + QStringLiteral(" Привет Ї");

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

// Parses with Python's own JSON reader as well as Qt's.
QJsonObject parsed(const CliRun& r) {
    QProcess py;
    py.start("python3", {"-m", "json.tool"});
    py.write(r.out.toUtf8());
    py.closeWriteChannel();
    if (!py.waitForFinished(10000) || py.exitCode() != 0)
        return {};
    return QJsonDocument::fromJson(r.out.toUtf8()).object();
}

} // namespace

class CliScriptsTest : public QObject {
    Q_OBJECT
private slots:
    void editKeepsTheIdentifierAndTheRest() {
        TestEnv env;
        CliRunner cli(env);
        QCOMPARE(cli({"add-user", "anna", "--password-stdin"}, kPw.toUtf8() + '\n').code, 0);
        QCOMPARE(cli.as(kPw, {"mkdir", "anna", "0", "Mail"}).out, QStringLiteral("1\n"));
        QCOMPARE(cli.as(kPw, {"add", "anna", "1", "--title", "Box", "--login", "max", "--desc", "old"}).out,
                 QStringLiteral("2\n"));
        const QList<QStringList> before = rowsOf(cli);

        struct Case {
            QStringList args;
            QByteArray input;
            QList<int> changed; // columns that may differ afterwards
        };
        const QList<Case> cases{
            {{"--login", "maxim"}, {}, {4}},
            {{"--title", kOddTitle, "--desc", "line 1\nline 2"}, {}, {3, 6}},
            {{"--ask-password"}, "typed secret\n", {5}},
            {{"--generate", "24", "--bold", "on"}, {}, {5, 8}},
        };
        QList<QStringList> rows = before;
        for (const Case& c : cases) {
            QCOMPARE(cli.as(kPw, QStringList{"edit", "anna", "2"} + c.args, c.input).code, 0);
            const QList<QStringList> now = rowsOf(cli);
            QCOMPARE(now.size(), before.size());
            for (int col = 0; col < now[1].size(); ++col)
                if (!c.changed.contains(col))
                    QCOMPARE(now[1][col], rows[1][col]);
            QCOMPARE(now[0], before[0]);
            rows = now;
        }
        QCOMPARE(rows[1][0], QStringLiteral("2"));
        QCOMPARE(rows[1][3], kOddTitle);
        QCOMPARE(rows[1][4], QStringLiteral("maxim"));
        QCOMPARE(rows[1][5].size(), 24);

        // A folder has only a title and a description; nothing else may be asked of it.
        QCOMPARE(cli.as(kPw, {"edit", "anna", "1", "--login", "x"}).code, 7);
        QCOMPARE(cli.as(kPw, {"edit", "anna", "2", "--generate", "8", "--ask-password"}).code, 2);
        QCOMPARE(rowsOf(cli), rows);

        // One field alone, exactly as stored.
        QCOMPARE(cli.as(kPw, {"show", "anna", "2", "--field", "password"}).out, rows[1][5]);
        QCOMPARE(cli.as(kPw, {"show", "anna", "2", "--field=description"}).out,
                 QStringLiteral("line 1\nline 2"));
        QCOMPARE(cli.as(kPw, {"show", "anna", "2", "--field", "title"}).out, kOddTitle);
        QCOMPARE(cli.as(kPw, {"show", "anna", "2", "--field", "colour"}).code, 2);
    }

    void jsonParsesAndRoundTrips() {
        TestEnv env;
        CliRunner cli(env);
        QCOMPARE(cli({"add-user", "anna", "--password-stdin"}, kPw.toUtf8() + '\n').code, 0);
        QCOMPARE(cli.as(kPw, {"mkdir", "anna", "0", kOddTitle}).out, QStringLiteral("1\n"));
        QCOMPARE(cli.as(kPw, {"add", "anna", "1", "--title", kOddTitle, "--ask-password"}, "p\"w\\\n").code,
                 0);
        QCOMPARE(cli.as(kPw, {"backup", "anna"}).code, 0);

        const QJsonObject users = parsed(cli({"users", "--json"}));
        QCOMPARE(users["users"].toArray(), QJsonArray{"anna"});

        const QJsonArray items = parsed(cli.as(kPw, {"ls", "anna", "--json"}))["items"].toArray();
        QCOMPARE(items.size(), 2);
        QCOMPARE(items[0].toObject()["title"].toString(), kOddTitle);
        QCOMPARE(items[0].toObject()["type"].toString(), QStringLiteral("folder"));
        QCOMPARE(items[1].toObject()["parent"].toInt(), 1);
        QCOMPARE(items[1].toObject()["depth"].toInt(), 2);

        const QJsonObject rec = parsed(cli.as(kPw, {"show", "anna", "2", "--json"}));
        QCOMPARE(rec["id"].toInt(), 2);
        QCOMPARE(rec["title"].toString(), kOddTitle);
        QCOMPARE(rec["password"].toString(), QStringLiteral("p\"w\\"));

        const QJsonObject found = parsed(cli.as(kPw, {"find", "anna", "привет", "--json"}));
        QCOMPARE(found["matches"].toArray().size(), 2);
        const CliRun none = cli.as(kPw, {"find", "anna", "absent", "--json"});
        QCOMPARE(none.code, 6);
        QCOMPARE(parsed(none)["matches"].toArray().size(), 0);

        const QJsonArray copies = parsed(cli({"backups", "--json"}))["backups"].toArray();
        QCOMPARE(copies.size(), 1);
        QCOMPARE(copies[0].toObject()["user"].toString(), QStringLiteral("anna"));
        QVERIFY(copies[0].toObject()["written"].toString().contains('T'));
    }

    // Every option a command's usage names is in the one list of the general help.
    void helpListsEveryOption() {
        TestEnv env;
        CliRunner cli(env);
        const QString all = cli({"--help"}).out;
        const QString commands = all.section("Commands:\n", 1).section("\n\n", 0, 0);
        static const QRegularExpression option("--[a-z-]+");
        int checked = 0;
        for (const QString& line : commands.split('\n')) {
            const QString cmd = line.trimmed().section(' ', 0, 0);
            const QString usage = cli({cmd, "--help"}).out.section("\n\n", 0, 0);
            QVERIFY2(usage.startsWith("Usage: argentpm"), qPrintable(cmd));
            for (auto m = option.globalMatch(usage); m.hasNext(); ++checked) {
                const QString o = m.next().captured();
                QVERIFY2(all.contains(QRegularExpression("\\n  (-[a-z], )?" + o + "[ \\n]")),
                         qPrintable(cmd + " " + o));
            }
        }
        QVERIFY(checked > 20);
        QVERIFY(all.contains("--version"));
    }
};
ARGENT_TEST(CliScriptsTest)

#include "tst_cli_scripts.moc"
