#include "storage/FileIdentity.h"

#include "app/FileTime.h"
#include "diagnostics/Trace.h"

#include <QFile>

#include <sodium.h>

#include <cerrno>
#include <ctime>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

qint64 wallNs() {
    timespec ts{};
    ::clock_gettime(CLOCK_REALTIME, &ts);
    return TimeSpecNs(ts);
}

void fromStat(clsFileIdentity& Id, const struct stat& St) {
    Id.Exists = true;
    Id.Size = St.st_size;
    Id.MTimeNs = FileMTimeNs(St);
    Id.Inode = St.st_ino;
    Id.CTimeNs = FileCTimeNs(St);
}

// Any write after Id was taken moves the change time on, unless the file system's clock
// had not moved on yet: file systems with time stamps in whole seconds (no part of a
// second at all) get three seconds, the others a tenth of a second.
bool settled(const clsFileIdentity& Id) {
    const bool coarse = Id.CTimeNs % 1000000000LL == 0 || Id.MTimeNs % 1000000000LL == 0;
    return Id.TakenNs > 0 && Id.CTimeNs + (coarse ? 3000000000LL : 100000000LL) < Id.TakenNs;
}

} // namespace

bool ReadFileWithIdentity(const QString& Path, QByteArray& Bytes, clsFileIdentity& Id) {
    TRACE_PROC("modMain.ReadFileWithIdentity", Path);
    Id = clsFileIdentity();
    Bytes.clear();
    const QByteArray p = QFile::encodeName(Path);
    const int fd = ::open(p.constData(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return false;
    struct stat st;
    if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
        ::close(fd);
        return false;
    }
    fromStat(Id, st);
    Id.TakenNs = wallNs();
    Bytes.resize(st.st_size);
    qint64 got = 0;
    while (got < Bytes.size()) {
        const ssize_t n = ::read(fd, Bytes.data() + got, static_cast<size_t>(Bytes.size() - got));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break;
        got += n;
    }
    ::close(fd);
    if (got != Bytes.size()) {
        Bytes.clear();
        return false;
    }
    Id.Digest.resize(crypto_generichash_BYTES);
    crypto_generichash(reinterpret_cast<unsigned char*>(Id.Digest.data()), crypto_generichash_BYTES,
                       reinterpret_cast<const unsigned char*>(Bytes.constData()),
                       static_cast<unsigned long long>(Bytes.size()), nullptr, 0);
    return true;
}

clsFileIdentity ReadFileIdentity(const QString& Path) {
    TRACE_PROC("modMain.ReadFileIdentity", Path);
    QByteArray bytes;
    clsFileIdentity id;
    ReadFileWithIdentity(Path, bytes, id);
    // The outer layer is RC4 only: the bytes read here are not plain text, but wipe them
    // all the same.
    sodium_memzero(bytes.data(), static_cast<size_t>(bytes.size()));
    return id;
}

bool FileUnchanged(const QString& Path, clsFileIdentity& Known, bool* Exists) {
    TRACE_PROC("modMain.FileUnchanged", Path);
    struct stat st;
    const bool there = ::stat(QFile::encodeName(Path).constData(), &st) == 0 && S_ISREG(st.st_mode);
    if (Exists)
        *Exists = there;
    if (!there)
        return !Known.Exists;
    clsFileIdentity now;
    fromStat(now, st);
    if (!Known.Exists || now.Size != Known.Size || now.MTimeNs != Known.MTimeNs || now.Inode != Known.Inode)
        return false;
    if (now.CTimeNs == Known.CTimeNs && settled(Known) && !Known.Digest.isEmpty())
        return true;
    const clsFileIdentity read = ReadFileIdentity(Path);
    if (!(read == Known))
        return false;
    Known.CTimeNs = read.CTimeNs;
    Known.TakenNs = read.TakenNs;
    return true;
}
