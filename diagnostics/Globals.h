#pragma once

// The program's global and module variables, registered by their owners so that an
// error report can show their values. Secrets are registered as hidden: only their
// names appear, with the content "{Hidden}".

#include "diagnostics/TraceSink.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <cstdint>

namespace argent::diag {

struct VarRef {
    enum Kind : std::uint8_t { Int, LongLong, Double, Bool, Str, Mass, Bytes, Hidden, Fixed, Count, Items };
    const char* module = nullptr; // nullptr for program-wide globals
    const char* name = nullptr;
    Kind kind = Fixed;
    const void* ptr = nullptr;
    const char* fixed = nullptr;     // Fixed: the content text, e.g. "{POINTAPI}"
    int byteLBound = 0;              // Bytes: index of the first element
    const int* massLBound = nullptr; // Mass: index of the first string (it may change)
    // A member of the object a procedure runs on: ptr is the offset from that object.
    bool member = false;
    const void* owner = nullptr; // registered by this object; dropped with it
    // Count: a number the owner computes; Items: a collection shown as [1], [2], ...
    // Both must be plain reads (the crash handler calls them).
    long long (*count)(const void* p) = nullptr;
    const QString* (*item)(const void* p, long long i) = nullptr;
};

void registerVar(const VarRef& v);
void registerGlobal(const char* name, const int* p);
void registerGlobal(const char* name, const long long* p);
void registerGlobal(const char* name, const double* p);
void registerGlobal(const char* name, const bool* p);
void registerGlobal(const char* name, const QString* p);
// A string array whose first element has the index *LBound (the settings).
void registerGlobalMass(const char* name, const int* LBound, const QStringList* Items);
void registerGlobalBytes(const char* name, const QByteArray* p);
void registerGlobalHidden(const char* name);
void registerGlobalFixed(const char* name, const char* content);
void registerModuleVar(const char* module, const char* name, const QString* p);
void registerModuleVar(const char* module, const char* name, const int* p);
void registerModuleVar(const char* module, const char* name, const bool* p);
void registerModuleHidden(const char* module, const char* name);
void registerModuleVar(const char* module, const char* name, const long long* p);
// Variables of one object that lives for a while (a form): registered with their owner,
// and dropped by dropVars(owner) when it goes.
void registerOwned(const void* owner, const char* module, const char* name, const QString* p);
void registerOwned(const void* owner, const char* module, const char* name, const int* p);
void registerOwned(const void* owner, const char* module, const char* name, const bool* p);
void registerOwnedCount(const void* owner, const char* module, const char* name, const void* p,
                        long long (*count)(const void*));
void registerOwnedItems(const void* owner, const char* module, const char* name, const void* p,
                        long long (*count)(const void*), const QString* (*item)(const void*, long long));
void dropVars(const void* owner);
// Members of a class with many objects: shown for the object of the failing procedure
// (TRACE_SELF). Register them once, from any object.
void registerMember(const char* module, const char* name, const void* self, const QString* member);
void registerMember(const char* module, const char* name, const void* self, const int* member);
void registerMember(const char* module, const char* name, const void* self, const bool* member);
void registerMemberCount(const char* module, const char* name, const void* self, const void* member,
                         long long (*count)(const void*));
void registerMemberItems(const char* module, const char* name, const void* self, const void* member,
                         long long (*count)(const void*), const QString* (*item)(const void*, long long));

// Writers used by both the normal and the crash path.
template <class Sink> void writeGlobals(Sink& s);
template <class Sink>
void writeModuleVars(Sink& s, const char* module, std::size_t moduleLen, const void* self = nullptr);

} // namespace argent::diag

// Formatted text of every registered program-wide variable.
QString DumpGlobals();
