#pragma once

// The sealing of the browser protocol: crypto_box (X25519, XSalsa20-Poly1305) from
// libsodium, keys and nonces exchanged as base64.

#include <QByteArray>

inline constexpr int kBrKeyBytes = 32;
inline constexpr int kBrNonceBytes = 24;

struct BrKeyPair {
    QByteArray Public, Secret;
    static BrKeyPair Generate();
    BrKeyPair() = default;
    BrKeyPair(const BrKeyPair&) = delete;
    BrKeyPair& operator=(const BrKeyPair&) = delete;
    BrKeyPair(BrKeyPair&&) = default;
    BrKeyPair& operator=(BrKeyPair&&) = default;
    ~BrKeyPair(); // wipes the secret key
};

// The nonce increased by one as a little-endian number (libsodium's sodium_increment).
QByteArray BrIncrementNonce(const QByteArray& Nonce);
QByteArray BrRandomNonce();
// Plain sealed for TheirPublic; empty when a key or the nonce has the wrong size.
QByteArray BrSeal(const QByteArray& Plain, const QByteArray& Nonce, const QByteArray& TheirPublic,
                  const QByteArray& OurSecret);
// False when Sealed does not open (wrong key or nonce, changed bytes).
bool BrOpen(const QByteArray& Sealed, const QByteArray& Nonce, const QByteArray& TheirPublic,
            const QByteArray& OurSecret, QByteArray& Plain);
