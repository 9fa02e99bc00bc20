// Import of the CSV formats: KeePassXC's, the browsers', and any CSV with a header row.

#include "records/CsvReader.h"
#include "records/ImportExport.h"

#include "diagnostics/Trace.h"

#include <QHash>
#include <QSet>
#include <QUrl>

namespace {

// Columns that say when or how an entry was stored, not what it holds.
const char* const kMetaColumns[] = {"icon",         "last modified",      "created", "guid", "timecreated",
                                    "timelastused", "timepasswordchanged"};

struct ColumnPlan {
    int Title = -1, Login = -1, Pasw = -1, Notes = -1, Group = -1, Url = -1;
    bool StripRoot = false; // the first part of the group path is the source's root
    QList<int> Extras;      // columns that go into the description
    QStringList ExtraNames;
};

QString displayName(const QString& Header) {
    const QString l = Header.trimmed().toLower();
    if (l == QLatin1String("url"))
        return QStringLiteral("URL");
    if (l == QLatin1String("totp") || l == QLatin1String("otpauth"))
        return QStringLiteral("TOTP");
    return Header.trimmed();
}

bool planColumns(const QStringList& Header, ImpFormat Format, const CsvMapping& Map, ColumnPlan& P,
                 ImpError& Err) {
    QStringList h;
    for (const QString& c : Header)
        h.append(c.trimmed().toLower());
    auto col = [&h](std::initializer_list<const char*> names) {
        for (const char* n : names)
            if (const qsizetype i = h.indexOf(QLatin1String(n)); i >= 0)
                return static_cast<int>(i);
        return -1;
    };
    auto need = [&Err](int Col, const char* Name) {
        if (Col >= 0)
            return true;
        Err.Code = impCsvNoColumn;
        Err.Detail = QLatin1String(Name);
        return false;
    };
    switch (Format) {
    case ImpFormat::KeePassXcCsv:
        P.Group = col({"group"});
        P.Title = col({"title"});
        P.Login = col({"username"});
        P.Pasw = col({"password"});
        P.Notes = col({"notes"});
        P.StripRoot = true;
        if (!need(P.Group, "Group") || !need(P.Title, "Title") || !need(P.Pasw, "Password"))
            return false;
        break;
    case ImpFormat::BrowserCsv:
        P.Title = col({"name", "title"});
        P.Url = col({"url"});
        P.Login = col({"username"});
        P.Pasw = col({"password"});
        P.Notes = col({"note", "notes"});
        if (!need(P.Url, "url") || !need(P.Pasw, "password"))
            return false;
        break;
    default: {
        const CsvMapping m = Map.IsEmpty() ? GuessCsvMapping(Header) : Map;
        P.Title = m.Title;
        P.Login = m.Login;
        P.Pasw = m.Password;
        P.Notes = m.Notes;
        P.Group = m.Group;
        if (P.Title < 0 && P.Pasw < 0) {
            Err.Code = impCsvNoMapping;
            return false;
        }
        break;
    }
    }
    const QSet<int> used{P.Title, P.Login, P.Pasw, P.Notes, P.Group};
    for (int i = 0; i < h.size(); ++i) {
        bool meta = false;
        for (const char* m : kMetaColumns)
            meta = meta || (Format != ImpFormat::GenericCsv && h[i] == QLatin1String(m));
        if (!used.contains(i) && !meta) {
            P.Extras.append(i);
            P.ExtraNames.append(displayName(Header[i]));
        }
    }
    // The URL stands first among the extra lines.
    if (const qsizetype u = P.Extras.indexOf(P.Url); u > 0) {
        P.Extras.move(u, 0);
        P.ExtraNames.move(u, 0);
    }
    return true;
}

} // namespace

bool ParseCsvImport(const QByteArray& Bytes, ImpFormat Format, const CsvMapping& Map, ImpData& Out,
                    ImpError& Err, const ImpProgress& Progress) {
    TRACE_PROC("modImport.ParseCsvImport", ImpFormatName(Format), static_cast<long long>(Bytes.size()));
    const QString text = QString::fromUtf8(Bytes);
    CsvReader reader(text, CsvGuessSeparator(text));
    CsvRecord rec;
    auto fault = [&]() {
        Err.Code = reader.LastFault() == CsvReader::Unclosed ? impCsvQuote : impCsvAfterQuote;
        Err.Line = reader.ErrorLine();
        return false;
    };
    if (!reader.Next(rec)) {
        if (reader.Failed())
            return fault();
        Err.Code = impCsvNoHeader;
        return false;
    }
    Out.Header = rec.Fields;
    ColumnPlan plan;
    if (!planColumns(Out.Header, Format, Map, plan, Err))
        return false;

    QHash<QString, int> folderOf; // folder path -> its row
    auto folderFor = [&](const QString& Path) {
        QStringList parts = Path.split(u'/', Qt::SkipEmptyParts);
        if (plan.StripRoot && !parts.isEmpty())
            parts.removeFirst();
        int parent = -1;
        QString key;
        for (const QString& part : parts) {
            key += u'/' + part;
            auto it = folderOf.constFind(key);
            if (it != folderOf.constEnd()) {
                parent = *it;
                continue;
            }
            ImpRow f;
            f.Folder = true;
            f.Parent = parent;
            f.Title = part;
            Out.Rows.append(f);
            parent = static_cast<int>(Out.Rows.size() - 1);
            folderOf.insert(key, parent);
        }
        return parent;
    };
    auto field = [&rec](int Col) {
        return Col >= 0 && Col < rec.Fields.size() ? rec.Fields[Col] : QString();
    };

    const qsizetype total = text.size();
    int count = 0;
    while (reader.Next(rec)) {
        if (plan.StripRoot) {
            // KeePassXC lists its recycle bin as a group right under the root.
            const QStringList parts = field(plan.Group).split(u'/', Qt::SkipEmptyParts);
            if (parts.size() > 1 && parts[1] == QLatin1String("Recycle Bin"))
                continue;
        }
        ImpRow r;
        r.Parent = plan.Group >= 0 ? folderFor(field(plan.Group)) : -1;
        r.Title = field(plan.Title);
        r.Login = field(plan.Login);
        r.Password = field(plan.Pasw);
        r.Desc = field(plan.Notes);
        if (r.Title.isEmpty() && plan.Url >= 0) {
            const QString url = field(plan.Url);
            const QString host = QUrl(url).host();
            r.Title = host.isEmpty() ? url : host;
        }
        for (qsizetype k = 0; k < plan.Extras.size(); ++k)
            AppendDescLine(r.Desc, plan.ExtraNames[k], field(plan.Extras[k]));
        // Values beyond the header have no name but their place.
        for (qsizetype c = Out.Header.size(); c < rec.Fields.size(); ++c)
            AppendDescLine(r.Desc, QStringLiteral("Column %1").arg(c + 1), rec.Fields[c]);
        Out.Rows.append(r);
        if (Progress && (++count & 1023) == 0)
            Progress(reader.Position(), total);
    }
    if (reader.Failed())
        return fault();
    return true;
}
