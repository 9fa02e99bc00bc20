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
    qsizetype n = 256 + db.Name.size() + db.Tag.size() + db.Version.size();
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

namespace {

// ---- reading -----------------------------------------------------------------------------

struct Cursor {
    const char* p;
    const char* end;
    bool bareEnd = false; // a line so far did not end in CR LF
    // The next line without its line end; false at the end of the data.
    bool line(const char*& s, qsizetype& n) {
        if (p >= end)
            return false;
        const auto* nl = static_cast<const char*>(std::memchr(p, '\n', static_cast<std::size_t>(end - p)));
        const char* e = nl ? nl : end;
        s = p;
        n = e - p;
        if (n > 0 && s[n - 1] == '\r')
            --n;
        if (!nl || n == e - p)
            bareEnd = true;
        p = nl ? nl + 1 : end;
        return true;
    }
};

bool parseInt(const char* s, qsizetype n, long long lo, long long hi, long long& out) {
    TRACE_PROC("TableEngine.ParseInt", QByteArray(s, n), lo, hi);
    if (n < 1 || n > 20)
        return false;
    qsizetype i = 0;
    TRACE_LOCAL(i);
    bool neg = false;
    TRACE_LOCAL(neg);
    if (s[0] == '-') {
        neg = true;
        i = 1;
        if (n == 1)
            return false;
    }
    long long v = 0;
    TRACE_LOCAL(v);
    for (; i < n; ++i) {
        if (s[i] < '0' || s[i] > '9')
            return false;
        v = v * 10 + (s[i] - '0');
        if (v > (1LL << 40))
            return false;
    }
    if (neg)
        v = -v;
    if (v < lo || v > hi)
        return false;
    out = v;
    return true;
}

// Splits a line at the separator byte into its first Max pieces; returns the number of
// pieces, or Max + 1 when there are more.
struct Piece {
    const char* s;
    qsizetype n;
};
template <std::size_t Max> int split(const char* s, qsizetype n, Piece (&out)[Max]) {
    TRACE_PROC("TableEngine.Split", static_cast<long long>(n));
    int k = 0;
    TRACE_LOCAL(k);
    const char* e = s + n;
    for (;;) {
        const auto* q = static_cast<const char*>(std::memchr(s, kSepByte, static_cast<std::size_t>(e - s)));
        if (k == static_cast<int>(Max))
            return k + 1;
        out[k++] = Piece{s, (q ? q : e) - s};
        if (!q)
            return k;
        s = q + 1;
    }
}

bool isBlock(const char* s, qsizetype n, char open, char close) {
    return n >= 2 && s[0] == open && s[n - 1] == close;
}

bool isEndLine(const char* s, qsizetype n, char open, char close, const char* name, qsizetype nameLen) {
    return n == nameLen + 6 && s[0] == open && std::memcmp(s + 1, "End ", 4) == 0 &&
           std::memcmp(s + 5, name, static_cast<std::size_t>(nameLen)) == 0 && s[n - 1] == close;
}

// What becomes of a table's rows: checked only, split at once, or split on first use.
enum KeepRows { kSkip, kKeepNow, kKeepLater };

bool scanRows(Cursor& c, const QByteArray& Bytes, long long count, qsizetype nf, RecordStore* Into);

int parseTable(Cursor& c, const QByteArray& Bytes, const char* head, qsizetype headLen, TableEntry& t,
               KeepRows keep) {
    TRACE_PROC("TableEngine.ParseTable", QByteArray(head, headLen), keep);
    const char* rawName = head + 1;
    const qsizetype rawLen = headLen - 2;
    TRACE_LOCAL(rawLen);
    t.Name = UnescapeValue(rawName, rawLen);
    const char* s;
    qsizetype n;
    Piece pc[2];
    long long flags, count;
    if (!c.line(s, n) || split(s, n, pc) != 2 || !parseInt(pc[0].s, pc[0].n, SHRT_MIN, SHRT_MAX, flags) ||
        !parseInt(pc[1].s, pc[1].n, 0, INT_MAX, count))
        return -3;
    t.Flags = static_cast<std::int16_t>(flags);
    if (!c.line(s, n))
        return -3;
    t.Tag = UnescapeValue(s, n);
    if (!c.line(s, n))
        return -3;
    QString caption;
    if (n > 0) {
        const char* e = s + n;
        const char* p = s;
        for (;;) {
            const auto* q =
                static_cast<const char*>(std::memchr(p, kSepByte, static_cast<std::size_t>(e - p)));
            const char* pe = q ? q : e;
            const char* sp = pe;
            while (sp > p && sp[-1] != ' ')
                --sp;
            long long type;
            if (sp == p || !parseInt(sp, pe - sp, INT_MIN, INT_MAX, type))
                return -3;
            t.FldNames.append(UnescapeValue(p, sp - 1 - p));
            t.FldTypes.append(static_cast<int>(type));
            if (t.FldNames.size() > 1)
                caption.append(QChar(kFldSep));
            caption.append(t.FldNames.last() + u' ' + QString::number(type));
            if (!q)
                break;
            p = q + 1;
        }
    }
    t.Caption = caption;
    const qsizetype nf = t.FldNames.size();
    TRACE_LOCAL(nf);
    const char* const from = c.p;
    if (keep == kKeepLater) {
        // Checked now, split on first use (or copied as they are by a save before that).
        c.bareEnd = false;
        if (!scanRows(c, Bytes, count, nf, nullptr))
            return -3;
        if (!c.bareEnd && count > 0) {
            t.Records.attachUnread(Bytes, from - Bytes.constData(), c.p - from, static_cast<int>(count),
                                   static_cast<int>(nf));
        } else {
            c.p = from; // lines of another ending are split at once, into the form a save writes
            keep = kKeepNow;
        }
    }
    if (keep == kKeepNow) {
        t.Records.attach(Bytes);
        // A row takes at least one byte per value (its separators and line end): a count
        // the bytes cannot hold is damaged, and reserves nothing for the values.
        const qsizetype most = c.end - c.p;
        const bool fits = count * std::max<qsizetype>(nf, 1) <= most;
        t.Records.reserve(static_cast<int>(std::min<qsizetype>(count, most)),
                          fits ? static_cast<int>(nf) : 0);
        if (!scanRows(c, Bytes, count, nf, &t.Records))
            return -3;
    } else if (keep == kSkip && !scanRows(c, Bytes, count, nf, nullptr)) {
        return -3;
    }
    if (!c.line(s, n) || !isEndLine(s, n, '[', ']', rawName, rawLen))
        return -3;
    return 1;
}

// Splits Count lines of Nf values each at C into Into (when given). False when a line is
// missing or holds another number of values.
bool scanRows(Cursor& c, const QByteArray& Bytes, long long count, qsizetype nf, RecordStore* Into) {
    const char* s;
    qsizetype n;
    const char* const base = Bytes.constData();
    std::vector<std::uint32_t> offs(static_cast<std::size_t>(nf)), lens(static_cast<std::size_t>(nf));
    for (long long r = 0; r < count; ++r) {
        if (!c.line(s, n))
            return false;
        if (nf == 0) {
            if (n != 0)
                return false;
        } else {
            // One pass over the line's bytes: the separators, and whether a value has a
            // backslash or a byte above ASCII (only such values need a closer look).
            const auto* u = reinterpret_cast<const unsigned char*>(s);
            qsizetype got = 0, from = 0;
            unsigned odd = 0;
            for (qsizetype i = 0;; ++i) {
                const unsigned c = i < n ? u[i] : 0x87u;
                if (c < 0x80u && c != '\\')
                    continue;
                if (c != 0x87u) {
                    odd = 1;
                    continue;
                }
                if (++got > nf)
                    return false;
                offs[static_cast<std::size_t>(got - 1)] = static_cast<std::uint32_t>(s + from - base);
                lens[static_cast<std::size_t>(got - 1)] = static_cast<std::uint32_t>(i - from) | (odd << 31);
                odd = 0;
                from = i + 1;
                if (i >= n)
                    break;
            }
            if (got != nf)
                return false;
        }
        if (Into)
            Into->appendParsed(static_cast<int>(nf), offs.data(), lens.data());
    }
    return true;
}

int parseHelpTable(Cursor& c, const char* head, qsizetype headLen, HelpTable& h) {
    TRACE_PROC("TableEngine.ParseHelpTable", QByteArray(head, headLen));
    const char* rawName = head + 1;
    const qsizetype rawLen = headLen - 2;
    TRACE_LOCAL(rawLen);
    h.Name = UnescapeValue(rawName, rawLen);
    const char* s;
    qsizetype n;
    long long count;
    if (!c.line(s, n) || !parseInt(s, n, 0, INT_MAX, count))
        return -3;
    for (long long i = 0; i < count; ++i) {
        Piece pc[2];
        long long code;
        if (!c.line(s, n) || split(s, n, pc) != 2 || !parseInt(pc[0].s, pc[0].n, INT_MIN, INT_MAX, code))
            return -3;
        h.Codes.append(static_cast<int>(code));
        h.Texts.append(UnescapeValue(pc[1].s, pc[1].n));
    }
    if (!c.line(s, n) || !isEndLine(s, n, '{', '}', rawName, rawLen))
        return -3;
    return 1;
}

} // namespace

bool SplitRows(const QByteArray& Bytes, qsizetype Off, qsizetype Len, long long Count, qsizetype Nf,
               RecordStore* Into) {
    TRACE_PROC("TableEngine.SplitRows", static_cast<long long>(Len), Count);
    if (Off < 0 || Len < 0 || Off + Len > Bytes.size())
        return false;
    Cursor c{Bytes.constData() + Off, Bytes.constData() + Off + Len};
    return scanRows(c, Bytes, Count, Nf, Into) && c.p == c.end;
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
    if (!db.Tag.isEmpty() || db.SaveNum > 0) {
        s.sep();
        s.value(db.Tag);
    }
    if (db.SaveNum > 0) {
        s.sep();
        s.value(QString::number(db.SaveNum));
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

int ParseBody(const QByteArray& Bytes, qsizetype From, DatabaseRecord& db, const QSet<QString>* Only) {
    TRACE_PROC("TableEngine.ParseBody", static_cast<long long>(Bytes.size() - From));
    // Values are kept as offsets into Bytes (RecordStore.h), 31 bits wide.
    if (From < 0 || From > Bytes.size() || Bytes.size() > 0x7fffffff)
        return -3;
    Cursor c{Bytes.constData() + From, Bytes.constData() + Bytes.size()};
    const char* s;
    qsizetype n;
    if (!c.line(s, n))
        return -3;
    DatabaseRecord out;
    out.Key = db.Key;
    Piece pc[5];
    const int k = split(s, n, pc);
    TRACE_LOCAL(k);
    long long flags = 0;
    TRACE_LOCAL(flags);
    if (k >= 2 && pc[1].n > 0 && !parseInt(pc[1].s, pc[1].n, SHRT_MIN, SHRT_MAX, flags))
        return -3;
    out.Name = k >= 1 ? UnescapeValue(pc[0].s, pc[0].n) : QString();
    out.flags = static_cast<std::int16_t>(flags);
    out.Version = k >= 3 ? UnescapeValue(pc[2].s, pc[2].n) : QString();
    // Values after the fifth would come from a later version; they are not ours to read.
    if (k >= 4)
        out.Tag = UnescapeValue(pc[3].s, pc[3].n);
    // A count that is no number counts as none: the file is still whole.
    long long saves = 0;
    if (k >= 5 && parseInt(pc[4].s, pc[4].n, 0, LLONG_MAX, saves))
        out.SaveNum = static_cast<quint64>(saves);
    while (c.line(s, n)) {
        if (n == 0)
            continue;
        if (isBlock(s, n, '[', ']')) {
            TableEntry t;
            const QString name = UnescapeValue(s + 1, n - 2).toCaseFolded();
            KeepRows keep = kSkip;
            if (!Only || Only->contains(name))
                keep = name == QLatin1String("datatable") ? kKeepNow : kKeepLater;
            if (parseTable(c, Bytes, s, n, t, keep) < 0)
                return -3;
            if (keep != kSkip)
                out.Tables.append(std::move(t));
        } else if (isBlock(s, n, '{', '}')) {
            HelpTable h;
            if (parseHelpTable(c, s, n, h) < 0)
                return -3;
            out.HTables.append(std::move(h));
        } else {
            return -3;
        }
    }
    out.Ready = true;
    db = std::move(out);
    return 1;
}
