// The main window by keyboard: the Edit menu with the tree's commands and their keys,
// Shift+F10 for the tree's context menu, the tool bar's buttons as Tab stops, and the
// toggle that shows a password the value pane hides.

#include "mainwindow/frmMain.h"

#include "app/modLang.h"
#include "diagnostics/Trace.h"
#include "options/PanePassword.h"

#include <QCheckBox>
#include <QContextMenuEvent>
#include <QMenu>
#include <QMenuBar>
#include <QSplitter>
#include <QTextEdit>
#include <QToolBar>
#include <QVBoxLayout>

bool UsTreeView::event(QEvent* e) {
    if (e->type() == QEvent::ContextMenu &&
        static_cast<QContextMenuEvent*>(e)->reason() == QContextMenuEvent::Keyboard) {
        emit keyboardMenuRequested();
        e->accept();
        return true;
    }
    return QTreeView::event(e);
}

void frmMain::BuildKeyboard() {
    TRACE_PROC("frmMain.BuildKeyboard");
    mnuEdit = new QMenu(this);
    mnuEdit->setObjectName(QStringLiteral("mnuEdit"));
    menuBar()->insertMenu(mnuView->menuAction(), mnuEdit);
    // Each command acts on the selected node, as the tool bar's do.
    const auto item = [this](const char* name, void (frmMain::*slot)()) {
        QAction* a = mnuEdit->addAction(QString());
        a->setObjectName(QString::fromLatin1(name));
        connect(a, &QAction::triggered, this, [this, slot] {
            m_dropHighlight = CurrentNode();
            (this->*slot)();
        });
        return a;
    };
    mnuEditAddFolder = item("mnuEditAddFolder", &frmMain::mnuContextTrvAddFolder_Click);
    mnuEditAddRec = item("mnuEditAddRec", &frmMain::mnuContextTrvAddRec_Click);
    mnuEdit->addSeparator();
    mnuEditEdit = item("mnuEditEdit", &frmMain::mnuContextTrvEdit_Click);
    mnuEditRename = item("mnuEditRename", &frmMain::mnuContextTrvRename_Click);
    mnuEditDelete = item("mnuEditDelete", &frmMain::mnuContextTrvDelFolder_Click);
    mnuEdit->addSeparator();
    mnuEdit->addAction(mnuContextTrvCopyLog);
    mnuEdit->addAction(mnuContextTrvCopyPasw);
    mnuEdit->addSeparator();
    mnuEditFind = item("mnuEditFind", &frmMain::mnuToolsFind_Click);

    mnuEditAddFolder->setShortcut(QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_N));
    mnuEditAddRec->setShortcut(QKeySequence(Qt::Key_Insert));
    mnuEditEdit->setShortcuts({QKeySequence(Qt::Key_Return), QKeySequence(Qt::Key_Enter)});
    mnuEditRename->setShortcut(QKeySequence(Qt::Key_F2));
    mnuEditDelete->setShortcut(QKeySequence::Delete);
    // Keys that an edit field also knows act only while the tree has the focus: Delete,
    // Enter and Ctrl+C keep their meaning in the value pane and in a label being renamed.
    for (QAction* a : {mnuEditAddRec, mnuEditEdit, mnuEditRename, mnuEditDelete}) {
        a->setShortcutContext(Qt::WidgetShortcut);
        trvDatabase->addAction(a);
    }
    // Ctrl+N (Insert's twin) and Ctrl+Shift+N work anywhere in the window.
    auto* keyNew = new QAction(this);
    keyNew->setShortcut(QKeySequence::New);
    connect(keyNew, &QAction::triggered, mnuEditAddRec, &QAction::trigger);
    addAction(keyNew);

    // F10 opens the first menu of the menu bar (the GNOME habit; Alt+letter works too).
    auto* keyMenuBar = new QAction(this);
    keyMenuBar->setShortcut(QKeySequence(Qt::Key_F10));
    connect(keyMenuBar, &QAction::triggered, this,
            [this] { menuBar()->setActiveAction(mnufile->menuAction()); });
    addAction(keyMenuBar);

    auto* keyMenu = new QAction(trvDatabase);
    keyMenu->setShortcut(QKeySequence(Qt::SHIFT | Qt::Key_F10));
    keyMenu->setShortcutContext(Qt::WidgetShortcut);
    connect(keyMenu, &QAction::triggered, this, &frmMain::ShowTreeMenuForCurrent);
    connect(trvDatabase, &UsTreeView::keyboardMenuRequested, this, &frmMain::ShowTreeMenuForCurrent);
    trvDatabase->addAction(keyMenu);

    for (QAction* a : tlbToolbar->actions()) {
        if (QWidget* w = tlbToolbar->widgetForAction(a); w && !a->isSeparator())
            w->setFocusPolicy(Qt::TabFocus);
    }
    BuildShowPaswToggle();
}

// The value pane with the toggle below it; the toggle is there only while the option hides
// a record's password.
void frmMain::BuildShowPaswToggle() {
    auto* pane = new QWidget;
    pane->setObjectName(QStringLiteral("pnlValue"));
    // The pane takes the splitter's stretch and policy that the value pane had.
    pane->setSizePolicy(txtValue->sizePolicy());
    splMain->replaceWidget(1, pane);
    auto* lay = new QVBoxLayout(pane);
    lay->setContentsMargins(0, 0, 0, 0);
    lay->addWidget(txtValue, 1);
    chkShowPasw = new QCheckBox;
    chkShowPasw->setObjectName(QStringLiteral("chkShowPasw"));
    chkShowPasw->hide();
    lay->addWidget(chkShowPasw);
    connect(chkShowPasw, &QCheckBox::toggled, this, [this] { RefreshValuePane(); });
    // Another node hides the password again (before the pane shows the node).
    connect(trvDatabase->selectionModel(), &QItemSelectionModel::currentChanged, this, [this] {
        const QSignalBlocker quiet(chkShowPasw);
        chkShowPasw->setChecked(false);
    });
    setTabOrder(trvDatabase, txtValue);
    setTabOrder(txtValue, chkShowPasw);
}

void frmMain::ShowKeyboardLang() {
    mnuEdit->setTitle(Texts(540));
    mnuEditAddFolder->setText(Texts(541));
    mnuEditAddRec->setText(Texts(542));
    mnuEditEdit->setText(Texts(543));
    mnuEditRename->setText(Texts(544));
    mnuEditDelete->setText(Texts(545));
    mnuEditFind->setText(Texts(546));
    chkShowPasw->setText(Texts(550));
}

// The Edit menu follows the tool bar and the context menu, which SetCommandStates sets.
void frmMain::SetEditMenuStates() {
    mnuEditAddFolder->setEnabled(mnuContextTrvAddFolder->isEnabled());
    mnuEditAddRec->setEnabled(mnuContextTrvAddRec->isEnabled());
    mnuEditEdit->setEnabled(mnuContextTrvEdit->isEnabled());
    mnuEditRename->setEnabled(mnuContextTrvRename->isEnabled());
    mnuEditDelete->setEnabled(mnuContextTrvDelFolder->isEnabled() || mnuContextTrvDelRec->isEnabled());
    mnuEditFind->setEnabled(mnuToolsFind->isEnabled());
    chkShowPasw->setVisible(m_curRecord != 0 && PaneHidesPassword());
}

// Shift+F10 (and the Menu key, which the platform sends as a context-menu request): the
// tree's context menu at the selected row.
void frmMain::ShowTreeMenuForCurrent() {
    const QModelIndex node = CurrentNode();
    if (!node.isValid() || !UserLoaded())
        return;
    trvDatabase->scrollTo(node);
    m_dropHighlight = node;
    SetCommandStates();
    const QRect r = trvDatabase->visualRect(node);
    mnuContextTrv->popup(trvDatabase->viewport()->mapToGlobal(QPoint(r.left() + 16, r.center().y())));
}

void frmMain::RefreshValuePane() {
    if (m_curRecord != 0)
        trvDatabase_Click();
    SetEditMenuStates();
}
