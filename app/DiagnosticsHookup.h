#pragma once

#include <QString>

// Hands diagnostics (the floor below) what it needs of the program: the log folder, the
// language texts, message boxes, the report server setting and the loading of settings
// and language for the report mode. Every program's main calls it first, before it logs
// anything or installs the error trap.
void ConnectDiagnostics();

// Folder of the debug log and of ErrorReport.txt, ending with "/": the program folder
// when the program runs from it and may write there, else the per-user folder.
QString LogFolderPath();
