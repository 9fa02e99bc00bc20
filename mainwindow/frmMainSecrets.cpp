// The main window's part in the desktop's secret storage: it makes the provider, hands it
// the window's password question, lock, save and view, and the question before a read.

#include "app/ProgConfig.h"
#include "mainwindow/frmMain.h"
#include "secrets/SecretAccess.h"
#include "secrets/guiSecretQuestion.h"
#include "users/UserAccounts.h"
#include "users/frmPassword.h"
#include "users/guiOpenUser.h"

#include <QDBusConnection>
#include <QPointer>
#include <QTimer>

namespace {

// The unlock a client asked for, once no password question is showing (the one of the
// start, say): the answer given there may have unlocked already.
void UnlockWhenFree(QPointer<frmMain> Window, std::function<void(bool)> Done) {
    if (!Window)
        return Done(false);
    if (FrmPaswShown) {
        QTimer::singleShot(200, Window, [Window, Done] { UnlockWhenFree(Window, Done); });
        return;
    }
    Done(Window->UnlockForClient());
}

} // namespace

void frmMain::StartSecretService() {
    if (SecretProvider())
        return;
    QPointer<frmMain> self(this);
    SecretHooks hooks;
    hooks.Unlock = [self](std::function<void(bool)> Done) {
        // Out of the bus call first: the question waits for the user.
        QTimer::singleShot(0, self, [self, Done] { UnlockWhenFree(self, Done); });
    };
    hooks.Lock = [self] {
        if (self)
            self->LockNow();
    };
    hooks.Changed = [self] {
        if (!self || self->m_locked || !self->UserLoaded())
            return;
        self->RebuildTreeKeepingState();
        self->SaveCurUser();
    };
    hooks.AskRead = [self](const SecretReadAsk& Ask, std::function<void(int)> Done) {
        return AskSecretRead(self, Ask, std::move(Done));
    };
    auto* provider = new SecretService(QDBusConnection::sessionBus(), std::move(hooks), this);
    SetSecretProvider(provider);
    if (SecretServiceOn())
        provider->Start();
}

bool frmMain::UnlockForClient() {
    if (FrmPaswShown)
        return !m_locked && UserLoaded();
    if (m_locked) {
        mnuTrayShow_Click();
        Form_Paint();
        return !m_locked && UserLoaded();
    }
    if (UserLoaded())
        return true;
    // No user open: the password question of the last user, as at start.
    const QString user = ProgConfig[kCfgLastUser];
    if (user.isEmpty())
        return false;
    mnuTrayShow_Click();
    if (AskUserPassword(this, user) == 1) {
        QString pasw = FrmPaswEnetered;
        FrmPaswEnetered.clear();
        OpenUser(this, user, pasw);
        WipeString(pasw);
    }
    SetCommandStates();
    return UserLoaded();
}
