// ArgentPasswordMngr: the desktop program's entry point. It is the top floor, the one
// file that may include every part: it wires them together and starts the window.
//
// Floors, from the ground up (LAYERS.md at the top of the tree tells more); each calls
// only its own floor and those below it, and the lower ones are handed what they need:
//   diagnostics → app → storage → users → records, maintenance, options, tray, secrets
//   → mainwindow, cli → main

#include "app/DiagnosticsHookup.h"
#include "app/InstanceChannel.h"
#include "app/guiApplication.h"
#include "app/guiPaintProbe.h"
#include "app/modMain.h"
#include "diagnostics/ErrorTrap.h"
#include "diagnostics/frmError.h"
#include "mainwindow/frmMain.h"
#include "users/UserAccounts.h"

#include <QApplication>
#include <QPointer>

#include <sys/prctl.h>

int main(int argc, char** argv) {
    // No core dumps and no debugger attaching to a process that holds passwords.
    prctl(PR_SET_DUMPABLE, 0);
    ArgentApplication app(argc, argv);
    ConnectDiagnostics();
    InstallGuiErrorTrap();
    InstallPaintProbe();
    // After a crash the program comes back in this mode to show the report.
    const QStringList args = QCoreApplication::arguments();
    if (args.size() >= 3 && args[1] == QLatin1String("--error-report"))
        return RunReportOnlyMode(args[2]);

    frmMain* main = nullptr;
    bool started = false;
    argent::diag::trapped([&] {
        started = Main(CreateProgramObjects);
        if (!started)
            return;
        main = new frmMain;
        main->setAttribute(Qt::WA_DeleteOnClose);
        // A second start brings this window to the front, from the first moment on
        // (the password prompt of the first load included).
        QPointer<frmMain> window(main);
        ListenForSecondStart([window] {
            if (window)
                window->mnuTrayShow_Click();
            // A dialog waiting for an answer (the password prompt) comes up over it.
            if (QWidget* modal = QApplication::activeModalWidget()) {
                modal->raise();
                modal->activateWindow();
            }
        });
        // The desktop's secret storage is served from before the first password question,
        // so that a client the bus started the program for finds the name taken.
        main->StartSecretService();
        main->Form_Load();
    });
    if (!started)
        return 0;
    const int rc = app.exec();
    StopListening();
    ReleaseInstanceLock();
    return rc;
}
