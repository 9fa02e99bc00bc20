#include "users/frmAddUser.h"

#include "app/CheckedWrite.h"
#include "app/MsgBox.h"
#include "app/ProgConfig.h"
#include "app/guiApplication.h"
#include "app/modLang.h"
#include "diagnostics/Trace.h"
#include "storage/Md5.h"
#include "users/UserAccounts.h"
#include "users/UserName.h"
#include "users/guiOpenUser.h"
#include "users/guiStrengthMeter.h"

#include <QCheckBox>
#include <QFile>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

frmAddUser::frmAddUser(QWidget* parent) : QDialog(parent) {
    TRACE_PROC("frmAddUser.Form_Load");
    setObjectName(QStringLiteral("frmAddUser"));
    lblNameCap = new QLabel;
    lblPaswCap = new QLabel;
    lblConfirmCap = new QLabel;
    lblHint = new QLabel;
    lblHint->setWordWrap(true);
    txtNewUsName = new QLineEdit;
    txtNewUsName->setObjectName(QStringLiteral("txtNewUsName"));
    txtPasw = new QLineEdit;
    txtPasw->setObjectName(QStringLiteral("txtPasw"));
    txtConfirm = new QLineEdit;
    txtConfirm->setObjectName(QStringLiteral("txtConfirm"));
    for (QLineEdit* e : {txtPasw, txtConfirm})
        e->setEchoMode(QLineEdit::Password);
    lblNameCap->setBuddy(txtNewUsName);
    lblPaswCap->setBuddy(txtPasw);
    lblConfirmCap->setBuddy(txtConfirm);
    chkLoadAfterAdd = new QCheckBox;
    chkLoadAfterAdd->setObjectName(QStringLiteral("chkLoadAfterAdd"));
    chkLoadAfterAdd->setChecked(true);
    cmdAddUser = new QPushButton;
    cmdAddUser->setObjectName(QStringLiteral("cmdAddUser"));
    cmdAddUser->setDefault(true);
    cmdCancel = new QPushButton;
    cmdCancel->setObjectName(QStringLiteral("cmdCancel"));

    auto* grid = new QGridLayout;
    grid->addWidget(lblNameCap, 0, 0);
    grid->addWidget(txtNewUsName, 0, 1);
    grid->addWidget(lblPaswCap, 1, 0);
    grid->addWidget(txtPasw, 1, 1);
    grid->addWidget(lblConfirmCap, 3, 0);
    grid->addWidget(txtConfirm, 3, 1);
    ctlStrength = new StrengthMeter(txtPasw);
    // Under the new password, as wide as the form.
    grid->addWidget(ctlStrength, 2, 0, 1, 2);
    grid->addWidget(lblHint, 4, 1);
    grid->addWidget(chkLoadAfterAdd, 5, 0, 1, 2);
    grid->setColumnStretch(1, 1);
    auto* buttons = DialogButtonRow({cmdAddUser, cmdCancel});
    auto* lay = new QVBoxLayout(this);
    lay->addLayout(grid);
    lay->addLayout(buttons);
    setMinimumWidth(440);

    connect(cmdAddUser, &QPushButton::clicked, this, &frmAddUser::cmdAddUser_Click);
    connect(cmdCancel, &QPushButton::clicked, this, &QDialog::reject);
    connect(txtNewUsName, &QLineEdit::textChanged, this,
            [this](const QString& name) { ctlStrength->SetUserWords({name}); });
    // Enter in the confirmation field creates the user (the default button does).
    ShowFormLang();
    ApplyDialogOnTop(this);
}

void frmAddUser::ShowFormLang() {
    TRACE_PROC("frmAddUser.ShowFormLang");
    setWindowTitle(Texts(178));
    lblNameCap->setText(Texts(179));
    lblPaswCap->setText(Texts(180));
    lblConfirmCap->setText(Texts(181));
    lblHint->setText(Texts(182));
    chkLoadAfterAdd->setText(Texts(183));
    cmdAddUser->setText(Texts(184));
    cmdCancel->setText(Texts(185));
    ctlStrength->ShowFormLang();
}

void frmAddUser::cmdAddUser_Click() {
    TRACE_PROC("frmAddUser.cmdAddUser_Click");
    const QString name = txtNewUsName->text();
    if (name.isEmpty()) {
        MsgBox(Texts(6), vbCritical);
        return;
    }
    // The name becomes a file name in the databases folder: nothing that leaves it.
    if (const UserNameProblem p = CheckUserName(name); p != unpNone) {
        MsgBox(UserNameProblemText(p), vbCritical);
        return;
    }
    if (txtPasw->text() != txtConfirm->text()) {
        MsgBox(Texts(7), vbCritical);
        return;
    }
    const QString path = UsDBFilePath(name);
    if (const QString why = FolderWriteProblem(ProgConfig[kCfgDBPath]); !why.isEmpty()) {
        MsgBox(why, vbCritical);
        return;
    }
    if (EntryExists(path)) {
        MsgBox(Texts(3), vbCritical);
        return;
    }
    if (txtPasw->text().size() < 8) {
        MsgBox(Texts(8), vbCritical);
        return;
    }
    QString pasw = txtPasw->text();
    const QString md5 = HashString(pasw);
    AddUser(path, name, pasw);
    WipeString(pasw);
    txtPasw->clear();
    txtConfirm->clear();
    MsgBox(Texts(147), vbInformation);
    // The open user is saved before the new one takes its place; one that cannot be
    // saved stays open, and the new user waits in the list.
    if (chkLoadAfterAdd->isChecked() && SaveCurrentUserFirst()) {
        UnloadUser();
        OpenUser(parentWidget(), name, md5);
    }
    accept();
}
