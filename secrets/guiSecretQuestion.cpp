#include "secrets/guiSecretQuestion.h"

#include "app/guiApplication.h"
#include "app/modLang.h"
#include "secrets/SecretAccess.h"

#include <QDialog>
#include <QFileInfo>
#include <QLabel>
#include <QPointer>
#include <QPushButton>
#include <QVBoxLayout>

namespace {

QPointer<SecretService> g_provider;

QString ProgramText(const QString& Exe) {
    if (Exe.isEmpty())
        return Texts(483);
    return QStringLiteral("%1 (%2)").arg(QFileInfo(Exe).fileName(), Exe);
}

} // namespace

SecretService* SecretProvider() {
    return g_provider.data();
}

void SetSecretProvider(SecretService* Provider) {
    g_provider = Provider;
}

std::function<void()> AskSecretRead(QWidget* Owner, const SecretReadAsk& Ask, std::function<void(int)> Done) {
    auto* dlg = new QDialog(Owner);
    dlg->setObjectName(QStringLiteral("frmSecretQuestion"));
    dlg->setAttribute(Qt::WA_DeleteOnClose);
    dlg->setWindowTitle(Texts(477));
    dlg->setWindowModality(Qt::ApplicationModal);
    const QString owner = Ask.Owner.isEmpty() ? Texts(479) : ProgramText(Ask.Owner);
    auto* text = new QLabel(
        Texts(Ask.Change ? 486 : 478).arg(ProgramText(Ask.Reader), Ask.Title, owner, Ask.User), dlg);
    text->setObjectName(QStringLiteral("lblQuestion"));
    text->setWordWrap(true);
    text->setTextFormat(Qt::PlainText);
    text->setTextInteractionFlags(Qt::TextSelectableByMouse);
    auto* once = new QPushButton(Texts(480), dlg);
    auto* always = new QPushButton(Texts(481), dlg);
    auto* deny = new QPushButton(Texts(482), dlg);
    once->setObjectName(QStringLiteral("cmdAllowOnce"));
    always->setObjectName(QStringLiteral("cmdAllowAlways"));
    deny->setObjectName(QStringLiteral("cmdDeny"));
    // Enter denies too: an answer given by reflex must not give a secret away.
    for (QPushButton* b : {once, always})
        b->setAutoDefault(false);
    deny->setDefault(true);
    deny->setFocus();
    auto* lay = new QVBoxLayout(dlg);
    lay->addWidget(text);
    lay->addLayout(DialogButtonRow({once, always, deny}));
    auto answered = std::make_shared<bool>(false);
    const auto answer = [dlg, answered, Done](int A) {
        if (*answered)
            return;
        *answered = true;
        dlg->close();
        Done(A);
    };
    QObject::connect(once, &QPushButton::clicked, dlg, [answer] { answer(saAllowOnce); });
    QObject::connect(always, &QPushButton::clicked, dlg, [answer] { answer(saAllowAlways); });
    QObject::connect(deny, &QPushButton::clicked, dlg, [answer] { answer(saDeny); });
    // Escape, the close button, the window going away: denied.
    QObject::connect(dlg, &QDialog::finished, dlg, [answer] { answer(saDeny); });
    dlg->show();
    dlg->raise();
    dlg->activateWindow();
    QPointer<QDialog> guard(dlg);
    return [guard, answered] {
        *answered = true;
        if (guard)
            guard->close();
    };
}
