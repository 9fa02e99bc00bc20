#include "browser/BrowserStore.h"

#include "diagnostics/Trace.h"
#include "storage/FieldTable.h"
#include "storage/clsDatabase.h"

#include <QUrl>

#include <sodium.h>

namespace {

const QString kTable = QStringLiteral("BrowserKeys");
const QStringList kColumns = {QStringLiteral("BrKey"), QStringLiteral("Id"), QStringLiteral("IdKey"),
                              QStringLiteral("Date")};
enum Col { cKey, cId, cIdKey, cDate };

int tableNum(const DatabaseRecord& Db) {
    for (int i = 0; i < Db.TabNum(); ++i)
        if (Db.Tables[i].Name.compare(kTable, Qt::CaseInsensitive) == 0)
            return i + 1;
    return 0;
}

int column(const TableEntry& T, Col C) {
    for (qsizetype i = 0; i < T.FldNames.size(); ++i)
        if (T.FldNames[i].compare(kColumns[C], Qt::CaseInsensitive) == 0)
            return static_cast<int>(i);
    return C;
}

TableEntry newTable() {
    TableEntry t;
    t.Name = kTable;
    t.FldNames = kColumns;
    t.FldTypes = {69, 2, 2, 5};
    QStringList caption;
    for (qsizetype i = 0; i < kColumns.size(); ++i)
        caption.append(kColumns[i] + u' ' + QString::number(t.FldTypes[i]));
    t.Caption = caption.join(QChar(kFldSep));
    t.Tag = QStringLiteral("0");
    return t;
}

QString rowKey() {
    unsigned char raw[9];
    randombytes_buf(raw, sizeof raw);
    return QString::fromLatin1(QByteArray(reinterpret_cast<const char*>(raw), sizeof raw)
                                   .toBase64(QByteArray::Base64UrlEncoding | QByteArray::OmitTrailingEquals));
}

} // namespace

QList<BrAssociation> BrAssociations(const DatabaseRecord& Db) {
    QList<BrAssociation> out;
    const int t = tableNum(Db);
    if (t == 0)
        return out;
    const TableEntry& table = Db.Tables[t - 1];
    const int id = column(table, cId), key = column(table, cIdKey), date = column(table, cDate);
    for (int r = 0; r < table.RecNum(); ++r)
        out.append({table.Records.value(r, id), table.Records.value(r, key),
                    QDateTime::fromString(table.Records.value(r, date), Qt::ISODate)});
    return out;
}

bool BrIsAssociated(const DatabaseRecord& Db, const QString& Id, const QString& IdKey) {
    if (Id.isEmpty() || IdKey.isEmpty())
        return false;
    for (const BrAssociation& a : BrAssociations(Db))
        if (a.Id == Id && a.IdKey == IdKey)
            return true;
    return false;
}

void BrAddAssociation(clsDatabase& Db, const QString& Id, const QString& IdKey) {
    TRACE_PROC("modBrowser.BrAddAssociation", Id);
    BrRemoveAssociation(Db, Id);
    int t = tableNum(Db.DBView());
    if (t == 0)
        t = Db.AppendTable(newTable());
    TableEntry& table = Db.EditTable(t);
    QStringList row(std::max<qsizetype>(kColumns.size(), table.FldNames.size()));
    row[column(table, cKey)] = rowKey();
    row[column(table, cId)] = Id;
    row[column(table, cIdKey)] = IdKey;
    row[column(table, cDate)] = QDateTime::currentDateTimeUtc().toString(Qt::ISODate);
    table.Records.append(row);
}

bool BrRemoveAssociation(clsDatabase& Db, const QString& Id) {
    const int t = tableNum(Db.DBView());
    if (t == 0)
        return false;
    const TableEntry& view = Db.DBView().Tables[t - 1];
    const int id = column(view, cId);
    std::vector<bool> drop(static_cast<size_t>(view.RecNum()), false);
    bool any = false;
    for (int r = 0; r < view.RecNum(); ++r)
        if (view.Records.valueIs(r, id, Id))
            drop[static_cast<size_t>(r)] = any = true;
    if (any)
        Db.EditTable(t).Records.removeRows(drop);
    return any;
}

QString BrSiteOf(const QString& Url) {
    const QUrl u(Url.contains(QStringLiteral("://")) ? Url : QStringLiteral("https://") + Url);
    const QString host = u.host().toLower();
    const int def = u.scheme() == QLatin1String("http") ? 80 : 443;
    if (u.port() > 0 && u.port() != def)
        return host + u':' + QString::number(u.port());
    return host;
}

bool BrSiteAllowed(const DatabaseRecord& Db, const QString& IndNum, const QString& Site) {
    for (const RecFlaggedRow& r : ReadFlaggedRows(Db, rffSiteAllowed).value(IndNum))
        if (r.Name == Site)
            return true;
    return false;
}

void BrAllowSite(clsDatabase& Db, const QString& IndNum, const QString& Site) {
    if (!BrSiteAllowed(Db.DBView(), IndNum, Site))
        AddFlaggedRow(Db, IndNum, rffSiteAllowed, Site, QString());
}

QString BrDatabaseHash(const QString& UserName) {
    const QByteArray in = QByteArrayLiteral("ArgentPM browser:") + UserName.toUtf8();
    unsigned char out[crypto_hash_sha256_BYTES];
    crypto_hash_sha256(out, reinterpret_cast<const unsigned char*>(in.constData()),
                       static_cast<unsigned long long>(in.size()));
    return QString::fromLatin1(QByteArray(reinterpret_cast<const char*>(out), sizeof out).toHex());
}
