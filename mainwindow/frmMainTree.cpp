// The main window's tree and value pane: how a user's database is shown.

#include "mainwindow/frmMain.h"

#include "app/VbConv.h"
#include "app/guiSecretClipboard.h"
#include "app/modLang.h"
#include "diagnostics/Trace.h"
#include "records/RecordTree.h"
#include "storage/clsDatabase.h"
#include "users/UsDBTree.h"
#include "users/UserAccounts.h"

#include <QDragMoveEvent>
#include <QDropEvent>
#include <QHash>
#include <QIcon>
#include <QLabel>
#include <QStatusBar>
#include <QTextCursor>
#include <QTextEdit>

namespace {

constexpr int kKeyRole = Qt::UserRole;
constexpr int kTagRole = Qt::UserRole + 1;
constexpr int kImageCount = 20;

// The tree's image list: "DBIcon" and "<n>key" for the record and folder pictures.
const QIcon& TreeIcon(const QString& ImageKey, const QString& Type) {
    static QHash<QString, QIcon> icons = [] {
        QHash<QString, QIcon> h;
        h.insert(QStringLiteral("DBIcon"), QIcon(QStringLiteral(":/icons/db.png")));
        for (int n = 1; n <= kImageCount; ++n)
            h.insert(QString::number(n) + QStringLiteral("key"),
                     QIcon(QStringLiteral(":/icons/%1.png").arg(n)));
        return h;
    }();
    auto it = icons.constFind(ImageKey);
    if (it != icons.constEnd())
        return *it;
    // A picture this program does not have: the default one of the row's kind.
    return icons[Type == QStringLiteral("2") ? QStringLiteral("1key") : QStringLiteral("2key")];
}

// COLORREF (0x00BBGGRR) to a colour on screen.
QColor FromColorRef(int c) {
    return QColor(c & 0xFF, (c >> 8) & 0xFF, (c >> 16) & 0xFF);
}

} // namespace

void UsTreeWidget::dragMoveEvent(QDragMoveEvent* e) {
    QTreeWidget::dragMoveEvent(e);
    QTreeWidgetItem* target = itemAt(e->position().toPoint());
    // Only folders and the root take nodes.
    if (!target || frmMain::NodeTag(target) == QStringLiteral("2"))
        e->ignore();
}

void UsTreeWidget::dropEvent(QDropEvent* e) {
    QTreeWidgetItem* target = itemAt(e->position().toPoint());
    QTreeWidgetItem* node = currentItem();
    // The main window moves the node itself; the view's own move is never run.
    e->setDropAction(Qt::IgnoreAction);
    e->accept();
    if (node && target)
        emit nodeDropped(node, target);
}

QString frmMain::NodeKey(const QTreeWidgetItem* Node) {
    return Node ? Node->data(0, kKeyRole).toString() : QString();
}
int frmMain::NodeId(const QTreeWidgetItem* Node) {
    return static_cast<int>(Val(NodeKey(Node)));
}
QString frmMain::NodeTag(const QTreeWidgetItem* Node) {
    return Node ? Node->data(0, kTagRole).toString() : QString();
}

QTreeWidgetItem* frmMain::NodeByKey(const QString& Key) const {
    if (Key == QStringLiteral("0key"))
        return m_root;
    return m_nodeById.value(static_cast<int>(Val(Key)), nullptr);
}

void frmMain::ApplyRowToNode(QTreeWidgetItem* Node, const QString& IndNum, const QString& Title,
                             const QString& Image, const QString& Type, const QString& Flags) {
    const int imageNum = CLng(Val(Image));
    const QString imageKey = QString::number(imageNum) + QStringLiteral("key");
    constexpr Qt::ItemFlags kFlags = Qt::ItemIsSelectable | Qt::ItemIsEnabled | Qt::ItemIsEditable |
                                     Qt::ItemIsDragEnabled | Qt::ItemIsDropEnabled;
    if (Node->flags() != kFlags)
        Node->setFlags(kFlags);
    Node->setText(0, Title);
    Node->setData(0, kKeyRole, IndNum + QStringLiteral("key"));
    Node->setData(0, kTagRole, Type);
    Node->setIcon(0, TreeIcon(imageKey, Type));
    int col = 0, bits = 0;
    GetSepatRecOptns(Flags, col, bits);
    QFont f = Node->font(0);
    if (f.bold() != ((bits & 1) != 0)) {
        f.setBold((bits & 1) != 0);
        Node->setFont(0, f);
    }
    // Black is the default colour, which follows the desktop's theme.
    if (col != 0)
        Node->setForeground(0, FromColorRef(col));
    else if (Node->data(0, Qt::ForegroundRole).isValid())
        Node->setData(0, Qt::ForegroundRole, QVariant());
}

void frmMain::ClearUsTree() {
    TRACE_PROC("frmMain.ClearUsTree");
    // The user is closed (unloaded, locked, or another one opened): a password of theirs
    // leaves the clipboard.
    SecretClipboard::Instance().ClearIfOurs();
    trvDatabase->clear();
    m_nodeById.clear();
    m_root = nullptr;
    m_dropHighlight = nullptr;
    m_curRecord = 0;
    m_index.Invalidate();
    sbPanel->clear();
    SetCommandStates();
    UpdateTitle();
    if (!UserLoaded())
        SyncWatch();
}

void frmMain::ClearUsValue() {
    TRACE_PROC("frmMain.ClearUsValue");
    txtValue->clear();
    m_curRecord = 0;
}

void frmMain::ShowUsDB(clsDatabase& UsDB) {
    TRACE_PROC("frmMain.ShowUsDB");
    ShowUsDBInTreeView(UsDB);
    trvDatabase->setCurrentItem(m_root);
    btnDelFolder->setEnabled(false);
    btnDelRec->setEnabled(false);
    ShowStatusCounts(QStringLiteral("0"));
    SetCommandStates();
    UpdateTitle();
    m_toldFileState = 0;
    SyncWatch();
}

void frmMain::ShowUsDBInTreeView(clsDatabase& UsDB) {
    TRACE_PROC("frmMain.ShowUsDBInTreeView");
    ClearUsTree();
    m_index.Invalidate();
    auto* root = new QTreeWidgetItem;
    root->setText(0, UsDB.Tag());
    root->setData(0, kKeyRole, QStringLiteral("0key"));
    root->setIcon(0, TreeIcon(QStringLiteral("DBIcon"), QString()));

    // Rows in the order the tree shows them; nodes are built under a root that is not
    // yet in the view, so the view sees one insertion.
    const int tbl = UsDB.FindTable(QStringLiteral("DataTable"));
    TRACE_LOCAL(tbl);
    if (tbl > 0) {
        const int fInd = UsDB.FindField(tbl, QStringLiteral("IndNum"));
        TRACE_LOCAL(fInd);
        const int fTitle = UsDB.FindField(tbl, QStringLiteral("Title"));
        TRACE_LOCAL(fTitle);
        const int fType = UsDB.FindField(tbl, QStringLiteral("Type"));
        TRACE_LOCAL(fType);
        const int fImage = UsDB.FindField(tbl, QStringLiteral("Image"));
        TRACE_LOCAL(fImage);
        const int fFlags = UsDB.FindField(tbl, QStringLiteral("Flags"));
        TRACE_LOCAL(fFlags);
        const QList<UsTreeNode> order = UsDBTreeOrder(UsDB);
        QList<QTreeWidgetItem*> parents{root};
        m_nodeById.reserve(order.size());
        const RecordStore& rows = UsDB.DBView().Tables[tbl - 1].Records;
        for (const UsTreeNode& n : order) {
            const QStringList row = rows.row(n.RecNum - 1);
            auto* node = new QTreeWidgetItem;
            const QString indNum = row.value(fInd - 1);
            ApplyRowToNode(node, indNum, row.value(fTitle - 1), row.value(fImage - 1), row.value(fType - 1),
                           row.value(fFlags - 1));
            parents.resize(n.Depth);
            parents[n.Depth - 1]->addChild(node);
            parents.append(node);
            m_nodeById.insert(static_cast<int>(Val(indNum)), node);
        }
    }
    trvDatabase->addTopLevelItem(root);
    m_root = root;
    root->setExpanded(true);
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
        AddColoredTxt(row.value(i) + QStringLiteral("\r\n\r\n"), 0, 0);
    }
}

clsDatabase* frmMain::CurUsDBRef() {
    return CurUsDB.get();
}

void frmMain::ShowStatusCounts(const QString& IndNum) {
    int folds = 0, recs = 0;
    m_index.ChildCounts(*CurUsDB, IndNum, folds, recs);
    sbPanel->setText(Texts(111) + u' ' + QString::number(folds) + QStringLiteral(", ") + Texts(112) + u' ' +
                     QString::number(recs));
}

void frmMain::trvDatabase_Click() {
    TRACE_PROC("frmMain.trvDatabase_Click");
    QTreeWidgetItem* node = trvDatabase->currentItem();
    if (!node || !m_root)
        return;
    const QString id = QString::number(NodeId(node));
    TRACE_LOCAL(id);
    const int tbl = CurUsDB->FindTable(QStringLiteral("DataTable"));
    TRACE_LOCAL(tbl);
    if (node != m_root && tbl > 0) {
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
        btnDelRec->setEnabled(false);
        btnDelFolder->setEnabled(true);
        btnAddFolder->setEnabled(true);
        btnAddRec->setEnabled(true);
    }
    if (node == m_root) {
        btnDelFolder->setEnabled(false);
        btnDelRec->setEnabled(false);
    }
    ShowStatusCounts(id);
    SetCommandStates();
}

void frmMain::ForgetNodes(QTreeWidgetItem* Node) {
    for (int i = 0; i < Node->childCount(); ++i)
        ForgetNodes(Node->child(i));
    m_nodeById.remove(NodeId(Node));
    if (m_dropHighlight == Node)
        m_dropHighlight = nullptr;
    if (m_curRecord == NodeId(Node)) {
        m_curRecord = 0;
        txtValue->clear();
    }
}

QTreeWidgetItem* frmMain::InsertRowNode(const QString& IndNum) {
    TRACE_PROC("frmMain.InsertRowNode", IndNum);
    m_index.Invalidate();
    const int rec = RowOf(IndNum);
    TRACE_LOCAL(rec);
    if (rec <= 0 || !m_root)
        return nullptr;
    const int tbl = CurUsDB->FindTable(QStringLiteral("DataTable"));
    TRACE_LOCAL(tbl);
    QTreeWidgetItem* parent =
        NodeByKey(CurUsDB->GetTblFldValNm(tbl, rec, QStringLiteral("Parent")) + QStringLiteral("key"));
    if (!parent)
        return nullptr;
    auto* node = new QTreeWidgetItem;
    const QString type = CurUsDB->GetTblFldValNm(tbl, rec, QStringLiteral("Type"));
    TRACE_LOCAL(type);
    ApplyRowToNode(node, IndNum, CurUsDB->GetTblFldValNm(tbl, rec, QStringLiteral("Title")),
                   CurUsDB->GetTblFldValNm(tbl, rec, QStringLiteral("Image")), type,
                   CurUsDB->GetTblFldValNm(tbl, rec, QStringLiteral("Flags")));
    if (type == QStringLiteral("2"))
        parent->addChild(node);
    else
        parent->insertChild(0, node);
    m_nodeById.insert(static_cast<int>(Val(IndNum)), node);
    parent->setExpanded(true);
    // The index is current (built by RowOf above, after the row was added).
    if (QTreeWidgetItem* cur = trvDatabase->currentItem())
        ShowStatusCounts(QString::number(NodeId(cur)));
    return node;
}

void frmMain::RefreshStatusCounts() {
    m_index.Invalidate();
    QTreeWidgetItem* node = trvDatabase->currentItem();
    if (!node || !m_root || !UserLoaded())
        return;
    ShowStatusCounts(QString::number(NodeId(node)));
}

void frmMain::RefreshRowNode(const QString& IndNum) {
    TRACE_PROC("frmMain.RefreshRowNode", IndNum);
    QTreeWidgetItem* node = NodeByKey(IndNum + QStringLiteral("key"));
    const int rec = node ? RowOf(IndNum) : 0;
    TRACE_LOCAL(rec);
    if (!node || rec <= 0)
        return;
    const int tbl = CurUsDB->FindTable(QStringLiteral("DataTable"));
    TRACE_LOCAL(tbl);
    ApplyRowToNode(node, IndNum, CurUsDB->GetTblFldValNm(tbl, rec, QStringLiteral("Title")),
                   CurUsDB->GetTblFldValNm(tbl, rec, QStringLiteral("Image")),
                   CurUsDB->GetTblFldValNm(tbl, rec, QStringLiteral("Type")),
                   CurUsDB->GetTblFldValNm(tbl, rec, QStringLiteral("Flags")));
    if (trvDatabase->currentItem() == node)
        trvDatabase_Click();
}

void frmMain::InsertImportedRows(int FirstRec) {
    TRACE_PROC("frmMain.InsertImportedRows", FirstRec);
    m_index.Invalidate();
    const int tbl = CurUsDB->FindTable(QStringLiteral("DataTable"));
    if (tbl < 1 || !m_root || FirstRec < 1 || FirstRec > CurUsDB->GetTblRecNum(tbl))
        return;
    const TableEntry& t = CurUsDB->DBView().Tables[tbl - 1];
    const int fInd = CurUsDB->FindField(tbl, QStringLiteral("IndNum")) - 1;
    const int fPar = CurUsDB->FindField(tbl, QStringLiteral("Parent")) - 1;
    const int fTitle = CurUsDB->FindField(tbl, QStringLiteral("Title")) - 1;
    const int fType = CurUsDB->FindField(tbl, QStringLiteral("Type")) - 1;
    const int fImage = CurUsDB->FindField(tbl, QStringLiteral("Image")) - 1;
    const int fFlags = CurUsDB->FindField(tbl, QStringLiteral("Flags")) - 1;
    const QStringList first = t.Records.row(FirstRec - 1);
    QTreeWidgetItem* parent = NodeByKey(first.value(fPar) + QStringLiteral("key"));
    if (!parent)
        return;
    // The new rows hang below a node that is not yet in the view, so the view sees one
    // insertion however many there are. Folders go on top (the newest first), records at
    // the end, as a new row of each kind does.
    auto* top = new QTreeWidgetItem;
    ApplyRowToNode(top, first.value(fInd), first.value(fTitle), first.value(fImage), first.value(fType),
                   first.value(fFlags));
    QHash<QString, QTreeWidgetItem*> added{{first.value(fInd), top}};
    QList<std::pair<int, QTreeWidgetItem*>> ids{{static_cast<int>(Val(first.value(fInd))), top}};
    for (int r = FirstRec; r < t.RecNum(); ++r) {
        const QStringList row = t.Records.row(r);
        QTreeWidgetItem* under = added.value(row.value(fPar), nullptr);
        if (!under)
            continue;
        auto* node = new QTreeWidgetItem;
        const QString type = row.value(fType);
        ApplyRowToNode(node, row.value(fInd), row.value(fTitle), row.value(fImage), type, row.value(fFlags));
        if (type == QStringLiteral("2")) {
            under->addChild(node);
        } else {
            under->insertChild(0, node);
            added.insert(row.value(fInd), node);
        }
        ids.append({static_cast<int>(Val(row.value(fInd))), node});
    }
    for (const auto& [id, node] : ids)
        m_nodeById.insert(id, node);
    parent->insertChild(0, top);
    parent->setExpanded(true);
    top->setExpanded(true);
    trvDatabase->setCurrentItem(top);
    trvDatabase_Click();
}
