// Import: the formats, finding out which one a file is, and adding what was read to the
// current user's database. The parsers of the formats are in Import*.cpp, export in
// ExportRecords.cpp.

#include "records/ImportExport.h"

#include "app/VbConv.h"
#include "app/modLang.h"
#include "diagnostics/Trace.h"
#include "records/CsvReader.h"
#include "records/ImportFields.h"
#include "records/RecordExtras.h"
#include "records/RecordTree.h"
#include "storage/clsDatabase.h"
#include "users/UserAccounts.h"

#include <QFile>
#include <QFileInfo>

#include <climits>
#include <iterator>

namespace {

struct FormatName {
    ImpFormat Format;
    const char* Name;
};
const FormatName kFormatNames[] = {
    {ImpFormat::KeePassXml, "keepass-xml"},
    {ImpFormat::KeePassXcCsv, "keepassxc-csv"},
    {ImpFormat::BitwardenJson, "bitwarden-json"},
    {ImpFormat::BrowserCsv, "browser-csv"},
    {ImpFormat::GenericCsv, "csv"},
    {ImpFormat::LastPassCsv, "lastpass-csv"},
    {ImpFormat::KeePass1Csv, "keepass1-csv"},
};

// Header names by which a generic CSV's columns are recognised, lower case.
const char* const kTitleNames[] = {"title", "name", "account", "site", "item", "entry"};
const char* const kLoginNames[] = {"username", "user name", "login_username", "login",
                                   "user",     "email",     "e-mail"};
const char* const kPaswNames[] = {"password", "login_password", "pass", "pwd"};
const char* const kNotesNames[] = {"notes", "note", "comments", "comment", "description", "extra"};
const char* const kGroupNames[] = {"group", "folder", "path", "grouping", "category"};

template <std::size_t N> int findColumn(const QStringList& Lower, const char* const (&Names)[N]) {
    for (const char* name : Names) {
        const qsizetype i = Lower.indexOf(QLatin1String(name));
        if (i >= 0)
            return static_cast<int>(i);
    }
    return -1;
}

QStringList lowerHeader(const QStringList& Header) {
    QStringList out;
    out.reserve(Header.size());
    for (const QString& h : Header)
        out.append(h.trimmed().toLower());
    return out;
}

// The line (from 1) of the first byte that is not UTF-8, 0 when all are.
int firstNonUtf8Line(const QByteArray& Bytes) {
    int line = 1;
    qsizetype from = 0;
    while (from <= Bytes.size()) {
        qsizetype end = Bytes.indexOf('\n', from);
        if (end < 0)
            end = Bytes.size();
        // Checked in place: a decoded copy of a long line would cost twice its bytes.
        if (!QByteArrayView(Bytes).sliced(from, end - from).isValidUtf8())
            return line;
        from = end + 1;
        ++line;
    }
    return 0;
}

// The counts of what was read, or nothing at all when the reading failed.
bool finishImport(bool Ok, ImpFormat Format, ImpData& Out) {
    if (!Ok) {
        Out = ImpData();
        return false;
    }
    Out.Format = Format;
    ImpLimitHistory(Out, PaswHistoryMax());
    Out.Folders = Out.Records = 0;
    for (const ImpRow& r : Out.Rows)
        ++(r.Folder ? Out.Folders : Out.Records);
    return true;
}

} // namespace

QString ImpFormatName(ImpFormat Format) {
    for (const FormatName& f : kFormatNames)
        if (f.Format == Format)
            return QLatin1String(f.Name);
    return QStringLiteral("detect");
}

ImpFormat ImpFormatFromName(const QString& Name, bool* Ok) {
    for (const FormatName& f : kFormatNames)
        if (Name.compare(QLatin1String(f.Name), Qt::CaseInsensitive) == 0) {
            if (Ok)
                *Ok = true;
            return f.Format;
        }
    if (Ok)
        *Ok = Name.compare(QLatin1String("detect"), Qt::CaseInsensitive) == 0;
    return ImpFormat::Detect;
}

QString ImpError::Text() const {
    const QString at = Line > 0 ? QStringLiteral("line %1: ").arg(Line) : QString();
    switch (Code) {
    case impOk:
        return QString();
    case impCantRead:
        return QStringLiteral("the file cannot be read: %1").arg(Detail);
    case impNotUtf8:
        return at + QStringLiteral("the text is not UTF-8");
    case impUnknownFormat:
        return QStringLiteral("the format of the file is not recognised; name it");
    case impCsvQuote:
        return at + QStringLiteral("a quoted field is not closed");
    case impCsvAfterQuote:
        return at + QStringLiteral("a character follows the closing quote of a field");
    case impCsvNoHeader:
        return QStringLiteral("the file has no header row");
    case impCsvNoColumn:
        return QStringLiteral("the header row lacks the column %1").arg(Detail);
    case impXmlBad:
        return at + QStringLiteral("the XML cannot be read: %1").arg(Detail);
    case impXmlNotKeePass:
        return QStringLiteral("the XML is not a KeePass 2 file: its top element is <%1>").arg(Detail);
    case impJsonBad:
        return at + QStringLiteral("the JSON cannot be read: %1").arg(Detail);
    case impJsonEncrypted:
        return QStringLiteral("the Bitwarden export is encrypted; export it again without a password");
    case impJsonNotBitwarden:
        return QStringLiteral("the JSON is not a Bitwarden export: it has no \"items\" list");
    case impTooMany:
        return QStringLiteral("the user's database cannot take that many more folders and records");
    case impCsvNoMapping:
        return QStringLiteral("the columns of the title and the password are not known; map them");
    case impTooLarge:
        return QStringLiteral("the file is larger than an export can be (%1 bytes; at most %2)")
            .arg(Detail)
            .arg(kImpMaxFile);
    case impValueTooLarge:
        return at + QStringLiteral("a value is longer than an export can hold (more than %1 characters)")
                        .arg(kImpMaxValue);
    case impKeePassDb:
        return QStringLiteral(
            "this is an encrypted KeePass database, not an export; in KeePassXC or KeePass, "
            "export it to XML (or CSV) first and import that file");
    case impArchive:
        return QStringLiteral(
                   "this is an archive (%1), not an export this program reads; in the program that "
                   "made it, export to CSV first and import that file")
            .arg(Detail);
    case impTooManyRows:
        return QStringLiteral("the file holds more folders and entries than an export can (more than %1)")
            .arg(kImpMaxRows);
    case impJsonOther:
        return QStringLiteral("the JSON is an export of %1, not of Bitwarden; export to CSV from %1 and "
                              "import that file")
            .arg(Detail);
    }
    return QString();
}

QString ImpError::LangText() const {
    // Texts 340 to 353 follow the codes, then 380 on; %1 is the line, %2 the detail, %3 a limit.
    static const int kTextOf[] = {0,   340, 341, 342, 343, 344, 345, 346, 347, 348, 349,
                                  350, 351, 352, 353, 380, 381, 382, 383, 384, 393};
    if (Code <= impOk || Code >= static_cast<int>(std::size(kTextOf)))
        return QString();
    QString t = Texts(kTextOf[Code]);
    t.replace(QLatin1String("%1"), QString::number(Line));
    t.replace(QLatin1String("%2"), Detail);
    t.replace(QLatin1String("%3"), QString::number(Code == impTooLarge      ? kImpMaxFile >> 20
                                                   : Code == impTooManyRows ? qint64(kImpMaxRows)
                                                                            : qint64(kImpMaxValue) >> 20));
    return t;
}

namespace {
// English names of what was dropped: one and many, and why.
const char* const kDropNames[dropCount][3] = {
    {"passkey", "passkeys", "a passkey works only in the program that made it; add a new one to the site"},
    {"earlier password", "earlier passwords",
     "only as many as the options keep per record (the newest) are taken in"},
    {"attached file", "attached files", "files are not in the export; save them from the source"},
    {"request to ask for the master password again", "requests to ask for the master password again",
     "this program asks for its password when a user is opened"},
    {"item of an unknown kind", "items of an unknown kind", "only their names and notes were taken in"},
};
} // namespace

QStringList ImpDroppedText(const ImpData& Data) {
    QStringList out;
    for (int k = 0; k < dropCount; ++k)
        if (const int n = Data.Dropped[k])
            out.append(QStringLiteral("%1 %2 not taken in: %3")
                           .arg(n)
                           .arg(QLatin1String(kDropNames[k][n == 1 ? 0 : 1]))
                           .arg(QLatin1String(kDropNames[k][2])));
    return out;
}

QStringList ImpDroppedLangText(const ImpData& Data) {
    // Texts 386 on follow the kinds; %1 is the count.
    QStringList out;
    for (int k = 0; k < dropCount; ++k)
        if (const int n = Data.Dropped[k]) {
            QString t = Texts(386 + k);
            t.replace(QLatin1String("%1"), QString::number(n));
            out.append(t);
        }
    return out;
}

ImpErrCode ForeignFileCode(QByteArrayView Head, QString* Detail) {
    // KeePass 2 (.kdbx) and KeePass 1 (.kdb) databases share their first four bytes.
    if (Head.startsWith("\x03\xD9\xA2\x9A"))
        return impKeePassDb;
    if (Head.startsWith("PK\x03\x04") || Head.startsWith("PK\x05\x06")) {
        if (Detail)
            *Detail = QStringLiteral("ZIP");
        return impArchive;
    }
    return impOk;
}

void AppendDescLine(QString& Desc, const QString& Name, const QString& Value) {
    if (Value.isEmpty())
        return;
    if (!Desc.isEmpty() && !Desc.endsWith(u'\n'))
        Desc.append(u'\n');
    Desc.append(Name);
    Desc.append(QLatin1String(": "));
    Desc.append(Value);
}

ImpFormat DetectImportFormat(const QByteArray& Bytes) {
    TRACE_PROC("modImport.DetectImportFormat", static_cast<long long>(Bytes.size()));
    qsizetype i = Bytes.startsWith("\xEF\xBB\xBF") ? 3 : 0;
    while (i < Bytes.size() && (Bytes[i] == ' ' || Bytes[i] == '\t' || Bytes[i] == '\r' || Bytes[i] == '\n'))
        ++i;
    if (i >= Bytes.size())
        return ImpFormat::Detect;
    if (Bytes[i] == '<')
        return ImpFormat::KeePassXml;
    if (Bytes[i] == '{' || Bytes[i] == '[')
        return ImpFormat::BitwardenJson;
    const QStringList h = lowerHeader(ReadCsvHeader(Bytes));
    if (h.size() < 2)
        return ImpFormat::Detect;
    auto has = [&h](std::initializer_list<const char*> Names) {
        for (const char* n : Names)
            if (!h.contains(QLatin1String(n)))
                return false;
        return true;
    };
    // The most particular headers first: LastPass's and KeePass 1's would pass for
    // generic ones, LastPass's even for a browser's.
    if (has({"url", "username", "password", "extra", "name", "grouping"}))
        return ImpFormat::LastPassCsv;
    if (has({"account", "login name", "password", "web site"}))
        return ImpFormat::KeePass1Csv;
    if (has({"group", "title", "username", "password"}))
        return ImpFormat::KeePassXcCsv;
    if ((has({"url", "username", "password"}) || has({"hostname", "username", "password"})) &&
        !h.contains(QLatin1String("group")))
        return ImpFormat::BrowserCsv;
    return ImpFormat::GenericCsv;
}

QStringList ReadCsvHeader(const QByteArray& Bytes) {
    TRACE_PROC("modImport.ReadCsvHeader");
    // The header is on the first lines: decoding them is enough.
    qsizetype end = Bytes.size();
    for (int quotes = 0, i = 0; i < Bytes.size(); ++i) {
        if (Bytes[i] == '"')
            ++quotes;
        else if (Bytes[i] == '\n' && quotes % 2 == 0) {
            end = i;
            break;
        }
    }
    const QString text = QString::fromUtf8(Bytes.left(end));
    CsvReader r(text, CsvGuessSeparator(text));
    CsvRecord rec;
    return r.Next(rec) ? rec.Fields : QStringList();
}

CsvMapping GuessCsvMapping(const QStringList& Header) {
    TRACE_PROC("modImport.GuessCsvMapping", Header);
    const QStringList h = lowerHeader(Header);
    CsvMapping m;
    m.Title = findColumn(h, kTitleNames);
    m.Login = findColumn(h, kLoginNames);
    m.Password = findColumn(h, kPaswNames);
    m.Notes = findColumn(h, kNotesNames);
    m.Group = findColumn(h, kGroupNames);
    return m;
}

bool ParseCsvMapping(const QString& Mapping, const QStringList& Header, CsvMapping& Out, QString& Bad) {
    TRACE_PROC("modImport.ParseCsvMapping", Mapping, Header);
    Out = CsvMapping();
    const QStringList h = lowerHeader(Header);
    for (const QString& part : Mapping.split(u',', Qt::SkipEmptyParts)) {
        const qsizetype eq = part.indexOf(u'=');
        const QString field = part.left(eq).trimmed().toLower();
        const QString col = eq < 0 ? QString() : part.mid(eq + 1).trimmed();
        int* target = field == QLatin1String("title")      ? &Out.Title
                      : field == QLatin1String("login")    ? &Out.Login
                      : field == QLatin1String("password") ? &Out.Password
                      : field == QLatin1String("notes")    ? &Out.Notes
                      : field == QLatin1String("group")    ? &Out.Group
                                                           : nullptr;
        if (!target || col.isEmpty()) {
            Bad = part;
            return false;
        }
        bool num = false;
        const int n = col.toInt(&num);
        const int index = num ? n - 1 : static_cast<int>(h.indexOf(col.toLower()));
        if (index < 0 || index >= Header.size()) {
            Bad = part;
            return false;
        }
        *target = index;
    }
    return true;
}

bool ParseImport(const QByteArray& Bytes, ImpFormat Format, const CsvMapping& Map, ImpData& Out,
                 ImpError& Err, const ImpProgress& Progress) {
    TRACE_PROC("modImport.ParseImport", static_cast<long long>(Bytes.size()), ImpFormatName(Format));
    Out = ImpData();
    Err = ImpError();
    if (Bytes.size() > kImpMaxFile) {
        Err = ImpError{impTooLarge, 0, QString::number(Bytes.size())};
        return false;
    }
    // A database or an archive is refused whatever format was named: read as text it
    // would only give nonsense.
    if (const ImpErrCode foreign = ForeignFileCode(Bytes, &Err.Detail)) {
        Err.Code = foreign;
        return false;
    }
    if (Format == ImpFormat::Detect)
        Format = DetectImportFormat(Bytes);
    bool ok = false;
    switch (Format) {
    case ImpFormat::Detect:
        Err.Code = impUnknownFormat;
        break;
    case ImpFormat::KeePassXml:
        ok = ParseKeePassXml(Bytes, Out, Err, Progress);
        break;
    case ImpFormat::BitwardenJson:
        ok = ParseBitwardenJson(Bytes, Out, Err);
        break;
    case ImpFormat::KeePassXcCsv:
    case ImpFormat::BrowserCsv:
    case ImpFormat::GenericCsv:
    case ImpFormat::LastPassCsv:
    case ImpFormat::KeePass1Csv:
        if (const int line = firstNonUtf8Line(Bytes)) {
            Err.Code = impNotUtf8;
            Err.Line = line;
            break;
        }
        ok = ParseCsvImport(Bytes, Format, Map, Out, Err, Progress);
        break;
    }
    return finishImport(ok, Format, Out);
}

bool ReadImportFile(const QString& Path, ImpFormat Format, const CsvMapping& Map, ImpData& Out, ImpError& Err,
                    const ImpProgress& Progress) {
    TRACE_PROC("modImport.ReadImportFile", Path, ImpFormatName(Format));
    Out = ImpData();
    QFile f(Path);
    if (!QFileInfo(Path).isFile() || !f.open(QIODevice::ReadOnly)) {
        Err = ImpError{impCantRead, 0,
                       QFileInfo(Path).isDir() ? QStringLiteral("it is a folder") : f.errorString()};
        return false;
    }
    // The size is checked before anything is read; the reading stops at the limit too,
    // in case the file grows meanwhile.
    if (f.size() > kImpMaxFile) {
        Err = ImpError{impTooLarge, 0, QString::number(f.size())};
        return false;
    }
    const QByteArray head = f.peek(4096);
    if (const ImpErrCode foreign = ForeignFileCode(head, &Err.Detail)) {
        Err.Code = foreign;
        Err.Line = 0;
        return false;
    }
    if (Format == ImpFormat::KeePassXml ||
        (Format == ImpFormat::Detect && DetectImportFormat(head) == ImpFormat::KeePassXml)) {
        Err = ImpError();
        return finishImport(ParseKeePassXmlFile(f, Out, Err, Progress), ImpFormat::KeePassXml, Out);
    }
    // As many bytes as the file has: a buffer of the limit is not taken for a small file.
    QByteArray bytes = f.read(f.size() + 1);
    if (bytes.size() > f.size() && f.error() == QFileDevice::NoError)
        bytes += f.read(kImpMaxFile + 1 - bytes.size()); // it grew while it was read
    if (bytes.size() > kImpMaxFile) {
        Err = ImpError{impTooLarge, 0, QString::number(bytes.size())};
        return false;
    }
    if (f.error() != QFileDevice::NoError) {
        Err = ImpError{impCantRead, 0, f.errorString()};
        return false;
    }
    return ParseImport(bytes, Format, Map, Out, Err, Progress);
}

QString ImportFolderName(const QString& Path) {
    const QFileInfo fi(Path);
    const QString name = fi.completeBaseName();
    return name.isEmpty() ? fi.fileName() : name;
}

QString ImportIntoDB(const ImpData& Data, const QString& ParentID, const QString& FolderName, int* FirstRec,
                     ImpError& Err, const ImpProgress& Progress) {
    TRACE_PROC("modImport.ImportIntoDB", ParentID, FolderName, static_cast<long long>(Data.Rows.size()));
    Err = ImpError();
    clsDatabase& db = *CurUsDB;
    const int tbl = db.FindTable(QStringLiteral("DataTable"));
    // Every identifier is taken before the first row goes in: a user whose identifiers
    // would run out gets nothing rather than half.
    const int last = CLng(db.GetTblTag(tbl));
    if (static_cast<long long>(last) + Data.Rows.size() + 1 > INT_MAX) {
        Err.Code = impTooMany;
        return QString();
    }
    const QString top = GetNewIndNum(db);
    AddFolderToDB(FolderName, CLng(ParentID), top);
    const int first = db.GetTblRecNum(tbl);
    if (!Data.Notes.isEmpty())
        db.SetTblFldValNm(tbl, first, QStringLiteral("Description"), Data.Notes);
    if (FirstRec)
        *FirstRec = first;

    // The look of a row, when the file carried one, goes on the row just added.
    auto setLook = [&](const ImpRow& r) {
        if (r.Flags.isEmpty() && r.Image.isEmpty())
            return;
        const int rec = db.GetTblRecNum(tbl);
        if (!r.Flags.isEmpty())
            db.SetTblFldValNm(tbl, rec, QStringLiteral("Flags"), r.Flags);
        if (!r.Image.isEmpty())
            db.SetTblFldValNm(tbl, rec, QStringLiteral("Image"), r.Image);
    };
    QStringList ids;
    ids.reserve(Data.Rows.size());
    const qsizetype n = Data.Rows.size();
    for (qsizetype i = 0; i < n; ++i) {
        const ImpRow& r = Data.Rows[i];
        const QString& parent = r.Parent < 0 ? top : ids[r.Parent];
        if (r.Folder) {
            const QString id = GetNewIndNum(db);
            AddFolderToDB(r.Title, parent.toInt(), id);
            // The notes of a source's group.
            if (!r.Desc.isEmpty())
                db.SetTblFldValNm(tbl, db.GetTblRecNum(tbl), QStringLiteral("Description"), r.Desc);
            ids.append(id);
        } else {
            ids.append(AddRecordToDB(db, parent, r.Title, r.Login, r.Password, r.Desc));
            AppendNewRecExtras(db, ids.last(), r.Extras);
        }
        setLook(r);
        if (Progress && (i & 4095) == 4095)
            Progress(i + 1, n);
    }
    if (Progress)
        Progress(n, n);
    return top;
}
