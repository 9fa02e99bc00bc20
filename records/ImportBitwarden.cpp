// Import of Bitwarden's unencrypted JSON export: folders (nested by "/" in their names),
// or the collections of an organisation's export, and items of every kind.

#include "records/ImportExport.h"

#include "diagnostics/Trace.h"

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

template <std::size_t N> void appendFields(QString& Desc, const QJsonObject& O, const FieldName (&Names)[N]) {
    for (const FieldName& f : Names)
        AppendDescLine(Desc, QLatin1String(f.Name), text(O.value(QLatin1String(f.Key))));
}

int lineOfOffset(const QByteArray& Bytes, int Offset) {
    return static_cast<int>(QByteArrayView(Bytes).first(qBound(0, Offset, int(Bytes.size()))).count('\n')) +
           1;
}

} // namespace

bool ParseBitwardenJson(const QByteArray& Bytes, ImpData& Out, ImpError& Err) {
    TRACE_PROC("modImport.ParseBitwardenJson", static_cast<long long>(Bytes.size()));
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
    if (!root.value("items"_L1).isArray()) {
        Err.Code = impJsonNotBitwarden;
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
        r.Title = text(item.value("name"_L1));
        r.Desc = text(item.value("notes"_L1));
        const QJsonObject login = item.value("login"_L1).toObject();
        r.Login = text(login.value("username"_L1));
        r.Password = text(login.value("password"_L1));
        const QJsonArray uris = login.value("uris"_L1).toArray();
        for (qsizetype i = 0; i < uris.size(); ++i)
            AppendDescLine(r.Desc, i == 0 ? u"URL"_s : u"URL %1"_s.arg(i + 1),
                           text(uris[i].toObject().value("uri"_L1)));
        AppendDescLine(r.Desc, u"TOTP"_s, text(login.value("totp"_L1)));
        const QJsonObject card = item.value("card"_L1).toObject();
        appendFields(r.Desc, card, kCardFields);
        const QString month = text(card.value("expMonth"_L1)), year = text(card.value("expYear"_L1));
        if (!month.isEmpty() || !year.isEmpty())
            AppendDescLine(r.Desc, u"Expiry"_s, month + u'/' + year);
        appendFields(r.Desc, item.value("identity"_L1).toObject(), kIdentityFields);
        appendFields(r.Desc, item.value("sshKey"_L1).toObject(), kSshFields);
        for (const QJsonValue& fv : item.value("fields"_L1).toArray()) {
            const QJsonObject f = fv.toObject();
            AppendDescLine(r.Desc, text(f.value("name"_L1)), text(f.value("value"_L1)));
        }
        Out.Rows.append(r);
    }
    return true;
}
