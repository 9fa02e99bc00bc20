// The main window's tree and value pane: how a user's database is shown.

#include "mainwindow/frmMain.h"

#include "app/VbConv.h"
#include "app/guiSecretClipboard.h"
#include "app/modLang.h"
#include "diagnostics/Trace.h"
#include "mainwindow/guiTreeModel.h"
#include "mainwindow/guiValueExtras.h"
#include "options/PanePassword.h"
#include "records/RecordTree.h"
#include "storage/clsDatabase.h"
#include "users/UsDBTree.h"
#include "users/UserAccounts.h"

#include <QCheckBox>
#include <QDragMoveEvent>
#include <QDropEvent>
#include <QLabel>
#include <QStatusBar>
#include <QTextCursor>
#include <QTextEdit>
#include <QTimer>

namespace {

// COLORREF (0x00BBGGRR) to a colour on screen.
QColor FromColorRef(int c) {
    return QColor(c & 0xFF, (c >> 8) & 0xFF, (c >> 16) & 0xFF);
}

} // namespace

void UsTreeView::dragMoveEvent(QDragMoveEvent* e) {
    QTreeView::dragMoveEvent(e);
    const QModelIndex target = indexAt(e->position().toPoint());
    // Only folders and the root take nodes.
    if (!target.isValid() || frmMain::NodeTag(target) == QStringLiteral("2"))
        e->ignore();
}

void UsTreeView::dropEvent(QDropEvent* e) {
    const QModelIndex target = indexAt(e->position().toPoint());
    const QModelIndex node = currentIndex();
    // The main window moves the node itself; the view's own move is never run.
    e->setDropAction(Qt::IgnoreAction);
    e->accept();
    stopAutoScroll();
    setState(NoState);
    viewport()->update();
    if (node.isValid() && target.isValid())
        emit nodeDropped(node, target);
}

QString frmMain::NodeKey(const QModelIndex& Node) {
    return Node.isValid() ? Node.data(UsTreeModel::KeyRole).toString() : QString();
}
int frmMain::NodeId(const QModelIndex& Node) {
    return static_cast<int>(Val(NodeKey(Node)));
}
QString frmMain::NodeTag(const QModelIndex& Node) {
    return Node.isValid() ? Node.data(UsTreeModel::TagRole).toString() : QString();
}

QModelIndex frmMain::NodeByKey(const QString& Key) const {
    if (Key == QStringLiteral("0key"))
        return m_model->RootIndex();
    const double v = Val(Key);
    if (v == 0 || v < INT_MIN || v > INT_MAX)
        return {};
    return m_model->IndexOfId(static_cast<int>(v));
}

QModelIndex frmMain::CurrentNode() const {
    const QModelIndex i = trvDatabase->currentIndex();
    return m_model->HasRoot() ? i : QModelIndex();
}

bool frmMain::IsRoot(const QModelIndex& Node) const {
    return Node.isValid() && !Node.parent().isValid();
}

int frmMain::RowOf(const QString& IndNum) {
    if (!UserLoaded())
        return 0;
    if (!m_model->HasRoot() || m_model->Db() != CurUsDB.get()) {
        // No tree of this database (a test or a bench without the window's tree): a
        // search of the table.
        return FindDataRow(*CurUsDB, IndNum);
    }
    bool ok = false;
    const int id = IndNum.toInt(&ok);
    if (!ok || QString::number(id) != IndNum)
        return FindDataRow(*CurUsDB, IndNum);
    const UsDBTreeIndex& ix = m_model->TreeIndex();
    if (!ix.Table())
        return 0;
    int row = ix.RowOfId(id);
    // A row found through an index that a change forgot to renew costs a renewal, never a
    // wrong row.
    const int rows = ix.Table() ? UsDBRowCount(*ix.Table()) : 0;
    const bool stale = rows != ix.Rows() || (row >= 0 && UsDBCell(*ix.Table(), row, ix.fIndNum) != IndNum);
    if (stale && !m_model->Busy()) {
        TreeTableChanged();
        row = m_model->TreeIndex().RowOfId(id);
    }
    // An identifier that a damaged file also writes another way (" 5") is searched for.
    if (row >= 0 && m_model->TreeIndex().Table() && row < UsDBRowCount(*m_model->TreeIndex().Table()) &&
        UsDBCell(*m_model->TreeIndex().Table(), row, m_model->TreeIndex().fIndNum) != IndNum)
        return FindDataRow(*CurUsDB, IndNum);
    return row + 1;
}

void frmMain::TreeTableChanged() {
    TRACE_PROC("frmMain.TreeTableChanged");
    if (!m_model->HasRoot() || !UserLoaded())
        return;
    if (m_model->Db() != CurUsDB.get()) {
        RebuildTreeKeepingState();
        return;
    }
    m_model->TableChanged();
    // The record shown may have gone with its row.
    if (m_curRecord != 0 && m_model->TreeIndex().RowOfId(m_curRecord) < 0) {
        m_curRecord = 0;
        txtValue->clear();
    }
}

void frmMain::ClearUsTree() {
    TRACE_PROC("frmMain.ClearUsTree");
    // The user is closed (unloaded, locked, or another one opened): a password of theirs
    // leaves the clipboard.
    SecretClipboard::Instance().ClearIfOurs();
    m_model->Clear();
    m_dropHighlight = QModelIndex();
    m_curRecord = 0;
    sbPanel->clear();
    SetCommandStates();
    UpdateTitle();
    if (!UserLoaded())
        SyncWatch();
}

void frmMain::ClearUsValue() {
    TRACE_PROC("frmMain.ClearUsValue");
    txtValue->clear();
    m_valueExtras->Clear();
    m_curRecord = 0;
}

void frmMain::ShowUsDB(clsDatabase& UsDB) {
    TRACE_PROC("frmMain.ShowUsDB");
    ShowUsDBInTreeView(UsDB);
    trvDatabase->setCurrentIndex(m_model->RootIndex());
    btnDelFolder->setEnabled(false);
    btnDelRec->setEnabled(false);
    ShowStatusCounts(QStringLiteral("0"));
    SetCommandStates();
    UpdateTitle();
    m_toldFileState = 0;
    SyncWatch();
    SplitTablesBehind(UsDB.DBView());
    // Conflict copies waiting beside the file: one look once the window shows the user.
    m_copyLooks.clear();
    m_refreshTimer->start(150);
}

void frmMain::ShowUsDBInTreeView(clsDatabase& UsDB) {
    TRACE_PROC("frmMain.ShowUsDBInTreeView");
    ClearUsTree();
    // Only the root and its children are made; a folder's nodes come when it is opened.
    m_model->Reset(UsDB, UsDB.Tag(),
                   CurUsDB.get() == &UsDB ? std::shared_ptr<const clsDatabase>(CurUsDB) : nullptr);
    trvDatabase->expand(m_model->RootIndex());
}

void frmMain::AddColoredTxt(const QString& Text, int col, int flags) {
    QTextCursor c(txtValue->document());
    c.movePosition(QTextCursor::End);
    QTextCharFormat f;
    f.setForeground(FromColorRef(col));
    f.setFontItalic((flags & 1) != 0);
    f.setFontUnderline((flags & 2) != 0);
    f.setFontWeight((flags & 4) != 0 ? QFont::Bold : QFont::Normal);
    QString text = Text;
    text.replace(QStringLiteral("\r\n"), QStringLiteral("\n"));
    c.insertText(text, f);
    txtValue->moveCursor(QTextCursor::Start);
}

void frmMain::ShowDataInTextBox(clsDatabase& UsDB, int TblNum, int RecNum) {
    TRACE_PROC("frmMain.ShowDataInTextBox", TblNum, RecNum);
    if (TblNum < 1 || TblNum > UsDB.TabNum())
        return;
    const TableEntry& tbl = UsDB.DBView().Tables[TblNum - 1];
    const QStringList row = UsDB.GetTblRecord(TblNum, RecNum);
    TRACE_LOCAL(row);
    for (int i = 0; i < tbl.FldNames.size(); ++i) {
        // Fields marked hidden (bit value 4) are not shown.
        if (tbl.FldTypes.value(i) & 4)
            continue;
        AddColoredTxt(GetTblTrueCapText(tbl.FldNames[i]) + QStringLiteral(":\r\n"), 0xFF6400, 4);
        // The option that hides the password shows dots until the toggle shows it.
        const bool hide = tbl.FldNames[i] == QLatin1String("Password") && !row.value(i).isEmpty() &&
                          PaneHidesPassword() && !chkShowPasw->isChecked();
        AddColoredTxt((hide ? QString(8, QChar(0x2022)) : row.value(i)) + QStringLiteral("\r\n\r\n"), 0, 0);
    }
    m_valueExtras->Show(UsDB, UsDB.GetTblFldValNm(TblNum, RecNum, QStringLiteral("IndNum")));
}

clsDatabase* frmMain::CurUsDBRef() {
    return CurUsDB.get();
}

void frmMain::ShowStatusCounts(const QString& IndNum) {
    int folds = 0, recs = 0;
    bool ok = false;
    const int id = IndNum.toInt(&ok);
    if (ok && m_model->HasRoot() && m_model->Db() == CurUsDB.get())
        m_model->TreeIndex().ChildCounts(id, folds, recs);
    else if (UserLoaded())
        GetStatBarData(*CurUsDB, IndNum, folds, recs);
    sbPanel->setText(Texts(111) + u' ' + QString::number(folds) + QStringLiteral(", ") + Texts(112) + u' ' +
                     QString::number(recs));
}

void frmMain::trvDatabase_Click() {
    TRACE_PROC("frmMain.trvDatabase_Click");
    const QModelIndex node = CurrentNode();
    if (!node.isValid() || !UserLoaded())
        return;
    const bool root = IsRoot(node);
    const QString id = QString::number(NodeId(node));
    TRACE_LOCAL(id);
    const int tbl = CurUsDB->FindTable(QStringLiteral("DataTable"));
    TRACE_LOCAL(tbl);
    if (!root && tbl > 0) {
        const int rec = RowOf(id);
        TRACE_LOCAL(rec);
        if (rec > 0 && CurUsDB->GetTblFldValNm(tbl, rec, QStringLiteral("Type")) == QStringLiteral("2")) {
            m_curRecord = NodeId(node);
            txtValue->clear();
            ShowDataInTextBox(*CurUsDB, tbl, rec);
        }
    }
    if (NodeTag(node) == QStringLiteral("2")) {
        btnDelRec->setEnabled(true);
        btnDelFolder->setEnabled(false);
        btnAddFolder->setEnabled(false);
        btnAddRec->setEnabled(false);
    } else {
        txtValue->clear();
        m_curRecord = 0;
        // A folder shows its description, when it has one (notes brought in by an import).
        const int rec = root || tbl <= 0 ? 0 : RowOf(id);
        const QString desc =
            rec > 0 ? CurUsDB->GetTblFldValNm(tbl, rec, QStringLiteral("Description")) : QString();
        if (!desc.isEmpty()) {
            AddColoredTxt(GetTblTrueCapText(QStringLiteral("Description")) + QStringLiteral(":\r\n"),
                          0xFF6400, 4);
            AddColoredTxt(desc + QStringLiteral("\r\n"), 0, 0);
        }
        btnDelRec->setEnabled(false);
        btnDelFolder->setEnabled(true);
        btnAddFolder->setEnabled(true);
        btnAddRec->setEnabled(true);
    }
    if (root) {
        btnDelFolder->setEnabled(false);
        btnDelRec->setEnabled(false);
    }
    ShowStatusCounts(id);
    SetCommandStates();
}

QModelIndex frmMain::InsertRowNode(const QString& IndNum) {
    TRACE_PROC("frmMain.InsertRowNode", IndNum);
    if (!m_model->HasRoot())
        return {};
    TreeTableChanged();
    const QModelIndex node = NodeByKey(IndNum + QStringLiteral("key"));
    if (!node.isValid())
        return {};
    trvDatabase->expand(node.parent());
    if (const QModelIndex cur = CurrentNode(); cur.isValid())
        ShowStatusCounts(QString::number(NodeId(cur)));
    return node;
}

void frmMain::ShowAddedRow(const QString& IndNum) {
    TRACE_PROC("frmMain.ShowAddedRow", IndNum);
    if (const QModelIndex node = InsertRowNode(IndNum); node.isValid())
        trvDatabase->setCurrentIndex(node);
}

void frmMain::ShowFoundRow(const QString& IndNum) {
    TRACE_PROC("frmMain.ShowFoundRow", IndNum);
    const QModelIndex node = NodeByKey(IndNum + QStringLiteral("key"));
    if (!node.isValid())
        return;
    trvDatabase->setCurrentIndex(node);
    trvDatabase->scrollTo(node);
    trvDatabase_Click();
}

void frmMain::RefreshStatusCounts() {
    TreeTableChanged();
    const QModelIndex node = CurrentNode();
    if (!node.isValid() || !UserLoaded())
        return;
    ShowStatusCounts(QString::number(NodeId(node)));
}

void frmMain::RefreshRowNode(const QString& IndNum) {
    TRACE_PROC("frmMain.RefreshRowNode", IndNum);
    const QModelIndex node = NodeByKey(IndNum + QStringLiteral("key"));
    if (!node.isValid() || RowOf(IndNum) <= 0)
        return;
    m_model->RowChanged(NodeId(node));
    if (CurrentNode() == node)
        trvDatabase_Click();
}

void frmMain::InsertImportedRows(int FirstRec) {
    TRACE_PROC("frmMain.InsertImportedRows", FirstRec);
    const int tbl = CurUsDB->FindTable(QStringLiteral("DataTable"));
    if (tbl < 1 || !m_model->HasRoot() || FirstRec < 1 || FirstRec > CurUsDB->GetTblRecNum(tbl))
        return;
    // The new rows come into the folders that show them, however many there are; the
    // folder made for them is opened and selected.
    TreeTableChanged();
    const QModelIndex top =
        NodeByKey(CurUsDB->GetTblFldValNm(tbl, FirstRec, QStringLiteral("IndNum")) + QStringLiteral("key"));
    if (!top.isValid())
        return;
    trvDatabase->expand(top.parent());
    trvDatabase->expand(top);
    trvDatabase->setCurrentIndex(top);
    trvDatabase_Click();
}
