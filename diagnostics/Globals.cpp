#include "diagnostics/Globals.h"

#include "app/StrMass.h"
#include "diagnostics/FormatVariable.h"

#include <array>

namespace argent::diag {

namespace {
// A fixed table, so that the crash handler can walk it without locks or allocation.
constexpr int kMaxVars = 256;
std::array<VarRef, kMaxVars> g_vars;
int g_varCount = 0;

void add(VarRef v) {
    for (int i = 0; i < g_varCount; ++i) {
        // Registering the same variable again replaces the entry.
        if (g_vars[i].name == v.name && g_vars[i].module == v.module) {
            g_vars[i] = v;
            return;
        }
    }
    if (g_varCount < kMaxVars)
        g_vars[g_varCount++] = v;
}

VarRef make(const char* module, const char* name, VarRef::Kind k, const void* p) {
    VarRef v;
    v.module = module;
    v.name = name;
    v.kind = k;
    v.ptr = p;
    return v;
}

template <class Sink> void writeVar(Sink& s, const VarRef& v) {
    const std::size_t n = cLen(v.name);
    openTag(s, v.name, n, 0);
    switch (v.kind) {
    case VarRef::Int:
        putInt(s, *static_cast<const int*>(v.ptr));
        break;
    case VarRef::LongLong:
        putInt(s, *static_cast<const long long*>(v.ptr));
        break;
    case VarRef::Double:
        putDouble(s, *static_cast<const double*>(v.ptr));
        break;
    case VarRef::Bool:
        putBool(s, *static_cast<const bool*>(v.ptr));
        break;
    case VarRef::Str:
        putQString(s, *static_cast<const QString*>(v.ptr));
        break;
    case VarRef::Hidden:
        put(s, "{Hidden}");
        break;
    case VarRef::Fixed:
        put(s, v.fixed);
        break;
    case VarRef::Mass: {
        const StrMass& m = *static_cast<const StrMass*>(v.ptr);
        put(s, "\r\n");
        for (qsizetype k = 0; k < m.Items.size(); ++k) {
            putSpaces(s, 2);
            put(s, "<");
            put(s, v.name, n);
            put(s, " Index=\"");
            putInt(s, m.LBound + k);
            put(s, "\">");
            putQString(s, m.Items[k]);
            closeTag(s, v.name, n);
        }
        break;
    }
    case VarRef::Bytes: {
        const QByteArray& b = *static_cast<const QByteArray*>(v.ptr);
        put(s, "\r\n");
        for (qsizetype k = 0; k < b.size(); ++k) {
            putSpaces(s, 2);
            put(s, "<");
            put(s, v.name, n);
            put(s, " Index=\"");
            putInt(s, v.byteLBound + k);
            put(s, "\">");
            putInt(s, static_cast<unsigned char>(b[k]));
            closeTag(s, v.name, n);
        }
        break;
    }
    }
    closeTag(s, v.name, n);
}
} // namespace

void registerVar(const VarRef& v) {
    add(v);
}
void registerGlobal(const char* name, const int* p) {
    add(make(nullptr, name, VarRef::Int, p));
}
void registerGlobal(const char* name, const long long* p) {
    add(make(nullptr, name, VarRef::LongLong, p));
}
void registerGlobal(const char* name, const double* p) {
    add(make(nullptr, name, VarRef::Double, p));
}
void registerGlobal(const char* name, const bool* p) {
    add(make(nullptr, name, VarRef::Bool, p));
}
void registerGlobal(const char* name, const QString* p) {
    add(make(nullptr, name, VarRef::Str, p));
}
void registerGlobal(const char* name, const StrMass* p) {
    add(make(nullptr, name, VarRef::Mass, p));
}
void registerGlobalBytes(const char* name, const QByteArray* p) {
    add(make(nullptr, name, VarRef::Bytes, p));
}
void registerGlobalHidden(const char* name) {
    add(make(nullptr, name, VarRef::Hidden, nullptr));
}
void registerGlobalFixed(const char* name, const char* content) {
    VarRef v = make(nullptr, name, VarRef::Fixed, nullptr);
    v.fixed = content;
    add(v);
}
void registerModuleVar(const char* module, const char* name, const QString* p) {
    add(make(module, name, VarRef::Str, p));
}
void registerModuleVar(const char* module, const char* name, const int* p) {
    add(make(module, name, VarRef::Int, p));
}
void registerModuleVar(const char* module, const char* name, const bool* p) {
    add(make(module, name, VarRef::Bool, p));
}
void registerModuleHidden(const char* module, const char* name) {
    add(make(module, name, VarRef::Hidden, nullptr));
}

template <class Sink> void writeGlobals(Sink& s) {
    for (int i = 0; i < g_varCount; ++i)
        if (!g_vars[i].module)
            writeVar(s, g_vars[i]);
}

template <class Sink> void writeModuleVars(Sink& s, const char* module, std::size_t moduleLen) {
    for (int i = 0; i < g_varCount; ++i) {
        const char* m = g_vars[i].module;
        if (!m || cLen(m) != moduleLen)
            continue;
        bool same = true;
        for (std::size_t k = 0; k < moduleLen && same; ++k)
            same = m[k] == module[k];
        if (same)
            writeVar(s, g_vars[i]);
    }
}

template void writeGlobals<FixedSink>(FixedSink&);
template void writeGlobals<StringSink>(StringSink&);
template void writeModuleVars<FixedSink>(FixedSink&, const char*, std::size_t);
template void writeModuleVars<StringSink>(StringSink&, const char*, std::size_t);

} // namespace argent::diag

QString DumpGlobals() {
    argent::diag::StringSink s;
    argent::diag::writeGlobals(s);
    return QString::fromStdString(s.str());
}
