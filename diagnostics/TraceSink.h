#pragma once

// Text building that is safe inside a signal handler: no allocation, no locks.
// The same routines build the report on the normal path (into a growing string),
// so a report written by the crash handler reads exactly like any other.

#include <QString>

#include <cstddef>
#include <cstdint>
#include <string>

namespace argent::diag {

// Appends to a fixed buffer; silently drops what does not fit.
class FixedSink {
public:
    FixedSink(char* buf, std::size_t cap) : m_buf(buf), m_cap(cap) {}
    void append(const char* s, std::size_t n) {
        for (std::size_t i = 0; i < n && m_len < m_cap; ++i)
            m_buf[m_len++] = s[i];
    }
    std::size_t size() const { return m_len; }
    const char* data() const { return m_buf; }

private:
    char* m_buf;
    std::size_t m_cap;
    std::size_t m_len = 0;
};

class StringSink {
public:
    void append(const char* s, std::size_t n) { m_str.append(s, n); }
    std::string& str() { return m_str; }

private:
    std::string m_str;
};

// Length of a C string without calling into the library.
inline std::size_t cLen(const char* s) {
    std::size_t n = 0;
    if (s)
        while (s[n])
            ++n;
    return n;
}

template <class Sink> void put(Sink& s, const char* text) {
    s.append(text, cLen(text));
}
template <class Sink> void put(Sink& s, const char* text, std::size_t n) {
    s.append(text, n);
}

template <class Sink> void putSpaces(Sink& s, int n) {
    for (int i = 0; i < n; ++i)
        s.append(" ", 1);
}

template <class Sink> void putInt(Sink& s, long long v) {
    char tmp[24];
    int n = 0;
    unsigned long long u =
        v < 0 ? 0ULL - static_cast<unsigned long long>(v) : static_cast<unsigned long long>(v);
    do {
        tmp[n++] = static_cast<char>('0' + u % 10);
        u /= 10;
    } while (u);
    if (v < 0)
        tmp[n++] = '-';
    char out[24];
    for (int i = 0; i < n; ++i)
        out[i] = tmp[n - 1 - i];
    s.append(out, static_cast<std::size_t>(n));
}

// A double as the program shows numbers in text: at most 15 significant digits,
// exponent written as "E+20" / "E-05".
std::size_t formatDouble(double v, char* out, std::size_t cap);

template <class Sink> void putDouble(Sink& s, double v) {
    char buf[40];
    s.append(buf, formatDouble(v, buf, sizeof buf));
}

// UTF-16 text as UTF-8; each NUL character is written as "{Null}" when nullAsText is set.
template <class Sink> void putUtf16(Sink& s, const char16_t* p, qsizetype n, bool nullAsText) {
    char buf[4];
    for (qsizetype i = 0; i < n; ++i) {
        char32_t c = p[i];
        if (c == 0 && nullAsText) {
            put(s, "{Null}");
            continue;
        }
        if (c >= 0xD800 && c < 0xDC00 && i + 1 < n && p[i + 1] >= 0xDC00 && p[i + 1] < 0xE000) {
            c = 0x10000 + ((c - 0xD800) << 10) + (p[i + 1] - 0xDC00);
            ++i;
        }
        std::size_t k;
        if (c < 0x80) {
            buf[0] = static_cast<char>(c);
            k = 1;
        } else if (c < 0x800) {
            buf[0] = static_cast<char>(0xC0 | (c >> 6));
            buf[1] = static_cast<char>(0x80 | (c & 0x3F));
            k = 2;
        } else if (c < 0x10000) {
            buf[0] = static_cast<char>(0xE0 | (c >> 12));
            buf[1] = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            buf[2] = static_cast<char>(0x80 | (c & 0x3F));
            k = 3;
        } else {
            buf[0] = static_cast<char>(0xF0 | (c >> 18));
            buf[1] = static_cast<char>(0x80 | ((c >> 12) & 0x3F));
            buf[2] = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            buf[3] = static_cast<char>(0x80 | (c & 0x3F));
            k = 4;
        }
        s.append(buf, k);
    }
}

template <class Sink> void putQString(Sink& s, const QString& str, bool nullAsText = true) {
    putUtf16(s, reinterpret_cast<const char16_t*>(str.constData()), str.size(), nullAsText);
}

// The most of one value that a report shows, in UTF-16 units, and the most elements of
// one list: a report is read by people and may be sent, so a long value is cut, with a
// mark that says so and how long it was.
constexpr qsizetype kReportValueMax = 1024;
constexpr qsizetype kReportItemsMax = 256;

template <class Sink> void putCutMark(Sink& s, long long Whole, const char* What) {
    put(s, "{Cut: ");
    putInt(s, Whole);
    put(s, What);
    put(s, " in all}");
}

// A value of a report: as putQString, cut after kReportValueMax units.
template <class Sink> void putValue(Sink& s, const QString& str) {
    const qsizetype n = str.size();
    if (n <= kReportValueMax) {
        putQString(s, str);
        return;
    }
    qsizetype k = kReportValueMax;
    const char16_t last = static_cast<char16_t>(str.constData()[k - 1].unicode());
    if (last >= 0xD800 && last < 0xDC00)
        --k; // not half a character
    putUtf16(s, reinterpret_cast<const char16_t*>(str.constData()), k, true);
    putCutMark(s, n, " characters");
}

// The same for UTF-8 bytes.
template <class Sink> void putValue(Sink& s, const char* text, std::size_t n) {
    if (n <= static_cast<std::size_t>(kReportValueMax)) {
        s.append(text, n);
        return;
    }
    std::size_t k = static_cast<std::size_t>(kReportValueMax);
    while (k > 0 && (static_cast<unsigned char>(text[k]) & 0xC0) == 0x80)
        --k; // not half a character
    s.append(text, k);
    putCutMark(s, static_cast<long long>(n), " bytes");
}

} // namespace argent::diag
