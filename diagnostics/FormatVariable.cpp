#include "diagnostics/FormatVariable.h"

#include "diagnostics/ErrorTrap.h"

#include <charconv>
#include <cmath>
#include <cstring>

namespace argent::diag {

std::size_t formatDouble(double v, char* out, std::size_t cap) {
    if (std::isnan(v)) {
        std::memcpy(out, "NaN", 3);
        return 3;
    }
    if (std::isinf(v)) {
        const char* t = v < 0 ? "-Infinity" : "Infinity";
        std::size_t n = cLen(t);
        std::memcpy(out, t, n);
        return n;
    }
    auto r = std::to_chars(out, out + cap, v, std::chars_format::general, 15);
    std::size_t n = static_cast<std::size_t>(r.ptr - out);
    for (std::size_t i = 0; i < n; ++i)
        if (out[i] == 'e')
            out[i] = 'E';
    return n;
}

namespace {

void formatValue(StringSink& s, const std::string& name, const VbValue& value, int depth, int indent);

void formatArray(StringSink& s, const std::string& name, const VbArray& a, int depth, int indent) {
    if (!a.Initialised) {
        put(s, "{UnInitialised Array}");
        return;
    }
    const std::size_t dims = a.Dims.size();
    if (dims > 3) {
        put(s, "{Dump truncated at ");
        putInt(s, static_cast<long long>(dims));
        put(s, " dimensions}");
        return;
    }
    for (std::size_t d = 1; d < dims; ++d) {
        if (!a.Dims[d].Readable) {
            put(s, d == 1 ? "{UnInitialised Array Dimension 2}" : "{UnInitialised Array Dimension 3}");
            return;
        }
    }
    put(s, "\r\n");
    if (depth <= 0)
        return;
    std::string base;
    {
        std::size_t t = name.find(' ');
        base = name.substr(0, t);
    }
    auto extent = [&](std::size_t d) { return std::max(0, a.Dims[d].UBound - a.Dims[d].LBound + 1); };
    std::size_t k = 0;
    auto elem = [&](const std::string& idx) {
        std::string n = base + " Index=\"" + idx + "\"";
        if (k < a.Elems.size())
            formatValue(s, n, a.Elems[k], depth - 1, indent + 2);
        ++k;
    };
    if (dims == 1) {
        for (int i = a.Dims[0].LBound; i <= a.Dims[0].UBound; ++i)
            elem(std::to_string(i));
    } else if (dims == 2) {
        for (int i = 0; i < extent(0); ++i)
            for (int j = 0; j < extent(1); ++j)
                elem(std::to_string(a.Dims[0].LBound + i) + "," + std::to_string(a.Dims[1].LBound + j));
    } else if (dims == 3) {
        for (int i = 0; i < extent(0); ++i)
            for (int j = 0; j < extent(1); ++j)
                for (int m = 0; m < extent(2); ++m)
                    elem(std::to_string(a.Dims[0].LBound + i) + "," + std::to_string(a.Dims[1].LBound + j) +
                         "," + std::to_string(a.Dims[2].LBound + m));
    }
}

void formatContent(StringSink& s, const std::string& name, const VbValue& value, int depth, int indent) {
    std::visit(
        [&](const auto& x) {
            using T = std::decay_t<decltype(x)>;
            if constexpr (std::is_same_v<T, VbEmpty>)
                put(s, "{Empty}");
            else if constexpr (std::is_same_v<T, VbNull>)
                put(s, "{Null}");
            else if constexpr (std::is_same_v<T, long long>)
                putInt(s, x);
            else if constexpr (std::is_same_v<T, double>)
                putDouble(s, x);
            else if constexpr (std::is_same_v<T, bool>)
                putBool(s, x);
            else if constexpr (std::is_same_v<T, QString>)
                putValue(s, x);
            else if constexpr (std::is_same_v<T, VbUdt>) {
                put(s, "{UDT - ");
                putQString(s, x.TypeName);
                put(s, "}");
            } else if constexpr (std::is_same_v<T, std::shared_ptr<VbArray>>) {
                if (!x)
                    put(s, "{UnInitialised Array}");
                else
                    formatArray(s, name, *x, depth, indent);
            } else if constexpr (std::is_same_v<T, VbObject>) {
                if (x.IsNothing) {
                    put(s, "{Nothing}");
                } else if (x.Enumerable) {
                    put(s, "\r\n");
                    if (depth > 0)
                        for (std::size_t n = 0; n < x.Items.size(); ++n)
                            formatValue(s, "[" + std::to_string(n + 1) + "]", x.Items[n], 3, indent + 2);
                } else {
                    put(s, "{");
                    putQString(s, x.TypeName);
                    put(s, "}");
                }
            }
        },
        value.v);
}

void formatValue(StringSink& s, const std::string& name, const VbValue& value, int depth, int indent) {
    openTag(s, name.data(), name.size(), indent);
    StringSink content;
    try {
        formatContent(content, name, value, depth, indent);
        s.str() += content.str();
    } catch (const VbError& e) {
        put(s, "{Error ");
        putInt(s, e.number());
        put(s, " formatting for output}");
    } catch (...) {
        put(s, "{Error 5 formatting for output}");
    }
    closeTag(s, name.data(), name.size());
}

} // namespace
} // namespace argent::diag

QString FormatVariable(const QString& Name, const VbValue& Value, int Depth, int Indent) {
    argent::diag::StringSink s;
    argent::diag::formatValue(s, Name.toStdString(), Value, Depth, Indent);
    return QString::fromStdString(s.str());
}

bool IsArrayUninitialised(const VbArray& Arr, int Dimension) {
    if (!Arr.Initialised)
        return true;
    if (Dimension < 1 || Dimension > static_cast<int>(Arr.Dims.size()))
        return true;
    return !Arr.Dims[Dimension - 1].Readable;
}
