#include "diagnostics/DbgPrint.h"

#include "diagnostics/ErrorTrap.h"
#include "diagnostics/Hookup.h"
#include "diagnostics/Trace.h"

#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QLocale>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

QString DbgFileFolder() {
    const auto& folder = argent::diag::hookup().LogFolder;
    return folder ? folder() : QString();
}

QString DbgFilePath() {
    const QString folder = DbgFileFolder();
    return folder.isEmpty() ? QString() : folder + QStringLiteral("DbgFile.dat");
}

namespace {
QString timeText() {
    return QDateTime::currentDateTime().toString(QStringLiteral("yyyy-MM-dd HH:mm:ss"));
}

// The log names deleted records' titles: only its owner reads it. A log left by an
// older version with wider rights is narrowed once per run, on the opened file. A link
// at the log's name (planted in a shared program folder) is never followed.
bool openLog(QFile& f, const QString& Path) {
    const int fd = ::open(QFile::encodeName(Path).constData(),
                          O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (fd < 0)
        return false;
    struct stat st {};
    if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode) || st.st_uid != ::geteuid()) {
        ::close(fd);
        return false;
    }
    static bool narrowed = false;
    if (!narrowed) {
        narrowed = true;
        if ((st.st_mode & 07777) != 0600)
            ::fchmod(fd, 0600);
    }
    return f.open(fd, QIODevice::WriteOnly | QIODevice::Append, QFileDevice::AutoCloseHandle);
}

// Lines logged before the per-user folder exists (the first start of an installed copy
// logs before it creates that folder): kept here and written with the first line that
// finds the folder. Creating the folder for the log would make the first start look like
// a later one whose settings were lost.
QByteArray g_pending;

// Appends Bytes to the log, or holds them while its folder does not exist yet.
void appendToLog(const QByteArray& Bytes) {
    const QString folder = DbgFileFolder();
    if (folder.isEmpty())
        return; // no log in this program
    if (!QFileInfo(folder).isDir()) {
        g_pending += Bytes;
        return;
    }
    QFile f;
    if (!openLog(f, folder + QStringLiteral("DbgFile.dat")))
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
    const double perf = argent::diag::MonotonicSeconds();
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
        out += logLine(time, loc, argent::diag::MonotonicSeconds(), l).toUtf8();
    appendToLog(out);
}
