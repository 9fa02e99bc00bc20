#include "browser/BrowserCrypto.h"

#include <sodium.h>

static_assert(kBrKeyBytes == crypto_box_PUBLICKEYBYTES && kBrKeyBytes == crypto_box_SECRETKEYBYTES);
static_assert(kBrNonceBytes == crypto_box_NONCEBYTES);

BrKeyPair BrKeyPair::Generate() {
    BrKeyPair k;
    k.Public.resize(kBrKeyBytes);
    k.Secret.resize(kBrKeyBytes);
    crypto_box_keypair(reinterpret_cast<unsigned char*>(k.Public.data()),
                       reinterpret_cast<unsigned char*>(k.Secret.data()));
    return k;
}

BrKeyPair::~BrKeyPair() {
    if (!Secret.isEmpty())
        sodium_memzero(Secret.data(), static_cast<size_t>(Secret.size()));
}

QByteArray BrIncrementNonce(const QByteArray& Nonce) {
    QByteArray n = Nonce;
    sodium_increment(reinterpret_cast<unsigned char*>(n.data()), static_cast<size_t>(n.size()));
    return n;
}

QByteArray BrRandomNonce() {
    QByteArray n(kBrNonceBytes, Qt::Uninitialized);
    randombytes_buf(n.data(), static_cast<size_t>(n.size()));
    return n;
}

QByteArray BrSeal(const QByteArray& Plain, const QByteArray& Nonce, const QByteArray& TheirPublic,
                  const QByteArray& OurSecret) {
    if (Nonce.size() != kBrNonceBytes || TheirPublic.size() != kBrKeyBytes || OurSecret.size() != kBrKeyBytes)
        return {};
    QByteArray out(Plain.size() + static_cast<qsizetype>(crypto_box_MACBYTES), Qt::Uninitialized);
    if (crypto_box_easy(reinterpret_cast<unsigned char*>(out.data()),
                        reinterpret_cast<const unsigned char*>(Plain.constData()),
                        static_cast<unsigned long long>(Plain.size()),
                        reinterpret_cast<const unsigned char*>(Nonce.constData()),
                        reinterpret_cast<const unsigned char*>(TheirPublic.constData()),
                        reinterpret_cast<const unsigned char*>(OurSecret.constData())) != 0)
        return {};
    return out;
}

bool BrOpen(const QByteArray& Sealed, const QByteArray& Nonce, const QByteArray& TheirPublic,
            const QByteArray& OurSecret, QByteArray& Plain) {
    if (Nonce.size() != kBrNonceBytes || TheirPublic.size() != kBrKeyBytes ||
        OurSecret.size() != kBrKeyBytes || Sealed.size() < static_cast<qsizetype>(crypto_box_MACBYTES))
        return false;
    Plain.resize(Sealed.size() - static_cast<qsizetype>(crypto_box_MACBYTES));
    return crypto_box_open_easy(reinterpret_cast<unsigned char*>(Plain.data()),
                                reinterpret_cast<const unsigned char*>(Sealed.constData()),
                                static_cast<unsigned long long>(Sealed.size()),
                                reinterpret_cast<const unsigned char*>(Nonce.constData()),
                                reinterpret_cast<const unsigned char*>(TheirPublic.constData()),
                                reinterpret_cast<const unsigned char*>(OurSecret.constData())) == 0;
}
