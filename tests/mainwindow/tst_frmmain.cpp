#include "app/MsgBox.h"
#include "app/ProgConfig.h"
#include "app/modLang.h"
#include "app/modMain.h"
#include "diagnostics/ErrorTrap.h"
#include "mainwindow/frmMain.h"
#include "tests/common/TestEnv.h"
#include "tests/common/TestMain.h"
#include "tests/mainwindow/MainTestKit.h"
#include "tray/frmSysTray.h"
#include "tray/guiModTray.h"
#include "users/UserAccounts.h"

#include <QAction>
#include <QMenu>
#include <QSplitter>
#include <QStatusBar>
#include <QTest>
#include <QToolBar>

namespace {
void startWith(const TestEnv& env, const QString& language) {
    ChooseConfiguration();
    CreateProgramObjects();
    ProgConfig[14] = language;
    LoadLang(env.progDir() + "/Languages/" + language + ".lng");
}
} // namespace

class FrmMainTest : public QObject {
    Q_OBJECT
private slots:
    void everyCaptionComesFromTheLanguage_data() {
        QTest::addColumn<QString>("language");
        QTest::newRow("English") << "English";
        QTest::newRow("Russian") << "Russian";
    }
    void everyCaptionComesFromTheLanguage() {
        QFETCH(QString, language);
        TestEnv env;
        startWith(env, language);
        frmMain w;
        w.Form_Load();
        QCOMPARE(w.mnufile->title(), Texts(26));
        QCOMPARE(w.mnuFileBackup->text(), Texts(142));
        QCOMPARE(w.btnRename->toolTip(), Texts(54));
        QCOMPARE(w.windowTitle(), Texts(158));
        int actions = 0;
        for (QAction* a : w.findChildren<QAction*>()) {
            if (a->isSeparator() || a->objectName().isEmpty())
                continue;
            ++actions;
            QVERIFY2(!a->text().isEmpty() && !a->text().contains("#Error"), qPrintable(a->objectName()));
        }
        QVERIFY(actions >= 44);
        for (QMenu* m : w.findChildren<QMenu*>())
            QVERIFY(!m->title().contains("#Error"));
        QVERIFY(!readAllOf(env.progDir() + "/DbgFile.dat").contains("Error #0001"));
    }

    void geometryRoundTripAndStartLog() {
        TestEnv env;
        startWith(env, "English");
        ProgConfig[16] = "9000";
        ProgConfig[17] = "6000";
        ProgConfig[18] = "1500";
        ProgConfig[19] = "750";
        ProgConfig[20] = "3000";
        ProgConfig[1] = "False";
        frmMain w;
        w.Form_Load();
        QCOMPARE(w.width(), 600);
        QCOMPARE(w.height(), 400);
        QCOMPARE(w.splMain->sizes().value(0), 200);
        QVERIFY(!w.tlbToolbar->isVisible());
        QVERIFY(!w.mnuViewToolBar->isChecked());
        QVERIFY(w.mnuViewStatusbar->isChecked());
        w.resize(700, 450);
        w.SaveGUIConf();
        QCOMPARE(ProgConfig[16], QStringLiteral("10500"));
        QCOMPARE(ProgConfig[17], QStringLiteral("6750"));
        const QByteArray log = readAllOf(env.progDir() + "/DbgFile.dat");
        int at = 0;
        for (int i = 1; i <= 6; ++i) {
            at = log.indexOf("TESTPOINT " + QByteArray::number(i), at);
            QVERIFY(at > 0);
        }
        // A geometry entry that is no number ends in the error trap.
        ProgConfig[16] = "wide";
        QVERIFY_THROWS_EXCEPTION(VbError, w.DoConfig());
    }

    void viewTogglesAreSavedAtOnce() {
        TestEnv env;
        startWith(env, "English");
        frmMain w;
        w.Form_Load();
        w.mnuViewStatusbar->trigger();
        w.mnuViewOnTop->trigger();
        StrMass saved;
        LoadConfig(ProgCfgPath, saved);
        QCOMPARE(saved[2], QStringLiteral("False"));
        QCOMPARE(saved[6], QStringLiteral("True"));
        QVERIFY(w.windowFlags() & Qt::WindowStaysOnTopHint);
        QVERIFY(w.isVisible());
    }

    void closingAsksOnceAndSaves() {
        TestEnv env;
        startWith(env, "English");
        Script boxes;
        frmMain w;
        w.Form_Load();
        boxes.answers = {vbNo};
        QVERIFY(!w.close());
        QVERIFY(w.isVisible());
        QCOMPARE(boxes.boxes, QStringList{Texts(1)});
        QVERIFY(!QFile::exists(ProgCfgPath));

        w.resize(640, 480);
        boxes.answers = {vbYes};
        QVERIFY(w.close());
        QCOMPARE(boxes.boxes.size(), 2);
        StrMass saved;
        QCOMPARE(LoadConfig(ProgCfgPath, saved), 0);
        QCOMPARE(saved[16], QStringLiteral("9600"));
        QCOMPARE(saved[17], QStringLiteral("7200"));
    }

    void trayModeCloseHidesWithoutAsking() {
        TestEnv env;
        startWith(env, "English");
        ProgConfig[12] = "1";
        SetTrayAvailableOverride(1);
        Script boxes;
        frmMain w;
        w.Form_Load();
        QVERIFY(DoUnloadTIcon);
        QVERIFY(TrayObject());
        QVERIFY(!w.close());
        QVERIFY(!w.isVisible());
        QVERIFY(boxes.boxes.isEmpty());
        QVERIFY(!QFile::exists(ProgCfgPath));
        // The tray brings it back, and its menu runs the window's commands by key.
        frmSysTray* tray = TrayObject();
        QStringList keys;
        for (int i = 0; i < tray->MenuCount(); ++i)
            keys << tray->MenuKey(i);
        QCOMPARE(keys,
                 QStringList({"Show", "GenPassword", "SaveDB", "SelectUser", "UnloadUser", "", "Exit"}));
        QCOMPARE(tray->MenuCaption(0), Texts(123));
        QCOMPARE(tray->DefaultMenuIndex(), 0);
        tray->Menu()->actions().at(0)->trigger();
        QVERIFY(w.isVisible());
        w.m_frmSysTray_MenuClick(9, "Nonsense");
        QCOMPARE(boxes.boxes, QStringList{"Clicked item with key Nonsense"});
        // Exit asks, and then ends without a second question, removing the icon.
        boxes.answers = {vbYes};
        tray->Menu()->actions().at(6)->trigger();
        QCOMPARE(boxes.boxes.size(), 2);
        QVERIFY(QFile::exists(ProgCfgPath));
        QVERIFY(!DoUnloadTIcon);
        QVERIFY(!TrayObject());
        SetTrayAvailableOverride(-1);
    }

    void trayModeWithoutATrayKeepsTheWindow() {
        TestEnv env;
        startWith(env, "English");
        ProgConfig[12] = "1";
        SetTrayAvailableOverride(0);
        Script boxes;
        frmMain w;
        w.Form_Load();
        QCOMPARE(boxes.boxes, QStringList{Texts(246)});
        QVERIFY(!DoUnloadTIcon);
        // The close box asks as without tray mode, instead of hiding the window for good.
        boxes.answers = {vbNo};
        QVERIFY(!w.close());
        QVERIFY(w.isVisible());
        QCOMPARE(boxes.boxes.size(), 2);
        SetTrayAvailableOverride(-1);
    }
};

ARGENT_TEST(FrmMainTest)
#include "tst_frmmain.moc"
