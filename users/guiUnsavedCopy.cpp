#include "users/guiUnsavedCopy.h"

#include "app/MsgBox.h"
#include "app/guiApplication.h"
#include "app/modLang.h"
#include "diagnostics/Trace.h"
#include "storage/Md5.h"
#include "users/IUserView.h"
#include "users/UnsavedCopy.h"
#include "users/UserAccounts.h"
#include "users/UserSession.h"

#include <QInputDialog>
#include <QLineEdit>

namespace {

// The copy merged in with the open key, or with a password the user types; false when
// the user gave up or the copy cannot be read (it is kept then).
bool mergeCopy(QWidget* Owner, const QString& Copy) {
    int r = MergeUnsavedCopy(Copy, GetTruePasw(CurUsPasw), *CurUsDB);
    while (r == ucWrongKey) {
        QInputDialog ask(Owner);
        ask.setWindowTitle(QString::fromUtf8(kProgramTitle));
        ask.setLabelText(Texts(311));
        ask.setTextEchoMode(QLineEdit::Password);
        ApplyDialogOnTop(&ask);
        if (ShowModal(ask) != QDialog::Accepted || !CurUsDB)
            return false;
        QString typed = ask.textValue();
        ask.setTextValue(QString());
        QString md5 = HashString(typed);
        r = MergeUnsavedCopy(Copy, GetTruePasw(md5), *CurUsDB);
        WipeString(typed);
        WipeString(md5);
        if (r == ucWrongKey)
            MsgBox(Texts(312), vbExclamation);
    }
    if (r == ucDamaged)
        MsgBox(Texts(315) + u'\n' + Copy, vbCritical);
    return r == ucTaken;
}

} // namespace

void OfferUnsavedCopy(QWidget* Owner, const QString& UsName) {
    TRACE_PROC("modMain.OfferUnsavedCopy", UsName);
    const QString copy = FindUnsavedCopy(UsName);
    if (copy.isEmpty() || !UsSession().IsOpen() || CurUser != UsName)
        return;
    if (MsgBox(Texts(310), vbYesNo | vbQuestion) != vbYes) {
        // Only a plain No deletes it: a question closed by the lock or the end keeps it.
        if (!ModalsRefused() && MsgBox(Texts(313), vbYesNo | vbQuestion) == vbYes)
            DropUnsavedCopy(copy);
        return;
    }
    if (!mergeCopy(Owner, copy))
        return;
    if (IUserView* view = UserView()) {
        view->ClearUsTree();
        view->ClearUsValue();
        view->ShowUsDB(*CurUsDB);
    }
    // The copy goes once the merged changes are in the file; until then it stays, and
    // the changes are open, unsaved, as after any failed save.
    const int r = UsSession().Save();
    if (r >= 0) {
        DropUnsavedCopy(copy);
        MsgBox(Texts(314), vbInformation);
    } else {
        MsgBox(Texts(247), vbCritical);
    }
}
