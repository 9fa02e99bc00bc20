#include "users/frmChangeUsPasw.h"

#include "app/MsgBox.h"
#include "app/guiApplication.h"
#include "app/modLang.h"
#include "diagnostics/Trace.h"
#include "users/UserAccounts.h"
#include "users/guiStrengthMeter.h"

#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

frmChangeUsPasw::frmChangeUsPasw(QWidget* parent) : QDialog(parent) {
    TRACE_PROC("frmChangeUsPasw.Form_Load");
    setObjectName(QStringLiteral("frmChangeUsPasw"));
    lblUserCap = new QLabel;
    lblUserName = new QLabel(CurUser);
    lblUserName->setObjectName(QStringLiteral("lblUserName"));
    QFont bold = lblUserName->font();
    bold.setBold(true);
    lblUserName->setFont(bold);
    lblPaswCap = new QLabel;
    lblConfirmCap = new QLabel;
    lblHint = new QLabel;
    lblHint->setWordWrap(true);
    txtPassword = new QLineEdit;
    txtPassword->setObjectName(QStringLiteral("txtPassword"));
    txtConfirm = new QLineEdit;
    txtConfirm->setObjectName(QStringLiteral("txtConfirm"));
    for (QLineEdit* e : {txtPassword, txtConfirm})
        e->setEchoMode(QLineEdit::Password);
    lblPaswCap->setBuddy(txtPassword);
    lblConfirmCap->setBuddy(txtConfirm);
    cmdOk = new QPushButton;
    cmdOk->setObjectName(QStringLiteral("cmdOk"));
    cmdOk->setDefault(true);
    cmdCancel = new QPushButton;
    cmdCancel->setObjectName(QStringLiteral("cmdCancel"));

    auto* grid = new QGridLayout;
    grid->addWidget(lblUserCap, 0, 0);
    grid->addWidget(lblUserName, 0, 1);
    grid->addWidget(lblPaswCap, 1, 0);
    grid->addWidget(txtPassword, 1, 1);
    grid->addWidget(lblConfirmCap, 3, 0);
    grid->addWidget(txtConfirm, 3, 1);
    ctlStrength = new StrengthMeter(txtPassword);
    ctlStrength->SetUserWords({CurUser});
    // Under the new password, as wide as the form.
    grid->addWidget(ctlStrength, 2, 0, 1, 2);
    grid->addWidget(lblHint, 4, 1);
    grid->setColumnStretch(1, 1);
    auto* buttons = DialogButtonRow({cmdOk, cmdCancel});
    auto* lay = new QVBoxLayout(this);
    lay->addLayout(grid);
    lay->addLayout(buttons);
    setMinimumWidth(440);

    connect(cmdOk, &QPushButton::clicked, this, &frmChangeUsPasw::cmdOk_Click);
    connect(cmdCancel, &QPushButton::clicked, this, &QDialog::reject);
    ShowFormLang();
    ApplyDialogOnTop(this);
}

void frmChangeUsPasw::ShowFormLang() {
    TRACE_PROC("frmChangeUsPasw.ShowFormLang");
    setWindowTitle(Texts(192));
    lblUserCap->setText(Texts(193));
    lblPaswCap->setText(Texts(194));
    lblConfirmCap->setText(Texts(195));
    lblHint->setText(Texts(196));
    cmdOk->setText(Texts(197));
    cmdCancel->setText(Texts(198));
    ctlStrength->ShowFormLang();
}

void frmChangeUsPasw::cmdOk_Click() {
    TRACE_PROC("frmChangeUsPasw.cmdOk_Click");
    if (txtPassword->text().size() < 8) {
        MsgBox(Texts(8), vbCritical);
        return;
    }
    if (txtPassword->text() != txtConfirm->text()) {
        MsgBox(Texts(7), vbCritical);
        return;
    }
    QString pasw = txtPassword->text();
    ChangeUsPasw(pasw);
    WipeString(pasw);
    txtPassword->clear();
    txtConfirm->clear();
    MsgBox(Texts(23), vbInformation);
    accept();
}
