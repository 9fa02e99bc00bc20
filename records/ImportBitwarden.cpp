// Import of Bitwarden's unencrypted JSON export: folders (nested by "/" in their names),
// or the collections of an organisation's export, and items of every kind.

#include "records/ImportExport.h"

#include "diagnostics/Trace.h"
#include "records/ImportFields.h"

#include <QDateTime>
#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace {

using namespace Qt::StringLiterals;

QString text(const QJsonValue& v) {
    if (v.isString())
        return v.toString();
    if (v.isDouble())
        return QString::number(v.toDouble(), 'g', 17);
    if (v.isBool())
        return v.toBool() ? u"true"_s : u"false"_s;
    return QString();
}

// Fields of a card, an identity or an SSH key: JSON key and the name in the description.
struct FieldName {
    const char* Key;
    const char* Name;
};
const FieldName kCardFields[] = {{"cardholderName", "Cardholder name"},
                                 {"brand", "Brand"},
                                 {"number", "Number"},
                                 {"code", "Security code"}};
const FieldName kIdentityFields[] = {{"title", "Title"},
                                     {"firstName", "First name"},
                                     {"middleName", "Middle name"},
                                     {"lastName", "Last name"},
                                     {"username", "Username"},
                                     {"company", "Company"},
                                     {"email", "Email"},
                                     {"phone", "Phone"},
                                     {"address1", "Address"},
                                     {"address2", "Address 2"},
                                     {"address3", "Address 3"},
                                     {"city", "City"},
                                     {"state", "State"},
                                     {"postalCode", "Postal code"},
                                     {"country", "Country"},
                                     {"ssn", "Social security number"},
                                     {"passportNumber", "Passport number"},
                                     {"licenseNumber", "License number"}};
const FieldName kSshFields[] = {
    {"privateKey", "Private key"}, {"publicKey", "Public key"}, {"keyFingerprint", "Fingerprint"}};

// "accountNumber" as "Account number": the name of a value no table knows.
QString readableName(const QString& Key) {
    QString out;
    for (QChar c : Key) {
        if (c.isUpper() && !out.isEmpty()) {
            out += u' ';
            out += c.toLower();
        } else {
            out += out.isEmpty() ? c.toUpper() : c;
        }
    }
    return out;
}

// The values of an object: those the table names first, in its order, then any other
// value (kinds of items added after this was written) under a name made from its key.
template <std::size_t N> void appendFields(QString& Desc, const QJsonObject& O, const FieldName (&Names)[N]) {
    QStringList known;
    for (const FieldName& f : Names) {
        AppendDescLine(Desc, QLatin1String(f.Name), text(O.value(QLatin1String(f.Key))));
        known.append(QLatin1String(f.Key));
    }
    for (auto it = O.begin(); it != O.end(); ++it)
        if (!known.contains(it.key()))
            AppendDescLine(Desc, readableName(it.key()), text(it.value()));
}
void appendFields(QString& Desc, const QJsonObject& O) {
    static const FieldName kNone[] = {{"", ""}};
    appendFields(Desc, O, kNone);
}

// What a linked custom field shows: the value it stands for (Bitwarden's numbers).
QString linkedName(int Id) {
    static const FieldName kLinked[] = {
        {"100", "user name"},   {"101", "password"},      {"300", "cardholder name"}, {"301", "expiry month"},
        {"302", "expiry year"}, {"303", "security code"}, {"304", "brand"},           {"305", "number"},
    };
    for (const FieldName& l : kLinked)
        if (QLatin1String(l.Key) == QString::number(Id))
            return QLatin1String(l.Name);
    return Id >= 400 && Id < 500 ? u"an identity value"_s : u"another value"_s;
}

int lineOfOffset(const QByteArray& Bytes, qsizetype Offset) {
    return static_cast<int>(
               QByteArrayView(Bytes).first(qBound<qsizetype>(0, Offset, Bytes.size())).count('\n')) +
           1;
}

// The offset of the first string longer than kImpMaxValue UTF-16 units, or -1; Values
// counts the values and lists outside strings. Run over the bytes before they are parsed,
// so that no such value, nor a document of millions of tiny values, is ever built.
qsizetype longStringAt(const QByteArray& Bytes, qsizetype& Values) {
    const char* p = Bytes.constData();
    const qsizetype n = Bytes.size();
    Values = 0;
    for (qsizetype i = 0; i < n; ++i) {
        if (p[i] == ',' || p[i] == '[' || p[i] == '{')
            ++Values;
        if (p[i] != '"')
            continue;
        const qsizetype start = i;
        qsizetype units = 0;
        for (++i; i < n && p[i] != '"'; ++i) {
            const auto b = static_cast<unsigned char>(p[i]);
            if (b == '\\') {
                // \uXXXX is one unit, any other escape one character.
                i += i + 1 < n && p[i + 1] == 'u' ? 5 : 1;
                ++units;
            } else if ((b & 0xC0) != 0x80) {
                units += b >= 0xF0 ? 2 : 1;
            }
            if (units > kImpMaxValue)
                return start;
        }
    }
    return -1;
}

// A Bitwarden export by its signature: the "encrypted" flag its exports carry, or items
// with a numeric "type" and a "name". The program whose export it is otherwise, or empty.
bool isBitwarden(const QJsonObject& Root, QString& Other) {
    if (Root.value("encrypted"_L1).isBool())
        return true;
    const QJsonArray items = Root.value("items"_L1).toArray();
    if (items.isEmpty())
        return Root.value("folders"_L1).isArray() || Root.value("collections"_L1).isArray();
    const QJsonObject first = items.at(0).toObject();
    if (first.value("type"_L1).isDouble() && first.contains("name"_L1))
        return true;
    // Enpass writes items with a title, a category and a list of labelled fields.
    if (first.contains("category"_L1) || first.contains("template_type"_L1) ||
        (first.contains("title"_L1) &&
         first.value("fields"_L1).toArray().at(0).toObject().contains("label"_L1)))
        Other = u"Enpass"_s;
    return false;
}

// One item as a row: the mapping of every kind of item is here.
void mapItem(const QJsonObject& Item, ImpRow& R, ImpData& Out) {
    R.Title = text(Item.value("name"_L1));
    R.Desc = text(Item.value("notes"_L1));
    const QJsonObject login = Item.value("login"_L1).toObject();
    R.Login = text(login.value("username"_L1));
    R.Password = text(login.value("password"_L1));
    for (const QJsonValue& u : login.value("uris"_L1).toArray())
        ImpAddUrl(R, text(u.toObject().value("uri"_L1)));
    ImpSetOtp(R, text(login.value("totp"_L1)));
    Out.Dropped[dropPasskey] += static_cast<int>(login.value("fido2Credentials"_L1).toArray().size());

    // Something of the kind of the item was read: its own part, or a known kind.
    const int type = Item.value("type"_L1).toInt();
    bool known = type >= 1 && type <= 5;
    const QJsonObject card = Item.value("card"_L1).toObject();
    QJsonObject cardRest = card;
    cardRest.remove("expMonth"_L1);
    cardRest.remove("expYear"_L1);
    appendFields(R.Desc, cardRest, kCardFields);
    const QString month = text(card.value("expMonth"_L1)), year = text(card.value("expYear"_L1));
    if (!month.isEmpty() || !year.isEmpty())
        AppendDescLine(R.Desc, u"Expiry"_s, month + u'/' + year);
    appendFields(R.Desc, Item.value("identity"_L1).toObject(), kIdentityFields);
    appendFields(R.Desc, Item.value("sshKey"_L1).toObject(), kSshFields);
    // Kinds without a table of their own (bank accounts, driving licences, passports and
    // whatever comes later): every value under its own name.
    static const QStringList kItemKeys = {u"id"_s,
                                          u"organizationId"_s,
                                          u"folderId"_s,
                                          u"type"_s,
                                          u"reprompt"_s,
                                          u"name"_s,
                                          u"notes"_s,
                                          u"favorite"_s,
                                          u"fields"_s,
                                          u"login"_s,
                                          u"card"_s,
                                          u"identity"_s,
                                          u"sshKey"_s,
                                          u"secureNote"_s,
                                          u"collectionIds"_s,
                                          u"revisionDate"_s,
                                          u"creationDate"_s,
                                          u"deletedDate"_s,
                                          u"passwordHistory"_s,
                                          u"attachments"_s,
                                          u"key"_s,
                                          u"archivedDate"_s};
    for (auto it = Item.begin(); it != Item.end(); ++it)
        if (it.value().isObject() && !kItemKeys.contains(it.key())) {
            appendFields(R.Desc, it.value().toObject());
            known = true;
        }
    // Custom fields: text (0), hidden (1), a check box (2, "true" or "false"); a linked one
    // (3) only shows another value and is said in the description.
    for (const QJsonValue& fv : Item.value("fields"_L1).toArray()) {
        const QJsonObject f = fv.toObject();
        const QString name = text(f.value("name"_L1));
        const int type = f.value("type"_L1).toInt();
        if (type == 3)
            AppendDescLine(R.Desc, name,
                           u"(the same as the %1)"_s.arg(linkedName(f.value("linkedId"_L1).toInt())));
        else
            ImpAddCustom(R, name, text(f.value("value"_L1)), type == 1);
    }
    if (Item.value("favorite"_L1).toBool())
        AppendDescLine(R.Desc, u"Favourite"_s, u"yes"_s);
    if (Item.value("reprompt"_L1).toInt() != 0)
        ++Out.Dropped[dropReprompt];
    for (const QJsonValue& h : Item.value("passwordHistory"_L1).toArray())
        ImpAddOldPasw(R, text(h.toObject().value("password"_L1)),
                      QDateTime::fromString(text(h.toObject().value("lastUsedDate"_L1)), Qt::ISODateWithMs));
    Out.Dropped[dropAttachment] += static_cast<int>(Item.value("attachments"_L1).toArray().size());
    if (!known)
        ++Out.Dropped[dropUnknown];
}

} // namespace

bool ParseBitwardenJson(const QByteArray& Bytes, ImpData& Out, ImpError& Err) {
    TRACE_PROC("modImport.ParseBitwardenJson", static_cast<long long>(Bytes.size()));
    qsizetype values = 0;
    if (const qsizetype at = longStringAt(Bytes, values); at >= 0) {
        Err = ImpError{impValueTooLarge, lineOfOffset(Bytes, at), QString()};
        return false;
    }
    if (values > kImpMaxRows * 16) {
        Err.Code = impTooManyRows;
        return false;
    }
    QJsonParseError pe;
    const QJsonDocument doc = QJsonDocument::fromJson(Bytes, &pe);
    if (pe.error != QJsonParseError::NoError) {
        Err = ImpError{impJsonBad, lineOfOffset(Bytes, pe.offset), pe.errorString()};
        return false;
    }
    const QJsonObject root = doc.object();
    if (root.value("encrypted"_L1).toBool()) {
        Err.Code = impJsonEncrypted;
        return false;
    }
    QString other;
    if (!root.value("items"_L1).isArray() || !isBitwarden(root, other)) {
        Err =
            other.isEmpty() ? ImpError{impJsonNotBitwarden, 0, QString()} : ImpError{impJsonOther, 0, other};
        return false;
    }

    // Folders by path; a name "A/B" is folder B inside folder A.
    QHash<QString, int> byPath;
    auto folderFor = [&](const QString& Name) {
        int parent = -1;
        QString path;
        for (const QString& part : Name.split(u'/', Qt::SkipEmptyParts)) {
            path += u'/' + part.trimmed();
            if (auto it = byPath.constFind(path); it != byPath.constEnd()) {
                parent = *it;
                continue;
            }
            ImpRow f;
            f.Folder = true;
            f.Parent = parent;
            f.Title = part.trimmed();
            Out.Rows.append(f);
            parent = static_cast<int>(Out.Rows.size() - 1);
            byPath.insert(path, parent);
        }
        return parent;
    };
    QHash<QString, int> folderById;
    for (const char* list : {"folders", "collections"})
        for (const QJsonValue& v : root.value(QLatin1String(list)).toArray()) {
            const QJsonObject f = v.toObject();
            folderById.insert(text(f.value("id"_L1)), folderFor(text(f.value("name"_L1))));
        }

    for (const QJsonValue& v : root.value("items"_L1).toArray()) {
        const QJsonObject item = v.toObject();
        ImpRow r;
        QString fid = text(item.value("folderId"_L1));
        const QJsonArray collections = item.value("collectionIds"_L1).toArray();
        if (fid.isEmpty() && !collections.isEmpty())
            fid = text(collections.at(0));
        r.Parent = folderById.value(fid, -1);
        mapItem(item, r, Out);
        Out.Rows.append(r);
        if (Out.Rows.size() > kImpMaxRows) {
            Err.Code = impTooManyRows;
            return false;
        }
    }
    return true;
}
