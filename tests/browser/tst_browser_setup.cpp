// Setting the connection up: the options page and 'argentpm browser' write and take away
// the manifests, keep KeePassXC's, and the page removes a connected extension.

#include "app/ProgConfig.h"
#include "app/modLang.h"
#include "browser/BrowserManifests.h"
#include "browser/BrowserServer.h"
#include "browser/BrowserStore.h"
#include "browser/guiBrowserPage.h"
#include "storage/Md5.h"
#include "tests/common/TestEnv.h"
#include "tests/common/TestMain.h"
#include "users/UserAccounts.h"

#include <QCheckBox>
#include <QDir>
#include <QLabel>
#include <QProcess>
#include <QPushButton>
#include <QTest>
#include <QTreeWidget>

namespace {

const QByteArray kTheirs = R"({"name":"org.keepassxc.keepassxc_browser","path":"/usr/bin/keepassxc-proxy"})";

struct Cli {
    int Code;
    QString Out;
};

Cli argentpm(const QStringList& Args) {
    QProcess p;
    p.setProcessChannelMode(QProcess::MergedChannels);
    p.start(QStringLiteral(ARGENT_BIN_DIR "/argentpm"), Args);
    if (!p.waitForFinished(30000))
        p.kill();
    return {p.exitCode(), QString::fromUtf8(p.readAll())};
}

} // namespace

class BrowserSetupTest : public QObject {
    Q_OBJECT
private slots:
    void commandLine() {
        TestEnv env;
        const QString ff =
            QDir::homePath() + "/.mozilla/native-messaging-hosts/org.keepassxc.keepassxc_browser.json";
        const QString chromium = qEnvironmentVariable("XDG_CONFIG_HOME") +
                                 "/chromium/NativeMessagingHosts/org.keepassxc.keepassxc_browser.json";
        QVERIFY(QDir().mkpath(QFileInfo(chromium).path()));
        writeFileText(chromium, kTheirs);
        Cli r = argentpm({"browser", "setup", "--browser", "firefox,chromium"});
        QCOMPARE(r.Code, 7); // KeePassXC's manifest was left alone, and said so
        QVERIFY(r.Out.contains("KeePassXC"));
        QVERIFY(QFile::exists(ff));
        QCOMPARE(readAllOf(chromium), kTheirs);
        r = argentpm({"browser", "status"});
        QCOMPARE(r.Code, 0);
        QVERIFY2(r.Out.contains("serving the browser: on") && r.Out.contains("Firefox: set up") &&
                     r.Out.contains("/usr/bin/keepassxc-proxy"),
                 qPrintable(r.Out));
        QCOMPARE(argentpm({"browser", "setup", "--browser", "chromium", "--take-over"}).Code, 0);
        QVERIFY(readAllOf(chromium) != kTheirs);
        r = argentpm({"browser", "remove"});
        QCOMPARE(r.Code, 0);
        QVERIFY(!QFile::exists(ff));
        QCOMPARE(readAllOf(chromium), kTheirs);
        QVERIFY(argentpm({"browser", "status"}).Out.contains("serving the browser: off"));
        QCOMPARE(argentpm({"browser", "setup", "--browser", "netscape"}).Code, 2);
        QCOMPARE(argentpm({"browser", "fly"}).Code, 2);
    }

    void optionsPage() {
        TestEnv env;
        ChooseConfiguration();
        LoadLang(env.progDir() + "/Languages/English.lng");
        CreateProgramObjects();
        QString p = QStringLiteral("password1");
        AddUser(UsDBFilePath("anna"), "anna", p);
        QCOMPARE(FullUserLoad("anna", HashString("password1")), 0);
        BrAddAssociation(*CurUsDB, "laptop firefox", "k1");
        BrAddAssociation(*CurUsDB, "work chromium", "k2");
        const QString ff = BrManifestPath(BrBrowsersOf("firefox").first());
        const QString chromium = BrManifestPath(BrBrowsersOf("chromium").first());
        QVERIFY(QDir().mkpath(QFileInfo(chromium).path()));
        writeFileText(chromium, kTheirs);

        guiBrowserPage page;
        QVERIFY(!page.chkServe->isChecked()); // off until the user turns it on
        QVERIFY(!QFile::exists(ff));
        page.chkServe->setChecked(true);
        QCOMPARE(CfgExtra(kCfgBrowserOn, "0"), QStringLiteral("1"));
        QVERIFY(QFile::exists(ff));
        QCheckBox* chkChromium = page.findChild<QCheckBox*>("chk_chromium");
        chkChromium->setChecked(true);
        QCOMPARE(CfgExtra(kCfgBrowserList, ""), QStringLiteral("firefox,chromium"));
        QCOMPARE(readAllOf(chromium), kTheirs); // said, not taken
        QCOMPARE(page.lblStates[2]->text(), Texts(514));
        QVERIFY(page.cmdTakeOver->isEnabled());
        page.cmdTakeOver->click();
        QCOMPARE(BrManifestStatusOf(BrBrowsersOf("chromium").first()).State, brmOursKept);

        QCOMPARE(page.lstConnected->topLevelItemCount(), 2);
        page.lstConnected->setCurrentItem(page.lstConnected->topLevelItem(0));
        page.cmdRemove->click();
        QCOMPARE(BrAssociations(CurUsDB->DBView()).size(), 1);
        QCOMPARE(BrAssociations(CurUsDB->DBView()).first().Id, QStringLiteral("work chromium"));
        QCOMPARE(page.lstConnected->topLevelItemCount(), 1);

        page.chkServe->setChecked(false);
        QCOMPARE(CfgExtra(kCfgBrowserOn, "1"), QStringLiteral("0"));
        QVERIFY(!QFile::exists(ff));
        QCOMPARE(readAllOf(chromium), kTheirs);
        UnloadUser();
    }
};

ARGENT_TEST(BrowserSetupTest)
#include "tst_browser_setup.moc"
