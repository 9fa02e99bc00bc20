#include "app/MemoryFile.h"

#include "diagnostics/Trace.h"

#include <QMutex>
#include <QSet>

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

const QString kPrefix = QStringLiteral("/proc/self/fd/");

QMutex g_lock;
QSet<int> g_open; // descriptors of the memory files handed out

int descriptorOf(const QString& Path) {
    if (!Path.startsWith(kPrefix))
        return -1;
    bool ok = false;
    const int fd = Path.mid(kPrefix.size()).toInt(&ok);
    return ok ? fd : -1;
}

} // namespace

QString CreateMemoryFile(const char* Name) {
    TRACE_PROC("modMain.CreateMemoryFile", Name);
    const int fd = ::memfd_create(Name, MFD_CLOEXEC);
    if (fd < 0)
        return QString();
    // Private to its owner, like every other file the program keeps.
    ::fchmod(fd, 0600);
    const QMutexLocker hold(&g_lock);
    g_open.insert(fd);
    return kPrefix + QString::number(fd);
}

bool IsMemoryFile(const QString& Path) {
    const int fd = descriptorOf(Path);
    if (fd < 0)
        return false;
    const QMutexLocker hold(&g_lock);
    return g_open.contains(fd);
}

bool CloseMemoryFile(const QString& Path) {
    TRACE_PROC("modMain.CloseMemoryFile", Path);
    const int fd = descriptorOf(Path);
    {
        const QMutexLocker hold(&g_lock);
        if (fd < 0 || !g_open.remove(fd))
            return false;
    }
    // Cut to nothing first: the pages go back to the kernel at once (even should another
    // descriptor of the copy still be open), and the kernel clears a page before reuse.
    ::ftruncate(fd, 0);
    ::close(fd);
    return true;
}
