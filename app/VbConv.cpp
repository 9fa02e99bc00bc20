#include "app/VbConv.h"

#include "diagnostics/ErrorTrap.h"
#include "diagnostics/Trace.h"

#include <cmath>
#include <optional>

namespace {

bool isBlank(QChar c) {
    return c == u' ' || c == u'\t' || c == u'\n' || c == u'\r';
}

// Reads a number from position i; returns the value and moves i past it, or nothing.
std::optional<double> readNumber(const QString& t, qsizetype& i, bool skipInnerBlanks) {
    const qsizetype n = t.size();
    auto skip = [&] {
        while (skipInnerBlanks && i < n && isBlank(t[i]))
            ++i;
    };
    skip();
    if (i + 1 < n && t[i] == u'&') {
        QChar p = t[i + 1].toUpper();
        int base = p == u'H' ? 16 : p == u'O' ? 8 : 0;
        if (base) {
            qsizetype j = i + 2;
            long long v = 0;
            bool any = false;
            while (j < n) {
                const char16_t c = t[j].toUpper().unicode();
                int d = c >= u'0' && c <= u'9' ? c - u'0' : c >= u'A' && c <= u'F' ? c - u'A' + 10 : 99;
                if (d >= base)
                    break;
                v = v * base + d;
                any = true;
                ++j;
                if (v > 0xFFFFFFFFLL)
                    break;
            }
            if (!any)
                return std::nullopt;
            i = j;
            // Hexadecimal and octal literals are 32-bit, so &HFFFFFFFF is -1.
            if (v > 0x7FFFFFFF && v <= 0xFFFFFFFFLL)
                v -= 0x100000000LL;
            return static_cast<double>(v);
        }
    }
    QString num;
    if (i < n && (t[i] == u'+' || t[i] == u'-')) {
        num += t[i++];
        skip();
    }
    bool digits = false;
    while (i < n && t[i].isDigit() && t[i].unicode() < 128) {
        num += t[i++];
        digits = true;
        skip();
    }
    if (i < n && t[i] == u'.') {
        qsizetype save = i;
        QString frac = QStringLiteral(".");
        ++i;
        skip();
        bool fd = false;
        while (i < n && t[i].isDigit() && t[i].unicode() < 128) {
            frac += t[i++];
            fd = true;
            skip();
        }
        if (fd || digits)
            num += frac;
        else
            i = save;
        digits = digits || fd;
    }
    if (!digits)
        return std::nullopt;
    if (i < n && (t[i] == u'e' || t[i] == u'E' || t[i] == u'd' || t[i] == u'D')) {
        qsizetype save = i;
        QString ex = QStringLiteral("e");
        ++i;
        if (i < n && (t[i] == u'+' || t[i] == u'-'))
            ex += t[i++];
        bool ed = false;
        while (i < n && t[i].isDigit() && t[i].unicode() < 128) {
            ex += t[i++];
            ed = true;
        }
        if (ed)
            num += ex;
        else
            i = save;
    }
    bool ok = false;
    double v = num.toDouble(&ok);
    if (!ok)
        return std::nullopt;
    return v;
}

// A plain decimal integer of up to 15 digits, with an optional minus: no text is built.
bool plainInteger(const QString& Text, double& Out) {
    const QChar* p = Text.constData();
    const qsizetype n = Text.size();
    qsizetype k = n > 0 && p[0] == u'-' ? 1 : 0;
    if (n == k || n - k > 15)
        return false;
    long long v = 0;
    for (qsizetype i = k; i < n; ++i) {
        const char16_t c = p[i].unicode();
        if (c < u'0' || c > u'9')
            return false;
        v = v * 10 + (c - u'0');
    }
    Out = static_cast<double>(k ? -v : v);
    return true;
}

double parseWhole(const QString& Text, std::source_location Loc) {
    double fast;
    if (plainInteger(Text, fast))
        return fast;
    const QString t = Text.trimmed();
    if (t.compare(QStringLiteral("True"), Qt::CaseInsensitive) == 0)
        return -1;
    if (t.compare(QStringLiteral("False"), Qt::CaseInsensitive) == 0)
        return 0;
    qsizetype i = 0;
    auto v = readNumber(t, i, false);
    if (!v || i != t.size())
        RaiseError(vbErrTypeMismatch, {}, Loc);
    return *v;
}

} // namespace

double Val(const QString& Text) {
    TRACE_PROC("modConv.Val", Text);
    // The common case, a plain decimal integer such as an identifier ("17") or the
    // number of a key ("3key"): read it without building any text.
    {
        const QChar* p = Text.constData();
        const qsizetype n = Text.size();
        qsizetype k = 0;
        long long v = 0;
        while (k < n && k < 15 && p[k].unicode() >= u'0' && p[k].unicode() <= u'9')
            v = v * 10 + (p[k++].unicode() - u'0');
        if (k > 0 && (k == n || (k < 15 && p[k] != u'.' && p[k] != u'e' && p[k] != u'E' && p[k] != u'd' &&
                                 p[k] != u'D' && !isBlank(p[k]))))
            return static_cast<double>(v);
    }
    qsizetype i = 0;
    while (i < Text.size() && isBlank(Text[i]))
        ++i;
    auto v = readNumber(Text, i, true);
    return v ? *v : 0.0;
}

double RoundHalfEven(double Value) {
    return std::nearbyint(Value);
}

// The conversions below are operators of the language rather than procedures: they
// open no frame, and an error they raise belongs to the caller's procedure and line.
int CLng(double Value, std::source_location Loc) {
    if (std::isnan(Value))
        RaiseError(vbErrOverflow, {}, Loc);
    double r = RoundHalfEven(Value);
    if (r < -2147483648.0 || r > 2147483647.0)
        RaiseError(vbErrOverflow, {}, Loc);
    return static_cast<int>(r);
}

int CLng(const QString& Text, std::source_location Loc) {
    return CLng(parseWhole(Text, Loc), Loc);
}

short CInt(double Value, std::source_location Loc) {
    if (std::isnan(Value))
        RaiseError(vbErrOverflow, {}, Loc);
    double r = RoundHalfEven(Value);
    if (r < -32768.0 || r > 32767.0)
        RaiseError(vbErrOverflow, {}, Loc);
    return static_cast<short>(r);
}

short CInt(const QString& Text, std::source_location Loc) {
    return CInt(parseWhole(Text, Loc), Loc);
}

bool CBool(const QString& Text, std::source_location Loc) {
    return parseWhole(Text, Loc) != 0.0;
}

QString CStr(double Value) {
    char buf[40];
    return QString::fromLatin1(buf,
                               static_cast<qsizetype>(argent::diag::formatDouble(Value, buf, sizeof buf)));
}

QString CStr(int Value) {
    return QString::number(Value);
}

double VbDiv(double Dividend, double Divisor, std::source_location Loc) {
    if (Divisor == 0.0)
        RaiseError(vbErrDivByZero, {}, Loc);
    return Dividend / Divisor;
}
