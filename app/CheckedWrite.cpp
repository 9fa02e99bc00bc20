#include "app/CheckedWrite.h"

#include "app/FileTime.h"
#include "app/MemoryFile.h"

#include "diagnostics/DbgPrint.h"
#include "diagnostics/Trace.h"

#include <QFileInfo>

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// The rename is only durable once the folder itself is synced; a failure here is no
// reason to call the write failed (the new file is complete either way).
void syncFolder(const QString& FilePath) {
    const QByteArray dir = QFile::encodeName(QFileInfo(FilePath).absolutePath());
    const int fd = ::open(dir.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd >= 0) {
        ::fsync(fd);
        ::close(fd);
    }
}

} // namespace

clsCheckedFile::clsCheckedFile(const QString& Path) : m_file(Path) {
    if (IsMemoryFile(Path))
        m_scratch.setFileName(Path);
}

clsCheckedFile::~clsCheckedFile() {
    if (!m_done)
        Cancel();
}

bool clsCheckedFile::Open(QFileDevice::Permissions Perms) {
    TRACE_PROC("clsCheckedFile.Open", m_file.fileName());
    if (!m_scratch.fileName().isEmpty()) {
        m_dev = &m_scratch;
        if (!m_scratch.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Unbuffered)) {
            m_failed = true;
            return false;
        }
        return true;
    }
    m_dev = &m_file;
    // Unbuffered: a write the disk refuses fails in Write, not silently in a later flush.
    if (!m_file.open(QIODevice::WriteOnly | QIODevice::Unbuffered)) {
        m_failed = true;
        return false;
    }
    if (!m_file.setPermissions(Perms)) {
        m_failed = true;
        return false;
    }
    return true;
}

bool clsCheckedFile::Write(const char* Data, qint64 Len) {
    if (m_failed || !m_dev || !m_dev->isOpen())
        return false;
    qint64 done = 0;
    while (done < Len) {
        const qint64 n = m_dev->write(Data + done, Len - done);
        if (n <= 0) {
            m_failed = true;
            return false;
        }
        done += n;
    }
    m_written += done;
    return true;
}

bool clsCheckedFile::Commit() {
    TRACE_PROC("clsCheckedFile.Commit", m_file.fileName(), static_cast<long long>(m_written));
    if (m_done)
        return false;
    if (m_dev == &m_scratch) {
        m_done = true;
        const bool ok = !m_failed && m_scratch.isOpen() && m_scratch.size() == m_written;
        m_scratch.close();
        return ok;
    }
    if (m_failed || !m_file.isOpen() || m_file.error() != QFileDevice::NoError || !m_file.flush() ||
        ::fsync(m_file.handle()) != 0 || m_file.size() != m_written) {
        // Dropping the temporary file replaces Qt's error with its own: the reason is kept.
        m_error = ErrorText();
        DbgPrint(QStringLiteral("Write failed: ") + m_file.fileName() + QStringLiteral(" (") + m_error +
                 QStringLiteral(")"));
        Cancel();
        return false;
    }
    struct stat st;
    if (::fstat(m_file.handle(), &st) == 0) {
        m_haveStat = true;
        m_statSize = st.st_size;
        m_statMTimeNs = FileMTimeNs(st);
        m_statInode = st.st_ino;
    }
    m_done = true;
    if (!m_file.commit()) {
        DbgPrint(QStringLiteral("Write failed: ") + m_file.fileName() + QStringLiteral(" (") +
                 m_file.errorString() + QStringLiteral(")"));
        return false;
    }
    syncFolder(m_file.fileName());
    return true;
}

bool clsCheckedFile::WrittenStat(qint64& Size, qint64& MTimeNs, quint64& Inode) const {
    Size = m_statSize;
    MTimeNs = m_statMTimeNs;
    Inode = m_statInode;
    return m_haveStat;
}

void clsCheckedFile::Cancel() {
    m_done = true;
    if (m_dev == &m_scratch) {
        m_scratch.close();
        return;
    }
    // commit() after cancelWriting() removes the temporary file and reports failure.
    if (m_file.isOpen()) {
        m_file.cancelWriting();
        m_file.commit();
    }
}

QString clsCheckedFile::ErrorText() const {
    if (!m_error.isEmpty())
        return m_error;
    return m_dev == &m_scratch ? m_scratch.errorString() : m_file.errorString();
}

bool WriteFileChecked(const QString& Path, const QByteArray& Data, QFileDevice::Permissions Perms) {
    TRACE_PROC("modMain.WriteFileChecked", Path, static_cast<long long>(Data.size()));
    clsCheckedFile f(Path);
    return f.Open(Perms) && f.Write(Data) && f.Commit();
}
