#include "mainwindow/frmMain.h"
#include "mainwindow/guiTreeModel.h"

#include "app/MsgBox.h"
#include "app/ProgConfig.h"
#include "app/VbConv.h"
#include "app/guiSecretClipboard.h"
#include "app/modLang.h"
#include "app/modMain.h"
#include "diagnostics/DbgPrint.h"
#include "diagnostics/Globals.h"
#include "diagnostics/Trace.h"
#include "mainwindow/guiActivitySource.h"
#include "mainwindow/guiBrowserLink.h"
#include "mainwindow/guiEndSession.h"
#include "mainwindow/guiSessionWatch.h"
#include "mainwindow/guiValueExtras.h"
#include "options/AutorunManagement.h"
#include "storage/clsDatabase.h"
#include "tray/frmSysTray.h"
#include "tray/guiModTray.h"
#include "users/UserAccounts.h"
#include "users/UserSession.h"
#include "users/frmPassword.h"
#include "users/guiOpenUser.h"

#include <QApplication>
#include <QClipboard>
#include <QCloseEvent>
#include <QDesktopServices>
#include <QFileSystemWatcher>
#include <QLabel>
#include <QMenuBar>
#include <QScreen>
#include <QSessionManager>
#include <QSplitter>
#include <QStatusBar>
#include <QTextEdit>
#include <QTimer>
#include <QToolBar>
#include <QTreeView>
#include <QUrl>

namespace {
int twipsToPx(const QString& v) {
    return CLng(v) / kTwipsPerPixel;
}
QString pxToTwips(int px) {
    return QString::number(px * kTwipsPerPixel);
}
} // namespace

frmMain::frmMain(QWidget* parent) : QMainWindow(parent) {
    TRACE_PROC("frmMain.Form_Initialize");
    m_model = new UsTreeModel(this);
    RegisterReportVars();
    // The icons live in a static library, whose resources must be registered by hand.
    Q_INIT_RESOURCE(icons);
    setObjectName(QStringLiteral("frmMain"));
    trvDatabase = new UsTreeView;
    trvDatabase->setModel(m_model);
    trvDatabase->setObjectName(QStringLiteral("trvDatabase"));
    trvDatabase->setHeaderHidden(true);
    trvDatabase->setContextMenuPolicy(Qt::CustomContextMenu);
    trvDatabase->setUniformRowHeights(true);
    trvDatabase->setEditTriggers(QAbstractItemView::NoEditTriggers);
    trvDatabase->setDragEnabled(true);
    trvDatabase->setAcceptDrops(true);
    trvDatabase->setDropIndicatorShown(true);
    trvDatabase->setDragDropMode(QAbstractItemView::InternalMove);
    txtValue = new QTextEdit;
    txtValue->setObjectName(QStringLiteral("txtValue"));
    txtValue->setReadOnly(true);
    txtValue->setContextMenuPolicy(Qt::CustomContextMenu);
    splMain = new QSplitter(Qt::Horizontal);
    splMain->setObjectName(QStringLiteral("splMain"));
    splMain->addWidget(trvDatabase);
    splMain->addWidget(txtValue);
    splMain->setStretchFactor(1, 1);
    splMain->setChildrenCollapsible(false);
    setCentralWidget(splMain);

    sbStatusBar = statusBar();
    sbStatusBar->setObjectName(QStringLiteral("sbStatusBar"));
    sbPanel = new QLabel;
    sbStatusBar->addWidget(sbPanel, 1);
    sbClipPanel = new QLabel;
    sbClipPanel->setObjectName(QStringLiteral("sbClipPanel"));
    sbClipPanel->hide();
    sbStatusBar->addPermanentWidget(sbClipPanel);
    SecretClipboard& secretClip = SecretClipboard::Instance();
    connect(&secretClip, &SecretClipboard::countdownChanged, this, &frmMain::ShowClipCountdown);
    connect(&secretClip, &SecretClipboard::expired, this, [this](bool Cleared) {
        if (Cleared)
            sbStatusBar->showMessage(Texts(306), 3000);
    });

    BuildMenus();
    BuildToolbar();
    BuildKeyboard();
    m_valueExtras = new ValueExtras(
        this, txtValue, mnuContextVal, mnuContextTrv, [this] { return m_curRecord; },
        [this] {
            const QModelIndex node = CommandNode();
            return node.isValid() && !IsRoot(node) && NodeTag(node) == QStringLiteral("2") ? NodeId(node) : 0;
        });

    SetTrayCreatedHandler([this](frmSysTray* t) {
        connect(t, &frmSysTray::MenuClick, this, &frmMain::m_frmSysTray_MenuClick);
        connect(t, &frmSysTray::SysTrayDoubleClick, this, [this](int) { mnuTrayShow_Click(); });
        // Many desktop trays deliver single clicks only: the left button shows the window too.
        connect(t, &frmSysTray::SysTrayMouseDown, this, [this](int Button) {
            if (Button == vbLeftButton)
                mnuTrayShow_Click();
        });
    });

    connect(trvDatabase, &QWidget::customContextMenuRequested, this, [this](const QPoint& p) {
        // A right click picks the node the context commands act on.
        const QModelIndex node = trvDatabase->indexAt(p);
        if (!node.isValid())
            return;
        trvDatabase->setCurrentIndex(node);
        m_dropHighlight = node;
        mnuContextTrv->popup(trvDatabase->viewport()->mapToGlobal(p));
    });
    connect(txtValue, &QWidget::customContextMenuRequested, this,
            [this](const QPoint& p) { mnuContextVal->popup(txtValue->viewport()->mapToGlobal(p)); });
    // A click shows the node, also while or right after a label is edited.
    connect(trvDatabase->selectionModel(), &QItemSelectionModel::currentChanged, this,
            [this] { trvDatabase_Click(); });
    connect(trvDatabase, &QAbstractItemView::doubleClicked, this, [this](const QModelIndex& node) {
        if (node.isValid() && !IsRoot(node))
            mnuContextTrvEdit_Click();
    });
    connect(m_model, &UsTreeModel::titleEdited, this, &frmMain::trvDatabase_AfterLabelEdit);
    // An edit that ends without a change writes nothing.
    connect(trvDatabase->itemDelegate(), &QAbstractItemDelegate::closeEditor, this,
            [this] { QTimer::singleShot(0, this, [this] { m_editingLabel = false; }); });
    connect(trvDatabase, &UsTreeView::nodeDropped, this, &frmMain::MoveNode);
    connect(tlbToolbar, &QToolBar::actionTriggered, this, &frmMain::tlbToolbar_ButtonClick);

    tmrTimer = new QTimer(this);
    tmrTimer->setObjectName(QStringLiteral("tmrTimer"));
    tmrTimer->setInterval(500);
    connect(tmrTimer, &QTimer::timeout, this, &frmMain::tmrTimer_Timer);
    tmrAutobackup = new QTimer(this);
    tmrAutobackup->setObjectName(QStringLiteral("tmrAutobackup"));
    tmrAutobackup->setInterval(60000);
    connect(tmrAutobackup, &QTimer::timeout, this, &frmMain::tmrAutobackup_Timer);
    m_guiActivity = std::make_unique<GuiActivitySource>();
    m_activity = m_guiActivity.get();
    m_session = new SessionWatch(this);
    connect(m_session, &SessionWatch::lockRequested, this, &frmMain::LockNow);
    m_watch = new QFileSystemWatcher(this);
    m_refreshTimer = new QTimer(this);
    m_refreshTimer->setSingleShot(true);
    // A save elsewhere comes as a burst of changes of the folder: one look after it.
    m_refreshTimer->setInterval(150);
    connect(m_refreshTimer, &QTimer::timeout, this, &frmMain::RefreshFromFile);
    connect(m_watch, &QFileSystemWatcher::directoryChanged, this, [this] { m_refreshTimer->start(150); });
    connect(m_watch, &QFileSystemWatcher::fileChanged, this, [this] { m_refreshTimer->start(150); });
    m_endWatch = new EndSessionWatch(this);
    connect(m_endWatch, &EndSessionWatch::terminateRequested, this, &frmMain::EndSession);
    connect(qApp, &QGuiApplication::commitDataRequest, this,
            [this](QSessionManager&) { CommitSessionData(); });
    SetUserView(this);
    SetRecordView(this);
    SetSaveFirstHandler([this] { return SaveCurUser() >= 0; });
}

void frmMain::BuildMenus() {
    TRACE_PROC("frmMain.BuildMenus");
    auto item = [this](QMenu* m, const char* name) {
        QAction* a = m->addAction(QString());
        a->setObjectName(QString::fromLatin1(name));
        return a;
    };
    mnufile = menuBar()->addMenu(QString());
    mnufile->setObjectName(QStringLiteral("mnufile"));
    mnuFileSelectUser = item(mnufile, "mnuFileSelectUser");
    mnuFileAddUser = item(mnufile, "mnuFileAddUser");
    mnuFileChangeUsPasw = item(mnufile, "mnuFileChangeUsPasw");
    mnuFileDelCurUser = item(mnufile, "mnuFileDelCurUser");
    mnufile->addSeparator();
    mnuFileSaveDB = item(mnufile, "mnuFileSaveDB");
    mnuFileSaveDB->setShortcut(QKeySequence::Save);
    mnuFileUnloadUser = item(mnufile, "mnuFileUnloadUser");
    mnuFileBackup = item(mnufile, "mnuFileBackup");
    mnufile->addSeparator();
    mnuFileImport = item(mnufile, "mnuFileImport");
    mnuFileExport = item(mnufile, "mnuFileExport");
    mnufile->addSeparator();
    mnuFileExit = item(mnufile, "mnuFileExit");
    mnuFileExit->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Q));

    mnuView = menuBar()->addMenu(QString());
    mnuView->setObjectName(QStringLiteral("mnuView"));
    mnuViewToolBar = item(mnuView, "mnuViewToolBar");
    mnuViewStatusbar = item(mnuView, "mnuViewStatusbar");
    mnuViewOnTop = item(mnuView, "mnuViewOnTop");
    for (QAction* a : {mnuViewToolBar, mnuViewStatusbar, mnuViewOnTop})
        a->setCheckable(true);

    mnuTools = menuBar()->addMenu(QString());
    mnuTools->setObjectName(QStringLiteral("mnuTools"));
    mnuToolsFind = item(mnuTools, "mnuToolsFind");
    mnuToolsFind->setShortcut(QKeySequence::Find);
    mnuToolsGenerator = item(mnuTools, "mnuToolsGenerator");
    mnuToolsHealth = item(mnuTools, "mnuToolsHealth");
    mnuToolsClearClip = item(mnuTools, "mnuToolsClearClip");
    mnuTools->addSeparator();
    mnuToolsFlash = item(mnuTools, "mnuToolsFlash");
    mnuToolsOptions = item(mnuTools, "mnuToolsOptions");

    mnuHelp = menuBar()->addMenu(QString());
    mnuHelp->setObjectName(QStringLiteral("mnuHelp"));
    mnuHelpContents = item(mnuHelp, "mnuHelpContents");
    mnuHelpContents->setShortcut(QKeySequence::HelpContents);
    mnuHelpAskSupport = item(mnuHelp, "mnuHelpAskSupport");
    mnuHelp->addSeparator();
    mnuHelpAbout = item(mnuHelp, "mnuHelpAbout");

    mnuContextTrv = new QMenu(this);
    mnuContextTrv->setObjectName(QStringLiteral("mnuContextTrv"));
    mnuContextTrvAddFolder = item(mnuContextTrv, "mnuContextTrvAddFolder");
    mnuContextTrvAddRec = item(mnuContextTrv, "mnuContextTrvAddRec");
    mnuContextTrv->addSeparator();
    mnuContextTrvCopyPasw = item(mnuContextTrv, "mnuContextTrvCopyPasw");
    mnuContextTrvCopyLog = item(mnuContextTrv, "mnuContextTrvCopyLog");
    mnuContextTrv->addSeparator();
    mnuContextTrvEdit = item(mnuContextTrv, "mnuContextTrvEdit");
    mnuContextTrvRename = item(mnuContextTrv, "mnuContextTrvRename");
    mnuContextTrv->addSeparator();
    mnuContextTrvDelFolder = item(mnuContextTrv, "mnuContextTrvDelFolder");
    mnuContextTrvDelRec = item(mnuContextTrv, "mnuContextTrvDelRec");

    mnuContextVal = new QMenu(this);
    mnuContextVal->setObjectName(QStringLiteral("mnuContextVal"));
    mnuContextValCopyPasw = item(mnuContextVal, "mnuContextValCopyPasw");
    mnuContextValCopyLog = item(mnuContextVal, "mnuContextValCopyLog");
    mnuContextValCopyTit = item(mnuContextVal, "mnuContextValCopyTit");
    mnuContextValCopyDesc = item(mnuContextVal, "mnuContextValCopyDesc");

    // The tray icon's menu; the tray component shows it.
    mnuTray = new QMenu(this);
    mnuTray->setObjectName(QStringLiteral("mnuTray"));
    mnuTrayShow = item(mnuTray, "mnuTrayShow");
    mnuTrayGenPasw = item(mnuTray, "mnuTrayGenPasw");
    mnuTraySaveDB = item(mnuTray, "mnuTraySaveDB");
    mnuTraySelectUser = item(mnuTray, "mnuTraySelectUser");
    mnuTrayUnloadUser = item(mnuTray, "mnuTrayUnloadUser");
    mnuTray->addSeparator();
    mnuTrayExit = item(mnuTray, "mnuTrayExit");

    const auto on = [this](QAction* a, void (frmMain::*slot)()) {
        connect(a, &QAction::triggered, this, slot);
    };
    on(mnuFileSelectUser, &frmMain::mnuFileSelectUser_Click);
    on(mnuFileAddUser, &frmMain::mnuFileAddUser_Click);
    on(mnuFileChangeUsPasw, &frmMain::mnuFileChangeUsPasw_Click);
    on(mnuFileDelCurUser, &frmMain::mnuFileDelCurUser_Click);
    on(mnuFileSaveDB, &frmMain::mnuFileSaveDB_Click);
    on(mnuFileUnloadUser, &frmMain::mnuFileUnloadUser_Click);
    on(mnuFileBackup, &frmMain::mnuFileBackup_Click);
    on(mnuFileImport, &frmMain::mnuFileImport_Click);
    on(mnuFileExport, &frmMain::mnuFileExport_Click);
    on(mnuFileExit, &frmMain::mnuFileExit_Click);
    on(mnuViewOnTop, &frmMain::mnuViewOnTop_Click);
    on(mnuViewStatusbar, &frmMain::mnuViewStatusbar_Click);
    on(mnuViewToolBar, &frmMain::mnuViewToolBar_Click);
    on(mnuToolsFind, &frmMain::mnuToolsFind_Click);
    on(mnuToolsGenerator, &frmMain::mnuToolsGenerator_Click);
    on(mnuToolsOptions, &frmMain::mnuToolsOptions_Click);
    on(mnuToolsClearClip, &frmMain::mnuToolsClearClip_Click);
    on(mnuToolsFlash, &frmMain::mnuToolsFlash_Click);
    on(mnuToolsHealth, &frmMain::mnuToolsHealth_Click);
    on(mnuHelpContents, &frmMain::mnuHelpContents_Click);
    on(mnuHelpAskSupport, &frmMain::mnuHelpAskSupport_Click);
    on(mnuHelpAbout, &frmMain::mnuHelpAbout_Click);
    on(mnuContextTrvAddFolder, &frmMain::mnuContextTrvAddFolder_Click);
    on(mnuContextTrvDelFolder, &frmMain::mnuContextTrvDelFolder_Click);
    on(mnuContextTrvDelRec, &frmMain::mnuContextTrvDelRec_Click);
    on(mnuContextTrvAddRec, &frmMain::mnuContextTrvAddRec_Click);
    on(mnuContextTrvRename, &frmMain::mnuContextTrvRename_Click);
    on(mnuContextTrvEdit, &frmMain::mnuContextTrvEdit_Click);
    connect(mnuContextValCopyPasw, &QAction::triggered, this,
            [this] { mnuContextValCopy(QStringLiteral("Password")); });
    connect(mnuContextValCopyLog, &QAction::triggered, this,
            [this] { mnuContextValCopy(QStringLiteral("Login")); });
    connect(mnuContextValCopyTit, &QAction::triggered, this,
            [this] { mnuContextValCopy(QStringLiteral("Title")); });
    connect(mnuContextValCopyDesc, &QAction::triggered, this,
            [this] { mnuContextValCopy(QStringLiteral("Description")); });
    on(mnuTrayShow, &frmMain::mnuTrayShow_Click);
    on(mnuTrayExit, &frmMain::mnuFileExit_Click);
    on(mnuTraySaveDB, &frmMain::mnuFileSaveDB_Click);
    on(mnuTraySelectUser, &frmMain::mnuFileSelectUser_Click);
    on(mnuTrayGenPasw, &frmMain::mnuToolsGenerator_Click);
    on(mnuTrayUnloadUser, &frmMain::mnuFileUnloadUser_Click);
    // Ctrl+C copies the selected record's password and Ctrl+B its login, in the tree.
    mnuContextTrvCopyPasw->setShortcut(QKeySequence::Copy);
    mnuContextTrvCopyLog->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_B));
    for (QAction* a : {mnuContextTrvCopyPasw, mnuContextTrvCopyLog}) {
        a->setShortcutContext(Qt::WidgetShortcut);
        trvDatabase->addAction(a);
    }
    connect(mnuContextTrvCopyPasw, &QAction::triggered, this, [this] {
        // From the keyboard the selected node is the one to copy from.
        if (!mnuContextTrv->isVisible())
            m_dropHighlight = CurrentNode();
        mnuContextTrvCopy(QStringLiteral("Password"));
    });
    connect(mnuContextTrvCopyLog, &QAction::triggered, this, [this] {
        if (!mnuContextTrv->isVisible())
            m_dropHighlight = CurrentNode();
        mnuContextTrvCopy(QStringLiteral("Login"));
    });
}

void frmMain::BuildToolbar() {
    TRACE_PROC("frmMain.BuildToolbar");
    tlbToolbar = addToolBar(QString());
    tlbToolbar->setObjectName(QStringLiteral("tlbToolbar"));
    tlbToolbar->setMovable(false);
    tlbToolbar->setToolButtonStyle(Qt::ToolButtonIconOnly);
    tlbToolbar->setIconSize(QSize(24, 24));
    auto button = [this](const char* key, const char* icon) {
        QAction* a =
            tlbToolbar->addAction(QIcon(QStringLiteral(":/icons/") + QLatin1String(icon)), QString());
        a->setObjectName(QString::fromLatin1(key));
        return a;
    };
    btnSelectUser = button("btnSelectUser", "tb_select_user.png");
    btnAddUser = button("btnAddUser", "tb_add_user.png");
    btnDelUser = button("btnDelUser", "tb_del_user.png");
    tlbToolbar->addSeparator();
    btnAddFolder = button("btnAddFolder", "tb_add_folder.png");
    btnDelFolder = button("btnDelFolder", "tb_del_folder.png");
    btnAddRec = button("btnAddRec", "tb_add_rec.png");
    btnDelRec = button("btnDelRec", "tb_del_rec.png");
    btnRename = button("btnRename", "tb_rename.png");
    tlbToolbar->addSeparator();
    btnFind = button("btnFind", "tb_find.png");
}

void frmMain::ShowFormLang() {
    TRACE_PROC("frmMain.ShowFormLang");
    mnufile->setTitle(Texts(26));
    mnuFileAddUser->setText(Texts(30));
    mnuFileDelCurUser->setText(Texts(31));
    mnuFileSelectUser->setText(Texts(32));
    mnuFileChangeUsPasw->setText(Texts(33));
    mnuFileSaveDB->setText(Texts(34));
    mnuFileExit->setText(Texts(35));
    mnuFileUnloadUser->setText(Texts(141));
    mnuFileBackup->setText(Texts(142));
    mnuFileImport->setText(Texts(320));
    mnuFileExport->setText(Texts(321));
    mnuView->setTitle(Texts(27));
    mnuViewToolBar->setText(Texts(36));
    mnuViewStatusbar->setText(Texts(37));
    mnuViewOnTop->setText(Texts(38));
    mnuTools->setTitle(Texts(28));
    mnuToolsClearClip->setText(Texts(40));
    mnuToolsFind->setText(Texts(41));
    mnuToolsOptions->setText(Texts(42));
    mnuToolsGenerator->setText(Texts(39));
    mnuToolsFlash->setText(Texts(143));
    mnuToolsHealth->setText(Texts(424));
    mnuHelp->setTitle(Texts(29));
    mnuHelpContents->setText(Texts(43));
    mnuHelpAbout->setText(Texts(46));
    mnuHelpAskSupport->setText(Texts(44));
    mnuContextTrvAddFolder->setText(Texts(113));
    mnuContextTrvAddRec->setText(Texts(115));
    mnuContextTrvDelFolder->setText(Texts(114));
    mnuContextTrvDelRec->setText(Texts(116));
    mnuContextTrvEdit->setText(Texts(117));
    mnuContextTrvRename->setText(Texts(118));
    mnuContextTrvCopyPasw->setText(Texts(280));
    mnuContextTrvCopyLog->setText(Texts(281));
    mnuContextValCopyDesc->setText(Texts(121));
    mnuContextValCopyLog->setText(Texts(120));
    mnuContextValCopyPasw->setText(Texts(119));
    mnuContextValCopyTit->setText(Texts(122));
    mnuTraySelectUser->setText(Texts(126));
    mnuTrayExit->setText(Texts(127));
    mnuTrayGenPasw->setText(Texts(124));
    mnuTraySaveDB->setText(Texts(125));
    mnuTrayShow->setText(Texts(123));
    mnuTrayUnloadUser->setText(Texts(141));
    const QList<QAction*> buttons{btnSelectUser, btnAddUser, btnDelUser, btnAddFolder,
                                  btnDelFolder,  btnAddRec,  btnDelRec,  btnRename};
    for (int i = 0; i < buttons.size(); ++i)
        buttons[i]->setToolTip(Texts(47 + i));
    btnFind->setToolTip(Texts(157));
    for (QAction* b : buttons)
        b->setText(b->toolTip());
    btnFind->setText(btnFind->toolTip());
    setWindowTitle(Texts(158));
    UpdateTitle();
    trvDatabase->setAccessibleName(Texts(159));
    txtValue->setAccessibleName(Texts(160));
    tlbToolbar->setWindowTitle(Texts(161));
    tlbToolbar->setAccessibleName(Texts(161));
    sbStatusBar->setAccessibleName(Texts(162));
    ShowKeyboardLang();
    m_valueExtras->ShowFormLang();
}

void frmMain::ApplyOnTop(bool OnTop) {
    TRACE_PROC("frmMain.ApplyOnTop", OnTop);
    const bool wasVisible = isVisible();
    setWindowFlag(Qt::WindowStaysOnTopHint, OnTop);
    // Changing a window flag hides the window; show it again where it was.
    if (wasVisible)
        show();
}

void frmMain::DoConfig() {
    TRACE_PROC("frmMain.DoConfig");
    const bool onTop = CBool(ProgConfig[kCfgOnTop]);
    const bool statusVisible = CBool(ProgConfig[kCfgStatusbar]);
    const bool toolVisible = CBool(ProgConfig[kCfgToolbar]);
    mnuViewOnTop->setChecked(onTop);
    mnuViewStatusbar->setChecked(statusVisible);
    mnuViewToolBar->setChecked(toolVisible);
    ApplyOnTop(onTop);
    tlbToolbar->setVisible(toolVisible);
    sbStatusBar->setVisible(statusVisible);

    const int treeWidth = twipsToPx(ProgConfig[kCfgTreeWidth]);
    const int width = twipsToPx(ProgConfig[kCfgMainWidth]);
    const int height = twipsToPx(ProgConfig[kCfgMainHeight]);
    const int top = twipsToPx(ProgConfig[kCfgMainTop]);
    const int left = twipsToPx(ProgConfig[kCfgMainLeft]);
    resize(std::max(width, 200), std::max(height, 150));
    QPoint pos(left, top);
    // A position stored on a screen that is no longer attached would hide the window.
    if (QScreen* primary = QGuiApplication::primaryScreen()) {
        if (!QGuiApplication::screenAt(pos + QPoint(40, 20)))
            pos = primary->availableGeometry().topLeft() + QPoint(40, 40);
    }
    move(pos);
    const int rest = std::max(100, this->width() - treeWidth);
    splMain->setSizes({std::max(treeWidth, 60), rest});
}

void frmMain::SaveGUIConf() {
    TRACE_PROC("frmMain.SaveGUIConf");
    ProgConfig[kCfgMainWidth] = pxToTwips(width());
    ProgConfig[kCfgMainHeight] = pxToTwips(height());
    ProgConfig[kCfgMainLeft] = pxToTwips(x());
    ProgConfig[kCfgMainTop] = pxToTwips(y());
    ProgConfig[kCfgTreeWidth] = pxToTwips(splMain->sizes().value(0));
}

void frmMain::Form_Load() {
    TRACE_PROC("frmMain.Form_Load");
    DbgPrint(QStringLiteral("TESTPOINT 1"));
    trvDatabase->setRootIsDecorated(true);
    trvDatabase->setIndentation(18);
    DbgPrint(QStringLiteral("TESTPOINT 2"));
    AutorunManagement(CBool(ProgConfig[kCfgAutostart]));
    ConnectBrowser(*this);
    DoConfig();
    setWindowIcon(QIcon(Pt(AppPath()) + QStringLiteral("mainicon.png")));
    ShowFormLang();
    DbgPrint(QStringLiteral("TESTPOINT 3"));
    show();
    DbgPrint(QStringLiteral("TESTPOINT 4"));
    // Open the last user at start when the settings ask for it.
    if (!ProgConfig[kCfgLastUser].isEmpty() && CBool(ProgConfig[kCfgLoadLastUser])) {
        if (AskUserPassword(this, ProgConfig[kCfgLastUser]) == 1) {
            QString pasw = FrmPaswEnetered;
            FrmPaswEnetered.clear();
            OpenUser(this, ProgConfig[kCfgLastUser], pasw);
            WipeString(pasw);
        }
    }
    DbgPrint(QStringLiteral("TESTPOINT 5"));
    if (ProgConfig[kCfgTrayMode] == QStringLiteral("1"))
        TrayIconManagement(1);
    DbgPrint(QStringLiteral("TESTPOINT 6"));
    SetCommandStates();
    tmrTimer->start();
    tmrAutobackup->start();
}

void frmMain::closeEvent(QCloseEvent* e) {
    TRACE_PROC("frmMain.Form_QueryUnload");
    if (m_unloaded) {
        e->accept();
        return;
    }
    // Tray mode holds only while the icon is there to bring the window back.
    const bool trayMode = ProgConfig[kCfgTrayMode] == QStringLiteral("1") && DoUnloadTIcon;
    if (!CloseConfirmed && !trayMode) {
        if (MsgBox(Texts(1), vbYesNo | vbQuestion) != vbYes) {
            e->ignore();
            return;
        }
        CloseConfirmed = true;
    }
    if (!CloseConfirmed) {
        // Tray mode: the close box hides the window; only Exit ends the program.
        e->ignore();
        hide();
        if (!m_toldHidden && TrayObject()) {
            m_toldHidden = true;
            TrayObject()->ShowBalloonTip(Texts(169), Texts(158));
        }
        return;
    }
    if (!Form_Unload()) {
        // The database could not be saved: the program stays, with the changes open.
        CloseConfirmed = false;
        e->ignore();
        return;
    }
    e->accept();
}

bool frmMain::Form_Unload() {
    TRACE_PROC("frmMain.Form_Unload");
    // A password copied from this program does not outlive it on the clipboard.
    SecretClipboard::Instance().ClearIfOurs();
    if (UserLoaded() && SaveCurUser() < 0)
        return false;
    // Changes the lock could not save are tried once more.
    if (UsSession().HasKept() && UsSession().SaveKept() < 0) {
        MsgBox(Texts(247), vbCritical);
        return false;
    }
    FinishUnload();
    return true;
}

void frmMain::FinishUnload() {
    if (DoUnloadTIcon)
        TrayIconManagement(2);
    if (!isMinimized())
        SaveGUIConf();
    SaveConfig(ProgCfgPath);
    tmrTimer->stop();
    tmrAutobackup->stop();
}

frmMain::~frmMain() {
    DisconnectBrowser();
    argent::diag::dropVars(this);
    if (UserView() == this)
        SetUserView(nullptr);
    if (RecordView() == this)
        SetRecordView(nullptr);
    SetSaveFirstHandler(nullptr);
}

// The window's state as an error report shows it.
void frmMain::RegisterReportVars() {
    using namespace argent::diag;
    registerOwned(this, "frmMain", "CurRecord", &m_curRecord);
    registerOwned(this, "frmMain", "CloseConfirmed", &CloseConfirmed);
    registerOwned(this, "frmMain", "Locked", &m_locked);
    registerOwned(this, "frmMain", "EditingLabel", &m_editingLabel);
    registerOwned(this, "frmMain", "ToldHidden", &m_toldHidden);
    registerOwnedCount(this, "frmMain", "NodeCount", m_model, [](const void* p) -> long long {
        return static_cast<const UsTreeModel*>(p)->NodeCount();
    });
}
