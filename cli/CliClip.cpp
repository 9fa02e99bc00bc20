// argentpm clip: a field of a record onto the desktop clipboard.
//
// An X11 (or XWayland) clipboard is served by the process that owns it, for as long as
// it holds it, so argentpm hands the value to a small keeper process
// (argentpm-clipkeeper, beside argentpm) through a pipe and returns once the keeper
// owns the clipboard. The keeper marks the value as secret for clipboard managers,
// clears it after the delay of settings entry 23 if it is still there, and ends; it
// also ends when something else is copied. argentpm itself holds no GUI code.

#include "cli/CliFields.h"
#include "cli/CliScript.h"
#include "cli/CliShared.h"

#include "app/ClipDelay.h"
#include "diagnostics/Trace.h"
#include "storage/clsDatabase.h"
#include "users/UserAccounts.h"

#include <QCoreApplication>
#include <QFileInfo>

#include <sodium.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace cli;

namespace {

QString keeperPath() {
    return QCoreApplication::applicationDirPath() + QStringLiteral("/argentpm-clipkeeper");
}

bool writeAll(int Fd, const char* Data, std::size_t Size) {
    while (Size > 0) {
        const ssize_t n = ::write(Fd, Data, Size);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        Data += n;
        Size -= static_cast<std::size_t>(n);
    }
    return true;
}

// Starts the keeper detached from this process (its own session, reparented), hands it
// the value and waits for its word that it owns the clipboard. Returns its answer.
QByteArray runKeeper(const QString& Path, QByteArray& Secret, int Seconds) {
    TRACE_PROC("modCli.RunKeeper", Path, Seconds);
    int in[2], out[2];
    if (pipe2(in, O_CLOEXEC) != 0)
        return "error: no pipe";
    if (pipe2(out, O_CLOEXEC) != 0) {
        ::close(in[0]);
        ::close(in[1]);
        return "error: no pipe";
    }
    const QByteArray exe = QFile::encodeName(Path);
    const QByteArray secs = QByteArray::number(Seconds);
    const pid_t child = fork();
    if (child == 0) {
        // The keeper outlives argentpm: a session of its own, and the grandchild runs it.
        setsid();
        if (fork() != 0)
            _exit(0);
        dup2(in[0], 0);
        dup2(out[1], 1);
        const int devnull = ::open("/dev/null", O_WRONLY);
        if (devnull >= 0)
            dup2(devnull, 2);
        execl(exe.constData(), exe.constData(), "--seconds", secs.constData(), static_cast<char*>(nullptr));
        _exit(127);
    }
    ::close(in[0]);
    ::close(out[1]);
    if (child < 0) {
        ::close(in[1]);
        ::close(out[0]);
        return "error: cannot start the keeper";
    }
    int status = 0;
    waitpid(child, &status, 0);
    // A keeper that is gone already must not end argentpm with SIGPIPE.
    std::signal(SIGPIPE, SIG_IGN);
    const bool sent = writeAll(in[1], Secret.constData(), static_cast<std::size_t>(Secret.size()));
    ::close(in[1]);
    QByteArray answer;
    if (sent) {
        // Ten seconds for the keeper to start and take the clipboard.
        for (int waited = 0; waited < 100 && !answer.contains('\n');) {
            pollfd p{out[0], POLLIN, 0};
            const int r = poll(&p, 1, 100);
            if (r < 0 && errno == EINTR)
                continue;
            if (r == 0) {
                ++waited;
                continue;
            }
            char buf[256];
            const ssize_t n = ::read(out[0], buf, sizeof buf);
            if (n <= 0)
                break;
            answer.append(buf, n);
        }
    }
    ::close(out[0]);
    if (answer.isEmpty())
        return sent ? "error: the keeper did not answer" : "error: the keeper could not be started";
    return answer.trimmed();
}

} // namespace

int CmdClip(const CliOptions& Opt, const QStringList& Args) {
    TRACE_PROC("modCli.CmdClip", Args);
    bool isNum = false;
    Args[1].toInt(&isNum);
    if (!isNum)
        return badArguments(Opt);
    if (Opt.has("field") && Opt.value("field").isEmpty())
        return usage(Opt, QStringLiteral("--field takes the name of a field"));
    if (qEnvironmentVariableIsEmpty("DISPLAY") && qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY")) {
        say(QStringLiteral(
            "there is no desktop clipboard here (neither DISPLAY nor WAYLAND_DISPLAY is set)"));
        return cliNoClipboard;
    }
    const QString keeper = keeperPath();
    if (!QFileInfo(keeper).isExecutable()) {
        say(QStringLiteral("the clipboard keeper %1 is missing").arg(keeper));
        return cliNoClipboard;
    }
    if (int rc = openUser(Opt, Args[0]))
        return rc;
    int tbl;
    if (int rc = dataTable(tbl))
        return rc;
    const QString id = QString::number(Args[1].toInt());
    int rec;
    if (int rc = findRow(id, rec))
        return rc;
    const QString field = Opt.value("field", QStringLiteral("password"));
    QString value;
    int rc;
    if (!recordFieldValue(id, rec, field, true, value, rc))
        return rc;
    QByteArray secret = value.toUtf8();
    WipeString(value);
    const int seconds = ClipClearDelay();
    const QByteArray answer = runKeeper(keeper, secret, seconds);
    sodium_memzero(secret.data(), static_cast<std::size_t>(secret.size()));
    if (answer != "ready") {
        say(QStringLiteral("the clipboard could not be set (%1)").arg(QString::fromUtf8(answer)));
        return cliNoClipboard;
    }
    if (seconds > 0)
        std::fprintf(stderr, "Copied the %s of %s to the clipboard; it is cleared in %d s.\n",
                     field.toUtf8().constData(), id.toUtf8().constData(), seconds);
    else
        std::fprintf(stderr, "Copied the %s of %s to the clipboard.\n", field.toUtf8().constData(),
                     id.toUtf8().constData());
    return cliOk;
}
