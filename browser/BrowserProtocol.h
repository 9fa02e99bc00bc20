#pragma once

// One connected browser extension, speaking the KeePassXC-Browser protocol: the key
// exchange, then messages sealed with crypto_box whose nonce the reply answers with that
// nonce increased by one. A nonce that comes twice, or one of the wrong size, is refused,
// as is a message that does not open with the keys of this connection. Errors carry the
// protocol's codes (BrError) in plain JSON, so that the extension shows its own texts.
//
// Actions: change-public-keys, get-databasehash, associate, test-associate, get-logins,
// set-login, generate-password, lock-database, get-database-groups, create-new-group.
// Everything that needs the open user waits while it is locked when the extension asks
// for an unlock (triggerUnlock), and is answered "database not opened" otherwise.

#include "browser/BrowserCrypto.h"

#include <QByteArray>
#include <QJsonObject>
#include <QSet>
#include <QString>

class IBrowserHost;
class clsSiteIndex;

enum BrError {
    brUnknown = 0,
    brDatabaseNotOpened = 1,
    brClientKeyNotReceived = 3,
    brCannotDecrypt = 4,
    brActionDenied = 6,
    brPublicKeyNotFound = 7,
    brAssociationFailed = 8,
    brKeyChangeFailed = 9,
    brIncorrectAction = 12,
    brEmptyMessage = 13,
    brNoUrl = 14,
    brNoLogins = 15,
};

// The protocol level answered as "version": the extension turns features on by it.
inline constexpr char kBrProtocolVersion[] = "2.7.9";

// A plain error reply for Action.
QByteArray BrErrorReply(const QString& Action, int Code, const QString& RequestId = {});
// The notice pushed to every extension when the open user locks or unlocks.
QByteArray BrNotice(bool Locked);

class clsBrowserClient {
public:
    clsBrowserClient(IBrowserHost& Host, clsSiteIndex& Index);
    ~clsBrowserClient();

    enum Outcome { Answered, WaitForUnlock };
    // Answers one message. WaitForUnlock: the open user is locked and the extension asked
    // for an unlock; the caller hands the message in again once it is open (or answers
    // BrErrorReply(.., brDatabaseNotOpened) when the wait ends).
    Outcome Handle(const QByteArray& Message, QByteArray& Reply);
    // The action of a message, for the replies a caller makes on its behalf.
    static QString ActionOf(const QByteArray& Message, QString* RequestId = nullptr);

private:
    QByteArray changePublicKeys(const QJsonObject& Req);
    QByteArray sealed(const QString& Action, QJsonObject Msg, const QByteArray& Nonce);
    QJsonObject dispatch(const QString& Action, const QJsonObject& Msg, int& Error);

    QJsonObject databaseHash(int& Error);
    QJsonObject associate(const QJsonObject& Msg, int& Error);
    QJsonObject testAssociate(const QJsonObject& Msg, int& Error);
    QJsonObject getLogins(const QJsonObject& Msg, int& Error);
    QJsonObject setLogin(const QJsonObject& Msg, int& Error);
    QJsonObject generatePassword();
    QJsonObject groups();
    QJsonObject createGroup(const QJsonObject& Msg, int& Error);
    bool keysAssociated(const QJsonObject& Msg) const;

    IBrowserHost& m_host;
    clsSiteIndex& m_index;
    BrKeyPair m_keys;
    QByteArray m_clientKey;
    QString m_clientId;
    QSet<QByteArray> m_nonces; // every nonce this connection has seen
};
