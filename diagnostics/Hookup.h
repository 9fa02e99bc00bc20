#pragma once

// What diagnostics needs from the program above it. Diagnostics is the lowest floor: it
// includes nothing of the program, and every other part may call it. The paths, texts
// and settings it needs are handed to it once at start-up (ConnectDiagnostics in
// app/DiagnosticsHookup.h, called by every program's main before it logs anything or
// installs the error trap).
//
// An entry left empty means: no log folder (log lines and the error report are not
// written), no language (the error dialog speaks English), no message boxes, no report
// server, and nothing to load before the report mode shows its dialog.

#include <QString>

#include <functional>

namespace argent::diag {

struct Hookup {
    // Folder of the debug log and of ErrorReport.txt, ending with "/". Asked on every log
    // line: the folder may change while the program runs (a portable copy, tests).
    std::function<QString()> LogFolder;
    // The language text with this number.
    std::function<QString(int Id)> Text;
    // A message box with an OK button: a critical one, or an information.
    std::function<void(const QString& Prompt, bool Critical)> Message;
    // The settings entry of the report server ("host" or "host:port"); empty for none.
    std::function<QString()> ReportServer;
    // Report mode, before its dialog: settings and language, as far as they load.
    std::function<void()> LoadForReport;
};

// Replaces what was handed over before.
void SetHookup(Hookup Links);
const Hookup& hookup();

// Seconds of a monotonic clock: the time stamps of the log and the waits of the error
// dialog (the program's performance counter reads the same clock).
double MonotonicSeconds();

} // namespace argent::diag
