#include "records/frmEditFolder.h"

#include "app/VbConv.h"
#include "app/guiApplication.h"
#include "app/modLang.h"
#include "diagnostics/Trace.h"
#include "mainwindow/frmMain.h"
#include "records/RecordTree.h"
#include "records/guiLookControls.h"
#include "storage/clsDatabase.h"
#include "users/UserAccounts.h"

#include <QCheckBox>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QVBoxLayout>

frmEditFolder::frmEditFolder(frmMain* Main, const QString& RecordID)
    : QDialog(Main), RecordID(RecordID), m_main(Main) {
    TRACE_PROC("frmEditFolder.Form_Load", RecordID);
    setObjectName(QStringLiteral("frmEditFolder"));
    lblTitleCap = new QLabel;
    txtTitle = new QLineEdit;
    txtTitle->setObjectName(QStringLiteral("txtTitle"));
    lblTitleCap->setBuddy(txtTitle);
    Look = new LookControls(this);
    cmdSaveChanges = new QPushButton;
    cmdSaveChanges->setObjectName(QStringLiteral("cmdSaveChanges"));
    cmdSaveChanges->setDefault(true);
    cmdCancel = new QPushButton;
    cmdCancel->setObjectName(QStringLiteral("cmdCancel"));

    auto* grid = new QGridLayout;
    grid->addWidget(lblTitleCap, 0, 0);
    grid->addWidget(txtTitle, 0, 1);
    grid->addWidget(Look->lblIconCap, 1, 0, Qt::AlignTop);
    grid->addWidget(Look->imcIcons, 1, 1);
    auto* colorRow = new QHBoxLayout;
    colorRow->addWidget(Look->picColor);
    colorRow->addWidget(Look->cmdChangeCol);
    colorRow->addSpacing(16);
    colorRow->addWidget(Look->chkBold);
    colorRow->addStretch(1);
    grid->addWidget(Look->lblColorCap, 2, 0);
    grid->addLayout(colorRow, 2, 1);
    grid->setColumnStretch(1, 1);
    auto* buttons = new QHBoxLayout;
    buttons->addStretch(1);
    buttons->addWidget(cmdSaveChanges);
    buttons->addWidget(cmdCancel);
    auto* lay = new QVBoxLayout(this);
    lay->addLayout(grid);
    lay->addStretch(1);
    lay->addLayout(buttons);
    resize(520, 220);

    connect(cmdSaveChanges, &QPushButton::clicked, this, &frmEditFolder::cmdSaveChanges_Click);
    connect(cmdCancel, &QPushButton::clicked, this, &QDialog::reject);
    DoConfig();
    ShowFormLang();
    ApplyDialogOnTop(this);
}

void frmEditFolder::DoConfig() {
    TRACE_PROC("frmEditFolder.DoConfig");
    const int rec = FindDataRow(*CurUsDB, QString::number(static_cast<long long>(Val(RecordID))));
    if (rec <= 0)
        return;
    const int tbl = CurUsDB->FindTable(QStringLiteral("DataTable"));
    Look->LoadFromDb(*CurUsDB, tbl, rec);
    txtTitle->setText(CurUsDB->GetTblFldValNm(tbl, rec, QStringLiteral("Title")));
}

void frmEditFolder::ShowFormLang() {
    TRACE_PROC("frmEditFolder.ShowFormLang");
    setWindowTitle(Texts(201));
    lblTitleCap->setText(Texts(202));
    Look->ShowFormLang();
    cmdSaveChanges->setText(Texts(216));
    cmdCancel->setText(Texts(217));
}

void frmEditFolder::cmdSaveChanges_Click() {
    TRACE_PROC("frmEditFolder.cmdSaveChanges_Click");
    const QString id = QString::number(static_cast<long long>(Val(RecordID)));
    const int rec = FindDataRow(*CurUsDB, id);
    if (rec > 0) {
        const int tbl = CurUsDB->FindTable(QStringLiteral("DataTable"));
        CurUsDB->SetTblFldValNm(tbl, rec, QStringLiteral("Title"), txtTitle->text());
        Look->WriteToRow(*CurUsDB, tbl, rec);
        m_main->RefreshRowNode(id);
    }
    accept();
}
