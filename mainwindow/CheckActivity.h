#pragma once

// The inactivity test behind the lock: has the mouse moved or the keyboard state
// changed since the last test, and if not, has the limit of settings entry 11 passed?

#include <QPoint>
#include <QtGlobal>

#include <array>
#include <cstdint>

using KeyboardBytes = std::array<std::uint8_t, 256>;

// Where the cursor is and the state of every key (high bit down, low bit toggled).
class IActivitySource {
public:
    virtual ~IActivitySource() = default;
    virtual QPoint CursorPos() = 0;
    virtual KeyboardBytes KeyboardState() = 0;
    // Every key and mouse event counted as it happens, and the activity clock's time of
    // the last one, so that a tap between two tests still counts. A source that does
    // not see events keeps 0.
    virtual quint64 InputEvents() { return 0; }
    virtual double LastInputTime() { return 0; }
};

extern QPoint LastCursorPos;
extern KeyboardBytes LastKbdState;
extern int LastActive;          // whole seconds of GetQueryPerf at the last activity
extern quint64 LastInputEvents; // the source's event count seen at the last test

enum ActivityResult { actNone = 0, actMouse = 1, actKeyboard = 2, actIdle = 3 };

// 1 the cursor moved (the keyboard is then not read), 2 the keyboard state changed or a
// key or button was used since the last test, 3 nothing changed and the idle time
// exceeds entry 11 minutes, else 0.
int CheckActivity(IActivitySource& Source);
// The clock the test reads; tests replace it to simulate idle time.
void SetActivityClock(double (*Clock)());
double ActivityClock();
