#pragma once

// The main window: menu bar, tool bar, the tree of the current user's database on the
// left, the selected record's fields on the right, the status bar below.

#include <QMainWindow>

class QAction;
class QMenu;
class QSplitter;
class QTextEdit;
class QToolBar;
class QTreeWidget;
class QLabel;

class frmMain : public QMainWindow {
    Q_OBJECT
public:
    explicit frmMain(QWidget* parent = nullptr);

    // First load: window settings, captions, then show; completes start-up.
    void Form_Load();
    void ShowFormLang();
    // Settings 1, 2, 6 and 16-20 onto the window, and the window's geometry back.
    void DoConfig();
    void SaveGUIConf();

    QTreeWidget* trvDatabase = nullptr;
    QTextEdit* txtValue = nullptr;
    QToolBar* tlbToolbar = nullptr;
    QStatusBar* sbStatusBar = nullptr;
    QSplitter* splMain = nullptr;
    QLabel* sbPanel = nullptr;

    // Menus and their items.
    QMenu* mnufile = nullptr;
    QMenu* mnuView = nullptr;
    QMenu* mnuTools = nullptr;
    QMenu* mnuHelp = nullptr;
    QMenu* mnuContextTrv = nullptr;
    QMenu* mnuContextVal = nullptr;
    QMenu* mnuTray = nullptr;
    QAction *mnuFileAddUser, *mnuFileDelCurUser, *mnuFileSelectUser, *mnuFileChangeUsPasw, *mnuFileSaveDB,
        *mnuFileExit, *mnuFileUnloadUser, *mnuFileBackup;
    QAction *mnuViewToolBar, *mnuViewStatusbar, *mnuViewOnTop;
    QAction *mnuToolsClearClip, *mnuToolsFind, *mnuToolsOptions, *mnuToolsGenerator, *mnuToolsFlash;
    QAction *mnuHelpContents, *mnuHelpAbout, *mnuHelpAskSupport;
    QAction *mnuContextTrvAddFolder, *mnuContextTrvAddRec, *mnuContextTrvDelFolder, *mnuContextTrvDelRec,
        *mnuContextTrvEdit, *mnuContextTrvRename;
    QAction *mnuContextValCopyDesc, *mnuContextValCopyLog, *mnuContextValCopyPasw, *mnuContextValCopyTit;
    QAction *mnuTraySelectUser, *mnuTrayExit, *mnuTrayGenPasw, *mnuTraySaveDB, *mnuTrayShow,
        *mnuTrayUnloadUser;
    // Tool bar keys, in the order of the bar.
    QAction *btnSelectUser, *btnAddUser, *btnDelUser, *btnAddFolder, *btnDelFolder, *btnAddRec, *btnDelRec,
        *btnRename, *btnFind;

    // The user answered Yes to the exit question (asked once).
    bool CloseConfirmed = false;

public slots:
    void mnuFileExit_Click();
    void mnuViewOnTop_Click();
    void mnuViewStatusbar_Click();
    void mnuViewToolBar_Click();
    void mnuToolsClearClip_Click();
    void mnuHelpContents_Click();
    void mnuHelpAbout_Click();
    void mnuTrayShow_Click();
    void mnuToolsOptions_Click();
    void m_frmSysTray_MenuClick(int lIndex, const QString& sKey);

protected:
    void closeEvent(QCloseEvent* e) override;

private:
    void BuildMenus();
    void BuildToolbar();
    void ApplyOnTop(bool OnTop);
    // Saving on the way out: geometry, settings (and later the database).
    void Form_Unload();
    bool m_toldHidden = false;
};
