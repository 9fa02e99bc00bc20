// The browser connection end to end: an independent client (browser_client.py, written
// from the published protocol with python3-nacl) starts the real bridge, which talks to
// the window's server in this process; the window's questions are the real dialogs,
// answered here by script.

#include "app/MsgBox.h"
#include "app/ProgConfig.h"
#include "app/guiApplication.h"
#include "app/modLang.h"
#include "browser/BrowserHost.h"
#include "browser/BrowserServer.h"
#include "browser/BrowserStore.h"
#include "browser/guiBrowserAsk.h"
#include "diagnostics/DbgPrint.h"
#include "records/RecordExtras.h"
#include "records/RecordTree.h"
#include "storage/FieldTable.h"
#include "storage/Md5.h"
#include "tests/common/TestEnv.h"
#include "tests/common/TestMain.h"
#include "users/UserAccounts.h"

#include <QEventLoop>
#include <QLabel>
#include <QLineEdit>
#include <QProcess>
#include <QPushButton>
#include <QTest>
#include <QTimer>

namespace {

const QString kPasw = QStringLiteral("password1");

class TestHost : public IBrowserHost {
public:
    bool Locked = false;
    int UnlockAsked = 0;
    QStringList SitesAsked;
    bool DatabaseOpen() const override { return !Locked; }
    void RequestUnlock() override { ++UnlockAsked; }
    void LockDatabase() override { Locked = true; }
    bool AskConnect(QString& Name) override { return BrAskConnect(nullptr, Name); }
    BrSiteAnswer AskSite(const QString& Site, const QStringList& Titles) override {
        SitesAsked << Site;
        return BrAskSite(nullptr, Site, Titles);
    }
    bool AskOverwrite(const QString& Site, const QString& Title, const QString& Login) override {
        return BrAskOverwrite(Site, Title, Login);
    }
    void RowAdded(const QString&) override {}
    void RowChanged(const QString&) override {}
    int Save() override { return SaveUsDB(CurUsDB, GetTruePasw(CurUsPasw)); }
};

QString addSite(const QString& Folder, const QString& Title, const QString& Login, const QString& Pasw,
                const QString& Url) {
    const QString id = AddRecordToDB(*CurUsDB, Folder, Title, Login, Pasw, QString());
    RecExtras ex;
    ex.Url = Url;
    WriteRecExtras(*CurUsDB, id, ex);
    return id;
}

} // namespace

class BrowserProtocolTest : public QObject {
    Q_OBJECT
private slots:
    void extensionThroughTheBridge() {
        if (QProcess::execute(QStringLiteral("/usr/bin/python3"),
                              {QStringLiteral("-c"), QStringLiteral("import nacl")}) != 0)
            QSKIP("python3-nacl is not installed (/usr/bin/python3)");
        TestEnv env;
        ChooseConfiguration();
        LoadLang(env.progDir() + "/Languages/English.lng");
        CreateProgramObjects();
        QString p = kPasw;
        AddUser(UsDBFilePath("anna"), "anna", p);
        QCOMPARE(FullUserLoad("anna", HashString(kPasw)), 0);
        const QString exact = addSite("0", "Exact", "e1", "p1", "https://exact.example/");
        addSite("0", "Parent", "pa", "pp", "https://sub.example");
        addSite("0", "Port", "po", "pt", "https://port.example:8443/");
        addSite("0", "Secure", "se", "ss", "https://secure.example/");
        addSite("0", "Plain", "pl", "plp", "http://plain.example/");
        addSite("0", "Both", "bo", "bop", "both.example");
        addSite("0", "Deny", "de", "dep", "https://deny.example/");
        addSite("0", "Once", "on", "onp", "https://once.example/");
        addSite("0", "Close", "cl", "clp", "https://close.example/");
        for (int i = 0; i < 30; ++i)
            addSite("0", "Many " + QString::number(i), "m", "mp", "https://many.example/");
        addSite("0", "Many app", "ma", "map", "https://many.example/app");
        QVERIFY(SaveUsDB(CurUsDB, GetTruePasw(CurUsPasw)) > 0);

        // The window's questions, answered as the client expects them to be.
        TestHost host;
        QStringList boxes;
        const MsgBoxHandler prevBox = SetMsgBoxHandler([&boxes](const QString& Text, int, const QString&) {
            boxes << Text;
            return Text.contains("refuse") ? int(vbNo) : int(vbYes);
        });
        const ModalHandler prevModal = SetModalHandler([](QDialog& d) {
            if (auto* c = qobject_cast<frmBrowserConnect*>(&d)) {
                c->txtName->setText("python-test");
                c->cmdConnect->click();
            } else if (auto* s = qobject_cast<frmBrowserSite*>(&d)) {
                const QString q = s->lblAsk->text();
                if (q.contains("close.example"))
                    BrowserServer().Stop(); // the window goes away while it asks
                if (q.contains("deny.example") || q.contains("close.example"))
                    s->cmdDeny->click();
                else if (q.contains("once.example"))
                    s->cmdOnce->click();
                else
                    s->cmdAlways->click();
            }
            return d.result();
        });
        SetCfgExtra(kCfgBrowserOn, "1");
        BrowserServer().SetHost(&host);
        QVERIFY(BrowserServer().ApplySetting());

        QProcess client;
        client.setProcessChannelMode(QProcess::SeparateChannels);
        QString trace;
        connect(&client, &QProcess::readyReadStandardError, [&] { trace += client.readAllStandardError(); });
        connect(&client, &QProcess::readyReadStandardOutput, [&] {
            while (client.canReadLine()) {
                const QByteArray line = client.readLine().trimmed();
                if (line == "STEP lock")
                    host.Locked = true;
                else if (line == "STEP unlock")
                    host.Locked = false;
                client.write("ok\n");
            }
        });
        QEventLoop loop;
        connect(&client, &QProcess::finished, &loop, &QEventLoop::quit);
        QTimer::singleShot(90000, &loop, &QEventLoop::quit);
        client.start("/usr/bin/python3",
                     {QStringLiteral(ARGENT_SOURCE_DIR "/tests/browser/browser_client.py"),
                      QStringLiteral(ARGENT_BIN_DIR "/argentpm-browser")});
        QVERIFY(client.waitForStarted(10000));
        loop.exec();
        if (client.state() != QProcess::NotRunning) {
            client.kill();
            client.waitForFinished(5000);
        }
        trace += client.readAllStandardError();
        BrowserServer().SetHost(nullptr);
        SetMsgBoxHandler(prevBox);
        SetModalHandler(prevModal);
        QVERIFY2(client.exitStatus() == QProcess::NormalExit && client.exitCode() == 0, qPrintable(trace));
        QVERIFY2(trace.contains("DONE 0 failure(s)") && trace.count("\nok   ") >= 60, qPrintable(trace));

        // What the window asked: once per site, again for "allow once", never for a site
        // allowed always or for the record set-login made.
        QCOMPARE(host.SitesAsked.count("exact.example"), 1);
        QCOMPARE(host.SitesAsked.count("once.example"), 2);
        QCOMPARE(host.SitesAsked.count("new.example"), 0);
        QVERIFY(host.UnlockAsked >= 1);
        QCOMPARE(boxes.size(), 2); // the update, and the refused one

        // The file holds what the browser did.
        UnloadUser();
        QCOMPARE(FullUserLoad("anna", HashString(kPasw)), 0);
        const DatabaseRecord& db = CurUsDB->DBView();
        QCOMPARE(BrAssociations(db).size(), 1);
        QCOMPARE(BrAssociations(db).first().Id, QStringLiteral("python-test"));
        QVERIFY(BrSiteAllowed(db, exact, "exact.example"));
        const int tbl = CurUsDB->FindTable("DataTable");
        const int row = FindDataRow(*CurUsDB, exact);
        QCOMPARE(CurUsDB->GetTblFldValNm(tbl, row, "Password"), QStringLiteral("p2"));
        const RecExtras ex = ReadRecExtras(db, exact);
        QCOMPARE(ex.History.size(), 1);
        QCOMPARE(ex.History.first().Pasw, QStringLiteral("p1"));
        QVERIFY(ex.Custom.isEmpty()); // the permission is no custom field
        const int made = CurUsDB->GetRecNumFromVal(tbl, CurUsDB->FindField(tbl, "Title"), "new.example", 1);
        QVERIFY(made > 0);
        const QString folder = CurUsDB->GetTblFldValNm(tbl, made, "Parent");
        QCOMPARE(CurUsDB->GetTblFldValNm(tbl, FindDataRow(*CurUsDB, folder), "Title"),
                 QStringLiteral("Browser"));
        // Fills are logged by site and title, never with a password.
        const QByteArray log = readAllOf(DbgFilePath());
        QVERIFY(log.contains("Browser fill: exact.example <- Exact"));
        for (const char* secret : {"np1", "onp", "plp", "bop"})
            QVERIFY2(!log.contains(secret), secret);
        UnloadUser();
    }
};

ARGENT_TEST(BrowserProtocolTest)
#include "tst_browser_protocol.moc"
