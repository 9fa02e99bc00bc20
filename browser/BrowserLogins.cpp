// The actions of the browser protocol that read and write records: get-logins, set-login,
// get-database-groups and create-new-group.

#include "browser/BrowserHost.h"
#include "browser/BrowserProtocol.h"
#include "browser/BrowserStore.h"
#include "browser/SiteIndex.h"

#include "app/modLang.h"
#include "diagnostics/DbgPrint.h"
#include "diagnostics/Trace.h"
#include "records/RecordExtras.h"
#include "records/RecordTree.h"
#include "storage/FieldTable.h"
#include "users/UserAccounts.h"

#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QUrl>

#include <functional>

namespace {

int dataTbl() {
    return CurUsDB->FindTable(QStringLiteral("DataTable"));
}

QString cell(int Row, const char* Field) {
    return CurUsDB->GetTblFldValNm(dataTbl(), Row, QLatin1String(Field));
}

QString browserFolderName() {
    const QString t = Texts(507);
    return t.isEmpty() || t.startsWith(u'#') ? QStringLiteral("Browser") : t;
}

// The identifier of the folder Title directly in Parent, made when there is none.
QString folderIn(IBrowserHost& Host, const QString& Parent, const QString& Title) {
    const int tbl = dataTbl();
    const TableEntry& table = CurUsDB->DBView().Tables[tbl - 1];
    const int id = CurUsDB->FindField(tbl, QStringLiteral("IndNum")) - 1;
    const int par = CurUsDB->FindField(tbl, QStringLiteral("Parent")) - 1;
    const int type = CurUsDB->FindField(tbl, QStringLiteral("Type")) - 1;
    const int title = CurUsDB->FindField(tbl, QStringLiteral("Title")) - 1;
    for (int r = 0; r < table.RecNum(); ++r)
        if (table.Records.valueIs(r, par, Parent) && table.Records.valueIs(r, title, Title) &&
            !table.Records.valueIs(r, type, QStringLiteral("2")))
            return table.Records.value(r, id);
    const QString made = GetNewIndNum(*CurUsDB);
    AddFolderToDB(Title, Parent.toInt(), made);
    Host.RowAdded(made);
    return made;
}

// Leaves as many entries as fit into one message to the browser (base64 and the seal
// make a message about 4/3 of its JSON, plus the envelope).
void fitEntries(QJsonArray& Entries) {
    constexpr qsizetype kRoom = 700 * 1024;
    while (!Entries.isEmpty() && QJsonDocument(Entries).toJson(QJsonDocument::Compact).size() > kRoom) {
        const qsizetype keep = Entries.size() / 2;
        while (Entries.size() > keep)
            Entries.removeLast();
    }
}

} // namespace

QJsonObject clsBrowserClient::getLogins(const QJsonObject& Msg, int& Error) {
    TRACE_PROC("modBrowser.GetLogins");
    const QString url = Msg.value(QStringLiteral("url")).toString();
    if (url.isEmpty()) {
        Error = brNoUrl;
        return {};
    }
    if (!keysAssociated(Msg)) {
        Error = brAssociationFailed;
        return {};
    }
    QList<BrMatch> found = m_index.Find(*CurUsDB, url, Msg.value(QStringLiteral("submitUrl")).toString());
    const QString site = BrSiteOf(url);
    const clsDatabase* asking = CurUsDB.get();
    QStringList asked;
    for (const BrMatch& m : found)
        if (!m.Allowed)
            asked.append(cell(m.Row, "Title"));
    if (!asked.isEmpty()) {
        const BrSiteAnswer a = m_host.AskSite(site, asked);
        // Locked, or another user opened, while the question was open: not this answer's.
        if (!m_host.DatabaseOpen() || CurUsDB.get() != asking) {
            Error = brDatabaseNotOpened;
            return {};
        }
        // The database may have changed while the question was open: look again.
        if (a == brAllowAlways) {
            for (const BrMatch& m : found)
                if (!m.Allowed)
                    BrAllowSite(*CurUsDB, m.IndNum, site);
            m_host.Save();
        }
        found = m_index.Find(*CurUsDB, url, Msg.value(QStringLiteral("submitUrl")).toString());
        if (a == brDeny) {
            found.removeIf([](const BrMatch& m) { return !m.Allowed; });
            DbgPrint(QStringLiteral("Browser: ") + site + QStringLiteral(" was denied ") +
                     QString::number(asked.size()) + QStringLiteral(" record(s)"));
        }
    }
    QJsonArray entries;
    for (const BrMatch& m : found) {
        const QString title = cell(m.Row, "Title");
        entries.append(QJsonObject{{QStringLiteral("login"), cell(m.Row, "Login")},
                                   {QStringLiteral("name"), title},
                                   {QStringLiteral("password"), cell(m.Row, "Password")},
                                   {QStringLiteral("uuid"), m.IndNum},
                                   {QStringLiteral("group"), m_index.FolderTitle(cell(m.Row, "Parent"))},
                                   {QStringLiteral("expired"), QStringLiteral("false")},
                                   {QStringLiteral("skipAutoSubmit"), QStringLiteral("false")},
                                   {QStringLiteral("stringFields"), QJsonArray()}});
    }
    fitEntries(entries);
    for (const QJsonValue& e : entries)
        DbgPrint(QStringLiteral("Browser fill: ") + site + QStringLiteral(" <- ") +
                 e.toObject().value(QStringLiteral("name")).toString());
    return {{QStringLiteral("count"), entries.size()},
            {QStringLiteral("entries"), entries},
            {QStringLiteral("hash"), BrDatabaseHash(CurUser)},
            {QStringLiteral("id"), Msg.value(QStringLiteral("id")).toString()}};
}

QJsonObject clsBrowserClient::setLogin(const QJsonObject& Msg, int& Error) {
    TRACE_PROC("modBrowser.SetLogin");
    const QString url = Msg.value(QStringLiteral("url")).toString();
    const QString login = Msg.value(QStringLiteral("login")).toString();
    QString pasw = Msg.value(QStringLiteral("password")).toString();
    bool known = false;
    for (const BrAssociation& a : BrAssociations(CurUsDB->DBView()))
        known = known || a.Id == Msg.value(QStringLiteral("id")).toString();
    if (!known) {
        Error = brAssociationFailed;
        return {};
    }
    if (url.isEmpty()) {
        Error = brNoUrl;
        return {};
    }
    const QString site = BrSiteOf(url);
    // The record to update: the one named, else one of this site with this login.
    int row = 0;
    const QString uuid = Msg.value(QStringLiteral("uuid")).toString();
    if (!uuid.isEmpty()) {
        row = FindDataRow(*CurUsDB, uuid);
        if (row == 0 || cell(row, "Type") != QLatin1String("2")) {
            Error = brUnknown;
            return {};
        }
    } else {
        for (const BrMatch& m : m_index.Find(*CurUsDB, url))
            if (row == 0 && cell(m.Row, "Login") == login)
                row = m.Row;
    }
    const QJsonObject done{{QStringLiteral("count"), QJsonValue::Null},
                           {QStringLiteral("entries"), QJsonValue::Null},
                           {QStringLiteral("error"), QStringLiteral("success")},
                           {QStringLiteral("hash"), BrDatabaseHash(CurUser)}};
    if (row > 0) {
        const QString id = cell(row, "IndNum"), title = cell(row, "Title");
        if (cell(row, "Login") == login && cell(row, "Password") == pasw)
            return done;
        const clsDatabase* asking = CurUsDB.get();
        if (!m_host.AskOverwrite(site, title, login) || !m_host.DatabaseOpen() || CurUsDB.get() != asking) {
            Error = brActionDenied;
            return {};
        }
        row = FindDataRow(*CurUsDB, id);
        if (row == 0) {
            Error = brUnknown;
            return {};
        }
        SetRecordPasw(*CurUsDB, dataTbl(), row, pasw);
        CurUsDB->SetTblFldValNm(dataTbl(), row, QStringLiteral("Login"), login);
        m_host.RowChanged(id);
        DbgPrint(QStringLiteral("Browser: ") + site + QStringLiteral(" updated ") + title);
    } else {
        QString folder = Msg.value(QStringLiteral("groupUuid")).toString();
        const int frow = folder.isEmpty() ? 0 : FindDataRow(*CurUsDB, folder);
        if (frow == 0 || cell(frow, "Type") == QLatin1String("2"))
            folder = folderIn(m_host, QStringLiteral("0"), browserFolderName());
        const QString title = QUrl(url).host().isEmpty() ? site : QUrl(url).host();
        const QString id = AddRecordToDB(*CurUsDB, folder, title, login, pasw, QString());
        RecExtras ex;
        ex.Url = url;
        WriteRecExtras(*CurUsDB, id, ex);
        BrAllowSite(*CurUsDB, id, site);
        m_host.RowAdded(id);
        DbgPrint(QStringLiteral("Browser: ") + site + QStringLiteral(" stored ") + title);
    }
    WipeString(pasw);
    m_host.Save();
    return done;
}

QJsonObject clsBrowserClient::groups() {
    const int tbl = dataTbl();
    const TableEntry& table = CurUsDB->DBView().Tables[tbl - 1];
    const int id = CurUsDB->FindField(tbl, QStringLiteral("IndNum")) - 1;
    const int par = CurUsDB->FindField(tbl, QStringLiteral("Parent")) - 1;
    const int type = CurUsDB->FindField(tbl, QStringLiteral("Type")) - 1;
    const int title = CurUsDB->FindField(tbl, QStringLiteral("Title")) - 1;
    QHash<QString, QList<int>> kids;
    for (int r = 0; r < table.RecNum(); ++r)
        if (!table.Records.valueIs(r, type, QStringLiteral("2")))
            kids[table.Records.value(r, par)].append(r);
    // Depth first; a damaged file's loop ends at the depth of the table.
    std::function<QJsonArray(const QString&, int)> below = [&](const QString& Parent, int Depth) {
        QJsonArray a;
        if (Depth > table.RecNum())
            return a;
        for (int r : kids.value(Parent)) {
            const QString me = table.Records.value(r, id);
            a.append(QJsonObject{{QStringLiteral("name"), table.Records.value(r, title)},
                                 {QStringLiteral("uuid"), me},
                                 {QStringLiteral("children"), below(me, Depth + 1)}});
        }
        return a;
    };
    const QJsonObject root{{QStringLiteral("name"), CurUser},
                           {QStringLiteral("uuid"), QStringLiteral("0")},
                           {QStringLiteral("children"), below(QStringLiteral("0"), 0)}};
    return {{QStringLiteral("groups"), QJsonObject{{QStringLiteral("groups"), QJsonArray{root}}}}};
}

QJsonObject clsBrowserClient::createGroup(const QJsonObject& Msg, int& Error) {
    const QStringList path =
        Msg.value(QStringLiteral("groupName")).toString().split(u'/', Qt::SkipEmptyParts);
    if (path.isEmpty()) {
        Error = brUnknown;
        return {};
    }
    QString at = QStringLiteral("0");
    for (const QString& p : path)
        at = folderIn(m_host, at, p.trimmed());
    m_host.Save();
    return {{QStringLiteral("name"), path.last().trimmed()}, {QStringLiteral("uuid"), at}};
}
