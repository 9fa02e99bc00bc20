#include "browser/SiteIndex.h"

#include "browser/BrowserStore.h"
#include "diagnostics/Trace.h"
#include "storage/FieldTable.h"
#include "storage/clsDatabase.h"

#include <QUrl>

#include <algorithm>

namespace {

template <class Parsed> Parsed parse(const QString& Text, bool Stored) {
    Parsed p;
    QString t = Text.trimmed();
    if (t.isEmpty())
        return p;
    const bool hasScheme = t.contains(QStringLiteral("://"));
    const QUrl u(hasScheme ? t : QStringLiteral("https://") + t);
    if (!u.isValid() || u.host().isEmpty())
        return p;
    p.Scheme = hasScheme ? u.scheme().toLower() : QString();
    if (!Stored && p.Scheme.isEmpty())
        p.Scheme = QStringLiteral("https");
    p.Host = u.host().toLower();
    if (p.Host.endsWith(u'.'))
        p.Host.chop(1);
    p.Port = u.port();
    if (!Stored && p.Port < 0)
        p.Port = p.Scheme == QLatin1String("http") ? 80 : p.Scheme == QLatin1String("https") ? 443 : -1;
    if (Stored && p.Port >= 0 &&
        ((p.Scheme == QLatin1String("http") && p.Port == 80) ||
         (p.Scheme == QLatin1String("https") && p.Port == 443)))
        p.Port = -1; // the scheme's own port is no restriction
    p.Path = u.path();
    p.Ok = true;
    return p;
}

bool schemeFits(const QString& Record, const QString& Page) {
    if (Record.isEmpty() || Record == Page)
        return true;
    return Record == QLatin1String("http") && Page == QLatin1String("https");
}

} // namespace

void clsSiteIndex::Clear() {
    m_byHost.clear();
    m_folders.clear();
    m_parsed.clear();
    m_db = nullptr;
    m_generation = 0;
}

void clsSiteIndex::rebuild(const clsDatabase& Db) {
    TRACE_PROC("modBrowser.SiteIndexRebuild");
    m_byHost.clear();
    m_folders.clear();
    m_db = &Db;
    m_generation = Db.Generation();
    const DatabaseRecord& view = Db.DBView();
    const QHash<QString, QList<RecFlaggedRow>> urls = ReadFlaggedRows(view, rffUrl);
    if (urls.isEmpty())
        return;
    const QHash<QString, QList<RecFlaggedRow>> allowed = ReadFlaggedRows(view, rffSiteAllowed);
    int data = 0;
    for (int i = 0; i < view.TabNum() && data == 0; ++i)
        if (view.Tables[i].Name.compare(QLatin1String("DataTable"), Qt::CaseInsensitive) == 0)
            data = i + 1;
    if (data == 0)
        return;
    const TableEntry& table = view.Tables[data - 1];
    int id = 0, type = 2, title = 3;
    for (qsizetype i = 0; i < table.FldNames.size(); ++i) {
        if (table.FldNames[i].compare(QLatin1String("Title"), Qt::CaseInsensitive) == 0)
            title = static_cast<int>(i);
        if (table.FldNames[i].compare(QLatin1String("IndNum"), Qt::CaseInsensitive) == 0)
            id = static_cast<int>(i);
        if (table.FldNames[i].compare(QLatin1String("Type"), Qt::CaseInsensitive) == 0)
            type = static_cast<int>(i);
    }
    QHash<QString, Parsed> parsed;
    parsed.reserve(urls.size());
    for (int r = 0; r < table.RecNum(); ++r) {
        const QString ind = table.Records.value(r, id);
        if (!table.Records.valueIs(r, type, QStringLiteral("2"))) {
            m_folders.insert(ind, table.Records.value(r, title));
            continue;
        }
        const auto u = urls.constFind(ind);
        if (u == urls.cend() || u->isEmpty())
            continue;
        const QString& text = u->last().Value;
        const auto known = m_parsed.constFind(text);
        const Parsed p = known != m_parsed.cend() ? *known : parse<Parsed>(text, true);
        parsed.insert(text, p);
        if (!p.Ok)
            continue;
        Entry e{ind, r + 1, p.Scheme, p.Port, p.Path, {}};
        for (const RecFlaggedRow& a : allowed.value(ind))
            e.Allowed.append(a.Name);
        m_byHost[p.Host].append(std::move(e));
    }
    m_parsed = std::move(parsed);
}

void clsSiteIndex::Refresh(const clsDatabase& Db) {
    if (m_db != &Db || m_generation != Db.Generation())
        rebuild(Db);
}

void clsSiteIndex::findFor(const QString& Url, QList<QPair<int, const Entry*>>& Out,
                           QSet<const Entry*>& Seen) const {
    const Parsed page = parse<Parsed>(Url, false);
    if (!page.Ok)
        return;
    QString host = page.Host;
    for (int depth = 0;; ++depth) {
        const auto it = m_byHost.constFind(host);
        if (it != m_byHost.cend())
            for (const Entry& e : *it) {
                if (!schemeFits(e.Scheme, page.Scheme) || (e.Port >= 0 && e.Port != page.Port))
                    continue;
                if (Seen.contains(&e))
                    continue;
                Seen.insert(&e);
                const QString path = e.Path.endsWith(u'/') ? e.Path : e.Path + u'/';
                const bool inPath =
                    e.Path.isEmpty() || e.Path == QLatin1String("/") || (page.Path + u'/').startsWith(path);
                // Higher ranks first: a longer matching path, then a nearer host.
                const int rank = (inPath ? static_cast<int>(e.Path.size()) + 1 : 0) * 64 - depth;
                Out.append({rank, &e});
            }
        const qsizetype dot = host.indexOf(u'.');
        if (dot < 0)
            break;
        host = host.mid(dot + 1);
    }
}

QList<BrMatch> clsSiteIndex::Find(const clsDatabase& Db, const QString& Url, const QString& SubmitUrl) {
    Refresh(Db);
    QList<QPair<int, const Entry*>> found;
    QSet<const Entry*> seen;
    findFor(Url, found, seen);
    if (!SubmitUrl.isEmpty() && BrSiteOf(SubmitUrl) != BrSiteOf(Url))
        findFor(SubmitUrl, found, seen);
    std::stable_sort(found.begin(), found.end(),
                     [](const auto& A, const auto& B) { return A.first > B.first; });
    const QString site = BrSiteOf(Url);
    QList<BrMatch> out;
    out.reserve(found.size());
    for (const auto& f : found)
        out.append({f.second->IndNum, f.second->Row, f.second->Allowed.contains(site)});
    return out;
}
