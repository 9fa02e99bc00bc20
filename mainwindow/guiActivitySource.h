#pragma once

// The desktop's side of the inactivity test: the global cursor position, and a key
// state table kept up to date by an application-wide event filter (keys and mouse
// buttons down or up, lock keys toggled), which also counts every key, button and wheel
// event with the time it happened.

#include "mainwindow/CheckActivity.h"

#include <QObject>

class GuiActivitySource : public QObject, public IActivitySource {
public:
    GuiActivitySource();
    QPoint CursorPos() override;
    KeyboardBytes KeyboardState() override { return m_keys; }
    quint64 InputEvents() override { return m_events; }
    double LastInputTime() override { return m_lastTime; }

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    KeyboardBytes m_keys{};
    quint64 m_events = 0;
    double m_lastTime = 0;
};
