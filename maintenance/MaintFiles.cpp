#include "maintenance/MaintFiles.h"

#include "app/CheckedWrite.h"
#include "diagnostics/ErrorTrap.h"
#include "diagnostics/Trace.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

bool TryCopyFileOver(const QString& From, const QString& To, std::optional<QFileDevice::Permissions> Perms) {
    TRACE_PROC("modMain.TryCopyFileOver", From, To);
    const QFileInfo src(From);
    QFile in(From);
    if (!src.isFile() || !in.open(QIODevice::ReadOnly))
        return false;
    clsCheckedFile out(To);
    if (!out.Open(Perms ? *Perms : src.permissions()))
        return false;
    constexpr qint64 kChunk = 1 << 20;
    for (;;) {
        const QByteArray buf = in.read(kChunk);
        if (buf.isEmpty())
            break;
        if (!out.Write(buf))
            return false;
    }
    // A source that could not be read to its end is no copy either.
    if (in.error() != QFileDevice::NoError || out.Written() != in.size()) {
        out.Cancel();
        return false;
    }
    return out.Commit();
}

void CopyFileOver(const QString& From, const QString& To, std::optional<QFileDevice::Permissions> Perms) {
    TRACE_PROC("modMain.CopyFileOver", From, To);
    const QFileInfo src(From);
    if (!src.exists() || src.isDir())
        RaiseError(vbErrFileNotFound, QStringLiteral("File not found: ") + From);
    if (!TryCopyFileOver(From, To, Perms))
        RaiseError(vbErrPathFileAccess, QStringLiteral("Path/File access error: ") + To);
}

void MakeFolder(const QString& Path, QFileDevice::Permissions Perms) {
    TRACE_PROC("modMain.MakeFolder", Path);
    if (!MakeFolderNoFollow(Path, Perms))
        RaiseError(vbErrPathFileAccess, QStringLiteral("Path/File access error: ") + Path);
}
