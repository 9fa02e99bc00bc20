#include "secrets/guiSecretsPage.h"

#include "app/ProgConfig.h"
#include "app/modLang.h"
#include "secrets/SecretAccess.h"
#include "secrets/guiSecretQuestion.h"
#include "users/UserAccounts.h"

#include <QCheckBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QVBoxLayout>

guiSecretsPage::guiSecretsPage(QWidget* parent) : QWidget(parent) {
    setObjectName(QStringLiteral("pageSecretService"));
    m_user = !CurUser.isEmpty()                    ? CurUser
             : ProgConfig.UBound() >= kCfgLastUser ? ProgConfig[kCfgLastUser]
                                                   : QString();
    chkServe = new QCheckBox(Texts(471), this);
    chkServe->setObjectName(QStringLiteral("chkServe"));
    chkServe->setChecked(SecretServiceOn());
    lblState = new QLabel(this);
    lblState->setObjectName(QStringLiteral("lblState"));
    lblState->setWordWrap(true);
    lblAlwaysCap = new QLabel(Texts(475).arg(m_user), this);
    lstAlways = new QListWidget(this);
    lstAlways->setObjectName(QStringLiteral("lstAlways"));
    lstAlways->setAccessibleName(Texts(485));
    lblAlwaysCap->setBuddy(lstAlways);
    lstAlways->addItems(AlwaysAllowed(m_user));
    cmdWithdraw = new QPushButton(Texts(476), this);
    cmdWithdraw->setObjectName(QStringLiteral("cmdWithdraw"));
    auto* lay = new QVBoxLayout(this);
    lay->addWidget(chkServe);
    lay->addWidget(lblState);
    lay->addWidget(lblAlwaysCap);
    lay->addWidget(lstAlways, 1);
    auto* row = new QHBoxLayout;
    row->addStretch(1);
    row->addWidget(cmdWithdraw);
    lay->addLayout(row);
    connect(chkServe, &QCheckBox::toggled, this, &guiSecretsPage::chkServe_Click);
    connect(cmdWithdraw, &QPushButton::clicked, this, &guiSecretsPage::cmdWithdraw_Click);
    if (SecretService* p = SecretProvider())
        connect(p, &SecretService::StateChanged, this, &guiSecretsPage::ShowState);
    ShowState();
}

void guiSecretsPage::chkServe_Click() {
    SetSecretServiceOn(chkServe->isChecked());
    if (SecretService* p = SecretProvider()) {
        if (chkServe->isChecked())
            p->Start();
        else
            p->Stop();
    }
    ShowState();
}

void guiSecretsPage::cmdWithdraw_Click() {
    const auto items = lstAlways->selectedItems();
    for (QListWidgetItem* it : items) {
        SetAlwaysAllowed(m_user, it->text(), false);
        delete it;
    }
}

void guiSecretsPage::ShowState() {
    SecretService* p = SecretProvider();
    if (!chkServe->isChecked())
        lblState->setText(Texts(474));
    else if (p && p->Running())
        lblState->setText(Texts(472));
    else if (p && !p->Owner().isEmpty())
        lblState->setText(Texts(473).arg(p->Owner()));
    else
        lblState->setText(Texts(484).arg(p ? p->Reason() : QString()));
    cmdWithdraw->setEnabled(lstAlways->count() > 0);
}
