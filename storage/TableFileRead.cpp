// Reading the body of a database file (the layout is in TableFile.h): one pass over the
// lines, the values kept as places in the bytes read.

#include "storage/TableFile.h"

#include "diagnostics/Trace.h"

#include <climits>
#include <cstring>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif
#include <vector>

namespace {

constexpr char kSepByte = static_cast<char>(0x87);

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

// The separators in N bytes at S, sixteen bytes at a time where the processor allows.
qsizetype countSeps(const char* s, qsizetype n) {
    qsizetype got = 0, i = 0;
#if defined(__SSE2__)
    const __m128i sep = _mm_set1_epi8(kSepByte);
    for (; i + 16 <= n; i += 16) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + i));
        got += __builtin_popcount(static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(v, sep))));
    }
#endif
    for (; i < n; ++i)
        got += s[i] == kSepByte;
    return got;
}

// Checks Count lines of Nf values each at C without splitting them: what a table split
// on first use needs now, at a small part of the cost of splitting.
bool checkRows(Cursor& c, long long count, qsizetype nf) {
    const char* s;
    qsizetype n;
    for (long long r = 0; r < count; ++r) {
        if (!c.line(s, n))
            return false;
        if (nf == 0 ? n != 0 : countSeps(s, n) != nf - 1)
            return false;
    }
    return true;
}

// Splits Count lines of Nf values each at C into Into (when given). False when a line is
// missing or holds another number of values.
bool scanRows(Cursor& c, const QByteArray& Bytes, long long count, qsizetype nf, RecordStore* Into) {
    if (!Into)
        return checkRows(c, count, nf);
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
    Piece pc[6];
    const int k = split(s, n, pc);
    TRACE_LOCAL(k);
    long long flags = 0;
    TRACE_LOCAL(flags);
    if (k >= 2 && pc[1].n > 0 && !parseInt(pc[1].s, pc[1].n, SHRT_MIN, SHRT_MAX, flags))
        return -3;
    out.Name = k >= 1 ? UnescapeValue(pc[0].s, pc[0].n) : QString();
    out.flags = static_cast<std::int16_t>(flags);
    out.Version = k >= 3 ? UnescapeValue(pc[2].s, pc[2].n) : QString();
    // Values after the sixth would come from a later version; they are not ours to read.
    if (k >= 4)
        out.Tag = UnescapeValue(pc[3].s, pc[3].n);
    // A count that is no number counts as none: the file is still whole.
    long long saves = 0;
    if (k >= 5 && parseInt(pc[4].s, pc[4].n, 0, LLONG_MAX, saves))
        out.SaveNum = static_cast<quint64>(saves);
    if (k >= 6)
        out.Lineage = UnescapeValue(pc[5].s, pc[5].n);
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
