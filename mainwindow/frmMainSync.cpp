// The main window and the conflict copies a sync engine leaves beside the open user's file
// (users/ConflictMerge.h): merged when the user opens and whenever the folder watch sees
// one arrive, once the copy has settled; the status bar and the debug log say what was
// merged from where. The user's file itself is read only once it has settled too.
//
// Sync engines write a temporary file and rename it into place, or delete and create, in
// bursts: the watch is on the folder (it survives all of that) and every burst ends in one
// look (the refresh timer). A copy is read only when two looks a moment apart find the same
// size, modification and change time and inode: a file still being written is not read. A
// copy that opens only with another password is asked about once (the password of the
// other computer); cancelled, it stays as it is until it changes.

#include "mainwindow/frmMain.h"

#include "app/MsgBox.h"
#include "app/guiApplication.h"
#include "app/modLang.h"
#include "diagnostics/DbgPrint.h"
#include "diagnostics/Trace.h"
#include "storage/Md5.h"
#include "storage/clsDatabase.h"
#include "users/ConflictMerge.h"
#include "users/UserAccounts.h"

#include <QApplication>
#include <QFileInfo>
#include <QInputDialog>
#include <QLineEdit>
#include <QStatusBar>
#include <QTimer>

#include <sys/stat.h>

namespace {

// How long a copy must stay as it is before it is read.
constexpr int kCopySettleMs = 700;

QString lookAt(const QString& Path) {
    struct stat st;
    if (::stat(QFile::encodeName(Path).constData(), &st) != 0)
        return {};
    return QStringLiteral("%1/%2.%3/%4.%5/%6")
        .arg(st.st_size)
        .arg(st.st_mtim.tv_sec)
        .arg(st.st_mtim.tv_nsec)
        .arg(st.st_ctim.tv_sec)
        .arg(st.st_ctim.tv_nsec)
        .arg(st.st_ino);
}

} // namespace

bool frmMain::FileSettled(const QString& Path) {
    const QString look = lookAt(Path);
    const bool same = look.isEmpty() || look == m_fileLook;
    m_fileLook = look;
    return same;
}

void frmMain::MergeWaitingCopies() {
    TRACE_PROC("frmMain.MergeWaitingCopies");
    if (!UserLoaded() || m_locked)
        return;
    const QStringList copies = UserConflictCopies(CurUser);
    QStringList ready;
    bool settling = false;
    QHash<QString, QString> looks;
    for (const QString& c : copies) {
        const QString look = lookAt(c);
        looks.insert(c, look);
        if (look.isEmpty() || m_askedCopies.contains(c + u'|' + look))
            continue;
        if (m_copyLooks.value(c) != look)
            settling = true;
        else
            ready.append(c);
    }
    m_copyLooks = looks;
    if (settling)
        m_refreshTimer->start(kCopySettleMs);
    if (ready.isEmpty())
        return;
    // Saved at once unless the user saves by hand and has changes not saved yet: then the
    // copies are merged into what is open and move with the next save.
    int save = usUnchanged;
    const QList<clsCopyMerge> done =
        MergeCopiesOfOpenUser(ready, save, QString(), SaveAfterEveryChange() || !HasUnsavedChanges());
    ReportCopyMerges(done, save);
    for (const clsCopyMerge& m : done) {
        // A damaged copy is read again only once it changes.
        if (m.Result == ccDamaged || m.Result == ccUnreadable)
            m_askedCopies.insert(m.Copy + u'|' + looks.value(m.Copy));
        if (m.Result == ccWrongKey && UserLoaded())
            AskCopyPassword(m.Copy, looks.value(m.Copy));
    }
}

void frmMain::ReportCopyMerges(const QList<clsCopyMerge>& Done, int Save) {
    QStringList said;
    bool took = false;
    for (const clsCopyMerge& m : Done) {
        const QString line = DescribeCopyMerge(m);
        if (!line.isEmpty() && m.Result != ccWrongKey)
            said.append(line);
        took = took || m.Result == ccMerged;
    }
    if (took)
        RebuildTreeKeepingState();
    UpdateTitle();
    if (!said.isEmpty())
        sbStatusBar->showMessage(said.join(QStringLiteral("; ")), 15000);
    if (Save < 0)
        SettleSave(Save);
}

void frmMain::AskCopyPassword(const QString& Copy, const QString& Look) {
    TRACE_PROC("frmMain.AskCopyPassword", Copy);
    m_askedCopies.insert(Copy + u'|' + Look);
    QInputDialog ask(this);
    ask.setObjectName(QStringLiteral("dlgCopyPassword"));
    ask.setWindowTitle(Texts(448));
    ask.setLabelText(Texts(447).arg(QFileInfo(Copy).fileName()));
    ask.setTextEchoMode(QLineEdit::Password);
    ApplyDialogOnTop(&ask);
    const clsDatabase* db = CurUsDB.get();
    if (ShowModal(ask) != QDialog::Accepted || !SameUserOpen(db))
        return;
    QString typed = ask.textValue();
    ask.setTextValue(QString());
    QString md5 = HashString(typed);
    int save = usUnchanged;
    const QList<clsCopyMerge> done =
        MergeCopiesOfOpenUser({Copy}, save, GetTruePasw(md5), SaveAfterEveryChange() || !HasUnsavedChanges());
    WipeString(typed);
    WipeString(md5);
    if (!done.isEmpty() && done.first().Result == ccWrongKey) {
        sbStatusBar->showMessage(Texts(449).arg(QFileInfo(Copy).fileName()), 15000);
        return;
    }
    ReportCopyMerges(done, save);
}
