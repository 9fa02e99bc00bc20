// argentpm-clipkeeper: owns the desktop clipboard for 'argentpm clip'.
//
// Reads the value from standard input up to its end, puts it on the clipboard marked as
// secret, answers "ready" (or "error: ...") on standard output, and then serves the
// clipboard until the delay given with --seconds has passed (the value is then taken
// off if it is still there) or something else has been copied. --seconds 0 keeps it
// until something else is copied.

#include "app/guiSecretClipboard.h"

#include <QGuiApplication>

#include <sodium.h>

#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/prctl.h>
#include <unistd.h>

namespace {
void answer(const char* Text) {
    std::fputs(Text, stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
    // argentpm waits for this line only; nothing else goes to it.
    const int devnull = ::open("/dev/null", O_WRONLY);
    if (devnull >= 0)
        dup2(devnull, 1);
}

QByteArray readStdin() {
    QByteArray data;
    char buf[4096];
    for (;;) {
        const ssize_t n = ::read(0, buf, sizeof buf);
        if (n <= 0)
            break;
        data.append(buf, n);
    }
    sodium_memzero(buf, sizeof buf);
    return data;
}
} // namespace

int main(int argc, char** argv) {
    prctl(PR_SET_DUMPABLE, 0);
    int seconds = -1;
    for (int i = 1; i + 1 < argc; ++i)
        if (std::strcmp(argv[i], "--seconds") == 0)
            seconds = std::atoi(argv[i + 1]);
    if (seconds < 0) {
        answer("error: usage: argentpm-clipkeeper --seconds N < value");
        return 2;
    }
    // The X11 clipboard (under Wayland the one of XWayland) may be owned by a process
    // without a focused window; a Wayland clipboard may not. Whatever platform the
    // caller's environment names, the keeper serves the real desktop.
    if (!qEnvironmentVariableIsEmpty("DISPLAY"))
        qputenv("QT_QPA_PLATFORM", "xcb");
    else if (!qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY"))
        qputenv("QT_QPA_PLATFORM", "wayland");
    if (sodium_init() < 0) {
        answer("error: libsodium");
        return 1;
    }
    QByteArray value = readStdin();
    QGuiApplication app(argc, argv);
    SecretClipboard clip;
    QString text = QString::fromUtf8(value);
    sodium_memzero(value.data(), static_cast<std::size_t>(value.size()));
    clip.CopySecret(text, seconds);
    const bool holds = clip.HoldsOurSecret();
    text.fill(QChar(0));
    if (!holds) {
        answer("error: the desktop did not take the clipboard");
        return 1;
    }
    QObject::connect(&clip, &SecretClipboard::expired, &app, [] { QCoreApplication::quit(); });
    QObject::connect(&clip, &SecretClipboard::lost, &app, [] { QCoreApplication::quit(); });
    answer("ready");
    return app.exec();
}
