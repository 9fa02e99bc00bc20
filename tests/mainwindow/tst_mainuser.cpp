#include "mainwindow/CheckActivity.h"
#include "mainwindow/frmMain.h"
#include "mainwindow/guiSessionWatch.h"
#include "mainwindow/guiTreeModel.h"
#include "tests/common/TestMain.h"
#include "tests/mainwindow/MainTestKit.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QLabel>
#include <QLineEdit>
#include <QTextEdit>

namespace {
// Input that does not change unless the test says so, on a clock the test moves.
struct StillInput : IActivitySource {
    QPoint pos{5, 5};
    KeyboardBytes keys{};
    QPoint CursorPos() override { return pos; }
    KeyboardBytes KeyboardState() override { return keys; }
};
double g_now = 1000.0;
double fakeClock() {
    return g_now;
}

// Lets the lock engage: the first tick sees the cursor "move", then idle time passes.
void idleUntilLocked(frmMain& w) {
    w.tmrTimer_Timer();
    g_now += 61;
    w.tmrTimer_Timer();
}
} // namespace

class MainUserTest : public QObject {
    Q_OBJECT
private slots:
    void init() {
        SetActivityClock(fakeClock);
        LastCursorPos = QPoint(); // as at start
        LastKbdState = {};
        LastInputEvents = 0;
    }
    void cleanup() { SetActivityClock(nullptr); }

    void openShowAndClick() {
        TestEnv env;
        makeUser(env);
        Script s;
        frmMain w;
        w.Form_Load();
        // Through the dialogs: a wrong password keeps the prompt open.
        s.pickUser = "anna";
        s.passwords = {"wrong pasw", kUserPasw};
        w.btnSelectUser->trigger();
        QCOMPARE(s.boxes, QStringList{Texts(9)});
        QCOMPARE(CurUser, QStringLiteral("anna"));
        QModelIndex root = w.NodeByKey("0key");
        QCOMPARE(root.data().toString(), QStringLiteral("anna"));
        QVERIFY(w.trvDatabase->isExpanded(root));
        QCOMPARE(childTexts(root), QStringList({"Work", "Mail", "Bank"}));
        QCOMPARE(childTexts(w.NodeByKey("1key")), QStringList{"Box"});

        QModelIndex bank = w.NodeByKey("4key");
        QVERIFY(bank.data(Qt::FontRole).value<QFont>().bold());
        QCOMPARE(bank.data(Qt::ForegroundRole).value<QColor>(), QColor(255, 0, 0));
        w.trvDatabase->setCurrentIndex(bank);
        QCOMPARE(
            w.txtValue->toPlainText(),
            QStringLiteral("Title:\nBank\n\nLogin:\nb\n\nPassword:\nMailKey\n\nDescription:\nmoney\n\n"));
        QVERIFY(w.btnDelRec->isEnabled() && !w.btnAddFolder->isEnabled());
        w.mnuContextValCopyPasw->trigger();
        QCOMPARE(QGuiApplication::clipboard()->text(), QStringLiteral("MailKey"));

        // The root: no value, both delete buttons off, its direct children counted.
        w.trvDatabase->setCurrentIndex(root);
        QVERIFY(w.txtValue->toPlainText().isEmpty());
        QVERIFY(!w.btnDelFolder->isEnabled() && !w.btnDelRec->isEnabled());
        QCOMPARE(w.sbPanel->text(), Texts(111) + " 2, " + Texts(112) + " 1");
        // Copy commands with no record shown leave the clipboard alone.
        QGuiApplication::clipboard()->setText("keep");
        w.mnuContextValCopy("Login");
        QCOMPARE(QGuiApplication::clipboard()->text(), QStringLiteral("keep"));
    }

    void clickRightAfterAddFolderShowsTheRecord() {
        TestEnv env;
        makeUser(env);
        Script s;
        frmMain w;
        w.Form_Load();
        openUser();
        w.show();
        QVERIFY(QTest::qWaitForWindowExposed(&w));
        w.SetDropHighlight(w.NodeByKey("0key"));
        w.mnuContextTrvAddFolder->trigger();
        QVERIFY(w.trvDatabase->viewport()->findChild<QLineEdit*>()); // the new name is open for editing
        for (const auto& [key, title] : {std::pair{"4key", "Bank"}, {"2key", "Box"}}) {
            QModelIndex node = w.NodeByKey(key);
            w.trvDatabase->scrollTo(node);
            QTest::mouseClick(w.trvDatabase->viewport(), Qt::LeftButton, {},
                              w.trvDatabase->visualRect(node).center());
            QVERIFY2(w.txtValue->toPlainText().startsWith(QStringLiteral("Title:\n") + title + "\n"),
                     qPrintable(w.txtValue->toPlainText()));
        }
        QCOMPARE(rowValue("6", "Title"), QStringLiteral("Новая папка"));
    }

    void treeCommandsChangeTheDatabase() {
        TestEnv env;
        makeUser(env);
        Script s;
        frmMain w;
        w.Form_Load();
        openUser();
        QModelIndex root = w.NodeByKey("0key");
        const int tbl = CurUsDB->FindTable("DataTable");

        // A new folder goes to the top with the next identifier and is renamed in place.
        w.SetDropHighlight(root);
        w.mnuContextTrvAddFolder->trigger();
        QModelIndex added = childOf(root, 0);
        QCOMPARE(frmMain::NodeKey(added), QStringLiteral("6key"));
        QCOMPARE(added.data().toString(), QStringLiteral("Новая папка"));
        w.TreeModel()->setData(added, "Shops");
        QCOMPARE(rowValue("6", "Title"), QStringLiteral("Shops"));
        QCOMPARE(rowValue("6", "Image"), QStringLiteral("2key"));

        // Deleting asks; No keeps everything, Yes removes the folder with its record.
        s.answers = {vbNo, vbYes};
        for (int i = 0; i < 2; ++i) {
            w.SetDropHighlight(w.NodeByKey("1key"));
            w.mnuContextTrvDelFolder->trigger();
        }
        QCOMPARE(s.boxes, QStringList({Texts(17), Texts(17)}));
        QCOMPARE(CurUsDB->GetTblRecNum(tbl), 4);
        QVERIFY(!w.NodeByKey("1key").isValid() && !w.NodeByKey("2key").isValid());
        // A node that is gone does nothing.
        w.SetDropHighlight({});
        w.mnuContextTrvDelRec_Click();
        QCOMPARE(CurUsDB->GetTblRecNum(tbl), 4);

        // Drag and drop: not a folder into itself; Bank into Work, behind what was there.
        QModelIndex work = w.NodeByKey("3key");
        QModelIndex bank = w.NodeByKey("4key");
        w.MoveNode(work, work);
        QCOMPARE(s.boxes.last(), Texts(168));
        w.MoveNode(bank, work);
        QCOMPARE(childTexts(w.NodeByKey("3key")), QStringList({"Forum", "Bank"}));
        QVERIFY(w.NodeByKey("4key").data(Qt::FontRole).value<QFont>().bold());
        // Saved at once: the user opened afresh shows the same.
        UnloadUser();
        openUser();
        QCOMPARE(rowValue("4", "Parent"), QStringLiteral("3"));
        QCOMPARE(childTexts(w.NodeByKey("3key")), QStringList({"Forum", "Bank"}));
    }

    void commandsWithoutUserDoNothing() {
        TestEnv env;
        makeUser(env);
        Script s;
        frmMain w;
        w.Form_Load();
        w.tmrTimer_Timer();
        QVERIFY(!w.mnuFileSaveDB->isEnabled() && !w.btnDelUser->isEnabled());
        // Even called directly (a key, the tray), the commands find no user.
        w.mnuFileSaveDB_Click();
        w.mnuFileUnloadUser_Click();
        w.mnuFileChangeUsPasw_Click();
        w.mnuContextTrvAddFolder_Click();
        w.mnuContextTrvDelFolder_Click();
        w.mnuContextTrvRename_Click();
        w.mnuContextTrvAddRec_Click();
        w.mnuContextTrvEdit_Click();
        w.mnuToolsFind_Click();
        w.mnuContextValCopy("Password");
        QVERIFY(s.boxes.isEmpty());
        w.mnuFileDelCurUser_Click();
        QCOMPARE(s.boxes, QStringList{Texts(6)});
        QVERIFY(QFile::exists(UsDBFilePath("anna")));
    }

    // A user's file that cannot be written (its folder replaced by a plain file) loses
    // nothing: exit stays open, and the lock keeps the changes for the unlock.
    void saveFailuresKeepTheChanges() {
        TestEnv env;
        makeUser(env);
        Script s;
        StillInput input;
        frmMain w;
        w.SetActivitySource(&input);
        w.Form_Load();
        openUser();
        ChangeDataTableField("IndNum", "1", "Title", "Unsaved");
        const QString folder = ProgConfig[5];
        ProgConfig[5] = env.root() + "/plain";
        writeFileText(ProgConfig[5], "not a folder");
        QVERIFY(!w.close());
        QCOMPARE(s.boxes, QStringList({Texts(1), Texts(247)}));

        ProgConfig[11] = "1";
        idleUntilLocked(w);
        QVERIFY(w.IsLocked());
        ProgConfig[5] = folder; // the folder is back before the user is
        s.passwords = {kUserPasw};
        w.showNormal();
        QVERIFY(QTest::qWaitFor([&] { return !w.IsLocked(); }, 2000));
        QCOMPARE(w.NodeByKey("1key").data().toString(), QStringLiteral("Unsaved"));
        // The folder is back: the unlock saved what the lock could not.
        QCOMPARE(s.boxes.size(), 2);
        QVERIFY(!w.windowTitle().endsWith(" *"));
        QVERIFY(w.close());
        UnloadUser();
        openUser();
        QCOMPARE(rowValue("1", "Title"), QStringLiteral("Unsaved"));
    }

    void inactivityLockAndUnlock() {
        TestEnv env;
        makeUser(env);
        Script s;
        StillInput input;
        frmMain w;
        w.SetActivitySource(&input);
        w.Form_Load();
        openUser();
        ProgConfig[11] = "1";
        w.tmrTimer_Timer(); // the cursor "moved" from (0, 0)
        g_now += 60;
        w.tmrTimer_Timer(); // exactly the limit: still open
        QVERIFY(!w.IsLocked());
        input.keys[20] = 1; // Caps Lock toggled is activity too
        g_now += 59;
        w.tmrTimer_Timer();
        g_now += 60.5;
        w.tmrTimer_Timer();
        QVERIFY(w.IsLocked());
        QVERIFY(!w.NodeByKey("0key").isValid());
        QCOMPARE(CurUsDB->TabNum(), 0);
        QCOMPARE(CurUser, QStringLiteral("anna"));
        QVERIFY(w.isMinimized() || !w.isVisible());

        // Coming back asks for the password and reopens the same user.
        s.passwords = {kUserPasw};
        w.showNormal();
        QVERIFY(QTest::qWaitFor([&] { return !w.IsLocked(); }, 2000));
        QCOMPARE(childTexts(w.NodeByKey("0key")), QStringList({"Work", "Mail", "Bank"}));

        // Locked again and the prompt cancelled: no user at all.
        g_now += 1000;
        w.tmrTimer_Timer();
        s.passwords = {""};
        w.showNormal();
        QVERIFY(QTest::qWaitFor([&] { return !w.IsLocked(); }, 2000));
        QVERIFY(CurUser.isEmpty());
        // With the lock off the idle time does not matter.
        ProgConfig[11] = "n1";
        openUser();
        g_now += 5000;
        w.tmrTimer_Timer();
        QVERIFY(!w.IsLocked());
        // But the desktop locking its screen or going to sleep locks at once.
        auto* watch = w.findChild<SessionWatch*>();
        QVERIFY(watch);
        QMetaObject::invokeMethod(watch, "screenSaverActiveChanged", Q_ARG(bool, false));
        QVERIFY(!w.IsLocked());
        QMetaObject::invokeMethod(watch, "prepareForSleep", Q_ARG(bool, true));
        QVERIFY(w.IsLocked());
    }
};

ARGENT_TEST(MainUserTest)
#include "tst_mainuser.moc"
