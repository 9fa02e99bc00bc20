// Exports of other programs as they really are, files that are no exports, and the
// limits that keep a hostile file from taking the memory.

#include "app/modLang.h"
#include "records/ImportExport.h"
#include "tests/common/TestMain.h"
#include "tests/records/CliRunner.h"
#include "tests/records/RecordsTestKit.h"

#include <QTest>

#include <sys/resource.h>

namespace {

const QString kPw = QStringLiteral("anna password");

QString fixture(const QString& Name) {
    return QStringLiteral(ARGENT_SOURCE_DIR "/tests/records/fixtures/") + Name;
}

// "F path" for a folder, "R path | login | password | description" for a record.
QStringList render(const ImpData& D) {
    QStringList paths, out;
    for (const ImpRow& r : D.Rows) {
        paths << (r.Parent >= 0 ? paths[r.Parent] + u'/' : QString()) + r.Title;
        out << (r.Folder ? "F " + paths.last()
                         : QStringList{"R " + paths.last(), r.Login, r.Password, r.Desc}.join(" | "));
    }
    return out;
}

// A file of one kind with one value of Units characters in the middle.
QByteArray withValue(const QString& Kind, qsizetype Units) {
    const QByteArray v(Units, 'x');
    if (Kind == "csv")
        return "url,username,password\nhttps://a.example,anna,\"" + v + "\"\n";
    if (Kind == "csv bare")
        return "url,username,password\nhttps://a.example,anna," + v + "\n";
    if (Kind == "xml")
        return "<KeePassFile><Root><Group><Entry>\n<String><Key>Notes</Key><Value>" + v +
               "</Value></String></Entry></Group></Root></KeePassFile>";
    return "{\"encrypted\": false, \"items\": [\n{\"type\": 2, \"name\": \"n\", \"notes\": \"" + v + "\"}]}";
}

} // namespace

class ImportSourcesTest : public QObject {
    Q_OBJECT
private slots:
    void realExportsAreRecognisedAndMapped_data() {
        QTest::addColumn<QString>("file");
        QTest::addColumn<QString>("format");
        QTest::addColumn<QStringList>("rows");
        QTest::addColumn<QStringList>("dropped");
        QTest::newRow("LastPass: grouping with backslashes, extra as notes, secure note, favourite")
            << "lastpass.csv"
            << "lastpass-csv"
            << QStringList{"F Email",
                           "R Email/Mail | anna@example.com | m@il pw | ",
                           "F Finance",
                           "F Finance/Banks",
                           "R Finance/Banks/Bank | anna | b,ank\"pw | Branch: Main St.\nCall "
                           "first\nFavourite: yes",
                           "R Finance/Visa |  |  | NoteType:Credit Card\nNumber:4111111111111111\nSecurity "
                           "Code:123",
                           "R forum.example.org | юзер | x | "}
            << QStringList();
        QTest::newRow("KeePass 1.x: Login Name is the login, Web Site the URL")
            << "keepass1.csv"
            << "keepass1-csv"
            << QStringList{"R Router | admin | r0uter | Under the desk",
                           "R Ключ Ї | юзер | pa\"ss,w | line 1\r\nline 2", "R PIN only |  | 1234 | "}
            << QStringList();
        QTest::newRow("hostname,username,password: titles from the host")
            << "firefox-hostname.csv"
            << "browser-csv"
            << QStringList{"R accounts.example.com | anna | s3cret | "
                           "formSubmitURL: https://accounts.example.com\nusernameField: "
                           "login\npasswordField: pass",
                           "R router.local | admin |  | httpRealm: Router "
                           "admin"}
            << QStringList();
        QTest::newRow("Bitwarden: passkeys, history, re-prompt and new kinds of items said")
            << "bitwarden-kinds.json"
            << "bitwarden-json"
            << QStringList{"R GitHub | octo | new-pw | Who: (the same as the user name)\nFavourite: yes",
                           "R Current account |  |  | Joint\nAccount number: 12345678\nBank name: Example "
                           "Bank\nIban: DE89370400440532013000\nName on account: Anna Doe\nRouting number: "
                           "021000021",
                           "R Licence |  |  | Expiration date: 2031-05-01\nFirst name: Anna\nIssuing "
                           "country: "
                           "DE\nLast name: Doe\nLicense number: D1234567",
                           "R Passport |  |  | Date of birth: 1990-02-03\nNationality: DE\nPassport number: "
                           "C01X00T47",
                           "R Something new |  |  | "}
            << QStringList{"1 passkey not taken in",
                           "1 request to ask for the master password again not taken in",
                           "1 item of an unknown kind not taken in"};
    }
    void realExportsAreRecognisedAndMapped() {
        QFETCH(QString, file);
        QFETCH(QString, format);
        QFETCH(QStringList, rows);
        QFETCH(QStringList, dropped);
        QCOMPARE(ImpFormatName(DetectImportFormat(readAllOf(fixture(file)))), format);
        ImpData d;
        ImpError err;
        QVERIFY2(ReadImportFile(fixture(file), ImpFormat::Detect, CsvMapping(), d, err),
                 qPrintable(err.Text()));
        QCOMPARE(render(d), rows);
        QStringList said;
        for (const QString& line : ImpDroppedText(d))
            said << line.section(u':', 0, 0);
        QCOMPARE(said, dropped);
        // The window says the same in its language, one line for each.
        QCOMPARE(ImpDroppedLangText(d).size(), dropped.size());
    }

    // What is not an export is refused with what to do, whatever format was named.
    void otherFilesAreRefusedWithWhatToDo_data() {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QString>("format");
        QTest::addColumn<int>("code");
        QTest::addColumn<QString>("says");
        const QByteArray kdbx =
            QByteArray("\x03\xD9\xA2\x9A\x67\xFB\x4B\xB5\x01\x00\x04\x00", 12) + QByteArray(200, '\x11');
        QTest::newRow("KeePass 2 database") << kdbx << "detect" << int(impKeePassDb) << "export it to XML";
        QTest::newRow("KeePass 2 database named as CSV")
            << kdbx << "csv" << int(impKeePassDb) << "export it to XML";
        QTest::newRow("KeePass 1 database")
            << QByteArray("\x03\xD9\xA2\x9A\x65\xFB\x4B\xB5", 8) + QByteArray(100, '\0') << "detect"
            << int(impKeePassDb) << "export it to XML";
        QTest::newRow("1Password .1pux (a ZIP archive)")
            << QByteArray("PK\x03\x04\x14\x00\x00\x00\x08\x00", 10) + "export.data"
            << "detect" << int(impArchive) << "export to CSV";
        QTest::newRow("Enpass JSON") << readAllOf(fixture("enpass.json")) << "detect" << int(impJsonOther)
                                     << "export of Enpass";
        QTest::newRow("Enpass JSON named as Bitwarden")
            << readAllOf(fixture("enpass.json")) << "bitwarden-json" << int(impJsonOther)
            << "export of Enpass";
    }
    void otherFilesAreRefusedWithWhatToDo() {
        QFETCH(QByteArray, bytes);
        QFETCH(QString, format);
        QFETCH(int, code);
        QFETCH(QString, says);
        ImpData d;
        ImpError err;
        QVERIFY(!ParseImport(bytes, ImpFormatFromName(format), CsvMapping(), d, err));
        QCOMPARE(int(err.Code), code);
        QVERIFY(d.Rows.isEmpty());
        QVERIFY2(err.Text().contains(says), qPrintable(err.Text()));
        QVERIFY(!err.Text().contains("name it"));
        TestEnv env;
        LoadLang(env.progDir() + "/Languages/Russian.lng");
        QVERIFY2(err.LangText().contains(code == impJsonOther ? "Enpass"
                                         : code == impArchive ? "CSV"
                                                              : "XML") &&
                     !err.LangText().contains("%"),
                 qPrintable(err.LangText()));
        // From a file the same, before anything else is read.
        const QString path = env.root() + "/x.kdbx";
        writeFileText(path, bytes);
        QVERIFY(!ReadImportFile(path, ImpFormatFromName(format), CsvMapping(), d, err));
        QCOMPARE(int(err.Code), code);
    }

    // One value over the limit is refused in every format, at its line; one at the
    // limit is read whole.
    void valuesOverTheLimitAreRefused_data() {
        QTest::addColumn<QString>("kind");
        for (const char* k : {"csv", "csv bare", "xml", "json"})
            QTest::newRow(k) << k;
    }
    void valuesOverTheLimitAreRefused() {
        QFETCH(QString, kind);
        ImpData d;
        ImpError err;
        QVERIFY(!ParseImport(withValue(kind, kImpMaxValue + 1), ImpFormat::Detect, CsvMapping(), d, err));
        QCOMPARE(int(err.Code), int(impValueTooLarge));
        QCOMPARE(err.Line, 2);
        QVERIFY(d.Rows.isEmpty());
        QVERIFY2(ParseImport(withValue(kind, kImpMaxValue), ImpFormat::Detect, CsvMapping(), d, err),
                 qPrintable(err.Text()));
        const ImpRow& r = d.Rows.last();
        QCOMPARE(std::max(r.Password.size(), r.Desc.size()), kImpMaxValue);
    }

    // Millions of tiny rows or values would take memory out of all proportion to the file.
    void filesOfMoreRowsThanAnExportAreRefused_data() {
        QTest::addColumn<QByteArray>("bytes");
        QByteArray csv = "url,username,password\n", xml = "<KeePassFile><Root><Group>", json = "[";
        for (qsizetype i = 0; i <= kImpMaxRows; ++i) {
            csv += "u,a,b\n";
            xml += "<Entry/>";
        }
        xml += "</Group></Root></KeePassFile>";
        json += QByteArray("0,").repeated(kImpMaxRows * 16) + "0]";
        QTest::newRow("csv") << csv;
        QTest::newRow("xml") << xml;
        QTest::newRow("json") << json;
    }
    void filesOfMoreRowsThanAnExportAreRefused() {
        QFETCH(QByteArray, bytes);
        ImpData d;
        ImpError err;
        QVERIFY(!ParseImport(bytes, ImpFormat::Detect, CsvMapping(), d, err));
        QCOMPARE(int(err.Code), int(impTooManyRows));
        QVERIFY(d.Rows.isEmpty());
        TestEnv env;
        LoadLang(env.progDir() + "/Languages/English.lng");
        QVERIFY2(err.LangText().endsWith("(more than 1000000)."), qPrintable(err.LangText()));
    }

    void escapesAndWideCharactersCountAsTheValueWillHaveThem() {
        ImpData d;
        ImpError err;
        // Six bytes of \u escape make one character: a file twice the limit in bytes holds
        // a value well under it.
        QByteArray esc;
        for (qsizetype i = 0; i < kImpMaxValue / 4; ++i)
            esc += "\\u0041";
        const QByteArray json =
            "{\"encrypted\": false, \"items\": [{\"type\": 2, \"name\": \"" + esc + "\"}]}";
        QVERIFY2(ParseImport(json, ImpFormat::Detect, CsvMapping(), d, err), qPrintable(err.Text()));
        QCOMPARE(d.Rows[0].Title.size(), kImpMaxValue / 4);
        // A character beyond the basic plane is two units: half the limit of them is over.
        QByteArray wide;
        for (qsizetype i = 0; i < kImpMaxValue / 2 + 1; ++i)
            wide += "\xF0\x9F\x94\x91";
        for (const QByteArray& bytes :
             {"url,username,password\nu,a," + wide + "\n",
              "<KeePassFile><Root><Group><Entry><String><Key>Title</Key><Value>" + wide +
                  "</Value></String></Entry></Group></Root></KeePassFile>"}) {
            QVERIFY(!ParseImport(bytes, ImpFormat::Detect, CsvMapping(), d, err));
            QCOMPARE(int(err.Code), int(impValueTooLarge));
        }
        // A quote inside a bare field is a character, not the start of a quoted one.
        const QByteArray stray =
            "url,username,password\nu,5\" disk,x\n" + QByteArray(kImpMaxValue, ',') + "\n";
        QVERIFY2(ParseImport(stray, ImpFormat::Detect, CsvMapping(), d, err), qPrintable(err.Text()));
    }

    // Through argentpm, under a memory limit: a file over the size limit is refused
    // without being read, and a huge value is refused at the cost of little more than
    // the file itself; the message names the limit, never the value.
    void oversizedImportsFailCleanlyUnderAMemoryLimit_data() {
        QTest::addColumn<QString>("kind");
        QTest::addColumn<qsizetype>("size");
        QTest::addColumn<QString>("says");
        QTest::newRow("sparse file over the limit")
            << "sparse" << qsizetype(kImpMaxFile + 1) << "larger than";
        for (const char* k : {"csv", "xml", "json"})
            QTest::newRow(k) << k << qsizetype(100 << 20) << "value is longer";
    }
    void oversizedImportsFailCleanlyUnderAMemoryLimit() {
        QFETCH(QString, kind);
        QFETCH(qsizetype, size);
        QFETCH(QString, says);
        TestEnv env;
        CliRunner cli(env);
        QCOMPARE(cli({"add-user", "anna", "--password-stdin"}, kPw.toUtf8() + '\n').code, 0);
        const QString user = cli.dbs() + "/anna.bdb";
        const QByteArray before = readAllOf(user);
        const QString path = env.root() + "/big." + kind;
        {
            QFile f(path);
            QVERIFY(f.open(QIODevice::WriteOnly));
            if (kind == "sparse")
                QVERIFY(f.resize(size));
            else
                f.write(withValue(kind, size));
        }
        QProcess p;
        // The program's own needs (address space, most of it never touched) plus the file
        // and a little: no decoded copy of the value fits.
        const rlim_t limit = rlim_t(128 << 20) + rlim_t(kind == "sparse" ? 0 : size);
        p.setChildProcessModifier([limit] {
            setsid();
            rlimit r{limit, limit};
            setrlimit(RLIMIT_AS, &r);
        });
        p.start(cli.exe(), {"--databases", cli.dbs(), "import", "anna", path, "--password-stdin"});
        p.write(kPw.toUtf8() + '\n');
        p.closeWriteChannel();
        QVERIFY(p.waitForFinished(60000));
        const QString err = QString::fromUtf8(p.readAllStandardError());
        QCOMPARE(p.exitStatus(), QProcess::NormalExit);
        QCOMPARE(p.exitCode(), 1);
        QVERIFY2(err.contains(says) && err.contains("nothing was imported"), qPrintable(err));
        QVERIFY(err.size() < 1000);
        QVERIFY(p.readAllStandardOutput().isEmpty());
        QCOMPARE(readAllOf(user), before);
    }

    // What could not be taken in is said after an import by argentpm too, and what went
    // wrong in one line.
    void theCommandLineSaysWhatWasNotTakenIn() {
        TestEnv env;
        CliRunner cli(env);
        QCOMPARE(cli({"add-user", "anna", "--password-stdin"}, kPw.toUtf8() + '\n').code, 0);
        const CliRun r = cli.as(kPw, {"import", "anna", fixture("bitwarden-kinds.json")});
        QCOMPARE(r.code, 0);
        QVERIFY2(r.out.contains("Imported 0 folders and 5 records (bitwarden-json)") &&
                     r.out.contains(
                         "\n1 passkey not taken in: a passkey works only in the program that made it") &&
                     !r.out.contains("earlier password"),
                 qPrintable(r.out));
        const CliRun plain = cli.as(kPw, {"import", "anna", fixture("keepass1.csv")});
        QCOMPARE(plain.out.count(u'\n'), 2);
        // Bytes the declared encoding cannot convert: one line that says so, nothing of the
        // XML reader's own on the terminal.
        writeFileText(env.root() + "/enc.xml",
                      "<?xml version=\"1.0\" "
                      "encoding=\"EUC-JP\"?><KeePassFile><Root>\x8f\xff\xff</Root></KeePassFile>");
        const CliRun enc = cli.as(kPw, {"import", "anna", env.root() + "/enc.xml"});
        QCOMPARE(enc.code, 1);
        QVERIFY2(enc.err.startsWith("argentpm: ") && enc.err.count(u'\n') == 1, qPrintable(enc.err));
    }
};

ARGENT_TEST(ImportSourcesTest)
#include "tst_importsources.moc"
