// Reading secrets (with the question before one program reads another's item), the
// transfer of secrets in and out of a session, and the properties of the objects.

#include "secrets/SecretAccess.h"
#include "secrets/SecretCrypto.h"
#include "secrets/SecretDBusTypes.h"
#include "secrets/SecretService.h"
#include "users/UserAccounts.h"

#include <QDBusVariant>

#include <sodium.h>

void SecretService::StartRead(const QDBusMessage& M, const QStringList& Ids, const QString& SessionPath,
                              bool Many) {
    const auto s = m_sessions.value(SessionPath.section(QLatin1Char('/'), -1));
    if (!SessionPath.startsWith(RootPath() + QStringLiteral("/session/")) || !s || s->Owner != M.service())
        return Error(M, secret_err::kNoSession, QStringLiteral("No such session"));
    if (!Many && Locked())
        return Error(M, secret_err::kIsLocked, QStringLiteral("The collection is locked"));
    if (m_reads.size() >= kMaxPending)
        return Error(M, secret_err::kLimits, QStringLiteral("Too many reads wait for an answer"));
    auto r = std::make_shared<PendingRead>();
    r->Msg = M;
    r->Msg.setDelayedReply(true);
    r->Sender = M.service();
    r->Reader = ProgramOf(M.service());
    r->SessionPath = SessionPath;
    r->Ids = Ids;
    r->Many = Many;
    m_reads.append(r);
    ContinueRead(r);
}

void SecretService::StartChange(const QDBusMessage& M, const QString& Id, std::function<void()> Apply) {
    if (m_reads.size() >= kMaxPending)
        return Error(M, secret_err::kLimits, QStringLiteral("Too many calls wait for an answer"));
    auto r = std::make_shared<PendingRead>();
    r->Msg = M;
    r->Msg.setDelayedReply(true);
    r->Sender = M.service();
    r->Reader = ProgramOf(M.service());
    r->Ids = {Id};
    r->Change = std::move(Apply);
    m_reads.append(r);
    ContinueRead(r);
}

void SecretService::ContinueRead(const std::shared_ptr<PendingRead>& R) {
    while (R->Next < R->Ids.size()) {
        const QString id = R->Ids[R->Next];
        SecretItem it;
        if (Locked() || !m_items.Read(id, it, false)) {
            ++R->Next;
            continue;
        }
        if (!ReadNeedsQuestion(CurUser, R->Reader, it.Program)) {
            NoteRead(R->Reader, it.Label, it.Program == R->Reader ? "its own item" : "always allowed",
                     bool(R->Change));
            R->Allowed.append(id);
            ++R->Next;
            continue;
        }
        // One question at a time: the others wait their turn.
        if (m_reads.isEmpty() || m_reads.front() != R || R->Asking)
            return;
        if (!m_hooks.AskRead) {
            NoteRead(R->Reader, it.Label, "denied (no one to ask)", bool(R->Change));
            ++R->Next;
            continue;
        }
        R->Asking = true;
        const std::weak_ptr<PendingRead> weak = R;
        const QString title = it.Label;
        R->Cancel = m_hooks.AskRead({R->Reader, it.Program, it.Label, CurUser, bool(R->Change)},
                                    [this, weak, title](int Answer) {
                                        const auto r = weak.lock();
                                        if (!r || !m_reads.contains(r))
                                            return;
                                        r->Asking = false;
                                        r->Cancel = nullptr;
                                        if (Answer == saAllowAlways)
                                            SetAlwaysAllowed(CurUser, r->Reader, true);
                                        NoteRead(r->Reader, title,
                                                 Answer == saAllowAlways ? "allowed always"
                                                 : Answer == saAllowOnce ? "allowed once"
                                                                         : "denied",
                                                 bool(r->Change));
                                        if (Answer == saAllowOnce || Answer == saAllowAlways)
                                            r->Allowed.append(r->Ids[r->Next]);
                                        ++r->Next;
                                        ContinueRead(r);
                                    });
        return;
    }
    FinishRead(R);
}

void SecretService::FinishRead(const std::shared_ptr<PendingRead>& R) {
    const bool wasFront = !m_reads.isEmpty() && m_reads.front() == R;
    m_reads.removeOne(R);
    if (R->Change) {
        if (R->Allowed.isEmpty())
            Error(R->Msg, Locked() ? secret_err::kIsLocked : secret_err::kAccessDenied,
                  Locked() ? QStringLiteral("The collection is locked")
                           : QStringLiteral("The user did not allow this program to change the item"));
        else if (Locked() || !m_items.Has(R->Allowed.front()))
            Error(R->Msg, secret_err::kNoSuchObject, QStringLiteral("No such item"));
        else
            R->Change();
    } else if (!R->Many) {
        QVariant out;
        if (R->Allowed.isEmpty())
            Error(R->Msg, Locked() ? secret_err::kIsLocked : secret_err::kAccessDenied,
                  Locked() ? QStringLiteral("The collection is locked")
                           : QStringLiteral("The user did not allow this program to read the item"));
        else if (SecretOut(R->SessionPath, R->Allowed.front(), out))
            Reply(R->Msg, {out});
        else
            Error(R->Msg, secret_err::kNoSession, QStringLiteral("The session is closed"));
    } else {
        SecretByPath all;
        for (const QString& id : std::as_const(R->Allowed)) {
            QVariant one;
            if (SecretOut(R->SessionPath, id, one))
                all.insert(QDBusObjectPath(ItemPath(id)), one.value<SecretStruct>());
        }
        Reply(R->Msg, {QVariant::fromValue(all)});
    }
    if (wasFront && !m_reads.isEmpty())
        ContinueRead(m_reads.front());
}

bool SecretService::SecretOut(const QString& SessionPath, const QString& Id, QVariant& Out) {
    const auto s = m_sessions.value(SessionPath.section(QLatin1Char('/'), -1));
    SecretItem it;
    if (!s || !m_items.Read(Id, it, true))
        return false;
    SecretStruct st;
    st.Session = QDBusObjectPath(SessionPath);
    st.ContentType = it.ContentType;
    const bool ok = s->Transfer->Seal(it.Secret, st.Parameters, st.Value);
    sodium_memzero(it.Secret.data(), static_cast<size_t>(it.Secret.size()));
    Out = QVariant::fromValue(st);
    return ok;
}

bool SecretService::SecretIn(const QDBusMessage& M, const QVariant& Arg, QByteArray& Plain, QString& Type) {
    const SecretStruct st = qdbus_cast<SecretStruct>(Arg);
    const auto s = m_sessions.value(st.Session.path().section(QLatin1Char('/'), -1));
    if (!st.Session.path().startsWith(RootPath() + QStringLiteral("/session/")) || !s ||
        s->Owner != M.service()) {
        Error(M, secret_err::kNoSession, QStringLiteral("No such session"));
        return false;
    }
    if (st.Value.size() > kMaxSecretBytes + 16 || st.ContentType.size() > 256) {
        Error(M, secret_err::kLimits,
              QStringLiteral("The secret is larger than %1 bytes").arg(kMaxSecretBytes));
        return false;
    }
    if (!s->Transfer->Unseal(st.Parameters, st.Value, Plain) || Plain.size() > kMaxSecretBytes) {
        sodium_memzero(Plain.data(), static_cast<size_t>(Plain.size()));
        Error(M, secret_err::kInvalidArgs, QStringLiteral("The secret does not decipher with this session"));
        return false;
    }
    Type = st.ContentType;
    return true;
}

QVariant SecretService::Property(const Target& T, const QString& Iface, const QString& Name, bool& Known) {
    Known = true;
    if (T.K == Kind::Service && Iface == secret_if::kService && Name == QLatin1String("Collections"))
        return CollectionPath().isEmpty()
                   ? QVariant::fromValue(QList<QDBusObjectPath>())
                   : QVariant::fromValue(QList<QDBusObjectPath>{QDBusObjectPath(CollectionPath())});
    if (T.K == Kind::Collection && Iface == secret_if::kCollection) {
        if (Name == QLatin1String("Items")) {
            QList<QDBusObjectPath> out;
            if (!Locked())
                for (const QString& id : m_items.All())
                    out.append(QDBusObjectPath(ItemPath(id)));
            return QVariant::fromValue(out);
        }
        if (Name == QLatin1String("Label"))
            return KnownUser();
        if (Name == QLatin1String("Locked"))
            return Locked();
        if (Name == QLatin1String("Created"))
            return QVariant::fromValue<quint64>(0);
        if (Name == QLatin1String("Modified"))
            return QVariant::fromValue<quint64>(Locked() ? 0 : static_cast<quint64>(m_items.LastModified()));
    }
    if (T.K == Kind::Item && Iface == secret_if::kItem) {
        SecretItem it;
        const bool have = !Locked() && m_items.Read(T.Id, it, false);
        if (!have && !Locked()) {
            Known = false; // no such item
            return {};
        }
        if (Name == QLatin1String("Locked"))
            return !have;
        if (have && Name == QLatin1String("Label"))
            return it.Label;
        if (have && Name == QLatin1String("Attributes"))
            return QVariant::fromValue(SecretStringMap(it.Attrs));
        if (have && Name == QLatin1String("Created"))
            return QVariant::fromValue<quint64>(static_cast<quint64>(it.Created));
        if (have && Name == QLatin1String("Modified"))
            return QVariant::fromValue<quint64>(static_cast<quint64>(it.Modified));
    }
    Known = false;
    return {};
}

QVariantMap SecretService::AllProperties(const Target& T, const QString& Iface) {
    static const QStringList kNames = {QStringLiteral("Collections"), QStringLiteral("Items"),
                                       QStringLiteral("Label"),       QStringLiteral("Locked"),
                                       QStringLiteral("Attributes"),  QStringLiteral("Created"),
                                       QStringLiteral("Modified")};
    QVariantMap out;
    for (const QString& n : kNames) {
        bool known = false;
        const QVariant v = Property(T, Iface, n, known);
        if (known)
            out.insert(n, v);
    }
    return out;
}

void SecretService::OnProperties(const QDBusMessage& M, const Target& T) {
    const QList<QVariant> a = M.arguments();
    const auto ifaceOf = [&](const QString& I) {
        return I.isEmpty() ? (T.K == Kind::Service      ? secret_if::kService
                              : T.K == Kind::Collection ? secret_if::kCollection
                              : T.K == Kind::Item       ? secret_if::kItem
                                                        : QString())
                           : I;
    };
    if (M.member() == QLatin1String("Get") && M.signature() == QLatin1String("ss")) {
        bool known = false;
        const QVariant v = Property(T, ifaceOf(a[0].toString()), a[1].toString(), known);
        if (!known)
            return Error(M,
                         T.K == Kind::Item && !Locked() && !m_items.Has(T.Id) ? secret_err::kNoSuchObject
                                                                              : secret_err::kUnknownProperty,
                         QStringLiteral("No property %1").arg(a[1].toString()));
        return Reply(M, {QVariant::fromValue(QDBusVariant(v))});
    }
    if (M.member() == QLatin1String("GetAll") && M.signature() == QLatin1String("s"))
        return Reply(M, {AllProperties(T, ifaceOf(a[0].toString()))});
    if (M.member() != QLatin1String("Set") || M.signature() != QLatin1String("ssv"))
        return Error(M, secret_err::kUnknownMethod,
                     QStringLiteral("Properties: Get(ss), GetAll(s), Set(ssv)"));
    const QString name = a[1].toString();
    const QVariant v = a[2].value<QDBusVariant>().variant();
    if (T.K != Kind::Item || ifaceOf(a[0].toString()) != secret_if::kItem ||
        (name != QLatin1String("Label") && name != QLatin1String("Attributes")))
        return Error(M, secret_err::kReadOnly, QStringLiteral("Property %1 cannot be set").arg(name));
    if (Locked())
        return Error(M, secret_err::kIsLocked, QStringLiteral("The collection is locked"));
    if (!m_items.Has(T.Id))
        return Error(M, secret_err::kNoSuchObject, QStringLiteral("No such item"));
    if (name == QLatin1String("Label") &&
        (v.metaType() != QMetaType::fromType<QString>() || v.toString().size() > kMaxLabel))
        return Error(M, secret_err::kInvalidArgs, QStringLiteral("Label: a text of up to 4096 characters"));
    SecretStringMap attrs;
    if (name == QLatin1String("Attributes")) {
        if (!v.canConvert<QDBusArgument>() ||
            v.value<QDBusArgument>().currentSignature() != QLatin1String("a{ss}"))
            return Error(M, secret_err::kInvalidArgs, QStringLiteral("Attributes: a{ss}"));
        attrs = qdbus_cast<SecretStringMap>(v);
        if (attrs.size() > kMaxAttrs)
            return Error(M, secret_err::kInvalidArgs, QStringLiteral("Too many attributes"));
        for (auto it = attrs.cbegin(); it != attrs.cend(); ++it)
            if (it.key().isEmpty() || SecretItems::IsOwnField(it.key()) || it.value().size() > kMaxAttrText)
                return Error(M, secret_err::kInvalidArgs,
                             QStringLiteral("A reserved, empty or long attribute"));
    }
    const QString id = T.Id, label = v.toString();
    StartChange(M, id, [this, M, id, name, label, attrs] {
        if (name == QLatin1String("Label"))
            m_items.SetLabel(id, label);
        else
            m_items.SetAttrs(id, attrs);
        ItemsChanged();
        Signal(CollectionPath(), secret_if::kCollection, QStringLiteral("ItemChanged"),
               {QVariant::fromValue(QDBusObjectPath(ItemPath(id)))});
        Reply(M, {});
    });
}
