// The provider as the main window runs it: items shown and saved by the window, the unlock
// prompt answered in the window's password question, the question before a read over the
// window, and the options page switching the provider off and on.

#include "mainwindow/frmMain.h"
#include "options/frmOptions.h"
#include "secrets/SecretAccess.h"
#include "secrets/guiSecretQuestion.h"
#include "secrets/guiSecretsPage.h"
#include "tests/common/TestMain.h"
#include "tests/mainwindow/MainTestKit.h"

#include <QCheckBox>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QFile>
#include <QLabel>
#include <QListWidget>
#include <QProcess>
#include <QPushButton>
#include <QTest>

namespace {

QString runTool(const QStringList& Args, const QByteArray& In = {}) {
    QProcess p;
    p.start(QStringLiteral("/usr/bin/secret-tool"), Args);
    p.write(In);
    p.closeWriteChannel();
    QDeadlineTimer end(30000);
    while (p.state() != QProcess::NotRunning && !end.hasExpired())
        QTest::qWait(5);
    p.kill();
    return QString::fromUtf8(p.readAllStandardOutput()).trimmed();
}

QString runPy(const QStringList& Args) {
    QProcess p;
    p.start(QStringLiteral("/usr/bin/python3"),
            QStringList{ARGENT_SOURCE_DIR "/tests/secrets/client.py"} + Args);
    QDeadlineTimer end(30000);
    while (p.state() != QProcess::NotRunning && !end.hasExpired())
        QTest::qWait(5);
    p.kill();
    return QString::fromUtf8(p.readAllStandardOutput()).trimmed();
}

bool nameOwned() {
    return QDBusConnection::sessionBus().interface()->isServiceRegistered(
        QStringLiteral("org.freedesktop.secrets"));
}

} // namespace

class tst_SecretWindow : public QObject {
    Q_OBJECT
private slots:
    void windowServes() {
        if (qEnvironmentVariableIsEmpty("DBUS_SESSION_BUS_ADDRESS") || !QFile::exists("/usr/bin/secret-tool"))
            QSKIP("needs dbus-run-session and secret-tool (libsecret-tools)");
        TestEnv env;
        makeUser(env);
        Script s;
        frmMain w;
        w.StartSecretService();
        QVERIFY(SecretProvider() && SecretProvider()->Running());
        w.Form_Load();
        s.pickUser = "anna";
        s.passwords = {kUserPasw};
        w.btnSelectUser->trigger();
        QCOMPARE(CurUser, QStringLiteral("anna"));

        // A store shows in the tree and is saved by the window.
        QCOMPARE(runTool({"store", "--label=Wi-Fi", "ssid", "home"}, "pw-1"), QString());
        QTRY_VERIFY(childTexts(w.NodeByKey("0key")).contains("Secret Service"));
        QTRY_VERIFY(!w.HasUnsavedChanges());

        // Locked by a client (as the window's own lock does); its unlock is the window's
        // password question.
        QCOMPARE(runPy({"lock"}), QStringLiteral("locked=True"));
        QVERIFY(w.IsLocked());
        // A lookup while locked: the question first, then the secret.
        s.passwords = {kUserPasw};
        QCOMPARE(runTool({"lookup", "ssid", "home"}), QStringLiteral("pw-1"));
        QVERIFY(!w.IsLocked());
        w.LockNow();
        s.passwords = {kUserPasw};
        QCOMPARE(runPy({"unlock"}), QStringLiteral("locked=True\ndismissed=False\nlocked=False"));
        QVERIFY(!w.IsLocked());
        QCOMPARE(runTool({"lookup", "ssid", "home"}), QStringLiteral("pw-1"));

        // The options page lists the programs always allowed, and withdraws them.
        SetAlwaysAllowed("anna", "/usr/bin/example", true);
        SetAlwaysAllowed("bert", "/usr/bin/other", true);
        frmOptions o(&w);
        auto* page = o.findChild<guiSecretsPage*>();
        QVERIFY(page);
        QCOMPARE(page->lblState->text(), Texts(472));
        QCOMPARE(page->lstAlways->count(), 1);
        page->lstAlways->item(0)->setSelected(true);
        page->cmdWithdraw->click();
        QCOMPARE(page->lstAlways->count(), 0);
        QVERIFY(AlwaysAllowed("anna").isEmpty());
        QCOMPARE(AlwaysAllowed("bert"), QStringList{"/usr/bin/other"});
        // Switched off, the name is free; on again, it is ours.
        page->chkServe->setChecked(false);
        QVERIFY(!nameOwned());
        QCOMPARE(page->lblState->text(), Texts(474));
        page->chkServe->setChecked(true);
        QVERIFY(nameOwned());
        QCOMPARE(runTool({"lookup", "ssid", "home"}), QStringLiteral("pw-1"));
    }
};

ARGENT_TEST(tst_SecretWindow)
#include "tst_secretwindow.moc"
