#include "users/UsDBTree.h"

#include "app/VbConv.h"
#include "diagnostics/Trace.h"
#include "storage/clsDatabase.h"

#include <unordered_set>

QString UsDBCell(const TableEntry& t, int row0, int fld0) {
    return fld0 < 0 ? QString() : t.Records.value(row0, fld0);
}

QByteArrayView UsDBStored(const TableEntry& t, int row0, int fld0) {
    return fld0 < 0 ? QByteArrayView() : t.Records.escaped(row0, fld0);
}

int UsDBRowCount(const TableEntry& t) {
    return t.Records.size();
}

namespace {

int column(const TableEntry& t, const char* name) {
    for (qsizetype i = 0; i < t.FldNames.size(); ++i)
        if (t.FldNames[i].compare(QLatin1String(name), Qt::CaseInsensitive) == 0)
            return static_cast<int>(i);
    return -1;
}

// The number a stored value is when it is written exactly as QString::number writes it
// (digits are stored as themselves).
bool plainInt(QByteArrayView s, int& out) {
    const qsizetype n = s.size();
    if (n == 0 || n > 11)
        return false;
    qsizetype i = 0;
    const bool neg = s[0] == '-';
    if (neg && ++i == n)
        return false;
    if (s[i] == '0' && (n - i > 1 || neg))
        return false;
    long long v = 0;
    for (; i < n; ++i) {
        const char c = s[i];
        if (c < '0' || c > '9')
            return false;
        v = v * 10 + (c - '0');
    }
    if (neg)
        v = -v;
    if (v < INT_MIN || v > INT_MAX)
        return false;
    out = static_cast<int>(v);
    return true;
}

// Type 1, read as a number ("1", " 1", "1.0" alike).
bool isFolderType(QByteArrayView type) {
    if (type.size() == 1)
        return type[0] == '1';
    bool ok = false;
    return QString::fromUtf8(type).trimmed().toDouble(&ok) == 1.0 && ok;
}

// Type of numeric value 2.
bool isRecordCount(QByteArrayView type) {
    if (type.size() == 1)
        return type[0] == '2';
    return Val(QString::fromUtf8(type)) == 2;
}

} // namespace

int UsDBTreeIndex::IntMap::get(int k) const {
    if (k >= 0 && k < static_cast<int>(dense.size()))
        return dense[k];
    return sparse.value(k, -1);
}

void UsDBTreeIndex::IntMap::set(int k, int v) {
    if (k >= 0 && k < static_cast<int>(dense.size()))
        dense[k] = v;
    else
        sparse.insert(k, v);
}

void UsDBTreeIndex::IntMap::reset(int DenseSize) {
    dense.assign(DenseSize, -1);
    sparse.clear();
}

void UsDBTreeIndex::Build(const clsDatabase& Db) {
    TRACE_PROC("modMain.BuildTreeIndex");
    const TableEntry* table = nullptr;
    m_db = &Db;
    m_tableNo = -1;
    m_ind.clear();
    m_par.clear();
    m_kind.clear();
    m_childStart.clear();
    m_childRows.clear();
    m_lastOddParent.clear();
    fIndNum = fParent = fType = fTitle = fImage = fFlags = -1;
    const QList<TableEntry>& tables = Db.DBView().Tables;
    for (qsizetype i = 0; i < tables.size(); ++i)
        if (tables[i].Name.compare(QLatin1String("DataTable"), Qt::CaseInsensitive) == 0) {
            table = &tables[i];
            m_tableNo = static_cast<int>(i);
            break;
        }
    const int n = table ? UsDBRowCount(*table) : 0;
    TRACE_LOCAL(n);
    m_rowOfId.reset(2 * n + 1024);
    m_slotOfParent.reset(2 * n + 1024);
    if (!table)
        return;
    const TableEntry& t = *table;
    fIndNum = column(t, "IndNum");
    fParent = column(t, "Parent");
    fType = column(t, "Type");
    fTitle = column(t, "Title");
    fImage = column(t, "Image");
    fFlags = column(t, "Flags");
    m_ind.resize(n);
    m_par.resize(n);
    m_kind.resize(n);
    std::vector<int> counts;
    std::vector<std::pair<int, QString>> oddIds;
    for (int r = 0; r < n; ++r) {
        const QByteArrayView ind = UsDBStored(t, r, fIndNum);
        int id = kNoId;
        unsigned char kind = 0;
        if (plainInt(ind, id)) {
            kind |= kPlainId;
        } else {
            const QString text = UsDBCell(t, r, fIndNum);
            bool ok = false;
            id = text.trimmed().toInt(&ok);
            if (!ok)
                id = kNoId;
            else
                oddIds.emplace_back(r, text);
        }
        m_ind[r] = id;
        if (id != kNoId && m_rowOfId.get(id) < 0)
            m_rowOfId.set(id, r);
        const QByteArrayView type = UsDBStored(t, r, fType);
        if (isFolderType(type))
            kind |= kTreeFolder;
        if (isRecordCount(type))
            kind |= kCountRecord;
        m_kind[r] = kind;
        const QByteArrayView par = UsDBStored(t, r, fParent);
        int p = kNoId;
        if (plainInt(par, p)) {
            int slot = m_slotOfParent.get(p);
            if (slot < 0) {
                slot = static_cast<int>(counts.size());
                m_slotOfParent.set(p, slot);
                counts.push_back(0);
            }
            ++counts[slot];
        } else {
            p = kNoId;
            if (!par.isEmpty())
                m_lastOddParent.insert(UsDBCell(t, r, fParent), r);
        }
        m_par[r] = p;
    }
    // The rows under each parent, in table order, one after the other.
    m_childStart.resize(counts.size() + 1);
    m_childStart[0] = 0;
    for (std::size_t s = 0; s < counts.size(); ++s)
        m_childStart[s + 1] = m_childStart[s] + counts[s];
    m_childRows.resize(m_childStart.back());
    std::vector<int> fill(m_childStart.begin(), m_childStart.end() - 1);
    for (int r = 0; r < n; ++r)
        if (m_par[r] != kNoId)
            m_childRows[fill[m_slotOfParent.get(m_par[r])]++] = r;
    // An IndNum written oddly finds children only under the same odd text.
    for (const auto& [r, text] : oddIds)
        if (m_lastOddParent.value(text, -1) >= r)
            m_kind[r] |= kOddOpens;
}

const TableEntry* UsDBTreeIndex::Table() const {
    if (!m_db || m_tableNo < 0 || m_tableNo >= m_db->DBView().Tables.size())
        return nullptr;
    return &m_db->DBView().Tables[m_tableNo];
}

int UsDBTreeIndex::RowOfId(int Id) const {
    return Id == kNoId ? -1 : m_rowOfId.get(Id);
}

std::span<const int> UsDBTreeIndex::ChildRows(int Id) const {
    const int slot = Id == kNoId ? -1 : m_slotOfParent.get(Id);
    if (slot < 0)
        return {};
    return {m_childRows.data() + m_childStart[slot],
            static_cast<std::size_t>(m_childStart[slot + 1] - m_childStart[slot])};
}

bool UsDBTreeIndex::Opens(int row0) const {
    if (m_ind[row0] == kNoId)
        return false;
    if (!(m_kind[row0] & kPlainId))
        return m_kind[row0] & kOddOpens;
    const std::span<const int> kids = ChildRows(m_ind[row0]);
    return !kids.empty() && kids.back() >= row0;
}

std::vector<int> UsDBTreeIndex::DisplayChildren(int Id) const {
    const std::span<const int> rows = ChildRows(Id);
    std::vector<int> order;
    order.reserve(rows.size());
    for (auto r = rows.rbegin(); r != rows.rend(); ++r)
        if (IsFolder(*r))
            order.push_back(*r);
    for (int r : rows)
        if (!IsFolder(r))
            order.push_back(r);
    return order;
}

void UsDBTreeIndex::ChildCounts(int Id, int& NumFolds, int& NumRecs) const {
    for (int r : ChildRows(Id)) {
        if (m_kind[r] & kCountRecord)
            ++NumRecs;
        else
            ++NumFolds;
    }
}

QList<UsTreeNode> UsDBTreeOrder(const clsDatabase& UsDB) {
    TRACE_PROC("modMain.UsDBTreeOrder");
    QList<UsTreeNode> out;
    UsDBTreeIndex ix;
    ix.Build(UsDB);
    if (!ix.Table() || ix.fParent < 0)
        return out;
    out.reserve(ix.Rows());
    struct Level {
        std::vector<int> rows;
        std::size_t next = 0;
        int id = 0;
    };
    std::vector<Level> stack;
    std::unordered_set<int> onPath;
    stack.push_back(Level{ix.DisplayChildren(0), 0, 0});
    onPath.insert(0);
    while (!stack.empty()) {
        Level& lv = stack.back();
        if (lv.next >= lv.rows.size()) {
            onPath.erase(lv.id);
            stack.pop_back();
            continue;
        }
        const int row = lv.rows[lv.next++];
        out.append(UsTreeNode{row + 1, static_cast<int>(stack.size()), ix.IsFolder(row)});
        const int id = ix.IdOf(row);
        if (!ix.Opens(row) || onPath.count(id))
            continue;
        onPath.insert(id);
        stack.push_back(Level{ix.DisplayChildren(id), 0, id});
    }
    return out;
}
