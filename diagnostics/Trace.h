#pragma once

// Trace frames: every procedure pushes a frame on entry and pops it on exit, so that
// an error report can show the call stack with the parameters of each call.
//
//   void DoAutobackup(const QString& pUser, int pCount) {
//       TRACE_PROC("modMain.DoAutobackup", pUser, pCount);
//       ...
//   }
//
// TRACE_PROP is the same for property-like accessors (frame kind 2). Wrap a parameter
// that holds a password or key in HIDDEN(...): its value never reaches a report.
// Scalars are copied at entry; strings and lists are referred to, not copied (they live
// as long as the call does), so a report shows them as they are when it is built.
// TRACE_LOCAL(x) shows a local variable as it is at the failure; make it a habit for
// loop indexes, computed paths, counts and parsed values.
// No text is built until a report or stack trace is asked for.

#include "diagnostics/TraceSink.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <array>
#include <cstdint>
#include <exception>
#include <type_traits>
#include <vector>

namespace argent::diag {

// One captured value: a scalar, a string, or a fixed content text.
struct TraceValue {
    enum Kind : std::uint8_t { None, Int, Double, Bool, Str, StrRef, Fixed, Hidden, Lines };
    Kind kind = None;
    union {
        long long i;
        double d;
        const char* fixed;
        const QString* ref;       // StrRef
        const QStringList* lines; // Lines (formatted as a one-dimensional array from 0)
    };
    QString s; // Str: text converted from another string type
    TraceValue() : i(0) {}
};

struct HiddenArg {};
template <class T> HiddenArg hideValue(const T&) {
    return {};
}

// Strings and lists that are variables of the call are referred to; a temporary one (an
// expression written into the macro) is copied, since it ends before the call does.
template <class T> void captureValue(TraceValue& v, T&& x) {
    using U = std::decay_t<T>;
    constexpr bool temporary = !std::is_lvalue_reference_v<T>;
    if constexpr (std::is_same_v<U, bool>) {
        v.kind = TraceValue::Bool;
        v.i = x ? 1 : 0;
    } else if constexpr (std::is_enum_v<U>) {
        v.kind = TraceValue::Int;
        v.i = static_cast<long long>(x);
    } else if constexpr (std::is_integral_v<U>) {
        v.kind = TraceValue::Int;
        v.i = static_cast<long long>(x);
    } else if constexpr (std::is_floating_point_v<U>) {
        v.kind = TraceValue::Double;
        v.d = static_cast<double>(x);
    } else if constexpr (std::is_same_v<U, QString> && temporary) {
        v.kind = TraceValue::Str;
        v.s = x;
    } else if constexpr (std::is_same_v<U, QString>) {
        v.kind = TraceValue::StrRef;
        v.ref = &x;
    } else if constexpr (std::is_same_v<U, QStringList> && temporary) {
        v.kind = TraceValue::Str;
        v.s = x.join(QStringLiteral(", "));
    } else if constexpr (std::is_same_v<U, QStringList>) {
        v.kind = TraceValue::Lines;
        v.lines = &x;
    } else if constexpr (std::is_same_v<U, QByteArray>) {
        v.kind = TraceValue::Str;
        v.s = QString::fromUtf8(x);
    } else if constexpr (std::is_same_v<U, const char*> || std::is_same_v<U, char*>) {
        v.kind = TraceValue::Str;
        v.s = QString::fromUtf8(x);
    } else if constexpr (std::is_same_v<U, HiddenArg>) {
        v.kind = TraceValue::Hidden;
    } else if constexpr (std::is_pointer_v<U>) {
        v.kind = TraceValue::Fixed;
        v.fixed = x ? "{Object}" : "{Nothing}";
    } else {
        v.kind = TraceValue::Fixed;
        v.fixed = "{Can't dump UDT parameters}";
    }
}

constexpr int kMaxTraceParams = 8;
constexpr int kMaxTraceLocals = 8;

struct TraceLocal {
    const char* name = nullptr;
    enum Kind : std::uint8_t {
        Int,
        UInt,
        Short,
        LongLong,
        ULongLong,
        Double,
        Bool,
        Str,
        Lines,
        Hidden
    } kind = Int;
    const void* ptr = nullptr;
};

template <class T> constexpr TraceLocal::Kind localKind() {
    using U = std::remove_cv_t<T>;
    if constexpr (std::is_same_v<U, bool>)
        return TraceLocal::Bool;
    else if constexpr (std::is_enum_v<U>)
        return localKind<std::underlying_type_t<U>>();
    else if constexpr (std::is_integral_v<U> && sizeof(U) == sizeof(long long))
        return std::is_signed_v<U> ? TraceLocal::LongLong : TraceLocal::ULongLong;
    else if constexpr (std::is_integral_v<U> && sizeof(U) == sizeof(int))
        return std::is_signed_v<U> ? TraceLocal::Int : TraceLocal::UInt;
    else if constexpr (std::is_same_v<U, short>)
        return TraceLocal::Short;
    else if constexpr (std::is_same_v<U, double>)
        return TraceLocal::Double;
    else if constexpr (std::is_same_v<U, QStringList>)
        return TraceLocal::Lines;
    else {
        static_assert(std::is_same_v<U, QString>,
                      "locals: integers, enums, double, bool, QString or QStringList");
        return TraceLocal::Str;
    }
}

struct Frame {
    const char* name = nullptr; // "module.procedure"; static text
    int kind = 1;               // 1 procedure, 2 property
    int paramCount = 0;
    int localCount = 0;
    const void* self = nullptr; // the object of a member procedure, for its module variables
    std::array<const char*, kMaxTraceParams> paramNames{};
    std::array<TraceValue, kMaxTraceParams> params;
    std::array<TraceLocal, kMaxTraceLocals> locals{};
    QString dynName; // name and parameter text of frames pushed with EnterFrame
    QString preText;
    bool dynamic = false;
    bool ownsText = false; // holds converted strings that must be released on exit
};

// The frames of the current thread; index 0 is the outermost call.
struct FrameStack {
    std::vector<Frame> frames;
    int depth = 0;
    FrameStack() { frames.resize(256); }
    Frame& push() {
        if (depth == static_cast<int>(frames.size()))
            frames.resize(frames.size() * 2);
        return frames[depth++];
    }
};

FrameStack* makeFrameStack();
inline thread_local FrameStack* t_frameStack = nullptr;
inline FrameStack& frameStack() {
    FrameStack* st = t_frameStack;
    return st ? *st : *makeFrameStack();
}

void clearFrame(Frame& f);
// Exit of a frame while an exception unwinds, or of a frame that owns text.
void leaveFrameSlow(int depth);

// The scope guard behind TRACE_PROC / TRACE_PROP.
class FrameGuard {
public:
    template <class... Args>
    [[gnu::always_inline]] FrameGuard(const char* name, int kind, [[maybe_unused]] const char* const* names,
                                      Args&&... args) {
        FrameStack& st = frameStack();
        Frame& f = st.push();
        f.name = name;
        f.kind = kind;
        f.paramCount = 0;
        f.localCount = 0;
        f.self = nullptr;
        (capture(f, names, std::forward<Args>(args)), ...);
        m_st = &st;
        m_depth = st.depth;
    }
    ~FrameGuard() {
        FrameStack& st = *m_st;
        if (st.depth == m_depth && !st.frames[m_depth - 1].ownsText && std::uncaught_exceptions() == 0)
            st.depth = m_depth - 1;
        else
            leaveFrameSlow(m_depth);
    }
    FrameGuard(const FrameGuard&) = delete;
    FrameGuard& operator=(const FrameGuard&) = delete;

    // Registers a local variable; answers its slot, or -1 when the frame is full.
    [[gnu::always_inline]] int local(const char* name, const void* var, TraceLocal::Kind kind) {
        Frame& f = m_st->frames[m_depth - 1];
        const int slot = f.localCount;
        if (slot >= kMaxTraceLocals)
            return -1;
        TraceLocal& l = f.locals[slot];
        l.name = name;
        l.ptr = var;
        l.kind = kind;
        f.localCount = slot + 1;
        return slot;
    }
    // Drops the locals from slot on (their scope has ended).
    void dropLocals(int slot) { m_st->frames[m_depth - 1].localCount = slot; }
    void setSelf(const void* self) { m_st->frames[m_depth - 1].self = self; }

private:
    template <class T> [[gnu::always_inline]] void capture(Frame& f, const char* const* names, T&& x) {
        if (f.paramCount >= kMaxTraceParams)
            return;
        f.paramNames[f.paramCount] = names[f.paramCount];
        TraceValue& v = f.params[f.paramCount];
        captureValue(v, std::forward<T>(x));
        if (v.kind == TraceValue::Str)
            f.ownsText = true;
        ++f.paramCount;
    }
    FrameStack* m_st;
    int m_depth;
};

// Keeps a local registered for as long as it lives: the registration ends with the
// scope that declared it, so a report never reads a variable that is gone.
class LocalGuard {
public:
    LocalGuard(FrameGuard& frame, const char* name, const void* var, TraceLocal::Kind kind)
        : m_frame(frame), m_slot(frame.local(name, var, kind)) {}
    ~LocalGuard() {
        if (m_slot >= 0)
            m_frame.dropLocals(m_slot);
    }
    LocalGuard(const LocalGuard&) = delete;
    LocalGuard& operator=(const LocalGuard&) = delete;

private:
    FrameGuard& m_frame;
    int m_slot;
};

// Frame text as the stack trace shows it: "Name: m.p, Type: 1, Parameters: ...;-->"
template <class Sink> void writeFrameText(Sink& s, const Frame& f);
template <class Sink> void writeFrameParams(Sink& s, const Frame& f);
template <class Sink> void writeFrameLocals(Sink& s, const Frame& f);

} // namespace argent::diag

// ---- the stack as the rest of the program sees it --------------------------------------

// Number of frames on the stack (the text of frame i, 1 = outermost, is FStackText(i)).
int FStackCount();
QString FStackText(int i);
// Pushes a frame whose parameter text is already formatted.
void EnterFrame(const QString& ProcName, int Kind, const QString& ParamText);
void LeaveFrame();
QString GetStackTrace();

// ---- macros -----------------------------------------------------------------------------

#define ARGENT_TR_CAT_(a, b) a##b
#define ARGENT_TR_CAT(a, b) ARGENT_TR_CAT_(a, b)
#define ARGENT_TR_N_(_1, _2, _3, _4, _5, _6, _7, _8, N, ...) N
#define ARGENT_TR_N(...) ARGENT_TR_N_(__VA_ARGS__, 8, 7, 6, 5, 4, 3, 2, 1, 0)
#define ARGENT_TR_S1(a) #a
#define ARGENT_TR_S2(a, ...) #a, ARGENT_TR_S1(__VA_ARGS__)
#define ARGENT_TR_S3(a, ...) #a, ARGENT_TR_S2(__VA_ARGS__)
#define ARGENT_TR_S4(a, ...) #a, ARGENT_TR_S3(__VA_ARGS__)
#define ARGENT_TR_S5(a, ...) #a, ARGENT_TR_S4(__VA_ARGS__)
#define ARGENT_TR_S6(a, ...) #a, ARGENT_TR_S5(__VA_ARGS__)
#define ARGENT_TR_S7(a, ...) #a, ARGENT_TR_S6(__VA_ARGS__)
#define ARGENT_TR_S8(a, ...) #a, ARGENT_TR_S7(__VA_ARGS__)
#define ARGENT_TR_NAMES(...) ARGENT_TR_CAT(ARGENT_TR_S, ARGENT_TR_N(__VA_ARGS__))(__VA_ARGS__)

#define ARGENT_TRACE_(kind, name, ...)                                                                       \
    static constexpr const char* argentTraceNames_[] = {"" __VA_OPT__(, ARGENT_TR_NAMES(__VA_ARGS__))};      \
    ::argent::diag::FrameGuard argentFrame_(name, kind, argentTraceNames_ + 1 __VA_OPT__(, __VA_ARGS__))

#define TRACE_PROC(name, ...) ARGENT_TRACE_(1, name __VA_OPT__(, __VA_ARGS__))
#define TRACE_PROP(name, ...) ARGENT_TRACE_(2, name __VA_OPT__(, __VA_ARGS__))
// A parameter whose value must never appear in a report.
#define HIDDEN(x) ::argent::diag::hideValue(x)
// Registers a local variable of the current procedure for the report, until its scope
// ends. Declare it right after the variable; secrets go through TRACE_LOCAL_HIDDEN.
#define TRACE_LOCAL(var)                                                                                     \
    ::argent::diag::LocalGuard ARGENT_TR_CAT(argentLocal_, __LINE__)(                                        \
        argentFrame_, #var, &(var), ::argent::diag::localKind<std::remove_reference_t<decltype(var)>>())
#define TRACE_LOCAL_HIDDEN(var)                                                                              \
    ::argent::diag::LocalGuard ARGENT_TR_CAT(argentLocal_, __LINE__)(argentFrame_, #var, nullptr,            \
                                                                     ::argent::diag::TraceLocal::Hidden)
// A member procedure names its object, so that a report shows the object's variables.
#define TRACE_SELF() argentFrame_.setSelf(this)
