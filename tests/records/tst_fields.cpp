// A record's fields beyond the four in the records layer (password history, delete, search,
// moving description lines) and end to end through argentpm (show, edit, field, totp,
// JSON, backup and restore, the portable copy).

#include "records/RecordExtras.h"
#include "records/RecordSearch.h"
#include "records/RecordTree.h"
#include "records/Totp.h"
#include "storage/Md5.h"
#include "tests/common/TestMain.h"
#include "tests/records/CliRunner.h"
#include "tests/records/RecordsTestKit.h"

#include <QDateTime>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

namespace {

const QString kPw = QStringLiteral("anna password");

QStringList titles(const QList<FoundRow>& Found) {
    QStringList t;
    for (const FoundRow& f : Found)
        t << f.Title;
    return t;
}

QStringList historyOf(const QString& Id) {
    QStringList h;
    for (const RecOldPasw& o : ReadRecExtras(CurUsDB->DBView(), Id).History)
        h << o.Pasw;
    return h;
}

} // namespace

class FieldsTest : public QObject {
    Q_OBJECT
private slots:
    void init() {
        useNewDatabase();
        SetCfgExtra(kCfgPaswHistory, QString());
    }

    // Each change of a password keeps the one before, newest first, up to the options' number.
    void passwordChangesKeepHistory() {
        const QString id = AddRecordToDB(*CurUsDB, "0", "Mail", "anna", "first", "");
        const int tbl = dataTable(), rec = FindDataRow(*CurUsDB, id);
        QCOMPARE(PaswHistoryMax(), 10);
        SetRecordPasw(*CurUsDB, tbl, rec, "first"); // no change, nothing kept
        QVERIFY(historyOf(id).isEmpty());
        for (const char* p : {"second", "third", "fourth"}) {
            SetRecordPasw(*CurUsDB, tbl, rec, p);
        }
        QCOMPARE(historyOf(id), QStringList({"third", "second", "first"}));
        SetPaswHistoryMax(2);
        QCOMPARE(CfgExtra(kCfgPaswHistory, ""), QString("2"));
        SetRecordPasw(*CurUsDB, tbl, rec, "fifth");
        QCOMPARE(historyOf(id), QStringList({"fourth", "third"}));
        QCOMPARE(CurUsDB->GetTblFldValNm(tbl, rec, "Password"), QString("fifth"));
        SetPaswHistoryMax(0);
        SetRecordPasw(*CurUsDB, tbl, rec, "sixth");
        QVERIFY(historyOf(id).isEmpty());
    }

    // Deleting a folder takes the fields of everything inside; other records keep theirs.
    void deleteTakesFieldsAlong() {
        const QString folder = GetNewIndNum(*CurUsDB);
        AddFolderToDB("Work", 0, folder);
        const QString inside = AddRecordToDB(*CurUsDB, folder, "VPN", "", "pw", "");
        const QString outside = AddRecordToDB(*CurUsDB, "0", "Home", "", "pw", "");
        for (const QString& id : {inside, outside})
            WriteRecExtras(*CurUsDB, id, {"https://" + id, {}, {{"PIN", id, true, {}}}, {}});
        SetRecordPasw(*CurUsDB, dataTable(), FindDataRow(*CurUsDB, inside), "new");
        QCOMPARE(DelRecordTreeFromDataTable("IndNum", folder, "Parent"), 2);
        QVERIFY(ReadRecExtras(CurUsDB->DBView(), inside).IsEmpty());
        QCOMPARE(ReadRecExtras(CurUsDB->DBView(), outside).Url, "https://" + outside);
        const int ft = FieldTableNum(CurUsDB->DBView());
        QCOMPARE(CurUsDB->DBView().Tables[ft - 1].RecNum(), 2);
    }

    // "Everywhere" finds the web address and visible custom fields, never hidden ones,
    // and a search in titles finds neither.
    void searchLooksAtVisibleFields() {
        const QString a = AddRecordToDB(*CurUsDB, "0", "Alpha", "", "", "");
        const QString b = AddRecordToDB(*CurUsDB, "0", "Beta", "", "", "");
        const QString c = AddRecordToDB(*CurUsDB, "0", "Gamma", "", "", "");
        WriteRecExtras(*CurUsDB, a, {"https://Example.org/login", {}, {}, {}});
        WriteRecExtras(*CurUsDB, b, {{}, {}, {{"Account", "EXAMPLE-42", false, {}}}, {}});
        WriteRecExtras(*CurUsDB, c, {{}, {}, {{"Secret", "example", true, {}}}, {}});
        QCOMPARE(titles(FindAllRecords(*CurUsDB, "example", true, false)), QStringList({"Alpha", "Beta"}));
        QVERIFY(FindAllRecords(*CurUsDB, "example", true, true).isEmpty());
        QCOMPARE(titles(FindAllRecords(*CurUsDB, "EXAMPLE", true, true)), QStringList({"Beta"}));
        QVERIFY(FindAllRecords(*CurUsDB, "example", false, false).isEmpty());
        QCOMPARE(titles(FindAllRecords(*CurUsDB, "account", true, false)), QStringList({"Beta"}));
        // One press after another walks the same rows and wraps round.
        int start = 0;
        const int tbl = dataTable();
        QStringList walked;
        for (int i = 0; i < 3; ++i)
            walked << CurUsDB->GetTblFldValNm(
                tbl, FindRecordInDB("example", tbl, -1, start, *CurUsDB, true, false).toInt(), "Title");
        QCOMPARE(walked, QStringList({"Alpha", "Beta", "Alpha"}));
    }

    // Older records' "URL:" and "TOTP:" lines move into empty fields; the rest stays.
    void noteLinesMoveIntoFields() {
        const QString a =
            AddRecordToDB(*CurUsDB, "0", "Old", "", "",
                          "first line\r\nURL: https://old.example\r\nTOTP: JBSWY3DPEHPK3PXP\r\nlast");
        const QString b =
            AddRecordToDB(*CurUsDB, "0", "Set", "", "", "url: https://other.example\r\nOTP: nonsense!");
        WriteRecExtras(*CurUsDB, b, {"https://kept.example", {}, {}, {}});
        const QList<MovedNoteLine> moved = MoveNoteLinesToFields(*CurUsDB);
        QCOMPARE(moved.size(), 2);
        QCOMPARE(moved[0].Field + moved[1].Field, QString("URLTOTP"));
        const RecExtras ea = ReadRecExtras(CurUsDB->DBView(), a);
        QCOMPARE(ea.Url, QString("https://old.example"));
        TotpParams p;
        QVERIFY(ParseTotp(ea.Otp, p));
        QCOMPARE(p.Secret, QByteArray("Hello!\xde\xad\xbe\xef"));
        QCOMPARE(CurUsDB->GetTblFldValNm(dataTable(), FindDataRow(*CurUsDB, a), "Description"),
                 QString("first line\r\nlast"));
        // The record whose field is set, and a seed that gives no codes, keep their lines.
        QCOMPARE(CurUsDB->GetTblFldValNm(dataTable(), FindDataRow(*CurUsDB, b), "Description"),
                 QString("url: https://other.example\r\nOTP: nonsense!"));
        QVERIFY(MoveNoteLinesToFields(*CurUsDB).isEmpty());
    }

    // argentpm end to end: edit sets, show hides what is hidden, field and totp read, the
    // JSON carries them, and backup and restore keep them.
    void cliEndToEnd() {
        TestEnv env;
        CliRunner cli(env);
        QCOMPARE(cli({"add-user", "anna", "--password-stdin"}, kPw.toUtf8() + '\n').code, 0);
        QCOMPARE(cli.as(kPw,
                        {"add", "anna", "0", "--title", "Bank", "--desc", "URL: https://bank.example",
                         "--ask-password"},
                        "old secret\n")
                     .out,
                 QString("1\n"));
        const CliRun moved = cli.as(kPw, {"move-note-fields", "anna"});
        QCOMPARE(moved.code, 0);
        QVERIFY2(moved.out.contains("https://bank.example"), qPrintable(moved.out));
        const QString seed = "otpauth://totp/Bank:anna?secret=GEZDGNBVGY3TQOJQGEZDGNBVGY3TQOJQ&digits=8";
        QCOMPARE(cli.as(kPw, {"edit", "anna", "1", "--totp", seed, "--field", "PIN=9876", "--field",
                              "Branch=Main St", "--hidden-field", "PIN"})
                     .code,
                 0);
        QCOMPARE(cli.as(kPw, {"edit", "anna", "1", "--ask-password"}, "new secret\n").code, 0);
        CliRun show = cli.as(kPw, {"show", "anna", "1"});
        QVERIFY(show.out.contains("URL: https://bank.example\n"));
        QVERIFY(show.out.contains("Branch: Main St\n"));
        QVERIFY(show.out.contains("PIN: [hidden]\n"));
        QVERIFY(!show.out.contains("9876") && !show.out.contains("GEZDGNBV"));
        QVERIFY(show.out.contains("Earlier passwords: 1\n"));
        show = cli.as(kPw, {"show", "anna", "1", "--show-protected"});
        QVERIFY(show.out.contains("PIN: 9876\n"));
        QVERIFY(show.out.contains(seed));
        QCOMPARE(cli.as(kPw, {"field", "anna", "1", "PIN"}).out, QString("9876"));
        QCOMPARE(cli.as(kPw, {"field", "anna", "1", "url"}).out, QString("https://bank.example"));
        QCOMPARE(cli.as(kPw, {"field", "anna", "1", "Nope"}).code, 6);
        const qint64 before = QDateTime::currentSecsSinceEpoch();
        const QString code = cli.as(kPw, {"totp", "anna", "1"}).out.trimmed();
        TotpParams p;
        QVERIFY(ParseTotp(seed, p));
        QVERIFY(code == TotpCode(p, before) || code == TotpCode(p, QDateTime::currentSecsSinceEpoch()));
        QCOMPARE(code.size(), 8);

        QJsonObject o =
            QJsonDocument::fromJson(cli.as(kPw, {"show", "anna", "1", "--json"}).out.toUtf8()).object();
        QCOMPARE(o["url"].toString(), QString("https://bank.example"));
        QCOMPARE(o["totp"].toBool(), true);
        QVERIFY(!o.contains("totp_uri"));
        QCOMPARE(o["fields"].toArray().size(), 2);
        QVERIFY(o["fields"].toArray()[0].toObject()["value"].isNull());
        QCOMPARE(o["history_count"].toInt(), 1);
        o = QJsonDocument::fromJson(
                cli.as(kPw, {"show", "anna", "1", "--json", "--show-protected"}).out.toUtf8())
                .object();
        QCOMPARE(o["fields"].toArray()[0].toObject()["value"].toString(), QString("9876"));
        QCOMPARE(o["history"].toArray()[0].toObject()["password"].toString(), QString("old secret"));
        QCOMPARE(o["password"].toString(), QString("new secret"));

        // Bad input changes nothing.
        QCOMPARE(cli.as(kPw, {"edit", "anna", "1", "--totp", "not a seed!"}).code, 2);
        QCOMPARE(cli.as(kPw, {"edit", "anna", "1", "--field", "noequals"}).code, 2);
        QCOMPARE(cli.as(kPw, {"edit", "anna", "1", "--hidden-field", "Nope"}).code, 6);
        QCOMPARE(cli.as(kPw, {"field", "anna", "1", "totp"}).out, seed);

        // A backup holds the fields; a restore brings them back over later changes.
        QCOMPARE(cli.as(kPw, {"backup", "anna"}).code, 0);
        QCOMPARE(cli.as(kPw, {"edit", "anna", "1", "--remove-field", "PIN", "--url", ""}).code, 0);
        QCOMPARE(cli.as(kPw, {"field", "anna", "1", "PIN"}).code, 6);
        QCOMPARE(cli({"restore", "anna_1.bdb.BACKUP", "--yes"}).code, 0);
        QCOMPARE(cli.as(kPw, {"field", "anna", "1", "PIN"}).out, QString("9876"));

        // A record gets its fields as it is added; a bad one adds no record.
        QCOMPARE(cli.as(kPw, {"add", "anna", "0", "--title", "Shop", "--field", "broken"}).code, 2);
        QCOMPARE(cli.as(kPw, {"add", "anna", "0", "--title", "Shop", "--url", "https://shop.example",
                              "--field", "Card=4111", "--hidden-field", "Card"})
                     .out,
                 QString("2\n"));
        QCOMPARE(cli.as(kPw, {"field", "anna", "2", "url"}).out, QString("https://shop.example"));
        show = cli.as(kPw, {"show", "anna", "2"});
        QVERIFY2(show.out.contains("Card: [hidden]\n"), qPrintable(show.out));
        // The portable copy copies user files byte for byte (maintenance/PortableTest).
    }
};

ARGENT_TEST(FieldsTest)
#include "tst_fields.moc"
