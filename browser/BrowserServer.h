#pragma once

// The window's end of the browser connection: a local socket (BrowserChannel.h) that
// each started bridge connects to, one connected extension per connection. Messages are
// answered one at a time in arrival order, so that a question the window shows never
// overlaps another; those that wait for an unlock are put aside and answered when the
// user is open again, or refused as "database not opened" after kBrUnlockWaitMs.
// Every connection hears "database-locked" and "database-unlocked" as they happen.
//
// Runs while settings entry 30 is on and the window has set a host.

#include "browser/SiteIndex.h"

#include <QByteArray>
#include <QElapsedTimer>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QTimer>

#include <memory>

class IBrowserHost;
class QLocalServer;
class QLocalSocket;
class clsBrowserClient;

inline constexpr int kCfgBrowserOn = 30;      // serve browser extensions ("1"/"0"; 0)
inline constexpr int kCfgBrowserList = 31;    // browsers served: keys, comma-separated (firefox)
inline constexpr int kBrUnlockWaitMs = 60000; // a request waits this long for an unlock

class clsBrowserServer : public QObject {
    Q_OBJECT
public:
    clsBrowserServer();
    ~clsBrowserServer() override;

    void SetHost(IBrowserHost* Host);
    // Listens (true) or stops, as settings entry 30 says.
    bool ApplySetting();
    bool Start();
    void Stop();
    bool Listening() const;
    int Connections() const { return static_cast<int>(m_conns.size()); }
    QString ErrorText() const { return m_error; }

private:
    struct Conn;
    struct Pending {
        std::shared_ptr<Conn> C;
        QByteArray Msg;
        qint64 Since = 0;
    };
    void accept();
    void readFrom(const std::shared_ptr<Conn>& C);
    void drop(QLocalSocket* S);
    void pump();
    void answer(const Pending& P, bool Parkable);
    void send(Conn& C, const QByteArray& Json);
    void tick();

    IBrowserHost* m_host = nullptr;
    QLocalServer* m_server = nullptr;
    QList<std::shared_ptr<Conn>> m_conns;
    QList<Pending> m_queue, m_parked;
    bool m_busy = false;
    bool m_wasOpen = false;
    quint64 m_seenGeneration = 0; // of the open database, at the last tick
    qint64 m_seenSince = 0;
    QTimer m_timer;
    QElapsedTimer m_clock;
    clsSiteIndex m_index;
    QString m_error;
};

// The program's one server (made on first use).
clsBrowserServer& BrowserServer();
