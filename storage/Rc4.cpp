#include "storage/Rc4.h"

#include "app/CheckedWrite.h"
#include "diagnostics/ErrorTrap.h"
#include "diagnostics/Trace.h"

#include <QDateTime>
#include <QFile>
#include <QFileInfo>

#include <sodium.h>

#include <utility>

Rc4::Rc4(const QByteArray& Key) {
    TRACE_PROC("clsRC4.Class_Initialize", HIDDEN(Key));
    if (Key.isEmpty())
        RaiseError(vbErrInvalidCall, QStringLiteral("RC4 key is empty"));
    for (int i = 0; i < 256; ++i)
        m_s[i] = static_cast<std::uint8_t>(i);
    const auto* k = reinterpret_cast<const std::uint8_t*>(Key.constData());
    const qsizetype n = Key.size();
    std::uint8_t j = 0;
    for (int i = 0; i < 256; ++i) {
        j = static_cast<std::uint8_t>(j + m_s[i] + k[i % n]);
        std::swap(m_s[i], m_s[j]);
    }
}

Rc4::~Rc4() {
    sodium_memzero(m_s, sizeof m_s);
    m_i = m_j = 0;
}

void Rc4::Apply(char* Data, qsizetype Len) {
    TRACE_PROC("clsRC4.Apply", static_cast<long long>(Len));
    std::uint8_t i = m_i, j = m_j;
    std::uint8_t* s = m_s;
    auto* p = reinterpret_cast<std::uint8_t*>(Data);
    for (qsizetype n = 0; n < Len; ++n) {
        i = static_cast<std::uint8_t>(i + 1);
        const std::uint8_t si = s[i];
        j = static_cast<std::uint8_t>(j + si);
        const std::uint8_t sj = s[j];
        s[i] = sj;
        s[j] = si;
        p[n] ^= s[static_cast<std::uint8_t>(si + sj)];
    }
    m_i = i;
    m_j = j;
}

namespace {

// Written, when given, receives the identity of the file written: its digest taken from
// the bytes as they go out, its size, time and inode from the synced file.
bool cipherFile(const QString& InPath, const QString& OutPath, bool Flag, const QString& Key,
                clsFileIdentity* Written = nullptr) {
    TRACE_PROC("clsRC4.CipherFile", InPath, OutPath, Flag, HIDDEN(Key));
    QFile in(InPath);
    if (!QFileInfo(InPath).isFile() || !in.open(QIODevice::ReadOnly))
        return false;
    if (!Flag && QFileInfo::exists(OutPath) && QFileInfo(OutPath) != QFileInfo(InPath))
        RaiseError(vbErrFileExists, QStringLiteral("File already exists: ") + OutPath);
    QByteArray key = Key.toUtf8();
    Rc4 rc4(key);
    sodium_memzero(key.data(), static_cast<std::size_t>(key.size()));

    clsCheckedFile out(OutPath);
    if (!out.Open())
        return false;
    constexpr qsizetype kChunk = 1 << 20;
    QByteArray buf(kChunk, Qt::Uninitialized);
    bool readOk = true;
    crypto_generichash_state hash;
    if (Written)
        crypto_generichash_init(&hash, nullptr, 0, crypto_generichash_BYTES);
    for (;;) {
        const qint64 got = in.read(buf.data(), kChunk);
        if (got < 0) {
            readOk = false;
            break;
        }
        if (got == 0)
            break;
        rc4.Apply(buf.data(), got);
        if (Written)
            crypto_generichash_update(&hash, reinterpret_cast<const unsigned char*>(buf.constData()),
                                      static_cast<unsigned long long>(got));
        if (!out.Write(buf.constData(), got))
            break;
    }
    sodium_memzero(buf.data(), static_cast<std::size_t>(buf.size()));
    if (!readOk) {
        out.Cancel();
        return false;
    }
    if (!out.Commit())
        return false;
    if (Written) {
        *Written = clsFileIdentity();
        QByteArray digest(crypto_generichash_BYTES, Qt::Uninitialized);
        crypto_generichash_final(&hash, reinterpret_cast<unsigned char*>(digest.data()),
                                 crypto_generichash_BYTES);
        // The change time is left unknown: the rename moves it on, so the first check after
        // the save reads the file once more, and takes it from there.
        if (out.WrittenStat(Written->Size, Written->MTimeNs, Written->Inode)) {
            Written->Exists = true;
            Written->Digest = digest;
            Written->TakenNs = QDateTime::currentMSecsSinceEpoch() * 1000000LL;
        }
    }
    return true;
}

} // namespace

bool EncryptFile(const QString& InPath, const QString& OutPath, bool Flag, const QString& Key) {
    TRACE_PROC("clsRC4.EncryptFile", InPath, OutPath, Flag, HIDDEN(Key));
    return cipherFile(InPath, OutPath, Flag, Key);
}

bool EncryptFile(const QString& InPath, const QString& OutPath, bool Flag, const QString& Key,
                 clsFileIdentity& Written) {
    TRACE_PROC("clsRC4.EncryptFile", InPath, OutPath, Flag, HIDDEN(Key));
    return cipherFile(InPath, OutPath, Flag, Key, &Written);
}

bool DecryptFile(const QString& InPath, const QString& OutPath, bool Flag, const QString& Key) {
    TRACE_PROC("clsRC4.DecryptFile", InPath, OutPath, Flag, HIDDEN(Key));
    return cipherFile(InPath, OutPath, Flag, Key);
}

bool DecryptFile(const QString& InPath, const QString& OutPath, bool Flag, const QString& Key,
                 clsFileIdentity& Id) {
    TRACE_PROC("clsRC4.DecryptFile", InPath, OutPath, Flag, HIDDEN(Key));
    QByteArray bytes;
    if (!ReadFileWithIdentity(InPath, bytes, Id))
        return false;
    if (!Flag && QFileInfo::exists(OutPath) && QFileInfo(OutPath) != QFileInfo(InPath))
        RaiseError(vbErrFileExists, QStringLiteral("File already exists: ") + OutPath);
    {
        QByteArray key = Key.toUtf8();
        Rc4 rc4(key);
        sodium_memzero(key.data(), static_cast<std::size_t>(key.size()));
        rc4.Apply(bytes.data(), bytes.size());
    }
    const bool ok = WriteFileChecked(OutPath, bytes);
    sodium_memzero(bytes.data(), static_cast<std::size_t>(bytes.size()));
    return ok;
}
