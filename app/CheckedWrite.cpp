#include "app/CheckedWrite.h"

#include "app/FileTime.h"
#include "app/MemoryFile.h"

#include "diagnostics/DbgPrint.h"
#include "diagnostics/Trace.h"

#include <QDir>
#include <QFileInfo>
#include <QRandomGenerator>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr int kMaxOwnLinks = 8;

QString sysError(int Err) {
    return QString::fromLocal8Bit(std::strerror(Err));
}

bool trustedOwner(uid_t Uid) {
    return Uid == getuid() || Uid == 0;
}

// The user's private group (the primary group named after the user, with no other
// members, as many systems give every user): group rights there are the user's alone.
bool ownPrivateGroup(gid_t Gid) {
    if (Gid != getgid())
        return false;
    const passwd* pw = ::getpwuid(getuid());
    const QByteArray user = pw ? QByteArray(pw->pw_name) : QByteArray();
    const group* gr = ::getgrgid(Gid);
    return gr && !user.isEmpty() && user == gr->gr_name && (!gr->gr_mem || !gr->gr_mem[0]);
}

// Path with the links of this user's own at its name followed (a link of someone else's
// stays: the rename replaces it). Relative links count from the link's folder.
QString followOwnLinks(const QString& Path) {
    QString p = QFileInfo(Path).absoluteFilePath();
    for (int i = 0; i < kMaxOwnLinks; ++i) {
        struct stat st {};
        const QByteArray enc = QFile::encodeName(p);
        if (::lstat(enc.constData(), &st) != 0 || !S_ISLNK(st.st_mode) || st.st_uid != getuid())
            break;
        char buf[4096];
        const ssize_t n = ::readlink(enc.constData(), buf, sizeof buf - 1);
        if (n <= 0)
            break;
        const QString to = QFile::decodeName(QByteArray(buf, n));
        p = QDir::cleanPath(QDir::isAbsolutePath(to) ? to : QFileInfo(p).absolutePath() + u'/' + to);
    }
    return p;
}

// A link at the folder's own name must be this user's or root's: a link someone else
// planted would lead the program's files into a folder of that person's choice.
QString plantedLinkProblem(const QString& Folder) {
    QString f = Folder;
    while (f.size() > 1 && f.endsWith(u'/'))
        f.chop(1);
    struct stat st {};
    if (::lstat(QFile::encodeName(f).constData(), &st) == 0 && S_ISLNK(st.st_mode) &&
        !trustedOwner(st.st_uid))
        return QStringLiteral("the folder %1 is a link that belongs to another user (uid %2); nothing is "
                              "written through it")
            .arg(f)
            .arg(st.st_uid);
    return QString();
}

int openFolder(const QString& Folder) {
    return ::open(QFile::encodeName(Folder).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
}

} // namespace

mode_t PosixMode(QFileDevice::Permissions Perms) {
    mode_t m = 0;
    const auto bit = [&](QFileDevice::Permission P, mode_t M) {
        if (Perms & P)
            m |= M;
    };
    bit(QFileDevice::ReadOwner, S_IRUSR);
    bit(QFileDevice::WriteOwner, S_IWUSR);
    bit(QFileDevice::ExeOwner, S_IXUSR);
    bit(QFileDevice::ReadGroup, S_IRGRP);
    bit(QFileDevice::WriteGroup, S_IWGRP);
    bit(QFileDevice::ExeGroup, S_IXGRP);
    bit(QFileDevice::ReadOther, S_IROTH);
    bit(QFileDevice::WriteOther, S_IWOTH);
    bit(QFileDevice::ExeOther, S_IXOTH);
    return m;
}

QString FolderFdProblem(int DirFd, const QString& Shown) {
    struct stat st {};
    if (::fstat(DirFd, &st) != 0)
        return QStringLiteral("the folder %1 cannot be examined (%2)").arg(Shown, sysError(errno));
    if (!trustedOwner(st.st_uid))
        return QStringLiteral("the folder %1 belongs to another user (uid %2); the program writes only into "
                              "folders of its user's own")
            .arg(Shown)
            .arg(st.st_uid);
    const bool othersWrite =
        (st.st_mode & S_IWOTH) != 0 || ((st.st_mode & S_IWGRP) != 0 && !ownPrivateGroup(st.st_gid));
    if (othersWrite && (st.st_mode & S_ISVTX) == 0)
        return QStringLiteral("the folder %1 can be written by other users (mode %2); make it yours alone "
                              "(chmod go-w) or choose another folder")
            .arg(Shown)
            .arg(st.st_mode & 07777, 4, 8, QLatin1Char('0'));
    return QString();
}

QString FolderWriteProblem(const QString& Folder) {
    const QString linkProblem = plantedLinkProblem(Folder);
    if (!linkProblem.isEmpty())
        return linkProblem;
    const int fd = openFolder(Folder);
    if (fd < 0)
        return QString();
    const QString why = FolderFdProblem(fd, Folder);
    ::close(fd);
    return why;
}

bool EntryExists(const QString& Path) {
    struct stat st {};
    return !Path.isEmpty() && ::lstat(QFile::encodeName(Path).constData(), &st) == 0;
}

bool MakeFolderNoFollow(const QString& Path, QFileDevice::Permissions Perms) {
    const QByteArray enc = QFile::encodeName(Path);
    if (::mkdir(enc.constData(), 0700) != 0)
        return false;
    // Widened (or narrowed) on the folder just made, never on whatever the name holds later.
    const int fd = ::open(enc.constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0)
        return false;
    const bool ok = ::fchmod(fd, PosixMode(Perms)) == 0;
    ::close(fd);
    return ok;
}

clsCheckedFile::clsCheckedFile(const QString& Path) : m_path(Path) {
    if (IsMemoryFile(Path))
        m_scratch.setFileName(Path);
}

clsCheckedFile::~clsCheckedFile() {
    if (!m_done)
        Cancel();
}

bool clsCheckedFile::fail(const QString& Why, int Err) {
    if (m_error.isEmpty())
        m_error = Err ? Why + QStringLiteral(" (") + sysError(Err) + u')' : Why;
    m_failed = true;
    // Nothing half written stays behind, not even until the object goes.
    if (m_fd >= 0)
        ::close(m_fd);
    m_fd = -1;
    if (m_dirFd >= 0 && !m_tmpName.isEmpty())
        ::unlinkat(m_dirFd, m_tmpName.constData(), 0);
    m_tmpName.clear();
    return false;
}

bool clsCheckedFile::Open(QFileDevice::Permissions Perms) {
    TRACE_PROC("clsCheckedFile.Open", m_path);
    if (!m_scratch.fileName().isEmpty()) {
        if (!m_scratch.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Unbuffered))
            return fail(m_scratch.errorString());
        return true;
    }
    const QString target = followOwnLinks(m_path);
    const QFileInfo ti(target);
    m_folder = ti.absolutePath();
    m_name = QFile::encodeName(ti.fileName());
    const QString planted = plantedLinkProblem(m_folder);
    if (!planted.isEmpty())
        return fail(planted);
    m_dirFd = openFolder(m_folder);
    if (m_dirFd < 0)
        return fail(QStringLiteral("the folder %1 cannot be opened").arg(m_folder), errno);
    const QString why = FolderFdProblem(m_dirFd, m_folder);
    if (!why.isEmpty())
        return fail(why);
    // A fresh name the program makes itself: O_EXCL and O_NOFOLLOW refuse anything that is
    // there already, a link included.
    for (int attempt = 0; attempt < 16 && m_fd < 0; ++attempt) {
        m_tmpName = QByteArrayLiteral(".argentpm-") +
                    QByteArray::number(QRandomGenerator::system()->generate64(), 36) +
                    QByteArrayLiteral(".tmp");
        m_fd = ::openat(m_dirFd, m_tmpName.constData(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                        0600);
        if (m_fd < 0 && errno != EEXIST)
            break;
    }
    if (m_fd < 0) {
        const int err = errno;
        m_tmpName.clear();
        return fail(QStringLiteral("no file can be made in %1").arg(m_folder), err);
    }
    if (::fchmod(m_fd, PosixMode(Perms)) != 0)
        return fail(QStringLiteral("the permissions of a new file in %1 cannot be set").arg(m_folder), errno);
    return true;
}

bool clsCheckedFile::Write(const char* Data, qint64 Len) {
    if (m_failed || m_done)
        return false;
    if (!m_scratch.fileName().isEmpty()) {
        if (!m_scratch.isOpen() || m_scratch.write(Data, Len) != Len)
            return fail(m_scratch.errorString());
        m_written += Len;
        return true;
    }
    if (m_fd < 0)
        return false;
    qint64 done = 0;
    while (done < Len) {
        const ssize_t n = ::write(m_fd, Data + done, static_cast<size_t>(Len - done));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return fail(QStringLiteral("writing to %1 failed").arg(m_path), n < 0 ? errno : ENOSPC);
        done += n;
    }
    m_written += done;
    return true;
}

void clsCheckedFile::closeAll() {
    if (m_fd >= 0)
        ::close(m_fd);
    m_fd = -1;
    if (m_dirFd >= 0)
        ::close(m_dirFd);
    m_dirFd = -1;
}

bool clsCheckedFile::Commit() {
    TRACE_PROC("clsCheckedFile.Commit", m_path, static_cast<long long>(m_written));
    if (m_done)
        return false;
    if (!m_scratch.fileName().isEmpty()) {
        m_done = true;
        const bool ok = !m_failed && m_scratch.isOpen() && m_scratch.size() == m_written;
        m_scratch.close();
        return ok;
    }
    struct stat st {};
    if (!m_failed && m_fd >= 0) {
        if (::fsync(m_fd) != 0)
            fail(QStringLiteral("syncing %1 failed").arg(m_path), errno);
        else if (::fstat(m_fd, &st) != 0 || st.st_size != m_written)
            fail(QStringLiteral("%1 was not written whole").arg(m_path));
    }
    if (!m_failed && m_fd >= 0) {
        const int fd = m_fd;
        m_fd = -1;
        if (::close(fd) != 0)
            fail(QStringLiteral("closing %1 failed").arg(m_path), errno);
    }
    if (m_failed || m_tmpName.isEmpty()) {
        DbgPrint(QStringLiteral("Write failed: ") + m_path + QStringLiteral(" (") + ErrorText() + u')');
        Cancel();
        return false;
    }
    m_haveStat = true;
    m_statSize = st.st_size;
    m_statMTimeNs = FileMTimeNs(st);
    m_statInode = st.st_ino;
    // The rename replaces whatever the name holds (a link of someone else's included) and
    // never writes through it.
    if (::renameat(m_dirFd, m_tmpName.constData(), m_dirFd, m_name.constData()) != 0) {
        fail(QStringLiteral("%1 cannot be replaced").arg(m_path), errno);
        DbgPrint(QStringLiteral("Write failed: ") + m_path + QStringLiteral(" (") + m_error + u')');
        m_haveStat = false;
        Cancel();
        return false;
    }
    m_tmpName.clear();
    // The rename is only durable once the folder itself is synced; a failure here is no
    // reason to call the write failed (the new file is complete either way).
    ::fsync(m_dirFd);
    m_done = true;
    closeAll();
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
    if (!m_scratch.fileName().isEmpty()) {
        m_scratch.close();
        return;
    }
    if (m_dirFd >= 0 && !m_tmpName.isEmpty())
        ::unlinkat(m_dirFd, m_tmpName.constData(), 0);
    m_tmpName.clear();
    closeAll();
}

QString clsCheckedFile::ErrorText() const {
    if (!m_error.isEmpty())
        return m_error;
    return m_scratch.fileName().isEmpty() ? QString() : m_scratch.errorString();
}

bool WriteFileChecked(const QString& Path, const QByteArray& Data, QFileDevice::Permissions Perms) {
    TRACE_PROC("modMain.WriteFileChecked", Path, static_cast<long long>(Data.size()));
    clsCheckedFile f(Path);
    return f.Open(Perms) && f.Write(Data) && f.Commit();
}
