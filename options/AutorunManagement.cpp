#include "options/AutorunManagement.h"

#include "app/CheckedWrite.h"
#include "app/modMain.h"
#include "diagnostics/DbgPrint.h"
#include "diagnostics/Trace.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

QString AutorunEntryPath() {
    QString config = qEnvironmentVariable("XDG_CONFIG_HOME");
    if (config.isEmpty())
        config = QDir::homePath() + QStringLiteral("/.config");
    return Pt(config) + QStringLiteral("autostart/ArgentPasswordMngr.desktop");
}

bool AutorunManagement(bool Autorun) {
    TRACE_PROC("modMain.AutorunManagement", Autorun);
    const QString path = AutorunEntryPath();
    if (!Autorun) {
        return !QFileInfo::exists(path) || QFile::remove(path);
    }
    QString exec = Pt(AppPath()) + QStringLiteral("ArgentPasswordMngr");
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
    if (WriteFileChecked(path, entry.toUtf8(), kPrivateFilePerms | QFile::ReadGroup | QFile::ReadOther))
        return true;
    DbgPrint(QStringLiteral("Autostart entry not written: ") + path);
    return false;
}
