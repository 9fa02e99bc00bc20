#include "mainwindow/guiBrowserLink.h"

#include "browser/BrowserHost.h"
#include "browser/BrowserServer.h"
#include "browser/guiBrowserAsk.h"
#include "mainwindow/frmMain.h"
#include "users/UserAccounts.h"

#include <memory>

namespace {

class clsWindowBrowserHost : public IBrowserHost {
public:
    explicit clsWindowBrowserHost(frmMain& Main) : m_main(Main) {}

    bool DatabaseOpen() const override {
        return !m_main.IsLocked() && CurUsDB && CurUsDB->TabNum() != 0 && !CurUser.isEmpty();
    }
    void RequestUnlock() override { bringUp(); }
    void LockDatabase() override { m_main.LockNow(); }
    bool AskConnect(QString& Name) override {
        bringUp();
        return BrAskConnect(&m_main, Name);
    }
    BrSiteAnswer AskSite(const QString& Site, const QStringList& Titles) override {
        return BrAskSite(&m_main, Site, Titles);
    }
    bool AskOverwrite(const QString& Site, const QString& Title, const QString& Login) override {
        return BrAskOverwrite(Site, Title, Login);
    }
    void RowAdded(const QString& IndNum) override { m_main.ShowAddedRow(IndNum); }
    void RowChanged(const QString& IndNum) override { m_main.RefreshRowNode(IndNum); }
    int Save() override { return m_main.SaveCurUser(); }

private:
    // A locked window asks for the password as it comes up (frmMain's showEvent).
    void bringUp() {
        if (m_main.isMinimized() || !m_main.isVisible())
            m_main.showNormal();
        m_main.raise();
        m_main.activateWindow();
    }
    frmMain& m_main;
};

std::unique_ptr<clsWindowBrowserHost> g_host;

} // namespace

void ConnectBrowser(frmMain& Main) {
    g_host = std::make_unique<clsWindowBrowserHost>(Main);
    BrowserServer().SetHost(g_host.get());
    BrowserServer().ApplySetting();
}

void DisconnectBrowser() {
    BrowserServer().SetHost(nullptr);
    g_host.reset();
}
