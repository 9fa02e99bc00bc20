#pragma once

// The desktop's side of the inactivity test: the global cursor position, and a key
// state table kept up to date by an application-wide event filter (keys and mouse
// buttons down or up, lock keys toggled).

#include "mainwindow/CheckActivity.h"

#include <QObject>

class GuiActivitySource : public QObject, public IActivitySource {
public:
    GuiActivitySource();
    QPoint CursorPos() override;
    KeyboardBytes KeyboardState() override { return m_keys; }

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    KeyboardBytes m_keys{};
};
