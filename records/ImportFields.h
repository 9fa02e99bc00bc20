#pragma once

// What an import puts into a record's fields beyond the four (storage/FieldTable.h): the
// web address, the TOTP seed as an otpauth:// URI, custom fields and earlier passwords,
// shared by the parsers of every format.

#include "records/ImportExport.h"

#include <QDateTime>
#include <QHash>
#include <QString>

// The seed of a TOTP value as a file keeps it, as an otpauth:// URI: a URI as it is, a
// bare base32 or steam:// secret, or KeeOtp's "key=...&step=30&size=6&otpHashMode=SHA256".
// Settings: KeePassXC's older "TOTP Settings" ("30;6", "30;S" for Steam, "30;8;SHA256").
// Empty when it reads as none of them.
QString ImpOtpUri(const QString& Seed, const QString& Settings = QString());

// The web address of a row; a second one (a row has one) becomes a custom field "URL 2", ...
void ImpAddUrl(ImpRow& Row, const QString& Url);
// The seed of a row; one that cannot be read stays in the description as "TOTP: ...".
void ImpSetOtp(ImpRow& Row, const QString& Seed, const QString& Settings = QString());
// KeePassXC's seed: "otp", or the older "TOTP Seed" with its "TOTP Settings". What does not
// read stays a custom field of its name.
void ImpKeePassOtp(ImpRow& Row, const QString& Otp, const QString& Seed, const QString& Settings);
// A custom field; a name the row already has gets " 2", " 3", ... An empty name is "Field".
void ImpAddCustom(ImpRow& Row, const QString& Name, const QString& Value, bool Hidden);
// An earlier password of a row, kept unless it is empty, the current one or one already kept.
void ImpAddOldPasw(ImpRow& Row, const QString& Pasw, const QDateTime& When);

// Keeps the newest Max earlier passwords of every record (newest first) and counts the rest
// in Data.Dropped[dropHistory].
void ImpLimitHistory(ImpData& Data, int Max);

// For the KeePass XML reader. A time: ISO text (KDBX 3) or base64 of the seconds since
// 0001-01-01 (KDBX 4); Base64 tells which it was.
QDateTime ImpKdbxTime(const QString& Raw, bool* Base64 = nullptr);
// Our own look of a row, as our export writes it into the custom data.
void ImpApplyLook(ImpRow& Row, const QHash<QString, QString>& Data);
// The Flags of a row for an entry's foreground colour "#RRGGBB"; empty for none.
QString ImpForegroundFlags(const QString& Colour);
