#include "users/frmPassword.h"

#include "app/MsgBox.h"
#include "app/guiApplication.h"
#include "app/modLang.h"
#include "diagnostics/Globals.h"
#include "diagnostics/Trace.h"
#include "storage/Md5.h"
#include "users/UserAccounts.h"

#include <QCloseEvent>
#include <QFile>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSignalBlocker>
#include <QVBoxLayout>

bool FrmPaswShown = false;

namespace {
const bool g_registered = [] {
    argent::diag::registerGlobal("FrmPaswShown", &FrmPaswShown);
    return true;
}();
} // namespace

frmPassword::frmPassword(QWidget* parent) : QDialog(parent) {
    TRACE_PROC("frmPassword.Form_Load");
    setObjectName(QStringLiteral("frmPassword"));
    lblPrompt = new QLabel;
    lblUserName = new QLabel;
    lblUserName->setObjectName(QStringLiteral("lblUserName"));
    QFont bold = lblUserName->font();
    bold.setBold(true);
    lblUserName->setFont(bold);
    lblPasswordCap = new QLabel;
    txtPassword = new QLineEdit;
    txtPassword->setObjectName(QStringLiteral("txtPassword"));
    txtPassword->setEchoMode(QLineEdit::Password);
    lblPasswordCap->setBuddy(txtPassword);
    lblSamplePassword = new QLabel;
    lblSamplePassword->setObjectName(QStringLiteral("lblSamplePassword"));
    lblSamplePassword->setTextInteractionFlags(Qt::TextSelectableByMouse);
    cmdOk = new QPushButton;
    cmdOk->setObjectName(QStringLiteral("cmdOk"));
    cmdOk->setDefault(true);
    cmdCancel = new QPushButton;
    cmdCancel->setObjectName(QStringLiteral("cmdCancel"));

    auto* grid = new QGridLayout;
    grid->addWidget(lblPrompt, 0, 0, 1, 2);
    grid->addWidget(lblUserName, 1, 0, 1, 2);
    grid->addWidget(lblPasswordCap, 2, 0);
    grid->addWidget(txtPassword, 2, 1);
    grid->addWidget(lblSamplePassword, 3, 0, 1, 2);
    grid->setColumnStretch(1, 1);
    auto* buttons = DialogButtonRow({cmdOk, cmdCancel});
    auto* lay = new QVBoxLayout(this);
    lay->addLayout(grid);
    lay->addLayout(buttons);
    setMinimumWidth(360);

    connect(cmdOk, &QPushButton::clicked, this, &frmPassword::cmdOk_Click);
    connect(cmdCancel, &QPushButton::clicked, this, &frmPassword::cmdCancel_Click);
    connect(txtPassword, &QLineEdit::textChanged, this, &frmPassword::txtPassword_Change);
    ShowFormLang();
    ApplyDialogOnTop(this);
    FrmPaswShown = true;
}

frmPassword::~frmPassword() {
    FrmPaswShown = false;
    // Nothing of the typed password stays in the widget's memory (quietly: the result
    // in FrmPaswEnetered is for the opener).
    const QSignalBlocker quiet(txtPassword);
    txtPassword->clear();
}

void frmPassword::ShowFormLang() {
    TRACE_PROC("frmPassword.ShowFormLang");
    setWindowTitle(Texts(186));
    lblPrompt->setText(Texts(187));
    lblPasswordCap->setText(Texts(188));
    lblSamplePassword->setText(Texts(189));
    cmdOk->setText(Texts(190));
    cmdCancel->setText(Texts(191));
}

void frmPassword::showEvent(QShowEvent* e) {
    TRACE_PROC("frmPassword.Form_Activate");
    lblSamplePassword->setVisible(lblUserName->text() == QStringLiteral("SampleUser"));
    txtPassword->setFocus();
    QDialog::showEvent(e);
}

void frmPassword::txtPassword_Change() {
    TRACE_PROC("frmPassword.txtPassword_Change");
    FrmPaswEnetered = txtPassword->text();
}

void frmPassword::cmdOk_Click() {
    TRACE_PROC("frmPassword.cmdOk_Click");
    const QString file = UsDBFilePath(lblUserName->text());
    if (!QFile::exists(file)) {
        MsgBox(Texts(131), vbCritical);
        FrmPaswResult = 2;
        return;
    }
    FrmPaswEnetered = HashString(txtPassword->text());
    FrmPaswResult = TestUsPasw(file, FrmPaswEnetered);
    if (FrmPaswResult == 2) {
        MsgBox(Texts(9), vbCritical);
        txtPassword->selectAll();
        txtPassword->setFocus();
        return;
    }
    accept();
}

void frmPassword::cmdCancel_Click() {
    TRACE_PROC("frmPassword.cmdCancel_Click");
    reject();
}

void frmPassword::reject() {
    TRACE_PROC("frmPassword.Form_Unload");
    FrmPaswResult = 3;
    FrmPaswEnetered.clear();
    QDialog::reject();
}

void frmPassword::closeEvent(QCloseEvent* e) {
    FrmPaswResult = 3;
    FrmPaswEnetered.clear();
    QDialog::closeEvent(e);
}

int AskUserPassword(QWidget* Owner, const QString& UsName) {
    TRACE_PROC("frmPassword.AskUserPassword", UsName);
    FrmPaswResult = 3;
    frmPassword dlg(Owner);
    dlg.lblUserName->setText(UsName);
    ShowModal(dlg);
    return FrmPaswResult;
}
