#pragma once

#include <QString>
#include <QStringList>

// Appends one line to the debug log DbgFile.dat:
//   <date> <time>.(<seconds of the performance counter, 5 decimals>): <text>
// The file is opened and closed on every call, so each line is on disk at once.
void DbgPrint(const QString& DbgStr);
// Many lines at once, each as DbgPrint writes it (with the time it is formatted at), in
// one opening of the file: for operations that log a line per row.
void DbgPrintLines(const QStringList& Lines);

// Folder of the debug log (and of ErrorReport.txt), as the program hands it over at
// start-up (diagnostics/Hookup.h): the program folder, or the per-user folder when the
// program folder is not writable. Ends with "/"; empty (and so is the path) in a program
// that keeps no log.
QString DbgFileFolder();
QString DbgFilePath();
