#include "records/ImportFields.h"

#include "records/Totp.h"

#include <QRegularExpression>
#include <QUrlQuery>
#include <QtEndian>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

// KeeOtp's form: "key=BASE32&size=6&step=30&otpHashMode=SHA256" (KeePassXC keeps it as read).
bool keeOtp(const QString& Text, TotpParams& P) {
    if (!Text.startsWith("key="_L1, Qt::CaseInsensitive))
        return false;
    const QUrlQuery q(Text);
    if (!TotpBase32Decode(q.queryItemValue(u"key"_s, QUrl::FullyDecoded), P.Secret))
        return false;
    const QString size = q.queryItemValue(u"size"_s), step = q.queryItemValue(u"step"_s);
    const QString mode = q.queryItemValue(u"otpHashMode"_s).toUpper();
    if (!size.isEmpty())
        P.Digits = size.toInt();
    if (!step.isEmpty())
        P.Period = step.toInt();
    P.Algo = mode == "SHA256"_L1   ? TotpParams::Sha256
             : mode == "SHA512"_L1 ? TotpParams::Sha512
                                   : TotpParams::Sha1;
    return true;
}

} // namespace

QString ImpOtpUri(const QString& Seed, const QString& Settings) {
    const QString s = Seed.trimmed();
    TotpParams p;
    if (keeOtp(s, p)) {
        // read above
    } else if (!ParseTotp(s, p)) {
        return QString();
    } else if (s.startsWith("otpauth://"_L1, Qt::CaseInsensitive) && Settings.isEmpty()) {
        return s; // as the source wrote it, label and all
    }
    const QStringList set = Settings.split(u';');
    if (set.size() >= 2) {
        p.Period = set[0].trimmed().toInt();
        const QString digits = set[1].trimmed();
        p.Steam = digits.compare("S"_L1, Qt::CaseInsensitive) == 0;
        p.Digits = p.Steam ? 5 : digits.toInt();
        const QString algo = set.value(2).trimmed().toUpper();
        p.Algo = algo == "SHA256"_L1   ? TotpParams::Sha256
                 : algo == "SHA512"_L1 ? TotpParams::Sha512
                                       : TotpParams::Sha1;
    }
    if (p.Period < 1 || p.Period > 86400 || (!p.Steam && (p.Digits < 6 || p.Digits > 10)))
        return QString();
    return TotpUri(p);
}

void ImpAddUrl(ImpRow& Row, const QString& Url) {
    if (Url.isEmpty())
        return;
    if (Row.Extras.Url.isEmpty())
        Row.Extras.Url = Url;
    else
        ImpAddCustom(Row, u"URL"_s, Url, false);
}

void ImpSetOtp(ImpRow& Row, const QString& Seed, const QString& Settings) {
    if (Seed.trimmed().isEmpty())
        return;
    const QString uri = ImpOtpUri(Seed, Settings);
    if (uri.isEmpty() || !Row.Extras.Otp.isEmpty())
        AppendDescLine(Row.Desc, u"TOTP"_s, Seed);
    else
        Row.Extras.Otp = uri;
}

void ImpKeePassOtp(ImpRow& Row, const QString& Otp, const QString& Seed, const QString& Settings) {
    if (const QString uri = ImpOtpUri(Otp); !uri.isEmpty())
        Row.Extras.Otp = uri;
    else if (!Otp.isEmpty())
        ImpAddCustom(Row, u"otp"_s, Otp, true);
    if (const QString uri = ImpOtpUri(Seed, Settings); !uri.isEmpty() && Row.Extras.Otp.isEmpty()) {
        Row.Extras.Otp = uri;
        return;
    }
    if (!Seed.isEmpty())
        ImpAddCustom(Row, u"TOTP Seed"_s, Seed, true);
    if (!Settings.isEmpty())
        ImpAddCustom(Row, u"TOTP Settings"_s, Settings, false);
}

void ImpAddCustom(ImpRow& Row, const QString& Name, const QString& Value, bool Hidden) {
    const QString base = Name.isEmpty() ? u"Field"_s : Name;
    QString name = base;
    for (int n = 2; Row.Extras.Field(name); ++n)
        name = base + u' ' + QString::number(n);
    Row.Extras.Custom.append(RecCustomField{name, Value, Hidden, QString()});
}

void ImpAddOldPasw(ImpRow& Row, const QString& Pasw, const QDateTime& When) {
    if (Pasw.isEmpty() || Pasw == Row.Password)
        return;
    for (RecOldPasw& h : Row.Extras.History)
        if (h.Pasw == Pasw) {
            // Kept twice: the later time is when it was last replaced.
            if (When.isValid() && (!h.When.isValid() || When > h.When))
                h.When = When.toUTC();
            return;
        }
    Row.Extras.History.append(RecOldPasw{Pasw, When.toUTC(), QString()});
}

void ImpLimitHistory(ImpData& Data, int Max) {
    Max = std::max(Max, 0);
    for (ImpRow& r : Data.Rows) {
        QList<RecOldPasw>& h = r.Extras.History;
        if (h.isEmpty())
            continue;
        std::stable_sort(h.begin(), h.end(),
                         [](const RecOldPasw& A, const RecOldPasw& B) { return A.When > B.When; });
        if (h.size() > Max) {
            Data.Dropped[dropHistory] += static_cast<int>(h.size() - Max);
            h.resize(Max);
        }
    }
}

QDateTime ImpKdbxTime(const QString& Raw, bool* Base64) {
    const QByteArray bin = QByteArray::fromBase64(Raw.toLatin1());
    const bool b64 = bin.size() == 8 && !Raw.contains(u'-');
    if (Base64)
        *Base64 = b64;
    if (!b64)
        return QDateTime::fromString(Raw.trimmed(), Qt::ISODate);
    const qint64 secs = qFromLittleEndian<qint64>(bin.constData());
    return QDateTime(QDate(1, 1, 1), QTime(0, 0), Qt::UTC).addSecs(secs);
}

void ImpApplyLook(ImpRow& Row, const QHash<QString, QString>& Data) {
    static const QRegularExpression flags(u"^-?\\d{1,10}\\|\\d{1,10}$"_s), image(u"^\\d{1,4}key$"_s);
    const QString f = Data.value(u"ArgentPM.Flags"_s), i = Data.value(u"ArgentPM.Image"_s);
    if (flags.match(f).hasMatch())
        Row.Flags = f;
    if (image.match(i).hasMatch())
        Row.Image = i;
}

QString ImpForegroundFlags(const QString& Colour) {
    static const QRegularExpression rgb(u"^#([0-9A-Fa-f]{2})([0-9A-Fa-f]{2})([0-9A-Fa-f]{2})$"_s);
    const QRegularExpressionMatch m = rgb.match(Colour);
    if (Colour.isEmpty() || !m.hasMatch())
        return QString();
    return QString::number(m.captured(1).toInt(nullptr, 16) | (m.captured(2).toInt(nullptr, 16) << 8) |
                           (m.captured(3).toInt(nullptr, 16) << 16)) +
           u"|0"_s;
}
