#include "browser/BrowserProtocol.h"

#include "app/ProgConfig.h"
#include "app/VbConv.h"
#include "browser/BrowserHost.h"
#include "browser/BrowserStore.h"
#include "diagnostics/DbgPrint.h"
#include "diagnostics/Trace.h"
#include "records/PaswGenerator.h"
#include "users/UserAccounts.h"

#include <QDateTime>
#include <QJsonArray>
#include <QJsonDocument>

#include <algorithm>

namespace {

const QString kChangeKeys = QStringLiteral("change-public-keys");

QString b64(const QByteArray& B) {
    return QString::fromLatin1(B.toBase64());
}

QByteArray unb64(const QJsonValue& V) {
    const auto r =
        QByteArray::fromBase64Encoding(V.toString().toLatin1(), QByteArray::AbortOnBase64DecodingErrors);
    return r ? *r : QByteArray();
}

QByteArray json(const QJsonObject& O) {
    return QJsonDocument(O).toJson(QJsonDocument::Compact);
}

const char* errorText(int Code) {
    switch (Code) {
    case brDatabaseNotOpened:
        return "Database not opened";
    case brClientKeyNotReceived:
        return "Client public key not received";
    case brCannotDecrypt:
        return "Cannot decrypt message";
    case brActionDenied:
        return "Action cancelled or denied";
    case brPublicKeyNotFound:
        return "Message encryption failed";
    case brAssociationFailed:
        return "Association failed";
    case brKeyChangeFailed:
        return "Key exchange was not successful";
    case brIncorrectAction:
        return "Incorrect action";
    case brEmptyMessage:
        return "Empty message received";
    case brNoUrl:
        return "No URL provided";
    case brNoLogins:
        return "No logins found";
    default:
        return "Unknown error";
    }
}

// Actions that read or change the open user.
bool needsDatabase(const QString& Action) {
    return Action != QLatin1String("generate-password");
}

const QSet<QString>& knownActions() {
    static const QSet<QString> a{QStringLiteral("get-databasehash"), QStringLiteral("associate"),
                                 QStringLiteral("test-associate"),   QStringLiteral("get-logins"),
                                 QStringLiteral("set-login"),        QStringLiteral("generate-password"),
                                 QStringLiteral("lock-database"),    QStringLiteral("get-database-groups"),
                                 QStringLiteral("create-new-group")};
    return a;
}

} // namespace

QByteArray BrErrorReply(const QString& Action, int Code, const QString& RequestId) {
    QJsonObject o{{QStringLiteral("action"), Action},
                  {QStringLiteral("errorCode"), QString::number(Code)},
                  {QStringLiteral("error"), QLatin1String(errorText(Code))}};
    if (!RequestId.isEmpty())
        o.insert(QStringLiteral("requestID"), RequestId);
    return json(o);
}

QByteArray BrNotice(bool Locked) {
    return json({{QStringLiteral("action"),
                  Locked ? QStringLiteral("database-locked") : QStringLiteral("database-unlocked")}});
}

clsBrowserClient::clsBrowserClient(IBrowserHost& Host, clsSiteIndex& Index) : m_host(Host), m_index(Index) {}

clsBrowserClient::~clsBrowserClient() = default;

QString clsBrowserClient::ActionOf(const QByteArray& Message, QString* RequestId) {
    const QJsonObject o = QJsonDocument::fromJson(Message).object();
    if (RequestId)
        *RequestId = o.value(QStringLiteral("requestID")).toString();
    return o.value(QStringLiteral("action")).toString();
}

clsBrowserClient::Outcome clsBrowserClient::Handle(const QByteArray& Message, QByteArray& Reply) {
    TRACE_PROC("modBrowser.Handle");
    QJsonParseError err{};
    const QJsonDocument doc = QJsonDocument::fromJson(Message, &err);
    if (Message.trimmed().isEmpty()) {
        Reply = BrErrorReply(QString(), brEmptyMessage);
        return Answered;
    }
    if (err.error != QJsonParseError::NoError || !doc.isObject()) {
        Reply = BrErrorReply(QString(), brUnknown);
        return Answered;
    }
    const QJsonObject req = doc.object();
    const QString action = req.value(QStringLiteral("action")).toString();
    const QString requestId = req.value(QStringLiteral("requestID")).toString();
    if (action == kChangeKeys) {
        Reply = changePublicKeys(req);
        return Answered;
    }
    if (!knownActions().contains(action)) {
        Reply = BrErrorReply(action, brIncorrectAction, requestId);
        return Answered;
    }
    if (m_clientKey.isEmpty()) {
        Reply = BrErrorReply(action, brClientKeyNotReceived, requestId);
        return Answered;
    }
    const QByteArray nonce = unb64(req.value(QStringLiteral("nonce")));
    if (nonce.size() != kBrNonceBytes || m_nonces.contains(nonce)) {
        Reply = BrErrorReply(action, brCannotDecrypt, requestId);
        return Answered;
    }
    if (needsDatabase(action) && !m_host.DatabaseOpen()) {
        if (req.value(QStringLiteral("triggerUnlock")).toString() == QLatin1String("true")) {
            m_host.RequestUnlock();
            return WaitForUnlock;
        }
        Reply = BrErrorReply(action, brDatabaseNotOpened, requestId);
        return Answered;
    }
    QByteArray plain;
    if (!BrOpen(unb64(req.value(QStringLiteral("message"))), nonce, m_clientKey, m_keys.Secret, plain)) {
        Reply = BrErrorReply(action, brCannotDecrypt, requestId);
        return Answered;
    }
    m_nonces.insert(nonce);
    const QJsonDocument inner = QJsonDocument::fromJson(plain);
    if (!inner.isObject() || inner.object().value(QStringLiteral("action")).toString() != action) {
        Reply = BrErrorReply(action, brIncorrectAction, requestId);
        return Answered;
    }
    int error = -1;
    const QJsonObject answer = dispatch(action, inner.object(), error);
    Reply = error >= 0 ? BrErrorReply(action, error, requestId) : sealed(action, answer, nonce);
    return Answered;
}

QByteArray clsBrowserClient::changePublicKeys(const QJsonObject& Req) {
    const QByteArray key = unb64(Req.value(QStringLiteral("publicKey")));
    const QByteArray nonce = unb64(Req.value(QStringLiteral("nonce")));
    if (key.size() != kBrKeyBytes)
        return BrErrorReply(kChangeKeys, brClientKeyNotReceived);
    if (nonce.size() != kBrNonceBytes || m_nonces.contains(nonce))
        return BrErrorReply(kChangeKeys, brKeyChangeFailed);
    m_nonces.insert(nonce);
    m_keys = BrKeyPair::Generate();
    m_clientKey = key;
    m_clientId = Req.value(QStringLiteral("clientID")).toString();
    DbgPrint(QStringLiteral("Browser: an extension exchanged keys"));
    return json({{QStringLiteral("action"), kChangeKeys},
                 {QStringLiteral("version"), QLatin1String(kBrProtocolVersion)},
                 {QStringLiteral("publicKey"), b64(m_keys.Public)},
                 {QStringLiteral("nonce"), b64(BrIncrementNonce(nonce))},
                 {QStringLiteral("success"), QStringLiteral("true")}});
}

QByteArray clsBrowserClient::sealed(const QString& Action, QJsonObject Msg, const QByteArray& Nonce) {
    const QByteArray next = BrIncrementNonce(Nonce);
    Msg.insert(QStringLiteral("nonce"), b64(next));
    Msg.insert(QStringLiteral("version"), QLatin1String(kBrProtocolVersion));
    Msg.insert(QStringLiteral("success"), QStringLiteral("true"));
    const QByteArray box = BrSeal(json(Msg), next, m_clientKey, m_keys.Secret);
    if (box.isEmpty())
        return BrErrorReply(Action, brPublicKeyNotFound);
    return json({{QStringLiteral("action"), Action},
                 {QStringLiteral("message"), b64(box)},
                 {QStringLiteral("nonce"), b64(next)}});
}

QJsonObject clsBrowserClient::dispatch(const QString& Action, const QJsonObject& Msg, int& Error) {
    if (Action == QLatin1String("get-databasehash"))
        return databaseHash(Error);
    if (Action == QLatin1String("associate"))
        return associate(Msg, Error);
    if (Action == QLatin1String("test-associate"))
        return testAssociate(Msg, Error);
    if (Action == QLatin1String("get-logins"))
        return getLogins(Msg, Error);
    if (Action == QLatin1String("set-login"))
        return setLogin(Msg, Error);
    if (Action == QLatin1String("generate-password"))
        return generatePassword();
    if (Action == QLatin1String("get-database-groups"))
        return groups();
    if (Action == QLatin1String("create-new-group"))
        return createGroup(Msg, Error);
    // lock-database
    m_host.LockDatabase();
    return {};
}

QJsonObject clsBrowserClient::databaseHash(int& /*Error*/) {
    return {{QStringLiteral("hash"), BrDatabaseHash(CurUser)}};
}

QJsonObject clsBrowserClient::associate(const QJsonObject& Msg, int& Error) {
    const QString idKey = Msg.value(QStringLiteral("idKey")).toString();
    if (unb64(Msg.value(QStringLiteral("key"))) != m_clientKey || unb64(idKey).size() != kBrKeyBytes) {
        Error = brAssociationFailed;
        return {};
    }
    QString name = QStringLiteral("Browser ") +
                   QDateTime::currentDateTime().toString(QStringLiteral("yyyy-MM-dd HH:mm"));
    const clsDatabase* asking = CurUsDB.get();
    if (!m_host.AskConnect(name) || name.trimmed().isEmpty() || !m_host.DatabaseOpen() ||
        CurUsDB.get() != asking) {
        DbgPrint(QStringLiteral("Browser: connection refused"));
        Error = brAssociationFailed;
        return {};
    }
    name = name.trimmed();
    BrAddAssociation(*CurUsDB, name, idKey);
    m_host.Save();
    DbgPrint(QStringLiteral("Browser: extension connected as ") + name);
    return {{QStringLiteral("hash"), BrDatabaseHash(CurUser)}, {QStringLiteral("id"), name}};
}

QJsonObject clsBrowserClient::testAssociate(const QJsonObject& Msg, int& Error) {
    const QString id = Msg.value(QStringLiteral("id")).toString();
    if (!BrIsAssociated(CurUsDB->DBView(), id, Msg.value(QStringLiteral("key")).toString())) {
        Error = brAssociationFailed;
        return {};
    }
    return {{QStringLiteral("hash"), BrDatabaseHash(CurUser)}, {QStringLiteral("id"), id}};
}

bool clsBrowserClient::keysAssociated(const QJsonObject& Msg) const {
    for (const QJsonValue& k : Msg.value(QStringLiteral("keys")).toArray()) {
        const QJsonObject o = k.toObject();
        if (BrIsAssociated(CurUsDB->DBView(), o.value(QStringLiteral("id")).toString(),
                           o.value(QStringLiteral("key")).toString()))
            return true;
    }
    return false;
}

QJsonObject clsBrowserClient::generatePassword() {
    const int asked = static_cast<int>(Val(ProgConfig[kCfgGenPasswordLength]));
    const int len = asked < 1 ? 20 : std::clamp(asked, 8, 128);
    QString pw = GeneratePassword(len);
    QJsonObject o{{QStringLiteral("password"), pw}};
    WipeString(pw);
    return o;
}
