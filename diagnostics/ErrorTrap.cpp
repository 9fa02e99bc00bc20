#include "diagnostics/ErrorTrap.h"

#include "diagnostics/DbgPrint.h"
#include "diagnostics/FormatVariable.h"
#include "diagnostics/Globals.h"
#include "diagnostics/Trace.h"

#include "Version.h"

#include <QFile>

#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <new>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

QString ErrorMessage;
int vbcsErrorNumber = 0;
QString vbcsErrorDescription;
int vbcsErrorLine = 0;
QString vbcsErrorSource;
bool vbcsHasInitialised = false;
QString vbcsComponentID = QStringLiteral("ArgentPasswordMngr");

namespace argent::diag {
namespace {

constexpr const char* kComponent = "ArgentPasswordMngr";

struct Snapshot {
    bool pending = false;
    bool errorSet = false; // the error globals were filled before the picture was taken
    std::string module, block, locals, moduleVars, params, stack, globals;
};
Snapshot g_snap;

ReportHandler g_handler;

// Crash path state: everything the signal handler needs, prepared beforehand.
char g_reportPath[4096] = "ErrorReport.txt";
char g_crashBuf[1 << 20];
char g_altStack[1 << 16];

// Splits "module.procedure" at its first full stop.
void splitName(const char* full, std::size_t& modLen, const char*& block) {
    std::size_t n = cLen(full);
    modLen = n;
    block = full + n;
    for (std::size_t i = 0; i < n; ++i) {
        if (full[i] == '.') {
            modLen = i;
            block = full + i + 1;
            break;
        }
    }
}

struct TopName {
    std::string storage;
    const char* name = "";
};

TopName topFrameName() {
    TopName t;
    FrameStack& st = frameStack();
    if (st.depth == 0)
        return t;
    const Frame& f = st.frames[st.depth - 1];
    if (f.dynamic) {
        t.storage = f.dynName.toStdString();
        t.name = t.storage.c_str();
    } else if (f.name) {
        t.name = f.name;
    }
    return t;
}

// The report layout, one writer for the normal and the crash path.
template <class Sink, class FLoc, class FMod, class FGlob, class FPar, class FStk>
void writeReport(Sink& s, long long number, const char* module, std::size_t moduleLen, const char* block,
                 const char* desc, std::size_t descLen, long long line, FLoc locals, FMod moduleVars,
                 FGlob globals, FPar params, FStk stack) {
    put(s, "Error Number: ");
    putInt(s, number);
    put(s, "\r\nComponent Name: ");
    put(s, kComponent);
    put(s, "\r\nModule Name: ");
    put(s, module, moduleLen);
    put(s, "\r\nBlock Name: ");
    put(s, block);
    put(s, "\r\nDescription: ");
    putValue(s, desc, descLen);
    put(s, "\r\nLine Number: ");
    putInt(s, line);
    put(s, "\r\n<Variables>\r\n<LocalVariables>");
    locals();
    put(s, "</LocalVariables>\r\n<ModuleVariables>");
    moduleVars();
    put(s, "</ModuleVariables>\r\n<GlobalVariables>");
    globals();
    put(s, "</GlobalVariables>\r\n</Variables>\r\n<Parameters>");
    params();
    put(s, "</Parameters>\r\nStack Trace: ");
    stack();
    put(s, "\r\nVersion: ");
    putInt(s, ARGENT_VERSION_MAJOR);
    put(s, ".");
    putInt(s, ARGENT_VERSION_MINOR);
    put(s, ".");
    putInt(s, ARGENT_VERSION_REVISION);
}

template <class Sink> void writeStack(Sink& s) {
    FrameStack& st = frameStack();
    if (st.depth == 0) {
        put(s, "Empty Stack");
        return;
    }
    for (int i = 0; i < st.depth; ++i) {
        writeFrameText(s, st.frames[i]);
        put(s, "\r\n");
    }
}

const char* exceptionNameC(unsigned int code, char* unknownBuf) {
    switch (code) {
    case 0xC0000005:
        return "Access Violation";
    case 0x80000002:
        return "Data Type Misalignment";
    case 0x80000003:
        return "Breakpoint";
    case 0x80000004:
        return "Single Step";
    case 0xC000008C:
        return "Array Bounds Exceeded";
    case 0xC000008D:
        return "Float Denormal Operand";
    case 0xC000008E:
        return "Divide By Zero";
    case 0xC000008F:
        return "Floating Point Inexact Result";
    case 0xC0000090:
        return "Invalid Operation";
    case 0xC0000091:
        return "Float Overflow";
    case 0xC0000092:
        return "Float Stack Check";
    case 0xC0000093:
        return "Float Underflow";
    case 0xC0000094:
        return "Integer Divide By Zero";
    case 0xC0000095:
        return "Integer Overflow";
    case 0xC0000096:
        return "Privileged Instruction";
    case 0xC0000006:
        return "In Page Error";
    case 0xC000001D:
        return "Illegal Instruction";
    case 0xC0000025:
        return "Non Continuable Exception";
    case 0xC0000026:
        return "Invalid Disposition";
    case 0xC00000FD:
        return "Stack Overflow";
    case 0x80000001:
        return "Guard Page Violation";
    case 0xC0000008:
        return "Invalid Handle";
    case 0xC000013A:
        return "Control-C Exit";
    default:
        break;
    }
    static const char hex[] = "0123456789ABCDEF";
    std::memcpy(unknownBuf, "Unknown (&H", 11);
    for (int i = 0; i < 8; ++i)
        unknownBuf[11 + i] = hex[(code >> (28 - 4 * i)) & 0xF];
    unknownBuf[19] = ')';
    unknownBuf[20] = 0;
    return unknownBuf;
}

// The processor-exception code that a crash signal stands for.
unsigned int codeForSignal(int sig, const siginfo_t* si) {
    switch (sig) {
    case SIGSEGV: {
        // A fault just below the stack pointer's region is a stack overflow.
        return 0xC0000005;
    }
    case SIGBUS:
        return si && si->si_code == BUS_ADRALN ? 0x80000002 : 0xC0000006;
    case SIGILL:
        return si && (si->si_code == ILL_PRVOPC || si->si_code == ILL_PRVREG) ? 0xC0000096 : 0xC000001D;
    case SIGFPE:
        switch (si ? si->si_code : 0) {
        case FPE_INTDIV:
            return 0xC0000094;
        case FPE_INTOVF:
            return 0xC0000095;
        case FPE_FLTDIV:
            return 0xC000008E;
        case FPE_FLTOVF:
            return 0xC0000091;
        case FPE_FLTUND:
            return 0xC0000093;
        case FPE_FLTRES:
            return 0xC000008F;
        case FPE_FLTINV:
            return 0xC0000090;
        case FPE_FLTSUB:
            return 0xC000008C;
        default:
            return 0xC0000090;
        }
    default:
        return 0;
    }
}

using CrashContinuation = void (*)(const char* reportPath);
CrashContinuation g_crashContinuation = nullptr;

void writeAll(int fd, const char* p, std::size_t n) {
    while (n > 0) {
        ssize_t w = ::write(fd, p, n);
        if (w <= 0)
            return;
        p += w;
        n -= static_cast<std::size_t>(w);
    }
}

// The error globals as a crash leaves them, without allocating: the texts are put in
// fixed buffers that the strings refer to.
void setCrashErrorGlobals(int number, const char* desc) {
    static char16_t descBuf[64];
    static const char16_t source[] = u"vbcsExceptionFilter";
    std::size_t n = 0;
    while (desc[n] && n < 63) {
        descBuf[n] = static_cast<unsigned char>(desc[n]);
        ++n;
    }
    vbcsErrorNumber = number;
    vbcsErrorLine = 0;
    vbcsErrorDescription =
        QString::fromRawData(reinterpret_cast<const QChar*>(descBuf), static_cast<qsizetype>(n));
    vbcsErrorSource = QString::fromRawData(reinterpret_cast<const QChar*>(source), 19);
}

void crashHandler(int sig, siginfo_t* si, void*) {
    static volatile sig_atomic_t busy = 0;
    if (busy)
        _exit(kTrappedExitCode + 1);
    busy = 1;

    unsigned int code = codeForSignal(sig, si);
    char unknown[24];
    const char* desc = exceptionNameC(code, unknown);
    FixedSink s(g_crashBuf, sizeof g_crashBuf);
    setCrashErrorGlobals(ExceptionErrorNumber(code), desc);

    const char* full = "";
    FrameStack& st = frameStack();
    const Frame* top = st.depth > 0 ? &st.frames[st.depth - 1] : nullptr;
    if (top && !top->dynamic && top->name)
        full = top->name;
    std::size_t modLen;
    const char* block;
    splitName(full, modLen, block);

    writeReport(
        s, ExceptionErrorNumber(code), full, modLen, block, desc, cLen(desc), 0,
        [&] {
            if (top)
                writeFrameLocals(s, *top);
        },
        [&] { writeModuleVars(s, full, modLen, top ? top->self : nullptr); }, [&] { writeGlobals(s); },
        [&] {
            if (top)
                writeFrameParams(s, *top);
        },
        [&] { writeStack(s); });

    writeAll(2, s.data(), s.size());
    writeAll(2, "\n", 1);
    // Never through a link at the report's name: it may sit in a folder others share.
    int fd = ::open(g_reportPath, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (fd >= 0) {
        writeAll(fd, s.data(), s.size());
        ::close(fd);
    }
    if (g_crashContinuation)
        g_crashContinuation(g_reportPath);
    _exit(kTrappedExitCode);
}

void onTerminate() {
    if (std::current_exception())
        TrapCurrentException();
    RaiseError(vbErrInvalidCall, QStringLiteral("Program terminated"));
}

} // namespace

void takeSnapshot(bool withLocals) {
    g_snap.errorSet = false;
    TopName t = topFrameName();
    std::size_t modLen;
    const char* block;
    splitName(t.name, modLen, block);
    g_snap.module.assign(t.name, modLen);
    g_snap.block = block;
    FrameStack& st = frameStack();
    const Frame* top = st.depth > 0 ? &st.frames[st.depth - 1] : nullptr;
    StringSink loc, mod, par, stk, glob;
    if (top) {
        if (withLocals)
            writeFrameLocals(loc, *top);
        writeFrameParams(par, *top);
    }
    writeModuleVars(mod, g_snap.module.c_str(), g_snap.module.size(), top ? top->self : nullptr);
    writeGlobals(glob);
    writeStack(stk);
    g_snap.locals = std::move(loc.str());
    g_snap.moduleVars = std::move(mod.str());
    g_snap.params = std::move(par.str());
    g_snap.stack = std::move(stk.str());
    g_snap.globals = std::move(glob.str());
    g_snap.pending = true;
}

void markSnapshotErrorSet() {
    g_snap.errorSet = true;
}

bool snapshotPending() {
    return g_snap.pending;
}
void clearSnapshot() {
    g_snap = Snapshot();
}

void SetReportHandler(ReportHandler h) {
    g_handler = std::move(h);
}

void SetErrorReportPath(const QString& path) {
    QByteArray p = QFile::encodeName(path);
    std::size_t n = std::min<std::size_t>(static_cast<std::size_t>(p.size()), sizeof g_reportPath - 1);
    std::memcpy(g_reportPath, p.constData(), n);
    g_reportPath[n] = 0;
}

void SetCrashContinuation(void (*fn)(const char*)) {
    g_crashContinuation = fn;
}

void WriteReportFile(const QString& report) {
    const int fd = ::open(g_reportPath, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (fd < 0)
        return;
    ::fchmod(fd, 0600);
    const QByteArray bytes = report.toUtf8();
    writeAll(fd, bytes.constData(), static_cast<std::size_t>(bytes.size()));
    ::close(fd);
}

QString ReportForCurrentException() {
    int number = vbErrInvalidCall;
    QString desc;
    QString source = vbcsComponentID;
    int line = 0;
    try {
        throw;
    } catch (const VbError& e) {
        number = e.number();
        desc = e.description();
        source = e.source();
        line = e.line();
    } catch (const std::bad_alloc&) {
        number = 7;
        desc = QStringLiteral("Out of memory");
    } catch (const std::exception& e) {
        desc = QString::fromUtf8(e.what());
    } catch (...) {
        desc = VbErrorText(vbErrInvalidCall);
    }
    vbcsErrorNumber = number;
    vbcsErrorDescription = desc;
    vbcsErrorLine = line;
    vbcsErrorSource = source;
    if (!g_snap.pending) {
        takeSnapshot(false);
    } else if (!g_snap.errorSet) {
        // Taken while the exception unwound, before its number was known.
        StringSink glob;
        writeGlobals(glob);
        g_snap.globals = std::move(glob.str());
    }

    StringSink s;
    QByteArray d = desc.toUtf8();
    writeReport(
        s, number, g_snap.module.c_str(), g_snap.module.size(), g_snap.block.c_str(), d.constData(),
        static_cast<std::size_t>(d.size()), line, [&] { s.str() += g_snap.locals; },
        [&] { s.str() += g_snap.moduleVars; }, [&] { s.str() += g_snap.globals; },
        [&] { s.str() += g_snap.params; }, [&] { s.str() += g_snap.stack; });
    clearSnapshot();
    ErrorMessage = QString::fromStdString(s.str());
    return ErrorMessage;
}

void TrapCurrentException() {
    static bool trapping = false;
    if (trapping)
        _exit(kTrappedExitCode + 1);
    trapping = true;
    QString report = ReportForCurrentException();
    if (g_handler) {
        g_handler(report);
    } else {
        QByteArray b = report.toUtf8();
        std::fwrite(b.constData(), 1, static_cast<std::size_t>(b.size()), stderr);
        std::fputc('\n', stderr);
        WriteReportFile(report);
    }
    std::fflush(nullptr);
    _exit(kTrappedExitCode);
}

} // namespace argent::diag

using namespace argent::diag;

QString VbErrorText(int Number) {
    switch (Number) {
    case 5:
        return QStringLiteral("Invalid procedure call or argument");
    case 6:
        return QStringLiteral("Overflow");
    case 7:
        return QStringLiteral("Out of memory");
    case 9:
        return QStringLiteral("Subscript out of range");
    case 11:
        return QStringLiteral("Division by zero");
    case 13:
        return QStringLiteral("Type mismatch");
    case 53:
        return QStringLiteral("File not found");
    case 58:
        return QStringLiteral("File already exists");
    case 70:
        return QStringLiteral("Permission denied");
    case 75:
        return QStringLiteral("Path/File access error");
    case 76:
        return QStringLiteral("Path not found");
    default:
        return QStringLiteral("Application-defined or object-defined error");
    }
}

void RaiseError(int Number, const QString& Description, std::source_location Loc) {
    // The error globals first, so that the picture of the failure shows them.
    TopName t = topFrameName();
    vbcsErrorNumber = Number;
    vbcsErrorDescription = Description.isEmpty() ? VbErrorText(Number) : Description;
    vbcsErrorLine = static_cast<int>(Loc.line());
    vbcsErrorSource = t.name[0] ? QString::fromUtf8(t.name) : vbcsComponentID;
    takeSnapshot(true);
    argent::diag::markSnapshotErrorSet();
    throw VbError(Number, vbcsErrorDescription, vbcsErrorSource, vbcsErrorLine);
}

QString BuildErrorReport(int ErrNumber, const QString& ModName, const QString& BlockName,
                         const QString& Description, int LineNumber, const QString& LocalVars,
                         const QString& ModuleVars, const QString& Params) {
    StringSink s;
    QByteArray mod = ModName.toUtf8(), blk = BlockName.toUtf8(), desc = Description.toUtf8();
    writeReport(
        s, ErrNumber, mod.constData(), static_cast<std::size_t>(mod.size()), blk.constData(),
        desc.constData(), static_cast<std::size_t>(desc.size()), LineNumber,
        [&] { putQString(s, LocalVars, false); }, [&] { putQString(s, ModuleVars, false); },
        [&] { writeGlobals(s); }, [&] { putQString(s, Params, false); }, [&] { writeStack(s); });
    ErrorMessage = QString::fromStdString(s.str());
    return ErrorMessage;
}

QString ExceptionName(unsigned int ExceptionCode) {
    char buf[24];
    return QString::fromLatin1(exceptionNameC(ExceptionCode, buf));
}

int ExceptionErrorNumber(unsigned int ExceptionCode) {
    return static_cast<int>((ExceptionCode & 0x8EFu) | 10000u);
}

void InstallErrorTrap() {
    if (vbcsHasInitialised)
        return;
    if (const QString folder = DbgFileFolder(); !folder.isEmpty())
        SetErrorReportPath(folder + QStringLiteral("ErrorReport.txt"));

    stack_t ss{};
    ss.ss_sp = g_altStack;
    ss.ss_size = sizeof g_altStack;
    sigaltstack(&ss, nullptr);
    struct sigaction sa {};
    sa.sa_sigaction = crashHandler;
    sa.sa_flags = SA_SIGINFO | SA_ONSTACK;
    sigemptyset(&sa.sa_mask);
    for (int sig : {SIGSEGV, SIGBUS, SIGFPE, SIGILL})
        sigaction(sig, &sa, nullptr);
    std::set_terminate(onTerminate);

    registerGlobal("ErrorMessage", &ErrorMessage);
    registerGlobal("vbcsErrorNumber", &vbcsErrorNumber);
    registerGlobal("vbcsErrorDescription", &vbcsErrorDescription);
    registerGlobal("vbcsErrorLine", &vbcsErrorLine);
    registerGlobal("vbcsErrorSource", &vbcsErrorSource);
    registerGlobal("vbcsHasInitialised", &vbcsHasInitialised);
    registerGlobal("vbcsComponentID", &vbcsComponentID);
    vbcsHasInitialised = true;
}
