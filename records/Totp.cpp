#include "records/Totp.h"

#include <QMessageAuthenticationCode>
#include <QUrl>
#include <QUrlQuery>

#include <sodium.h>

namespace {

const char kBase32[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZ234567";
const char kSteamChars[] = "23456789BCDFGHJKMNPQRTVWXY";

QByteArray hmac(TotpParams::Algorithm Algo, const QByteArray& Key, const QByteArray& Msg) {
    const auto* k = reinterpret_cast<const unsigned char*>(Key.constData());
    const auto* m = reinterpret_cast<const unsigned char*>(Msg.constData());
    if (Algo == TotpParams::Sha256) {
        QByteArray out(crypto_auth_hmacsha256_BYTES, '\0');
        crypto_auth_hmacsha256_state st;
        crypto_auth_hmacsha256_init(&st, k, static_cast<size_t>(Key.size()));
        crypto_auth_hmacsha256_update(&st, m, static_cast<unsigned long long>(Msg.size()));
        crypto_auth_hmacsha256_final(&st, reinterpret_cast<unsigned char*>(out.data()));
        sodium_memzero(&st, sizeof st);
        return out;
    }
    if (Algo == TotpParams::Sha512) {
        QByteArray out(crypto_auth_hmacsha512_BYTES, '\0');
        crypto_auth_hmacsha512_state st;
        crypto_auth_hmacsha512_init(&st, k, static_cast<size_t>(Key.size()));
        crypto_auth_hmacsha512_update(&st, m, static_cast<unsigned long long>(Msg.size()));
        crypto_auth_hmacsha512_final(&st, reinterpret_cast<unsigned char*>(out.data()));
        sodium_memzero(&st, sizeof st);
        return out;
    }
    return QMessageAuthenticationCode::hash(Msg, Key, QCryptographicHash::Sha1);
}

bool fail(QString* Error, const QString& Why) {
    if (Error)
        *Error = Why;
    return false;
}

bool parseUri(const QUrl& Url, TotpParams& P, QString* Error) {
    if (Url.host().compare(QLatin1String("totp"), Qt::CaseInsensitive) != 0)
        return fail(Error, QStringLiteral("only time-based (totp) URIs give codes"));
    const QUrlQuery q(Url);
    QString label = Url.path(QUrl::FullyDecoded);
    if (label.startsWith(u'/'))
        label.remove(0, 1);
    P.Account = label.section(u':', -1).trimmed();
    P.Issuer = q.queryItemValue(QStringLiteral("issuer"), QUrl::FullyDecoded);
    if (P.Issuer.isEmpty() && label.contains(u':'))
        P.Issuer = label.section(u':', 0, 0).trimmed();
    if (!TotpBase32Decode(q.queryItemValue(QStringLiteral("secret")), P.Secret))
        return fail(Error, QStringLiteral("the secret is missing or not base32"));
    const QString algo = q.queryItemValue(QStringLiteral("algorithm")).toUpper();
    if (algo == QLatin1String("SHA256"))
        P.Algo = TotpParams::Sha256;
    else if (algo == QLatin1String("SHA512"))
        P.Algo = TotpParams::Sha512;
    else if (!algo.isEmpty() && algo != QLatin1String("SHA1"))
        return fail(Error, QStringLiteral("unknown algorithm ") + algo);
    bool ok = true;
    if (q.hasQueryItem(QStringLiteral("digits")))
        P.Digits = q.queryItemValue(QStringLiteral("digits")).toInt(&ok);
    if (!ok || P.Digits < 6 || P.Digits > 10)
        return fail(Error, QStringLiteral("digits must be 6 to 10"));
    if (q.hasQueryItem(QStringLiteral("period")))
        P.Period = q.queryItemValue(QStringLiteral("period")).toInt(&ok);
    if (!ok || P.Period < 1 || P.Period > 86400)
        return fail(Error, QStringLiteral("the period must be 1 to 86400 seconds"));
    P.Steam =
        q.queryItemValue(QStringLiteral("encoder")).compare(QLatin1String("steam"), Qt::CaseInsensitive) == 0;
    if (P.Steam)
        P.Digits = 5;
    return true;
}

} // namespace

bool TotpBase32Decode(const QString& Text, QByteArray& Out) {
    Out.clear();
    quint32 buffer = 0;
    int bits = 0;
    for (const QChar ch : Text) {
        const char16_t c = QChar::toUpper(ch.unicode());
        if (c == u' ' || c == u'-' || c == u'=' || c == u'\t')
            continue;
        int v = -1;
        if (c >= u'A' && c <= u'Z')
            v = c - u'A';
        else if (c >= u'2' && c <= u'7')
            v = c - u'2' + 26;
        if (v < 0) {
            Out.clear();
            return false;
        }
        buffer = (buffer << 5) | static_cast<quint32>(v);
        bits += 5;
        if (bits >= 8) {
            bits -= 8;
            Out.append(static_cast<char>((buffer >> bits) & 0xFF));
        }
    }
    return !Out.isEmpty();
}

QString TotpBase32Encode(const QByteArray& Data) {
    QString out;
    quint32 buffer = 0;
    int bits = 0;
    for (const char b : Data) {
        buffer = (buffer << 8) | static_cast<quint8>(b);
        bits += 8;
        while (bits >= 5) {
            bits -= 5;
            out += QLatin1Char(kBase32[(buffer >> bits) & 31]);
        }
    }
    if (bits > 0)
        out += QLatin1Char(kBase32[(buffer << (5 - bits)) & 31]);
    return out;
}

bool ParseTotp(const QString& Text, TotpParams& Out, QString* Error) {
    TotpParams p;
    const QString t = Text.trimmed();
    if (t.isEmpty())
        return fail(Error, QStringLiteral("no seed"));
    if (t.startsWith(QLatin1String("otpauth://"), Qt::CaseInsensitive)) {
        if (!parseUri(QUrl(t, QUrl::StrictMode), p, Error))
            return false;
    } else if (t.startsWith(QLatin1String("steam://"), Qt::CaseInsensitive)) {
        if (!TotpBase32Decode(t.mid(8), p.Secret))
            return fail(Error, QStringLiteral("the secret is not base32"));
        p.Steam = true;
        p.Digits = 5;
    } else if (!TotpBase32Decode(t, p.Secret)) {
        return fail(Error, QStringLiteral("neither an otpauth:// URI nor a base32 secret"));
    }
    Out = std::move(p);
    return true;
}

QString TotpUri(const TotpParams& P) {
    QUrl url;
    url.setScheme(QStringLiteral("otpauth"));
    url.setHost(QStringLiteral("totp"));
    QString label = P.Account;
    if (!P.Issuer.isEmpty())
        label = P.Issuer + u':' + label;
    url.setPath(u'/' + label);
    QUrlQuery q;
    q.addQueryItem(QStringLiteral("secret"), TotpBase32Encode(P.Secret));
    if (!P.Issuer.isEmpty())
        q.addQueryItem(QStringLiteral("issuer"), QString(P.Issuer).replace(u'&', QLatin1String("%26")));
    if (P.Steam) {
        q.addQueryItem(QStringLiteral("encoder"), QStringLiteral("steam"));
    } else {
        static const char* const names[] = {"SHA1", "SHA256", "SHA512"};
        q.addQueryItem(QStringLiteral("algorithm"), QLatin1String(names[P.Algo]));
        q.addQueryItem(QStringLiteral("digits"), QString::number(P.Digits));
    }
    q.addQueryItem(QStringLiteral("period"), QString::number(P.Period));
    url.setQuery(q);
    return url.toString(QUrl::FullyEncoded);
}

QString TotpCode(const TotpParams& P, qint64 Time) {
    const qint64 counter = (Time >= 0 ? Time : 0) / std::max(P.Period, 1);
    QByteArray msg(8, '\0');
    for (int i = 7, c = 0; i >= 0; --i, ++c)
        msg[i] = static_cast<char>((static_cast<quint64>(counter) >> (8 * c)) & 0xFF);
    const QByteArray mac = hmac(P.Algo, P.Secret, msg);
    const int off = mac[mac.size() - 1] & 0x0F;
    quint32 bin =
        (static_cast<quint32>(mac[off] & 0x7F) << 24) | (static_cast<quint32>(mac[off + 1] & 0xFF) << 16) |
        (static_cast<quint32>(mac[off + 2] & 0xFF) << 8) | static_cast<quint32>(mac[off + 3] & 0xFF);
    if (P.Steam) {
        QString code;
        for (int i = 0; i < 5; ++i) {
            code += QLatin1Char(kSteamChars[bin % 26]);
            bin /= 26;
        }
        return code;
    }
    quint64 mod = 1;
    for (int i = 0; i < P.Digits; ++i)
        mod *= 10;
    return QStringLiteral("%1").arg(static_cast<quint64>(bin) % mod, P.Digits, 10, QLatin1Char('0'));
}

int TotpSecondsLeft(const TotpParams& P, qint64 Time) {
    const int period = std::max(P.Period, 1);
    return period - static_cast<int>((Time >= 0 ? Time : 0) % period);
}
