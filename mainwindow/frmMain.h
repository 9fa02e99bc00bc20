#pragma once

// The main window: menu bar, tool bar, the tree of the current user's database on the
// left, the selected record's fields on the right, the status bar below. It shows the
// user that the account routines open (IUserView), keeps the tree in line with what the
// record dialogs change (IRecordView), runs every command, locks itself after inactivity
// and drives the automatic backup.

#include "records/IRecordView.h"
#include "users/IUserView.h"

#include <QHash>
#include <QList>
#include <QMainWindow>
#include <QPersistentModelIndex>
#include <QSet>
#include <QTreeView>

#include <memory>

class QAction;
class QCheckBox;
class QFileSystemWatcher;
class QLabel;
class QMenu;
class QSplitter;
class QTextEdit;
class QTimer;
class QToolBar;
class IActivitySource;
struct clsCopyMerge;
class GuiActivitySource;
class SessionWatch;
class EndSessionWatch;
class clsDatabase;
class UsTreeModel;
class ValueExtras;

// The tree, with moves by drag and drop handed to the main window.
class UsTreeView : public QTreeView {
    Q_OBJECT
public:
    using QTreeView::QTreeView;
    bool Dragging() const { return state() == DraggingState; }
signals:
    void nodeDropped(const QModelIndex& Node, const QModelIndex& Target);
    // The Menu key asked for the context menu (of the selected row, not the one under
    // the mouse).
    void keyboardMenuRequested();

protected:
    bool event(QEvent* e) override;
    void dropEvent(QDropEvent* e) override;
    void dragMoveEvent(QDragMoveEvent* e) override;
};

class frmMain : public QMainWindow, public IUserView, public IRecordView {
    Q_OBJECT
public:
    explicit frmMain(QWidget* parent = nullptr);
    ~frmMain() override;

    // First load: window settings, captions, then show; completes start-up.
    void Form_Load();
    void ShowFormLang();
    // Settings 1, 2, 6 and 16-20 onto the window, and the window's geometry back.
    void DoConfig();
    void SaveGUIConf();

    // IUserView
    void ClearUsTree() override;
    void ClearUsValue() override;
    void ShowUsDB(clsDatabase& UsDB) override;

    // The tree and the value pane.
    void ShowUsDBInTreeView(clsDatabase& UsDB);
    void ShowDataInTextBox(clsDatabase& UsDB, int TblNum, int RecNum);
    void AddColoredTxt(const QString& Text, int col, int flags);
    // The value pane again for the selected node (after the options changed).
    void RefreshValuePane();
    // The node of a row (or "0key" for the root), made when its folders were never
    // opened; invalid when the tree does not show the row.
    QModelIndex NodeByKey(const QString& Key) const;
    static QString NodeKey(const QModelIndex& Node);
    static int NodeId(const QModelIndex& Node);
    static QString NodeTag(const QModelIndex& Node);
    UsTreeModel* TreeModel() const { return m_model; }

    // IRecordView
    void ShowAddedRow(const QString& IndNum) override;
    void RefreshRowNode(const QString& IndNum) override;
    void InsertImportedRows(int FirstRec) override;
    void ShowFoundRow(const QString& IndNum) override;
    // The status bar's counts of the selected node, after rows were added, deleted,
    // moved or merged (the row index is rebuilt first).
    void RefreshStatusCounts();

    // The row of an identifier in the current database, 0 when there is none.
    int RowOf(const QString& IndNum);

    // Saving. Every save of the window goes through SaveCurUser, which says what went
    // wrong; the result is SaveUsDB's. AfterChange follows every change the window makes:
    // with settings entry 22 on, it saves at once. The title carries " *" while memory
    // differs from the file.
    int SaveCurUser() override;
    // Returns the save's result, 0 when it did not save.
    int AfterChange();
    bool HasUnsavedChanges() const;
    void UpdateTitle();
    static bool SaveAfterEveryChange();
    // The tree built again from the database, keeping the expanded folders, the
    // selection (the root when its row is gone) and the scroll position.
    void RebuildTreeKeepingState();
    // A termination signal: settings and database saved as Exit does, without its
    // question, then the program ends. The desktop session's commit saves the same.
    void EndSession(int Signal);
    void CommitSessionData();

    // Inactivity: the source of input (tests give their own) and the lock.
    void SetActivitySource(IActivitySource* Source);
    void LockNow();
    bool IsLocked() const { return m_locked; }
    // The desktop's secret storage (frmMainSecrets.cpp): the provider starts with the
    // window when settings entry 28 is on; its unlock prompt is this window's password
    // question. UnlockForClient answers whether the user is open and unlocked afterwards.
    void StartSecretService();
    bool UnlockForClient();
    int CurrentRecord() const { return m_curRecord; }
    QModelIndex DropHighlight() const { return m_dropHighlight; }
    void SetDropHighlight(const QModelIndex& Node) { m_dropHighlight = Node; }

    UsTreeView* trvDatabase = nullptr;
    QTextEdit* txtValue = nullptr;
    QToolBar* tlbToolbar = nullptr;
    QStatusBar* sbStatusBar = nullptr;
    QSplitter* splMain = nullptr;
    QLabel* sbPanel = nullptr;
    // Seconds until a copied password leaves the clipboard.
    QLabel* sbClipPanel = nullptr;
    QTimer* tmrTimer = nullptr;
    QTimer* tmrAutobackup = nullptr;

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
    QAction *mnuFileImport, *mnuFileExport;
    QAction *mnuViewToolBar, *mnuViewStatusbar, *mnuViewOnTop;
    QAction *mnuToolsClearClip, *mnuToolsFind, *mnuToolsOptions, *mnuToolsGenerator, *mnuToolsFlash;
    QAction* mnuToolsHealth = nullptr;
    QAction *mnuHelpContents, *mnuHelpAbout, *mnuHelpAskSupport;
    QAction *mnuContextTrvAddFolder, *mnuContextTrvAddRec, *mnuContextTrvDelFolder, *mnuContextTrvDelRec,
        *mnuContextTrvEdit, *mnuContextTrvRename, *mnuContextTrvCopyPasw, *mnuContextTrvCopyLog;
    QAction *mnuContextValCopyDesc, *mnuContextValCopyLog, *mnuContextValCopyPasw, *mnuContextValCopyTit;
    QAction *mnuTraySelectUser, *mnuTrayExit, *mnuTrayGenPasw, *mnuTraySaveDB, *mnuTrayShow,
        *mnuTrayUnloadUser;
    // The Edit menu: the tree's commands on the selected node, with their keys (the two
    // copies are the context menu's own items).
    QMenu* mnuEdit = nullptr;
    QAction *mnuEditAddFolder = nullptr, *mnuEditAddRec = nullptr, *mnuEditEdit = nullptr,
            *mnuEditRename = nullptr, *mnuEditDelete = nullptr, *mnuEditFind = nullptr;
    // Shows or hides the password in the value pane (when the option hides it).
    QCheckBox* chkShowPasw = nullptr;
    // Tool bar keys, in the order of the bar.
    QAction *btnSelectUser, *btnAddUser, *btnDelUser, *btnAddFolder, *btnDelFolder, *btnAddRec, *btnDelRec,
        *btnRename, *btnFind;

    // The user answered Yes to the exit question (asked once).
    bool CloseConfirmed = false;

public slots:
    void mnuFileSelectUser_Click();
    void mnuFileAddUser_Click();
    void mnuFileChangeUsPasw_Click();
    void mnuFileDelCurUser_Click();
    void mnuFileSaveDB_Click();
    void mnuFileUnloadUser_Click();
    void mnuFileBackup_Click();
    void mnuFileImport_Click();
    void mnuFileExport_Click();
    void mnuFileExit_Click();
    void mnuViewOnTop_Click();
    void mnuViewStatusbar_Click();
    void mnuViewToolBar_Click();
    void mnuToolsFind_Click();
    void mnuToolsGenerator_Click();
    void mnuToolsOptions_Click();
    void mnuToolsClearClip_Click();
    void mnuToolsFlash_Click();
    void mnuToolsHealth_Click();
    void mnuHelpContents_Click();
    void mnuHelpAskSupport_Click();
    void mnuHelpAbout_Click();
    void mnuContextTrvAddFolder_Click();
    void mnuContextTrvDelFolder_Click();
    void mnuContextTrvDelRec_Click();
    void mnuContextTrvAddRec_Click();
    void mnuContextTrvRename_Click();
    void mnuContextTrvEdit_Click();
    void mnuContextValCopy(const QString& FieldName);
    // Copies a field of the record node the tree's commands act on (right click, or the
    // selected node for the keyboard).
    void mnuContextTrvCopy(const QString& FieldName);
    void mnuTrayShow_Click();
    void tlbToolbar_ButtonClick(QAction* Button);
    void trvDatabase_Click();
    void trvDatabase_AfterLabelEdit(const QModelIndex& Node, const QString& Title);
    void MoveNode(const QModelIndex& Node, const QModelIndex& Target);
    void m_frmSysTray_MenuClick(int lIndex, const QString& sKey);
    void tmrTimer_Timer();
    void tmrAutobackup_Timer();

protected:
    void closeEvent(QCloseEvent* e) override;
    void showEvent(QShowEvent* e) override;
    void paintEvent(QPaintEvent* e) override;
    void changeEvent(QEvent* e) override;

private:
    void BuildMenus();
    void BuildToolbar();
    // Keyboard use (frmMainKeys.cpp): the Edit menu, the tree's keys and Shift+F10, tool
    // bar buttons as Tab stops; their texts, and their states after SetCommandStates.
    void BuildKeyboard();
    void BuildShowPaswToggle();
    void ShowKeyboardLang();
    void SetEditMenuStates();
    void ShowTreeMenuForCurrent();
    void ApplyOnTop(bool OnTop);
    // Saving on the way out: the database, geometry and settings. False when the
    // database could not be written (the window then stays).
    bool Form_Unload();
    // What the way out does after the database was saved (or kept in a sealed copy).
    void FinishUnload();
    int SettleSave(int Result);
    int SaveWithFileKey();
    int SettleDamagedFile();
    int SettleOlderFile();
    void ShowFileTakenIn(const QString& Message);
    void SyncWatch();
    void RefreshFromFile();
    // Conflict copies of the open user (frmMainSync.cpp).
    void MergeWaitingCopies();
    void ReportCopyMerges(const QList<clsCopyMerge>& Done, int Save);
    void AskCopyPassword(const QString& Copy, const QString& Look);
    // True when the file at Path looks as it did at the last call (or is gone).
    bool FileSettled(const QString& Path);
    // Closes every open dialog; each counts as declined.
    void CloseDialogs();
    void Form_Paint();
    // The current node, and whether it is the root.
    QModelIndex CurrentNode() const;
    bool IsRoot(const QModelIndex& Node) const;
    // After rows were added, deleted or moved: the tree and the row index in line.
    void TreeTableChanged();
    // Brings the tree in line with a row that an editor added, without reloading it: the
    // new row's node goes under its folder (folders on top, records at the end).
    QModelIndex InsertRowNode(const QString& IndNum);
    void SetCommandStates();
    void ShowStatusCounts(const QString& IndNum);
    // A field of a row onto the clipboard: the password as a secret, the rest as text.
    void CopyRowField(int Rec, const QString& FieldName);
    void ShowClipCountdown(int SecondsLeft);
    bool UserLoaded() const;
    bool SameUserOpen(const clsDatabase* Asked) const;
    static clsDatabase* CurUsDBRef();
    QModelIndex CommandNode() const;
    void RegisterReportVars();

    UsTreeModel* m_model = nullptr;
    ValueExtras* m_valueExtras = nullptr; // web address, one-time code, custom fields
    QPersistentModelIndex m_dropHighlight;
    int m_curRecord = 0;
    bool m_locked = false;
    // A database that could not be saved when the lock closed it: kept, hidden, until
    // the password brings it back.
    bool m_toldHidden = false;
    bool m_editingLabel = false;
    std::unique_ptr<GuiActivitySource> m_guiActivity;
    IActivitySource* m_activity = nullptr;
    SessionWatch* m_session = nullptr;
    EndSessionWatch* m_endWatch = nullptr;
    // Changes made to the user's file elsewhere are taken in at once.
    QFileSystemWatcher* m_watch = nullptr;
    QTimer* m_refreshTimer = nullptr;
    bool m_refreshing = false;
    // Conflict copies: each one's size and times at the last look (read once they stay
    // the same), and those already asked a password for or found damaged (path|look).
    QHash<QString, QString> m_copyLooks;
    QSet<QString> m_askedCopies;
    QString m_fileLook; // the user's file at the last look
    // The file state last reported (key changed, file deleted), so it is reported once.
    int m_toldFileState = 0;
    bool m_ending = false;
    bool m_unloaded = false;
};
