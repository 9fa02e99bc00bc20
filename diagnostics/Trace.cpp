#include "diagnostics/Trace.h"

#include "diagnostics/ErrorTrap.h"
#include "diagnostics/FormatVariable.h"

#include <algorithm>
#include <cstring>
#include <string_view>

namespace argent::diag {

FrameStack* makeFrameStack() {
    static thread_local FrameStack st;
    t_frameStack = &st;
    return &st;
}

void clearFrame(Frame& f) {
    if (f.ownsText) {
        for (int i = 0; i < f.paramCount; ++i)
            f.params[i].s = QString();
        f.ownsText = false;
    }
    f.paramCount = 0;
    f.localCount = 0;
    if (f.dynamic) {
        f.dynName = QString();
        f.preText = QString();
        f.dynamic = false;
    }
}

void leaveFrameSlow(int depth) {
    // The innermost frame that an exception leaves keeps the picture of the failure,
    // unless the code that raised it has already taken one.
    if (std::uncaught_exceptions() > 0 && !snapshotPending())
        takeSnapshot(false);
    FrameStack& st = frameStack();
    while (st.depth >= depth) {
        clearFrame(st.frames[st.depth - 1]);
        --st.depth;
    }
}

namespace {
// A list as a one-dimensional array from index 0.
template <class Sink> void putLines(Sink& s, const char* name, std::size_t n, const QStringList& lines) {
    put(s, "\r\n");
    const qsizetype shown = std::min(lines.size(), kReportItemsMax);
    for (qsizetype k = 0; k < shown; ++k) {
        putSpaces(s, 2);
        put(s, "<");
        put(s, name, n);
        put(s, " Index=\"");
        putInt(s, k);
        put(s, "\">");
        putValue(s, lines[k]);
        closeTag(s, name, n);
    }
    if (shown < lines.size()) {
        putSpaces(s, 2);
        putCutMark(s, lines.size(), " elements");
        put(s, "\r\n");
    }
}

// Name of a parameter as written: HIDDEN(x) reaches us expanded, shown as x.
std::string_view paramName(const char* raw) {
    std::string_view n(raw, cLen(raw));
    const std::size_t open = n.find('(');
    if (open != std::string_view::npos && !n.empty() && n.back() == ')')
        n = n.substr(open + 1, n.size() - open - 2);
    while (!n.empty() && n.front() == ' ')
        n.remove_prefix(1);
    while (!n.empty() && n.back() == ' ')
        n.remove_suffix(1);
    return n;
}
} // namespace

template <class Sink> void writeFrameParams(Sink& s, const Frame& f) {
    if (f.dynamic) {
        // Several values formatted already: each may be as long as a value may be.
        const qsizetype most = kReportValueMax * kMaxTraceParams;
        putUtf16(s, reinterpret_cast<const char16_t*>(f.preText.constData()),
                 std::min(f.preText.size(), most), false);
        if (f.preText.size() > most)
            putCutMark(s, f.preText.size(), " characters");
        return;
    }
    for (int i = 0; i < f.paramCount; ++i) {
        std::string_view n = paramName(f.paramNames[i]);
        const TraceValue& v = f.params[i];
        openTag(s, n.data(), n.size(), 0);
        switch (v.kind) {
        case TraceValue::Int:
            putInt(s, v.i);
            break;
        case TraceValue::Double:
            putDouble(s, v.d);
            break;
        case TraceValue::Bool:
            putBool(s, v.i != 0);
            break;
        case TraceValue::Str:
            putValue(s, v.s);
            break;
        case TraceValue::StrRef:
            putValue(s, *v.ref);
            break;
        case TraceValue::Fixed:
            put(s, v.fixed);
            break;
        case TraceValue::Hidden:
            put(s, "{Hidden}");
            break;
        case TraceValue::Lines:
            putLines(s, n.data(), n.size(), *v.lines);
            break;
        case TraceValue::None:
            put(s, "{Empty}");
            break;
        }
        closeTag(s, n.data(), n.size());
    }
}

namespace {
template <class T> T readAs(const void* p) {
    T v;
    std::memcpy(&v, p, sizeof v);
    return v;
}
} // namespace

template <class Sink> void writeFrameLocals(Sink& s, const Frame& f) {
    for (int i = 0; i < f.localCount; ++i) {
        const TraceLocal& l = f.locals[i];
        const std::size_t n = cLen(l.name);
        openTag(s, l.name, n, 0);
        switch (l.kind) {
        case TraceLocal::Int:
            putInt(s, readAs<int>(l.ptr));
            break;
        case TraceLocal::UInt:
            putInt(s, readAs<unsigned int>(l.ptr));
            break;
        case TraceLocal::Short:
            putInt(s, readAs<short>(l.ptr));
            break;
        case TraceLocal::LongLong:
            putInt(s, readAs<long long>(l.ptr));
            break;
        case TraceLocal::ULongLong:
            putInt(s, static_cast<long long>(readAs<unsigned long long>(l.ptr)));
            break;
        case TraceLocal::Double:
            putDouble(s, readAs<double>(l.ptr));
            break;
        case TraceLocal::Bool:
            putBool(s, readAs<bool>(l.ptr));
            break;
        case TraceLocal::Str:
            putValue(s, *static_cast<const QString*>(l.ptr));
            break;
        case TraceLocal::Lines:
            putLines(s, l.name, n, *static_cast<const QStringList*>(l.ptr));
            break;
        case TraceLocal::Hidden:
            put(s, "{Hidden}");
            break;
        }
        closeTag(s, l.name, n);
    }
}

template <class Sink> void writeFrameText(Sink& s, const Frame& f) {
    put(s, "Name: ");
    if (f.dynamic)
        putUtf16(s, reinterpret_cast<const char16_t*>(f.dynName.constData()),
                 std::min(f.dynName.size(), kReportValueMax), false);
    else
        put(s, f.name);
    put(s, ", Type: ");
    putInt(s, f.kind);
    put(s, ", Parameters: ");
    writeFrameParams(s, f);
    put(s, ";-->");
}

template void writeFrameText<FixedSink>(FixedSink&, const Frame&);
template void writeFrameText<StringSink>(StringSink&, const Frame&);
template void writeFrameParams<FixedSink>(FixedSink&, const Frame&);
template void writeFrameParams<StringSink>(StringSink&, const Frame&);
template void writeFrameLocals<FixedSink>(FixedSink&, const Frame&);
template void writeFrameLocals<StringSink>(StringSink&, const Frame&);

} // namespace argent::diag

using namespace argent::diag;

int FStackCount() {
    return frameStack().depth;
}

QString FStackText(int i) {
    FrameStack& st = frameStack();
    if (i < 1 || i > st.depth)
        return QString();
    StringSink s;
    writeFrameText(s, st.frames[i - 1]);
    return QString::fromStdString(s.str());
}

void EnterFrame(const QString& ProcName, int Kind, const QString& ParamText) {
    Frame& f = frameStack().push();
    f.name = nullptr;
    f.kind = Kind;
    f.paramCount = 0;
    f.localCount = 0;
    f.self = nullptr;
    f.dynamic = true;
    f.dynName = ProcName;
    f.preText = ParamText;
}

void LeaveFrame() {
    FrameStack& st = frameStack();
    if (st.depth <= 0)
        return;
    clearFrame(st.frames[st.depth - 1]);
    --st.depth;
}

QString GetStackTrace() {
    FrameStack& st = frameStack();
    if (st.depth == 0)
        return QStringLiteral("Empty Stack");
    StringSink s;
    for (int i = 0; i < st.depth; ++i) {
        writeFrameText(s, st.frames[i]);
        put(s, "\r\n");
    }
    return QString::fromStdString(s.str());
}
