#include "records/frmEditRecord.h"

#include "app/VbConv.h"
#include "app/guiApplication.h"
#include "app/modLang.h"
#include "diagnostics/Trace.h"
#include "mainwindow/frmMain.h"
#include "records/RecordTree.h"
#include "records/frmPaswGenerator.h"
#include "records/guiLookControls.h"
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

frmEditRecord::frmEditRecord(frmMain* Main, const QString& RecordID)
    : QDialog(Main), RecordID(RecordID), m_main(Main) {
    TRACE_PROC("frmEditRecord.Form_Load", RecordID);
    setObjectName(QStringLiteral("frmEditRecord"));
    lblTitleCap = new QLabel;
    lblLoginCap = new QLabel;
    lblPaswCap = new QLabel;
    lblDescCap = new QLabel;
    txtTitle = new QLineEdit;
    txtTitle->setObjectName(QStringLiteral("txtTitle"));
    txtLogin = new QLineEdit;
    txtLogin->setObjectName(QStringLiteral("txtLogin"));
    txtPasw = new QLineEdit;
    txtPasw->setObjectName(QStringLiteral("txtPasw"));
    txtDesc = new QPlainTextEdit;
    txtDesc->setObjectName(QStringLiteral("txtDesc"));
    txtDesc->setTabChangesFocus(true);
    lblTitleCap->setBuddy(txtTitle);
    lblLoginCap->setBuddy(txtLogin);
    lblPaswCap->setBuddy(txtPasw);
    lblDescCap->setBuddy(txtDesc);
    Look = new LookControls(this);
    cmdGenerate = new QPushButton;
    cmdGenerate->setObjectName(QStringLiteral("cmdGenerate"));
    cmdGenerate->setAutoDefault(false);
    cmdSaveChanges = new QPushButton;
    cmdSaveChanges->setObjectName(QStringLiteral("cmdSaveChanges"));
    cmdSaveChanges->setDefault(true);
    cmdCancel = new QPushButton;
    cmdCancel->setObjectName(QStringLiteral("cmdCancel"));

    auto* grid = new QGridLayout;
    grid->addWidget(lblTitleCap, 0, 0);
    grid->addWidget(txtTitle, 0, 1, 1, 2);
    grid->addWidget(lblLoginCap, 1, 0);
    grid->addWidget(txtLogin, 1, 1, 1, 2);
    grid->addWidget(lblPaswCap, 2, 0);
    grid->addWidget(txtPasw, 2, 1);
    grid->addWidget(cmdGenerate, 2, 2);
    grid->addWidget(lblDescCap, 3, 0, Qt::AlignTop);
    grid->addWidget(txtDesc, 3, 1, 1, 2);
    grid->addWidget(Look->lblIconCap, 4, 0, Qt::AlignTop);
    grid->addWidget(Look->imcIcons, 4, 1, 1, 2);
    auto* colorRow = new QHBoxLayout;
    colorRow->addWidget(Look->picColor);
    colorRow->addWidget(Look->cmdChangeCol);
    colorRow->addSpacing(16);
    colorRow->addWidget(Look->chkBold);
    colorRow->addStretch(1);
    grid->addWidget(Look->lblColorCap, 5, 0);
    grid->addLayout(colorRow, 5, 1, 1, 2);
    grid->setColumnStretch(1, 1);
    auto* buttons = new QHBoxLayout;
    buttons->addStretch(1);
    buttons->addWidget(cmdSaveChanges);
    buttons->addWidget(cmdCancel);
    auto* lay = new QVBoxLayout(this);
    lay->addLayout(grid);
    lay->addLayout(buttons);
    resize(520, 460);

    connect(cmdGenerate, &QPushButton::clicked, this, &frmEditRecord::cmdGenerate_Click);
    connect(cmdSaveChanges, &QPushButton::clicked, this, &frmEditRecord::cmdSaveChanges_Click);
    connect(cmdCancel, &QPushButton::clicked, this, &QDialog::reject);
    DoConfig();
    ShowFormLang();
    ApplyDialogOnTop(this);
}

void frmEditRecord::DoConfig() {
    TRACE_PROC("frmEditRecord.DoConfig");
    const int rec = FindDataRow(*CurUsDB, QString::number(static_cast<long long>(Val(RecordID))));
    if (rec <= 0)
        return;
    const int tbl = CurUsDB->FindTable(QStringLiteral("DataTable"));
    Look->LoadFromRow(CurUsDB->GetTblFldValNm(tbl, rec, QStringLiteral("Image")),
                      CurUsDB->GetTblFldValNm(tbl, rec, QStringLiteral("Flags")));
    txtTitle->setText(CurUsDB->GetTblFldValNm(tbl, rec, QStringLiteral("Title")));
    txtLogin->setText(CurUsDB->GetTblFldValNm(tbl, rec, QStringLiteral("Login")));
    txtPasw->setText(CurUsDB->GetTblFldValNm(tbl, rec, QStringLiteral("Password")));
    txtDesc->setPlainText(CurUsDB->GetTblFldValNm(tbl, rec, QStringLiteral("Description")));
}

void frmEditRecord::ShowFormLang() {
    TRACE_PROC("frmEditRecord.ShowFormLang");
    setWindowTitle(Texts(200));
    lblTitleCap->setText(Texts(202));
    lblLoginCap->setText(Texts(203));
    lblPaswCap->setText(Texts(204));
    lblDescCap->setText(Texts(205));
    cmdGenerate->setText(Texts(206));
    Look->ShowFormLang();
    cmdSaveChanges->setText(Texts(216));
    cmdCancel->setText(Texts(217));
}

void frmEditRecord::cmdGenerate_Click() {
    TRACE_PROC("frmEditRecord.cmdGenerate_Click");
    const QString pasw = RunPaswGenerator(this);
    if (!pasw.isEmpty())
        txtPasw->setText(pasw);
}

void frmEditRecord::cmdSaveChanges_Click() {
    TRACE_PROC("frmEditRecord.cmdSaveChanges_Click");
    const QString id = QString::number(static_cast<long long>(Val(RecordID)));
    const int rec = FindDataRow(*CurUsDB, id);
    if (rec > 0) {
        const int tbl = CurUsDB->FindTable(QStringLiteral("DataTable"));
        CurUsDB->SetTblFldValNm(tbl, rec, QStringLiteral("Title"), txtTitle->text());
        CurUsDB->SetTblFldValNm(tbl, rec, QStringLiteral("Login"), txtLogin->text());
        CurUsDB->SetTblFldValNm(tbl, rec, QStringLiteral("Password"), txtPasw->text());
        CurUsDB->SetTblFldValNm(tbl, rec, QStringLiteral("Description"), txtDesc->toPlainText());
        CurUsDB->SetTblFldValNm(tbl, rec, QStringLiteral("Image"), Look->ImageValue());
        CurUsDB->SetTblFldValNm(tbl, rec, QStringLiteral("Flags"), Look->FlagsValue());
        m_main->RefreshRowNode(id);
    }
    accept();
}
