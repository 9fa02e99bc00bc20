#pragma once

// The rows of a user's DataTable as the main window's tree shows them. Under a node come
// first its sub-folders in reverse table order (each new folder goes to the top), then all
// other rows in table order. A row's children are shown only when one of them is stored
// at or after the row itself; a row whose identifier is already on the way down from the
// root is not opened again, so a damaged file with a cycle cannot loop.
//
// UsDBTreeIndex is made in one pass over the table: identifiers and parent links as
// integers, and the rows under each parent in table order. Everything that walks the
// tree (the full order below, the window's tree, the status counts) asks it, so nothing
// rescans the table per node.

#include <QByteArrayView>
#include <QHash>
#include <QList>
#include <QString>

#include <climits>
#include <span>
#include <vector>

class clsDatabase;
struct TableEntry;

// The one place where the tree reads the table's cells (row and field from 0): as text,
// and as stored (escaped UTF-8, valid until the table changes; equal texts, equal bytes).
QString UsDBCell(const TableEntry& t, int row0, int fld0);
QByteArrayView UsDBStored(const TableEntry& t, int row0, int fld0);
int UsDBRowCount(const TableEntry& t);

class UsDBTreeIndex {
public:
    static constexpr int kNoId = INT_MIN;

    // One pass over DataTable of Db; an empty index when there is no such table.
    void Build(const clsDatabase& Db);
    // DataTable as it is now (the database's storage may have moved since the index was
    // made; the table is looked up again each time), nullptr when there is none.
    const TableEntry* Table() const;
    int Rows() const { return static_cast<int>(m_ind.size()); }
    // Columns of DataTable (from 0; -1 when missing).
    int fIndNum = -1, fParent = -1, fType = -1, fTitle = -1, fImage = -1, fFlags = -1;

    // The identifier of a row as the tree opens it (its IndNum read as a whole number),
    // kNoId when it is none.
    int IdOf(int row0) const { return m_ind[row0]; }
    // The Parent of a row as a number, kNoId when it is not written as one.
    int ParentOf(int row0) const { return m_par[row0]; }
    // The first row (from 0) of identifier Id, -1 when there is none.
    int RowOfId(int Id) const;
    // Rows whose Parent is the decimal text of Id, in table order.
    std::span<const int> ChildRows(int Id) const;
    // The tree's kind of a row: Type of numeric value 1 is a folder.
    bool IsFolder(int row0) const { return m_kind[row0] & kTreeFolder; }
    // Whether the row's node has its children shown: one row whose Parent is the row's
    // IndNum lies at or after it, and the IndNum is a number (the cycle rule is the
    // caller's: it knows the way down).
    bool Opens(int row0) const;
    // The children of an opened node of identifier Id, in the order shown.
    std::vector<int> DisplayChildren(int Id) const;
    // As GetStatBarData: adds the direct children of Id, records (Type of numeric value 2)
    // and folders (anything else).
    void ChildCounts(int Id, int& NumFolds, int& NumRecs) const;

private:
    enum : unsigned char { kTreeFolder = 1, kCountRecord = 2, kPlainId = 4, kOddOpens = 8 };
    // Whole numbers to small integers: a plain array while they are dense, a hash beyond.
    struct IntMap {
        std::vector<int> dense;
        QHash<int, int> sparse;
        int get(int k) const;
        void set(int k, int v);
        void reset(int DenseSize);
    };
    const clsDatabase* m_db = nullptr;
    int m_tableNo = -1;
    std::vector<int> m_ind, m_par;
    std::vector<unsigned char> m_kind;
    IntMap m_rowOfId, m_slotOfParent;
    std::vector<int> m_childStart, m_childRows;
    // Rows whose Parent is text that is no plain decimal number: the last row of each
    // text, for an IndNum written the same odd way (" 5", "05").
    QHash<QString, int> m_lastOddParent;
};

struct UsTreeNode {
    int RecNum = 0;      // row of DataTable, from 1
    int Depth = 1;       // 1 for the rows directly under the root
    bool Folder = false; // Type 1
};

// Every shown row, fully expanded: each node followed by its children.
QList<UsTreeNode> UsDBTreeOrder(const clsDatabase& UsDB);
