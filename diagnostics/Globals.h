#pragma once

// The program's global and module variables, registered by their owners so that an
// error report can show their values. Secrets are registered as hidden: only their
// names appear, with the content "{Hidden}".

#include "diagnostics/TraceSink.h"

#include <QByteArray>
#include <QString>

#include <cstdint>

struct StrMass;

namespace argent::diag {

struct VarRef {
    enum Kind : std::uint8_t { Int, LongLong, Double, Bool, Str, Mass, Bytes, Hidden, Fixed };
    const char* module = nullptr; // nullptr for program-wide globals
    const char* name = nullptr;
    Kind kind = Fixed;
    const void* ptr = nullptr;
    const char* fixed = nullptr; // Fixed: the content text, e.g. "{POINTAPI}"
    int byteLBound = 0;          // Bytes: index of the first element
};

void registerVar(const VarRef& v);
void registerGlobal(const char* name, const int* p);
void registerGlobal(const char* name, const long long* p);
void registerGlobal(const char* name, const double* p);
void registerGlobal(const char* name, const bool* p);
void registerGlobal(const char* name, const QString* p);
void registerGlobal(const char* name, const StrMass* p);
void registerGlobalBytes(const char* name, const QByteArray* p);
void registerGlobalHidden(const char* name);
void registerGlobalFixed(const char* name, const char* content);
void registerModuleVar(const char* module, const char* name, const QString* p);
void registerModuleVar(const char* module, const char* name, const int* p);
void registerModuleVar(const char* module, const char* name, const bool* p);
void registerModuleHidden(const char* module, const char* name);

// Writers used by both the normal and the crash path.
template <class Sink> void writeGlobals(Sink& s);
template <class Sink> void writeModuleVars(Sink& s, const char* module, std::size_t moduleLen);

} // namespace argent::diag

// Formatted text of every registered program-wide variable.
QString DumpGlobals();
