#include "mainwindow/guiActivitySource.h"

#include <QCoreApplication>
#include <QCursor>
#include <QKeyEvent>
#include <QMouseEvent>

namespace {
// Slots of the table for the mouse buttons, as the classic key codes number them.
int buttonSlot(Qt::MouseButton b) {
    switch (b) {
    case Qt::LeftButton:
        return 1;
    case Qt::RightButton:
        return 2;
    case Qt::MiddleButton:
        return 4;
    default:
        return 5;
    }
}

int keySlot(const QKeyEvent* e) {
    const quint32 scan = e->nativeScanCode();
    return static_cast<int>((scan ? scan : static_cast<quint32>(e->key())) & 0xFF);
}

bool isLockKey(int key) {
    return key == Qt::Key_CapsLock || key == Qt::Key_NumLock || key == Qt::Key_ScrollLock;
}
} // namespace

GuiActivitySource::GuiActivitySource() {
    QCoreApplication::instance()->installEventFilter(this);
}

QPoint GuiActivitySource::CursorPos() {
    return QCursor::pos();
}

bool GuiActivitySource::eventFilter(QObject* watched, QEvent* event) {
    switch (event->type()) {
    case QEvent::KeyPress:
    case QEvent::KeyRelease:
    case QEvent::MouseButtonPress:
    case QEvent::MouseButtonRelease:
    case QEvent::MouseButtonDblClick:
    case QEvent::Wheel:
    case QEvent::TouchBegin:
        // One event reaches the filter once per receiver on its way up; counting it
        // more than once does no harm.
        ++m_events;
        m_lastTime = ActivityClock();
        break;
    default:
        break;
    }
    switch (event->type()) {
    case QEvent::KeyPress:
    case QEvent::KeyRelease: {
        auto* k = static_cast<QKeyEvent*>(event);
        if (k->isAutoRepeat())
            break;
        std::uint8_t& b = m_keys[static_cast<std::size_t>(keySlot(k))];
        if (event->type() == QEvent::KeyPress) {
            b |= 0x80;
            if (isLockKey(k->key()))
                b ^= 0x01;
        } else {
            b &= 0x7F;
        }
        break;
    }
    case QEvent::MouseButtonPress:
    case QEvent::MouseButtonRelease: {
        auto* m = static_cast<QMouseEvent*>(event);
        std::uint8_t& b = m_keys[static_cast<std::size_t>(buttonSlot(m->button()))];
        b = event->type() == QEvent::MouseButtonPress ? (b | 0x80) : (b & 0x7F);
        break;
    }
    default:
        break;
    }
    return QObject::eventFilter(watched, event);
}
