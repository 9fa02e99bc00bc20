#pragma once

// The transfer of secrets between a Secret Service client and this program: "plain", or
// "dh-ietf1024-sha256-aes128-cbc-pkcs7" (a Diffie-Hellman exchange over the 1024-bit
// group of RFC 2409, HKDF-SHA256 of the shared value to a 16-byte key, AES-128-CBC with
// PKCS#7 padding and a fresh IV per secret). The arithmetic, the hash and the cipher are
// OpenSSL's libcrypto.

#include <QByteArray>
#include <QString>

#include <memory>

class SecretTransfer {
public:
    ~SecretTransfer();
    // A transfer for Algorithm with the client's Input (its public key for the DH one;
    // empty for plain). Null for an unknown algorithm or a bad key; Output receives what
    // goes back to the client (our public key; empty for plain).
    static std::unique_ptr<SecretTransfer> Open(const QString& Algorithm, const QByteArray& Input,
                                                QByteArray& Output);
    bool Encrypted() const { return !m_key.isEmpty(); }
    // Seals Plain for the client: Iv and Value as the Secret structure carries them.
    bool Seal(const QByteArray& Plain, QByteArray& Iv, QByteArray& Value) const;
    // Opens what the client sent; false when it does not decipher (wrong key, bad padding).
    bool Unseal(const QByteArray& Iv, const QByteArray& Value, QByteArray& Plain) const;

    static QString PlainName() { return QStringLiteral("plain"); }
    static QString DhName() { return QStringLiteral("dh-ietf1024-sha256-aes128-cbc-pkcs7"); }

private:
    SecretTransfer() = default;
    QByteArray m_key; // the AES key; empty for plain
};
