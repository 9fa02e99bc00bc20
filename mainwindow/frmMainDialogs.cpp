// The main window's commands that open the record, search, generator, restore and
// portable-copy dialogs.

#include "mainwindow/frmMain.h"
#include "mainwindow/guiTreeModel.h"

#include "app/CheckedWrite.h"
#include "app/MsgBox.h"
#include "app/guiApplication.h"
#include "app/modLang.h"
#include "diagnostics/Trace.h"
#include "maintenance/RemovableInstall.h"
#include "maintenance/frmRestore.h"
#include "options/guiFolderChooser.h"
#include "records/frmAddRecord.h"
#include "records/frmEditFolder.h"
#include "records/frmEditRecord.h"
#include "records/frmExport.h"
#include "records/frmFind.h"
#include "records/frmImport.h"
#include "records/frmPasswordHealth.h"
#include "records/frmPaswGenerator.h"
#include "users/UserAccounts.h"

#include <QCoreApplication>
#include <QProgressDialog>

void frmMain::mnuToolsFind_Click() {
    TRACE_PROC("frmMain.mnuToolsFind_Click");
    if (!UserLoaded())
        return;
    frmFind dlg(this);
    ShowModal(dlg);
}

void frmMain::mnuToolsGenerator_Click() {
    TRACE_PROC("frmMain.mnuToolsGenerator_Click");
    RunPaswGenerator(this);
}

void frmMain::mnuToolsHealth_Click() {
    TRACE_PROC("frmMain.mnuToolsHealth_Click");
    if (UserLoaded())
        RunPasswordHealth(this);
}

void frmMain::mnuContextTrvAddRec_Click() {
    TRACE_PROC("frmMain.mnuContextTrvAddRec_Click");
    const QModelIndex folder = CommandNode();
    if (!folder.isValid() || NodeTag(folder) == QStringLiteral("2"))
        return;
    frmAddRecord dlg(this, QString::number(NodeId(folder)));
    if (ShowModal(dlg) == QDialog::Accepted)
        AfterChange();
}

void frmMain::mnuContextTrvEdit_Click() {
    TRACE_PROC("frmMain.mnuContextTrvEdit_Click");
    const QModelIndex node = CurrentNode();
    if (!UserLoaded() || !node.isValid() || IsRoot(node))
        return;
    const QString id = QString::number(NodeId(node));
    TRACE_LOCAL(id);
    if (NodeTag(node) == QStringLiteral("2")) {
        frmEditRecord dlg(this, id);
        if (ShowModal(dlg) == QDialog::Accepted)
            AfterChange();
    } else {
        frmEditFolder dlg(this, id);
        if (ShowModal(dlg) == QDialog::Accepted)
            AfterChange();
    }
}

void frmMain::mnuFileBackup_Click() {
    TRACE_PROC("frmMain.mnuFileBackup_Click");
    frmRestore dlg(this);
    ShowModal(dlg);
}

void frmMain::mnuToolsFlash_Click() {
    TRACE_PROC("frmMain.mnuToolsFlash_Click");
    QString target;
    if (!dlgBrowseFolder(this, target, QStringLiteral("Choose removable device"), true, true))
        return;
    if (const QString why = FolderWriteProblem(target); !why.isEmpty()) {
        MsgBox(why, vbExclamation);
        return;
    }
    // Copying a large databases folder takes a while: show how far it has got.
    QProgressDialog progress(this);
    progress.setObjectName(QStringLiteral("dlgFlashProgress"));
    progress.setWindowTitle(Texts(164));
    progress.setCancelButton(nullptr);
    progress.setMinimumDuration(300);
    progress.setWindowModality(Qt::WindowModal);
    InstallToRemovableDevice(target, [&progress](int Done, int Total, const QString& Item) {
        progress.setMaximum(Total);
        progress.setValue(Done);
        progress.setLabelText(Texts(165) + Item);
        QCoreApplication::processEvents(QEventLoop::ExcludeUserInputEvents);
    });
    progress.close();
    MsgBox(Texts(132), vbInformation);
}

// The folder that import and export start from: the selected one, a record's folder, or
// the root.
static QModelIndex chosenFolder(QModelIndex Node, const QModelIndex& Root) {
    if (Node.isValid() && frmMain::NodeTag(Node) == QStringLiteral("2"))
        Node = Node.parent();
    return Node.isValid() ? Node : Root;
}

void frmMain::mnuFileImport_Click() {
    TRACE_PROC("frmMain.mnuFileImport_Click");
    if (!UserLoaded())
        return;
    const QModelIndex folder = chosenFolder(CurrentNode(), NodeByKey(QStringLiteral("0key")));
    if (!folder.isValid())
        return;
    frmImport dlg(this, QString::number(NodeId(folder)), folder.data().toString());
    ShowModal(dlg);
}

void frmMain::mnuFileExport_Click() {
    TRACE_PROC("frmMain.mnuFileExport_Click");
    if (!UserLoaded())
        return;
    const QModelIndex folder = chosenFolder(CurrentNode(), NodeByKey(QStringLiteral("0key")));
    frmExport dlg(this, folder.isValid() ? QString::number(NodeId(folder)) : QStringLiteral("0"),
                  folder.isValid() ? folder.data().toString() : QString());
    ShowModal(dlg);
}
