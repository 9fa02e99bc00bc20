#include "mainwindow/DataTableIndex.h"

#include "app/VbConv.h"
#include "diagnostics/Trace.h"
#include "storage/clsDatabase.h"

void DataTableIndex::Build(clsDatabase& Db) {
    TRACE_PROC("frmMain.BuildDataTableIndex");
    m_rows.clear();
    m_children.clear();
    m_db = &Db;
    m_valid = true;
    const int tbl = Db.FindTable(QStringLiteral("DataTable"));
    if (tbl < 1)
        return;
    const int fInd = Db.FindField(tbl, QStringLiteral("IndNum"));
    const int fParent = Db.FindField(tbl, QStringLiteral("Parent"));
    const int fType = Db.FindField(tbl, QStringLiteral("Type"));
    const RecordStore& rows = Db.DBView().Tables[tbl - 1].Records;
    m_rows.reserve(rows.size());
    for (int r = 0; r < rows.size(); ++r) {
        // The first row of an identifier is the one the table search finds.
        const QString id = rows.value(r, fInd - 1);
        if (!m_rows.contains(id))
            m_rows.insert(id, r + 1);
        auto& c = m_children[rows.value(r, fParent - 1)];
        // Anything but the numeric value 2 counts as a folder.
        const QByteArrayView type = rows.escaped(r, fType - 1);
        if (type.size() == 1 ? type[0] == '2' : Val(rows.value(r, fType - 1)) == 2)
            ++c.second;
        else
            ++c.first;
    }
}

int DataTableIndex::RowOf(clsDatabase& Db, const QString& IndNum) {
    if (!m_valid || m_db != &Db)
        Build(Db);
    int row = m_rows.value(IndNum, 0);
    if (row > 0 && Db.GetTblFldValNm(Db.FindTable(QStringLiteral("DataTable")), row,
                                     QStringLiteral("IndNum")) != IndNum) {
        Build(Db);
        row = m_rows.value(IndNum, 0);
    }
    return row;
}

void DataTableIndex::ChildCounts(clsDatabase& Db, const QString& IndNum, int& NumFolds, int& NumRecs) {
    if (!m_valid || m_db != &Db)
        Build(Db);
    const auto c = m_children.value(IndNum);
    NumFolds += c.first;
    NumRecs += c.second;
}
