// argentpm: the command-line companion of ArgentPasswordMngr. It works on the same user
// files, through the same routines, and finds them through the same settings. The
// commands are in one table (CliCommands.h); the command line is read in CliParser.h.

#include "app/DiagnosticsHookup.h"
#include "cli/CliParser.h"

#include "diagnostics/ErrorTrap.h"

#include <QCoreApplication>

#include <sys/prctl.h>

int main(int argc, char** argv) {
    // The process holds passwords and their keys: no core dumps, no debugger attaching.
    prctl(PR_SET_DUMPABLE, 0);
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("argentpm"));
    ConnectDiagnostics();
    InstallErrorTrap();
    CliCall call;
    if (const int done = ReadCliCommandLine(QCoreApplication::arguments(), call); done >= 0)
        return done;
    int rc = cliFailed;
    argent::diag::trapped([&] { rc = RunCliCall(call); });
    return rc;
}
