// The Service, Collection and Item calls of the provider, and their properties.

#include "secrets/SecretAccess.h"
#include "secrets/SecretCrypto.h"
#include "secrets/SecretDBusTypes.h"
#include "secrets/SecretService.h"
#include "users/UserAccounts.h"

#include <QDBusConnectionInterface>
#include <QDBusVariant>

#include <sodium.h>

namespace {

using PathList = QList<QDBusObjectPath>;

QVariant Paths(const QStringList& P) {
    PathList out;
    for (const QString& s : P)
        out.append(QDBusObjectPath(s));
    return QVariant::fromValue(out);
}

QDBusObjectPath NoPath() {
    return QDBusObjectPath(QStringLiteral("/"));
}

bool Is(const QDBusMessage& M, const char* Member, const char* Signature) {
    return M.member() == QLatin1String(Member) && M.signature() == QLatin1String(Signature);
}

// Attributes a client sent: false (and Why) for sets beyond the limits.
bool GoodAttrs(const SecretStringMap& A, QString& Why) {
    if (A.size() > kMaxAttrs) {
        Why = QStringLiteral("too many attributes");
        return false;
    }
    for (auto it = A.cbegin(); it != A.cend(); ++it) {
        if (it.key().isEmpty() || it.key().size() > kMaxAttrText || it.value().size() > kMaxAttrText) {
            Why = QStringLiteral("an attribute is empty or too long");
            return false;
        }
        if (SecretItems::IsOwnField(it.key())) {
            Why = QStringLiteral("attribute names starting with \"argent:\" are reserved");
            return false;
        }
    }
    return true;
}

} // namespace

void SecretService::RunUnlock(std::function<void(bool)> Done) {
    if (!Locked())
        return Done(true);
    m_unlockWaiters.append(std::move(Done));
    if (m_unlockWaiters.size() > 1)
        return; // the question shows already
    if (!m_hooks.Unlock) {
        const auto waiters = std::exchange(m_unlockWaiters, {});
        for (const auto& w : waiters)
            w(false);
        return;
    }
    m_hooks.Unlock([this](bool Ok) {
        const auto waiters = std::exchange(m_unlockWaiters, {});
        emit StateChanged();
        for (const auto& w : waiters)
            w(Ok && !Locked());
    });
}

void SecretService::OnService(const QDBusMessage& M) {
    const QList<QVariant> a = M.arguments();
    if (Is(M, "OpenSession", "sv"))
        return OpenSession(M);
    if (Is(M, "SearchItems", "a{ss}"))
        return SearchItems(M, true);
    if (Is(M, "Unlock", "ao"))
        return UnlockOrLock(M, true);
    if (Is(M, "Lock", "ao"))
        return UnlockOrLock(M, false);
    if (Is(M, "GetSecrets", "aoo")) {
        QStringList ids;
        for (const QDBusObjectPath& p : qdbus_cast<PathList>(a[0])) {
            const Target t = Resolve(p.path());
            if (t.K == Kind::Item && !ids.contains(t.Id))
                ids.append(t.Id);
        }
        return StartRead(M, ids, a[1].value<QDBusObjectPath>().path(), true);
    }
    if (Is(M, "ReadAlias", "s")) {
        const QString name = a[0].toString();
        const bool ours = name == QLatin1String("default") || name == QLatin1String("login");
        const QString path = CollectionPath();
        return Reply(M, {QVariant::fromValue(ours && !path.isEmpty() ? QDBusObjectPath(path) : NoPath())});
    }
    if (Is(M, "SetAlias", "so")) {
        // The aliases name the open user's collection and nothing else.
        const Target t = Resolve(a[1].value<QDBusObjectPath>().path());
        const QString name = a[0].toString();
        if (t.K == Kind::Collection && (name == QLatin1String("default") || name == QLatin1String("login")))
            return Reply(M, {});
        return Error(M, secret_err::kNotSupported,
                     QStringLiteral("Only \"default\" and \"login\" name a collection"));
    }
    if (Is(M, "CreateCollection", "a{sv}s")) {
        // One collection per user: asking for one gives the user's, after the unlock.
        const QString path = CollectionPath();
        if (path.isEmpty())
            return Error(M, secret_err::kNotSupported, QStringLiteral("No user of the password manager"));
        if (!Locked())
            return Reply(M, {QVariant::fromValue(QDBusObjectPath(path)), QVariant::fromValue(NoPath())});
        const QString prompt = NewPrompt(M.service(), [this, path](const QString& Id) {
            RunUnlock([this, Id, path](bool Ok) {
                CompletePrompt(Id, !Ok,
                               QVariant::fromValue(QDBusVariant(QVariant::fromValue(QDBusObjectPath(path)))));
            });
        });
        if (prompt.isEmpty())
            return Error(M, secret_err::kLimits, QStringLiteral("Too many prompts"));
        return Reply(M, {QVariant::fromValue(NoPath()), QVariant::fromValue(QDBusObjectPath(prompt))});
    }
    Error(M, secret_err::kUnknownMethod,
          QStringLiteral("No method %1 with signature \"%2\" on the Service").arg(M.member(), M.signature()));
}

void SecretService::OpenSession(const QDBusMessage& M) {
    const QList<QVariant> a = M.arguments();
    const QVariant in = a[1].value<QDBusVariant>().variant();
    QByteArray input;
    if (in.metaType() == QMetaType::fromType<QByteArray>())
        input = in.toByteArray();
    else if (in.canConvert<QDBusArgument>()) {
        // Not bytes: only plain takes it (an empty text).
        input = QByteArray();
    }
    if (m_sessions.size() > 4096)
        return Error(M, secret_err::kLimits, QStringLiteral("Too many sessions"));
    QByteArray output;
    auto t = SecretTransfer::Open(a[0].toString(), input, output);
    if (!t)
        return Error(
            M, secret_err::kNotSupported,
            QStringLiteral("Algorithm \"%1\" is not supported, or its input is wrong").arg(a[0].toString()));
    const QString id = QString::number(++m_nextId);
    auto s = std::make_shared<Session>();
    s->Owner = M.service();
    const bool enc = t->Encrypted();
    s->Transfer = std::move(t);
    m_sessions.insert(id, s);
    const QVariant out = enc ? QVariant(output) : QVariant(QString());
    Reply(M, {QVariant::fromValue(QDBusVariant(out)),
              QVariant::fromValue(QDBusObjectPath(RootPath() + QStringLiteral("/session/") + id))});
}

void SecretService::SearchItems(const QDBusMessage& M, bool OnService) {
    const SecretStringMap query = qdbus_cast<SecretStringMap>(M.arguments().at(0));
    QString why;
    if (!GoodAttrs(query, why))
        return Error(M, secret_err::kInvalidArgs, why);
    // A program looking for its secret while the user is locked: the window asks for the
    // password first (as a keyring's unlock prompt does), then the search answers.
    if (OnService && Locked() && !KnownUser().isEmpty() && m_unlockWaiters.size() < kMaxPending) {
        QDBusMessage later = M;
        later.setDelayedReply(true);
        return RunUnlock([this, later, query](bool Ok) {
            QStringList found;
            if (Ok && !Locked())
                for (const QString& id : m_items.Search(query))
                    found.append(ItemPath(id));
            Reply(later, {Paths(found), Paths({})});
        });
    }
    QStringList found;
    if (!Locked())
        for (const QString& id : m_items.Search(query))
            found.append(ItemPath(id));
    if (OnService)
        Reply(M, {Paths(found), Paths({})});
    else
        Reply(M, {Paths(found)});
}

void SecretService::UnlockOrLock(const QDBusMessage& M, bool Unlock) {
    QStringList ours;
    for (const QDBusObjectPath& p : qdbus_cast<PathList>(M.arguments().at(0))) {
        const Target t = Resolve(p.path());
        if (t.K == Kind::Collection || t.K == Kind::Item)
            ours.append(p.path());
    }
    if (!Unlock) {
        if (!Locked() && !ours.isEmpty() && m_hooks.Lock)
            m_hooks.Lock();
        emit StateChanged();
        return Reply(M, {Paths(Locked() ? ours : QStringList()), QVariant::fromValue(NoPath())});
    }
    if (!Locked() || ours.isEmpty())
        return Reply(M, {Paths(ours), QVariant::fromValue(NoPath())});
    const QString prompt = NewPrompt(M.service(), [this, ours](const QString& Id) {
        RunUnlock([this, Id, ours](bool Ok) {
            CompletePrompt(Id, !Ok, QVariant::fromValue(QDBusVariant(Paths(Ok ? ours : QStringList()))));
        });
    });
    if (prompt.isEmpty())
        return Error(M, secret_err::kLimits, QStringLiteral("Too many prompts"));
    Reply(M, {Paths({}), QVariant::fromValue(QDBusObjectPath(prompt))});
}

void SecretService::OnCollection(const QDBusMessage& M) {
    if (Is(M, "SearchItems", "a{ss}"))
        return SearchItems(M, false);
    if (Is(M, "CreateItem", "a{sv}(oayays)b"))
        return CreateItem(M);
    if (Is(M, "Delete", ""))
        return Error(
            M, secret_err::kNotSupported,
            QStringLiteral("The collection is the user's records; delete them in the password manager"));
    Error(
        M, secret_err::kUnknownMethod,
        QStringLiteral("No method %1 with signature \"%2\" on a Collection").arg(M.member(), M.signature()));
}

void SecretService::CreateItem(const QDBusMessage& M) {
    const QList<QVariant> a = M.arguments();
    const QVariantMap props = qdbus_cast<QVariantMap>(a[0]);
    const bool replace = a[2].toBool();
    SecretItem item;
    item.Label = props.value(QStringLiteral("org.freedesktop.Secret.Item.Label")).toString();
    const QVariant attrs = props.value(QStringLiteral("org.freedesktop.Secret.Item.Attributes"));
    if (attrs.isValid())
        item.Attrs = qdbus_cast<SecretStringMap>(attrs);
    QString why;
    if (item.Label.size() > kMaxLabel)
        return Error(M, secret_err::kInvalidArgs, QStringLiteral("The label is too long"));
    if (!GoodAttrs(item.Attrs, why))
        return Error(M, secret_err::kInvalidArgs, why);
    if (!SecretIn(M, a[1], item.Secret, item.ContentType))
        return;
    item.Program = ProgramOf(M.service());
    const auto store = [this, replace](SecretItem It) -> QString {
        QString id;
        if (replace)
            for (const QString& c : m_items.Search(It.Attrs)) {
                SecretItem old;
                // Only an item of the same program is replaced: another's is left alone and a
                // new item made beside it.
                if (m_items.Read(c, old, false) && old.Attrs == It.Attrs && old.Program == It.Program &&
                    !It.Program.isEmpty()) {
                    id = c;
                    break;
                }
            }
        const bool replaced = !id.isEmpty();
        if (replaced) {
            m_items.SetLabel(id, It.Label);
            m_items.SetSecret(id, It.Secret, It.ContentType, It.Program);
        } else {
            id = m_items.Create(It);
        }
        sodium_memzero(It.Secret.data(), static_cast<size_t>(It.Secret.size()));
        if (id.isEmpty())
            return {};
        ItemsChanged();
        Signal(CollectionPath(), secret_if::kCollection,
               replaced ? QStringLiteral("ItemChanged") : QStringLiteral("ItemCreated"),
               {QVariant::fromValue(QDBusObjectPath(ItemPath(id)))});
        return ItemPath(id);
    };
    if (!Locked()) {
        const QString path = store(item);
        if (path.isEmpty())
            return Error(M, secret_err::kFailed, QStringLiteral("The item could not be stored"));
        return Reply(M, {QVariant::fromValue(QDBusObjectPath(path)), QVariant::fromValue(NoPath())});
    }
    // Locked: the prompt unlocks, then stores.
    const QString prompt = NewPrompt(M.service(), [this, item, store](const QString& Id) {
        RunUnlock([this, Id, item, store](bool Ok) {
            const QString path = Ok ? store(item) : QString();
            CompletePrompt(Id, path.isEmpty(),
                           QVariant::fromValue(QDBusVariant(
                               QVariant::fromValue(path.isEmpty() ? NoPath() : QDBusObjectPath(path)))));
        });
    });
    sodium_memzero(item.Secret.data(), static_cast<size_t>(item.Secret.size()));
    if (prompt.isEmpty())
        return Error(M, secret_err::kLimits, QStringLiteral("Too many prompts"));
    Reply(M, {QVariant::fromValue(NoPath()), QVariant::fromValue(QDBusObjectPath(prompt))});
}

void SecretService::OnItem(const QDBusMessage& M, const QString& Id) {
    const QList<QVariant> a = M.arguments();
    const bool known = Is(M, "GetSecret", "o") || Is(M, "SetSecret", "(oayays)") || Is(M, "Delete", "");
    if (!known)
        return Error(
            M, secret_err::kUnknownMethod,
            QStringLiteral("No method %1 with signature \"%2\" on an Item").arg(M.member(), M.signature()));
    if (Locked())
        return Error(M, secret_err::kIsLocked, QStringLiteral("The collection is locked"));
    if (!m_items.Has(Id))
        return Error(M, secret_err::kNoSuchObject, QStringLiteral("No such item"));
    if (M.member() == QLatin1String("GetSecret"))
        return StartRead(M, {Id}, a[0].value<QDBusObjectPath>().path(), false);
    if (M.member() == QLatin1String("SetSecret")) {
        QByteArray plain;
        QString type;
        if (!SecretIn(M, a[0], plain, type))
            return;
        // Changing or deleting what another program stored is asked about, as reading is.
        return StartChange(M, Id, [this, M, Id, plain, type]() mutable {
            m_items.SetSecret(Id, plain, type, QString());
            sodium_memzero(plain.data(), static_cast<size_t>(plain.size()));
            ItemsChanged();
            Signal(CollectionPath(), secret_if::kCollection, QStringLiteral("ItemChanged"),
                   {QVariant::fromValue(QDBusObjectPath(ItemPath(Id)))});
            Reply(M, {});
        });
    }
    StartChange(M, Id, [this, M, Id] {
        m_items.Delete(Id);
        ItemsChanged();
        Signal(CollectionPath(), secret_if::kCollection, QStringLiteral("ItemDeleted"),
               {QVariant::fromValue(QDBusObjectPath(ItemPath(Id)))});
        Reply(M, {QVariant::fromValue(NoPath())});
    });
}
