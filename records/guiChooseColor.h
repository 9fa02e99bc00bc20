#pragma once

class QWidget;

// The colour dialog, starting at InitCol (0x00BBGGRR). Returns the chosen colour, or -1
// when the user cancels. The sixteen custom colours live in CustomColors for the run.
int ShowChooseColor(QWidget* hwnd, int InitCol);

// Colours as the database stores them (0x00BBGGRR) and as the screen shows them.
#include <QColor>
inline QColor ColorFromRef(int c) {
    return QColor(c & 0xFF, (c >> 8) & 0xFF, (c >> 16) & 0xFF);
}
inline int ColorToRef(const QColor& c) {
    return c.red() | (c.green() << 8) | (c.blue() << 16);
}
