#include "app/ClipDelay.h"
#include "app/InstanceChannel.h"
#include "app/guiSecretClipboard.h"
#include "mainwindow/CheckActivity.h"
#include "mainwindow/frmMain.h"
#include "mainwindow/guiActivitySource.h"
#include "tests/common/TestMain.h"
#include "tests/mainwindow/MainTestKit.h"
#include "users/frmAddUser.h"

#include <QApplication>
#include <QClipboard>
#include <QDir>
#include <QLabel>
#include <QMenu>
#include <QMimeData>

#include <thread>

namespace {
QString clipText() {
    return QGuiApplication::clipboard()->text();
}
bool clipMarkedSecret() {
    const QMimeData* m = QGuiApplication::clipboard()->mimeData();
    return m && m->data("x-kde-passwordManagerHint") == "secret";
}

// A source whose key table never changes; only its event count tells of a tap.
struct TapInput : IActivitySource {
    quint64 events = 0;
    double time = 0;
    QPoint CursorPos() override { return {7, 7}; }
    KeyboardBytes KeyboardState() override { return {}; }
    quint64 InputEvents() override { return events; }
    double LastInputTime() override { return time; }
};
double g_now = 5000.0;
double fakeClock() {
    return g_now;
}

void showActive(frmMain& w) {
    w.show();
    QApplication::setActiveWindow(&w);
    w.trvDatabase->setFocus();
    QVERIFY(QTest::qWaitForWindowActive(&w));
}
} // namespace

// Copying from the tree, the clipboard's countdown and clearing, the status bar counts,
// the user name rule, the tap that counts as activity, and the second start.
class ClipCopyTest : public QObject {
    Q_OBJECT
private slots:
    void treeCopiesTheRightField_data() {
        QTest::addColumn<QString>("id");
        QTest::addColumn<int>("key"); // 0: the tree's context menu item "copy password"
        QTest::addColumn<QString>("expected");
        QTest::addColumn<bool>("secret");
        QTest::newRow("Ctrl+C record") << "4" << int(Qt::Key_C) << "MailKey" << true;
        QTest::newRow("Ctrl+B record") << "4" << int(Qt::Key_B) << "b" << false;
        // A folder has no password: the tree copies its title as text.
        QTest::newRow("Ctrl+C folder") << "1" << int(Qt::Key_C) << "Mail" << false;
        QTest::newRow("menu on Box") << "2" << 0 << "x" << true;
    }
    void treeCopiesTheRightField() {
        QFETCH(QString, id);
        QFETCH(int, key);
        QFETCH(QString, expected);
        QFETCH(bool, secret);
        TestEnv env;
        makeUser(env);
        Script s;
        frmMain w;
        w.Form_Load();
        openUser();
        showActive(w);
        QGuiApplication::clipboard()->setText("keep");
        QModelIndex node = w.NodeByKey(id + "key");
        w.trvDatabase->setCurrentIndex(node);
        if (key) {
            QTest::keyClick(w.trvDatabase, Qt::Key(key), Qt::ControlModifier);
        } else {
            QVERIFY(w.mnuContextTrv->actions().contains(w.mnuContextTrvCopyPasw));
            QCOMPARE(w.mnuContextTrvCopyPasw->text(), Texts(280));
            w.SetDropHighlight(node);
            w.mnuContextTrvCopyPasw->trigger();
        }
        QCOMPARE(clipText(), expected);
        QCOMPARE(clipMarkedSecret(), secret);
        // A secret starts the countdown of the status bar (10 s unless set otherwise).
        QCOMPARE(w.sbClipPanel->isVisibleTo(&w), secret);
        if (secret)
            QCOMPARE(w.sbClipPanel->text(), Texts(282) + " 10 " + Texts(283));
        SecretClipboard::Instance().ClearIfOurs();
    }

    // Cleared after the delay, at a lock, when the user is closed and at exit - but only
    // while it is still ours.
    void secretLeavesTheClipboard() {
        TestEnv env;
        makeUser(env);
        Script s;
        SetClipClearDelay("1");
        frmMain w;
        w.Form_Load();
        openUser();
        auto copyBank = [&w] {
            w.trvDatabase->setCurrentIndex(w.NodeByKey("4key"));
            w.mnuContextValCopyPasw->trigger();
            QCOMPARE(clipText(), QStringLiteral("MailKey"));
        };
        copyBank();
        QVERIFY(QTest::qWaitFor([] { return clipText().isEmpty(); }, 3000));
        QVERIFY(!w.sbClipPanel->isVisibleTo(&w));
        // A text the user copied meanwhile stays.
        copyBank();
        QGuiApplication::clipboard()->setText("mine");
        QTest::qWait(1500);
        QCOMPARE(clipText(), QStringLiteral("mine"));

        SetClipClearDelay("0"); // never by time: only the lock, the closing or the exit
        copyBank();
        QTest::qWait(1500);
        QCOMPARE(clipText(), QStringLiteral("MailKey"));
        w.LockNow();
        QVERIFY(clipText().isEmpty());

        frmMain w2;
        w2.Form_Load();
        openUser();
        auto copyBank2 = [&w2] {
            w2.trvDatabase->setCurrentIndex(w2.NodeByKey("4key"));
            w2.mnuContextValCopyPasw->trigger();
        };
        copyBank2();
        QGuiApplication::clipboard()->setText("mine");
        s.answers = {vbOK};
        w2.mnuFileUnloadUser_Click();
        QVERIFY(CurUser.isEmpty());
        QCOMPARE(clipText(), QStringLiteral("mine"));
        openUser();
        copyBank2();
        s.answers = {vbOK};
        w2.mnuFileUnloadUser_Click();
        QVERIFY(clipText().isEmpty());
        openUser();
        copyBank2();
        w2.CloseConfirmed = true;
        QVERIFY(w2.close());
        QVERIFY(clipText().isEmpty());
    }

    void countsFollowDeleteAndMove() {
        TestEnv env;
        makeUser(env);
        Script s;
        frmMain w;
        w.Form_Load();
        openUser();
        QModelIndex root = w.NodeByKey("0key");
        auto counts = [&](int f, int r) {
            return Texts(111) + " " + QString::number(f) + ", " + Texts(112) + " " + QString::number(r);
        };
        w.trvDatabase->setCurrentIndex(root);
        QCOMPARE(w.sbPanel->text(), counts(2, 1));
        w.MoveNode(w.NodeByKey("5key"), root); // Forum out of Work
        w.trvDatabase->setCurrentIndex(root);
        QCOMPARE(w.sbPanel->text(), counts(2, 2));
        w.SetDropHighlight(w.NodeByKey("1key")); // Mail with Box
        w.mnuContextTrvDelFolder_Click();
        w.trvDatabase->setCurrentIndex(w.NodeByKey("3key"));
        w.trvDatabase->setCurrentIndex(root);
        QCOMPARE(w.sbPanel->text(), counts(1, 2));
    }

    // A name that cannot be one file name in the databases folder writes nothing.
    void addUserRefusesPathNames() {
        TestEnv env;
        makeUser(env);
        const QStringList before = QDir(ProgConfig[5]).entryList(QDir::AllEntries | QDir::Hidden);
        // A line break would also split the settings line that keeps the last user's name.
        const QList<std::pair<QString, int>> names = {
            {"a/b", 304},  {"..", 304},    {"../x", 304},           {"  ", 304},
            {"x\ny", 305}, {"x\x1b", 305}, {QString(234, 'n'), 307}};
        for (const auto& [name, text] : names) {
            Script s;
            frmAddUser dlg;
            dlg.txtNewUsName->setText(name);
            dlg.txtPasw->setText("different1");
            dlg.txtConfirm->setText("different2"); // the name is refused before this
            dlg.cmdAddUser->click();
            QCOMPARE(s.boxes, QStringList{Texts(text).replace("%1", "233")});
            QVERIFY(dlg.result() != QDialog::Accepted);
        }
        QCOMPARE(QDir(ProgConfig[5]).entryList(QDir::AllEntries | QDir::Hidden), before);
        QVERIFY(!QFileInfo::exists(env.dataHome() + "/ArgentPM/x.bdb"));
    }

    // A key pressed and released between two ticks leaves the key table as it was, and
    // still counts.
    void tapBetweenTicksCounts() {
        TestEnv env;
        makeUser(env);
        Script s;
        SetActivityClock(fakeClock);
        LastCursorPos = QPoint();
        LastKbdState = {};
        LastInputEvents = 0;
        ProgConfig[11] = "1";
        frmMain w;
        w.Form_Load();
        openUser();
        TapInput in;
        w.SetActivitySource(&in);
        w.tmrTimer_Timer(); // the cursor "moved": the idle time starts now
        g_now += 50;
        in.events++;
        in.time = g_now - 10; // the tap came 40 s in
        w.tmrTimer_Timer();
        g_now += 45; // 95 s after the start, 55 s after the tap
        w.tmrTimer_Timer();
        QVERIFY(!w.IsLocked());
        g_now += 10;
        w.tmrTimer_Timer();
        QVERIFY(w.IsLocked());
        SetActivityClock(nullptr);

        // The desktop's source sees the tap of a real key event.
        GuiActivitySource gui;
        CheckActivity(gui);
        CheckActivity(gui);
        QLineEdit field;
        QTest::keyClick(&field, Qt::Key_A);
        QCOMPARE(CheckActivity(gui), int(actKeyboard));
        QCOMPARE(CheckActivity(gui), int(actNone));
        LastInputEvents = 0;
    }

    void secondStartShowsTheWindow() {
        TestEnv env;
        makeUser(env);
        Script s;
        frmMain w;
        w.Form_Load();
        w.hide();
        QVERIFY(ListenForSecondStart([&w] { w.mnuTrayShow_Click(); }));
        bool answered = false;
        std::thread second([&answered] { answered = AskFirstInstanceToShow(5000); });
        const bool shown = QTest::qWaitFor([&w] { return w.isVisible(); }, 5000);
        second.join();
        StopListening();
        QVERIFY(shown);
        QVERIFY(answered);
    }
};
ARGENT_TEST(ClipCopyTest)

#include "tst_clipcopy.moc"
