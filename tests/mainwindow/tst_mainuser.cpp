#include "app/MsgBox.h"
#include "app/ProgConfig.h"
#include "app/guiApplication.h"
#include "app/modLang.h"
#include "app/modMain.h"
#include "mainwindow/CheckActivity.h"
#include "mainwindow/frmMain.h"
#include "records/RecordTree.h"
#include "storage/Md5.h"
#include "storage/clsDatabase.h"
#include "tests/common/TestEnv.h"
#include "tests/common/TestMain.h"
#include "users/UserAccounts.h"
#include "users/frmPassword.h"
#include "users/frmSelectUser.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QTest>
#include <QTextEdit>

namespace {

const QString kPasw = QStringLiteral("password1");

// Input that does not change unless the test says so.
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

// Dialogs and message boxes answered by the test.
struct Script {
    QStringList boxes;
    QList<int> answers;
    QStringList passwords; // typed into each password prompt in turn; "" cancels
    QString pickUser;
    MsgBoxHandler prevBox;
    ModalHandler prevModal;
    Script() {
        prevBox = SetMsgBoxHandler([this](const QString& p, int, const QString&) {
            boxes << p;
            return answers.isEmpty() ? int(vbYes) : answers.takeFirst();
        });
        prevModal = SetModalHandler([this](QDialog& d) {
            if (auto* pw = qobject_cast<frmPassword*>(&d)) {
                while (!passwords.isEmpty()) {
                    const QString p = passwords.takeFirst();
                    if (p.isEmpty()) {
                        pw->cmdCancel->click();
                        break;
                    }
                    pw->txtPassword->setText(p);
                    pw->cmdOk->click();
                    if (pw->result() == QDialog::Accepted)
                        break;
                }
            } else if (auto* su = qobject_cast<frmSelectUser*>(&d)) {
                const auto found = su->lstUsers->findItems(pickUser, Qt::MatchExactly);
                if (!found.isEmpty())
                    su->lstUsers->setCurrentItem(found.first());
                su->cmdChooseUser->click();
            }
            return d.result();
        });
    }
    ~Script() {
        SetMsgBoxHandler(prevBox);
        SetModalHandler(prevModal);
    }
};

// A user with rows F1, R1 (in F1), F2, R2 (red, bold) under the root, and R3 in F2.
void makeUser(const TestEnv& env) {
    ChooseConfiguration();
    LoadLang(env.progDir() + "/Languages/English.lng");
    ProgConfig[4] = "";
    CreateProgramObjects();
    QString p = kPasw;
    AddUser(UsDBFilePath("anna"), "anna", p);
    QCOMPARE(FullUserLoad("anna", HashString(kPasw)), 0);
    const int tbl = CurUsDB->FindTable("DataTable");
    Q_UNUSED(tbl);
    auto folder = [&](const QString& title, int parent) {
        const QString id = GetNewIndNum(*CurUsDB);
        AddFolderToDB(title, parent, id);
        return id.toInt();
    };
    const int f1 = folder("F1", 0);
    AddRecordToDB(*CurUsDB, QString::number(f1), "R1", "login1", "secret1", "first");
    const int f2 = folder("F2", 0);
    const QString r2 = AddRecordToDB(*CurUsDB, "0", "R2", "login2", "secret2", "second");
    ChangeDataTableField("IndNum", r2, "Flags", "255|1");
    AddRecordToDB(*CurUsDB, QString::number(f2), "R3", "login3", "secret3", "third");
    SaveUsDB(CurUsDB, GetTruePasw(CurUsPasw));
    UnloadUser();
}

QStringList childTexts(QTreeWidgetItem* node) {
    QStringList t;
    for (int i = 0; i < node->childCount(); ++i)
        t << node->child(i)->text(0);
    return t;
}

} // namespace

class MainUserTest : public QObject {
    Q_OBJECT
private slots:
    void openShowAndClick() {
        TestEnv env;
        makeUser(env);
        Script s;
        frmMain w;
        w.Form_Load();
        // Through the dialogs: a wrong password first keeps the prompt open.
        s.pickUser = "anna";
        s.passwords = {"wrong pasw", kPasw};
        w.btnSelectUser->trigger();
        QCOMPARE(s.boxes, QStringList{Texts(9)});
        QCOMPARE(CurUser, QStringLiteral("anna"));
        QTreeWidgetItem* root = w.NodeByKey("0key");
        QVERIFY(root);
        QCOMPARE(root->text(0), QStringLiteral("anna"));
        QVERIFY(root->isExpanded());
        QCOMPARE(childTexts(root), QStringList({"F2", "F1", "R2"}));
        QCOMPARE(childTexts(root->child(1)), QStringList{"R1"});

        QTreeWidgetItem* r2 = root->child(2);
        QVERIFY(r2->font(0).bold());
        QCOMPARE(r2->foreground(0).color(), QColor(255, 0, 0));
        QCOMPARE(frmMain::NodeTag(r2), QStringLiteral("2"));
        w.trvDatabase->setCurrentItem(r2);
        QCOMPARE(
            w.txtValue->toPlainText(),
            QStringLiteral("Title:\nR2\n\nLogin:\nlogin2\n\nPassword:\nsecret2\n\nDescription:\nsecond\n\n"));
        QVERIFY(w.btnDelRec->isEnabled());
        QVERIFY(!w.btnAddFolder->isEnabled());
        QVERIFY(w.sbPanel->text().startsWith(Texts(111) + " 0, "));

        // The copy commands: nothing without a record shown, the field with one.
        w.mnuContextValCopyPasw->trigger();
        QCOMPARE(QGuiApplication::clipboard()->text(), QStringLiteral("secret2"));
        w.trvDatabase->setCurrentItem(root);
        QVERIFY(w.txtValue->toPlainText().isEmpty());
        QVERIFY(!w.btnDelFolder->isEnabled() && !w.btnDelRec->isEnabled());
        QCOMPARE(w.sbPanel->text(), Texts(111) + " 2, " + Texts(112) + " 1");
        QGuiApplication::clipboard()->setText("keep");
        w.mnuContextValCopyLog->trigger();
        QCOMPARE(QGuiApplication::clipboard()->text(), QStringLiteral("keep"));
    }

    void treeCommandsChangeTheDatabase() {
        TestEnv env;
        makeUser(env);
        Script s;
        frmMain w;
        w.Form_Load();
        QCOMPARE(FullUserLoad("anna", HashString(kPasw)), 0);
        QTreeWidgetItem* root = w.NodeByKey("0key");
        const int tbl = CurUsDB->FindTable("DataTable");
        const int rows = CurUsDB->GetTblRecNum(tbl);

        // A new folder goes to the top, with the next identifier, and is renamed in place.
        w.SetDropHighlight(root);
        w.mnuContextTrvAddFolder->trigger();
        QTreeWidgetItem* added = root->child(0);
        QCOMPARE(frmMain::NodeKey(added), QStringLiteral("6key"));
        QCOMPARE(added->text(0), QStringLiteral("Новая папка"));
        added->setText(0, "Mail");
        QCOMPARE(CurUsDB->GetTblRecNum(tbl), rows + 1);
        QCOMPARE(CurUsDB->GetTblFldValNm(tbl, rows + 1, "Title"), QStringLiteral("Mail"));
        QCOMPARE(CurUsDB->GetTblFldValNm(tbl, rows + 1, "Image"), QStringLiteral("2key"));

        // Deleting asks; No keeps everything, Yes removes the folder with its record.
        QTreeWidgetItem* f1 = w.NodeByKey("1key");
        w.SetDropHighlight(f1);
        s.answers = {vbNo};
        w.mnuContextTrvDelFolder->trigger();
        QCOMPARE(CurUsDB->GetTblRecNum(tbl), rows + 1);
        s.answers = {vbYes};
        w.SetDropHighlight(f1);
        w.mnuContextTrvDelFolder->trigger();
        QCOMPARE(CurUsDB->GetTblRecNum(tbl), rows - 1);
        QVERIFY(!w.NodeByKey("1key"));
        QVERIFY(!w.NodeByKey("2key"));
        QCOMPARE(s.boxes, QStringList({Texts(17), Texts(17)}));
        // A stale node does nothing.
        w.SetDropHighlight(nullptr);
        w.mnuContextTrvDelRec->trigger();
        QCOMPARE(CurUsDB->GetTblRecNum(tbl), rows - 1);

        // Drag and drop: R2 into F2; not F2 into its own record's folder or itself.
        QTreeWidgetItem* f2 = w.NodeByKey("3key");
        QTreeWidgetItem* r2 = w.NodeByKey("4key");
        w.MoveNode(f2, f2);
        QCOMPARE(s.boxes.last(), Texts(168));
        w.MoveNode(r2, f2);
        QCOMPARE(r2->parent(), f2);
        QCOMPARE(childTexts(f2), QStringList({"R2", "R3"}));
        QVERIFY(r2->font(0).bold());
        // Saved at once: the file read afresh has the new parent.
        UnloadUser();
        QCOMPARE(FullUserLoad("anna", HashString(kPasw)), 0);
        const int r2row =
            CurUsDB->GetRecNumFromVal(tbl, CurUsDB->FindField(tbl, "IndNum"), QStringLiteral("4"), 1);
        QCOMPARE(CurUsDB->GetTblFldValNm(tbl, r2row, "Parent"), QStringLiteral("3"));
        QCOMPARE(childTexts(w.NodeByKey("3key")), QStringList({"R2", "R3"}));
    }

    void commandsWithoutUserDoNothing() {
        TestEnv env;
        makeUser(env);
        Script s;
        frmMain w;
        w.Form_Load();
        w.tmrTimer_Timer();
        QVERIFY(!w.mnuFileSaveDB->isEnabled());
        QVERIFY(!w.btnDelUser->isEnabled());
        // Even called directly (a key, the tray), the commands find no user and do nothing.
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

    void exitSavesTheDatabase() {
        TestEnv env;
        makeUser(env);
        Script s;
        frmMain w;
        w.Form_Load();
        QCOMPARE(FullUserLoad("anna", HashString(kPasw)), 0);
        ChangeDataTableField("IndNum", "1", "Title", "Renamed");
        s.answers = {vbYes};
        w.mnuFileExit->trigger();
        UnloadUser();
        QCOMPARE(FullUserLoad("anna", HashString(kPasw)), 0);
        const int tbl = CurUsDB->FindTable("DataTable");
        QCOMPARE(CurUsDB->GetTblFldValNm(tbl, 1, "Title"), QStringLiteral("Renamed"));
    }

    // A user's file that cannot be written (here: its folder is gone, a plain file in its
    // place) loses nothing: exit stays open, the lock keeps the changes for the unlock.
    void saveFailuresKeepTheChanges() {
        TestEnv env;
        makeUser(env);
        Script s;
        StillInput input;
        SetActivityClock(fakeClock);
        LastCursorPos = QPoint(); // as at start: the first test sees the cursor move
        LastKbdState = {};
        frmMain w;
        w.SetActivitySource(&input);
        w.Form_Load();
        QCOMPARE(FullUserLoad("anna", HashString(kPasw)), 0);
        ChangeDataTableField("IndNum", "1", "Title", "Unsaved");
        const QString folder = ProgConfig[5];
        ProgConfig[5] = env.root() + "/plain";
        writeFileText(ProgConfig[5], "not a folder");

        s.answers = {vbYes};
        QVERIFY(!w.close());
        QCOMPARE(s.boxes, QStringList({Texts(1), Texts(247)}));
        w.mnuFileSaveDB_Click();
        QCOMPARE(s.boxes.last(), Texts(247));

        ProgConfig[11] = "1";
        w.tmrTimer_Timer();
        g_now += 61;
        w.tmrTimer_Timer();
        QVERIFY(w.IsLocked());
        ProgConfig[5] = folder; // the folder is back before the user is
        s.passwords = {kPasw};
        w.showNormal();
        QVERIFY(QTest::qWaitFor([&] { return !w.IsLocked(); }, 2000));
        QCOMPARE(w.NodeByKey("1key")->text(0), QStringLiteral("Unsaved"));
        QCOMPARE(s.boxes.last(), Texts(247));
        // Now it saves, and exit goes through.
        s.answers = {vbYes};
        QVERIFY(w.close());
        UnloadUser();
        QCOMPARE(FullUserLoad("anna", HashString(kPasw)), 0);
        QCOMPARE(CurUsDB->GetTblFldValNm(CurUsDB->FindTable("DataTable"), 1, "Title"),
                 QStringLiteral("Unsaved"));
        SetActivityClock(nullptr);
    }

    void inactivityLockAndUnlock() {
        TestEnv env;
        makeUser(env);
        Script s;
        StillInput input;
        SetActivityClock(fakeClock);
        LastCursorPos = QPoint(); // as at start: the first test sees the cursor move
        LastKbdState = {};
        frmMain w;
        w.SetActivitySource(&input);
        w.Form_Load();
        QCOMPARE(FullUserLoad("anna", HashString(kPasw)), 0);
        ProgConfig[11] = "1";
        w.tmrTimer_Timer(); // first test: the cursor "moved" from (0, 0)
        g_now += 60;
        w.tmrTimer_Timer(); // exactly the limit: still open
        QVERIFY(!w.IsLocked());
        // A key toggled (Caps Lock) is activity too.
        input.keys[20] = 1;
        g_now += 59;
        w.tmrTimer_Timer();
        g_now += 60.5;
        w.tmrTimer_Timer();
        QVERIFY(w.IsLocked());
        QVERIFY(!w.NodeByKey("0key"));
        QCOMPARE(CurUsDB->TabNum(), 0);
        QCOMPARE(CurUser, QStringLiteral("anna"));
        QVERIFY(w.isMinimized() || !w.isVisible());
        g_now += 1000;
        w.tmrTimer_Timer(); // locked already: nothing more happens

        // Coming back asks for the password and reopens the same user.
        s.passwords = {kPasw};
        w.showNormal();
        QVERIFY(QTest::qWaitFor([&] { return !w.IsLocked(); }, 2000));
        QVERIFY(w.NodeByKey("0key"));
        QCOMPARE(childTexts(w.NodeByKey("0key")), QStringList({"F2", "F1", "R2"}));

        // Locked again, and the prompt cancelled: no user at all.
        g_now += 1000;
        w.tmrTimer_Timer();
        QVERIFY(w.IsLocked());
        s.passwords = {""};
        w.showNormal();
        QVERIFY(QTest::qWaitFor([&] { return !w.IsLocked(); }, 2000));
        QVERIFY(CurUser.isEmpty());
        QCOMPARE(CurUsDB->TabNum(), 0);
        // The lock off: CheckActivity is not even asked.
        ProgConfig[11] = "n1";
        QCOMPARE(FullUserLoad("anna", HashString(kPasw)), 0);
        g_now += 5000;
        w.tmrTimer_Timer();
        QVERIFY(!w.IsLocked());
        SetActivityClock(nullptr);
    }
};

ARGENT_TEST(MainUserTest)
#include "tst_mainuser.moc"
