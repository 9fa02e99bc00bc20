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
    // An installed copy's data folder is shared by every user (and belongs to the
    // package), so the log never goes there, even when it happens to be writable.
    const QString app = Pt(AppPath());
    if (ProgramBesideExe() && QFileInfo(app).isWritable())
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

// Lines logged before the per-user folder exists (the first start of an installed copy
// logs before it creates that folder): kept here and written with the first line that
// finds the folder. Creating the folder for the log would make the first start look like
// a later one whose settings were lost.
QByteArray g_pending;

// Appends Bytes to the log, or holds them while its folder does not exist yet.
void appendToLog(const QByteArray& Bytes) {
    if (!QFileInfo(DbgFileFolder()).isDir()) {
        g_pending += Bytes;
        return;
    }
    QFile f(DbgFilePath());
    if (!openLog(f))
        RaiseError(vbErrPathFileAccess);
    const QByteArray out = g_pending + Bytes;
    if (f.write(out) != out.size())
        RaiseError(vbErrPathFileAccess);
    g_pending.clear();
}

QString logLine(const QString& Time, const QLocale& Loc, double perf, const QString& DbgStr) {
    return Time + QStringLiteral(".(") + Loc.toString(perf, 'f', 5) + QStringLiteral("): ") + DbgStr +
           QStringLiteral("\r\n");
}
} // namespace

void DbgPrint(const QString& DbgStr) {
    TRACE_PROC("modMain.DbgPrint", DbgStr);
    // The time of the call, taken before the file is opened.
    const double perf = GetQueryPerf();
    appendToLog(logLine(timeText(), QLocale(), perf, DbgStr).toUtf8());
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
    appendToLog(out);
}
