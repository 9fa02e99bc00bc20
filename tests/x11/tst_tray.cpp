#include "app/MsgBox.h"
#include "app/ProgConfig.h"
#include "app/modLang.h"
#include "mainwindow/frmMain.h"
#include "tests/common/TestEnv.h"
#include "tests/common/TestMain.h"
#include "tray/frmSysTray.h"
#include "tray/guiModTray.h"

#include <QMenu>
#include <QProcess>
#include <QTest>

namespace {
void xdotool(const QStringList& args) {
    QProcess::execute(QStringLiteral("xdotool"), args);
}

void clickAt(const QPoint& p, int button) {
    xdotool({"mousemove", QString::number(p.x()), QString::number(p.y()), "click", QString::number(button)});
}

// Right-clicks the tray icon and waits for its menu.
QMenu* openTrayMenu(frmSysTray* tray) {
    clickAt(tray->Icon()->geometry().center(), 3);
    QMenu* menu = tray->Menu();
    if (!QTest::qWaitFor([menu] { return menu->isVisible(); }, 5000))
        return nullptr;
    QTest::qWait(200);
    return menu;
}

void clickMenuItem(QMenu* menu, int index) {
    QAction* a = menu->actions().at(index);
    clickAt(menu->mapToGlobal(menu->actionGeometry(a).center()), 1);
}
} // namespace

// The tray icon on a real X server, hosted by trayer, clicked as a user would.
class TrayX11Test : public QObject {
    Q_OBJECT
private slots:
    void iconMenuShowAndExit() {
        TestEnv env;
        ChooseConfiguration();
        LoadLang(env.progDir() + "/Languages/Russian.lng");
        ProgConfig[12] = "1";
        QVERIFY(QTest::qWaitFor([] { return QSystemTrayIcon::isSystemTrayAvailable(); }, 5000));
        QStringList asked;
        const MsgBoxHandler prevBox = SetMsgBoxHandler([&](const QString& p, int, const QString&) {
            asked << p;
            return int(vbYes);
        });
        auto* w = new frmMain;
        w->setAttribute(Qt::WA_DeleteOnClose);
        QPointer<frmMain> alive(w);
        w->Form_Load();
        QVERIFY(DoUnloadTIcon);
        frmSysTray* tray = TrayObject();
        QVERIFY(tray);
        // Docked: the host has moved the icon into its panel.
        QVERIFY(QTest::qWaitFor([tray] { return tray->Icon()->geometry().topLeft() != QPoint(0, 0); }, 8000));

        // Closing hides the window into the tray without a question.
        w->close();
        QVERIFY(QTest::qWaitFor([w] { return !w->isVisible(); }, 2000));
        QVERIFY(asked.isEmpty());

        QMenu* menu = openTrayMenu(tray);
        QVERIFY(menu);
        QStringList captions;
        for (QAction* a : menu->actions())
            captions << (a->isSeparator() ? QStringLiteral("-") : a->text());
        QCOMPARE(captions,
                 QStringList({Texts(123), Texts(124), Texts(125), Texts(126), Texts(141), "-", Texts(127)}));
        clickMenuItem(menu, 0);
        QVERIFY(QTest::qWaitFor([w] { return w->isVisible(); }, 5000));

        menu = openTrayMenu(tray);
        QVERIFY(menu);
        w->resize(700, 500);
        clickMenuItem(menu, 6);
        QVERIFY(QTest::qWaitFor([&alive] { return alive.isNull(); }, 5000));
        QCOMPARE(asked, QStringList{Texts(1)});
        StrMass saved;
        QCOMPARE(LoadConfig(ProgCfgPath, saved), 0);
        QCOMPARE(saved[16], QStringLiteral("10500"));
        QVERIFY(!DoUnloadTIcon);
        SetMsgBoxHandler(prevBox);
    }
};

ARGENT_TEST(TrayX11Test)
#include "tst_tray.moc"
