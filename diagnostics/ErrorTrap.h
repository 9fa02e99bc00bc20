#pragma once

// Error trapping: run-time errors are C++ exceptions carrying a numbered error; whatever
// reaches the top of an entry point (main, an event handler, a crash signal) becomes one
// plain-text report, stored in ErrorMessage and shown to the user, and the program ends.

#include <QString>

#include <exception>
#include <functional>
#include <source_location>
#include <string>

// Numbered errors of the program (the classic run-time error numbers).
enum VbErrorNumber {
    vbErrInvalidCall = 5,
    vbErrOverflow = 6,
    vbErrSubscript = 9,
    vbErrDivByZero = 11,
    vbErrTypeMismatch = 13,
    vbErrFileNotFound = 53,
    vbErrFileExists = 58,
    vbErrPermission = 70,
    vbErrPathFileAccess = 75,
    vbErrPathNotFound = 76,
};

class VbError : public std::exception {
public:
    VbError(int number, QString description, QString source, int line)
        : m_number(number), m_description(std::move(description)), m_source(std::move(source)), m_line(line),
          m_what(m_description.toStdString()) {}
    int number() const { return m_number; }
    const QString& description() const { return m_description; }
    const QString& source() const { return m_source; }
    int line() const { return m_line; }
    const char* what() const noexcept override { return m_what.c_str(); }

private:
    int m_number;
    QString m_description;
    QString m_source;
    int m_line;
    std::string m_what;
};

// The standard text of an error number ("Subscript out of range" for 9, ...).
QString VbErrorText(int Number);

// Raises a numbered error at the caller's line. The report's variables and stack are
// taken at this moment, while every frame and local is still alive.
[[noreturn]] void RaiseError(int Number, const QString& Description = {},
                             std::source_location Loc = std::source_location::current());

// Globals of the error trap.
extern QString ErrorMessage;
extern int vbcsErrorNumber;
extern QString vbcsErrorDescription;
extern int vbcsErrorLine;
extern QString vbcsErrorSource;
extern bool vbcsHasInitialised;
extern QString vbcsComponentID;

// Installs the crash signal handlers once per process.
void InstallErrorTrap();

QString BuildErrorReport(int ErrNumber, const QString& ModName, const QString& BlockName,
                         const QString& Description, int LineNumber, const QString& LocalVars,
                         const QString& ModuleVars, const QString& Params);
QString ExceptionName(unsigned int ExceptionCode);
// (code AND 0x8EF) OR 10000: the error number a processor exception becomes.
int ExceptionErrorNumber(unsigned int ExceptionCode);

namespace argent::diag {

// Called by every entry point's catch block: builds the report for the exception being
// handled (from the snapshot taken when it was raised), hands it to the report handler
// and ends the program. Never returns.
[[noreturn]] void TrapCurrentException();
// The report for the exception being handled (call inside a catch block); also stored
// in ErrorMessage. TrapCurrentException is this plus showing it and ending.
QString ReportForCurrentException();
// Called by the crash handler after the report is written, before the process ends
// (must be async-signal-safe).
void SetCrashContinuation(void (*fn)(const char* reportPath));

// Runs fn; any exception that escapes is trapped as above.
template <class F> void trapped(F&& fn) {
    try {
        fn();
    } catch (...) {
        TrapCurrentException();
    }
}

// Where a finished report goes. The default writes it to standard error and to
// ErrorReport.txt beside the debug log; the GUI puts its error dialog here. The
// program ends with exit status kTrappedExitCode once the handler returns.
using ReportHandler = std::function<void(const QString& report)>;
void SetReportHandler(ReportHandler h);
void WriteReportFile(const QString& report);
constexpr int kTrappedExitCode = 70;

// Snapshot of the failing procedure: taken by RaiseError, or by the innermost frame
// when a foreign exception unwinds through it.
void takeSnapshot(bool withLocals);
bool snapshotPending();
void markSnapshotErrorSet();
void clearSnapshot();

// Path of ErrorReport.txt, cached for the crash handler (set when the log path is known).
void SetErrorReportPath(const QString& path);

} // namespace argent::diag
