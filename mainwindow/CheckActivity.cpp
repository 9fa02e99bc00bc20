#include "mainwindow/CheckActivity.h"

#include "app/ProgConfig.h"
#include "app/VbConv.h"
#include "app/modTimer.h"
#include "diagnostics/ErrorTrap.h"
#include "diagnostics/Globals.h"
#include "diagnostics/Trace.h"

#include <algorithm>
#include <cmath>

QPoint LastCursorPos;
KeyboardBytes LastKbdState{};
int LastActive = 0;
quint64 LastInputEvents = 0;

namespace {
double (*g_clock)() = GetQueryPerf;
const bool g_registered = [] {
    argent::diag::registerGlobalFixed("LastKbdState", "{KeyboardBytes}");
    argent::diag::registerGlobalFixed("LastCursorPos", "{POINTAPI}");
    argent::diag::registerGlobal("LastActive", &LastActive);
    return true;
}();

int nowRounded() {
    return CLng(std::nearbyint(g_clock()));
}
} // namespace

void SetActivityClock(double (*Clock)()) {
    g_clock = Clock ? Clock : GetQueryPerf;
}

double ActivityClock() {
    return g_clock();
}

int CheckActivity(IActivitySource& Source) {
    TRACE_PROC("modMain.CheckActivity");
    const QPoint pos = Source.CursorPos();
    if (pos.x() != LastCursorPos.x() || pos.y() != LastCursorPos.y()) {
        LastActive = nowRounded();
        LastCursorPos = pos;
        return actMouse;
    }
    int result = actNone;
    const KeyboardBytes state = Source.KeyboardState();
    for (int i = 0; i < 256; ++i) {
        if (state[i] != LastKbdState[i]) {
            LastKbdState[i] = state[i];
            result = actKeyboard;
            LastActive = nowRounded();
        }
    }
    // A key pressed and released between two tests leaves the table as it was; the
    // event count still tells, and the time is the event's own.
    const quint64 events = Source.InputEvents();
    if (events != LastInputEvents) {
        LastInputEvents = events;
        result = actKeyboard;
        LastActive = std::max(LastActive, CLng(std::nearbyint(Source.LastInputTime())));
    }
    if (result != actKeyboard) {
        const double elapsed = g_clock() - LastActive;
        // The minutes as typed in the options; a text that is no number counts as 0.
        const long long limit = static_cast<long long>(CLng(Val(ProgConfig[kCfgInactivityLock]))) * 60;
        if (limit > 2147483647LL || limit < -2147483648LL)
            RaiseError(vbErrOverflow);
        if (elapsed > static_cast<double>(limit))
            result = actIdle;
    }
    return result;
}
