#include "maintenance/frmRestore.h"

#include "app/MsgBox.h"
#include "app/guiApplication.h"
#include "app/modLang.h"
#include "diagnostics/Trace.h"
#include "maintenance/RestoreBackup.h"
#include "users/UserAccounts.h"
#include "users/frmPassword.h"
#include "users/guiOpenUser.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QVBoxLayout>

frmRestore::frmRestore(QWidget* parent) : QDialog(parent) {
    TRACE_PROC("frmRestore.Form_Load");
    setObjectName(QStringLiteral("frmRestore"));
    lblListCap = new QLabel;
    lstRestorDBs = new QListWidget;
    lstRestorDBs->setObjectName(QStringLiteral("lstRestorDBs"));
    lblListCap->setBuddy(lstRestorDBs);
    auto button = [](const char* name) {
        auto* b = new QPushButton;
        b->setObjectName(QString::fromLatin1(name));
        return b;
    };
    cmdRestore = button("cmdRestore");
    cmdRestore->setDefault(true);
    cmdDelete = button("cmdDelete");
    cmdRefresh = button("cmdRefresh");
    cmdBack = button("cmdBack");

    auto* side = new QVBoxLayout;
    side->addWidget(cmdRestore);
    side->addWidget(cmdDelete);
    side->addWidget(cmdRefresh);
    side->addStretch(1);
    side->addWidget(cmdBack);
    auto* left = new QVBoxLayout;
    left->addWidget(lblListCap);
    left->addWidget(lstRestorDBs, 1);
    auto* lay = new QHBoxLayout(this);
    lay->addLayout(left, 1);
    lay->addLayout(side);
    resize(560, 320);

    connect(cmdRestore, &QPushButton::clicked, this, &frmRestore::cmdRestore_Click);
    connect(lstRestorDBs, &QListWidget::itemDoubleClicked, this, &frmRestore::cmdRestore_Click);
    connect(cmdDelete, &QPushButton::clicked, this, &frmRestore::cmdDelete_Click);
    connect(cmdRefresh, &QPushButton::clicked, this, &frmRestore::ListDBs);
    connect(cmdBack, &QPushButton::clicked, this, &QDialog::reject);
    ShowFormLang();
    ListDBs();
    ApplyDialogOnTop(this);
}

void frmRestore::ShowFormLang() {
    TRACE_PROC("frmRestore.ShowFormLang");
    setWindowTitle(Texts(218));
    lblListCap->setText(Texts(219));
    lstRestorDBs->setAccessibleName(QString(Texts(219)).remove(u'&'));
    cmdRestore->setText(Texts(220));
    cmdDelete->setText(Texts(221));
    cmdRefresh->setText(Texts(144));
    cmdBack->setText(Texts(222));
}

void frmRestore::ListDBs() {
    TRACE_PROC("frmRestore.ListDBsForRestore");
    lstRestorDBs->clear();
    const QStringList items = ListDBsForRestore(BackupFolderPath());
    for (const QString& item : items)
        if (m_onlyUser.isEmpty() || BackupUserFromItem(item) == m_onlyUser)
            lstRestorDBs->addItem(item);
}

void frmRestore::ShowUserCopies(const QString& UsName) {
    TRACE_PROC("frmRestore.ShowUserCopies", UsName);
    m_onlyUser = UsName;
    ListDBs();
}

QString frmRestore::SelectedItem() {
    QListWidgetItem* item = lstRestorDBs->currentItem();
    if (!item || !item->isSelected()) {
        MsgBox(Texts(225), vbInformation);
        return QString();
    }
    return item->text();
}

void frmRestore::cmdRestore_Click() {
    TRACE_PROC("frmRestore.cmdRestore_Click");
    const QString item = SelectedItem();
    TRACE_LOCAL(item);
    if (item.isEmpty() || MsgBox(Texts(223), vbYesNo | vbQuestion) != vbYes)
        return;
    // Still asked for: a dialog closed meanwhile (by the lock) restores nothing.
    if (m_closed)
        return;
    const QString user = BackupUserFromItem(item);
    TRACE_LOCAL(user);
    // Another user's copy takes the place of the open user, who is saved first; the open
    // user's own copy is meant to replace what is open.
    if (user != CurUser && !SaveCurrentUserFirst())
        return;
    const int restored = RestoreDBFromBackup(item);
    TRACE_LOCAL(restored);
    // The user's file is unchanged after either failure: say why nothing happened.
    if (restored == -1)
        MsgBox(Texts(247), vbExclamation);
    else if (restored == -6)
        MsgBox(Texts(264), vbExclamation);
    else if (restored == -4)
        MsgBox(Texts(260) + QStringLiteral(" \"") + user + u'"', vbExclamation);
    if (restored == 1 && AskUserPassword(this, user) == 1) {
        // Another user's copy, or one made under an older password: its password opens it.
        QString pasw = FrmPaswEnetered;
        TRACE_LOCAL_HIDDEN(pasw);
        FrmPaswEnetered.clear();
        OpenUser(this, user, pasw);
        WipeString(pasw);
    }
    ListDBs();
}

void frmRestore::cmdDelete_Click() {
    TRACE_PROC("frmRestore.cmdDelete_Click");
    const QString item = SelectedItem();
    TRACE_LOCAL(item);
    if (item.isEmpty() || MsgBox(Texts(224), vbYesNo | vbQuestion) != vbYes || m_closed)
        return;
    DeleteBackup(item);
    ListDBs();
}

void frmRestore::done(int r) {
    m_closed = true;
    QDialog::done(r);
}
