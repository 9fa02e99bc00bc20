#include "app/MsgBox.h"

#include "diagnostics/Trace.h"

#include <cstdio>

namespace {
MsgBoxHandler& handler() {
    static MsgBoxHandler h;
    return h;
}
} // namespace

int MsgBox(const QString& Prompt, int Style, const QString& Title) {
    TRACE_PROC("modMain.MsgBox", Prompt, Style, Title);
    if (handler())
        return handler()(Prompt, Style, Title);
    // No interface: say it on standard error and take the default answer.
    std::fprintf(stderr, "%s\n", Prompt.toLocal8Bit().constData());
    const int buttons = Style & 7;
    return buttons == vbYesNo ? vbYes : vbOK;
}

MsgBoxHandler SetMsgBoxHandler(MsgBoxHandler Handler) {
    MsgBoxHandler old = std::move(handler());
    handler() = std::move(Handler);
    return old;
}
