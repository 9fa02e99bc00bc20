#pragma once

// Tells the main window when the desktop locks the screen or the machine is about to
// sleep, so that the password manager locks itself too. Listens on D-Bus to the
// freedesktop screen saver (session bus) and to login1 (system bus); where neither is
// there, it stays silent.

#include <QObject>

class SessionWatch : public QObject {
    Q_OBJECT
public:
    explicit SessionWatch(QObject* parent = nullptr);

signals:
    void lockRequested();

private slots:
    void screenSaverActiveChanged(bool active);
    void prepareForSleep(bool start);
    void sessionLock();
};
