#include "mainwindow/frmMain.h"
#include "records/frmExport.h"
#include "records/frmImport.h"
#include "storage/FieldTable.h"
#include "tests/common/TestMain.h"
#include "tests/mainwindow/MainTestKit.h"

#include <QComboBox>
#include <QLabel>
#include <QRadioButton>

namespace {

QString fixture(const QString& Name) {
    return QStringLiteral(ARGENT_SOURCE_DIR "/tests/records/fixtures/") + Name;
}

} // namespace

class ImportWindowTest : public QObject {
    Q_OBJECT
private slots:
    // File > Import: what was found is shown first; the import is one change that the
    // tree shows at once and the user's file holds.
    void importIntoTheChosenFolder() {
        TestEnv env;
        makeUser(env);
        frmMain w;
        w.Form_Load();
        openUser();
        Script s;
        w.trvDatabase->setCurrentIndex(w.NodeByKey("2key")); // a record of Mail: Mail it is
        QString summary, refused;
        s.on = [&](QDialog& d) {
            auto* f = qobject_cast<frmImport*>(&d);
            QVERIFY(f);
            writeFileText(env.root() + "/bad.json", "{\"items\": [\n{\"name\": \"a\"\n]}");
            f->LoadFile(env.root() + "/bad.json");
            refused = f->lblSummary->text();
            QVERIFY(!f->cmdOk->isEnabled());
            // Enter in the file field reads the file and imports nothing yet.
            f->show();
            f->txtFile->setText(fixture("generic.csv"));
            QTest::keyClick(f->txtFile, Qt::Key_Return);
            QVERIFY(f->FileUnderstood());
            QCOMPARE(f->NewFolderID, QString());
            QVERIFY(f->fraColumns->isVisibleTo(f));
            f->cboColumn[2]->setCurrentIndex(3); // the password is in "Secret"
            f->cboColumn[4]->setCurrentIndex(5); // the folders in "Where"
            summary = f->lblSummary->text();
            f->cmdOk->click();
        };
        w.mnuFileImport->trigger();
        QCOMPARE(refused, Texts(339) + "\nLine 3: the JSON cannot be read (unterminated object).");
        QCOMPARE(summary,
                 QStringLiteral("Format: CSV with a header row (choose the columns). Found 2 folders and 3 "
                                "records. They will go into a new folder \"generic\" inside \"Mail\"."));
        QCOMPARE(s.boxes, QStringList{"Imported 2 folders and 3 records into the new folder \"generic\"."});
        QModelIndex mail = w.NodeByKey("1key");
        QCOMPARE(childTexts(mail), QStringList({"generic", "Box"}));
        QCOMPARE(w.trvDatabase->currentIndex(), childOf(mail, 0));
        QCOMPARE(childTexts(childOf(mail, 0)), QStringList({"Web", "Top"}));
        QCOMPARE(childTexts(w.NodeByKey("7key")), QStringList({"Mail", "Shop"}));
        QCOMPARE(rowValue("9", "Password"), QStringLiteral("m@il"));
        // Saved: opening the user again shows the same.
        UnloadUser();
        openUser();
        QCOMPARE(childTexts(w.NodeByKey("1key")), QStringList({"generic", "Box"}));
        // Columns left unchosen follow the notes.
        QCOMPARE(rowValue("10", "Description"), QStringLiteral("note with ; and\r\nbreak\nWho: me;2"));
    }

    // A database file says what to do instead; what cannot be taken in is said before the
    // import and after it; what has a field goes there and is in the file.
    void importSaysWhatIsLeftOut() {
        TestEnv env;
        makeUser(env);
        frmMain w;
        w.Form_Load();
        openUser();
        Script s;
        QString summary, refused;
        s.on = [&](QDialog& d) {
            auto* f = qobject_cast<frmImport*>(&d);
            QVERIFY(f);
            writeFileText(env.root() + "/vault.kdbx",
                          QByteArray("\x03\xD9\xA2\x9A\x67\xFB\x4B\xB5", 8) + QByteArray(64, 'k'));
            f->LoadFile(env.root() + "/vault.kdbx");
            refused = f->lblSummary->text();
            QVERIFY(!f->cmdOk->isEnabled());
            f->LoadFile(fixture("bitwarden-kinds.json"));
            summary = f->lblSummary->text();
            f->cmdOk->click();
        };
        w.mnuFileImport->trigger();
        QCOMPARE(refused, Texts(339) + "\n" + Texts(382));
        QStringList left{Texts(385)};
        for (const auto& [id, n] : {std::pair{386, 1}, {389, 1}, {390, 1}})
            left << Texts(id).replace("%1", QString::number(n));
        QVERIFY2(summary.startsWith(Texts(334).section(u'%', 0, 0)) &&
                     summary.endsWith(".\n\n" + left.join(u'\n')),
                 qPrintable(summary));
        QCOMPARE(s.boxes.size(), 1);
        QVERIFY2(s.boxes[0].endsWith("\n\n" + left.join(u'\n')), qPrintable(s.boxes[0]));
        UnloadUser();
        openUser();
        const int tbl = CurUsDB->FindTable("DataTable");
        const int rec = CurUsDB->GetRecNumFromVal(tbl, CurUsDB->FindField(tbl, "Title"), "GitHub", 1);
        const RecExtras ex = ReadRecExtras(CurUsDB->DBView(), CurUsDB->GetTblFldValNm(tbl, rec, "IndNum"));
        QCOMPARE(ex.Url, QStringLiteral("https://github.com/login"));
        QVERIFY(ex.Custom.size() == 1 && ex.Custom[0].Name == "Recovery" && ex.Custom[0].Hidden);
        QCOMPARE(ex.History.size(), 2);
        QCOMPARE(ex.History[0].Pasw, QStringLiteral("old-pw-1"));
    }

    // File > Export warns first; No writes nothing, Yes a private file.
    void exportWarnsAndWritesAPrivateFile() {
        TestEnv env;
        makeUser(env);
        frmMain w;
        w.Form_Load();
        openUser();
        Script s;
        w.trvDatabase->setCurrentIndex(w.NodeByKey("3key"));
        const QString path = env.root() + "/work.csv";
        s.on = [&](QDialog& d) {
            auto* f = qobject_cast<frmExport*>(&d);
            QVERIFY(f);
            QVERIFY(f->optFolder->isChecked());
            f->optCsv->setChecked(true);
            s.answers = {vbNo};
            QVERIFY(!f->ExportTo(path));
            QVERIFY(!QFile::exists(path));
            QVERIFY(f->ExportTo(path));
        };
        w.mnuFileExport->trigger();
        QCOMPARE(s.boxes,
                 QStringList({Texts(357), Texts(357), "Exported 0 folders and 1 records to " + path + "."}));
        QCOMPARE(posixMode(path), 0600);
        QCOMPARE(readAllOf(path).split('\n').mid(1, 1),
                 QList<QByteArray>{"\"Work\",\"Forum\",\"f\",\"y\",\"\",\"\",\"\",\"0\",\"\",\"\"\r"});
    }
};

ARGENT_TEST(ImportWindowTest)
#include "tst_importwindow.moc"
