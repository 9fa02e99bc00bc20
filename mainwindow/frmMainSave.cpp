// The main window's saving: the one place where the outcomes of the user session's
// saves and refreshes are presented, the save after every change, the unsaved-changes mark in the title, and
// the end of the session.

#include "mainwindow/frmMain.h"
#include "mainwindow/guiTreeModel.h"

#include "app/MsgBox.h"
#include "app/ProgConfig.h"
#include "app/guiApplication.h"
#include "app/modLang.h"
#include "diagnostics/DbgPrint.h"
#include "diagnostics/Trace.h"
#include "storage/clsDatabase.h"
#include "users/UserAccounts.h"
#include "users/UserSession.h"
#include "users/frmPassword.h"

#include <QApplication>
#include <QDialog>
#include <QFileInfo>
#include <QFileSystemWatcher>
#include <QLabel>
#include <QLineEdit>
#include <QScrollBar>
#include <QSet>
#include <QStatusBar>
#include <QTimer>

bool frmMain::SaveAfterEveryChange() {
    return CfgExtra(kCfgSaveOnChange, QStringLiteral("1")) != QStringLiteral("0");
}

int frmMain::SaveCurUser() {
    TRACE_PROC("frmMain.SaveCurUser");
    if (!UserLoaded())
        return usNothingToSave;
    const int r = SettleSave(UsSession().Save());
    UpdateTitle();
    return r;
}

// What the window does with the result of a save (or of taking in the file): the result
// it ends with.
int frmMain::SettleSave(int Result) {
    TRACE_PROC("frmMain.SettleSave", Result);
    const clsDatabase* db = CurUsDB.get();
    switch (Result) {
    case usMerged:
        ShowFileTakenIn(Texts(263));
        break;
    case usWriteFailed:
        MsgBox(Texts(247), vbCritical);
        break;
    case usLockTimeout:
        MsgBox(Texts(264), vbExclamation);
        break;
    case usKeyChanged:
        return SaveWithFileKey();
    case usDamaged:
        return SettleDamagedFile();
    case usOlderFile:
        return SettleOlderFile();
    case usFileDeleted:
        if (MsgBox(Texts(267), vbYesNo | vbQuestion) == vbYes && SameUserOpen(db))
            return SettleSave(UsSession().SaveRecreate());
        m_toldFileState = usFileDeleted;
        break;
    default:
        break;
    }
    return Result;
}

// The file's password was changed elsewhere: nothing is written until the user gives
// the file's current password, which then becomes the open user's.
int frmMain::SaveWithFileKey() {
    TRACE_PROC("frmMain.SaveWithFileKey");
    const clsDatabase* db = CurUsDB.get();
    MsgBox(Texts(265), vbExclamation);
    if (!SameUserOpen(db))
        return usKeyChanged;
    frmPassword dlg(this);
    dlg.lblUserName->setText(CurUser);
    FrmPaswResult = 3;
    ShowModal(dlg);
    QString typed = dlg.txtPassword->text();
    int r = usKeyChanged;
    if (FrmPaswResult == 1 && SameUserOpen(db)) {
        r = UsSession().SaveWithPassword(typed);
    }
    WipeString(typed);
    FrmPaswEnetered.clear();
    if (r == usKeyChanged) {
        // Cancelled: what is open stays, unsaved, and the title says so; watching the
        // file does not ask again until it changes once more.
        m_toldFileState = usKeyChanged;
        MsgBox(Texts(266), vbInformation);
        return r;
    }
    return SettleSave(r);
}

void frmMain::ShowFileTakenIn(const QString& Message) {
    RebuildTreeKeepingState();
    if (CurUsDB)
        SplitTablesBehind(CurUsDB->DBView());
    sbStatusBar->showMessage(Message, 10000);
}

int frmMain::AfterChange() {
    TRACE_PROC("frmMain.AfterChange");
    int r = 0;
    if (UserLoaded() && SaveAfterEveryChange())
        r = SaveCurUser();
    UpdateTitle();
    return r;
}

bool frmMain::HasUnsavedChanges() const {
    return UserLoaded() && CurUsDB->HasUnsavedChanges();
}

void frmMain::UpdateTitle() {
    const QString title = Texts(158) + (HasUnsavedChanges() ? QStringLiteral(" *") : QString());
    if (windowTitle() != title)
        setWindowTitle(title);
}

// While a user is open the window watches the databases folder (a save replaces the
// file, so a watch on the file alone would end with the first save elsewhere) and the
// file itself (a writer that changes it in place).
void frmMain::SyncWatch() {
    const QString file = UserLoaded() && !m_locked ? CurUsDBPath : QString();
    const QString folder = file.isEmpty() ? QString() : QFileInfo(file).absolutePath();
    const QStringList dirs = m_watch->directories();
    if (dirs.value(0) != folder || dirs.size() > 1) {
        if (!dirs.isEmpty())
            m_watch->removePaths(dirs);
        if (!folder.isEmpty())
            m_watch->addPath(folder);
    }
    const QStringList files = m_watch->files();
    if (files.value(0) != file || files.size() > 1) {
        if (!files.isEmpty())
            m_watch->removePaths(files);
    }
    if (!file.isEmpty() && m_watch->files().isEmpty() && QFileInfo::exists(file))
        m_watch->addPath(file);
}

void frmMain::RefreshFromFile() {
    TRACE_PROC("frmMain.RefreshFromFile");
    if (!UserLoaded() || m_locked || m_refreshing)
        return;
    // Not under an open dialog or an edit of a label: once they are done.
    if (QApplication::activeModalWidget() || QApplication::activePopupWidget() || m_editingLabel ||
        trvDatabase->Dragging()) {
        m_refreshTimer->start(500);
        return;
    }
    // A file a sync engine is still writing in place is not read: two looks a moment apart
    // must agree (frmMainSync.cpp).
    if (!FileSettled(CurUsDBPath)) {
        m_refreshTimer->start(400);
        return;
    }
    m_refreshing = true;
    const int r = UsSession().Refresh();
    switch (r) {
    case 1:
        ShowFileTakenIn(Texts(268));
        UpdateTitle();
        break;
    case usLockTimeout:
        // Another writer is busy: look again shortly.
        m_refreshTimer->start(1000);
        break;
    case usKeyChanged:
    case usFileDeleted:
    case usDamaged:
    case usOlderFile:
        // Asked once for each time it happens.
        if (m_toldFileState != r) {
            m_toldFileState = r;
            SettleSave(r);
        }
        break;
    case 0:
        m_toldFileState = 0;
        break;
    default:
        DbgPrint(QStringLiteral("The user's file changed elsewhere but cannot be read: ") + CurUsDBPath);
        break;
    }
    if (r == usSaved || r == 0)
        m_toldFileState = 0;
    // A sync engine's conflict copy comes with the same events (frmMainSync.cpp).
    if (r >= 0)
        MergeWaitingCopies();
    m_refreshing = false;
    SyncWatch();
}

void frmMain::RebuildTreeKeepingState() {
    TRACE_PROC("frmMain.RebuildTreeKeepingState");
    if (!UserLoaded() || !m_model->HasRoot())
        return;
    QList<int> expanded;
    bool rootExpanded = false;
    for (const QModelIndex& n : m_model->CreatedNodes()) {
        if (!trvDatabase->isExpanded(n))
            continue;
        if (IsRoot(n))
            rootExpanded = true;
        else
            expanded.append(NodeId(n));
    }
    const QModelIndex cur = CurrentNode();
    const bool onRoot = !cur.isValid() || IsRoot(cur);
    const int curId = onRoot ? 0 : NodeId(cur);
    const int scroll = trvDatabase->verticalScrollBar()->value();

    ShowUsDBInTreeView(*CurUsDB);
    for (int id : expanded)
        if (const QModelIndex n = NodeByKey(QString::number(id) + QStringLiteral("key")); n.isValid())
            trvDatabase->expand(n);
    trvDatabase->setExpanded(m_model->RootIndex(), rootExpanded);
    // A selected row that is gone leaves the root selected.
    QModelIndex sel = onRoot ? QModelIndex() : NodeByKey(QString::number(curId) + QStringLiteral("key"));
    if (!sel.isValid())
        sel = m_model->RootIndex();
    trvDatabase->setCurrentIndex(sel);
    trvDatabase_Click();
    trvDatabase->verticalScrollBar()->setValue(scroll);
}

void frmMain::CloseDialogs() {
    // A dialog closed this way answers No or Cancel; the code behind it asks nothing more
    // until every closed dialog has returned.
    CloseModals(false);
}

void frmMain::EndSession(int Signal) {
    TRACE_PROC("frmMain.EndSession", Signal);
    if (m_ending) {
        // Asked to end again while the first attempt could neither save nor keep a copy:
        // the changes stay unsaved, the old file whole.
        DbgPrint(QStringLiteral("End of session: ended without saving"));
        QCoreApplication::exit(1);
        return;
    }
    m_ending = true;
    // Every question closes, declined, and no new one opens: the session is ending.
    CloseModals(true);
    // As Exit does, without its question.
    CloseConfirmed = true;
    bool ended = Form_Unload();
    if (!ended) {
        // Not saved (the password changed elsewhere, a full disk): what is open goes into a
        // sealed copy that the window offers when this user opens next.
        bool unsaved = false;
        const QString copy = UsSession().KeepUnsavedCopy(&unsaved);
        ended = !copy.isEmpty() || !unsaved;
        if (ended) {
            UsSession().DropKept();
            FinishUnload();
        }
    }
    if (ended) {
        m_unloaded = true;
        close();
        // Every event loop ends, the main one too, even one that has not started yet
        // (a signal during the first password prompt).
        auto* ender = new QTimer(qApp);
        connect(ender, &QTimer::timeout, qApp, [] { QCoreApplication::exit(0); });
        ender->start(50);
        QCoreApplication::exit(0);
        return;
    }
    // Nothing could be written anywhere: the window stays with the changes open.
    ReopenModals();
    CloseConfirmed = false;
    m_ending = false;
}

void frmMain::CommitSessionData() {
    TRACE_PROC("frmMain.CommitSessionData");
    // The desktop session is ending: keep everything, but leave the window to the
    // session manager. The user's records first: a settings file that cannot be written
    // (a full disk) must not cost them.
    if (HasUnsavedChanges())
        SaveCurUser();
    if (!isMinimized())
        SaveGUIConf();
    SaveConfig(ProgCfgPath);
}
