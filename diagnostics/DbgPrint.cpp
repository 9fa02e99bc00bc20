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

void DbgPrint(const QString& DbgStr) {
    TRACE_PROC("modMain.DbgPrint", DbgStr);
    // The time of the call, taken before the file is opened.
    const double perf = GetQueryPerf();
    QFile f(DbgFilePath());
    if (!f.open(QIODevice::WriteOnly | QIODevice::Append))
        RaiseError(vbErrPathFileAccess);
    const QString line = QDateTime::currentDateTime().toString(QStringLiteral("yyyy-MM-dd HH:mm:ss")) +
                         QStringLiteral(".(") + QLocale().toString(perf, 'f', 5) + QStringLiteral("): ") +
                         DbgStr + QStringLiteral("\r\n");
    if (f.write(line.toUtf8()) < 0)
        RaiseError(vbErrPathFileAccess);
}
