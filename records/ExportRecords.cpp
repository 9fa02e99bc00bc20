// Export of a user, or of one folder with everything below it, to KeePass 2 XML and to
// KeePassXC CSV, with the records' fields beyond the four, and the checked writing of the
// file.

#include "records/CsvReader.h"
#include "records/ImportExport.h"

#include "app/CheckedWrite.h"
#include "app/VbConv.h"
#include "diagnostics/Trace.h"
#include "records/RecordTree.h"
#include "storage/clsDatabase.h"
#include "users/UserAccounts.h"

#include <QHash>
#include <QSet>
#include <QUuid>

namespace {

using namespace Qt::StringLiterals;

// The rows below a folder, walked depth first: a folder's records, then its folders,
// each in table order.
class RowTree {
public:
    explicit RowTree(const clsDatabase& Db) {
        const DatabaseRecord& d = Db.DBView();
        for (const TableEntry& t : d.Tables)
            if (t.Name.compare("DataTable"_L1, Qt::CaseInsensitive) == 0)
                m_t = &t;
        if (!m_t)
            return;
        auto col = [this](const char* Name) {
            return static_cast<int>(m_t->FldNames.indexOf(QLatin1String(Name)));
        };
        Ind = col("IndNum");
        Par = col("Parent");
        Type = col("Type");
        Title = col("Title");
        Login = col("Login");
        Pasw = col("Password");
        Desc = col("Description");
        Image = col("Image");
        Flags = col("Flags");
        m_kids.reserve(m_t->RecNum() / 8 + 16);
        for (int i = 0; i < m_t->RecNum(); ++i) {
            const QString id = v(i, Ind);
            m_kids[v(i, Par)].append(i);
            if (!m_rowOf.contains(id))
                m_rowOf.insert(id, i);
        }
        m_seen.resize(m_t->RecNum());
    }
    bool Ok() const { return m_t && Ind >= 0 && Par >= 0; }
    QString v(int Row, int Col) const { return m_t->Records.value(Row, Col); }
    bool IsRecord(int Row) const { return v(Row, Type).trimmed() == "2"_L1; }
    int RowOf(const QString& Id) const { return m_rowOf.value(Id, -1); }
    // Children of a folder not met before: a damaged file with a loop ends, not repeats.
    QList<int> Kids(const QString& Id) {
        QList<int> out;
        for (int r : m_kids.value(Id))
            if (!m_seen[r]) {
                m_seen[r] = true;
                out.append(r);
            }
        return out;
    }

    int Ind = -1, Par = -1, Type = -1, Title = -1, Login = -1, Pasw = -1, Desc = -1, Image = -1, Flags = -1;

private:
    const TableEntry* m_t = nullptr;
    QHash<QString, QList<int>> m_kids;
    QHash<QString, int> m_rowOf;
    std::vector<bool> m_seen;
};

QString newUuid() {
    return QString::fromLatin1(QUuid::createUuid().toRfc4122().toBase64());
}

// Text for an element of XML 1.0, in UTF-8: markup characters as references, a CR as a
// character reference (a reader would turn CR LF into LF), control characters XML has no
// place for left out. Bytes of multi-byte characters are never below 0x80, so the
// escaping works on the bytes.
void appendXmlText(QByteArray& Out, const QString& S) {
    const QByteArray u = S.toUtf8();
    for (char c : u) {
        switch (c) {
        case '&':
            Out.append("&amp;");
            break;
        case '<':
            Out.append("&lt;");
            break;
        case '>':
            Out.append("&gt;");
            break;
        case '"':
            Out.append("&quot;");
            break;
        case '\r':
            Out.append("&#13;");
            break;
        default:
            if (static_cast<unsigned char>(c) >= 0x20 || c == '\t' || c == '\n')
                Out.append(c);
        }
    }
}

// The XML is written as text: the structure is fixed and every value goes through
// appendXmlText. Tabs indent as KeePassXC's own export does.
class XmlExport {
public:
    XmlExport(RowTree& T, const QHash<QString, RecExtras>& Ex, QByteArray& Out, ExpCounts& C)
        : m_t(T), m_ex(Ex), m_o(Out), m_c(C) {}
    // RootRow: the row of the folder exported, -1 for the whole user.
    void Run(const QString& RootID, const QString& RootName, int RootRow) {
        m_o.append("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<KeePassFile>\n");
        m_depth = 1;
        open("Meta");
        text("Generator", u"ArgentPasswordMngr"_s);
        text("DatabaseName", RootName);
        close("Meta");
        open("Root");
        group(RootID, RootName, RootRow, true);
        close("Root");
        m_o.append("</KeePassFile>\n");
    }

private:
    void indent() {
        for (int i = 0; i < m_depth; ++i)
            m_o.append('\t');
    }
    void open(const char* Element) {
        indent();
        m_o.append('<').append(Element).append(">\n");
        ++m_depth;
    }
    void close(const char* Element) {
        --m_depth;
        indent();
        m_o.append("</").append(Element).append(">\n");
    }
    void text(const char* Element, const QString& Text, const char* Attribute = nullptr) {
        indent();
        m_o.append('<').append(Element);
        if (Attribute)
            m_o.append(' ').append(Attribute);
        m_o.append('>');
        appendXmlText(m_o, Text);
        m_o.append("</").append(Element).append(">\n");
    }
    void string(const QString& Key, const QString& Value, bool Protect = false) {
        open("String");
        text("Key", Key);
        text("Value", Value, Protect ? "ProtectInMemory=\"True\"" : nullptr);
        close("String");
    }
    // The row's look as custom data, when it is not that of a new row.
    void look(int Row, const char* DefaultImage) {
        const QString flags = m_t.v(Row, m_t.Flags), image = m_t.v(Row, m_t.Image);
        const bool ownFlags = !flags.isEmpty() && flags != "0|0"_L1;
        const bool ownImage = !image.isEmpty() && image != QLatin1String(DefaultImage);
        if (!ownFlags && !ownImage)
            return;
        open("CustomData");
        auto item = [this](const char* Key, const QString& Value) {
            open("Item");
            text("Key", QLatin1String(Key));
            text("Value", Value);
            close("Item");
        };
        if (ownFlags)
            item("ArgentPM.Flags", flags);
        if (ownImage)
            item("ArgentPM.Image", image);
        close("CustomData");
    }
    void entry(int Row) {
        ++m_c.Records;
        open("Entry");
        const QString uuid = newUuid();
        text("UUID", uuid);
        text("IconID", u"0"_s);
        int col = 0, bits = 0;
        GetSepatRecOptns(m_t.v(Row, m_t.Flags), col, bits);
        if (col != 0)
            text("ForegroundColor",
                 QStringLiteral("#%1")
                     .arg(((col & 0xFF) << 16) | (col & 0xFF00) | ((col >> 16) & 0xFF), 6, 16, QChar(u'0'))
                     .toUpper());
        const RecExtras ex = m_ex.value(m_t.v(Row, m_t.Ind));
        string(u"Notes"_s, m_t.v(Row, m_t.Desc));
        string(u"Password"_s, m_t.v(Row, m_t.Pasw), true);
        string(u"Title"_s, m_t.v(Row, m_t.Title));
        string(u"URL"_s, ex.Url);
        string(u"UserName"_s, m_t.v(Row, m_t.Login));
        if (!ex.Otp.isEmpty())
            string(u"otp"_s, ex.Otp, true);
        // Hidden values are marked as KeePassXC's own exports mark them; Protected="True"
        // would say the value is enciphered.
        QSet<QString> keys{u"Notes"_s, u"Password"_s, u"Title"_s, u"URL"_s, u"UserName"_s};
        if (!ex.Otp.isEmpty())
            keys.insert(u"otp"_s);
        for (const RecCustomField& f : ex.Custom) {
            const QString base = f.Name.isEmpty() ? u"Field"_s : f.Name;
            QString key = base;
            for (int n = 2; keys.contains(key); ++n)
                key = base + u" (%1)"_s.arg(n);
            keys.insert(key);
            string(key, f.Value, f.Hidden);
        }
        look(Row, "1key");
        history(uuid, Row, ex.History);
        close("Entry");
    }
    // Earlier passwords as earlier versions of the entry, the oldest first, each with the
    // time it was replaced.
    void history(const QString& Uuid, int Row, const QList<RecOldPasw>& History) {
        if (History.isEmpty())
            return;
        open("History");
        for (auto h = History.crbegin(); h != History.crend(); ++h) {
            open("Entry");
            text("UUID", Uuid);
            if (h->When.isValid()) {
                open("Times");
                text("LastModificationTime", h->When.toUTC().toString(Qt::ISODate));
                close("Times");
            }
            string(u"Password"_s, h->Pasw, true);
            string(u"Title"_s, m_t.v(Row, m_t.Title));
            string(u"UserName"_s, m_t.v(Row, m_t.Login));
            close("Entry");
        }
        close("History");
    }
    // The top group stands for the folder exported: its notes go with it, its look not.
    void group(const QString& Id, const QString& Name, int Row, bool Top = false) {
        open("Group");
        text("UUID", newUuid());
        text("Name", Name);
        if (Row >= 0 && !m_t.v(Row, m_t.Desc).isEmpty())
            text("Notes", m_t.v(Row, m_t.Desc));
        text("IconID", u"48"_s);
        if (Row >= 0 && !Top)
            look(Row, "2key");
        const QList<int> kids = m_t.Kids(Id);
        for (int r : kids)
            if (m_t.IsRecord(r))
                entry(r);
        for (int r : kids)
            if (!m_t.IsRecord(r)) {
                ++m_c.Folders;
                group(m_t.v(r, m_t.Ind), m_t.v(r, m_t.Title), r);
            }
        close("Group");
    }

    RowTree& m_t;
    const QHash<QString, RecExtras>& m_ex;
    QByteArray& m_o;
    ExpCounts& m_c;
    int m_depth = 0;
};

void csvGroup(RowTree& T, const QHash<QString, RecExtras>& Ex, const QString& Id, const QString& Path,
              QString& Out, ExpCounts& C) {
    const QList<int> kids = T.Kids(Id);
    for (int r : kids)
        if (T.IsRecord(r)) {
            ++C.Records;
            const RecExtras ex = Ex.value(T.v(r, T.Ind));
            AppendCsvRecord(Out, {Path, T.v(r, T.Title), T.v(r, T.Login), T.v(r, T.Pasw), ex.Url,
                                  T.v(r, T.Desc), ex.Otp, u"0"_s, QString(), QString()});
        }
    for (int r : kids)
        if (!T.IsRecord(r)) {
            ++C.Folders;
            csvGroup(T, Ex, T.v(r, T.Ind), Path + u'/' + T.v(r, T.Title), Out, C);
        }
}

} // namespace

QByteArray ExportRecordTree(const clsDatabase& pDB, const QString& RootID, ExpFormat Format,
                            ExpCounts* Counts) {
    TRACE_PROC("modImport.ExportRecordTree", RootID, static_cast<int>(Format));
    ExpCounts c;
    if (Counts)
        *Counts = c;
    RowTree t(pDB);
    if (!t.Ok())
        return QByteArray();
    QString rootName = pDB.Tag();
    int rootRow = -1;
    if (RootID != "0"_L1) {
        rootRow = t.RowOf(RootID);
        if (rootRow < 0 || t.IsRecord(rootRow))
            return QByteArray();
        rootName = t.v(rootRow, t.Title);
    }
    const QHash<QString, RecExtras> ex = ReadAllRecExtras(pDB.DBView());
    QByteArray out;
    if (Format == ExpFormat::KeePassXml) {
        XmlExport(t, ex, out, c).Run(RootID, rootName, rootRow);
    } else {
        QString text;
        AppendCsvRecord(text, {u"Group"_s, u"Title"_s, u"Username"_s, u"Password"_s, u"URL"_s, u"Notes"_s,
                               u"TOTP"_s, u"Icon"_s, u"Last Modified"_s, u"Created"_s});
        csvGroup(t, ex, RootID, rootName, text, c);
        out = text.toUtf8();
        WipeString(text);
    }
    if (Counts)
        *Counts = c;
    return out;
}

bool WriteExportFile(const QString& Path, const QByteArray& Bytes, QString& Err) {
    TRACE_PROC("modImport.WriteExportFile", Path, static_cast<long long>(Bytes.size()));
    // Written as every other file of the program: checked, synced, renamed over the old file
    // only when whole, and private whatever mode a file it replaces had.
    clsCheckedFile f(Path);
    if (f.Open(kPrivateFilePerms) && f.Write(Bytes) && f.Commit())
        return true;
    Err = f.ErrorText();
    return false;
}
