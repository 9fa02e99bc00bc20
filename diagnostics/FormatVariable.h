#pragma once

// The variable formatter of error reports: one value as
//   <name>content</tag>CR LF
// prefixed by indent blanks, where tag is the name up to its first blank (so that an
// array element's name may carry its index). Arrays list their elements, indented by
// two more blanks, between the opening tag plus CR LF and the closing tag.

#include "diagnostics/TraceSink.h"

#include <QString>

#include <memory>
#include <variant>
#include <vector>

// A value as the formatter sees it. Arrays keep their bounds per dimension; a
// dimension whose bounds cannot be read is marked unreadable.
struct VbValue;

struct VbEmpty {};
struct VbNull {};
struct VbUdt {
    QString TypeName;
};
struct VbArray {
    bool Initialised = true;
    struct Dim {
        int LBound = 0;
        int UBound = -1;
        bool Readable = true;
    };
    std::vector<Dim> Dims;
    std::vector<VbValue> Elems; // row-major: the last index varies fastest
};
struct VbObject {
    QString TypeName;
    bool IsNothing = false;
    bool Enumerable = false;
    std::vector<VbValue> Items;
};

struct VbValue {
    std::variant<VbEmpty, VbNull, long long, double, bool, QString, VbUdt, std::shared_ptr<VbArray>, VbObject>
        v;
    VbValue() = default;
    VbValue(int x) : v(static_cast<long long>(x)) {}
    VbValue(long long x) : v(x) {}
    VbValue(double x) : v(x) {}
    VbValue(bool x) : v(x) {}
    VbValue(const QString& x) : v(x) {}
    VbValue(const char* x) : v(QString::fromUtf8(x)) {}
    VbValue(VbNull x) : v(x) {}
    VbValue(VbUdt x) : v(std::move(x)) {}
    VbValue(VbObject x) : v(std::move(x)) {}
    VbValue(std::shared_ptr<VbArray> x) : v(std::move(x)) {}
};

// One variable as text. Procedures call it with depth 99 and indent 0.
QString FormatVariable(const QString& Name, const VbValue& Value, int Depth = 99, int Indent = 0);

// True when the bounds of dimension Dimension (from 1) of the array cannot be read.
bool IsArrayUninitialised(const VbArray& Arr, int Dimension);

namespace argent::diag {

// The pieces of one element, shared by every writer so that all reports agree.
template <class Sink> void openTag(Sink& s, const char* name, std::size_t n, int indent) {
    putSpaces(s, indent);
    put(s, "<");
    put(s, name, n);
    put(s, ">");
}

template <class Sink> void closeTag(Sink& s, const char* name, std::size_t n) {
    std::size_t t = 0;
    while (t < n && name[t] != ' ')
        ++t;
    put(s, "</");
    put(s, name, t);
    put(s, ">\r\n");
}

// A scalar element whose content is already known to the caller.
template <class Sink, class Content> void element(Sink& s, const char* name, int indent, Content&& content) {
    std::size_t n = cLen(name);
    openTag(s, name, n, indent);
    content();
    closeTag(s, name, n);
}

template <class Sink> void putBool(Sink& s, bool b) {
    put(s, b ? "True" : "False");
}

} // namespace argent::diag
