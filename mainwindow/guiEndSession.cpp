#include "mainwindow/guiEndSession.h"

#include "diagnostics/DbgPrint.h"
#include "diagnostics/Trace.h"

#include <QSocketNotifier>

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {
constexpr int kSignals[] = {SIGTERM, SIGHUP, SIGINT};
int g_pipe[2] = {-1, -1};
struct sigaction g_former[3];

void onSignal(int Signal) {
    const int saved = errno;
    const char c = static_cast<char>(Signal);
    // Nothing else is safe here; a full pipe already holds a request.
    [[maybe_unused]] const ssize_t n = ::write(g_pipe[0], &c, 1);
    errno = saved;
}
} // namespace

EndSessionWatch::EndSessionWatch(QObject* parent) : QObject(parent) {
    TRACE_PROC("frmMain.EndSessionWatch");
    if (g_pipe[0] >= 0 || ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, g_pipe) != 0) {
        DbgPrint(QStringLiteral("Termination signals are not watched"));
        return;
    }
    ::fcntl(g_pipe[0], F_SETFL, O_NONBLOCK);
    m_notifier = new QSocketNotifier(g_pipe[1], QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &EndSessionWatch::readSignal);
    struct sigaction sa {};
    sa.sa_handler = onSignal;
    sigemptyset(&sa.sa_mask);
    sa.sa_flags = SA_RESTART;
    for (int i = 0; i < 3; ++i)
        sigaction(kSignals[i], &sa, &g_former[i]);
}

EndSessionWatch::~EndSessionWatch() {
    if (!m_notifier)
        return;
    for (int i = 0; i < 3; ++i)
        sigaction(kSignals[i], &g_former[i], nullptr);
    delete m_notifier;
    ::close(g_pipe[0]);
    ::close(g_pipe[1]);
    g_pipe[0] = g_pipe[1] = -1;
}

void EndSessionWatch::readSignal() {
    char c = 0;
    if (::read(g_pipe[1], &c, 1) == 1) {
        DbgPrint(QStringLiteral("Signal ") + QString::number(c) + QStringLiteral(": saving and ending"));
        emit terminateRequested(c);
    }
}
