// Import of the CSV formats: KeePassXC's, KeePass 1's, LastPass's, the browsers', and any
// CSV with a header row. Which column goes where is decided once per format, in
// planColumns; the web address and the TOTP seed go into the record's fields, what has no
// place of its own follows the notes as "Name: value" lines.

#include "records/CsvReader.h"
#include "records/ImportExport.h"

#include "diagnostics/Trace.h"
#include "records/ImportFields.h"

#include <QHash>
#include <QSet>
#include <QUrl>

namespace {

// Columns that say when or how an entry was stored, not what it holds.
const char* const kMetaColumns[] = {
    "icon",         "last modified",       "created",       "guid",        "timecreated",
    "timelastused", "timepasswordchanged", "creation time", "last access", "last modification",
    "uuid",         "group tree"};

struct ColumnPlan {
    int Title = -1, Login = -1, Pasw = -1, Notes = -1, Group = -1, Url = -1, Totp = -1;
    int GroupTree = -1;     // KeePass 1: the path of the group's parents
    int Fav = -1;           // LastPass: 1 for a favourite
    int Attachment = -1;    // KeePass 1: the name of an attached file
    QChar GroupSep = u'/';  // between the parts of a group path
    bool StripRoot = false; // the first part of the group path is the source's root
    QList<int> Extras;      // columns that go into the description
    QStringList ExtraNames;
    mutable QHash<QString, int> FolderOf; // the folder rows made so far, by path
};

QString displayName(const QString& Header) {
    const QString l = Header.trimmed().toLower();
    if (l == QLatin1String("url"))
        return QStringLiteral("URL");
    if (l == QLatin1String("totp") || l == QLatin1String("otpauth"))
        return QStringLiteral("TOTP");
    return Header.trimmed();
}

// The columns a format's own header names, those it cannot do without checked.
bool planFormat(const QStringList& h, const QStringList& Header, ImpFormat Format, const CsvMapping& Map,
                ColumnPlan& P, ImpError& Err) {
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
        P.Url = col({"url"});
        P.Totp = col({"totp"});
        P.StripRoot = true;
        if (!need(P.Group, "Group") || !need(P.Title, "Title") || !need(P.Pasw, "Password"))
            return false;
        break;
    case ImpFormat::BrowserCsv:
        P.Title = col({"name", "title"});
        P.Url = col({"url", "hostname"});
        P.Login = col({"username"});
        P.Pasw = col({"password"});
        P.Notes = col({"note", "notes"});
        if (!need(P.Url, "url") || !need(P.Pasw, "password"))
            return false;
        break;
    case ImpFormat::LastPassCsv:
        P.Title = col({"name"});
        P.Url = col({"url"});
        P.Login = col({"username"});
        P.Pasw = col({"password"});
        P.Notes = col({"extra"});
        P.Group = col({"grouping"});
        P.Totp = col({"totp"});
        P.Fav = col({"fav"});
        P.GroupSep = u'\\';
        if (!need(P.Title, "name") || !need(P.Pasw, "password"))
            return false;
        break;
    case ImpFormat::KeePass1Csv:
        P.Title = col({"account"});
        P.Url = col({"web site"});
        P.Login = col({"login name"});
        P.Pasw = col({"password"});
        P.Notes = col({"comments"});
        P.Group = col({"group"});
        P.GroupTree = col({"group tree"});
        P.Attachment = col({"attachment"});
        P.GroupSep = u'\\';
        if (!need(P.Title, "Account") || !need(P.Pasw, "Password"))
            return false;
        break;
    default: {
        const CsvMapping m = Map.IsEmpty() ? GuessCsvMapping(Header) : Map;
        P.Title = m.Title;
        P.Login = m.Login;
        P.Pasw = m.Password;
        P.Notes = m.Notes;
        P.Group = m.Group;
        // A column of addresses or seeds by its name, unless it was chosen for another field.
        auto free = [&P](int C) {
            return C != P.Title && C != P.Login && C != P.Pasw && C != P.Notes && C != P.Group;
        };
        if (const int c = col({"url", "website", "web site", "uri"}); free(c))
            P.Url = c;
        if (const int c = col({"totp", "otpauth", "otp"}); free(c))
            P.Totp = c;
        if (P.Title < 0 && P.Pasw < 0) {
            Err.Code = impCsvNoMapping;
            return false;
        }
        break;
    }
    }
    return true;
}

bool planColumns(const QStringList& Header, ImpFormat Format, const CsvMapping& Map, ColumnPlan& P,
                 ImpError& Err) {
    QStringList h;
    for (const QString& c : Header)
        h.append(c.trimmed().toLower());
    if (!planFormat(h, Header, Format, Map, P, Err))
        return false;
    const QSet<int> used{P.Title, P.Login, P.Pasw, P.Notes, P.Group, P.Fav, P.Attachment, P.Url, P.Totp};
    for (int i = 0; i < h.size(); ++i) {
        bool meta = false;
        for (const char* m : kMetaColumns)
            meta = meta || (Format != ImpFormat::GenericCsv && h[i] == QLatin1String(m));
        if (!used.contains(i) && !meta) {
            P.Extras.append(i);
            P.ExtraNames.append(displayName(Header[i]));
        }
    }
    return true;
}

// The folder path of a row: KeePass 1 may give the parents' path apart from the group.
QString groupPath(const ColumnPlan& P, const QString& Tree, const QString& Group) {
    if (Tree.isEmpty() || Tree == Group || Tree.endsWith(P.GroupSep + Group))
        return Tree.isEmpty() ? Group : Tree;
    return Tree + P.GroupSep + Group;
}

// The folder row of a group path, made with the folders above it when new.
int folderFor(const ColumnPlan& P, const QString& Path, ImpData& Out) {
    QStringList parts = Path.split(P.GroupSep, Qt::SkipEmptyParts);
    if (P.StripRoot && !parts.isEmpty())
        parts.removeFirst();
    int parent = -1;
    QString key;
    for (const QString& part : parts) {
        key += u'/' + part;
        auto it = P.FolderOf.constFind(key);
        if (it != P.FolderOf.constEnd()) {
            parent = *it;
            continue;
        }
        ImpRow f;
        f.Folder = true;
        f.Parent = parent;
        f.Title = part;
        Out.Rows.append(f);
        parent = static_cast<int>(Out.Rows.size() - 1);
        P.FolderOf.insert(key, parent);
    }
    return parent;
}

// One record of the file as a row, by the plan of its format.
ImpRow rowOf(const ColumnPlan& P, ImpFormat Format, const QStringList& Fields, qsizetype HeaderSize,
             ImpData& Out) {
    auto field = [&Fields](int Col) { return Col >= 0 && Col < Fields.size() ? Fields[Col] : QString(); };
    ImpRow r;
    r.Parent = P.Group >= 0 ? folderFor(P, groupPath(P, field(P.GroupTree), field(P.Group)), Out) : -1;
    r.Title = field(P.Title);
    r.Login = field(P.Login);
    r.Password = field(P.Pasw);
    r.Desc = field(P.Notes);
    if (r.Title.isEmpty() && P.Url >= 0) {
        const QString url = field(P.Url);
        const QString host = QUrl(url).host();
        r.Title = host.isEmpty() ? url : host;
    }
    // LastPass marks its secure notes with a URL that is no address.
    if (const QString url = field(P.Url);
        !(Format == ImpFormat::LastPassCsv && url == QLatin1String("http://sn")))
        ImpAddUrl(r, url);
    ImpSetOtp(r, field(P.Totp));
    for (qsizetype k = 0; k < P.Extras.size(); ++k)
        AppendDescLine(r.Desc, P.ExtraNames[k], field(P.Extras[k]));
    if (P.Fav >= 0 && field(P.Fav).trimmed() == QLatin1String("1"))
        AppendDescLine(r.Desc, QStringLiteral("Favourite"), QStringLiteral("yes"));
    if (const QString a = field(P.Attachment).trimmed(); !a.isEmpty()) {
        AppendDescLine(r.Desc, QStringLiteral("Attachment (not imported)"), a);
        ++Out.Dropped[dropAttachment];
    }
    // Values beyond the header have no name but their place.
    for (qsizetype c = HeaderSize; c < Fields.size(); ++c)
        AppendDescLine(r.Desc, QStringLiteral("Column %1").arg(c + 1), Fields[c]);
    return r;
}

// The line of the first field longer than kImpMaxValue UTF-16 units, or 0. Run over the
// bytes before they are decoded, so that a file with such a value is refused at the cost
// of its bytes alone; the reader checks again as it goes.
int longFieldLine(const QByteArray& Bytes, char Sep) {
    const char* p = Bytes.constData();
    const qsizetype n = Bytes.size();
    qsizetype units = 0;
    int line = 1, fieldLine = 1;
    bool quoted = false, atStart = true;
    for (qsizetype i = Bytes.startsWith("\xEF\xBB\xBF") ? 3 : 0; i < n; ++i) {
        const auto b = static_cast<unsigned char>(p[i]);
        if (b == '\n')
            ++line;
        if (b == '"' && (quoted || atStart)) {
            atStart = false;
            if (quoted && i + 1 < n && p[i + 1] == '"') {
                ++i; // a doubled quote is one character
            } else {
                quoted = !quoted;
                continue;
            }
        } else if (!quoted && (b == static_cast<unsigned char>(Sep) || b == '\n' || b == '\r')) {
            units = 0;
            fieldLine = line;
            atStart = true;
            continue;
        }
        atStart = false;
        if ((b & 0xC0) != 0x80)
            units += b >= 0xF0 ? 2 : 1;
        if (units > kImpMaxValue)
            return fieldLine;
    }
    return 0;
}

} // namespace

bool ParseCsvImport(const QByteArray& Bytes, ImpFormat Format, const CsvMapping& Map, ImpData& Out,
                    ImpError& Err, const ImpProgress& Progress) {
    TRACE_PROC("modImport.ParseCsvImport", ImpFormatName(Format), static_cast<long long>(Bytes.size()));
    const qsizetype firstLine = Bytes.indexOf('\n');
    const QChar sep =
        CsvGuessSeparator(QString::fromUtf8(Bytes.left(firstLine < 0 ? Bytes.size() : firstLine)));
    if (const int line = longFieldLine(Bytes, static_cast<char>(sep.unicode()))) {
        Err = ImpError{impValueTooLarge, line, QString()};
        return false;
    }
    const QString text = QString::fromUtf8(Bytes);
    CsvReader reader(text, sep, kImpMaxValue);
    CsvRecord rec;
    auto fault = [&]() {
        Err.Code = reader.LastFault() == CsvReader::Unclosed     ? impCsvQuote
                   : reader.LastFault() == CsvReader::AfterQuote ? impCsvAfterQuote
                                                                 : impValueTooLarge;
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

    const qsizetype total = text.size();
    int count = 0;
    while (reader.Next(rec)) {
        if (plan.StripRoot && plan.Group < rec.Fields.size()) {
            // KeePassXC lists its recycle bin as a group right under the root.
            const QStringList parts = rec.Fields[plan.Group].split(u'/', Qt::SkipEmptyParts);
            if (parts.size() > 1 && parts[1] == QLatin1String("Recycle Bin"))
                continue;
        }
        ImpRow r = rowOf(plan, Format, rec.Fields, Out.Header.size(), Out);
        Out.Rows.append(r);
        if (Out.Rows.size() > kImpMaxRows) {
            Err = ImpError{impTooManyRows, rec.Line, QString()};
            return false;
        }
        if (Progress && (++count & 1023) == 0)
            Progress(reader.Position(), total);
    }
    if (reader.Failed())
        return fault();
    return true;
}
