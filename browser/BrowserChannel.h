#pragma once

// What the bridge (argentpm-browser, started by the browser) and the window share: where
// the window listens, and the framing. Both ends frame a message as the browser does on
// the bridge's standard input and output: a 4-byte length in the machine's byte order,
// then that many bytes of UTF-8 JSON.
//
// The socket lives in a folder of its own in the user's runtime folder (mode 0700; the
// socket 0600): $XDG_RUNTIME_DIR/argentpm-browser/socket, or
// /tmp/argentpm-browser-<uid>/socket without a runtime folder.

#include <QByteArray>
#include <QString>

#include <cstdint>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

// A message to the browser may not be larger than 1 MiB; the browser refuses it and ends
// the bridge. The bridge takes no larger message from the browser either.
inline constexpr std::uint32_t kBrMaxMessage = 1024 * 1024;

inline QString BrChannelFolder() {
    const QByteArray rt = qgetenv("XDG_RUNTIME_DIR");
    struct stat st {};
    if (!rt.isEmpty() && ::stat(rt.constData(), &st) == 0 && S_ISDIR(st.st_mode))
        return QString::fromLocal8Bit(rt) + QStringLiteral("/argentpm-browser");
    return QStringLiteral("/tmp/argentpm-browser-") + QString::number(::getuid());
}

inline QString BrChannelPath() {
    return BrChannelFolder() + QStringLiteral("/socket");
}

// True when Folder is a real folder (no link) of this user that nobody else may enter.
inline bool BrChannelFolderPrivate(const QString& Folder) {
    struct stat st {};
    const QByteArray f = Folder.toLocal8Bit();
    return ::lstat(f.constData(), &st) == 0 && S_ISDIR(st.st_mode) && st.st_uid == ::getuid() &&
           (st.st_mode & 077) == 0;
}

inline QByteArray BrFrame(const QByteArray& Json) {
    const std::uint32_t n = static_cast<std::uint32_t>(Json.size());
    QByteArray out(sizeof n, Qt::Uninitialized);
    std::memcpy(out.data(), &n, sizeof n);
    return out + Json;
}

// Takes one whole frame off the front of Buf into Msg. 0: not whole yet; 1: taken;
// -1: the length is beyond Max (Buf is left as it is).
inline int BrTakeFrame(QByteArray& Buf, QByteArray& Msg, std::uint32_t Max) {
    std::uint32_t n = 0;
    if (Buf.size() < static_cast<qsizetype>(sizeof n))
        return 0;
    std::memcpy(&n, Buf.constData(), sizeof n);
    if (n > Max)
        return -1;
    if (Buf.size() < static_cast<qsizetype>(sizeof n + n))
        return 0;
    Msg = Buf.mid(sizeof n, n);
    Buf.remove(0, sizeof n + n);
    return 1;
}
