// The main window's answers to a user file that cannot be taken in as it is: one that
// fails its check (damaged, forged, not sealed) and one older than a version this
// computer has already seen. Nothing in memory is touched until the user says which
// one stays.

#include "mainwindow/frmMain.h"

#include "app/MsgBox.h"
#include "app/modLang.h"
#include "diagnostics/Trace.h"
#include "storage/clsDatabase.h"
#include "users/UserAccounts.h"
#include "users/UserSession.h"

namespace {

QString aboutUser(int TextId) {
    return Texts(TextId) + QStringLiteral(" \"") + CurUser + QStringLiteral("\"");
}

} // namespace

int frmMain::SettleDamagedFile() {
    TRACE_PROC("frmMain.SettleDamagedFile");
    const clsDatabase* db = CurUsDB.get();
    // What is open stays as it is; written over the damaged file only when asked to.
    if (MsgBox(aboutUser(260) + QStringLiteral("\n\n") + Texts(278), vbYesNo | vbExclamation) == vbYes &&
        SameUserOpen(db)) {
        m_toldFileState = 0;
        return SettleSave(UsSession().SaveOver());
    }
    m_toldFileState = usDamaged;
    UpdateTitle();
    return usDamaged;
}

int frmMain::SettleOlderFile() {
    TRACE_PROC("frmMain.SettleOlderFile");
    const clsDatabase* db = CurUsDB.get();
    const clsUserFilePtr file = CurUsDB ? CurUsDB->UserFile() : nullptr;
    if (!file || !file->OlderThanSeen())
        return usOlderFile;
    const QString text = Texts(279).arg(file->OlderNum()).arg(file->SeenNum());
    const int answer = MsgBox(text, vbYesNo | vbExclamation);
    if (!SameUserOpen(db))
        return usOlderFile;
    m_toldFileState = 0;
    if (answer == vbYes)
        return SettleSave(UsSession().SaveOver());
    // The older file stays: it is taken in, with the changes not saved yet merged into it.
    file->AcceptOlder();
    const int r = UsSession().Refresh();
    if (r == usTakenIn)
        ShowFileTakenIn(Texts(268));
    else if (r != usUnchanged)
        return SettleSave(r);
    if (HasUnsavedChanges() && SaveAfterEveryChange())
        return SaveCurUser();
    UpdateTitle();
    return usTakenIn;
}
