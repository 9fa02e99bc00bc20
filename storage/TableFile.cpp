#include "storage/TableFile.h"

#include "storage/FileSeal.h"

#include "diagnostics/Trace.h"

#include <QHash>

#include <climits>
#include <cstring>
#include <vector>

namespace {

constexpr char kSepByte = static_cast<char>(0x87);

// ---- writing ------------------------------------------------------------------------------

// Escaped UTF-8 straight from UTF-16, without a temporary array per value.
void appendEscapedUtf8(QByteArray& Out, const QChar* s, qsizetype n) {
    TRACE_PROC("TableEngine.AppendEscapedUtf8", static_cast<long long>(n));
    const qsizetype at = Out.size();
    TRACE_LOCAL(at);
    // At most 6 bytes per UTF-16 unit: 3 bytes of which 2 continuation bytes may be 0x87.
    Out.resize(at + n * 6);
    char* w = Out.data() + at;
    auto cont = [&w](unsigned b) {
        if (b == 0x87) {
            *w++ = '\\';
            *w++ = 's';
        } else {
            *w++ = static_cast<char>(b);
        }
    };
    for (qsizetype i = 0; i < n; ++i) {
        char32_t c = s[i].unicode();
        if (c < 0x80) {
            switch (c) {
            case '\\':
                *w++ = '\\';
                *w++ = '\\';
                break;
            case '\r':
                *w++ = '\\';
                *w++ = 'r';
                break;
            case '\n':
                *w++ = '\\';
                *w++ = 'n';
                break;
            default:
                *w++ = static_cast<char>(c);
            }
            continue;
        }
        if (c >= 0xD800 && c < 0xDC00 && i + 1 < n && s[i + 1].unicode() >= 0xDC00 &&
            s[i + 1].unicode() < 0xE000) {
            c = 0x10000 + ((c - 0xD800) << 10) + (s[i + 1].unicode() - 0xDC00);
            ++i;
        } else if (c >= 0xD800 && c < 0xE000) {
            c = 0xFFFD; // a lone surrogate has no UTF-8 form
        }
        if (c < 0x800) {
            *w++ = static_cast<char>(0xC0 | (c >> 6));
            cont(0x80 | (c & 0x3F));
        } else if (c < 0x10000) {
            *w++ = static_cast<char>(0xE0 | (c >> 12));
            cont(0x80 | ((c >> 6) & 0x3F));
            cont(0x80 | (c & 0x3F));
        } else {
            *w++ = static_cast<char>(0xF0 | (c >> 18));
            cont(0x80 | ((c >> 12) & 0x3F));
            cont(0x80 | ((c >> 6) & 0x3F));
            cont(0x80 | (c & 0x3F));
        }
    }
    Out.resize(w - Out.constData());
}

// The sinks, the line cursor and the block tests below are one-line helpers of the
// per-value loops; they are not traced (the procedures around them are).
struct ByteSink {
    QByteArray& out;
    void raw(const char* s) { out.append(s); }
    void sep() { out.append(kSepByte); }
    void eol() { out.append("\r\n", 2); }
    void value(const QString& v) { appendEscapedUtf8(out, v.constData(), v.size()); }
    void num(long long v) { out.append(QByteArray::number(v)); }
    // A record with one value per field, whole, in its file form.
    // Rows never split since they were read: their lines, as they are.
    bool lines(const RecordStore& r, qsizetype Fields) {
        const QByteArrayView v = r.unreadLines(static_cast<int>(Fields));
        out.append(v.data(), v.size());
        return !v.isEmpty();
    }
    bool record(const RecordStore& r, int Row, qsizetype Fields) {
        if (r.fieldCount(Row) != Fields)
            return false;
        r.writeRow(out, Row);
        return true;
    }
    // A stored value is kept in its file form already: copied as it is.
    void cell(const RecordStore& r, int Row, int Fld) {
        const QByteArrayView v = r.escaped(Row, Fld);
        out.append(v.data(), v.size());
    }
};

struct TextSink {
    QString& out;
    void raw(const char* s) { out.append(QLatin1String(s)); }
    void sep() { out.append(QChar(kFldSep)); }
    void eol() { out.append(QLatin1String("\r\n")); }
    void value(const QString& v) { AppendEscapedText(out, v); }
    void num(long long v) { out.append(QString::number(v)); }
    bool lines(const RecordStore&, qsizetype) { return false; }
    bool record(const RecordStore&, int, qsizetype) { return false; }
    void cell(const RecordStore& r, int Row, int Fld) { AppendEscapedText(out, r.value(Row, Fld)); }
};

bool recordPasses(const RecordStore& recs, int Row, const TblsFilter* f) {
    TRACE_PROC("TableEngine.RecordPasses", Row);
    if (!f || f->FldNum < 1 || f->FldNum > recs.fieldCount(Row))
        return true;
    return QString::compare(recs.value(Row, f->FldNum - 1), f->FldVal,
                            f->CaseSens ? Qt::CaseSensitive : Qt::CaseInsensitive) == 0;
}

template <class Sink> void writeTable(Sink& s, const TableEntry& t, const TblsFilter* Filter) {
    TRACE_PROC("TableEngine.WriteTable", t.Name);
    const bool filtered = Filter && Filter->FldNum > 0;
    TRACE_LOCAL(filtered);
    long long count = t.Records.size();
    TRACE_LOCAL(count);
    if (filtered) {
        count = 0;
        for (int r = 0; r < t.RecNum(); ++r)
            count += recordPasses(t.Records, r, Filter) ? 1 : 0;
    }
    s.raw("[");
    s.value(t.Name);
    s.raw("]");
    s.eol();
    s.num(t.Flags);
    s.sep();
    s.num(count);
    s.eol();
    s.value(t.Tag);
    s.eol();
    for (qsizetype f = 0; f < t.FldNames.size(); ++f) {
        if (f)
            s.sep();
        s.value(t.FldNames[f]);
        s.raw(" ");
        s.num(f < t.FldTypes.size() ? t.FldTypes[f] : 0);
    }
    s.eol();
    const qsizetype nf = t.FldNames.size();
    TRACE_LOCAL(nf);
    const bool asRead = !filtered && s.lines(t.Records, nf);
    for (int r = 0; !asRead && r < t.RecNum(); ++r) {
        if (filtered && !recordPasses(t.Records, r, Filter))
            continue;
        if (s.record(t.Records, r, nf)) {
            s.eol();
            continue;
        }
        // A record always has one value per field, whatever was stored into it.
        const qsizetype have = t.Records.fieldCount(r);
        for (qsizetype f = 0; f < nf; ++f) {
            if (f)
                s.sep();
            if (f < have)
                s.cell(t.Records, r, static_cast<int>(f));
        }
        s.eol();
    }
    s.raw("[End ");
    s.value(t.Name);
    s.raw("]");
    s.eol();
}

template <class Sink> void writeHelpTable(Sink& s, const HelpTable& h) {
    TRACE_PROC("TableEngine.WriteHelpTable", h.Name);
    s.raw("{");
    s.value(h.Name);
    s.raw("}");
    s.eol();
    const qsizetype n = std::min(h.Codes.size(), h.Texts.size());
    TRACE_LOCAL(n);
    s.num(n);
    s.eol();
    for (qsizetype i = 0; i < n; ++i) {
        s.num(h.Codes[i]);
        s.sep();
        s.value(h.Texts[i]);
        s.eol();
    }
    s.raw("{End ");
    s.value(h.Name);
    s.raw("}");
    s.eol();
}

} // namespace

// A generous guess of the body size, so that the buffer grows once.
qsizetype EstimateBodySize(const DatabaseRecord& db) {
    TRACE_PROC("TableEngine.EstimateBody");
    qsizetype n = 256 + db.Name.size() + db.Tag.size() + db.Version.size() + db.Lineage.size();
    TRACE_LOCAL(n);
    for (const TableEntry& t : db.Tables) {
        n += 128 + t.Name.size() * 2 + t.Tag.size();
        for (const QString& f : t.FldNames)
            n += f.size() + 8;
        n += t.Records.byteSize() + 2 * static_cast<qsizetype>(t.RecNum());
    }
    for (const HelpTable& h : db.HTables) {
        n += 64 + h.Name.size() * 2;
        for (const QString& t : h.Texts)
            n += t.size() + 14;
    }
    return n + n / 8;
}

void AppendEscaped(QByteArray& Out, const QString& Text) {
    TRACE_PROC("TableEngine.AppendEscaped", HIDDEN(Text));
    appendEscapedUtf8(Out, Text.constData(), Text.size());
}

QByteArray StoredForm(const QString& Text) {
    QByteArray b;
    appendEscapedUtf8(b, Text.constData(), Text.size());
    return b;
}

QString UnescapeValue(const char* Data, qsizetype Len) {
    TRACE_PROC("TableEngine.UnescapeValue", static_cast<long long>(Len));
    if (Len <= 0)
        return QString();
    if (!std::memchr(Data, '\\', static_cast<std::size_t>(Len)))
        return QString::fromUtf8(Data, Len);
    QByteArray b;
    b.reserve(Len);
    for (qsizetype i = 0; i < Len; ++i) {
        const char ch = Data[i];
        if (ch != '\\' || i + 1 == Len) {
            b.append(ch);
            continue;
        }
        switch (Data[i + 1]) {
        case '\\':
            b.append('\\');
            ++i;
            break;
        case 's':
            b.append(kSepByte);
            ++i;
            break;
        case 'r':
            b.append('\r');
            ++i;
            break;
        case 'n':
            b.append('\n');
            ++i;
            break;
        default:
            b.append(ch);
        }
    }
    QString out = QString::fromUtf8(b);
    TRACE_LOCAL(out);
    WipeBytes(b);
    return out;
}

void AppendEscapedText(QString& Out, const QString& Text) {
    TRACE_PROC("TableEngine.AppendEscapedText", HIDDEN(Text));
    Out.reserve(Out.size() + Text.size());
    for (QChar ch : Text) {
        switch (ch.unicode()) {
        case u'\\':
            Out.append(QLatin1String("\\\\"));
            break;
        case u'\r':
            Out.append(QLatin1String("\\r"));
            break;
        case u'\n':
            Out.append(QLatin1String("\\n"));
            break;
        case kFldSep:
            Out.append(QLatin1String("\\s"));
            break;
        default:
            Out.append(ch);
        }
    }
}

void WriteTable(QByteArray& Out, const TableEntry& t, const TblsFilter* Filter) {
    TRACE_PROC("TableEngine.WriteTableBytes", t.Name);
    ByteSink s{Out};
    writeTable(s, t, Filter);
}

void WriteBody(QByteArray& Out, const DatabaseRecord& db) {
    TRACE_PROC("TableEngine.WriteBody", db.Name);
    ByteSink s{Out};
    s.value(db.Name);
    s.sep();
    s.num(db.flags);
    s.sep();
    s.value(db.Version);
    // The tag only when there is one, so that a file made from the template reads back
    // into the same bytes.
    if (!db.Tag.isEmpty() || db.SaveNum > 0 || !db.Lineage.isEmpty()) {
        s.sep();
        s.value(db.Tag);
    }
    if (db.SaveNum > 0 || !db.Lineage.isEmpty()) {
        s.sep();
        s.value(QString::number(db.SaveNum));
    }
    if (!db.Lineage.isEmpty()) {
        s.sep();
        s.value(db.Lineage);
    }
    s.eol();
    for (const TableEntry& t : db.Tables)
        writeTable(s, t, nullptr);
    for (const HelpTable& h : db.HTables)
        writeHelpTable(s, h);
}

void WriteTablesText(QString& Out, const TableEntry& t, const TblsFilter* Filter) {
    TRACE_PROC("TableEngine.WriteTablesText", t.Name);
    TextSink s{Out};
    writeTable(s, t, Filter);
}
