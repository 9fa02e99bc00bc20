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

namespace {
// A value of the string type of a desktop entry: backslash, line ends and tabs escaped.
QString desktopString(const QString& Value) {
    QString file;
    for (const QChar c : Value) {
        if (c == u'\\')
            file += QStringLiteral("\\\\");
        else if (c == u'\n')
            file += QStringLiteral("\\n");
        else if (c == u'\t')
            file += QStringLiteral("\\t");
        else if (c == u'\r')
            file += QStringLiteral("\\r");
        else
            file += c;
    }
    return file;
}
} // namespace

QString DesktopExecArg(const QString& Arg) {
    TRACE_PROC("modMain.DesktopExecArg", Arg);
    // The reserved characters of the desktop-entry format's Exec key.
    static const QString reserved = QStringLiteral(" \t\n\"'\\><~|&;$*?#()`");
    bool quote = Arg.isEmpty();
    for (const QChar c : Arg)
        quote = quote || reserved.contains(c);
    QString out;
    if (quote) {
        out += u'"';
        for (const QChar c : Arg) {
            if (c == u'"' || c == u'`' || c == u'$' || c == u'\\')
                out += u'\\';
            out += c;
        }
        out += u'"';
    } else {
        out = Arg;
    }
    // The string level of the file comes first, then a literal % is written %%.
    return desktopString(out).replace(u'%', QStringLiteral("%%"));
}

bool AutorunManagement(bool Autorun) {
    TRACE_PROC("modMain.AutorunManagement", Autorun);
    const QString path = AutorunEntryPath();
    TRACE_LOCAL(path);
    if (!Autorun) {
        return !QFileInfo::exists(path) || QFile::remove(path);
    }
    const QString exec = DesktopExecArg(Pt(ExeFolderPath()) + QStringLiteral("ArgentPasswordMngr"));
    // An installed copy's icon is in the icon theme; a portable copy names its own file.
    const QString icon = ProgramBesideExe() ? desktopString(Pt(AppPath()) + QStringLiteral("mainicon.png"))
                                            : QStringLiteral("org.argentpm.ArgentPasswordMngr");
    const QString entry = QStringLiteral("[Desktop Entry]\n"
                                         "Type=Application\n"
                                         "Name=Argent Password Manager\n"
                                         "Name[ru]=Менеджер паролей Argent\n"
                                         "Comment=Starts with the desktop session\n"
                                         "Comment[ru]=Запускается вместе с сеансом рабочего стола\n"
                                         "Exec=%1\n"
                                         "Icon=%2\n"
                                         "Terminal=false\n"
                                         "X-GNOME-Autostart-enabled=true\n"
                                         "X-Argent-Run-Name=Quillon Lockholt\n")
                              .arg(exec, icon);
    QDir().mkpath(QFileInfo(path).absolutePath());
    if (WriteFileChecked(path, entry.toUtf8(), kPrivateFilePerms | QFile::ReadGroup | QFile::ReadOther))
        return true;
    DbgPrint(QStringLiteral("Autostart entry not written: ") + path);
    return false;
}
