// MergeDatabases: the database line, DataTable (UserFileMerge.cpp) and every other table,
// merged by rows keyed by their first column.

#include "diagnostics/Trace.h"
#include "storage/FieldTable.h"
#include "storage/FileLineage.h"
#include "storage/TableFile.h"
#include "storage/UserFileMerge.h"
#include "storage/UserFileMergeIds.h"

#include <algorithm>
#include <optional>
#include <utility>
#include <vector>

namespace {

const QString kDataTable = QStringLiteral("DataTable");

int tableIndex(const DatabaseRecord& Db, const QString& Name) {
    for (int i = 0; i < Db.TabNum(); ++i)
        if (Db.Tables[i].Name.compare(Name, Qt::CaseInsensitive) == 0)
            return i;
    return -1;
}

bool isDataTable(const TableEntry& Table) {
    return Table.Name.compare(kDataTable, Qt::CaseInsensitive) == 0;
}

bool sameTable(const TableEntry& One, const TableEntry& Other) {
    return One.Caption == Other.Caption && One.FldNames == Other.FldNames && One.FldTypes == Other.FldTypes &&
           One.Flags == Other.Flags && One.Tag == Other.Tag && One.Records == Other.Records;
}

// The three-way merge of one table other than DataTable, by rows keyed by the first column.
class clsKeyedTableMerge {
public:
    // RecordCol: the IndNum field, -1 when none; the rows of records that Fates says the
    // merge kept against a delete are kept too.
    clsKeyedTableMerge(const TableEntry& Base, const TableEntry& Ours, const TableEntry& Theirs,
                       int RecordCol, const clsRecordFates* Fates, clsMergeCounts& Counts)
        : m_base(Base.Records), m_ours(Ours.Records), m_theirs(Theirs.Records), m_baseRows(Base.Records),
          m_ourRows(Ours.Records), m_theirRows(Theirs.Records),
          m_ourRowMatched(static_cast<size_t>(Ours.RecNum()), 0), m_recordCol(RecordCol), m_fates(Fates),
          m_counts(Counts) {}

    RecordStore run() {
        m_result.shareBytesOf(m_theirs);
        m_result.reserve(m_theirs.size() + m_ours.size() / 8 + 16);
        for (int row = 0; row < m_theirs.size(); ++row)
            takeTheirRow(row);
        takeOurRowsTheirsLack();
        return std::move(m_result);
    }

private:
    void takeTheirRow(int TheirRow) {
        const int baseRow = m_baseRows.find(m_theirRows, TheirRow);
        const int ourRow = m_ourRows.find(m_theirRows, TheirRow);
        if (ourRow >= 0)
            m_ourRowMatched[static_cast<size_t>(ourRow)] = 1;
        if (baseRow < 0) {
            if (ourRow >= 0 && !m_ours.sameRow(ourRow, m_theirs, TheirRow)) {
                mergeFields(-1, ourRow, TheirRow); // added on both sides
            } else {
                m_result.appendFrom(m_theirs, TheirRow);
                ++m_counts.AddedTheirs;
            }
            return;
        }
        const bool theirsChanged = !m_theirs.sameRow(TheirRow, m_base, baseRow);
        if (ourRow < 0) { // we deleted it
            if (!theirsChanged && !keptWithRecord(m_theirs, TheirRow)) {
                ++m_counts.Deleted;
            } else {
                m_result.appendFrom(m_theirs, TheirRow);
                ++m_counts.KeptChanged;
            }
            return;
        }
        const bool oursChanged =
            !m_ours.sharesRow(ourRow, m_base, baseRow) && !m_ours.sameRow(ourRow, m_base, baseRow);
        if (!oursChanged) {
            m_result.appendFrom(m_theirs, TheirRow);
            if (theirsChanged)
                ++m_counts.TakenTheirs;
        } else if (!theirsChanged) {
            m_result.appendFrom(m_ours, ourRow);
            ++m_counts.TakenOurs;
        } else {
            mergeFields(baseRow, ourRow, TheirRow);
        }
    }

    // Each field takes the side that changed it against the base row (none: an empty row),
    // ours where both did.
    void mergeFields(int BaseRow, int OurRow, int TheirRow) {
        const int ourFields = m_ours.fieldCount(OurRow);
        const int theirFields = m_theirs.fieldCount(TheirRow);
        const int baseFields = BaseRow >= 0 ? m_base.fieldCount(BaseRow) : 0;
        const int fields = std::max({baseFields, ourFields, theirFields});
        m_result.append(QStringList(fields));
        const int merged = m_result.size() - 1;
        for (int field = 0; field < fields; ++field) {
            const QByteArrayView baseValue =
                field < baseFields ? m_base.escaped(BaseRow, field) : QByteArrayView();
            const QByteArrayView ourValue = field < ourFields ? m_ours.escaped(OurRow, field) : baseValue;
            const QByteArrayView theirValue =
                field < theirFields ? m_theirs.escaped(TheirRow, field) : baseValue;
            if (ourValue != baseValue) {
                m_result.setValueFrom(merged, field, m_ours, OurRow, field);
                if (theirValue != baseValue && theirValue != ourValue)
                    ++m_counts.Conflicts;
            } else if (field < theirFields) {
                m_result.setValueFrom(merged, field, m_theirs, TheirRow, field);
            } else if (field < baseFields) {
                m_result.setValueFrom(merged, field, m_base, BaseRow, field);
            }
        }
        ++m_counts.FieldMerged;
    }

    void takeOurRowsTheirsLack() {
        for (int row = 0; row < m_ours.size(); ++row) {
            if (m_ourRowMatched[static_cast<size_t>(row)])
                continue;
            const int baseRow = m_baseRows.find(m_ourRows, row);
            if (baseRow < 0) {
                m_result.appendFrom(m_ours, row);
                ++m_counts.AddedOurs;
            } else if ((m_ours.sharesRow(row, m_base, baseRow) || m_ours.sameRow(row, m_base, baseRow)) &&
                       !keptWithRecord(m_ours, row)) {
                ++m_counts.Deleted; // they deleted it, we left it alone
            } else {
                m_result.appendFrom(m_ours, row);
                ++m_counts.KeptChanged;
            }
        }
    }

    bool keptWithRecord(const RecordStore& Rows, int Row) const {
        return m_recordCol >= 0 && m_fates && m_fates->revived(Rows.escaped(Row, m_recordCol));
    }

    const RecordStore& m_base;
    const RecordStore& m_ours;
    const RecordStore& m_theirs;
    const clsRowsByKey m_baseRows, m_ourRows, m_theirRows;
    std::vector<char> m_ourRowMatched; // per row of ours: a row of theirs has its key
    const int m_recordCol;
    const clsRecordFates* m_fates;
    clsMergeCounts& m_counts;
    RecordStore m_result;
};

// The tag of a table other than DataTable: the higher one when both are numbers (a tag
// counts what a table handed out), else ours unless ours left it as it was.
QString mergedTag(const QString& Base, const QString& Ours, const QString& Theirs) {
    const qint64 ours = PlainIdNumber(StoredForm(Ours));
    const qint64 theirs = PlainIdNumber(StoredForm(Theirs));
    if (ours >= 0 && theirs >= 0)
        return ours >= theirs ? Ours : Theirs;
    return Ours == Base ? Theirs : Ours;
}

// The merge of whole databases: DataTable first, then every other table against it.
class clsDatabaseMerge {
public:
    clsDatabaseMerge(DatabaseRecord& Ours, const DatabaseRecord& Base, const DatabaseRecord& Theirs)
        : m_ours(Ours), m_base(Base), m_theirs(Theirs) {}

    clsMergeCounts run(QHash<QString, QString>* NewIds) {
        mergeDatabaseLine();
        mergeDataTable();
        keepLostPasswords();
        mergeOtherTables();
        if (NewIds)
            *NewIds = std::move(m_newIds);
        return m_counts;
    }

private:
    // A value that ours left alone takes theirs.
    void mergeDatabaseLine() {
        if (m_ours.Tag == m_base.Tag)
            m_ours.Tag = m_theirs.Tag;
        if (m_ours.flags == m_base.flags)
            m_ours.flags = m_theirs.flags;
        // The result descends from both sides, and counts past both when it is written: a
        // version's count is above those of all it descends from (FileLineage.h).
        m_ours.Lineage = JoinLineages(m_ours.Lineage, m_theirs.Lineage);
        m_ours.SaveNum = std::max(m_ours.SaveNum, m_theirs.SaveNum);
    }

    void mergeDataTable() {
        const int ours = tableIndex(m_ours, kDataTable);
        const int base = tableIndex(m_base, kDataTable);
        const int theirs = tableIndex(m_theirs, kDataTable);
        if (ours >= 0)
            m_oursBefore = m_ours.Tables[ours];
        if (ours < 0 || theirs < 0) {
            m_counts.NoDataTable = true;
            return; // the side that has a DataTable keeps it (mergeOtherTables)
        }
        const TableEntry empty;
        // A record deleted on one side whose fields the other side changed is kept.
        clsRecordsTouched touched{RecordsWithChangedExtras(m_ours, m_base),
                                  RecordsWithChangedExtras(m_theirs, m_base)};
        clsMergeResult merged = MergeDataTable(base >= 0 ? m_base.Tables[base] : empty, m_ours.Tables[ours],
                                               m_theirs.Tables[theirs], &touched);
        TableEntry& table = m_ours.Tables[ours];
        table.Records = std::move(merged.Records);
        table.Tag = merged.Tag;
        m_counts = merged.Counts;
        m_newIds = std::move(merged.NewIds);
    }

    // A password both sides changed keeps ours; theirs goes into the record's history.
    void keepLostPasswords() {
        const int ours = tableIndex(m_ours, kDataTable), base = tableIndex(m_base, kDataTable);
        const int theirs = tableIndex(m_theirs, kDataTable);
        if (m_counts.Conflicts > 0 && m_oursBefore && ours >= 0 && theirs >= 0)
            KeepLostPasswords(m_ours, *m_oursBefore, base >= 0 ? &m_base.Tables[base] : nullptr,
                              m_theirs.Tables[theirs]);
    }

    // Tables in ours' order, then theirs' new ones. The first table of a name is merged;
    // a damaged file's repeats of a name stay as ours has them.
    void mergeOtherTables() {
        QList<TableEntry> tables;
        for (int i = 0; i < m_ours.TabNum(); ++i) {
            TableEntry ours = m_ours.Tables[i];
            if (isDataTable(ours) || tableIndex(m_ours, ours.Name) != i) {
                tables.append(std::move(ours));
                continue;
            }
            const int base = tableIndex(m_base, ours.Name);
            const int theirs = tableIndex(m_theirs, ours.Name);
            if (theirs < 0 && base >= 0 && sameTable(ours, m_base.Tables[base]))
                continue; // they deleted it, we left it alone
            renumberOurReferences(ours);
            if (theirs >= 0)
                mergeWithTheirs(ours, base, m_theirs.Tables[theirs]);
            dropRowsOfGoneRecords(ours);
            tables.append(std::move(ours));
        }
        for (int i = 0; i < m_theirs.TabNum(); ++i) {
            TableEntry theirs = m_theirs.Tables[i];
            if (tableIndex(m_ours, theirs.Name) >= 0 || tableIndex(m_theirs, theirs.Name) != i)
                continue;
            const int base = tableIndex(m_base, theirs.Name);
            if (!isDataTable(theirs)) {
                if (base >= 0 && sameTable(theirs, m_base.Tables[base]))
                    continue; // we deleted it, they left it alone
                dropRowsOfGoneRecords(theirs);
            }
            tables.append(std::move(theirs));
        }
        m_ours.Tables = std::move(tables);
    }

    void mergeWithTheirs(TableEntry& Ours, int Base, const TableEntry& Theirs) {
        const TableEntry empty;
        const TableEntry& base = Base >= 0 ? m_base.Tables[Base] : empty;
        const int recordCol = MergeColumnOf(Ours, QStringLiteral("IndNum"), -1);
        const clsRecordFates* fates = recordCol >= 0 ? &recordFates() : nullptr;
        Ours.Records = clsKeyedTableMerge(base, Ours, Theirs, recordCol, fates, m_counts).run();
        Ours.Tag = mergedTag(base.Tag, Ours.Tag, Theirs.Tag);
    }

    // Our rows that name a DataTable row we added and the merge renumbered follow it.
    void renumberOurReferences(TableEntry& Table) const {
        const int column = MergeColumnOf(Table, QStringLiteral("IndNum"), -1);
        if (column < 0 || m_newIds.isEmpty())
            return;
        for (int row = 0; row < Table.RecNum(); ++row) {
            const auto renumbered = m_newIds.constFind(Table.Records.value(row, column));
            if (renumbered != m_newIds.cend())
                Table.Records.setValue(row, column, *renumbered);
        }
    }

    // Rows that name a DataTable row that some side had and the merged DataTable lacks.
    void dropRowsOfGoneRecords(TableEntry& Table) {
        const int column = MergeColumnOf(Table, QStringLiteral("IndNum"), -1);
        if (column < 0 || Table.Records.isEmpty())
            return;
        const clsRecordFates& fates = recordFates();
        std::vector<bool> drop(static_cast<size_t>(Table.RecNum()), false);
        int dropped = 0;
        for (int row = 0; row < Table.RecNum(); ++row)
            if (fates.gone(Table.Records.escaped(row, column))) {
                drop[static_cast<size_t>(row)] = true;
                ++dropped;
            }
        if (dropped > 0)
            Table.Records.removeRows(drop);
        m_counts.DroppedWithRecord += dropped;
    }

    // Read once, when a table other than DataTable names records.
    const clsRecordFates& recordFates() {
        if (!m_fates) {
            const int base = tableIndex(m_base, kDataTable);
            const int ours = tableIndex(m_ours, kDataTable);
            const int theirs = tableIndex(m_theirs, kDataTable);
            const TableEntry* result = ours >= 0     ? &m_ours.Tables[ours]
                                       : theirs >= 0 ? &m_theirs.Tables[theirs]
                                                     : nullptr;
            m_fates.emplace(base >= 0 ? &m_base.Tables[base] : nullptr,
                            m_oursBefore ? &*m_oursBefore : nullptr,
                            theirs >= 0 ? &m_theirs.Tables[theirs] : nullptr, result, !m_counts.NoDataTable);
        }
        return *m_fates;
    }

    DatabaseRecord& m_ours;
    const DatabaseRecord& m_base;
    const DatabaseRecord& m_theirs;
    clsMergeCounts m_counts;
    QHash<QString, QString> m_newIds;
    std::optional<TableEntry> m_oursBefore; // our DataTable before the merge
    std::optional<clsRecordFates> m_fates;  // read when a table other than DataTable names records
};

} // namespace

bool CanMerge(const DatabaseRecord& Ours, const DatabaseRecord& Theirs) {
    return tableIndex(Ours, kDataTable) >= 0 && tableIndex(Theirs, kDataTable) >= 0;
}

clsMergeCounts MergeDatabases(DatabaseRecord& Ours, const DatabaseRecord& Base, const DatabaseRecord& Theirs,
                              QHash<QString, QString>* NewIds) {
    TRACE_PROC("modMerge.MergeDatabases");
    return clsDatabaseMerge(Ours, Base, Theirs).run(NewIds);
}
