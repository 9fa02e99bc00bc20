#include "options/AutorunManagement.h"

#include "app/modMain.h"
#include "diagnostics/Trace.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

QString AutorunEntryPath() {
    QString config = qEnvironmentVariable("XDG_CONFIG_HOME");
    if (config.isEmpty())
        config = QDir::homePath() + QStringLiteral("/.config");
    return Pt(config) + QStringLiteral("autostart/ArgentPasswordMngr.desktop");
}

void AutorunManagement(bool Autorun) {
    TRACE_PROC("modMain.AutorunManagement", Autorun);
    const QString path = AutorunEntryPath();
    TRACE_LOCAL(path);
    if (!Autorun) {
        QFile::remove(path);
        return;
    }
    QString exec = Pt(AppPath()) + QStringLiteral("ArgentPasswordMngr");
    TRACE_LOCAL(exec);
    // The desktop entry format quotes arguments that hold blanks or specials.
    if (exec.contains(u' ') || exec.contains(u'"') || exec.contains(u'\\'))
        exec = u'"' +
               QString(exec).replace(u'\\', QStringLiteral("\\\\")).replace(u'"', QStringLiteral("\\\"")) +
               u'"';
    const QString entry = QStringLiteral("[Desktop Entry]\n"
                                         "Type=Application\n"
                                         "Name=Quillon Lockholt\n"
                                         "Comment=Argent Password Manager\n"
                                         "Exec=%1\n"
                                         "Icon=%2\n"
                                         "Terminal=false\n"
                                         "X-GNOME-Autostart-enabled=true\n")
                              .arg(exec, Pt(AppPath()) + QStringLiteral("mainicon.png"));
    QDir().mkpath(QFileInfo(path).absolutePath());
    QSaveFile f(path);
    if (!f.open(QIODevice::WriteOnly))
        return;
    f.write(entry.toUtf8());
    f.commit();
}
