// Nothing the window holds is lost on the way out: switching users, closing questions
// that the lock answers, the end of the session, and the save after every change.

#include "app/modMain.h"
#include "maintenance/RestoreBackup.h"
#include "maintenance/frmRestore.h"
#include "mainwindow/frmMain.h"
#include "options/frmOptions.h"
#include "storage/Rc4.h"
#include "tests/common/TestMain.h"
#include "tests/mainwindow/MainTestKit.h"
#include "users/frmAddUser.h"
#include "users/guiOpenUser.h"

#include <QApplication>
#include <QCheckBox>
#include <QDir>
#include <QLabel>
#include <QMessageBox>
#include <QProcess>
#include <QTimer>

#include <csignal>
#include <cstdio>

namespace {

// The title of row 1 ("Mail") as the file holds it, without touching the open user.
QString titleOnDisk(const QString& user = QStringLiteral("anna")) {
    clsDatabasePtr db;
    const QString tmp = GetTempFileName();
    DecryptFile(UsDBFilePath(user), tmp, true, GetTruePasw(HashString(kUserPasw)));
    const int r = MDFM->LoadDB(tmp, db, GetTruePasw(HashString(kUserPasw)));
    TrueKill(tmp);
    MDFM->DeleteDBFromCol(tmp);
    if (r < 0)
        return QStringLiteral("<unreadable>");
    const int row = FindDataRow(*db, "1");
    return row > 0 ? db->GetTblFldValNm(db->FindTable("DataTable"), row, "Title") : QStringLiteral("<gone>");
}

void addUser(const QString& name) {
    QString p = kUserPasw;
    AddUser(UsDBFilePath(name), name, p);
}

// A child process: the window with anna open and an unsaved change, until a signal ends it.
int unsavedWindowChild(int& argc, char** argv) {
    QApplication app(argc, argv);
    SetAppPath(qEnvironmentVariable("ARGENT_TEST_PROGDIR"));
    ChooseConfiguration();
    LoadLang(Pt(AppPath()) + "Languages/English.lng");
    CreateProgramObjects();
    ProgConfig[4] = "";
    SetCfgExtra(22, "0");
    frmMain w;
    w.Form_Load();
    if (FullUserLoad("anna", HashString(kUserPasw)) != 0)
        return 2;
    ChangeDataTableField("IndNum", "1", "Title", "Unsaved");
    std::printf("ready\n");
    std::fflush(stdout);
    return app.exec();
}
ARGENT_CHILD("unsaved-window", unsavedWindowChild)

} // namespace

class SavePathsTest : public QObject {
    Q_OBJECT
private slots:
    // Whichever way another user takes the open one's place, the open one is saved first.
    void switchingUsersSavesFirst_data() {
        QTest::addColumn<QString>("way");
        QTest::newRow("select user") << "select";
        QTest::newRow("new user, open after adding") << "add";
        QTest::newRow("restore another user's copy") << "restore";
    }
    void switchingUsersSavesFirst() {
        QFETCH(QString, way);
        TestEnv env;
        makeUser(env);
        addUser("bob");
        QDir().mkpath(BackupFolderPath());
        QFile::copy(UsDBFilePath("bob"), BackupFolderPath() + "bob_1.bdb.BACKUP");
        SetCfgExtra(22, "0");
        Script s;
        frmMain w;
        w.Form_Load();
        openUser();
        ChangeDataTableField("IndNum", "1", "Title", "Unsaved");
        s.pickUser = "bob";
        s.passwords = {kUserPasw};
        s.on = [&](QDialog& d) {
            if (auto* a = qobject_cast<frmAddUser*>(&d)) {
                a->txtNewUsName->setText("carl");
                a->txtPasw->setText(kUserPasw);
                a->txtConfirm->setText(kUserPasw);
                a->cmdAddUser->click();
            } else if (auto* r = qobject_cast<frmRestore*>(&d)) {
                r->lstRestorDBs->setCurrentRow(0);
                r->cmdRestore->click();
            }
        };
        if (way == "select")
            w.mnuFileSelectUser_Click();
        else if (way == "add")
            w.mnuFileAddUser_Click();
        else
            w.mnuFileBackup_Click();
        QCOMPARE(CurUser, way == "add" ? QStringLiteral("carl") : QStringLiteral("bob"));
        QCOMPARE(titleOnDisk(), QStringLiteral("Unsaved"));
    }

    // A question closed by the lock is declined, and a destructive command checks after
    // its question that what it asked about is still open: an answer of Yes that comes
    // after the lock changes nothing.
    void lockDuringAQuestionChangesNothing_data() {
        QTest::addColumn<QString>("command");
        QTest::newRow("delete user") << "deluser";
        QTest::newRow("delete folder") << "delfolder";
        QTest::newRow("close user") << "unload";
        QTest::newRow("exit") << "exit";
    }
    void lockDuringAQuestionChangesNothing() {
        QFETCH(QString, command);
        TestEnv env;
        makeUser(env);
        frmMain w;
        w.Form_Load();
        openUser();
        MsgBoxHandler prev = SetMsgBoxHandler([&](const QString&, int Style, const QString&) {
            w.LockNow();
            return (Style & 7) == vbOKCancel ? int(vbOK) : int(vbYes);
        });
        w.SetDropHighlight(w.NodeByKey("1key"));
        if (command == "deluser")
            w.mnuFileDelCurUser_Click();
        else if (command == "delfolder")
            w.mnuContextTrvDelFolder_Click();
        else if (command == "unload")
            w.mnuFileUnloadUser_Click();
        else
            w.mnuFileExit_Click();
        SetMsgBoxHandler(prev);
        QVERIFY(w.IsLocked());
        QVERIFY(!w.CloseConfirmed);
        QCOMPARE(CurUser, QStringLiteral("anna"));
        QCOMPARE(titleOnDisk(), QStringLiteral("Mail"));
    }

    // A real message box closed by the lock before anyone answers reads as No.
    void unansweredBoxClosedByTheLockIsNo() {
        TestEnv env;
        makeUser(env);
        MsgBoxHandler prev = SetMsgBoxHandler(GuiMsgBox);
        frmMain w;
        w.Form_Load();
        openUser();
        QTimer::singleShot(200, &w, [&] {
            QVERIFY(qobject_cast<QMessageBox*>(QApplication::activeModalWidget()));
            w.LockNow();
        });
        w.mnuFileDelCurUser_Click();
        SetMsgBoxHandler(prev);
        QVERIFY(QFile::exists(UsDBFilePath("anna")));
    }

    // On by default (a settings file without the line); the options dialog switches it
    // on any change of its box; the title marks what is not in the file yet.
    void saveAfterEveryChange() {
        TestEnv env;
        makeUser(env);
        while (ProgConfig.UBound() > 21)
            ProgConfig.Items.removeLast();
        Script s;
        frmMain w;
        w.Form_Load();
        openUser();
        QVERIFY(!w.windowTitle().endsWith(" *"));
        QTreeWidgetItem* mail = w.NodeByKey("1key");
        w.trvDatabase->setCurrentItem(mail);
        w.mnuContextTrvRename_Click();
        mail->setText(0, "Saved at once");
        QCOMPARE(titleOnDisk(), QStringLiteral("Saved at once"));
        QVERIFY(!w.windowTitle().endsWith(" *"));

        frmOptions options(&w);
        QVERIFY(options.chkSaveAfterChange->isChecked());
        options.chkSaveAfterChange->setChecked(false);
        QCOMPARE(ProgConfig[22], QStringLiteral("0"));
        w.mnuContextTrvRename_Click();
        mail->setText(0, "Kept in memory");
        QCOMPARE(titleOnDisk(), QStringLiteral("Saved at once"));
        QVERIFY(w.windowTitle().endsWith(" *"));
        w.mnuFileSaveDB_Click();
        QCOMPARE(titleOnDisk(), QStringLiteral("Kept in memory"));
        QVERIFY(!w.windowTitle().endsWith(" *"));
    }

    // SIGTERM, SIGHUP and SIGINT save what is open, as Exit does, and end the program.
    void terminationSignalsSave_data() {
        QTest::addColumn<int>("signal");
        QTest::newRow("SIGTERM") << int(SIGTERM);
        QTest::newRow("SIGHUP") << int(SIGHUP);
    }
    void terminationSignalsSave() {
        QFETCH(int, signal);
        TestEnv env;
        makeUser(env);
        QProcess child;
        child.setEnvironment(env.childEnv("unsaved-window"));
        child.start(QCoreApplication::applicationFilePath(), {});
        QVERIFY(child.waitForReadyRead(20000));
        QCOMPARE(child.readLine().trimmed(), QByteArray("ready"));
        QCOMPARE(titleOnDisk(), QStringLiteral("Mail"));
        ::kill(child.processId(), signal);
        QVERIFY(child.waitForFinished(20000));
        QCOMPARE(child.exitStatus(), QProcess::NormalExit);
        QCOMPARE(child.exitCode(), 0);
        QCOMPARE(titleOnDisk(), QStringLiteral("Unsaved"));
    }

    // The right password on a file whose contents fail their check: the window says the
    // file is damaged and offers that user's backup copies.
    void damagedFileOffersItsCopies() {
        TestEnv env;
        makeUser(env);
        addUser("bob");
        QDir().mkpath(BackupFolderPath());
        for (const char* copy : {"anna_1.bdb.BACKUP", "bob_1.bdb.BACKUP"})
            QFile::copy(UsDBFilePath("anna"), BackupFolderPath() + copy);
        QByteArray bytes = readAllOf(UsDBFilePath("anna"));
        bytes[bytes.size() - 20] = char(bytes[bytes.size() - 20] ^ 0x40);
        writeFileText(UsDBFilePath("anna"), bytes);
        Script s;
        QStringList offered;
        s.on = [&](QDialog& d) {
            if (auto* r = qobject_cast<frmRestore*>(&d))
                for (int i = 0; i < r->lstRestorDBs->count(); ++i)
                    offered << BackupFileFromItem(r->lstRestorDBs->item(i)->text());
        };
        frmMain w;
        w.Form_Load();
        s.pickUser = "anna";
        s.passwords = {kUserPasw};
        w.mnuFileSelectUser_Click();
        QVERIFY(CurUser.isEmpty());
        QCOMPARE(s.boxes.size(), 1);
        QVERIFY(s.boxes[0].startsWith(Texts(260) + " \"anna\""));
        QCOMPARE(offered, QStringList{"anna_1.bdb.BACKUP"});
    }
};

ARGENT_TEST(SavePathsTest)
#include "tst_savepaths.moc"
