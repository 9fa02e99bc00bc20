// Nothing the window holds is lost on the way out: switching users, closing questions
// that the lock answers, the end of the session, and the save after every change.

#include "app/modMain.h"
#include "maintenance/RestoreBackup.h"
#include "maintenance/frmRestore.h"
#include "mainwindow/frmMain.h"
#include "options/frmOptions.h"
#include "storage/FileIdentity.h"
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
#include <unistd.h>

namespace {

// The rows of a user's file as read with a password (none when it does not open).
QList<QStringList> rowsOnDisk(const QString& pasw, const QString& user = QStringLiteral("anna")) {
    DatabaseRecord rec;
    clsFileIdentity id;
    if (ReadUserFile(UsDBFilePath(user), GetTruePasw(HashString(pasw)), rec, id) != 1)
        return {};
    return rec.Tables.value(0).Records.rows();
}

// The title of row 1 ("Mail") as the file holds it, without touching the open user.
QString titleOnDisk() {
    for (const QStringList& row : rowsOnDisk(kUserPasw))
        if (row.value(0) == "1")
            return row.value(3);
    return QStringLiteral("<gone>");
}

// argentpm on the test's databases folder, its password lines on standard input.
QString argentpm(const TestEnv& env, const QStringList& args, const QByteArray& input) {
    const QString exe = env.progDir() + "/argentpm";
    if (!QFile::exists(exe))
        QFile::copy(QStringLiteral(ARGENT_BIN_DIR "/argentpm"), exe);
    QProcess p;
    p.setChildProcessModifier([] { setsid(); });
    p.start(exe, QStringList{"--databases", ProgConfig[5]} + args + QStringList{"--password-stdin"});
    p.write(input);
    p.closeWriteChannel();
    p.waitForFinished(30000);
    return p.exitCode() == 0 ? QString::fromUtf8(p.readAllStandardOutput()).trimmed() : QString();
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
        QTRY_COMPARE(titleOnDisk(), QStringLiteral("Saved at once"));
        QVERIFY(!w.windowTitle().endsWith(" *"));

        frmOptions options(&w);
        QVERIFY(options.chkSaveAfterChange->isChecked());
        options.chkSaveAfterChange->setChecked(false);
        QCOMPARE(ProgConfig[22], QStringLiteral("0"));
        w.mnuContextTrvRename_Click();
        mail->setText(0, "Kept in memory");
        QTest::qWait(50);
        QCOMPARE(titleOnDisk(), QStringLiteral("Saved at once"));
        QVERIFY(w.windowTitle().endsWith(" *"));
        w.mnuFileSaveDB_Click();
        QCOMPARE(titleOnDisk(), QStringLiteral("Kept in memory"));
        QVERIFY(!w.windowTitle().endsWith(" *"));
    }

    // argentpm adds a record and changes the password while the window has the user open;
    // the window's next change is merged with both, under the password the user gives
    // for the file; and the window shows what argentpm adds next without being asked.
    void outsideWritersAreMergedAndShown() {
        TestEnv env;
        makeUser(env);
        Script s;
        frmMain w;
        w.Form_Load();
        openUser();
        const QString outside = argentpm(env, {"add", "anna", "0", "--title", "Outside"}, "password1\n");
        QCOMPARE(outside, QStringLiteral("6"));
        QVERIFY(!argentpm(env, {"passwd", "anna"}, "password1\nnew password\n").isEmpty());

        s.passwords = {"new password"};
        w.SetDropHighlight(w.NodeByKey("3key"));
        w.mnuContextTrvAddFolder_Click();
        QCOMPARE(s.boxes, QStringList{Texts(265)});
        QCOMPARE(CurUsPasw, HashString("new password"));
        QVERIFY(rowsOnDisk(kUserPasw).isEmpty());
        QMap<QString, QString> titles;
        for (const QStringList& row : rowsOnDisk("new password")) {
            QVERIFY2(!titles.contains(row[0]), qPrintable("identifier twice: " + row[0]));
            titles[row[0]] = row[3];
        }
        QCOMPARE(titles.value("6"), QStringLiteral("Outside"));
        QCOMPARE(titles.value("7"), QStringLiteral("Новая папка"));
        QCOMPARE(titles.size(), 7);
        QVERIFY(w.NodeByKey("6key") && w.NodeByKey("7key"));
        QVERIFY(!w.windowTitle().endsWith(" *"));

        w.trvDatabase->setCurrentItem(w.NodeByKey("3key"));
        const QString next = argentpm(env, {"add", "anna", "3", "--title", "Next"}, "new password\n");
        QCOMPARE(next, QStringLiteral("8"));
        QTRY_VERIFY_WITH_TIMEOUT(w.NodeByKey("8key"), 1000);
        QCOMPARE(w.NodeByKey("8key")->parent(), w.NodeByKey("3key"));
        QCOMPARE(w.trvDatabase->currentItem(), w.NodeByKey("3key"));
        QVERIFY(w.NodeByKey("3key")->isExpanded());

        // Changed once more elsewhere and the prompt cancelled: nothing is written, the
        // change stays open and the title says so, and nobody asks again.
        QVERIFY(!argentpm(env, {"passwd", "anna"}, "new password\nthird password\n").isEmpty());
        s.boxes.clear();
        w.trvDatabase->setCurrentItem(w.NodeByKey("3key"));
        w.mnuContextTrvRename_Click();
        w.NodeByKey("3key")->setText(0, "Not written");
        QTest::qWait(600);
        QCOMPARE(s.boxes, QStringList({Texts(265), Texts(266)}));
        QVERIFY(w.windowTitle().endsWith(" *"));
        QCOMPARE(rowsOnDisk("third password").size(), 8);
        for (const QStringList& row : rowsOnDisk("third password"))
            QVERIFY(row[3] != "Not written");
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
