#include "options/guiFolderChooser.h"

#include "app/ProgConfig.h"
#include "app/modMain.h"
#include "diagnostics/Globals.h"
#include "diagnostics/Trace.h"
#include "users/UserAccounts.h"
#include "users/guiOpenUser.h"

#include <QFileDialog>

QString BrowsePath;

namespace {
FolderChooser g_chooser;
const bool g_registered = [] {
    argent::diag::registerGlobal("BrowsePath", &BrowsePath);
    argent::diag::registerModuleVar("modMain", "BrowsePath", &BrowsePath);
    return true;
}();
} // namespace

void SetFolderChooser(FolderChooser Chooser) {
    g_chooser = std::move(Chooser);
}

bool dlgBrowseFolder(QWidget* OwnerForm, QString& Path, const QString& Title, bool AllowExtStyle,
                     bool AllowManualEnter) {
    TRACE_PROC("modMain.dlgBrowseFolder", Path, Title, AllowExtStyle, AllowManualEnter);
    BrowsePath = Path;
    QString chosen = BrowsePath;
    bool ok;
    if (g_chooser) {
        ok = g_chooser(OwnerForm, chosen, Title);
    } else {
        chosen = QFileDialog::getExistingDirectory(OwnerForm, Title, BrowsePath, QFileDialog::ShowDirsOnly);
        ok = !chosen.isEmpty();
    }
    if (!ok)
        return false;
    RemoveNullChar(chosen);
    Path = chosen;
    return true;
}

void ChaneDBPath(QWidget* Owner) {
    TRACE_PROC("modMain.ChaneDBPath");
    QString path = ProgConfig[kCfgDBPath];
    if (!dlgBrowseFolder(Owner, path, QString(), true, true))
        return;
    if (Pt(path) == Pt(ProgConfig[kCfgDBPath]))
        return;
    // The open user's file stays in the old folder: it is saved there and closed, so
    // that nothing of it is written into the new one. One that cannot be saved keeps
    // the folder as it was.
    if (!CurUser.isEmpty()) {
        if (!SaveCurrentUserFirst())
            return;
        UnloadUser();
    }
    ProgConfig[kCfgDBPath] = Pt(path);
    SaveConfig(ProgCfgPath);
}
