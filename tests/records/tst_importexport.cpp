#include "records/CsvReader.h"
#include "records/ImportExport.h"
#include "records/RecordTree.h"
#include "tests/common/TestMain.h"
#include "tests/records/RecordsTestKit.h"

#include <QDir>
#include <QTest>

#include <climits>
#include <csignal>
#include <sys/resource.h>

namespace {

QString fixture(const QString& Name) {
    return QStringLiteral(ARGENT_SOURCE_DIR "/tests/records/fixtures/") + Name;
}

// Rows read from a file, one line each: "F path" for a folder, "R path | login | password
// | description | flags" for a record.
QStringList render(const ImpData& D) {
    QStringList paths, out;
    for (const ImpRow& r : D.Rows) {
        paths << (r.Parent >= 0 ? paths[r.Parent] + u'/' : QString()) + r.Title;
        out << (r.Folder
                    ? "F " + paths.last()
                    : QStringList{"R " + paths.last(), r.Login, r.Password, r.Desc, r.Flags}.join(" | "));
    }
    return out;
}

// The rows below folder Id of a database, depth first with the folders of each folder
// before its records, both in table order: "F path | flags | image", "R path | login |
// password | description | flags | image".
QStringList treeOf(clsDatabase& Db, const QString& Id, const QString& Path = QString()) {
    QStringList out, records;
    for (const QStringList& r : allRows(Db)) {
        if (r[1] != Id)
            continue;
        const QString path = Path.isEmpty() ? r[3] : Path + u'/' + r[3];
        if (r[2] == "2")
            records << QStringList{"R " + path, r[4], r[5], r[6], r[8], r[7]}.join(" | ");
        else
            out << "F " + path + " | " + r[8] + " | " + r[7] << treeOf(Db, r[0], path);
    }
    return out + records;
}

// "path: description" of folder Id and every folder below it, depth first.
QStringList folderNotes(const QString& Id, const QString& Path) {
    QStringList out;
    for (const QStringList& r : allRows())
        if (r[0] == Id)
            out << Path + ": " + r[6];
    for (const QStringList& r : allRows())
        if (r[1] == Id && r[2] != "2")
            out << folderNotes(r[0], Path + u'/' + r[3]);
    return out;
}

} // namespace

class ImportExportTest : public QObject {
    Q_OBJECT
private slots:
    void csvReaderFollowsRfc4180_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QStringList>("records"); // fields joined by "|", then "@line"
        QTest::addColumn<int>("errorLine");
        QTest::newRow("plain, no final line end") << "a,b\n1,2" << QStringList{"a|b@1", "1|2@2"} << 0;
        QTest::newRow("byte order mark, CR LF") << "\uFEFFa,b\r\n1,2\r\n"
                                                << QStringList{"a|b@1", "1|2@2"} << 0;
        QTest::newRow("quotes, separators and line breaks inside")
            << "\"x \"\"q\"\"\",\"a,b\",\"l1\r\nl2\nl3\"\nnext"
            << QStringList{"x \"q\"|a,b|l1\r\nl2\nl3@1", "next@4"} << 0;
        QTest::newRow("empty fields and empty lines") << ",,\n\n\r\n\"\",x\n"
                                                      << QStringList{"||@1", "|x@4"} << 0;
        QTest::newRow("lone CR ends a record") << "a\rb" << QStringList{"a@1", "b@2"} << 0;
        QTest::newRow("a quote inside a bare field") << "5\" disk,x" << QStringList{"5\" disk|x@1"} << 0;
        QTest::newRow("unclosed quote names its line") << "a\n\"open\nstill open" << QStringList{"a@1"} << 2;
        QTest::newRow("text after a closing quote") << "a\nb\n\"q\"x,y" << QStringList{"a@1", "b@2"} << 3;
    }
    void csvReaderFollowsRfc4180() {
        QFETCH(QString, text);
        QFETCH(QStringList, records);
        QFETCH(int, errorLine);
        CsvReader r(text);
        CsvRecord rec;
        QStringList got;
        while (r.Next(rec))
            got << rec.Fields.join(u'|') + u'@' + QString::number(rec.Line);
        QCOMPARE(got, records);
        QCOMPARE(r.Failed() ? r.ErrorLine() : 0, errorLine);
        // What the writer makes, the reader reads back.
        if (errorLine == 0) {
            QString out;
            for (const QString& line : records)
                AppendCsvRecord(out, line.section(u'@', 0, 0).split(u'|'));
            CsvReader back(out);
            QStringList again;
            while (back.Next(rec))
                again << rec.Fields.join(u'|');
            for (QString& line : got)
                line = line.section(u'@', 0, 0);
            QCOMPARE(again, got);
        }
    }

    void readsTheFormats_data() {
        QTest::addColumn<QString>("file");
        QTest::addColumn<QString>("format"); // detected
        QTest::addColumn<QString>("map");
        QTest::addColumn<QStringList>("rows");
        QTest::newRow("KeePassXC XML: recycle bin skipped, tags and expiry in the description, colour")
            << "keepassxc.xml"
            << "keepass-xml"
            << ""
            << QStringList{
                   "R Top entry | nopass |  |  | ",
                   "F Banking",
                   "R Banking/Savings | anna@example.org | S3cr\"et,pw | First line\nsecond, \"quoted\" "
                   "line\nTags: bank,money\nExpires: "
                   "2026-11-24T06:06:19Z | 255|0",
                   "F Banking/Cards",
                   "R Banking/Cards/Карта Ї | Юзер | Пароль-Ї |  | ",
                   "F Empty"};
        QTest::newRow("KeePassXC CSV: root group and recycle bin left out")
            << "keepassxc.csv"
            << "keepassxc-csv"
            << ""
            << QStringList{
                   "R Top entry | nopass |  |  | ", "F Banking",
                   "R Banking/Savings | anna@example.org | S3cr\"et,pw | First line\nsecond, \"quoted\" "
                   "line | ",
                   "F Banking/Cards", "R Banking/Cards/Карта Ї | Юзер | Пароль-Ї |  | "};
        QTest::newRow("Bitwarden JSON: nested folders, login, card, note, identity")
            << "bitwarden.json"
            << "bitwarden-json"
            << ""
            << QStringList{
                   "F Finance",
                   "F Finance/Cards",
                   "F Соцсети",
                   "R Finance/Bank | jdoe | p\"a,ss\nword | Branch: Main St.\nLinked: (the same as the user "
                   "name)\nFavourite: yes | ",
                   "R Finance/Cards/Visa |  |  | Cardholder name: John Doe\nBrand: Visa\nNumber: "
                   "4111111111111111\nSecurity code: 123\nExpiry: 10/2029 | ",
                   "R Соцсети/ВКонтакте Ї | юзер |  |  | ",
                   "R Wi-Fi |  |  | SSID: home\nKey: 12345678 | ",
                   "R Me |  |  | Title: Mr\nFirst name: John\nLast name: Doe\nUsername: jd\nEmail: "
                   "john@example.org\nAddress: 1 Main St\nCity: Springfield\nPostal code: 12345\nCountry: "
                   "US | "};
        QTest::newRow("Chrome: a missing name is the site's host")
            << "chrome.csv"
            << "browser-csv"
            << ""
            << QStringList{"R Example | anna | pa\"ss,word |  | ",
                           "R forum.example.org | Юзер Ї | x | two\nlines | "};
        QTest::newRow("Firefox: times and guid left out")
            << "firefox.csv"
            << "browser-csv"
            << ""
            << QStringList{"R accounts.example.com | anna@example.com | s3cret | "
                           "formActionOrigin: https://accounts.example.com | ",
                           "R router.local | admin |  | httpRealm: Router admin | "};
        QTest::newRow("generic CSV: semicolons, chosen columns, the rest described")
            << "generic.csv"
            << "csv"
            << "title=Account,login=who,password=3,notes=Comment,group=Where"
            << QStringList{"F Web", "F Web/Mail", "R Web/Mail/Mail | me@example.org | m@il | Colour: blue | ",
                           "R Web/Shop | me;2 | a\"b | note with ; and\r\nbreak | ", "R Top |  | t0p |  | "};
    }
    void readsTheFormats() {
        QFETCH(QString, file);
        QFETCH(QString, format);
        QFETCH(QString, map);
        QFETCH(QStringList, rows);
        const QByteArray bytes = readAllOf(fixture(file));
        QCOMPARE(ImpFormatName(DetectImportFormat(bytes)), format);
        CsvMapping m;
        QString bad;
        QVERIFY(ParseCsvMapping(map, ReadCsvHeader(bytes), m, bad));
        ImpData d;
        ImpError err;
        QVERIFY2(ReadImportFile(fixture(file), ImpFormat::Detect, m, d, err), qPrintable(err.Text()));
        QCOMPARE(render(d), rows);
        QCOMPARE(d.Folders + d.Records, rows.size());
    }

    void badInputIsRefusedWhole_data() {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QString>("format");
        QTest::addColumn<int>("code");
        QTest::addColumn<int>("line");
        QTest::newRow("empty") << QByteArray() << "detect" << int(impUnknownFormat) << 0;
        QTest::newRow("CSV quote left open")
            << QByteArray("url,username,password\nu,a,\"b\nc,d,e\n") << "detect" << int(impCsvQuote) << 2;
        QTest::newRow("CSV text after a quote") << QByteArray("url,username,password\nu,a,b\nu,\"a\"b,c\n")
                                                << "detect" << int(impCsvAfterQuote) << 3;
        QTest::newRow("CSV not UTF-8") << QByteArray("url,username,password\nu,a,b\nu,\xE9t\xE9,c\n")
                                       << "detect" << int(impNotUtf8) << 3;
        QTest::newRow("CSV lacking a needed column")
            << QByteArray("Group,Title,Username\nRoot,a,b\n") << "keepassxc-csv" << int(impCsvNoColumn) << 0;
        QTest::newRow("CSV with nothing to map")
            << QByteArray("foo,bar\n1,2\n") << "detect" << int(impCsvNoMapping) << 0;
        QTest::newRow("XML cut short")
            << QByteArray("<KeePassFile>\n<Root>\n<Group><Name>x</Name>\n<Entry>\n") << "detect"
            << int(impXmlBad) << 5;
        QTest::newRow("XML tags crossed")
            << QByteArray(
                   "<KeePassFile><Root><Group>\n<Entry><String></Entry>\n</Group></Root></KeePassFile>")
            << "detect" << int(impXmlBad) << 2;
        QTest::newRow("XML enciphered value")
            << QByteArray("<KeePassFile><Root><Group><Entry>\n<String><Key>Password</Key><Value "
                          "Protected=\"True\">3q2+7w==</Value></String></Entry></Group></Root></KeePassFile>")
            << "keepass-xml" << int(impXmlBad) << 2;
        QTest::newRow("XML bytes that are not UTF-8")
            << QByteArray(
                   "<KeePassFile><Root><Group>\n<Entry>\n<String><Key>Title</Key><Value>caf\xE9</Value>"
                   "</String></Entry></Group></Root></KeePassFile>")
            << "detect" << int(impXmlBad) << 3;
        QTest::newRow("XML declaring entities of its own")
            << QByteArray(
                   "<!DOCTYPE KeePassFile [<!ENTITY x \"y\">]>\n<KeePassFile><Root><Group>\n<Entry>"
                   "<String><Key>Title</Key><Value>&x;</Value></String></Entry></Group></Root></KeePassFile>")
            << "keepass-xml" << int(impXmlBad) << 3;
        QTest::newRow("XML of another kind")
            << QByteArray("<?xml version=\"1.0\"?><html/>") << "detect" << int(impXmlNotKeePass) << 0;
        QTest::newRow("JSON broken") << QByteArray("{\"items\": [\n{\"name\": \"a\"},\n{\"name\" \"b\"}]}")
                                     << "detect" << int(impJsonBad) << 3;
        QTest::newRow("JSON encrypted")
            << QByteArray("{\"encrypted\": true, \"items\": []}") << "detect" << int(impJsonEncrypted) << 0;
        QTest::newRow("JSON of another kind")
            << QByteArray("[1, 2]") << "detect" << int(impJsonNotBitwarden) << 0;
    }
    void badInputIsRefusedWhole() {
        QFETCH(QByteArray, bytes);
        QFETCH(QString, format);
        QFETCH(int, code);
        QFETCH(int, line);
        ImpData d;
        ImpError err;
        QVERIFY(!ParseImport(bytes, ImpFormatFromName(format), CsvMapping(), d, err));
        QCOMPARE(int(err.Code), code);
        QCOMPARE(err.Line, line);
        QVERIFY(d.Rows.isEmpty());
        QVERIFY(!err.Text().isEmpty());
    }

    // Rows go in through the tree operations: identifiers from the tag, one by one, new
    // rows at the end of the table; a user whose identifiers would run out gets none.
    void importAddsRowsTheWayNewRowsAreAdded() {
        TestEnv env;
        useNewDatabase();
        const QString home = GetNewIndNum(*CurUsDB);
        AddFolderToDB("Home", 0, home);
        ImpData d;
        ImpError err;
        QVERIFY(ReadImportFile(fixture("keepassxc.xml"), ImpFormat::Detect, CsvMapping(), d, err));
        int first = 0;
        QCOMPARE(ImportIntoDB(d, home, ImportFolderName(fixture("keepassxc.xml")), &first, err),
                 QStringLiteral("2"));
        QCOMPARE(first, 2);
        const QList<QStringList> rows = allRows();
        QCOMPARE(rows.size(), 8);
        QCOMPARE(rows[1], QStringList({"2", "1", "1", "keepassxc", "", "", "", "2key", "0|0"}));
        QCOMPARE(rows[2].mid(0, 6), QStringList({"3", "2", "2", "Top entry", "nopass", ""}));
        QCOMPARE(rows[3], QStringList({"4", "2", "1", "Banking", "", "", "", "2key", "0|0"}));
        QCOMPARE(rows[4].mid(0, 5), QStringList({"5", "4", "2", "Savings", "anna@example.org"}));
        QCOMPARE(rows[4].mid(7), QStringList({"1key", "255|0"}));
        QCOMPARE(rows[6][1], QStringLiteral("6"));
        QCOMPARE(CurUsDB->GetTblTag(dataTable()), QStringLiteral("8"));

        CurUsDB->SetTblTag(dataTable(), QString::number(INT_MAX - 5));
        QVERIFY(ImportIntoDB(d, home, "again", nullptr, err).isEmpty());
        QCOMPARE(int(err.Code), int(impTooMany));
        QCOMPARE(allRows(), rows);
        QCOMPARE(CurUsDB->GetTblTag(dataTable()), QString::number(INT_MAX - 5));
    }

    // Export and our own import give back the same tree: every field, the look in XML,
    // texts that need escaping in either format.
    void exportThenImportGivesTheSameRows_data() {
        QTest::addColumn<int>("format");
        QTest::addColumn<bool>("subtree");
        QTest::newRow("XML, whole user") << int(ExpFormat::KeePassXml) << false;
        QTest::newRow("XML, one folder") << int(ExpFormat::KeePassXml) << true;
        QTest::newRow("CSV, whole user") << int(ExpFormat::KeePassXcCsv) << false;
    }
    void exportThenImportGivesTheSameRows() {
        QFETCH(int, format);
        QFETCH(bool, subtree);
        const bool xml = format == int(ExpFormat::KeePassXml);
        TestEnv env;
        useNewDatabase();
        const QString web = GetNewIndNum(*CurUsDB);
        AddFolderToDB("Web & <mail>", 0, web);
        const QString sub = GetNewIndNum(*CurUsDB);
        AddFolderToDB("Ї \"quoted\", folder", web.toInt(), sub);
        AddRecordToDB(*CurUsDB, sub, "Ключ Ї", "юзер", "p\"a,s;s\u0087", "line 1\nline 2, \"two\"\r\n\tend");
        const QString box = AddRecordToDB(*CurUsDB, web, "Box", "", "", "");
        AddRecordToDB(*CurUsDB, "0", "Top", "t", "]]> & <x>", "");
        if (xml) {
            ChangeDataTableField("IndNum", box, "Flags", "16711680|1");
            ChangeDataTableField("IndNum", box, "Image", "7key");
            ChangeDataTableField("IndNum", sub, "Flags", "255|0");
            const QString empty = GetNewIndNum(*CurUsDB);
            AddFolderToDB("Empty", web.toInt(), empty);
        }
        const QString root = subtree ? web : QStringLiteral("0");
        const QStringList before = treeOf(*CurUsDB, root);
        ExpCounts counts;
        const QByteArray bytes = ExportRecordTree(*CurUsDB, root, ExpFormat(format), &counts);
        QCOMPARE(counts.Records, subtree ? 2 : 3);
        QCOMPARE(counts.Folders, xml ? (subtree ? 2 : 3) : 2);

        ImpData d;
        ImpError err;
        QVERIFY2(ParseImport(bytes, ImpFormat::Detect, CsvMapping(), d, err), qPrintable(err.Text()));
        QCOMPARE(d.Format, xml ? ImpFormat::KeePassXml : ImpFormat::KeePassXcCsv);
        useNewDatabase();
        const QString top = ImportIntoDB(d, "0", "copy", nullptr, err);
        QCOMPARE(treeOf(*CurUsDB, top), before);
        // A record is no folder to export.
        QVERIFY(ExportRecordTree(*CurUsDB, FindDataRow(*CurUsDB, box) ? box : QStringLiteral("3"),
                                 ExpFormat(format))
                    .isEmpty());
    }

    // The notes of KeePass groups become the descriptions of their folders, those of the
    // top group the new folder's; our XML export writes them back.
    void groupNotesGoWithTheirFolders_data() {
        QTest::addColumn<QByteArray>("xml");
        QTest::addColumn<QStringList>("folders"); // folderNotes of the new folder
        QTest::newRow("top and nested groups")
            << QByteArray(
                   "<KeePassFile><Root><Group><Name>Root</Name><Notes>About Ї</Notes>"
                   "<Group><Name>Mail</Name><Notes>Two &amp; lines\n here</Notes><Group><Name>Old</Name>"
                   "<Notes/></Group></Group></Group></Root></KeePassFile>")
            << QStringList{"new: About Ї", "new/Mail: Two & lines\n here", "new/Mail/Old: "};
        QTest::newRow("notes after the entries, in CDATA")
            << QByteArray("<KeePassFile><Root><Group><Group><Name>Bank</Name><Entry><String><Key>Title</Key>"
                          "<Value>a</Value></String></Entry><Notes><![CDATA[<PIN> on paper]]></Notes></Group>"
                          "</Group></Root></KeePassFile>")
            << QStringList{"new: ", "new/Bank: <PIN> on paper"};
    }
    void groupNotesGoWithTheirFolders() {
        QFETCH(QByteArray, xml);
        QFETCH(QStringList, folders);
        TestEnv env;
        for (int pass = 0; pass < 2; ++pass) {
            ImpData d;
            ImpError err;
            QVERIFY2(ParseImport(xml, ImpFormat::Detect, CsvMapping(), d, err), qPrintable(err.Text()));
            useNewDatabase();
            const QString top = ImportIntoDB(d, "0", "new", nullptr, err);
            QCOMPARE(folderNotes(top, "new"), folders);
            xml = ExportRecordTree(*CurUsDB, top, ExpFormat::KeePassXml);
        }
    }

    void exportFilesAreCheckedAndPrivate() {
        TestEnv env;
        const QString path = env.root() + "/out.xml";
        writeFileText(path, "old");
        QFile::setPermissions(path,
                              QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ReadOther);
        QString why;
        QVERIFY(WriteExportFile(path, "new", why));
        QCOMPARE(readAllOf(path), QByteArray("new"));
        QCOMPARE(posixMode(path), 0600);
        // A folder that is a file: refused with a reason, nothing else touched.
        QVERIFY(!WriteExportFile(path + "/x.xml", "more", why));
        QVERIFY(!why.isEmpty());
        QCOMPARE(readAllOf(path), QByteArray("new"));
        // No room for the new file, small or large: the old one stays whole.
        rlimit old{};
        getrlimit(RLIMIT_FSIZE, &old);
        auto prev = std::signal(SIGXFSZ, SIG_IGN);
        rlimit small = old;
        small.rlim_cur = 100;
        setrlimit(RLIMIT_FSIZE, &small);
        const bool smallOk = WriteExportFile(path, QByteArray(3000, 'x'), why);
        const bool largeOk = WriteExportFile(path, QByteArray(300000, 'x'), why);
        setrlimit(RLIMIT_FSIZE, &old);
        std::signal(SIGXFSZ, prev);
        QVERIFY(!smallOk);
        QVERIFY(!largeOk);
        QCOMPARE(readAllOf(path), QByteArray("new"));
    }
};

ARGENT_TEST(ImportExportTest)
#include "tst_importexport.moc"
