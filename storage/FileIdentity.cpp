#include "storage/FileIdentity.h"

#include "app/FileTime.h"
#include "diagnostics/Trace.h"

#include <QFile>

#include <sodium.h>

#include <algorithm>
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

bool readAll(int Fd, char* Data, qint64 Size, qint64 At) {
    qint64 got = 0;
    while (got < Size) {
        const ssize_t n = ::pread(Fd, Data + got, static_cast<size_t>(Size - got), At + got);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        got += n;
    }
    return true;
}

QByteArray sealedDigest(const char* Head, qsizetype HeadLen, const char* Tail, qsizetype TailLen,
                        qint64 Size) {
    crypto_generichash_state st;
    crypto_generichash_init(&st, nullptr, 0, crypto_generichash_BYTES);
    unsigned char size[8];
    for (int i = 0; i < 8; ++i)
        size[i] = static_cast<unsigned char>(static_cast<quint64>(Size) >> (8 * i));
    crypto_generichash_update(&st, size, sizeof size);
    crypto_generichash_update(&st, reinterpret_cast<const unsigned char*>(Head),
                              static_cast<unsigned long long>(HeadLen));
    crypto_generichash_update(&st, reinterpret_cast<const unsigned char*>(Tail),
                              static_cast<unsigned long long>(TailLen));
    QByteArray d(crypto_generichash_BYTES, Qt::Uninitialized);
    crypto_generichash_final(&st, reinterpret_cast<unsigned char*>(d.data()), crypto_generichash_BYTES);
    return d;
}

} // namespace

QByteArray FileDigest(const char* Data, qsizetype Size, bool Sealed) {
    if (Sealed) {
        const qsizetype ends = std::min(Size, kSealedDigestEnds);
        return sealedDigest(Data, ends, Data + Size - ends, ends, Size);
    }
    QByteArray d(crypto_generichash_BYTES, Qt::Uninitialized);
    crypto_generichash(reinterpret_cast<unsigned char*>(d.data()), crypto_generichash_BYTES,
                       reinterpret_cast<const unsigned char*>(Data), static_cast<unsigned long long>(Size),
                       nullptr, 0);
    return d;
}

bool ReadFileWithIdentity(const QString& Path, QByteArray& Bytes, clsFileIdentity& Id, bool Sealed) {
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
    Id.Sealed = Sealed;
    Id.Digest = FileDigest(Bytes.constData(), Bytes.size(), Sealed);
    return true;
}

clsFileIdentity ReadFileIdentity(const QString& Path, bool Sealed) {
    TRACE_PROC("modMain.ReadFileIdentity", Path, Sealed);
    if (Sealed) {
        clsFileIdentity id;
        const int fd = ::open(QFile::encodeName(Path).constData(), O_RDONLY | O_CLOEXEC);
        if (fd < 0)
            return id;
        struct stat st;
        char head[kSealedDigestEnds], tail[kSealedDigestEnds];
        if (::fstat(fd, &st) == 0 && S_ISREG(st.st_mode)) {
            const qint64 ends = std::min<qint64>(st.st_size, kSealedDigestEnds);
            if (readAll(fd, head, ends, 0) && readAll(fd, tail, ends, st.st_size - ends)) {
                fromStat(id, st);
                id.TakenNs = wallNs();
                id.Sealed = true;
                id.Digest = sealedDigest(head, ends, tail, ends, st.st_size);
            }
        }
        ::close(fd);
        return id;
    }
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
    const clsFileIdentity read = ReadFileIdentity(Path, Known.Sealed);
    if (!(read == Known))
        return false;
    Known.CTimeNs = read.CTimeNs;
    Known.TakenNs = read.TakenNs;
    return true;
}
