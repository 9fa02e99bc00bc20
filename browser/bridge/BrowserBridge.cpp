// argentpm-browser: the native-messaging host that the browser starts for the
// KeePassXC-Browser extension. It passes each message between the browser (standard input
// and output, 4-byte length first) and the running window (BrowserChannel.h), and opens
// no user file: with no window, or when the window goes away, every request is answered
// "database not opened" as the protocol answers for a closed database.
//
// A message of the browser beyond 1 MiB is read past and answered with an error; a
// stream that ends inside a message ends the bridge.

#include "browser/BrowserChannel.h"

#include <QByteArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QList>
#include <QString>

#include <cerrno>
#include <csignal>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

int g_window = -1;
QList<QPair<QString, QString>> g_waiting; // (action, requestID) sent to the window, unanswered

bool writeAll(int Fd, const QByteArray& Data) {
    qsizetype done = 0;
    while (done < Data.size()) {
        const ssize_t n = ::write(Fd, Data.constData() + done, static_cast<size_t>(Data.size() - done));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        done += n;
    }
    return true;
}

// Reads exactly Len bytes (Out empty: read past them). False at the end of the stream.
bool readExactly(int Fd, qsizetype Len, QByteArray* Out) {
    char buf[65536];
    while (Len > 0) {
        const ssize_t n = ::read(Fd, buf, static_cast<size_t>(std::min<qsizetype>(Len, sizeof buf)));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        if (Out)
            Out->append(buf, n);
        Len -= n;
    }
    return true;
}

QByteArray errorReply(const QString& Action, const QString& RequestId, int Code, const char* Text) {
    QJsonObject o{{QStringLiteral("action"), Action},
                  {QStringLiteral("errorCode"), QString::number(Code)},
                  {QStringLiteral("error"), QLatin1String(Text)}};
    if (!RequestId.isEmpty())
        o.insert(QStringLiteral("requestID"), RequestId);
    return QJsonDocument(o).toJson(QJsonDocument::Compact);
}

bool toBrowser(const QByteArray& Json) {
    return writeAll(STDOUT_FILENO, BrFrame(Json));
}

void closedDatabase(const QString& Action, const QString& RequestId) {
    toBrowser(errorReply(Action, RequestId, 1, "Database not opened"));
}

bool connectWindow() {
    if (g_window >= 0)
        return true;
    if (!BrChannelFolderPrivate(BrChannelFolder()))
        return false;
    const QByteArray path = BrChannelPath().toLocal8Bit();
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    if (path.size() >= static_cast<qsizetype>(sizeof addr.sun_path))
        return false;
    memcpy(addr.sun_path, path.constData(), static_cast<size_t>(path.size()));
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return false;
    if (::connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) {
        ::close(fd);
        return false;
    }
    g_window = fd;
    return true;
}

// The window went away: whatever it had not answered is answered here.
void windowGone() {
    if (g_window >= 0)
        ::close(g_window);
    g_window = -1;
    for (const auto& w : g_waiting)
        closedDatabase(w.first, w.second);
    g_waiting.clear();
}

// One message from the browser. False when the browser's stream ended.
bool fromBrowser() {
    std::uint32_t len = 0;
    QByteArray head;
    if (!readExactly(STDIN_FILENO, sizeof len, &head))
        return false;
    memcpy(&len, head.constData(), sizeof len);
    if (len > kBrMaxMessage) {
        if (!readExactly(STDIN_FILENO, len, nullptr))
            return false;
        return toBrowser(errorReply(QString(), QString(), 0, "Message too large"));
    }
    QByteArray msg;
    if (!readExactly(STDIN_FILENO, len, &msg))
        return false;
    const QJsonObject o = QJsonDocument::fromJson(msg).object();
    const QString action = o.value(QStringLiteral("action")).toString();
    const QString requestId = o.value(QStringLiteral("requestID")).toString();
    if (connectWindow() && writeAll(g_window, BrFrame(msg))) {
        g_waiting.append({action, requestId});
        return true;
    }
    windowGone();
    if (msg.trimmed().isEmpty())
        return toBrowser(errorReply(QString(), QString(), 13, "Empty message received"));
    closedDatabase(action, requestId);
    return true;
}

// What the window sent. False when it went away.
bool fromWindow(QByteArray& Buf) {
    char buf[65536];
    const ssize_t n = ::read(g_window, buf, sizeof buf);
    if (n < 0 && errno == EINTR)
        return true;
    if (n <= 0)
        return false;
    Buf.append(buf, n);
    QByteArray msg;
    for (;;) {
        const int got = BrTakeFrame(Buf, msg, kBrMaxMessage);
        if (got < 0)
            return false;
        if (got == 0)
            return true;
        const QString action =
            QJsonDocument::fromJson(msg).object().value(QStringLiteral("action")).toString();
        for (qsizetype i = 0; i < g_waiting.size(); ++i)
            if (g_waiting[i].first == action) {
                g_waiting.removeAt(i);
                break;
            }
        if (!toBrowser(msg))
            return false;
    }
}

} // namespace

int main() {
    std::signal(SIGPIPE, SIG_IGN);
    QByteArray fromWin;
    connectWindow();
    for (;;) {
        pollfd fds[2] = {{STDIN_FILENO, POLLIN, 0}, {g_window, POLLIN, 0}};
        const int n = ::poll(fds, g_window >= 0 ? 2 : 1, -1);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            return 1;
        if (g_window >= 0 && (fds[1].revents & (POLLIN | POLLHUP | POLLERR)) && !fromWindow(fromWin)) {
            fromWin.clear();
            windowGone();
        }
        if ((fds[0].revents & (POLLIN | POLLHUP | POLLERR)) && !fromBrowser())
            return 0;
    }
}
