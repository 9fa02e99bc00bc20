#include "maintenance/MaintFiles.h"

#include "diagnostics/ErrorTrap.h"
#include "diagnostics/Trace.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

void CopyFileOver(const QString& From, const QString& To, std::optional<QFileDevice::Permissions> Perms) {
    TRACE_PROC("modMain.CopyFileOver", From, To);
    const QFileInfo src(From);
    if (!src.exists() || src.isDir())
        RaiseError(vbErrFileNotFound, QStringLiteral("File not found: ") + From);
    QFile in(From);
    if (!in.open(QIODevice::ReadOnly))
        RaiseError(vbErrPathFileAccess, QStringLiteral("Path/File access error: ") + From);
    QSaveFile out(To);
    if (!out.open(QIODevice::WriteOnly))
        RaiseError(vbErrPathFileAccess, QStringLiteral("Path/File access error: ") + To);
    out.setPermissions(Perms ? *Perms : src.permissions());
    // A write that takes fewer bytes than it was given is a full disk even when the
    // system reports no error for it: the copy is then discarded, never committed.
    constexpr qint64 kChunk = 1 << 20;
    bool ok = true;
    TRACE_LOCAL(ok);
    for (;;) {
        const QByteArray buf = in.read(kChunk);
        if (buf.isEmpty())
            break;
        if (out.write(buf) != buf.size()) {
            ok = false;
            break;
        }
    }
    if (!ok || in.error() != QFileDevice::NoError || out.error() != QFileDevice::NoError) {
        out.cancelWriting();
        RaiseError(vbErrPathFileAccess, QStringLiteral("Path/File access error: ") + To);
    }
    if (!out.commit())
        RaiseError(vbErrPathFileAccess, QStringLiteral("Path/File access error: ") + To);
}

void MakeFolder(const QString& Path, QFileDevice::Permissions Perms) {
    TRACE_PROC("modMain.MakeFolder", Path);
    if (!QDir().mkdir(Path) || !QFileInfo(Path).isDir())
        RaiseError(vbErrPathFileAccess, QStringLiteral("Path/File access error: ") + Path);
    QFile::setPermissions(Path, Perms);
}
