#include "users/frmSelectUser.h"

#include "app/MsgBox.h"
#include "app/ProgConfig.h"
#include "app/guiApplication.h"
#include "app/modLang.h"
#include "diagnostics/Trace.h"
#include "options/guiFolderChooser.h"
#include "users/UserAccounts.h"
#include "users/frmAddUser.h"
#include "users/frmPassword.h"
#include "users/guiOpenUser.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QVBoxLayout>

frmSelectUser::frmSelectUser(QWidget* parent) : QDialog(parent) {
    TRACE_PROC("frmSelectUser.Form_Load");
    setObjectName(QStringLiteral("frmSelectUser"));
    lblUsersCap = new QLabel;
    lstUsers = new QListWidget;
    lstUsers->setObjectName(QStringLiteral("lstUsers"));
    lblUsersCap->setBuddy(lstUsers);
    auto button = [](const char* name) {
        auto* b = new QPushButton;
        b->setObjectName(QString::fromLatin1(name));
        return b;
    };
    cmdChooseUser = button("cmdChooseUser");
    cmdChooseUser->setDefault(true);
    cmdAddUser = button("cmdAddUser");
    cmdDelUser = button("cmdDelUser");
    cmdChangePath = button("cmdChangePath");
    cmdExit = button("cmdExit");

    auto* side = new QVBoxLayout;
    side->addWidget(cmdChooseUser);
    side->addWidget(cmdAddUser);
    side->addWidget(cmdDelUser);
    side->addSpacing(12);
    side->addWidget(cmdChangePath);
    side->addStretch(1);
    side->addWidget(cmdExit);
    auto* left = new QVBoxLayout;
    left->addWidget(lblUsersCap);
    left->addWidget(lstUsers, 1);
    auto* lay = new QHBoxLayout(this);
    lay->addLayout(left, 1);
    lay->addLayout(side);
    resize(440, 300);

    connect(cmdChooseUser, &QPushButton::clicked, this, &frmSelectUser::cmdChooseUser_Click);
    connect(lstUsers, &QListWidget::itemDoubleClicked, this, &frmSelectUser::cmdChooseUser_Click);
    connect(cmdAddUser, &QPushButton::clicked, this, &frmSelectUser::cmdAddUser_Click);
    connect(cmdDelUser, &QPushButton::clicked, this, &frmSelectUser::cmdDelUser_Click);
    connect(cmdChangePath, &QPushButton::clicked, this, &frmSelectUser::cmdChangePath_Click);
    connect(cmdExit, &QPushButton::clicked, this, &QDialog::reject);
    ShowFormLang();
    LoadUsers();
    ApplyDialogOnTop(this);
}

void frmSelectUser::ShowFormLang() {
    TRACE_PROC("frmSelectUser.ShowFormLang");
    setWindowTitle(Texts(170));
    lblUsersCap->setText(Texts(171));
    lstUsers->setAccessibleName(QString(Texts(171)).remove(u'&'));
    cmdChooseUser->setText(Texts(172));
    cmdAddUser->setText(Texts(173));
    cmdDelUser->setText(Texts(174));
    cmdChangePath->setText(Texts(175));
    cmdExit->setText(Texts(176));
}

void frmSelectUser::LoadUsers() {
    TRACE_PROC("frmSelectUser.LoadUsers");
    StrMass users;
    FindUsers(ProgConfig[kCfgDBPath], users);
    lstUsers->clear();
    for (int i = 1; i <= users.UBound(); ++i)
        lstUsers->addItem(users[i]);
    if (lstUsers->count() > 0)
        lstUsers->setCurrentRow(0);
}

void frmSelectUser::cmdChooseUser_Click() {
    TRACE_PROC("frmSelectUser.cmdChooseUser_Click");
    QListWidgetItem* item = lstUsers->currentItem();
    if (!item || !item->isSelected()) {
        MsgBox(Texts(140), vbInformation);
        return;
    }
    const QString name = item->text();
    if (name == CurUser) {
        MsgBox(Texts(12), vbInformation);
        return;
    }
    if (AskUserPassword(this, name) != 3) {
        QString pasw = FrmPaswEnetered;
        FrmPaswEnetered.clear();
        // The open user is saved before the new one takes its place; one that cannot be
        // saved stays open.
        if (FrmPaswResult == 1 && SaveCurrentUserFirst())
            OpenUser(parentWidget(), name, pasw);
        WipeString(pasw);
        accept();
    }
}

void frmSelectUser::cmdAddUser_Click() {
    TRACE_PROC("frmSelectUser.cmdAddUser_Click");
    const QString before = CurUser;
    frmAddUser dlg(this);
    ShowModal(dlg);
    LoadUsers();
    // The new user was opened at once: the choice is made.
    if (CurUser != before)
        accept();
}

void frmSelectUser::cmdDelUser_Click() {
    TRACE_PROC("frmSelectUser.cmdDelUser_Click");
    QListWidgetItem* item = lstUsers->currentItem();
    if (!item || !item->isSelected()) {
        MsgBox(Texts(140), vbInformation);
        return;
    }
    const QString name = item->text();
    if (MsgBox(Texts(4) + QStringLiteral(" \"") + name + u'"', vbYesNo | vbQuestion, Texts(5)) != vbYes)
        return;
    // Still asked for: a list closed meanwhile (by the lock) deletes nothing.
    if (m_closed)
        return;
    if (DeleteUser(name, UsDBFilePath(name)) == usLockTimeout)
        MsgBox(Texts(264), vbExclamation);
    LoadUsers();
}

void frmSelectUser::cmdChangePath_Click() {
    TRACE_PROC("frmSelectUser.cmdChangePath_Click");
    if (MsgBox(Texts(177), vbYesNo | vbInformation) != vbYes || m_closed)
        return;
    ChaneDBPath(parentWidget());
    LoadUsers();
}

void frmSelectUser::done(int r) {
    m_closed = true;
    QDialog::done(r);
}
