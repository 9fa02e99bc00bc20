#pragma once

// The Secret Service provider (freedesktop Secret Service API 0.2) for the open user.
// While it runs and the name org.freedesktop.secrets is free on the session bus it owns
// the name; it never takes it from another owner (a running keyring), and says who that
// is. Served objects, under /org/freedesktop/secrets:
//   (itself)                       the Service
//   collection/<user>              the open user's collection (aliases/default and
//                                  aliases/login name it as well)
//   collection/<user>/<IndNum>     an item: a record (SecretItems.h)
//   session/<n>, prompt/<n>        sessions and prompts of the clients
// Every message is checked against the signature it must have; anything else is answered
// with a D-Bus error. What the window must do (the password question that unlocks, the
// lock, saving after a change, the question before one program reads another's item) is
// handed in as hooks; the tests hand in their own.

#include "secrets/SecretItems.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVirtualObject>
#include <QHash>
#include <QString>

#include <functional>
#include <memory>

class SecretTransfer;
class QTimer;

// What a question before a read shows.
struct SecretReadAsk {
    QString Reader; // the program that wants to read
    QString Owner;  // the program that stored the item ("" by hand)
    QString Title;  // the item's label
    QString User;
    bool Change = false; // it wants to change or delete the item, not read it
};

struct SecretHooks {
    // Shows the window's password question for the user of the collection; Done(true)
    // once the user is open and unlocked, Done(false) when the question was declined.
    std::function<void(std::function<void(bool)> Done)> Unlock;
    // Locks the window (as its inactivity lock does).
    std::function<void()> Lock;
    // Items were stored, changed or deleted: save through the session, show them.
    std::function<void()> Changed;
    // Asks before a read; Done(SecretAnswer). Answers a function that closes the question
    // unanswered (the client went away), which then calls nothing.
    std::function<std::function<void()>(const SecretReadAsk& Ask, std::function<void(int)> Done)> AskRead;
};

class SecretService : public QDBusVirtualObject {
    Q_OBJECT
public:
    explicit SecretService(QDBusConnection Bus, SecretHooks Hooks, QObject* parent = nullptr);
    ~SecretService() override;

    // Registers the objects and asks for the name, without replacing an owner. True when
    // the name is ours; else Owner() tells who has it. When that owner lets it go, the
    // name is taken then.
    bool Start();
    void Stop();
    bool Running() const { return m_owned; }
    // The program that owns the name when it is not us ("" when nobody or unknown), and
    // the reason in words the options page shows.
    QString Owner() const { return m_owner; }
    QString Reason() const { return m_reason; }

    // Saves coalesce: a burst of stores makes one save.
    void FlushChanges();

    QString introspect(const QString& path) const override;
    bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override;

    static QString ServiceName() { return QStringLiteral("org.freedesktop.secrets"); }
    static QString RootPath() { return QStringLiteral("/org/freedesktop/secrets"); }

signals:
    void StateChanged();

private slots:
    void OnNameOwnerChanged(const QString& Name, const QString& Old, const QString& New);

private:
    struct Session {
        QString Owner; // the client's unique bus name
        std::shared_ptr<SecretTransfer> Transfer;
    };
    struct Prompt {
        QString Owner;
        std::function<void(const QString&)> Run;
        bool Started = false;
    };
    struct PendingRead {
        QDBusMessage Msg;
        QString Sender, Reader, SessionPath;
        QStringList Ids;
        bool Many = false;
        qsizetype Next = 0;
        QStringList Allowed;
        std::function<void()> Cancel;
        bool Asking = false;
        // A change of one item (set, delete) waiting for the answer: run when allowed;
        // it replies itself.
        std::function<void()> Change;
    };
    enum class Kind { None, Service, Collection, Item, Session, Prompt };
    struct Target {
        Kind K = Kind::None;
        QString Id; // item IndNum, session or prompt number
    };

    Target Resolve(const QString& Path) const;
    // The open user, else the last one (whose collection shows locked).
    static QString KnownUser();
    QString CollectionName() const;
    QString CollectionPath() const;
    QString ItemPath(const QString& Id) const;
    bool Locked() const;
    QString ProgramOf(const QString& Sender);

    // Replies.
    void Reply(const QDBusMessage& M, const QList<QVariant>& Args);
    void Error(const QDBusMessage& M, const QString& Name, const QString& Text);
    void Signal(const QString& Path, const QString& Iface, const QString& Name, const QList<QVariant>& Args);

    // Handlers (SecretServiceCalls.cpp and SecretServiceItems.cpp).
    void OnService(const QDBusMessage& M);
    void OnCollection(const QDBusMessage& M);
    void OnItem(const QDBusMessage& M, const QString& Id);
    void OnSession(const QDBusMessage& M, const QString& Id);
    void OnPrompt(const QDBusMessage& M, const QString& Id);
    void OnProperties(const QDBusMessage& M, const Target& T);
    QVariant Property(const Target& T, const QString& Iface, const QString& Name, bool& Known);
    QVariantMap AllProperties(const Target& T, const QString& Iface);

    void OpenSession(const QDBusMessage& M);
    void SearchItems(const QDBusMessage& M, bool OnService);
    void UnlockOrLock(const QDBusMessage& M, bool Unlock);
    void CreateItem(const QDBusMessage& M);
    void StartRead(const QDBusMessage& M, const QStringList& Ids, const QString& SessionPath, bool Many);
    void ContinueRead(const std::shared_ptr<PendingRead>& R);
    void FinishRead(const std::shared_ptr<PendingRead>& R);
    bool SecretOut(const QString& SessionPath, const QString& Id, QVariant& Out);
    bool SecretIn(const QDBusMessage& M, const QVariant& Arg, QByteArray& Plain, QString& Type);
    QString NewPrompt(const QString& Sender, std::function<void(const QString& PromptPath)> Run);
    void CompletePrompt(const QString& Id, bool Dismissed, const QVariant& Result);
    void ItemsChanged();
    void NoteRead(const QString& Reader, const QString& Title, const char* Outcome, bool Change = false);
    // Runs Apply for the call M on item Id once its owner, or the user, allows it.
    void StartChange(const QDBusMessage& M, const QString& Id, std::function<void()> Apply);

    QDBusConnection m_bus;
    SecretHooks m_hooks;
    SecretItems m_items;
    bool m_registered = false, m_owned = false;
    QString m_owner, m_reason;
    QHash<QString, std::shared_ptr<Session>> m_sessions;
    QHash<QString, std::shared_ptr<Prompt>> m_prompts;
    QList<std::shared_ptr<PendingRead>> m_reads; // the first one is being asked about
    QHash<QString, QString> m_programs;          // unique bus name -> program
    quint64 m_nextId = 0;
    QTimer* m_saveTimer = nullptr;
    bool m_dirty = false;
    // Callers waiting for the password question that is showing.
    QList<std::function<void(bool)>> m_unlockWaiters;
    void RunUnlock(std::function<void(bool)> Done);
};
