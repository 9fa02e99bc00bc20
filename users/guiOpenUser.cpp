#include "users/guiOpenUser.h"

#include "app/MsgBox.h"
#include "app/guiApplication.h"
#include "app/modLang.h"
#include "app/modMain.h"
#include "diagnostics/Trace.h"
#include "maintenance/frmRestore.h"
#include "storage/TableEngine.h"
#include "storage/UserFile.h"
#include "storage/clsDatabase.h"
#include "users/UserAccounts.h"
#include "users/UserSession.h"
#include "users/guiUnsavedCopy.h"

namespace {
SaveFirstHandler& saveFirst() {
    static SaveFirstHandler h;
    return h;
}
// The file opened is older than a version this computer has seen (a copy put back): it
// stays open only when the user keeps it; else it is closed and its backups are offered.
int openOlderFile(QWidget* Owner, const QString& UsName) {
    TRACE_PROC("modMain.OpenOlderFile", UsName);
    const clsUserFilePtr file = CurUsDB->UserFile();
    const QString text = Texts(277).arg(file->OlderNum()).arg(file->SeenNum());
    if (MsgBox(text + QStringLiteral("\n\n\"") + UsName + u'"', vbYesNo | vbExclamation) == vbYes) {
        file->AcceptOlder();
        return fulLoaded;
    }
    UsSession().Unload();
    frmRestore dlg(Owner);
    dlg.ShowUserCopies(UsName);
    ShowModal(dlg);
    return fulFailed;
}

} // namespace

SaveFirstHandler SetSaveFirstHandler(SaveFirstHandler Handler) {
    SaveFirstHandler old = std::move(saveFirst());
    saveFirst() = std::move(Handler);
    return old;
}

bool SaveCurrentUserFirst() {
    TRACE_PROC("modMain.SaveCurrentUserFirst");
    if (CurUser.isEmpty() || !CurUsDB || CurUsDB->TabNum() == 0)
        return true;
    if (saveFirst())
        return saveFirst()();
    const int r = UsSession().Save();
    if (r < 0 && r != usNothingToSave) {
        MsgBox(Texts(247), vbCritical);
        return false;
    }
    return true;
}

int OpenUser(QWidget* Owner, const QString& UsName, const QString& UsPasw) {
    TRACE_PROC("modMain.OpenUser", UsName);
    int r = FullUserLoad(UsName, UsPasw);
    if (r == fulDamaged) {
        // The right password, contents that fail their check (a changed byte, a cut-off end).
        if (MsgBox(Texts(260) + QStringLiteral(" \"") + UsName + u'"' + QStringLiteral("\n\n") + Texts(261),
                   vbYesNo | vbExclamation) == vbYes) {
            frmRestore dlg(Owner);
            dlg.ShowUserCopies(UsName);
            ShowModal(dlg);
        }
    }
    if (r == fulLoaded && CurUsDB && CurUsDB->UserFile() && CurUsDB->UserFile()->OlderThanSeen())
        r = openOlderFile(Owner, UsName);
    if (r == fulLoaded)
        OfferUnsavedCopy(Owner, UsName);
    return r;
}
