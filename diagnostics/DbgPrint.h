#pragma once

#include <QString>

// Appends one line to the debug log DbgFile.dat:
//   <date> <time>.(<seconds of the performance counter, 5 decimals>): <text>
// The file is opened and closed on every call, so each line is on disk at once.
void DbgPrint(const QString& DbgStr);

// Folder of the debug log (and of ErrorReport.txt): the program folder, or the
// per-user folder when the program folder is not writable. Ends with "/".
QString DbgFileFolder();
QString DbgFilePath();
