#include "cli/CliTerminal.h"

#include "diagnostics/Trace.h"

#include <sodium.h>

#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <string>
#include <termios.h>
#include <unistd.h>

namespace {

int g_ttyFd = -1;
termios g_saved{};

// Ctrl+C while echo is off must not leave the terminal without echo. A signal handler:
// no trace frame, nothing but async-signal-safe calls.
extern "C" void restoreAndExit(int sig) {
    if (g_ttyFd >= 0) {
        tcsetattr(g_ttyFd, TCSAFLUSH, &g_saved);
        (void)!write(g_ttyFd, "\n", 1);
    }
    _exit(128 + sig);
}

bool readLine(int fd, std::string& line) {
    TRACE_PROC("modCli.ReadLine", fd);
    line.clear();
    char c;
    for (;;) {
        const ssize_t n = read(fd, &c, 1);
        if (n < 0)
            return false;
        if (n == 0)
            return !line.empty();
        if (c == '\n')
            return true;
        line.push_back(c);
    }
}

void wipe(std::string& s) {
    TRACE_PROC("modCli.Wipe");
    if (!s.empty())
        sodium_memzero(s.data(), s.size());
    s.clear();
}

} // namespace

bool ReadSecretFromTty(const char* Prompt, QString& Out) {
    TRACE_PROC("modCli.ReadSecretFromTty", Prompt);
    const int fd = open("/dev/tty", O_RDWR | O_CLOEXEC | O_NOCTTY);
    if (fd < 0)
        return false;
    termios t{};
    if (tcgetattr(fd, &t) != 0) {
        close(fd);
        return false;
    }
    g_saved = t;
    g_ttyFd = fd;
    struct sigaction sa {
    }, oldInt{}, oldTerm{};
    sa.sa_handler = restoreAndExit;
    sigaction(SIGINT, &sa, &oldInt);
    sigaction(SIGTERM, &sa, &oldTerm);
    t.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    t.c_lflag |= ECHONL;
    tcsetattr(fd, TCSAFLUSH, &t);
    (void)!write(fd, Prompt, std::char_traits<char>::length(Prompt));
    std::string line;
    const bool ok = readLine(fd, line);
    tcsetattr(fd, TCSAFLUSH, &g_saved);
    g_ttyFd = -1;
    sigaction(SIGINT, &oldInt, nullptr);
    sigaction(SIGTERM, &oldTerm, nullptr);
    close(fd);
    if (!line.empty() && line.back() == '\r')
        line.pop_back();
    Out = QString::fromUtf8(line.data(), static_cast<qsizetype>(line.size()));
    wipe(line);
    return ok;
}

bool ReadStdinLine(QString& Out) {
    TRACE_PROC("modCli.ReadStdinLine");
    std::string line;
    const bool ok = readLine(STDIN_FILENO, line);
    if (!line.empty() && line.back() == '\r')
        line.pop_back();
    Out = QString::fromUtf8(line.data(), static_cast<qsizetype>(line.size()));
    wipe(line);
    return ok;
}

bool AskYesOnTty(const QString& Question) {
    TRACE_PROC("modCli.AskYesOnTty", Question);
    const int fd = open("/dev/tty", O_RDWR | O_CLOEXEC | O_NOCTTY);
    if (fd < 0)
        return false;
    const QByteArray q = Question.toUtf8() + " [y/N] ";
    (void)!write(fd, q.constData(), static_cast<std::size_t>(q.size()));
    std::string line;
    readLine(fd, line);
    close(fd);
    return line == "y" || line == "Y" || line == "yes" || line == "Yes";
}
