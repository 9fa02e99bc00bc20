#include "users/UsDBTree.h"

#include "diagnostics/Trace.h"
#include "storage/clsDatabase.h"

#include <QHash>
#include <QSet>

#include <vector>

namespace {

struct Columns {
    int IndNum = -1, Parent = -1, Type = -1;
};

int column(const TableEntry& t, const char* name) {
    TRACE_PROC("modMain.TreeColumn", name);
    for (qsizetype i = 0; i < t.FldNames.size(); ++i)
        if (t.FldNames[i].compare(QLatin1String(name), Qt::CaseInsensitive) == 0)
            return static_cast<int>(i);
    return -1;
}

// Per-row helpers of the walk, not traced. Values are compared in their stored form: equal
// texts have equal bytes (RecordStore.h).
QByteArrayView valueOf(const TableEntry& t, int row, int col) {
    return col >= 0 ? t.Records.escaped(row, col) : QByteArrayView();
}

// Type 1, read as a number ("1", " 1", "1.0" alike).
bool isFolder(QByteArrayView type) {
    if (type.size() == 1)
        return type[0] == '1';
    bool ok = false;
    return QString::fromUtf8(type).trimmed().toDouble(&ok) == 1.0 && ok;
}

} // namespace

QList<UsTreeNode> UsDBTreeOrder(const clsDatabase& UsDB) {
    TRACE_PROC("modMain.UsDBTreeOrder");
    QList<UsTreeNode> out;
    const DatabaseRecord& db = UsDB.DBView();
    const TableEntry* t = nullptr;
    for (const TableEntry& e : db.Tables)
        if (e.Name.compare(QLatin1String("DataTable"), Qt::CaseInsensitive) == 0) {
            t = &e;
            break;
        }
    if (!t)
        return out;
    Columns c{column(*t, "IndNum"), column(*t, "Parent"), column(*t, "Type")};
    if (c.Parent < 0)
        return out;

    // Rows by the text of their parent link, in table order.
    QHash<QByteArrayView, std::vector<int>> byParent;
    byParent.reserve(t->RecNum() / 8 + 16);
    for (int i = 0; i < t->RecNum(); ++i)
        byParent[valueOf(*t, i, c.Parent)].push_back(i);
    out.reserve(t->RecNum());

    // The display order of the children of one parent.
    auto childrenOf = [&](const QByteArray& parentText) {
        std::vector<int> order;
        auto it = byParent.constFind(QByteArrayView(parentText));
        if (it == byParent.constEnd())
            return order;
        const std::vector<int>& rows = *it;
        order.reserve(rows.size());
        for (auto r = rows.rbegin(); r != rows.rend(); ++r)
            if (isFolder(valueOf(*t, *r, c.Type)))
                order.push_back(*r);
        for (int r : rows)
            if (!isFolder(valueOf(*t, r, c.Type)))
                order.push_back(r);
        return order;
    };

    struct Level {
        std::vector<int> rows;
        std::size_t next = 0;
        int id = 0;
    };
    std::vector<Level> stack;
    QSet<int> onPath;
    stack.push_back(Level{childrenOf(QByteArrayLiteral("0")), 0, 0});
    onPath.insert(0);
    while (!stack.empty()) {
        Level& lv = stack.back();
        if (lv.next >= lv.rows.size()) {
            onPath.remove(lv.id);
            stack.pop_back();
            continue;
        }
        const int row = lv.rows[lv.next++];
        TRACE_LOCAL(row);
        const bool folder = isFolder(valueOf(*t, row, c.Type));
        TRACE_LOCAL(folder);
        out.append(UsTreeNode{row + 1, static_cast<int>(stack.size()), folder});
        // Children are looked for from this row on only; once there is one, all of them show.
        const QByteArrayView indNum = valueOf(*t, row, c.IndNum);
        auto kids = byParent.constFind(indNum);
        if (kids == byParent.constEnd() || kids->empty() || kids->back() < row)
            continue;
        bool ok = false;
        TRACE_LOCAL(ok);
        const int id = QString::fromUtf8(indNum).trimmed().toInt(&ok);
        TRACE_LOCAL(id);
        if (!ok || onPath.contains(id))
            continue;
        onPath.insert(id);
        stack.push_back(Level{childrenOf(QByteArray::number(id)), 0, id});
    }
    return out;
}
