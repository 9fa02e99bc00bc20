#include "mainwindow/guiSessionWatch.h"

#include "diagnostics/Trace.h"

#include <QDBusConnection>

SessionWatch::SessionWatch(QObject* parent) : QObject(parent) {
    TRACE_PROC("frmMain.SessionWatch");
    QDBusConnection session = QDBusConnection::sessionBus();
    if (session.isConnected()) {
        for (const char* service : {"org.freedesktop.ScreenSaver", "org.gnome.ScreenSaver"})
            session.connect(QString(), QString(), QString::fromLatin1(service),
                            QStringLiteral("ActiveChanged"), this, SLOT(screenSaverActiveChanged(bool)));
    }
    QDBusConnection system = QDBusConnection::systemBus();
    if (system.isConnected()) {
        system.connect(QStringLiteral("org.freedesktop.login1"), QStringLiteral("/org/freedesktop/login1"),
                       QStringLiteral("org.freedesktop.login1.Manager"), QStringLiteral("PrepareForSleep"),
                       this, SLOT(prepareForSleep(bool)));
        // Lock of our own session only: other users may share the machine.
        const QString id = qEnvironmentVariable("XDG_SESSION_ID");
        if (!id.isEmpty()) {
            QString escaped;
            for (qsizetype i = 0; i < id.size(); ++i) {
                const QChar c = id[i];
                const bool plain = c.unicode() < 128 && (c.isLetter() || (c.isDigit() && i > 0));
                escaped += plain ? QString(c) : QStringLiteral("_%1").arg(c.unicode(), 2, 16, QChar(u'0'));
            }
            system.connect(QStringLiteral("org.freedesktop.login1"),
                           QStringLiteral("/org/freedesktop/login1/session/") + escaped,
                           QStringLiteral("org.freedesktop.login1.Session"), QStringLiteral("Lock"), this,
                           SLOT(sessionLock()));
        }
    }
}

void SessionWatch::screenSaverActiveChanged(bool active) {
    TRACE_PROC("frmMain.ScreenSaverActiveChanged", active);
    if (active)
        emit lockRequested();
}

void SessionWatch::prepareForSleep(bool start) {
    TRACE_PROC("frmMain.PrepareForSleep", start);
    if (start)
        emit lockRequested();
}

void SessionWatch::sessionLock() {
    TRACE_PROC("frmMain.SessionLock");
    emit lockRequested();
}
