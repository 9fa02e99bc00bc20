// ArgentPasswordMngr: the desktop program.

#include "app/guiApplication.h"
#include "app/modMain.h"
#include "diagnostics/ErrorTrap.h"
#include "mainwindow/frmMain.h"

#include <sys/prctl.h>

int main(int argc, char** argv) {
    // No core dumps and no debugger attaching to a process that holds passwords.
    prctl(PR_SET_DUMPABLE, 0);
    ArgentApplication app(argc, argv);
    frmMain* main = nullptr;
    bool started = false;
    argent::diag::trapped([&] {
        started = Main();
        if (!started) return;
        main = new frmMain;
        main->setAttribute(Qt::WA_DeleteOnClose);
        main->Form_Load();
    });
    if (!started) return 0;
    const int rc = app.exec();
    ReleaseInstanceLock();
    return rc;
}
