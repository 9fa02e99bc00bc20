// What lands in a record's fields beyond the four when another program's export is read,
// and what our export writes back: per format, through the database, and a round trip
// with KeePassXC's own command-line program.

#include "records/ImportExport.h"
#include "records/RecordExtras.h"
#include "records/Totp.h"
#include "tests/common/TestMain.h"
#include "tests/records/CliRunner.h"
#include "tests/records/RecordsTestKit.h"

#include <QRegularExpression>
#include <QStandardPaths>
#include <QTest>

namespace {

const QString kPw = QStringLiteral("anna password");

// A seed as "SECRET/digits/period" (and "/steam"), or "!" and the text when it does not read.
QString seedOf(const QString& Otp) {
    TotpParams p;
    if (Otp.isEmpty() || !ParseTotp(Otp, p))
        return Otp.isEmpty() ? QString() : u'!' + Otp;
    return QStringLiteral("%1/%2/%3%4")
        .arg(TotpBase32Encode(p.Secret))
        .arg(p.Digits)
        .arg(p.Period)
        .arg(p.Steam ? "/steam" : "");
}

// "url | seed | name=value; hidden*=value | password@time; ..."
QString fieldsOf(const RecExtras& E) {
    QStringList custom, history;
    for (const RecCustomField& f : E.Custom)
        custom << f.Name + (f.Hidden ? "*=" : "=") + f.Value;
    for (const RecOldPasw& h : E.History)
        history << h.Pasw + u'@' + (h.When.isValid() ? h.When.toUTC().toString(Qt::ISODate) : "?");
    return QStringList{E.Url, seedOf(E.Otp), custom.join("; "), history.join("; ")}.join(" | ");
}

// Records only: "title | password | description || fields".
QStringList recordsOf(const ImpData& D) {
    QStringList out;
    for (const ImpRow& r : D.Rows)
        if (!r.Folder)
            out << r.Title + " | " + r.Password + " | " + r.Desc + " || " + fieldsOf(r.Extras);
    return out;
}

QByteArray fixture(const char* Name) {
    return readAllOf(QStringLiteral(ARGENT_SOURCE_DIR "/tests/records/fixtures/") + QLatin1String(Name));
}

QString which(const char* Program) {
    return QStandardPaths::findExecutable(QLatin1String(Program));
}

// Runs a program with Input on its standard input; the standard output, or a failure.
QByteArray run(const QString& Exe, const QStringList& Args, const QByteArray& Input = QByteArray()) {
    QProcess p;
    p.start(Exe, Args);
    p.write(Input);
    p.closeWriteChannel();
    if (!p.waitForFinished(60000) || p.exitStatus() != QProcess::NormalExit || p.exitCode() != 0)
        qWarning("%s %s: %s", qPrintable(Exe), qPrintable(Args.join(u' ')),
                 p.readAllStandardError().constData());
    return p.exitCode() == 0 ? p.readAllStandardOutput() : QByteArray("FAILED");
}

} // namespace

class ImportFieldsTest : public QObject {
    Q_OBJECT
private slots:
    void eachFormatFillsTheFields_data() {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QString>("format");
        QTest::addColumn<QStringList>("records");
        QTest::newRow("KeePass XML: URL, otp, protected strings, history; older seeds as URIs")
            << fixture("fields.xml") << "keepass-xml"
            << QStringList{"Bank | now | n || https://bank.example | JBSWY3DPEHPK3PXP/7/30 | PIN*=1234; "
                           "Branch=Main | "
                           "old1@2024-06-01T00:00:00Z; old0@2023-01-01T00:00:00Z",
                           "Legacy |  |  ||  | JBSWY3DPEHPK3PXP/8/60 |  | ",
                           "Steam |  |  ||  | JBSWY3DPEHPK3PXP/5/30/steam | Custom=a; Custom 2=b | ",
                           "KeeOtp |  |  ||  | JBSWY3DPEHPK3PXP/8/45 |  | ",
                           "Bad seed |  |  ||  |  | otp*=seed #1 | "};
        QTest::newRow("KeePassXC CSV: URL and TOTP columns")
            << QByteArray(
                   "\"Group\",\"Title\",\"Username\",\"Password\",\"URL\",\"Notes\",\"TOTP\",\"Icon\"\n"
                   "\"Root\",\"Bank\",\"anna\",\"pw\",\"https://bank.example\",\"n\","
                   "\"otpauth://totp/B?secret=JBSWY3DPEHPK3PXP&period=60\",\"0\"\n")
            << "keepassxc-csv"
            << QStringList{"Bank | pw | n || https://bank.example | JBSWY3DPEHPK3PXP/6/60 |  | "};
        QTest::newRow("Bitwarden: uris, totp, fields by type, password history")
            << fixture("fields-bitwarden.json") << "bitwarden-json"
            << QStringList{"Site | now | n\nWho: (the same as the user name) || https://a.example | "
                           "JBSWY3DPEHPK3PXP/6/30 | URL=https://b.example; Text=t; Secret*=s; Flag=true | "
                           "old1@2024-05-06T07:08:09Z; old0@2023-05-06T07:08:09Z"};
        QTest::newRow("browser CSV: url")
            << QByteArray("name,url,username,password,note\nSite,https://s.example/login,anna,pw,\n")
            << "browser-csv" << QStringList{"Site | pw |  || https://s.example/login |  |  | "};
        QTest::newRow("LastPass: url and totp; a secure note has no address; a bad seed stays a line")
            << QByteArray("url,username,password,totp,extra,name,grouping,fav\n"
                          "https://l.example,anna,pw,JBSWY3DPEHPK3PXP,note,Lp,,0\n"
                          "http://sn,,,,NoteType:x,Note,,0\nhttps://m.example,,pw,no-such!seed,,Bad,,0\n")
            << "lastpass-csv"
            << QStringList{"Lp | pw | note || https://l.example | JBSWY3DPEHPK3PXP/6/30 |  | ",
                           "Note |  | NoteType:x ||  |  |  | ",
                           "Bad | pw | TOTP: no-such!seed || https://m.example |  |  | "};
        QTest::newRow("KeePass 1 CSV: web site")
            << QByteArray("\"Account\",\"Login Name\",\"Password\",\"Web Site\",\"Comments\"\n"
                          "\"K1\",\"u\",\"p\",\"http://k1.example\",\"c\"\n")
            << "keepass1-csv" << QStringList{"K1 | p | c || http://k1.example |  |  | "};
        QTest::newRow("any CSV: a website and a totp column by their names")
            << QByteArray("title,password,website,totp,colour\nT,pw,https://t.example,JBSWY3DPEHPK3PXP,red\n")
            << "csv"
            << QStringList{"T | pw | colour: red || https://t.example | JBSWY3DPEHPK3PXP/6/30 |  | "};
    }
    void eachFormatFillsTheFields() {
        QFETCH(QByteArray, bytes);
        QFETCH(QString, format);
        QFETCH(QStringList, records);
        TestEnv env;
        useNewDatabase();
        ImpData d;
        ImpError err;
        QVERIFY2(ParseImport(bytes, ImpFormatFromName(format), CsvMapping(), d, err), qPrintable(err.Text()));
        QCOMPARE(ImpFormatName(d.Format), format);
        QCOMPARE(recordsOf(d), records);
        // Nothing that landed in a field is said to be left out.
        QCOMPARE(ImpDroppedText(d), QStringList());
    }

    // Earlier passwords beyond the number the options keep: the newest stay, the rest is said.
    void historyIsCutToTheOptionsLimit() {
        TestEnv env;
        useNewDatabase();
        SetPaswHistoryMax(1);
        ImpData d;
        ImpError err;
        QVERIFY(ParseImport(fixture("fields-bitwarden.json"), ImpFormat::Detect, CsvMapping(), d, err));
        QCOMPARE(d.Rows[0].Extras.History.size(), 1);
        QCOMPARE(d.Rows[0].Extras.History[0].Pasw, QStringLiteral("old1"));
        QCOMPARE(ImpDroppedText(d).join(u'\n').section(u':', 0, 0),
                 QStringLiteral("1 earlier password not taken in"));
        QCOMPARE(ImpDroppedLangText(d).size(), 1);
        SetPaswHistoryMax(0);
        QVERIFY(ParseImport(fixture("fields.xml"), ImpFormat::Detect, CsvMapping(), d, err));
        QVERIFY(d.Rows[1].Extras.History.isEmpty());
        QCOMPARE(d.Dropped[dropHistory], 2);
    }

    // Imported into the database the fields are the record's; our XML export writes them as
    // KeePassXC keeps them and reads back the same; the CSV export fills URL and TOTP.
    void theFieldsGoIntoTheDatabaseAndOutAgain() {
        TestEnv env;
        useNewDatabase();
        ImpData d;
        ImpError err;
        QVERIFY(ParseImport(fixture("fields.xml"), ImpFormat::Detect, CsvMapping(), d, err));
        const QStringList want = recordsOf(d);
        const QString top = ImportIntoDB(d, "0", "kp", nullptr, err);
        QVERIFY(!top.isEmpty());
        const QHash<QString, RecExtras> all = ReadAllRecExtras(CurUsDB->DBView());
        QStringList stored;
        for (const QStringList& r : allRows())
            if (r[2] == "2")
                stored << r[3] + " | " + r[5] + " | " + r[6] + " || " + fieldsOf(all.value(r[0]));
        QCOMPARE(stored, want);

        const QByteArray xml = ExportRecordTree(*CurUsDB, top, ExpFormat::KeePassXml);
        QVERIFY(xml.contains("<Key>otp</Key>"));
        QVERIFY(xml.contains("<Value ProtectInMemory=\"True\">1234</Value>"));
        QVERIFY(!xml.contains("Protected=\"True\""));
        QVERIFY(!xml.contains("URL: "));
        ImpData back;
        QVERIFY2(ParseImport(xml, ImpFormat::Detect, CsvMapping(), back, err), qPrintable(err.Text()));
        QCOMPARE(recordsOf(back), want);

        const QString csv = QString::fromUtf8(ExportRecordTree(*CurUsDB, top, ExpFormat::KeePassXcCsv));
        QVERIFY2(csv.contains("\"kp\",\"Bank\",\"\",\"now\",\"https://bank.example\",\"n\","
                              "\"otpauth://totp/B:a?secret=JBSWY3DPEHPK3PXP&digits=7\""),
                 qPrintable(csv));
        QVERIFY(ParseImport(csv.toUtf8(), ImpFormat::Detect, CsvMapping(), back, err));
        QCOMPARE(fieldsOf(back.Rows[0].Extras),
                 QStringLiteral("https://bank.example | JBSWY3DPEHPK3PXP/7/30 |  | "));
    }

    // A KeePassXC database with web addresses, seeds, custom fields (some protected) and
    // history, exported by keepassxc-cli, imported by argentpm, exported again and imported
    // by keepassxc-cli, keeps every one of them.
    void roundTripWithKeePassXc() {
        const QString kpx = which("keepassxc-cli");
        if (kpx.isEmpty())
            QSKIP("keepassxc-cli is not installed (Debian package keepassxc)");
        TestEnv env;
        CliRunner cli(env);
        const QString dir = env.root(), key = dir + "/db.key";
        writeFileText(key, QByteArray(64, 'k'));
        // (KeePassXC refuses a second string of one name.)
        writeFileText(
            dir + "/in.xml",
            fixture("fields.xml").replace("<String><Key>Custom</Key><Value>b</Value></String>", ""));
        const QStringList keyArgs{"-q", "--no-password", "-k", key};
        QCOMPARE(run(kpx, {"import", "-q", "--set-key-file", key, dir + "/in.xml", dir + "/src.kdbx"}),
                 QByteArray());
        // An entry made and then changed by keepassxc-cli itself: its first password goes
        // into its history.
        run(kpx,
            QStringList{"add"} + keyArgs +
                QStringList{"--url", "https://added.example", "-u", "bob", "-p", dir + "/src.kdbx", "Added"},
            "first\n");
        run(kpx, QStringList{"edit"} + keyArgs + QStringList{"-p", dir + "/src.kdbx", "Added"}, "second\n");
        const QByteArray src =
            run(kpx, QStringList{"export"} + keyArgs + QStringList{"-f", "xml", dir + "/src.kdbx"});
        writeFileText(dir + "/src.xml", src);

        QCOMPARE(cli({"add-user", "anna", "--password-stdin"}, kPw.toUtf8() + '\n').code, 0);
        CliRun r = cli.as(kPw, {"import", "anna", dir + "/src.xml"});
        QCOMPARE(r.code, 0);
        QVERIFY2(!r.out.contains("not taken in"), qPrintable(r.out));
        r = cli.as(kPw, {"export", "anna", "-o", dir + "/back.xml"});
        QCOMPARE(r.code, 0);
        QCOMPARE(run(kpx, {"import", "-q", "--set-key-file", key, dir + "/back.xml", dir + "/back.kdbx"}),
                 QByteArray());

        auto show = [&](const QString& Entry, const QStringList& Attrs) {
            QStringList args = QStringList{"show"} + keyArgs + QStringList{"--show-protected"};
            for (const QString& a : Attrs)
                args << "-a" << a;
            return QString::fromUtf8(run(kpx, args + QStringList{dir + "/back.kdbx", "src/" + Entry}))
                .split(u'\n');
        };
        QCOMPARE(show("Bank", {"URL", "otp", "PIN", "Branch", "Password"}),
                 (QStringList{"https://bank.example", "otpauth://totp/B:a?secret=JBSWY3DPEHPK3PXP&digits=7",
                              "1234", "Main", "now", ""}));
        QCOMPARE(show("Added", {"URL", "UserName", "Password"}),
                 (QStringList{"https://added.example", "bob", "second", ""}));
        QCOMPARE(seedOf(show("Legacy", {"otp"})[0]), QStringLiteral("JBSWY3DPEHPK3PXP/8/60"));
        QCOMPARE(seedOf(show("Steam", {"otp"})[0]), QStringLiteral("JBSWY3DPEHPK3PXP/5/30/steam"));

        // What KeePassXC holds now, as its own export says: the same fields, hidden ones
        // still hidden, and the history of every entry.
        const QByteArray last =
            run(kpx, QStringList{"export"} + keyArgs + QStringList{"-f", "xml", dir + "/back.kdbx"});
        ImpData was, now;
        ImpError err;
        QVERIFY(ParseImport(src, ImpFormat::KeePassXml, CsvMapping(), was, err));
        QVERIFY(ParseImport(last, ImpFormat::KeePassXml, CsvMapping(), now, err));
        QCOMPARE(recordsOf(now), recordsOf(was));
        QCOMPARE(last.count("<History>"), src.count("<History>"));
        QVERIFY(recordsOf(now).join(u'\n').contains("PIN*=1234"));
        QVERIFY(
            recordsOf(now).join(u'\n').contains("Added | second |  || https://added.example |  |  | first@"));
    }
};

ARGENT_TEST(ImportFieldsTest)
#include "tst_importfields.moc"
