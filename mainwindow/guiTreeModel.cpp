#include "mainwindow/guiTreeModel.h"

#include "app/VbConv.h"
#include "app/modLang.h"
#include "diagnostics/Trace.h"
#include "records/RecordTree.h"
#include "storage/clsDatabase.h"

#include <QColor>
#include <QFont>
#include <QMimeData>

#include <algorithm>
#include <unordered_map>

namespace {

constexpr int kImageCount = 20;

// The tree's image list: "DBIcon" and "<n>key" for the record and folder pictures.
const QIcon* TreeIcon(const QString& ImageKey, const QString& Type) {
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
        return &*it;
    // A picture this program does not have: the default one of the row's kind.
    return &icons[Type == QStringLiteral("2") ? QStringLiteral("1key") : QStringLiteral("2key")];
}

// COLORREF (0x00BBGGRR) to a colour on screen.
QColor FromColorRef(int c) {
    return QColor(c & 0xFF, (c >> 8) & 0xFF, (c >> 16) & 0xFF);
}

} // namespace

UsTreeModel::UsTreeModel(QObject* parent) : QAbstractItemModel(parent) {}
UsTreeModel::~UsTreeModel() = default;

void UsTreeModel::Reset(const clsDatabase& Db, const QString& RootText,
                        std::shared_ptr<const clsDatabase> Owner) {
    TRACE_PROC("frmMain.ShowTreeModel");
    beginResetModel();
    m_byId.clear();
    m_root.reset();
    m_db = &Db;
    m_owner = std::move(Owner);
    m_index.Build(Db);
    m_rootText = RootText;
    m_root = std::make_unique<Node>();
    m_root->opens = true;
    m_root->icon = TreeIcon(QStringLiteral("DBIcon"), QString());
    m_nodeCount = 1;
    endResetModel();
}

void UsTreeModel::Clear() {
    beginResetModel();
    m_byId.clear();
    m_root.reset();
    m_db = nullptr;
    m_owner.reset();
    m_index = UsDBTreeIndex();
    m_nodeCount = 0;
    endResetModel();
}

UsTreeModel::Node* UsTreeModel::nodeOf(const QModelIndex& i) const {
    return i.isValid() && i.model() == this ? static_cast<Node*>(i.internalPointer()) : nullptr;
}

QModelIndex UsTreeModel::indexOf(Node* n) const {
    if (!n)
        return {};
    return createIndex(n == m_root.get() ? 0 : n->pos, 0, n);
}

QModelIndex UsTreeModel::RootIndex() const {
    return indexOf(m_root.get());
}

int UsTreeModel::IdOf(const QModelIndex& Node) const {
    const auto* n = nodeOf(Node);
    return n ? n->id : 0;
}

int UsTreeModel::RowOf(const QModelIndex& Node) const {
    const auto* n = nodeOf(Node);
    return n ? n->row0 : -1;
}

void UsTreeModel::applyRow(Node* n) {
    if (!m_index.Table() || n->row0 < 0 || n->row0 >= UsDBRowCount(*m_index.Table()))
        return;
    const TableEntry& t = *m_index.Table();
    const QString type = UsDBCell(t, n->row0, m_index.fType);
    const QString imageKey =
        QString::number(CLng(Val(UsDBCell(t, n->row0, m_index.fImage)))) + QStringLiteral("key");
    n->icon = TreeIcon(imageKey, type);
    int col = 0, bits = 0;
    GetSepatRecOptns(UsDBCell(t, n->row0, m_index.fFlags), col, bits);
    n->colour = col;
    n->bold = (bits & 1) != 0;
}

bool UsTreeModel::onPath(const Node* parent, int id) const {
    for (const Node* p = parent; p; p = p->parent)
        if (p->id == id)
            return true;
    return false;
}

std::unique_ptr<UsTreeModel::Node> UsTreeModel::makeNode(Node* parent, int row0) {
    auto n = std::make_unique<Node>();
    n->row0 = row0;
    n->id = m_index.IdOf(row0);
    n->parent = parent;
    n->opens = m_index.Opens(row0) && !onPath(parent, n->id);
    applyRow(n.get());
    m_byId.insert(n->id, n.get());
    ++m_nodeCount;
    return n;
}

std::vector<int> UsTreeModel::wantedChildren(Node* n) const {
    if (n != m_root.get())
        n->opens =
            n->row0 >= 0 && n->row0 < m_index.Rows() && m_index.Opens(n->row0) && !onPath(n->parent, n->id);
    if (!n->opens)
        return {};
    return m_index.DisplayChildren(n->id);
}

// The children of a node are made the first time anyone asks for them; until then the
// view has seen none, so no signal is due.
void UsTreeModel::fetch(Node* n) const {
    if (n->fetched)
        return;
    auto* self = const_cast<UsTreeModel*>(this);
    n->fetched = true;
    const std::vector<int> rows = wantedChildren(n);
    n->kids.reserve(rows.size());
    for (int r : rows) {
        n->kids.push_back(self->makeNode(n, r));
        n->kids.back()->pos = static_cast<int>(n->kids.size()) - 1;
    }
}

void UsTreeModel::renumber(Node* parent, int from) {
    for (int i = from; i < static_cast<int>(parent->kids.size()); ++i)
        parent->kids[i]->pos = i;
}

void UsTreeModel::forget(Node* n) {
    std::vector<Node*> work{n};
    while (!work.empty()) {
        Node* x = work.back();
        work.pop_back();
        auto it = m_byId.find(x->id);
        if (it != m_byId.end() && *it == x)
            m_byId.erase(it);
        --m_nodeCount;
        for (auto& k : x->kids)
            work.push_back(k.get());
    }
}

QModelIndex UsTreeModel::IndexOfId(int Id) {
    if (!m_root)
        return {};
    if (Id == 0)
        return RootIndex();
    if (Node* n = m_byId.value(Id, nullptr))
        return indexOf(n);
    // The way up from the row to the root, through the first row of each identifier.
    std::vector<int> chain;
    int row = m_index.RowOfId(Id);
    while (row >= 0) {
        chain.push_back(row);
        if (static_cast<int>(chain.size()) > m_index.Rows())
            return {};
        const int p = m_index.ParentOf(row);
        if (p == 0)
            break;
        row = p == UsDBTreeIndex::kNoId ? -1 : m_index.RowOfId(p);
    }
    if (row < 0)
        return {};
    Node* n = m_root.get();
    for (auto r = chain.rbegin(); r != chain.rend(); ++r) {
        fetch(n);
        auto it = std::find_if(n->kids.begin(), n->kids.end(), [&](const auto& k) { return k->row0 == *r; });
        if (it == n->kids.end())
            return {};
        n = it->get();
    }
    return indexOf(n);
}

void UsTreeModel::TableChanged() {
    TRACE_PROC("frmMain.TreeTableChanged");
    if (!m_root || !m_db)
        return;
    const bool wasBusy = m_busy;
    m_busy = true;
    m_index.Build(*m_db);
    // Every node finds its row again; one that kept its place keeps it (so rows that share
    // an identifier in a damaged file stay apart).
    std::vector<Node*> work{m_root.get()};
    while (!work.empty()) {
        Node* n = work.back();
        work.pop_back();
        for (auto& k : n->kids) {
            if (k->row0 < 0 || k->row0 >= m_index.Rows() || m_index.IdOf(k->row0) != k->id)
                k->row0 = m_index.RowOfId(k->id);
            work.push_back(k.get());
        }
    }
    work.push_back(m_root.get());
    while (!work.empty()) {
        Node* n = work.back();
        work.pop_back();
        syncNode(n);
        for (auto& k : n->kids)
            if (k->fetched)
                work.push_back(k.get());
    }
    m_busy = wasBusy;
}

QModelIndexList UsTreeModel::CreatedNodes() const {
    QModelIndexList out;
    if (!m_root)
        return out;
    out.reserve(m_nodeCount);
    std::vector<Node*> work{m_root.get()};
    while (!work.empty()) {
        Node* n = work.back();
        work.pop_back();
        out.append(indexOf(n));
        for (auto& k : n->kids)
            work.push_back(k.get());
    }
    return out;
}

void UsTreeModel::SyncChildren(int Id) {
    const QModelIndex i = IndexOfId(Id);
    if (Node* n = nodeOf(i))
        syncNode(n);
}

void UsTreeModel::syncNode(Node* n) {
    const bool opened = n->opens;
    const std::vector<int> wanted = wantedChildren(n);
    const QModelIndex parentIndex = indexOf(n);
    if (!n->fetched) {
        // The view has seen no children; one that now has some gets them inserted.
        if (n->opens && !opened) {
            n->fetched = true;
            if (!wanted.empty()) {
                beginInsertRows(parentIndex, 0, static_cast<int>(wanted.size()) - 1);
                for (int r : wanted)
                    n->kids.push_back(makeNode(n, r));
                renumber(n, 0);
                endInsertRows();
            }
        } else if (opened != n->opens) {
            // It had children and has none now: the view asks again whether it has any.
            emit layoutAboutToBeChanged();
            emit layoutChanged();
        }
        return;
    }
    const std::size_t have = n->kids.size();
    bool same = have == wanted.size();
    for (std::size_t i = 0; same && i < have; ++i)
        same = n->kids[i]->row0 == wanted[i];
    if (same)
        return;
    std::unordered_map<int, int> wantedPos;
    wantedPos.reserve(wanted.size());
    for (int i = 0; i < static_cast<int>(wanted.size()); ++i)
        wantedPos.emplace(wanted[i], i);
    // Nodes whose rows left this folder go, in runs from the end.
    for (int i = static_cast<int>(n->kids.size()) - 1; i >= 0;) {
        if (wantedPos.count(n->kids[i]->row0)) {
            --i;
            continue;
        }
        int first = i;
        while (first > 0 && !wantedPos.count(n->kids[first - 1]->row0))
            --first;
        beginRemoveRows(parentIndex, first, i);
        for (int k = first; k <= i; ++k)
            forget(n->kids[k].get());
        n->kids.erase(n->kids.begin() + first, n->kids.begin() + i + 1);
        renumber(n, first);
        endRemoveRows();
        i = first - 1;
    }
    // What stays must stand in the order wanted; otherwise the folder's children are made
    // again (only a damaged file gets here).
    bool ordered = true;
    std::unordered_map<int, int> kept;
    for (std::size_t i = 0; i < n->kids.size(); ++i) {
        const int wp = wantedPos.at(n->kids[i]->row0);
        if (i > 0 && wp <= wantedPos.at(n->kids[i - 1]->row0))
            ordered = false;
        kept.emplace(n->kids[i]->row0, static_cast<int>(i));
    }
    if (!ordered) {
        beginRemoveRows(parentIndex, 0, static_cast<int>(n->kids.size()) - 1);
        for (auto& k : n->kids)
            forget(k.get());
        n->kids.clear();
        endRemoveRows();
        kept.clear();
    }
    // New rows go where they belong, in runs.
    for (int w = 0; w < static_cast<int>(wanted.size());) {
        if (w < static_cast<int>(n->kids.size()) && n->kids[w]->row0 == wanted[w]) {
            ++w;
            continue;
        }
        int end = w;
        while (end < static_cast<int>(wanted.size()) && !kept.count(wanted[end]))
            ++end;
        beginInsertRows(parentIndex, w, end - 1);
        std::vector<std::unique_ptr<Node>> run;
        for (int k = w; k < end; ++k)
            run.push_back(makeNode(n, wanted[k]));
        n->kids.insert(n->kids.begin() + w, std::make_move_iterator(run.begin()),
                       std::make_move_iterator(run.end()));
        renumber(n, w);
        endInsertRows();
        w = end;
    }
}

void UsTreeModel::RowChanged(int Id) {
    if (!m_root)
        return;
    Node* n = m_byId.value(Id, nullptr);
    if (!n || n->row0 < 0 || n->row0 >= m_index.Rows())
        return;
    applyRow(n);
    const QModelIndex i = indexOf(n);
    emit dataChanged(i, i);
}

void UsTreeModel::MoveNode(const QModelIndex& NodeIndex, const QModelIndex& TargetIndex) {
    TRACE_PROC("frmMain.TreeMoveNode");
    Node* n = nodeOf(NodeIndex);
    Node* target = nodeOf(TargetIndex);
    if (!n || !target || !n->parent || !m_db) {
        TableChanged();
        return;
    }
    Node* from = n->parent;
    m_busy = true;
    m_index.Build(*m_db);
    n->row0 = m_index.RowOfId(n->id);
    if (target != m_root.get())
        target->row0 = m_index.RowOfId(target->id);
    // The target's children as they were, when the view has not seen them yet.
    if (!target->fetched) {
        const std::vector<int> rows = wantedChildren(target);
        std::vector<int> others;
        for (int r : rows)
            if (r != n->row0)
                others.push_back(r);
        target->fetched = true;
        if (!others.empty()) {
            beginInsertRows(indexOf(target), 0, static_cast<int>(others.size()) - 1);
            for (int r : others)
                target->kids.push_back(makeNode(target, r));
            renumber(target, 0);
            endInsertRows();
        } else {
            // A folder without children until now: its arrow comes with the insertion.
        }
    }
    // Where the moved row stands among the target's children.
    for (auto& k : target->kids)
        if (k->row0 < 0 || k->row0 >= m_index.Rows() || m_index.IdOf(k->row0) != k->id)
            k->row0 = m_index.RowOfId(k->id);
    const std::vector<int> wanted = m_index.DisplayChildren(target->id);
    const auto at = std::find(wanted.begin(), wanted.end(), n->row0);
    int dest = 0;
    if (at != wanted.end()) {
        std::unordered_map<int, int> wantedPos;
        for (int i = 0; i < static_cast<int>(wanted.size()); ++i)
            wantedPos.emplace(wanted[i], i);
        const int mine = static_cast<int>(at - wanted.begin());
        for (auto& k : target->kids) {
            auto w = wantedPos.find(k->row0);
            if (w != wantedPos.end() && w->second < mine)
                ++dest;
        }
        const int src = n->pos;
        if (beginMoveRows(indexOf(from), src, src, indexOf(target), dest)) {
            std::unique_ptr<Node> moved = std::move(from->kids[src]);
            from->kids.erase(from->kids.begin() + src);
            renumber(from, src);
            moved->parent = target;
            target->kids.insert(target->kids.begin() + dest, std::move(moved));
            renumber(target, dest);
            endMoveRows();
        }
    }
    // Everything else (the folders' arrows, rows that the move left hidden) in line.
    TableChanged();
    m_busy = false;
}

QModelIndex UsTreeModel::index(int row, int column, const QModelIndex& parent) const {
    if (!m_root || column != 0 || row < 0)
        return {};
    if (!parent.isValid())
        return row == 0 ? indexOf(m_root.get()) : QModelIndex();
    Node* p = nodeOf(parent);
    if (!p)
        return {};
    fetch(p);
    if (row >= static_cast<int>(p->kids.size()))
        return {};
    return createIndex(row, 0, p->kids[row].get());
}

QModelIndex UsTreeModel::parent(const QModelIndex& child) const {
    Node* n = nodeOf(child);
    if (!n || !n->parent)
        return {};
    return indexOf(n->parent);
}

int UsTreeModel::rowCount(const QModelIndex& parent) const {
    if (!parent.isValid())
        return m_root ? 1 : 0;
    Node* p = nodeOf(parent);
    if (!p)
        return 0;
    fetch(p);
    return static_cast<int>(p->kids.size());
}

int UsTreeModel::columnCount(const QModelIndex&) const {
    return 1;
}

bool UsTreeModel::hasChildren(const QModelIndex& parent) const {
    if (!parent.isValid())
        return m_root != nullptr;
    Node* p = nodeOf(parent);
    if (!p)
        return false;
    return p->fetched ? !p->kids.empty() : p->opens;
}

QVariant UsTreeModel::data(const QModelIndex& index, int role) const {
    Node* n = nodeOf(index);
    if (!n)
        return {};
    const bool root = n == m_root.get();
    const TableEntry* t = m_index.Table();
    if (!root && (!t || n->row0 < 0 || n->row0 >= UsDBRowCount(*t)))
        return {};
    switch (role) {
    case Qt::DisplayRole:
    case Qt::EditRole:
        return root ? m_rootText : UsDBCell(*t, n->row0, m_index.fTitle);
    case Qt::DecorationRole:
        return n->icon ? *n->icon : QIcon();
    case Qt::FontRole:
        if (n->bold) {
            QFont f;
            f.setBold(true);
            return f;
        }
        return {};
    case Qt::ForegroundRole:
        return n->colour != 0 ? QVariant(FromColorRef(n->colour)) : QVariant();
    case KeyRole:
        return root ? QStringLiteral("0key") : UsDBCell(*t, n->row0, m_index.fIndNum) + QStringLiteral("key");
    case TagRole:
        return root ? QString() : UsDBCell(*t, n->row0, m_index.fType);
    case Qt::AccessibleDescriptionRole:
        return describe(n, root ? QString() : UsDBCell(*t, n->row0, m_index.fType));
    default:
        return {};
    }
}

// What a screen reader says beyond the title: folder or record, the level (the root is
// level 1) and, for a folder, how many folders and records it holds.
QString UsTreeModel::describe(const Node* n, const QString& Tag) const {
    int level = 1;
    for (const Node* p = n->parent; p; p = p->parent)
        ++level;
    if (Tag == QStringLiteral("2"))
        return Texts(548).arg(level);
    int folds = 0, recs = 0;
    m_index.ChildCounts(n->id, folds, recs);
    return Texts(547).arg(level).arg(folds).arg(recs);
}

bool UsTreeModel::setData(const QModelIndex& index, const QVariant& value, int role) {
    Node* n = nodeOf(index);
    if (!n || n == m_root.get() || role != Qt::EditRole)
        return false;
    emit titleEdited(index, value.toString());
    return true;
}

Qt::ItemFlags UsTreeModel::flags(const QModelIndex& index) const {
    Node* n = nodeOf(index);
    if (!n)
        return Qt::NoItemFlags;
    if (n == m_root.get())
        return Qt::ItemIsSelectable | Qt::ItemIsEnabled | Qt::ItemIsDropEnabled;
    return Qt::ItemIsSelectable | Qt::ItemIsEnabled | Qt::ItemIsEditable | Qt::ItemIsDragEnabled |
           Qt::ItemIsDropEnabled;
}

QStringList UsTreeModel::mimeTypes() const {
    return {QString::fromLatin1(kMimeType)};
}

QMimeData* UsTreeModel::mimeData(const QModelIndexList& indexes) const {
    if (indexes.isEmpty())
        return nullptr;
    auto* m = new QMimeData;
    m->setData(QString::fromLatin1(kMimeType), data(indexes.first(), KeyRole).toString().toUtf8());
    return m;
}

Qt::DropActions UsTreeModel::supportedDropActions() const {
    return Qt::MoveAction;
}

Qt::DropActions UsTreeModel::supportedDragActions() const {
    return Qt::MoveAction;
}
