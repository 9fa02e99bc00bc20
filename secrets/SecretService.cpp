#include "secrets/SecretService.h"

#include "app/ProgConfig.h"
#include "diagnostics/DbgPrint.h"
#include "secrets/SecretAccess.h"
#include "secrets/SecretCrypto.h"
#include "secrets/SecretDBusTypes.h"
#include "users/UserAccounts.h"

#include <QDBusConnectionInterface>
#include <QDBusMetaType>
#include <QTimer>

#include <sodium.h>

void RegisterSecretTypes() {
    static const bool done = [] {
        qDBusRegisterMetaType<SecretStruct>();
        qDBusRegisterMetaType<SecretStringMap>();
        qDBusRegisterMetaType<SecretByPath>();
        qDBusRegisterMetaType<QList<QDBusObjectPath>>();
        return true;
    }();
    (void)done;
}

namespace {

// A user name as one element of an object path: letters and digits stay, every other
// byte of its UTF-8 becomes "_" and two hex digits.
QString PathElement(const QString& Name) {
    QString out;
    for (const char c : Name.toUtf8()) {
        const auto u = static_cast<unsigned char>(c);
        if ((u >= 'a' && u <= 'z') || (u >= 'A' && u <= 'Z') || (u >= '0' && u <= '9'))
            out += QLatin1Char(c);
        else
            out += QStringLiteral("_%1").arg(u, 2, 16, QLatin1Char('0'));
    }
    return out;
}

bool AllDigits(const QString& S) {
    if (S.isEmpty() || S.size() > 12)
        return false;
    for (const QChar c : S)
        if (c < QLatin1Char('0') || c > QLatin1Char('9'))
            return false;
    return true;
}

} // namespace

SecretService::SecretService(QDBusConnection Bus, SecretHooks Hooks, QObject* parent)
    : QDBusVirtualObject(parent), m_bus(std::move(Bus)), m_hooks(std::move(Hooks)) {
    RegisterSecretTypes();
    m_saveTimer = new QTimer(this);
    m_saveTimer->setSingleShot(true);
    m_saveTimer->setInterval(200);
    connect(m_saveTimer, &QTimer::timeout, this, &SecretService::FlushChanges);
}

SecretService::~SecretService() {
    Stop();
}

bool SecretService::Start() {
    if (m_owned)
        return true;
    m_owner.clear();
    m_reason.clear();
    if (!m_bus.isConnected()) {
        m_reason = QStringLiteral("no session bus");
        return false;
    }
    if (!m_registered) {
        m_registered = m_bus.registerVirtualObject(RootPath(), this, QDBusConnection::SubPath);
        m_bus.connect(QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
                      QStringLiteral("org.freedesktop.DBus"), QStringLiteral("NameOwnerChanged"), this,
                      SLOT(OnNameOwnerChanged(QString, QString, QString)));
    }
    if (!m_registered) {
        m_reason = QStringLiteral("the objects could not be registered");
        return false;
    }
    // Never replace: a keyring that runs keeps the name, and we do not queue for it (a
    // queued request would take it over the moment the keyring restarts).
    QDBusConnectionInterface* bus = m_bus.interface();
    const auto r = bus->registerService(ServiceName(), QDBusConnectionInterface::DontQueueService,
                                        QDBusConnectionInterface::DontAllowReplacement);
    m_owned = r.isValid() && r.value() == QDBusConnectionInterface::ServiceRegistered;
    if (!m_owned) {
        const auto owner = bus->serviceOwner(ServiceName());
        const auto pid = owner.isValid() ? bus->servicePid(owner.value()) : QDBusReply<uint>();
        m_owner = pid.isValid() ? ProgramOfPid(pid.value()) : QString();
        m_reason = owner.isValid()
                       ? QStringLiteral("owned by %1").arg(m_owner.isEmpty() ? owner.value() : m_owner)
                       : QStringLiteral("the bus refused the name");
    }
    DbgPrint(QStringLiteral("Secret Service: %1").arg(m_owned ? QStringLiteral("serving") : m_reason));
    emit StateChanged();
    return m_owned;
}

void SecretService::Stop() {
    FlushChanges();
    for (const auto& r : std::as_const(m_reads))
        if (r && r->Cancel)
            r->Cancel();
    m_reads.clear();
    m_prompts.clear();
    m_sessions.clear();
    if (m_owned)
        m_bus.interface()->unregisterService(ServiceName());
    if (m_registered) {
        m_bus.unregisterObject(RootPath(), QDBusConnection::UnregisterTree);
        m_bus.disconnect(QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
                         QStringLiteral("org.freedesktop.DBus"), QStringLiteral("NameOwnerChanged"), this,
                         SLOT(OnNameOwnerChanged(QString, QString, QString)));
    }
    const bool was = m_owned || m_registered;
    m_owned = m_registered = false;
    if (was)
        emit StateChanged();
}

void SecretService::FlushChanges() {
    if (m_saveTimer->isActive())
        m_saveTimer->stop();
    else if (!m_dirty)
        return;
    m_dirty = false;
    if (m_hooks.Changed)
        m_hooks.Changed();
}

void SecretService::ItemsChanged() {
    m_dirty = true;
    m_saveTimer->start();
}

void SecretService::OnNameOwnerChanged(const QString& Name, const QString& Old, const QString& New) {
    if (Name == ServiceName()) {
        // The keyring that had the name ended: it is free now.
        if (New.isEmpty() && !m_owned && m_registered)
            QTimer::singleShot(0, this, [this] { Start(); });
        return;
    }
    if (!Name.startsWith(QLatin1Char(':')) || Old.isEmpty() || !New.isEmpty())
        return;
    // A client left: its sessions and prompts go, and so do its reads (a question shown
    // for it closes unanswered).
    m_programs.remove(Name);
    for (auto it = m_sessions.begin(); it != m_sessions.end();)
        it = it.value()->Owner == Name ? m_sessions.erase(it) : std::next(it);
    for (auto it = m_prompts.begin(); it != m_prompts.end();)
        it = it.value()->Owner == Name ? m_prompts.erase(it) : std::next(it);
    bool front = false;
    for (qsizetype i = m_reads.size() - 1; i >= 0; --i) {
        const auto r = m_reads[i];
        if (r->Sender != Name)
            continue;
        if (r->Cancel)
            r->Cancel();
        front = front || i == 0;
        m_reads.removeAt(i);
    }
    if (front && !m_reads.isEmpty())
        ContinueRead(m_reads.front());
}

QString SecretService::KnownUser() {
    if (!CurUser.isEmpty())
        return CurUser;
    return ProgConfig.UBound() >= kCfgLastUser ? ProgConfig[kCfgLastUser] : QString();
}

QString SecretService::CollectionName() const {
    const QString user = KnownUser();
    return user.isEmpty() ? QString() : PathElement(user);
}

QString SecretService::CollectionPath() const {
    const QString c = CollectionName();
    return c.isEmpty() ? QString() : RootPath() + QStringLiteral("/collection/") + c;
}

QString SecretService::ItemPath(const QString& Id) const {
    return CollectionPath() + QLatin1Char('/') + Id;
}

bool SecretService::Locked() const {
    return !SecretItems::Available();
}

SecretService::Target SecretService::Resolve(const QString& Path) const {
    if (Path == RootPath())
        return {Kind::Service, {}};
    const QString prefix = RootPath() + QLatin1Char('/');
    if (!Path.startsWith(prefix))
        return {};
    const QStringList parts = Path.mid(prefix.size()).split(QLatin1Char('/'));
    if (parts.size() == 2 && parts[0] == QLatin1String("session") && m_sessions.contains(parts[1]))
        return {Kind::Session, parts[1]};
    if (parts.size() == 2 && parts[0] == QLatin1String("prompt") && m_prompts.contains(parts[1]))
        return {Kind::Prompt, parts[1]};
    const QString coll = CollectionName();
    const bool isColl = parts.size() >= 2 && !coll.isEmpty() &&
                        ((parts[0] == QLatin1String("collection") && parts[1] == coll) ||
                         (parts[0] == QLatin1String("aliases") &&
                          (parts[1] == QLatin1String("default") || parts[1] == QLatin1String("login"))));
    if (isColl && parts.size() == 2)
        return {Kind::Collection, {}};
    if (isColl && parts.size() == 3 && AllDigits(parts[2]))
        return {Kind::Item, parts[2]};
    return {};
}

QString SecretService::ProgramOf(const QString& Sender) {
    auto it = m_programs.constFind(Sender);
    if (it != m_programs.cend())
        return *it;
    const QDBusReply<uint> pid = m_bus.interface()->servicePid(Sender);
    const QString exe = pid.isValid() ? ProgramOfPid(pid.value()) : QString();
    if (m_programs.size() > 1000)
        m_programs.clear();
    m_programs.insert(Sender, exe);
    return exe;
}

void SecretService::Reply(const QDBusMessage& M, const QList<QVariant>& Args) {
    QDBusMessage r = M.createReply(Args);
    m_bus.send(r);
}

void SecretService::Error(const QDBusMessage& M, const QString& Name, const QString& Text) {
    m_bus.send(M.createErrorReply(Name, Text));
}

void SecretService::Signal(const QString& Path, const QString& Iface, const QString& Name,
                           const QList<QVariant>& Args) {
    QDBusMessage s = QDBusMessage::createSignal(Path, Iface, Name);
    s.setArguments(Args);
    m_bus.send(s);
}

bool SecretService::handleMessage(const QDBusMessage& M, const QDBusConnection&) {
    if (M.type() != QDBusMessage::MethodCallMessage)
        return false;
    const QString iface = M.interface();
    // Qt answers these itself (with introspect() below).
    if (iface == QLatin1String("org.freedesktop.DBus.Introspectable") ||
        iface == QLatin1String("org.freedesktop.DBus.Peer"))
        return false;
    const Target t = Resolve(M.path());
    if (t.K == Kind::None) {
        Error(M, secret_err::kUnknownObject, QStringLiteral("No such object: %1").arg(M.path()));
        return true;
    }
    if (iface == secret_if::kProps) {
        OnProperties(M, t);
        return true;
    }
    switch (t.K) {
    case Kind::Service:
        OnService(M);
        break;
    case Kind::Collection:
        OnCollection(M);
        break;
    case Kind::Item:
        OnItem(M, t.Id);
        break;
    case Kind::Session:
        OnSession(M, t.Id);
        break;
    case Kind::Prompt:
        OnPrompt(M, t.Id);
        break;
    case Kind::None:
        break;
    }
    return true;
}

void SecretService::OnSession(const QDBusMessage& M, const QString& Id) {
    if (M.member() != QLatin1String("Close") || !M.signature().isEmpty())
        return Error(M, secret_err::kUnknownMethod, QStringLiteral("Session: Close()"));
    if (m_sessions.value(Id)->Owner != M.service())
        return Error(M, secret_err::kAccessDenied, QStringLiteral("Not your session"));
    m_sessions.remove(Id);
    Reply(M, {});
}

QString SecretService::NewPrompt(const QString& Sender, std::function<void(const QString&)> Run) {
    if (m_prompts.size() >= kMaxPrompts)
        return {};
    const QString id = QString::number(++m_nextId);
    auto p = std::make_shared<Prompt>();
    p->Owner = Sender;
    p->Run = std::move(Run);
    m_prompts.insert(id, p);
    return RootPath() + QStringLiteral("/prompt/") + id;
}

void SecretService::OnPrompt(const QDBusMessage& M, const QString& Id) {
    const auto p = m_prompts.value(Id);
    const QString path = RootPath() + QStringLiteral("/prompt/") + Id;
    if (M.member() == QLatin1String("Prompt") && M.signature() == QLatin1String("s")) {
        Reply(M, {});
        if (!p->Started) {
            p->Started = true;
            p->Run(Id);
        }
    } else if (M.member() == QLatin1String("Dismiss") && M.signature().isEmpty()) {
        Reply(M, {});
        CompletePrompt(Id, true, QVariant::fromValue(QDBusVariant(QString())));
    } else {
        Error(M, secret_err::kUnknownMethod, QStringLiteral("Prompt: Prompt(s), Dismiss()"));
    }
    Q_UNUSED(path);
}

void SecretService::CompletePrompt(const QString& Id, bool Dismissed, const QVariant& Result) {
    // A prompt whose client left is gone already: nobody is told.
    if (!m_prompts.remove(Id))
        return;
    Signal(RootPath() + QStringLiteral("/prompt/") + Id, secret_if::kPrompt, QStringLiteral("Completed"),
           {Dismissed, Result});
}

QString SecretService::introspect(const QString& Path) const {
    static const QString kProps = QStringLiteral(
        "<interface name=\"org.freedesktop.DBus.Properties\">"
        "<method name=\"Get\"><arg type=\"s\" direction=\"in\"/><arg type=\"s\" direction=\"in\"/>"
        "<arg type=\"v\" direction=\"out\"/></method>"
        "<method name=\"GetAll\"><arg type=\"s\" direction=\"in\"/><arg type=\"a{sv}\" "
        "direction=\"out\"/></method>"
        "<method name=\"Set\"><arg type=\"s\" direction=\"in\"/><arg type=\"s\" direction=\"in\"/>"
        "<arg type=\"v\" direction=\"in\"/></method></interface>");
    const auto method = [](const char* Name, const char* In, const char* Out) {
        QString m = QStringLiteral("<method name=\"%1\">").arg(QLatin1String(Name));
        for (const QString& t : QString::fromLatin1(In).split(QLatin1Char(' '), Qt::SkipEmptyParts))
            m += QStringLiteral("<arg type=\"%1\" direction=\"in\"/>").arg(t);
        for (const QString& t : QString::fromLatin1(Out).split(QLatin1Char(' '), Qt::SkipEmptyParts))
            m += QStringLiteral("<arg type=\"%1\" direction=\"out\"/>").arg(t);
        return m + QStringLiteral("</method>");
    };
    const Target t = Resolve(Path);
    QString x;
    switch (t.K) {
    case Kind::Service:
        x = QStringLiteral("<interface name=\"org.freedesktop.Secret.Service\">") +
            method("OpenSession", "s v", "v o") + method("CreateCollection", "a{sv} s", "o o") +
            method("SearchItems", "a{ss}", "ao ao") + method("Unlock", "ao", "ao o") +
            method("Lock", "ao", "ao o") + method("GetSecrets", "ao o", "a{o(oayays)}") +
            method("ReadAlias", "s", "o") + method("SetAlias", "s o", "") +
            QStringLiteral("<property name=\"Collections\" type=\"ao\" access=\"read\"/></interface>") +
            kProps + QStringLiteral("<node name=\"collection\"/><node name=\"aliases\"/>");
        break;
    case Kind::Collection:
        x = QStringLiteral("<interface name=\"org.freedesktop.Secret.Collection\">") +
            method("Delete", "", "o") + method("SearchItems", "a{ss}", "ao") +
            method("CreateItem", "a{sv} (oayays) b", "o o") +
            QStringLiteral("<property name=\"Items\" type=\"ao\" access=\"read\"/>"
                           "<property name=\"Label\" type=\"s\" access=\"read\"/>"
                           "<property name=\"Locked\" type=\"b\" access=\"read\"/>"
                           "<property name=\"Created\" type=\"t\" access=\"read\"/>"
                           "<property name=\"Modified\" type=\"t\" access=\"read\"/></interface>") +
            kProps;
        break;
    case Kind::Item:
        x = QStringLiteral("<interface name=\"org.freedesktop.Secret.Item\">") + method("Delete", "", "o") +
            method("GetSecret", "o", "(oayays)") + method("SetSecret", "(oayays)", "") +
            QStringLiteral("<property name=\"Locked\" type=\"b\" access=\"read\"/>"
                           "<property name=\"Attributes\" type=\"a{ss}\" access=\"readwrite\"/>"
                           "<property name=\"Label\" type=\"s\" access=\"readwrite\"/>"
                           "<property name=\"Created\" type=\"t\" access=\"read\"/>"
                           "<property name=\"Modified\" type=\"t\" access=\"read\"/></interface>") +
            kProps;
        break;
    case Kind::Session:
        x = QStringLiteral("<interface name=\"org.freedesktop.Secret.Session\">") + method("Close", "", "") +
            QStringLiteral("</interface>");
        break;
    case Kind::Prompt:
        x = QStringLiteral("<interface name=\"org.freedesktop.Secret.Prompt\">") + method("Prompt", "s", "") +
            method("Dismiss", "", "") + QStringLiteral("</interface>");
        break;
    case Kind::None:
        break;
    }
    return x;
}

void SecretService::NoteRead(const QString& Reader, const QString& Title, const char* Outcome, bool Change) {
    DbgPrint(QStringLiteral("Secret Service: %1 %2 \"%3\": %4")
                 .arg(Reader.isEmpty() ? QStringLiteral("(unknown program)") : Reader,
                      Change ? QStringLiteral("changes") : QStringLiteral("reads"), Title,
                      QString::fromLatin1(Outcome)));
}
