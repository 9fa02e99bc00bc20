#include "records/frmAddRecord.h"

#include "app/guiApplication.h"
#include "app/modLang.h"
#include "diagnostics/Trace.h"
#include "mainwindow/frmMain.h"
#include "records/RecordTree.h"
#include "records/frmPaswGenerator.h"
#include "storage/clsDatabase.h"
#include "users/UserAccounts.h"

#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QVBoxLayout>

frmAddRecord::frmAddRecord(frmMain* Main, const QString& ParentID)
    : QDialog(Main), ParentID(ParentID), m_main(Main) {
    TRACE_PROC("frmAddRecord.Form_Load", ParentID);
    setObjectName(QStringLiteral("frmAddRecord"));
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
    cmdGenerate = new QPushButton;
    cmdGenerate->setObjectName(QStringLiteral("cmdGenerate"));
    cmdGenerate->setAutoDefault(false);
    cmdOk = new QPushButton;
    cmdOk->setObjectName(QStringLiteral("cmdOk"));
    cmdOk->setDefault(true);
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
    grid->setColumnStretch(1, 1);
    auto* buttons = new QHBoxLayout;
    buttons->addStretch(1);
    buttons->addWidget(cmdOk);
    buttons->addWidget(cmdCancel);
    auto* lay = new QVBoxLayout(this);
    lay->addLayout(grid);
    lay->addLayout(buttons);
    resize(460, 320);

    connect(cmdGenerate, &QPushButton::clicked, this, &frmAddRecord::cmdGenerate_Click);
    connect(cmdOk, &QPushButton::clicked, this, &frmAddRecord::cmdOk_Click);
    connect(cmdCancel, &QPushButton::clicked, this, &QDialog::reject);
    ShowFormLang();
    ApplyDialogOnTop(this);
}

void frmAddRecord::ShowFormLang() {
    TRACE_PROC("frmAddRecord.ShowFormLang");
    setWindowTitle(Texts(199));
    lblTitleCap->setText(Texts(202));
    lblLoginCap->setText(Texts(203));
    lblPaswCap->setText(Texts(204));
    lblDescCap->setText(Texts(205));
    cmdGenerate->setText(Texts(206));
    cmdOk->setText(Texts(215));
    cmdCancel->setText(Texts(217));
}

void frmAddRecord::cmdGenerate_Click() {
    TRACE_PROC("frmAddRecord.cmdGenerate_Click");
    const QString pasw = RunPaswGenerator(this);
    if (!pasw.isEmpty())
        txtPasw->setText(pasw);
}

void frmAddRecord::cmdOk_Click() {
    TRACE_PROC("frmAddRecord.cmdOk_Click");
    const QString id = AddRecordToDB(*CurUsDB, ParentID, txtTitle->text(), txtLogin->text(), txtPasw->text(),
                                     txtDesc->toPlainText());
    if (QTreeWidgetItem* node = m_main->InsertRowNode(id))
        m_main->trvDatabase->setCurrentItem(node);
    accept();
}
