#include "records/frmEditRecord.h"

#include "app/VbConv.h"
#include "app/guiApplication.h"
#include "app/modLang.h"
#include "diagnostics/Trace.h"
#include "records/IRecordView.h"
#include "records/RecordTree.h"
#include "records/guiLookControls.h"
#include "records/guiRecordExtras.h"
#include "records/guiRecordFields.h"
#include "storage/clsDatabase.h"
#include "users/UserAccounts.h"

#include <QCheckBox>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QVBoxLayout>

frmEditRecord::frmEditRecord(QWidget* Parent, const QString& RecordID) : QDialog(Parent), RecordID(RecordID) {
    TRACE_PROC("frmEditRecord.Form_Load", RecordID);
    setObjectName(QStringLiteral("frmEditRecord"));
    Fields = new RecordFields(this);
    Extras = new RecordExtrasPanel(this, Fields->txtPasw, true);
    Look = new LookControls(this);
    cmdSaveChanges = new QPushButton;
    cmdSaveChanges->setObjectName(QStringLiteral("cmdSaveChanges"));
    cmdSaveChanges->setDefault(true);
    cmdCancel = new QPushButton;
    cmdCancel->setObjectName(QStringLiteral("cmdCancel"));

    auto* grid = new QGridLayout;
    const int row = Extras->AddTo(grid, Fields->AddTo(grid, 0));
    Look->AddTo(grid, row, 2);
    auto* buttons = DialogButtonRow({cmdSaveChanges, cmdCancel});
    auto* lay = new QVBoxLayout(this);
    lay->addLayout(grid);
    lay->addLayout(buttons);
    resize(560, 640);

    connect(cmdSaveChanges, &QPushButton::clicked, this, &frmEditRecord::cmdSaveChanges_Click);
    connect(cmdCancel, &QPushButton::clicked, this, &QDialog::reject);
    DoConfig();
    ShowFormLang();
    ApplyDialogOnTop(this);
}

void frmEditRecord::DoConfig() {
    TRACE_PROC("frmEditRecord.DoConfig");
    int tbl = 0;
    const int rec = EditorRow(RecordID, tbl);
    if (rec <= 0)
        return;
    Look->LoadFromDb(*CurUsDB, tbl, rec);
    Fields->LoadFromRow(*CurUsDB, tbl, rec);
    Extras->Load(
        ReadRecExtras(CurUsDB->DBView(), CurUsDB->GetTblFldValNm(tbl, rec, QStringLiteral("IndNum"))));
}

void frmEditRecord::ShowFormLang() {
    TRACE_PROC("frmEditRecord.ShowFormLang");
    setWindowTitle(Texts(200));
    Fields->ShowFormLang();
    Extras->ShowFormLang();
    Look->ShowFormLang();
    cmdSaveChanges->setText(Texts(216));
    cmdCancel->setText(Texts(217));
}

void frmEditRecord::cmdSaveChanges_Click() {
    TRACE_PROC("frmEditRecord.cmdSaveChanges_Click");
    int tbl = 0;
    const int rec = EditorRow(RecordID, tbl);
    RecExtras extras;
    if (rec > 0 && !Extras->Collect(extras))
        return; // the seed gives no codes: the editor stays open
    if (rec > 0) {
        Fields->WriteToRow(*CurUsDB, tbl, rec);
        WriteRecExtras(*CurUsDB, CurUsDB->GetTblFldValNm(tbl, rec, QStringLiteral("IndNum")), extras);
        Look->WriteToRow(*CurUsDB, tbl, rec);
        if (IRecordView* view = RecordView())
            view->RefreshRowNode(CurUsDB->GetTblFldValNm(tbl, rec, QStringLiteral("IndNum")));
    }
    accept();
}
