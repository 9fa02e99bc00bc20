#pragma once

// What the main window looks up on every click, kept from one pass over DataTable:
// the row of each identifier and the number of folders and records directly under each
// row. Commands that add, delete or move rows mark it stale; the next look-up rebuilds
// it. A row found through a stale index is checked before it is used, so a change that
// forgot to say so costs a rebuild, never a wrong row.

#include <QHash>
#include <QString>

class clsDatabase;

class DataTableIndex {
public:
    void Invalidate() { m_valid = false; }
    // The row (from 1) of identifier IndNum, 0 when there is none.
    int RowOf(clsDatabase& Db, const QString& IndNum);
    // As GetStatBarData: adds the direct children of IndNum, folders and records.
    void ChildCounts(clsDatabase& Db, const QString& IndNum, int& NumFolds, int& NumRecs);

private:
    void Build(clsDatabase& Db);
    bool m_valid = false;
    const void* m_db = nullptr;
    QHash<QString, int> m_rows;
    QHash<QString, std::pair<int, int>> m_children;
};
