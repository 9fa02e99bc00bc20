// The main window's commands: menus, tool bar, context menus and the tray's keys all
// lead here.

#include "mainwindow/frmMain.h"
#include "mainwindow/guiTreeModel.h"

#include "Version.h"

#include "app/MsgBox.h"
#include "app/ProgConfig.h"
#include "app/VbConv.h"
#include "app/guiApplication.h"
#include "app/guiSecretClipboard.h"
#include "app/modLang.h"
#include "app/modMain.h"
#include "diagnostics/Trace.h"
#include "mainwindow/frmAbout.h"
#include "options/frmOptions.h"
#include "records/RecordTree.h"
#include "storage/clsDatabase.h"
#include "tray/frmSysTray.h"
#include "tray/guiModTray.h"
#include "users/UserAccounts.h"
#include "users/frmAddUser.h"
#include "users/frmChangeUsPasw.h"
#include "users/frmSelectUser.h"

#include <QClipboard>
#include <QDesktopServices>
#include <QGuiApplication>
#include <QLabel>
#include <QStatusBar>
#include <QTextEdit>
#include <QTimer>
#include <QToolBar>
#include <QUrl>

namespace {
QString boolText(bool b) {
    return b ? QStringLiteral("True") : QStringLiteral("False");
}
} // namespace

bool frmMain::UserLoaded() const {
    return CurUsDB && CurUsDB->TabNum() != 0 && !CurUser.isEmpty();
}

// After a question: the database it was asked about is still the open one.
bool frmMain::SameUserOpen(const clsDatabase* Asked) const {
    return !m_locked && UserLoaded() && CurUsDB.get() == Asked;
}

// The node a tree command acts on: the drop-highlight node while it is still in the tree.
QModelIndex frmMain::CommandNode() const {
    if (!UserLoaded() || !m_dropHighlight.isValid() || !m_model->HasRoot())
        return {};
    return m_dropHighlight;
}

void frmMain::mnuFileSelectUser_Click() {
    TRACE_PROC("frmMain.mnuFileSelectUser_Click");
    frmSelectUser dlg(this);
    ShowModal(dlg);
}

void frmMain::mnuFileAddUser_Click() {
    TRACE_PROC("frmMain.mnuFileAddUser_Click");
    frmAddUser dlg(this);
    ShowModal(dlg);
}

void frmMain::mnuFileChangeUsPasw_Click() {
    TRACE_PROC("frmMain.mnuFileChangeUsPasw_Click");
    if (!UserLoaded())
        return;
    const clsDatabase* db = CurUsDB.get();
    if (MsgBox(Texts(22), vbYesNo | vbQuestion) != vbYes || !SameUserOpen(db))
        return;
    // What is open goes to the file under the old password first, changes made
    // elsewhere with it; the new password then applies to all of it.
    if (SaveCurUser() < 0)
        return;
    frmChangeUsPasw dlg(this);
    ShowModal(dlg);
    UpdateTitle();
}

void frmMain::mnuFileDelCurUser_Click() {
    TRACE_PROC("frmMain.mnuFileDelCurUser_Click");
    if (CurUser.isEmpty()) {
        MsgBox(Texts(6), vbInformation);
        return;
    }
    const clsDatabase* db = CurUsDB.get();
    const QString user = CurUser;
    if (MsgBox(Texts(11) + QStringLiteral(" \"") + user + u'"', vbYesNo | vbQuestion) != vbYes)
        return;
    // Still the user the question named, still open (the lock may have closed it).
    if (!SameUserOpen(db) || CurUser != user)
        return;
    if (DeleteUser(CurUser, CurUsDBPath) == usLockTimeout) {
        MsgBox(Texts(264), vbExclamation);
        return;
    }
    UnloadUser();
    ClearUsTree();
    ClearUsValue();
}

void frmMain::mnuFileSaveDB_Click() {
    TRACE_PROC("frmMain.mnuFileSaveDB_Click");
    if (!UserLoaded())
        return;
    if (SaveCurUser() >= 0)
        MsgBox(Texts(21), vbInformation);
}

void frmMain::mnuFileUnloadUser_Click() {
    TRACE_PROC("frmMain.mnuFileUnloadUser_Click");
    if (!UserLoaded())
        return;
    const clsDatabase* db = CurUsDB.get();
    if (MsgBox(Texts(139), vbOKCancel) != vbOK || !SameUserOpen(db))
        return;
    // Closing keeps what was changed: a user that cannot be saved stays open.
    if (SaveCurUser() < 0)
        return;
    UnloadUser();
}

void frmMain::mnuFileExit_Click() {
    TRACE_PROC("frmMain.mnuFileExit_Click");
    if (MsgBox(Texts(1), vbYesNo | vbQuestion) != vbYes || m_locked)
        return;
    CloseConfirmed = true;
    close();
}

void frmMain::mnuViewOnTop_Click() {
    TRACE_PROC("frmMain.mnuViewOnTop_Click");
    const bool on = mnuViewOnTop->isChecked();
    TRACE_LOCAL(on);
    ProgConfig[kCfgOnTop] = boolText(on);
    ApplyOnTop(on);
    SaveConfig(ProgCfgPath);
}

void frmMain::mnuViewStatusbar_Click() {
    TRACE_PROC("frmMain.mnuViewStatusbar_Click");
    const bool on = mnuViewStatusbar->isChecked();
    TRACE_LOCAL(on);
    ProgConfig[kCfgStatusbar] = boolText(on);
    sbStatusBar->setVisible(on);
    SaveConfig(ProgCfgPath);
}

void frmMain::mnuViewToolBar_Click() {
    TRACE_PROC("frmMain.mnuViewToolBar_Click");
    const bool on = mnuViewToolBar->isChecked();
    TRACE_LOCAL(on);
    ProgConfig[kCfgToolbar] = boolText(on);
    tlbToolbar->setVisible(on);
    SaveConfig(ProgCfgPath);
}

void frmMain::mnuToolsOptions_Click() {
    TRACE_PROC("frmMain.mnuToolsOptions_Click");
    frmOptions options(this);
    ShowModal(options);
    // The value pane may now hide the password, or show it again.
    RefreshValuePane();
}

void frmMain::mnuToolsClearClip_Click() {
    TRACE_PROC("frmMain.mnuToolsClearClip_Click");
    SecretClipboard::Instance().ClearIfOurs();
    QGuiApplication::clipboard()->clear();
}

void frmMain::mnuHelpContents_Click() {
    TRACE_PROC("frmMain.mnuHelpContents_Click");
    if (!QDesktopServices::openUrl(QUrl::fromLocalFile(ReadmePath(AppPath(), ProgConfig[kCfgLanguage]))))
        MsgBox(Texts(166), vbExclamation);
}

void frmMain::mnuHelpAskSupport_Click() {
    TRACE_PROC("frmMain.mnuHelpAskSupport_Click");
    if (!QDesktopServices::openUrl(QUrl(QStringLiteral("mailto:?subject=Argent%20Password%20Manager%20") +
                                        QStringLiteral(ARGENT_VERSION_TEXT))))
        MsgBox(Texts(167), vbExclamation);
}

void frmMain::mnuHelpAbout_Click() {
    TRACE_PROC("frmMain.mnuHelpAbout_Click");
    frmAbout about(this);
    ShowModal(about);
}

void frmMain::mnuContextTrvAddFolder_Click() {
    TRACE_PROC("frmMain.mnuContextTrvAddFolder_Click");
    const QModelIndex parent = CommandNode();
    if (!parent.isValid() || NodeTag(parent) == QStringLiteral("2"))
        return;
    const QString id = GetNewIndNum(*CurUsDB);
    TRACE_LOCAL(id);
    const QString title = QStringLiteral("Новая папка");
    TRACE_LOCAL(title);
    AddFolderToDB(title, NodeId(parent), id);
    // Sub-folders stand above the records, the newest first.
    TreeTableChanged();
    trvDatabase->expand(parent);
    const QPersistentModelIndex node = NodeByKey(id + QStringLiteral("key"));
    trvDatabase->setCurrentIndex(node);
    // A save that merges changes made elsewhere may renumber the new folder and builds
    // the tree anew: its name is then left as it is.
    if (AfterChange() == usMerged || !node.isValid() || NodeByKey(id + QStringLiteral("key")) != node)
        return;
    // The new folder's name is offered for editing at once.
    m_dropHighlight = node;
    mnuContextTrvRename_Click();
}

void frmMain::mnuContextTrvDelFolder_Click() {
    TRACE_PROC("frmMain.mnuContextTrvDelFolder_Click");
    QModelIndex node = CommandNode();
    if (!node.isValid() || IsRoot(node))
        return;
    const clsDatabase* db = CurUsDB.get();
    const QString id = QString::number(NodeId(node));
    if (MsgBox(Texts(17), vbYesNo | vbQuestion) != vbYes)
        return;
    // The row may have gone while the question was open (the lock, a change made
    // elsewhere and merged), and the tree may have been built anew.
    if (!SameUserOpen(db) || RowOf(id) <= 0 || !(node = NodeByKey(id + QStringLiteral("key"))).isValid())
        return;
    DelRecordTreeFromDataTable(QStringLiteral("IndNum"), id, QStringLiteral("Parent"));
    // The node goes with everything below it; the tree selects a neighbour.
    TreeTableChanged();
    m_dropHighlight = QModelIndex();
    trvDatabase_Click();
    AfterChange();
}

void frmMain::mnuContextTrvDelRec_Click() {
    TRACE_PROC("frmMain.mnuContextTrvDelRec_Click");
    mnuContextTrvDelFolder_Click();
}

void frmMain::mnuContextTrvRename_Click() {
    TRACE_PROC("frmMain.mnuContextTrvRename_Click");
    const QModelIndex node = CurrentNode();
    if (!UserLoaded() || !node.isValid() || IsRoot(node))
        return;
    m_editingLabel = true;
    trvDatabase->edit(node);
}

void frmMain::trvDatabase_AfterLabelEdit(const QModelIndex& Node, const QString& Title) {
    if (!m_editingLabel || !Node.isValid() || IsRoot(Node))
        return;
    TRACE_PROC("frmMain.trvDatabase_AfterLabelEdit", Title);
    m_editingLabel = false;
    const int id = NodeId(Node);
    ChangeDataTableField(QStringLiteral("IndNum"), QString::number(id), QStringLiteral("Title"), Title);
    m_model->RowChanged(id);
    if (id == m_curRecord)
        trvDatabase_Click();
    // Saved once the tree has finished with the edited node (a merge builds it anew).
    QTimer::singleShot(0, this, [this] { AfterChange(); });
}

void frmMain::mnuContextValCopy(const QString& FieldName) {
    TRACE_PROC("frmMain.mnuContextValCopy", FieldName);
    if (!UserLoaded() || m_curRecord == 0)
        return;
    const int rec = RowOf(QString::number(m_curRecord));
    TRACE_LOCAL(rec);
    if (rec <= 0)
        return;
    CopyRowField(rec, FieldName);
}

void frmMain::mnuContextTrvCopy(const QString& FieldName) {
    TRACE_PROC("frmMain.mnuContextTrvCopy", FieldName);
    const QModelIndex node = CommandNode();
    if (!node.isValid() || IsRoot(node) || NodeTag(node) != QStringLiteral("2"))
        return;
    const int rec = RowOf(QString::number(NodeId(node)));
    if (rec > 0)
        CopyRowField(rec, FieldName);
}

void frmMain::CopyRowField(int Rec, const QString& FieldName) {
    TRACE_PROC("frmMain.CopyRowField", Rec, FieldName);
    const int tbl = CurUsDB->FindTable(QStringLiteral("DataTable"));
    const QString value = CurUsDB->GetTblFldValNm(tbl, Rec, FieldName);
    if (FieldName == QLatin1String("Password"))
        SecretClipboard::Instance().CopySecret(value);
    else
        SecretClipboard::Instance().CopyPlain(value);
}

void frmMain::ShowClipCountdown(int SecondsLeft) {
    if (SecondsLeft > 0) {
        sbClipPanel->setText(Texts(282) + u' ' + QString::number(SecondsLeft) + u' ' + Texts(283));
        sbClipPanel->show();
    } else {
        sbClipPanel->clear();
        sbClipPanel->hide();
    }
}

void frmMain::mnuTrayShow_Click() {
    TRACE_PROC("frmMain.mnuTrayShow_Click");
    if (isMinimized())
        showNormal();
    else
        show();
    raise();
    activateWindow();
}

void frmMain::tlbToolbar_ButtonClick(QAction* Button) {
    TRACE_PROC("frmMain.tlbToolbar_ButtonClick");
    // The tree commands act on the selected node.
    if (Button == btnAddFolder || Button == btnDelFolder || Button == btnAddRec || Button == btnDelRec)
        m_dropHighlight = CurrentNode();
    if (Button == btnSelectUser)
        mnuFileSelectUser_Click();
    else if (Button == btnAddUser)
        mnuFileAddUser_Click();
    else if (Button == btnDelUser)
        mnuFileDelCurUser_Click();
    else if (Button == btnAddFolder)
        mnuContextTrvAddFolder_Click();
    else if (Button == btnDelFolder)
        mnuContextTrvDelFolder_Click();
    else if (Button == btnAddRec)
        mnuContextTrvAddRec_Click();
    else if (Button == btnDelRec)
        mnuContextTrvDelRec_Click();
    else if (Button == btnRename)
        mnuContextTrvRename_Click();
    else if (Button == btnFind)
        mnuToolsFind_Click();
}

void frmMain::m_frmSysTray_MenuClick(int lIndex, const QString& sKey) {
    TRACE_PROC("frmMain.m_frmSysTray_MenuClick", lIndex, sKey);
    if (sKey == QLatin1String("Show"))
        mnuTrayShow->trigger();
    else if (sKey == QLatin1String("GenPassword"))
        mnuTrayGenPasw->trigger();
    else if (sKey == QLatin1String("SaveDB"))
        mnuTraySaveDB->trigger();
    else if (sKey == QLatin1String("SelectUser"))
        mnuTraySelectUser->trigger();
    else if (sKey == QLatin1String("UnloadUser"))
        mnuTrayUnloadUser->trigger();
    else if (sKey == QLatin1String("Exit"))
        mnuTrayExit->trigger();
    else
        MsgBox(QStringLiteral("Clicked item with key ") + sKey);
}

void frmMain::MoveNode(const QModelIndex& Node, const QModelIndex& Target) {
    TRACE_PROC("frmMain.MoveNode");
    if (!UserLoaded() || !Node.isValid() || !Target.isValid() || IsRoot(Node) ||
        NodeTag(Target) == QStringLiteral("2"))
        return;
    // Not into itself, nor into one of its own folders, nor where it already is.
    for (QModelIndex p = Target; p.isValid(); p = p.parent()) {
        if (p == Node) {
            MsgBox(Texts(168), vbExclamation);
            return;
        }
    }
    if (Node.parent() == Target)
        return;
    // The row and its whole subtree go behind every other row, so that each row still
    // follows its folder however old the folder is.
    const QString id = QString::number(NodeId(Node));
    TRACE_LOCAL(id);
    const QPersistentModelIndex node = Node, target = Target;
    const int r = MoveRecordTree(*CurUsDB, id, QString::number(NodeId(Target)));
    if (r == -1)
        MsgBox(Texts(168), vbExclamation);
    if (r != 1) {
        TreeTableChanged();
        return;
    }
    // The same node, with its children and their expansion, under its new folder, where
    // opening the user again would show it: folders first in reverse table order, then
    // records in table order.
    m_model->MoveNode(node, target);
    trvDatabase->expand(target);
    trvDatabase->setCurrentIndex(NodeByKey(id + QStringLiteral("key")));
    RefreshStatusCounts();
    SaveCurUser();
}
