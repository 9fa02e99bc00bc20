#pragma once

// Time-based one-time codes (RFC 6238 over RFC 4226's truncation) from a record's seed:
// an otpauth://totp/ URI with its parameters (secret, algorithm SHA1/SHA256/SHA512, digits
// 6 to 10, period), the Steam variant (encoder=steam in the URI, or steam://SECRET: five
// characters of Steam's alphabet), or a bare base32 secret (SHA-1, six digits, 30 s).
// SHA-256 and SHA-512 HMACs come from libsodium, SHA-1's from Qt.

#include <QByteArray>
#include <QString>

struct TotpParams {
    enum Algorithm { Sha1, Sha256, Sha512 };
    QByteArray Secret;
    Algorithm Algo = Sha1;
    int Digits = 6;
    int Period = 30;
    bool Steam = false;
    QString Issuer, Account;
};

// Base32 (RFC 4648) without regard to case, spaces, dashes and padding. False for any
// other character, or a secret that decodes to nothing.
bool TotpBase32Decode(const QString& Text, QByteArray& Out);
QString TotpBase32Encode(const QByteArray& Data);

// Reads a seed as a user pastes it or a file stores it. False, with a reason in Error,
// for a text that is none of the forms above or whose parameters are out of range.
bool ParseTotp(const QString& Text, TotpParams& Out, QString* Error = nullptr);
// The form a record keeps: an otpauth:// URI (a bare secret becomes one with defaults).
QString TotpUri(const TotpParams& P);

// The code at Unix time Time (seconds).
QString TotpCode(const TotpParams& P, qint64 Time);
// Seconds until the code of Time changes (1 .. Period).
int TotpSecondsLeft(const TotpParams& P, qint64 Time);
