// A folder's description (the notes an import brings with a group): shown in the value
// pane, changed in the folder editor, and in argentpm's show and edit.

#include "mainwindow/frmMain.h"
#include "mainwindow/guiTreeModel.h"
#include "records/frmEditFolder.h"
#include "records/guiLookControls.h"
#include "tests/common/TestMain.h"
#include "tests/mainwindow/MainTestKit.h"

#include <QPlainTextEdit>
#include <QProcess>
#include <QTextEdit>

#include <unistd.h>

namespace {

struct CliRun {
    int code = -1;
    QString out, err;
};

CliRun argentpm(const TestEnv& env, const QStringList& args) {
    const QString exe = env.progDir() + "/argentpm";
    if (!QFile::exists(exe))
        QFile::copy(QStringLiteral(ARGENT_BIN_DIR "/argentpm"), exe);
    QProcess p;
    p.setChildProcessModifier([] { setsid(); });
    p.start(exe, QStringList{"--databases", ProgConfig[5]} + args + QStringList{"--password-stdin"});
    p.write((kUserPasw + '\n').toUtf8());
    p.closeWriteChannel();
    if (!p.waitForFinished(30000))
        return {};
    return {p.exitCode(), QString::fromUtf8(p.readAllStandardOutput()),
            QString::fromUtf8(p.readAllStandardError())};
}

// The description of row Id as the file holds it.
QString descOnDisk(const QString& Id) {
    DatabaseRecord rec;
    clsFileIdentity fid;
    if (ReadUserFile(UsDBFilePath("anna"), GetTruePasw(HashString(kUserPasw)), rec, fid) != 1)
        return QStringLiteral("<unreadable>");
    for (const QStringList& row : rec.Tables.value(0).Records.rows())
        if (row.value(0) == Id)
            return row.value(6);
    return QStringLiteral("<gone>");
}

} // namespace

class FolderDescriptionTest : public QObject {
    Q_OBJECT
private slots:
    void editedInTheWindowShownEverywhere() {
        TestEnv env;
        makeUser(env);
        frmMain w;
        w.Form_Load();
        openUser();
        const QString notes = QStringLiteral("Mail accounts of the family\nsecond line");
        Script s;
        QString shown = QStringLiteral("<not opened>");
        s.on = [&](QDialog& d) {
            auto* f = qobject_cast<frmEditFolder*>(&d);
            QVERIFY(f);
            shown = f->txtDesc->toPlainText();
            f->txtDesc->setPlainText(notes);
            f->cmdSaveChanges->click();
        };
        const QModelIndex mail = w.NodeByKey("1key");
        w.trvDatabase->setCurrentIndex(mail);
        w.trvDatabase_Click();
        QVERIFY(w.txtValue->toPlainText().trimmed().isEmpty());
        w.mnuContextTrvEdit_Click();
        QCOMPARE(shown, QString());
        QCOMPARE(descOnDisk("1"), notes);
        // The pane of the selected folder shows it at once.
        QVERIFY(w.txtValue->toPlainText().contains("Description:"));
        QVERIFY(w.txtValue->toPlainText().contains(notes));
        QCOMPARE(mail.data().toString(), QStringLiteral("Mail"));

        // Opened again, the editor holds it; a cancelled change leaves it.
        s.on = [&](QDialog& d) {
            auto* f = qobject_cast<frmEditFolder*>(&d);
            shown = f->txtDesc->toPlainText();
            f->txtDesc->setPlainText("thrown away");
            f->cmdCancel->click();
        };
        w.mnuContextTrvEdit_Click();
        QCOMPARE(shown, notes);
        QCOMPARE(descOnDisk("1"), notes);

        // Another folder without one, and the root, show nothing; a record its own fields.
        w.trvDatabase->setCurrentIndex(w.NodeByKey("3key"));
        w.trvDatabase_Click();
        QVERIFY(w.txtValue->toPlainText().trimmed().isEmpty());
        w.trvDatabase->setCurrentIndex(w.TreeModel()->RootIndex());
        w.trvDatabase_Click();
        QVERIFY(w.txtValue->toPlainText().trimmed().isEmpty());
        w.trvDatabase->setCurrentIndex(w.NodeByKey("4key"));
        w.trvDatabase_Click();
        QVERIFY(!w.txtValue->toPlainText().contains(notes));
        UnloadUser();

        // argentpm shows it and changes it; a login stays a record's only.
        CliRun r = argentpm(env, {"show", "anna", "1", "--field", "description"});
        QCOMPARE(r.code, 0);
        QCOMPARE(r.out, notes);
        r = argentpm(env, {"edit", "anna", "1", "--desc", "changed by argentpm"});
        QCOMPARE(r.code, 0);
        QCOMPARE(descOnDisk("1"), QStringLiteral("changed by argentpm"));
        r = argentpm(env, {"edit", "anna", "1", "--login", "x"});
        QVERIFY(r.code != 0);
        QVERIFY(r.err.contains("is a folder"));
        QCOMPARE(descOnDisk("1"), QStringLiteral("changed by argentpm"));
    }
};
ARGENT_TEST(FolderDescriptionTest)

#include "tst_folderdesc.moc"
