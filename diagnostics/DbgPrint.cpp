#include "diagnostics/DbgPrint.h"

#include "app/modMain.h"
#include "app/modTimer.h"
#include "diagnostics/ErrorTrap.h"
#include "diagnostics/Trace.h"

#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QLocale>

QString DbgFileFolder() {
    const QString app = Pt(AppPath());
    if (QFileInfo(app).isWritable())
        return app;
    return Pt(UserFolderPath());
}

QString DbgFilePath() {
    return DbgFileFolder() + QStringLiteral("DbgFile.dat");
}

namespace {
QString timeText() {
    return QDateTime::currentDateTime().toString(QStringLiteral("yyyy-MM-dd HH:mm:ss"));
}

QString logLine(const QString& Time, const QLocale& Loc, double perf, const QString& DbgStr) {
    return Time + QStringLiteral(".(") + Loc.toString(perf, 'f', 5) + QStringLiteral("): ") + DbgStr +
           QStringLiteral("\r\n");
}
// The log names deleted records' titles: only its owner reads it. A log left by an
// older version with wider rights is narrowed once per run.
bool openLog(QFile& f) {
    constexpr auto kPrivate = QFileDevice::ReadOwner | QFileDevice::WriteOwner;
    if (!f.open(QIODevice::WriteOnly | QIODevice::Append, kPrivate))
        return false;
    static bool narrowed = false;
    if (!narrowed) {
        narrowed = true;
        if (f.permissions() != kPrivate)
            f.setPermissions(kPrivate);
    }
    return true;
}
} // namespace

void DbgPrint(const QString& DbgStr) {
    TRACE_PROC("modMain.DbgPrint", DbgStr);
    // The time of the call, taken before the file is opened.
    const double perf = GetQueryPerf();
    QFile f(DbgFilePath());
    if (!openLog(f))
        RaiseError(vbErrPathFileAccess);
    if (f.write(logLine(timeText(), QLocale(), perf, DbgStr).toUtf8()) < 0)
        RaiseError(vbErrPathFileAccess);
}

void DbgPrintLines(const QStringList& Lines) {
    TRACE_PROC("modMain.DbgPrintLines", Lines);
    if (Lines.isEmpty())
        return;
    // One clock reading of the date and time for the batch (it is written at once); the
    // performance counter of each line is its own.
    const QString time = timeText();
    const QLocale loc;
    QByteArray out;
    for (const QString& l : Lines)
        out += logLine(time, loc, GetQueryPerf(), l).toUtf8();
    QFile f(DbgFilePath());
    if (!openLog(f))
        RaiseError(vbErrPathFileAccess);
    if (f.write(out) != out.size())
        RaiseError(vbErrPathFileAccess);
}
