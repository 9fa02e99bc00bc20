#include "app/InstanceChannel.h"

#include "app/modMain.h"
#include "diagnostics/DbgPrint.h"
#include "diagnostics/Trace.h"

#include <QLocalServer>
#include <QLocalSocket>

namespace {
QLocalServer* g_server = nullptr;
std::function<void()> g_onShow;
constexpr char kShow[] = "show\n";
constexpr char kShown[] = "shown\n";
} // namespace

QString InstanceSocketPath() {
    return InstanceRuntimeFolder() + QStringLiteral("ArgentPasswordMngr.sock");
}

bool ListenForSecondStart(std::function<void()> OnShow) {
    TRACE_PROC("modMain.ListenForSecondStart");
    StopListening();
    g_onShow = std::move(OnShow);
    g_server = new QLocalServer;
    g_server->setSocketOptions(QLocalServer::UserAccessOption);
    // Whoever holds the instance lock owns the socket; one left by a crash goes.
    QLocalServer::removeServer(InstanceSocketPath());
    if (!g_server->listen(InstanceSocketPath())) {
        DbgPrint(QStringLiteral("Second-start socket not available: ") + g_server->errorString());
        return false;
    }
    QObject::connect(g_server, &QLocalServer::newConnection, [] {
        while (QLocalSocket* s = g_server->nextPendingConnection()) {
            QObject::connect(s, &QLocalSocket::disconnected, s, &QObject::deleteLater);
            QObject::connect(s, &QLocalSocket::readyRead, s, [s] {
                if (!s->canReadLine())
                    return;
                const QByteArray line = s->readLine(64);
                if (line == kShow) {
                    DbgPrint(QStringLiteral("Second start: showing the window"));
                    s->write(kShown);
                    s->flush();
                    if (g_onShow)
                        g_onShow();
                }
                s->disconnectFromServer();
            });
        }
    });
    return true;
}

void StopListening() {
    if (g_server) {
        g_server->close();
        delete g_server;
        g_server = nullptr;
    }
}

bool AskFirstInstanceToShow(int TimeoutMs) {
    TRACE_PROC("modMain.AskFirstInstanceToShow", TimeoutMs);
    QLocalSocket s;
    s.connectToServer(InstanceSocketPath());
    if (!s.waitForConnected(TimeoutMs))
        return false;
    s.write(kShow);
    if (!s.waitForBytesWritten(TimeoutMs))
        return false;
    while (!s.canReadLine())
        if (!s.waitForReadyRead(TimeoutMs))
            return false;
    return s.readLine(64) == kShown;
}
