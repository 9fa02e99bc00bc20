#include "storage/UserFileLock.h"

#include "diagnostics/DbgPrint.h"
#include "diagnostics/Trace.h"

#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QMutex>
#include <QThread>

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

struct HeldLock {
    int Fd = -1;
    int Count = 0;
};

// Locks this process holds, by lock file path. Never destroyed: a lock object that is
// itself a static may be released after every other static is gone.
struct Registry {
    QMutex Mutex;
    QHash<QString, HeldLock> Held;
};
Registry& registry() {
    static Registry* r = new Registry;
    return *r;
}

} // namespace

QString clsUserFileLock::LockFilePath(const QString& DBFilePath) {
    const QFileInfo fi(DBFilePath);
    return fi.absolutePath() + QStringLiteral("/.") + fi.fileName() + QStringLiteral(".lock");
}

clsUserFileLock::clsUserFileLock(const QString& DBFilePath) : m_key(LockFilePath(DBFilePath)) {}

clsUserFileLock::~clsUserFileLock() {
    Release();
}

bool clsUserFileLock::Acquire(int TimeoutMs) {
    TRACE_PROC("clsUserFileLock.Acquire", m_key, TimeoutMs);
    if (m_held)
        return true;
    m_timedOut = false;
    {
        QMutexLocker guard(&registry().Mutex);
        auto it = registry().Held.find(m_key);
        if (it != registry().Held.end()) {
            ++it->Count;
            m_held = true;
            return true;
        }
    }
    const QByteArray path = QFile::encodeName(m_key);
    const int fd = ::open(path.constData(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (fd < 0) {
        DbgPrint(QStringLiteral("Lock file cannot be made: ") + m_key);
        return false;
    }
    ::fchmod(fd, 0600);
    QElapsedTimer waited;
    waited.start();
    for (;;) {
        if (::flock(fd, LOCK_EX | LOCK_NB) == 0)
            break;
        if (errno != EWOULDBLOCK && errno != EINTR) {
            ::close(fd);
            DbgPrint(QStringLiteral("Lock failed: ") + m_key);
            return false;
        }
        if (waited.elapsed() >= TimeoutMs) {
            ::close(fd);
            m_timedOut = true;
            DbgPrint(QStringLiteral("Lock wait timed out: ") + m_key);
            return false;
        }
        QThread::msleep(10);
    }
    QMutexLocker guard(&registry().Mutex);
    registry().Held.insert(m_key, HeldLock{fd, 1});
    m_held = true;
    return true;
}

void clsUserFileLock::Release() {
    if (!m_held)
        return;
    m_held = false;
    QMutexLocker guard(&registry().Mutex);
    auto it = registry().Held.find(m_key);
    if (it == registry().Held.end())
        return;
    if (--it->Count > 0)
        return;
    ::flock(it->Fd, LOCK_UN);
    ::close(it->Fd);
    registry().Held.erase(it);
}
