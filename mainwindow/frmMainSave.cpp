// The main window's saving: the one path every save of the window takes, the save
// after every change, the unsaved-changes mark in the title, and the end of the session.

#include "mainwindow/frmMain.h"

#include "app/MsgBox.h"
#include "app/ProgConfig.h"
#include "app/modLang.h"
#include "diagnostics/DbgPrint.h"
#include "diagnostics/Trace.h"
#include "storage/clsDatabase.h"
#include "users/UserAccounts.h"

#include <QApplication>
#include <QDialog>
#include <QScrollBar>
#include <QSet>
#include <QTimer>

bool frmMain::SaveAfterEveryChange() {
    return CfgExtra(22, QStringLiteral("1")) != QStringLiteral("0");
}

int frmMain::SaveCurUser() {
    TRACE_PROC("frmMain.SaveCurUser");
    if (!UserLoaded())
        return tbeNothingToSave;
    const int r = SaveUsDB(CurUsDB, GetTruePasw(CurUsPasw));
    if (r >= 0)
        MarkSaved();
    else if (r != tbeNothingToSave)
        MsgBox(Texts(247), vbCritical);
    UpdateTitle();
    return r;
}

void frmMain::AfterChange() {
    TRACE_PROC("frmMain.AfterChange");
    if (UserLoaded() && SaveAfterEveryChange())
        SaveCurUser();
    UpdateTitle();
}

// What the file holds is what memory held at the last load or save.
void frmMain::MarkSaved() {
    m_savedDb = CurUsDB.get();
    m_savedTables.clear();
    if (CurUsDB)
        for (const TableEntry& t : CurUsDB->DBView().Tables)
            m_savedTables.append({t.Tag, t.Records});
}

bool frmMain::HasUnsavedChanges() const {
    if (!UserLoaded())
        return false;
    if (m_savedDb != CurUsDB.get())
        return true;
    const QList<TableEntry>& tables = CurUsDB->DBView().Tables;
    if (tables.size() != m_savedTables.size())
        return true;
    for (qsizetype i = 0; i < tables.size(); ++i)
        if (tables[i].Tag != m_savedTables[i].first || tables[i].Records != m_savedTables[i].second)
            return true;
    return false;
}

void frmMain::UpdateTitle() {
    const QString title = Texts(158) + (HasUnsavedChanges() ? QStringLiteral(" *") : QString());
    if (windowTitle() != title)
        setWindowTitle(title);
}

void frmMain::RebuildTreeKeepingState() {
    TRACE_PROC("frmMain.RebuildTreeKeepingState");
    if (!UserLoaded() || !m_root)
        return;
    QSet<int> expanded;
    for (auto it = m_nodeById.cbegin(); it != m_nodeById.cend(); ++it)
        if (it.value()->isExpanded())
            expanded.insert(it.key());
    const bool rootExpanded = m_root->isExpanded();
    QTreeWidgetItem* cur = trvDatabase->currentItem();
    const bool onRoot = !cur || cur == m_root;
    const int curId = onRoot ? 0 : NodeId(cur);
    const int scroll = trvDatabase->verticalScrollBar()->value();

    ShowUsDBInTreeView(*CurUsDB);
    for (int id : expanded)
        if (QTreeWidgetItem* n = m_nodeById.value(id))
            n->setExpanded(true);
    m_root->setExpanded(rootExpanded);
    // A selected row that is gone leaves the root selected.
    QTreeWidgetItem* sel = onRoot ? m_root : m_nodeById.value(curId, m_root);
    trvDatabase->setCurrentItem(sel);
    trvDatabase_Click();
    trvDatabase->verticalScrollBar()->setValue(scroll);
}

void frmMain::CloseDialogs() {
    // A dialog closed this way answers No or Cancel.
    for (QWidget* w : QApplication::topLevelWidgets()) {
        if (auto* d = qobject_cast<QDialog*>(w); d && d->isVisible())
            d->done(QDialog::Rejected);
    }
}

void frmMain::EndSession(int Signal) {
    TRACE_PROC("frmMain.EndSession", Signal);
    if (m_ending) {
        // Asked to end again while the first attempt could not save: the changes stay
        // unsaved, the old file whole.
        DbgPrint(QStringLiteral("End of session: ended without saving"));
        QCoreApplication::exit(1);
        return;
    }
    m_ending = true;
    CloseDialogs();
    // As Exit does, without its question.
    CloseConfirmed = true;
    if (Form_Unload()) {
        m_unloaded = true;
        close();
        QCoreApplication::quit();
        return;
    }
    CloseConfirmed = false;
    m_ending = false;
}

void frmMain::CommitSessionData() {
    TRACE_PROC("frmMain.CommitSessionData");
    // The desktop session is ending: keep everything, but leave the window to the
    // session manager.
    if (!isMinimized())
        SaveGUIConf();
    SaveConfig(ProgCfgPath);
    if (HasUnsavedChanges())
        SaveCurUser();
}
