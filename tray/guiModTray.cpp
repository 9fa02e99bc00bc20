#include "tray/guiModTray.h"

#include "app/MsgBox.h"
#include "app/modLang.h"
#include "app/modMain.h"
#include "diagnostics/Globals.h"
#include "diagnostics/Trace.h"
#include "tray/frmSysTray.h"

#include <QIcon>

bool DoUnloadTIcon = false;

namespace {
frmSysTray* g_tray = nullptr;
std::function<void(frmSysTray*)> g_onCreated;
bool g_toldNoTray = false;
int g_availableOverride = -1;
const bool g_registered = [] {
    argent::diag::registerGlobal("DoUnloadTIcon", &DoUnloadTIcon);
    argent::diag::registerGlobalFixed("TrayIcon", "{NOTIFYICONDATA}");
    argent::diag::registerModuleVar("modMain", "DoUnloadTIcon", &DoUnloadTIcon);
    argent::diag::registerModuleVar("modTray", "ToldNoTray", &g_toldNoTray);
    argent::diag::registerModuleVar("modTray", "TrayAvailableOverride", &g_availableOverride);
    return true;
}();
} // namespace

frmSysTray* TrayObject() {
    return g_tray;
}

void SetTrayCreatedHandler(std::function<void(frmSysTray*)> Handler) {
    g_onCreated = std::move(Handler);
}

bool TrayAvailable() {
    if (g_availableOverride >= 0)
        return g_availableOverride == 1;
    return QSystemTrayIcon::isSystemTrayAvailable();
}

void SetTrayAvailableOverride(int Available) {
    g_availableOverride = Available;
}

frmSysTray* CreateTrayIcon() {
    TRACE_PROC("modTray.CreateTrayIcon");
    if (g_tray)
        return g_tray;
    g_tray = new frmSysTray;
    g_tray->AddMenuItem(Texts(123), QStringLiteral("Show"), true);
    g_tray->AddMenuItem(Texts(124), QStringLiteral("GenPassword"));
    g_tray->AddMenuItem(Texts(125), QStringLiteral("SaveDB"));
    g_tray->AddMenuItem(Texts(126), QStringLiteral("SelectUser"));
    g_tray->AddMenuItem(Texts(141), QStringLiteral("UnloadUser"));
    g_tray->AddMenuItem(QStringLiteral("-"));
    g_tray->AddMenuItem(Texts(127), QStringLiteral("Exit"));
    g_tray->SetToolTip(QString::fromUtf8(kProgramTitle));
    g_tray->SetIconHandle(QIcon(Pt(AppPath()) + QStringLiteral("mainicon.png")));
    if (g_onCreated)
        g_onCreated(g_tray);
    g_tray->Show();
    return g_tray;
}

void DeleteIcon() {
    TRACE_PROC("modTray.DeleteIcon");
    if (!g_tray)
        return;
    // Often called from the icon's own menu: let that click finish before the object goes.
    g_tray->Hide();
    g_tray->deleteLater();
    g_tray = nullptr;
}

void TrayIconManagement(int Action) {
    TRACE_PROC("modMain.TrayIconManagement", Action);
    if (Action == 1) {
        if (!TrayAvailable()) {
            if (!g_toldNoTray) {
                g_toldNoTray = true;
                MsgBox(Texts(246), vbExclamation);
            }
            return;
        }
        CreateTrayIcon();
        DoUnloadTIcon = true;
    } else if (Action == 2) {
        DeleteIcon();
        DoUnloadTIcon = false;
    }
}
