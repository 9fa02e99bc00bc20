// The main window's commands that open the record, search, generator, restore and
// portable-copy dialogs.

#include "mainwindow/frmMain.h"

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
#include "records/frmFind.h"
#include "records/frmPaswGenerator.h"
#include "users/UserAccounts.h"

#include <QCoreApplication>
#include <QProgressDialog>

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

void frmMain::mnuContextTrvAddRec_Click() {
    TRACE_PROC("frmMain.mnuContextTrvAddRec_Click");
    QTreeWidgetItem* folder = CommandNode();
    if (!folder || NodeTag(folder) == QStringLiteral("2"))
        return;
    frmAddRecord dlg(this, QString::number(NodeId(folder)));
    ShowModal(dlg);
}

void frmMain::mnuContextTrvEdit_Click() {
    TRACE_PROC("frmMain.mnuContextTrvEdit_Click");
    QTreeWidgetItem* node = trvDatabase->currentItem();
    if (!UserLoaded() || !node || node == NodeByKey(QStringLiteral("0key")))
        return;
    const QString id = QString::number(NodeId(node));
    TRACE_LOCAL(id);
    if (NodeTag(node) == QStringLiteral("2")) {
        frmEditRecord dlg(this, id);
        ShowModal(dlg);
    } else {
        frmEditFolder dlg(this, id);
        ShowModal(dlg);
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
