#include "diagnostics/Globals.h"

#include "diagnostics/FormatVariable.h"

#include <algorithm>
#include <array>
#include <cstdint>

namespace argent::diag {

namespace {
bool sameText(const char* a, const char* b) {
    if (a == b)
        return true;
    if (!a || !b)
        return false;
    while (*a && *a == *b)
        ++a, ++b;
    return *a == *b;
}

// A fixed table, so that the crash handler can walk it without locks or allocation.
constexpr int kMaxVars = 256;
std::array<VarRef, kMaxVars> g_vars;
int g_varCount = 0;

void add(VarRef v) {
    for (int i = 0; i < g_varCount; ++i) {
        // Registering the same variable again replaces the entry.
        if (sameText(g_vars[i].name, v.name) && sameText(g_vars[i].module, v.module)) {
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

VarRef makeMember(const char* module, const char* name, VarRef::Kind k, const void* self,
                  const void* member) {
    VarRef v = make(module, name, k, nullptr);
    v.member = true;
    v.ptr = reinterpret_cast<const void*>(static_cast<const char*>(member) - static_cast<const char*>(self));
    return v;
}

template <class Sink> void writeVar(Sink& s, const VarRef& v) {
    const std::size_t n = cLen(v.name);
    openTag(s, v.name, n, 0);
    switch (v.kind) {
    case VarRef::Count:
        putInt(s, v.count(v.ptr));
        break;
    case VarRef::Items: {
        const long long c = v.count(v.ptr);
        put(s, "\r\n");
        for (long long k = 0; k < std::min<long long>(c, kReportItemsMax); ++k) {
            char tag[24];
            FixedSink t(tag, sizeof tag);
            put(t, "[");
            putInt(t, k + 1);
            put(t, "]");
            openTag(s, tag, t.size(), 2);
            putValue(s, *v.item(v.ptr, k));
            closeTag(s, tag, t.size());
        }
        if (c > kReportItemsMax) {
            putSpaces(s, 2);
            putCutMark(s, c, " elements");
            put(s, "\r\n");
        }
        break;
    }
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
        putValue(s, *static_cast<const QString*>(v.ptr));
        break;
    case VarRef::Hidden:
        put(s, "{Hidden}");
        break;
    case VarRef::Fixed:
        put(s, v.fixed);
        break;
    case VarRef::Mass: {
        const QStringList& items = *static_cast<const QStringList*>(v.ptr);
        put(s, "\r\n");
        for (qsizetype k = 0; k < std::min(items.size(), kReportItemsMax); ++k) {
            putSpaces(s, 2);
            put(s, "<");
            put(s, v.name, n);
            put(s, " Index=\"");
            putInt(s, *v.massLBound + k);
            put(s, "\">");
            putValue(s, items[k]);
            closeTag(s, v.name, n);
        }
        if (items.size() > kReportItemsMax) {
            putSpaces(s, 2);
            putCutMark(s, items.size(), " elements");
            put(s, "\r\n");
        }
        break;
    }
    case VarRef::Bytes: {
        const QByteArray& b = *static_cast<const QByteArray*>(v.ptr);
        put(s, "\r\n");
        for (qsizetype k = 0; k < std::min(b.size(), kReportItemsMax); ++k) {
            putSpaces(s, 2);
            put(s, "<");
            put(s, v.name, n);
            put(s, " Index=\"");
            putInt(s, v.byteLBound + k);
            put(s, "\">");
            putInt(s, static_cast<unsigned char>(b[k]));
            closeTag(s, v.name, n);
        }
        if (b.size() > kReportItemsMax) {
            putSpaces(s, 2);
            putCutMark(s, b.size(), " elements");
            put(s, "\r\n");
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
void registerGlobalMass(const char* name, const int* LBound, const QStringList* Items) {
    VarRef v = make(nullptr, name, VarRef::Mass, Items);
    v.massLBound = LBound;
    add(v);
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

void registerModuleVar(const char* module, const char* name, const long long* p) {
    add(make(module, name, VarRef::LongLong, p));
}
namespace {
template <class T>
void addOwned(const void* owner, const char* module, const char* name, VarRef::Kind k, const T* p) {
    VarRef v = make(module, name, k, p);
    v.owner = owner;
    add(v);
}
} // namespace
void registerOwned(const void* owner, const char* module, const char* name, const QString* p) {
    addOwned(owner, module, name, VarRef::Str, p);
}
void registerOwned(const void* owner, const char* module, const char* name, const int* p) {
    addOwned(owner, module, name, VarRef::Int, p);
}
void registerOwned(const void* owner, const char* module, const char* name, const bool* p) {
    addOwned(owner, module, name, VarRef::Bool, p);
}
void registerOwnedCount(const void* owner, const char* module, const char* name, const void* p,
                        long long (*count)(const void*)) {
    VarRef v = make(module, name, VarRef::Count, p);
    v.owner = owner;
    v.count = count;
    add(v);
}
void registerOwnedItems(const void* owner, const char* module, const char* name, const void* p,
                        long long (*count)(const void*), const QString* (*item)(const void*, long long)) {
    VarRef v = make(module, name, VarRef::Items, p);
    v.owner = owner;
    v.count = count;
    v.item = item;
    add(v);
}
void dropVars(const void* owner) {
    int out = 0;
    for (int i = 0; i < g_varCount; ++i)
        if (g_vars[i].owner != owner)
            g_vars[out++] = g_vars[i];
    g_varCount = out;
}
void registerMember(const char* module, const char* name, const void* self, const QString* member) {
    add(makeMember(module, name, VarRef::Str, self, member));
}
void registerMember(const char* module, const char* name, const void* self, const int* member) {
    add(makeMember(module, name, VarRef::Int, self, member));
}
void registerMember(const char* module, const char* name, const void* self, const bool* member) {
    add(makeMember(module, name, VarRef::Bool, self, member));
}
void registerMemberCount(const char* module, const char* name, const void* self, const void* member,
                         long long (*count)(const void*)) {
    VarRef v = makeMember(module, name, VarRef::Count, self, member);
    v.count = count;
    add(v);
}
void registerMemberItems(const char* module, const char* name, const void* self, const void* member,
                         long long (*count)(const void*), const QString* (*item)(const void*, long long)) {
    VarRef v = makeMember(module, name, VarRef::Items, self, member);
    v.count = count;
    v.item = item;
    add(v);
}

template <class Sink> void writeGlobals(Sink& s) {
    for (int i = 0; i < g_varCount; ++i)
        if (!g_vars[i].module)
            writeVar(s, g_vars[i]);
}

template <class Sink>
void writeModuleVars(Sink& s, const char* module, std::size_t moduleLen, const void* self) {
    for (int i = 0; i < g_varCount; ++i) {
        const char* m = g_vars[i].module;
        if (!m || cLen(m) != moduleLen)
            continue;
        bool same = true;
        for (std::size_t k = 0; k < moduleLen && same; ++k)
            same = m[k] == module[k];
        if (!same)
            continue;
        if (!g_vars[i].member) {
            writeVar(s, g_vars[i]);
        } else if (self) {
            VarRef v = g_vars[i];
            v.ptr = static_cast<const char*>(self) + reinterpret_cast<std::uintptr_t>(v.ptr);
            writeVar(s, v);
        }
    }
}

template void writeGlobals<FixedSink>(FixedSink&);
template void writeGlobals<StringSink>(StringSink&);
template void writeModuleVars<FixedSink>(FixedSink&, const char*, std::size_t, const void*);
template void writeModuleVars<StringSink>(StringSink&, const char*, std::size_t, const void*);

} // namespace argent::diag

QString DumpGlobals() {
    argent::diag::StringSink s;
    argent::diag::writeGlobals(s);
    return QString::fromStdString(s.str());
}
