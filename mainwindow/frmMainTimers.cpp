// The main window's timers: command states, the inactivity lock and its unlock, and
// the automatic backup.

#include "mainwindow/frmMain.h"

#include "app/MsgBox.h"
#include "app/ProgConfig.h"
#include "app/modLang.h"
#include "diagnostics/Trace.h"
#include "maintenance/Autobackup.h"

#include "mainwindow/CheckActivity.h"
#include "mainwindow/guiActivitySource.h"
#include "storage/clsDatabase.h"
#include "tray/frmSysTray.h"
#include "tray/guiModTray.h"
#include "users/ConflictMerge.h"
#include "users/UserAccounts.h"
#include "users/UserSession.h"
#include "users/frmPassword.h"
#include "users/guiOpenUser.h"

#include <QApplication>
#include <QDialog>
#include <QTextEdit>
#include <QTimer>

void frmMain::SetActivitySource(IActivitySource* Source) {
    m_activity = Source ? Source : static_cast<IActivitySource*>(m_guiActivity.get());
}

void frmMain::SetCommandStates() {
    const bool loaded = UserLoaded();
    for (QAction* a : {btnDelUser, btnFind})
        a->setEnabled(loaded);
    for (QAction* a : {mnuFileDelCurUser, mnuFileSaveDB, mnuFileChangeUsPasw, mnuFileUnloadUser, mnuToolsFind,
                       mnuFileImport, mnuFileExport})
        a->setEnabled(loaded);
    mnuToolsHealth->setEnabled(loaded);
    const QModelIndex node = CurrentNode();
    const bool onRoot = IsRoot(node);
    if (!loaded) {
        for (QAction* a : {btnDelRec, btnAddFolder, btnAddRec, btnDelFolder, btnRename})
            a->setEnabled(false);
    } else if (node.isValid()) {
        const bool record = NodeTag(node) == QStringLiteral("2");
        btnDelRec->setEnabled(record);
        btnAddFolder->setEnabled(!record);
        btnAddRec->setEnabled(!record);
        btnDelFolder->setEnabled(!record);
        btnRename->setEnabled(!onRoot);
        if (onRoot) {
            btnDelFolder->setEnabled(false);
            btnDelRec->setEnabled(false);
        }
    }
    // The context menus follow the tool bar.
    mnuContextTrvAddFolder->setEnabled(loaded && btnAddFolder->isEnabled());
    mnuContextTrvAddRec->setEnabled(loaded && btnAddRec->isEnabled());
    mnuContextTrvDelFolder->setEnabled(loaded && btnDelFolder->isEnabled());
    mnuContextTrvDelRec->setEnabled(loaded && btnDelRec->isEnabled());
    mnuContextTrvRename->setEnabled(loaded && node.isValid() && !onRoot);
    mnuContextTrvEdit->setEnabled(loaded && node.isValid() && !onRoot);
    const bool recordNode = loaded && node.isValid() && NodeTag(node) == QStringLiteral("2");
    mnuContextTrvCopyPasw->setEnabled(recordNode);
    mnuContextTrvCopyLog->setEnabled(recordNode);
    for (QAction* a :
         {mnuContextValCopyPasw, mnuContextValCopyLog, mnuContextValCopyTit, mnuContextValCopyDesc})
        a->setEnabled(loaded && m_curRecord != 0);
    SetEditMenuStates();
}

void frmMain::tmrTimer_Timer() {
    TRACE_PROC("frmMain.tmrTimer_Timer");
    SetCommandStates();
    UpdateTitle();
    // The folder watch brings a sync engine's conflict copy at once; should its event come
    // while the window was busy with the user's own file, the copy is still found within
    // a few seconds.
    static int ticks = 0;
    if (++ticks % 10 == 0 && UserLoaded() && !m_locked && !m_refreshTimer->isActive() &&
        !UserConflictCopies(CurUser).isEmpty())
        m_refreshTimer->start(0);
    if (CfgSwitchOn(ProgConfig[kCfgInactivityLock]) && CheckActivity(*m_activity) == actIdle && !m_locked)
        LockNow();
}

void frmMain::LockNow() {
    TRACE_PROC("frmMain.LockNow");
    if (m_locked || !UserLoaded())
        return;
    // Every other window closes, declined; the main window hides.
    CloseDialogs();
    m_locked = true;
    if (frmSysTray* tray = TrayObject()) {
        for (int i = 0; i < tray->MenuCount(); ++i) {
            const QString key = tray->MenuKey(i);
            if (key == QLatin1String("SaveDB") || key == QLatin1String("SelectUser") ||
                key == QLatin1String("GenPassword"))
                tray->EnableMenuItem(i, false);
        }
    }
    // A database that cannot be written now is kept by the session, not thrown away.
    UsSession().Lock();
    txtValue->clear();
    ClearUsTree();
    SyncWatch();
    // With a tray icon the window hides; without one it must stay reachable, so it goes
    // to the task bar and asks for the password when it comes back.
    if (DoUnloadTIcon)
        hide();
    else
        showMinimized();
}

void frmMain::changeEvent(QEvent* e) {
    QMainWindow::changeEvent(e);
    if (e->type() == QEvent::WindowStateChange && m_locked && !isMinimized())
        QTimer::singleShot(0, this, &frmMain::Form_Paint);
}

void frmMain::showEvent(QShowEvent* e) {
    QMainWindow::showEvent(e);
    // The unlock runs once the window is on screen again.
    if (m_locked)
        QTimer::singleShot(0, this, &frmMain::Form_Paint);
}

void frmMain::paintEvent(QPaintEvent* e) {
    QMainWindow::paintEvent(e);
    if (m_locked && !FrmPaswShown)
        QTimer::singleShot(0, this, &frmMain::Form_Paint);
}

void frmMain::Form_Paint() {
    TRACE_PROC("frmMain.Form_Paint");
    if (!m_locked || FrmPaswShown || !isVisible() || isMinimized())
        return;
    if (AskUserPassword(this, ProgConfig[kCfgLastUser]) == 1) {
        QString pasw = FrmPaswEnetered;
        TRACE_LOCAL_HIDDEN(pasw);
        FrmPaswEnetered.clear();
        if (UsSession().TakeBackKept()) {
            // The password is right; the kept database is the newer one.
            ShowUsDB(*CurUsDB);
            // It is not in the file yet: try again, and say so when it still fails.
            SaveCurUser();
        } else {
            OpenUser(this, CurUser, pasw);
        }
        WipeString(pasw);
        if (frmSysTray* tray = TrayObject())
            for (int i = 0; i < tray->MenuCount(); ++i)
                tray->EnableMenuItem(i, true);
        m_locked = false;
    } else {
        m_locked = false;
        // One more try to keep what the lock could not save; should it fail, the close
        // tries again (the file merges it in then, whatever happened to it meanwhile).
        if (UsSession().SaveKept() < 0 && UsSession().HasKept())
            MsgBox(Texts(247), vbCritical);
        UnloadUser();
    }
    SetCommandStates();
}

void frmMain::tmrAutobackup_Timer() {
    TRACE_PROC("frmMain.tmrAutobackup_Timer");
    // The copy is made from the file: the window saves first through its own path, which
    // deals with changes made elsewhere. A user that cannot be saved now gets its copy at
    // a later tick.
    if (UserLoaded() && AutobackupTickCount % 60 == 0 && SaveCurUser() < 0)
        return;
    AutobackupTick(tmrAutobackup->interval());
}
