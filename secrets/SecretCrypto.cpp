#include "secrets/SecretCrypto.h"

#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/kdf.h>
#include <openssl/rand.h>

#include <sodium.h>

namespace {

constexpr int kGroupBytes = 128;

struct BnFree {
    void operator()(BIGNUM* b) const { BN_clear_free(b); }
};
using Bn = std::unique_ptr<BIGNUM, BnFree>;

QByteArray BnBytes(const BIGNUM* b) {
    QByteArray out(kGroupBytes, '\0');
    BN_bn2binpad(b, reinterpret_cast<unsigned char*>(out.data()), kGroupBytes);
    return out;
}

QByteArray Hkdf(const QByteArray& Ikm) {
    QByteArray key(16, '\0');
    EVP_KDF* kdf = EVP_KDF_fetch(nullptr, "HKDF", nullptr);
    EVP_KDF_CTX* ctx = kdf ? EVP_KDF_CTX_new(kdf) : nullptr;
    EVP_KDF_free(kdf);
    if (!ctx)
        return {};
    char digest[] = "SHA256";
    OSSL_PARAM params[] = {OSSL_PARAM_construct_utf8_string(OSSL_KDF_PARAM_DIGEST, digest, 0),
                           OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_KEY,
                                                             const_cast<char*>(Ikm.constData()),
                                                             static_cast<size_t>(Ikm.size())),
                           OSSL_PARAM_construct_end()};
    const bool ok = EVP_KDF_derive(ctx, reinterpret_cast<unsigned char*>(key.data()),
                                   static_cast<size_t>(key.size()), params) == 1;
    EVP_KDF_CTX_free(ctx);
    return ok ? key : QByteArray();
}

bool Aes(bool Enc, const QByteArray& Key, const QByteArray& Iv, const QByteArray& In, QByteArray& Out) {
    if (Iv.size() != 16 || (!Enc && (In.isEmpty() || In.size() % 16 != 0)))
        return false;
    EVP_CIPHER_CTX* ctx = EVP_CIPHER_CTX_new();
    if (!ctx)
        return false;
    Out.resize(In.size() + 16);
    int n1 = 0, n2 = 0;
    const auto* key = reinterpret_cast<const unsigned char*>(Key.constData());
    const auto* iv = reinterpret_cast<const unsigned char*>(Iv.constData());
    auto* out = reinterpret_cast<unsigned char*>(Out.data());
    const auto* in = reinterpret_cast<const unsigned char*>(In.constData());
    bool ok = EVP_CipherInit_ex(ctx, EVP_aes_128_cbc(), nullptr, key, iv, Enc ? 1 : 0) == 1 &&
              EVP_CipherUpdate(ctx, out, &n1, in, static_cast<int>(In.size())) == 1 &&
              EVP_CipherFinal_ex(ctx, out + n1, &n2) == 1;
    EVP_CIPHER_CTX_free(ctx);
    if (!ok) {
        sodium_memzero(Out.data(), static_cast<size_t>(Out.size()));
        Out.clear();
        return false;
    }
    Out.resize(n1 + n2);
    return true;
}

} // namespace

SecretTransfer::~SecretTransfer() {
    if (!m_key.isEmpty())
        sodium_memzero(m_key.data(), static_cast<size_t>(m_key.size()));
}

std::unique_ptr<SecretTransfer> SecretTransfer::Open(const QString& Algorithm, const QByteArray& Input,
                                                     QByteArray& Output) {
    Output.clear();
    std::unique_ptr<SecretTransfer> t(new SecretTransfer);
    if (Algorithm == PlainName())
        return Input.isEmpty() ? std::move(t) : nullptr;
    if (Algorithm != DhName() || Input.isEmpty() || Input.size() > kGroupBytes)
        return nullptr;
    Bn p(BN_get_rfc2409_prime_1024(nullptr)), g(BN_new()), priv(BN_secure_new()), pub(BN_new()),
        peer(BN_bin2bn(reinterpret_cast<const unsigned char*>(Input.constData()),
                       static_cast<int>(Input.size()), nullptr)),
        shared(BN_secure_new()), pm1(BN_new());
    BN_CTX* ctx = BN_CTX_secure_new();
    if (!p || !g || !priv || !pub || !peer || !shared || !pm1 || !ctx) {
        BN_CTX_free(ctx);
        return nullptr;
    }
    // The peer's value must lie in 2 .. p-2: 0, 1 and p-1 give away the shared value.
    bool ok = BN_set_word(g.get(), 2) && BN_copy(pm1.get(), p.get()) && BN_sub_word(pm1.get(), 1) &&
              BN_cmp(peer.get(), BN_value_one()) > 0 && BN_cmp(peer.get(), pm1.get()) < 0 &&
              BN_priv_rand(priv.get(), 1024, BN_RAND_TOP_ANY, BN_RAND_BOTTOM_ANY) &&
              BN_mod_exp(pub.get(), g.get(), priv.get(), p.get(), ctx) &&
              BN_mod_exp(shared.get(), peer.get(), priv.get(), p.get(), ctx);
    BN_CTX_free(ctx);
    if (!ok)
        return nullptr;
    QByteArray sharedBytes = BnBytes(shared.get());
    t->m_key = Hkdf(sharedBytes);
    sodium_memzero(sharedBytes.data(), static_cast<size_t>(sharedBytes.size()));
    if (t->m_key.isEmpty())
        return nullptr;
    Output = BnBytes(pub.get());
    return t;
}

bool SecretTransfer::Seal(const QByteArray& Plain, QByteArray& Iv, QByteArray& Value) const {
    if (!Encrypted()) {
        Iv.clear();
        Value = Plain;
        return true;
    }
    Iv.resize(16);
    if (RAND_bytes(reinterpret_cast<unsigned char*>(Iv.data()), 16) != 1)
        return false;
    return Aes(true, m_key, Iv, Plain, Value);
}

bool SecretTransfer::Unseal(const QByteArray& Iv, const QByteArray& Value, QByteArray& Plain) const {
    if (!Encrypted()) {
        Plain = Value;
        return true;
    }
    return Aes(false, m_key, Iv, Value, Plain);
}
