#include "storage/FileSeal.h"

#include "app/SecureMemory.h"
#include "diagnostics/Trace.h"

#include <sodium.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <mutex>

namespace {

constexpr std::uint8_t kLayoutVersion = 1;
constexpr std::uint8_t kKdfArgon2id = 1;
constexpr std::uint8_t kFlagPacked = 1;
constexpr std::uint32_t kMinPasses = 1, kMaxPasses = 8;
constexpr std::uint32_t kMinMemKiB = 8 * 1024, kMaxMemKiB = 128 * 1024;

void initSodium() {
    TRACE_PROC("TableEngine.InitSodium");
    static std::once_flag once;
    std::call_once(once, [] {
        if (sodium_init() < 0)
            std::abort();
    });
}

// The key of the keyed password tags: random per process, so tags mean nothing outside it.
const std::uint8_t* tagKey() {
    TRACE_PROC("TableEngine.TagKey");
    static std::uint8_t key[crypto_generichash_KEYBYTES];
    static std::once_flag once;
    std::call_once(once, [] {
        initSodium();
        randombytes_buf(key, sizeof key);
    });
    return key;
}

void passwordTag(const QByteArray& Pw, std::uint8_t* Out) {
    TRACE_PROC("TableEngine.PasswordTag", HIDDEN(Pw));
    crypto_generichash(Out, 32, reinterpret_cast<const unsigned char*>(Pw.constData()),
                       static_cast<unsigned long long>(Pw.size()), tagKey(), crypto_generichash_KEYBYTES);
}

// Byte helpers of the header, too small to trace.
void putLe32(char* p, std::uint32_t v) {
    for (int i = 0; i < 4; ++i)
        p[i] = static_cast<char>(v >> (8 * i));
}

std::uint32_t getLe32(const char* p) {
    std::uint32_t v = 0;
    for (int i = 0; i < 4; ++i)
        v |= static_cast<std::uint32_t>(static_cast<std::uint8_t>(p[i])) << (8 * i);
    return v;
}

bool derive(const QByteArray& Pw, const std::uint8_t* Salt, std::uint32_t Passes, std::uint32_t MemKiB,
            std::uint8_t* Key) {
    TRACE_PROC("TableEngine.DeriveKey", HIDDEN(Pw), static_cast<long long>(Passes),
               static_cast<long long>(MemKiB));
    return crypto_pwhash(Key, 32, Pw.constData(), static_cast<unsigned long long>(Pw.size()), Salt, Passes,
                         static_cast<std::size_t>(MemKiB) * 1024, crypto_pwhash_ALG_ARGON2ID13) == 0;
}

// Offsets inside the header.
constexpr int kHdrPasses = 4, kHdrMem = 8, kHdrSalt = 12, kHdrNonce = 28;

} // namespace

KeyCache::KeyCache() {
    TRACE_PROC("TableEngine.KeyCache");
    // The derived key never reaches swap.
    LockSecret(this, sizeof *this);
    Clear();
}
KeyCache::~KeyCache() {
    Clear();
    UnlockSecret(this);
}

// Runs from the destructor, also when a global database goes away after the trace stack
// of the thread is gone: not traced.
void KeyCache::Clear() {
    sodium_memzero(PwTag, sizeof PwTag);
    sodium_memzero(Salt, sizeof Salt);
    sodium_memzero(Key, sizeof Key);
    Passes = MemKiB = 0;
    Valid = false;
}

void WipeBytes(QByteArray& Bytes) {
    TRACE_PROC("TableEngine.WipeBytes", HIDDEN(Bytes));
    if (Bytes.isEmpty())
        return;
    sodium_memzero(Bytes.data(), static_cast<std::size_t>(Bytes.size()));
}

bool SealInPlace(QByteArray& File, qsizetype HeaderAt, const QString& Pasw, bool Compress, KeyCache* Cache) {
    TRACE_PROC("TableEngine.SealInPlace", HeaderAt, HIDDEN(Pasw), Compress);
    initSodium();
    if (Compress) {
        QByteArray packed =
            qCompress(reinterpret_cast<const uchar*>(File.constData()) + HeaderAt + kSealHeaderSize,
                      File.size() - HeaderAt - kSealHeaderSize);
        const qsizetype bodyAt = HeaderAt + kSealHeaderSize;
        TRACE_LOCAL(bodyAt);
        sodium_memzero(File.data() + bodyAt, static_cast<std::size_t>(File.size() - bodyAt));
        File.truncate(bodyAt);
        File.append(packed);
        WipeBytes(packed);
    }
    QByteArray pw = Pasw.toUtf8();
    std::uint8_t tag[32];
    passwordTag(pw, tag);
    std::uint8_t keyBuf[32];
    std::uint8_t salt[16];
    const std::uint8_t* key = nullptr;
    if (Cache && Cache->Valid && Cache->Passes == kSealPasses && Cache->MemKiB == kSealMemKiB &&
        sodium_memcmp(Cache->PwTag, tag, 32) == 0) {
        key = Cache->Key;
        std::memcpy(salt, Cache->Salt, sizeof salt);
    } else {
        randombytes_buf(salt, sizeof salt);
        if (!derive(pw, salt, kSealPasses, kSealMemKiB, keyBuf)) {
            WipeBytes(pw);
            WipeBytes(File);
            return false;
        }
        key = keyBuf;
        if (Cache) {
            std::memcpy(Cache->PwTag, tag, 32);
            std::memcpy(Cache->Salt, salt, 16);
            std::memcpy(Cache->Key, keyBuf, 32);
            Cache->Passes = kSealPasses;
            Cache->MemKiB = kSealMemKiB;
            Cache->Valid = true;
        }
    }
    WipeBytes(pw);

    char* h = File.data() + HeaderAt;
    h[0] = static_cast<char>(kLayoutVersion);
    h[1] = static_cast<char>(Compress ? kFlagPacked : 0);
    h[2] = static_cast<char>(kKdfArgon2id);
    h[3] = 0;
    putLe32(h + kHdrPasses, kSealPasses);
    putLe32(h + kHdrMem, kSealMemKiB);
    std::memcpy(h + kHdrSalt, salt, 16);
    randombytes_buf(h + kHdrNonce, crypto_aead_xchacha20poly1305_ietf_NPUBBYTES);

    const qsizetype bodyAt = HeaderAt + kSealHeaderSize;
    TRACE_LOCAL(bodyAt);
    const qsizetype bodyLen = File.size() - bodyAt;
    TRACE_LOCAL(bodyLen);
    unsigned char mac[kSealTagSize];
    auto* body = reinterpret_cast<unsigned char*>(File.data() + bodyAt);
    crypto_aead_xchacha20poly1305_ietf_encrypt_detached(
        body, mac, nullptr, body, static_cast<unsigned long long>(bodyLen),
        reinterpret_cast<const unsigned char*>(File.constData()), static_cast<unsigned long long>(bodyAt),
        nullptr, reinterpret_cast<const unsigned char*>(File.constData() + HeaderAt + kHdrNonce), key);
    File.append(reinterpret_cast<const char*>(mac), kSealTagSize);
    sodium_memzero(keyBuf, sizeof keyBuf);
    sodium_memzero(tag, sizeof tag);
    return true;
}

namespace {

// XChaCha20-Poly1305 (IETF) opened block by block behind Ready, from libsodium's parts; the
// same construction as crypto_aead_xchacha20poly1305_ietf_decrypt_detached: a subkey from
// HChaCha20, the Poly1305 key from block 0, the body from block 1 on. The body is
// deciphered as it goes and is the caller's to wipe when the tag does not agree.
bool openBehind(unsigned char* Body, qsizetype BodyLen, const unsigned char* Tag, const unsigned char* Ad,
                qsizetype AdLen, const unsigned char* Nonce, const std::uint8_t* Key, const BytesReady& Ready,
                qsizetype BodyAt) {
    TRACE_PROC("TableEngine.OpenBehind", static_cast<long long>(BodyLen));
    unsigned char subkey[crypto_stream_chacha20_ietf_KEYBYTES];
    crypto_core_hchacha20(subkey, Nonce, Key, nullptr);
    unsigned char nonce2[crypto_stream_chacha20_ietf_NONCEBYTES] = {0};
    std::memcpy(nonce2 + 4, Nonce + crypto_core_hchacha20_INPUTBYTES, 8);
    unsigned char block0[64];
    crypto_stream_chacha20_ietf(block0, sizeof block0, nonce2, subkey);
    crypto_onetimeauth_poly1305_state st;
    crypto_onetimeauth_poly1305_init(&st, block0);
    sodium_memzero(block0, sizeof block0);
    static const unsigned char zeros[16] = {0};
    crypto_onetimeauth_poly1305_update(&st, Ad, static_cast<unsigned long long>(AdLen));
    crypto_onetimeauth_poly1305_update(&st, zeros, (0x10 - AdLen) & 0xf);
    // Blocks of a multiple of 64 bytes, so that each starts on a block of the stream.
    constexpr qsizetype kStep = 256 * 1024;
    for (qsizetype at = 0; at < BodyLen; at += kStep) {
        const qsizetype n = std::min(kStep, BodyLen - at);
        Ready(BodyAt + at + n);
        crypto_onetimeauth_poly1305_update(&st, Body + at, static_cast<unsigned long long>(n));
        crypto_stream_chacha20_ietf_xor_ic(Body + at, Body + at, static_cast<unsigned long long>(n), nonce2,
                                           static_cast<std::uint32_t>(1 + at / 64), subkey);
    }
    crypto_onetimeauth_poly1305_update(&st, zeros, (0x10 - BodyLen) & 0xf);
    unsigned char lens[16];
    for (int i = 0; i < 8; ++i) {
        lens[i] = static_cast<unsigned char>(static_cast<quint64>(AdLen) >> (8 * i));
        lens[8 + i] = static_cast<unsigned char>(static_cast<quint64>(BodyLen) >> (8 * i));
    }
    crypto_onetimeauth_poly1305_update(&st, lens, sizeof lens);
    unsigned char mac[crypto_onetimeauth_poly1305_BYTES];
    crypto_onetimeauth_poly1305_final(&st, mac);
    sodium_memzero(subkey, sizeof subkey);
    sodium_memzero(&st, sizeof st);
    Ready(BodyAt + BodyLen + crypto_onetimeauth_poly1305_BYTES);
    return crypto_verify_16(mac, Tag) == 0;
}

} // namespace

int OpenInPlace(QByteArray& File, qsizetype HeaderAt, const QString& Pasw, KeyCache* Cache,
                const BytesReady& Ready) {
    TRACE_PROC("TableEngine.OpenInPlace", HeaderAt, HIDDEN(Pasw));
    initSodium();
    auto fail = [&File, &Ready](int code) {
        if (Ready)
            Ready(File.size());
        WipeBytes(File);
        File.clear();
        return code;
    };
    if (Pasw.isEmpty() || File.size() < HeaderAt + kSealHeaderSize + kSealTagSize)
        return fail(-4);
    if (Ready)
        Ready(HeaderAt + kSealHeaderSize);
    const char* h = File.constData() + HeaderAt;
    const auto flags = static_cast<std::uint8_t>(h[1]);
    const std::uint32_t passes = getLe32(h + kHdrPasses);
    const std::uint32_t memKiB = getLe32(h + kHdrMem);
    if (static_cast<std::uint8_t>(h[0]) != kLayoutVersion ||
        static_cast<std::uint8_t>(h[2]) != kKdfArgon2id || h[3] != 0 || (flags & ~kFlagPacked) != 0 ||
        passes < kMinPasses || passes > kMaxPasses || memKiB < kMinMemKiB || memKiB > kMaxMemKiB)
        return fail(-4);

    QByteArray pw = Pasw.toUtf8();
    std::uint8_t tag[32];
    passwordTag(pw, tag);
    std::uint8_t key[32];
    const auto* salt = reinterpret_cast<const std::uint8_t*>(h + kHdrSalt);
    if (Cache && Cache->Valid && Cache->Passes == passes && Cache->MemKiB == memKiB &&
        sodium_memcmp(Cache->Salt, salt, 16) == 0 && sodium_memcmp(Cache->PwTag, tag, 32) == 0) {
        std::memcpy(key, Cache->Key, 32);
    } else if (!derive(pw, salt, passes, memKiB, key)) {
        WipeBytes(pw);
        return fail(-4);
    }
    WipeBytes(pw);

    const qsizetype bodyAt = HeaderAt + kSealHeaderSize;
    TRACE_LOCAL(bodyAt);
    const qsizetype bodyLen = File.size() - bodyAt - kSealTagSize;
    TRACE_LOCAL(bodyLen);
    auto* body = reinterpret_cast<unsigned char*>(File.data() + bodyAt);
    const auto* ad = reinterpret_cast<const unsigned char*>(File.constData());
    const auto* nonce = reinterpret_cast<const unsigned char*>(File.constData() + HeaderAt + kHdrNonce);
    int rc;
    if (Ready) {
        rc = openBehind(body, bodyLen, body + bodyLen, ad, bodyAt, nonce, key, Ready, bodyAt) ? 0 : -1;
    } else {
        rc = crypto_aead_xchacha20poly1305_ietf_decrypt_detached(
            body, nullptr, body, static_cast<unsigned long long>(bodyLen), body + bodyLen, ad,
            static_cast<unsigned long long>(bodyAt), nonce, key);
    }
    if (rc != 0) {
        sodium_memzero(key, sizeof key);
        sodium_memzero(tag, sizeof tag);
        return fail(-4);
    }
    if (Cache) {
        std::memcpy(Cache->PwTag, tag, 32);
        std::memcpy(Cache->Salt, salt, 16);
        std::memcpy(Cache->Key, key, 32);
        Cache->Passes = passes;
        Cache->MemKiB = memKiB;
        Cache->Valid = true;
    }
    sodium_memzero(key, sizeof key);
    sodium_memzero(tag, sizeof tag);

    // The plain body moves to the front; what it leaves behind is wiped.
    std::memmove(File.data(), File.constData() + bodyAt, static_cast<std::size_t>(bodyLen));
    sodium_memzero(File.data() + bodyLen, static_cast<std::size_t>(File.size() - bodyLen));
    File.truncate(bodyLen);
    if (flags & kFlagPacked) {
        QByteArray plain = qUncompress(File);
        const bool bad = plain.isEmpty() && !File.isEmpty();
        TRACE_LOCAL(bad);
        WipeBytes(File);
        File = plain;
        if (bad)
            return fail(-3);
    }
    return 1;
}
