#include "storage/FileIdentity.h"

#include "diagnostics/Trace.h"

#include <QFile>

#include <sodium.h>

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

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
    Id.Exists = true;
    Id.Size = st.st_size;
    Id.MTimeNs = static_cast<qint64>(st.st_mtim.tv_sec) * 1000000000LL + st.st_mtim.tv_nsec;
    Id.Inode = st.st_ino;
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
