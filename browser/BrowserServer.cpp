#include "browser/BrowserServer.h"

#include "app/CheckedWrite.h"
#include "app/ProgConfig.h"
#include "browser/BrowserChannel.h"
#include "browser/BrowserHost.h"
#include "browser/BrowserProtocol.h"
#include "diagnostics/DbgPrint.h"
#include "diagnostics/Trace.h"
#include "users/UserAccounts.h"

#include <QDir>
#include <QFile>
#include <QLocalServer>
#include <QLocalSocket>

#include <sys/stat.h>

struct clsBrowserServer::Conn {
    QPointer<QLocalSocket> Socket;
    QByteArray Buf;
    std::unique_ptr<clsBrowserClient> Client;
};

clsBrowserServer::clsBrowserServer() {
    m_clock.start();
    m_timer.setInterval(300);
    connect(&m_timer, &QTimer::timeout, this, &clsBrowserServer::tick);
}

clsBrowserServer::~clsBrowserServer() {
    Stop();
}

void clsBrowserServer::SetHost(IBrowserHost* Host) {
    if (!Host)
        Stop();
    m_host = Host;
}

bool clsBrowserServer::ApplySetting() {
    if (m_host && CfgExtra(kCfgBrowserOn, QStringLiteral("0")) == QLatin1String("1"))
        return Listening() || Start();
    Stop();
    return false;
}

bool clsBrowserServer::Listening() const {
    return m_server && m_server->isListening();
}

bool clsBrowserServer::Start() {
    TRACE_PROC("modBrowser.ServerStart");
    Stop();
    if (!m_host)
        return false;
    const QString folder = BrChannelFolder();
    if (!EntryExists(folder) && !MakeFolderNoFollow(folder, kPrivateFilePerms | QFileDevice::ExeOwner)) {
        m_error = QStringLiteral("cannot make ") + folder;
        DbgPrint(QStringLiteral("Browser: ") + m_error);
        return false;
    }
    if (!BrChannelFolderPrivate(folder)) {
        m_error = folder + QStringLiteral(" is not a private folder of this user");
        DbgPrint(QStringLiteral("Browser: ") + m_error);
        return false;
    }
    m_server = new QLocalServer(this);
    m_server->setSocketOptions(QLocalServer::UserAccessOption);
    QLocalServer::removeServer(BrChannelPath());
    if (!m_server->listen(BrChannelPath())) {
        m_error = m_server->errorString();
        DbgPrint(QStringLiteral("Browser: socket not available: ") + m_error);
        delete m_server;
        m_server = nullptr;
        return false;
    }
    ::chmod(QFile::encodeName(BrChannelPath()).constData(), 0600);
    connect(m_server, &QLocalServer::newConnection, this, &clsBrowserServer::accept);
    m_wasOpen = m_host->DatabaseOpen();
    m_timer.start();
    DbgPrint(QStringLiteral("Browser: listening at ") + BrChannelPath());
    return true;
}

void clsBrowserServer::Stop() {
    m_timer.stop();
    m_queue.clear();
    m_parked.clear();
    const QList<std::shared_ptr<Conn>> conns = std::move(m_conns);
    m_conns.clear();
    for (const auto& c : conns)
        if (c->Socket) {
            c->Socket->disconnect(this);
            c->Socket->abort();
            c->Socket->deleteLater();
        }
    if (m_server) {
        m_server->close();
        m_server->deleteLater();
        m_server = nullptr;
        QFile::remove(BrChannelPath());
    }
    m_index.Clear();
}

void clsBrowserServer::accept() {
    while (QLocalSocket* s = m_server->nextPendingConnection()) {
        auto c = std::make_shared<Conn>();
        c->Socket = s;
        c->Client = std::make_unique<clsBrowserClient>(*m_host, m_index);
        m_conns.append(c);
        connect(s, &QLocalSocket::readyRead, this, [this, c] { readFrom(c); });
        connect(s, &QLocalSocket::disconnected, this, [this, s] { drop(s); });
    }
}

void clsBrowserServer::drop(QLocalSocket* S) {
    m_conns.removeIf([S](const std::shared_ptr<Conn>& C) { return C->Socket == S || !C->Socket; });
    m_queue.removeIf([S](const Pending& P) { return P.C->Socket == S || !P.C->Socket; });
    m_parked.removeIf([S](const Pending& P) { return P.C->Socket == S || !P.C->Socket; });
    S->deleteLater();
}

void clsBrowserServer::readFrom(const std::shared_ptr<Conn>& C) {
    if (!C->Socket)
        return;
    C->Buf += C->Socket->readAll();
    QByteArray msg;
    for (;;) {
        const int got = BrTakeFrame(C->Buf, msg, kBrMaxMessage);
        if (got < 0) { // the bridge never sends this: not a bridge
            C->Socket->abort();
            return;
        }
        if (got == 0)
            break;
        m_queue.append({C, msg, m_clock.elapsed()});
    }
    pump();
}

void clsBrowserServer::pump() {
    if (m_busy)
        return; // a question is open; the loop below goes on when it is answered
    m_busy = true;
    while (!m_queue.isEmpty() && m_host) {
        const Pending p = m_queue.takeFirst();
        if (p.C->Socket)
            answer(p, true);
    }
    m_busy = false;
}

void clsBrowserServer::answer(const Pending& P, bool Parkable) {
    QByteArray reply;
    const clsBrowserClient::Outcome o = P.C->Client->Handle(P.Msg, reply);
    if (o == clsBrowserClient::WaitForUnlock) {
        if (Parkable)
            m_parked.append(P);
        return;
    }
    if (P.C->Socket)
        send(*P.C, reply);
}

void clsBrowserServer::send(Conn& C, const QByteArray& Json) {
    if (!C.Socket || C.Socket->state() != QLocalSocket::ConnectedState)
        return;
    if (Json.size() > static_cast<qsizetype>(kBrMaxMessage) - 64) {
        QString requestId;
        const QString action = clsBrowserClient::ActionOf(Json, &requestId);
        C.Socket->write(BrFrame(BrErrorReply(action, brUnknown, requestId)));
        return;
    }
    C.Socket->write(BrFrame(Json));
}

void clsBrowserServer::tick() {
    if (!m_host)
        return;
    const bool open = m_host->DatabaseOpen();
    if (open != m_wasOpen) {
        m_wasOpen = open;
        if (!open)
            m_index.Clear();
        for (const auto& c : m_conns)
            send(*c, BrNotice(!open));
    }
    // The index is made current once the database has been left alone for a moment, and
    // nothing waits, so that a request seldom pays for it.
    if (open && CurUsDB->Generation() != m_seenGeneration) {
        m_seenGeneration = CurUsDB->Generation();
        m_seenSince = m_clock.elapsed();
    } else if (open && !m_busy && m_queue.isEmpty() && m_clock.elapsed() - m_seenSince >= 2000) {
        m_index.Refresh(*CurUsDB);
    }
    if (m_parked.isEmpty() || m_busy)
        return;
    const QList<Pending> parked = std::move(m_parked);
    m_parked.clear();
    m_busy = true;
    for (const Pending& p : parked) {
        if (!p.C->Socket)
            continue;
        if (open) {
            answer(p, true);
        } else if (m_clock.elapsed() - p.Since > kBrUnlockWaitMs) {
            QString requestId;
            const QString action = clsBrowserClient::ActionOf(p.Msg, &requestId);
            send(*p.C, BrErrorReply(action, brDatabaseNotOpened, requestId));
        } else {
            m_parked.append(p);
        }
    }
    m_busy = false;
    pump();
}

clsBrowserServer& BrowserServer() {
    static clsBrowserServer* s = new clsBrowserServer;
    return *s;
}
