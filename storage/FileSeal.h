#pragma once

// Protection of a database body: Argon2id turns the engine password and a random salt
// into a key, XChaCha20-Poly1305 seals the body with a fresh random nonce on every save.
//
// Layout after the signature line "wqpdhxMeM.ENC" CR LF (all numbers little-endian):
//   1 byte  layout version (1)
//   1 byte  flags (bit value 1: the body was packed with zlib before sealing)
//   1 byte  key derivation (1: Argon2id v1.3)
//   1 byte  reserved (0)
//   4 bytes Argon2id passes
//   4 bytes Argon2id memory in KiB
//  16 bytes salt
//  24 bytes nonce
//  then the sealed body and its 16-byte tag. The signature line and the header are
//  authenticated with the body, so no byte of the file can change unnoticed.

#include <QByteArray>
#include <QString>

#include <cstdint>
#include <functional>

// Cost of a new key: 2 passes over 19 MiB (about 40 ms here). Files carry their own cost;
// reading accepts 1..8 passes and 8..128 MiB, so a damaged header cannot ask for more.
inline constexpr std::uint32_t kSealPasses = 2;
inline constexpr std::uint32_t kSealMemKiB = 19 * 1024;
inline constexpr int kSealHeaderSize = 52;
inline constexpr int kSealTagSize = 16;

struct KeyCache {
    bool Valid = false;
    std::uint8_t PwTag[32]; // keyed hash of the password, never the password itself
    std::uint8_t Salt[16];
    std::uint8_t Key[32];
    std::uint32_t Passes = 0;
    std::uint32_t MemKiB = 0;
    KeyCache();
    ~KeyCache();
    KeyCache(const KeyCache&) = delete;
    KeyCache& operator=(const KeyCache&) = delete;
    void Clear();
};

// File holds the signature line, kSealHeaderSize bytes of room from HeaderAt and then the
// body. Fills in the header, seals the body in place and appends its tag. The key comes
// from Cache when it holds the key of Pasw at the current cost; else a new salt is drawn,
// the key derived and stored in Cache (which may be null). False when no key could be
// derived (out of memory); File is wiped then.
bool SealInPlace(QByteArray& File, qsizetype HeaderAt, const QString& Pasw, bool Compress, KeyCache* Cache);

// File holds the signature line and, from HeaderAt, the header and the sealed body. On
// success File becomes the plain body and the result is 1. A wrong password, any changed
// byte or a header out of bounds give -4, a body that does not unpack -3; File is wiped
// and emptied then.
//
// Ready, when given, lets another thread still be taking the outer layer off File: it
// returns once the first N bytes are final, and the opening goes on behind it, block by
// block. It is called with File's whole size before anything leaves the body's place.
using BytesReady = std::function<void(qsizetype N)>;
int OpenInPlace(QByteArray& File, qsizetype HeaderAt, const QString& Pasw, KeyCache* Cache,
                const BytesReady& Ready = {});

// Overwrites the bytes of a buffer that held a secret (detaching it first).
void WipeBytes(QByteArray& Bytes);
