#include "records/frmEditFolder.h"

#include "app/VbConv.h"
#include "app/guiApplication.h"
#include "app/modLang.h"
#include "diagnostics/Trace.h"
#include "records/IRecordView.h"
#include "records/RecordTree.h"
#include "records/guiLookControls.h"
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

frmEditFolder::frmEditFolder(QWidget* Parent, const QString& RecordID) : QDialog(Parent), RecordID(RecordID) {
    TRACE_PROC("frmEditFolder.Form_Load", RecordID);
    setObjectName(QStringLiteral("frmEditFolder"));
    lblTitleCap = new QLabel;
    txtTitle = new QLineEdit;
    txtTitle->setObjectName(QStringLiteral("txtTitle"));
    lblTitleCap->setBuddy(txtTitle);
    Look = new LookControls(this);
    lblDescCap = new QLabel;
    txtDesc = new QPlainTextEdit;
    txtDesc->setObjectName(QStringLiteral("txtDesc"));
    txtDesc->setTabChangesFocus(true);
    lblDescCap->setBuddy(txtDesc);
    cmdSaveChanges = new QPushButton;
    cmdSaveChanges->setObjectName(QStringLiteral("cmdSaveChanges"));
    cmdSaveChanges->setDefault(true);
    cmdCancel = new QPushButton;
    cmdCancel->setObjectName(QStringLiteral("cmdCancel"));

    auto* grid = new QGridLayout;
    grid->addWidget(lblTitleCap, 0, 0);
    grid->addWidget(txtTitle, 0, 1);
    Look->AddTo(grid, 1, 1);
    grid->addWidget(lblDescCap, 2, 0, Qt::AlignTop);
    grid->addWidget(txtDesc, 2, 1);
    grid->setColumnStretch(1, 1);
    grid->setRowStretch(2, 1);
    auto* buttons = DialogButtonRow({cmdSaveChanges, cmdCancel});
    auto* lay = new QVBoxLayout(this);
    lay->addLayout(grid, 1);
    lay->addLayout(buttons);
    resize(520, 340);

    connect(cmdSaveChanges, &QPushButton::clicked, this, &frmEditFolder::cmdSaveChanges_Click);
    connect(cmdCancel, &QPushButton::clicked, this, &QDialog::reject);
    DoConfig();
    ShowFormLang();
    ApplyDialogOnTop(this);
}

void frmEditFolder::DoConfig() {
    TRACE_PROC("frmEditFolder.DoConfig");
    int tbl = 0;
    const int rec = EditorRow(RecordID, tbl);
    if (rec <= 0)
        return;
    Look->LoadFromDb(*CurUsDB, tbl, rec);
    txtTitle->setText(CurUsDB->GetTblFldValNm(tbl, rec, QStringLiteral("Title")));
    txtDesc->setPlainText(CurUsDB->GetTblFldValNm(tbl, rec, QStringLiteral("Description")));
}

void frmEditFolder::ShowFormLang() {
    TRACE_PROC("frmEditFolder.ShowFormLang");
    setWindowTitle(Texts(201));
    lblTitleCap->setText(Texts(202));
    lblDescCap->setText(Texts(205));
    Look->ShowFormLang();
    cmdSaveChanges->setText(Texts(216));
    cmdCancel->setText(Texts(217));
}

void frmEditFolder::cmdSaveChanges_Click() {
    TRACE_PROC("frmEditFolder.cmdSaveChanges_Click");
    int tbl = 0;
    const int rec = EditorRow(RecordID, tbl);
    if (rec > 0) {
        CurUsDB->SetTblFldValNm(tbl, rec, QStringLiteral("Title"), txtTitle->text());
        Look->WriteToRow(*CurUsDB, tbl, rec);
        CurUsDB->SetTblFldValNm(tbl, rec, QStringLiteral("Description"), txtDesc->toPlainText());
        if (IRecordView* view = RecordView())
            view->RefreshRowNode(CurUsDB->GetTblFldValNm(tbl, rec, QStringLiteral("IndNum")));
    }
    accept();
}
