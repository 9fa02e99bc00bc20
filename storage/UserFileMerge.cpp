#include "storage/UserFileMerge.h"

#include "diagnostics/Trace.h"
#include "storage/TableFile.h"
#include "storage/UserFileMergeIds.h"

#include <algorithm>
#include <optional>
#include <vector>

namespace {

// A row of the result: a row of one of the sides (or of the rows merged field by field),
// with its identifier or parent replaced where the merge says so.
struct clsResultRow {
    clsResultRow(const RecordStore* Source, int Row, bool ParentOurs, qint64 IdNumber,
                 qint64 ParentNumber = -2)
        : Source(Source), Row(Row), ParentOurs(ParentOurs), IdNumber(IdNumber), ParentNumber(ParentNumber) {}
    const RecordStore* Source = nullptr;
    int Row = -1;
    bool ParentOurs = false;  // the Parent value came from our side
    qint64 IdNumber = -1;     // the identifier when it is a plain number
    qint64 ParentNumber = -2; // the parent when it is a plain number; -2 not read yet
    std::optional<QString> NewId, NewParent;

    QByteArray idText(int IdCol) const {
        return NewId ? StoredForm(*NewId) : Source->escaped(Row, IdCol).toByteArray();
    }
    QByteArray parentText(int ParentCol) const {
        return NewParent ? StoredForm(*NewParent) : Source->escaped(Row, ParentCol).toByteArray();
    }
    QString parentValue(int ParentCol) const {
        return NewParent ? *NewParent : Source->value(Row, ParentCol);
    }
};

// The merge of one DataTable, phase by phase (MergeDataTable).
class clsDataTableMerge {
public:
    clsDataTableMerge(const TableEntry& Base, const TableEntry& Ours, const TableEntry& Theirs,
                      const clsRecordsTouched* Touched);
    clsMergeResult run();

private:
    void takeTheirRows();
    void takeTheirRow(int TheirRow);
    void takeRowChangedOnBothSides(int BaseRow, int OurRow, int TheirRow, qint64 IdNumber);
    void takeOurRowsTheirsLack();
    void takeOurNewRow(int OurRow, qint64 IdNumber, bool InTheirs);
    void followRenumberedParents();
    void placeRowsBehindFolders();
    void indexResultRows();
    void placeRowAndWaitingChildren(int First);
    void moveUnderRoot(qsizetype Row);
    void appendResultRow(const clsResultRow& Row);
    bool touched(const QSet<QByteArray>* Side, const RecordStore& Rows, int Row) const {
        return Side && !Side->isEmpty() && Side->contains(Rows.escaped(Row, m_idCol).toByteArray());
    }

    const RecordStore& m_base;
    const RecordStore& m_ours;
    const RecordStore& m_theirs;
    const int m_idCol;
    const int m_parentCol;
    const clsTableIds m_baseIds;
    const clsTableIds m_theirIds;
    const clsOurRowsInBase m_ourMatch;
    clsIdIndex m_baseIndex, m_theirIndex;
    RecordStore m_fieldMerged; // rows both sides changed, merged field by field
    std::vector<clsResultRow> m_rows;
    clsMergeResult m_result;
    clsMergeCounts& m_counts;
    qint64 m_nextId = 0; // the next identifier for our new rows that collide
    // Ordering the result: rows by identifier, rows placed, rows waiting for their folder.
    clsIdIndex m_resultIndex;
    std::vector<char> m_placed;
    QHash<QByteArray, QList<int>> m_waiting;
    std::vector<int> m_stack;
    const QSet<QByteArray>* m_oursTouched = nullptr;
    const QSet<QByteArray>* m_theirsTouched = nullptr;
};

const TableEntry& layoutOf(const TableEntry& Ours, const TableEntry& Theirs) {
    return Ours.FldNames.isEmpty() ? Theirs : Ours;
}

clsDataTableMerge::clsDataTableMerge(const TableEntry& Base, const TableEntry& Ours, const TableEntry& Theirs,
                                     const clsRecordsTouched* Touched)
    : m_base(Base.Records), m_ours(Ours.Records), m_theirs(Theirs.Records),
      m_idCol(MergeColumnOf(layoutOf(Ours, Theirs), QStringLiteral("IndNum"), 0)),
      m_parentCol(MergeColumnOf(layoutOf(Ours, Theirs), QStringLiteral("Parent"), 1)),
      m_baseIds(Base, m_idCol), m_theirIds(Theirs, m_idCol, m_parentCol),
      m_ourMatch(Base, m_baseIds, Ours, m_idCol), m_counts(m_result.Counts) {
    m_baseIndex.build(m_base, m_baseIds.Numbers, m_idCol, m_baseIds.Top);
    m_theirIndex.build(m_theirs, m_theirIds.Numbers, m_idCol, m_theirIds.Top);
    if (Touched) {
        m_oursTouched = &Touched->Ours;
        m_theirsTouched = &Touched->Theirs;
    }
}

clsMergeResult clsDataTableMerge::run() {
    takeTheirRows();
    takeOurRowsTheirsLack();
    followRenumberedParents();
    placeRowsBehindFolders();
    return std::move(m_result);
}

// Their rows in their order: each as it is, changed by us, merged, or dropped.
void clsDataTableMerge::takeTheirRows() {
    m_rows.reserve(static_cast<size_t>(m_theirs.size() + m_ours.size() / 8 + 16));
    for (int row = 0; row < m_theirs.size(); ++row)
        takeTheirRow(row);
}

void clsDataTableMerge::takeTheirRow(int TheirRow) {
    const qint64 number = m_theirIds.Numbers[static_cast<size_t>(TheirRow)];
    const QByteArrayView id = number >= 0 ? QByteArrayView() : m_theirs.escaped(TheirRow, m_idCol);
    const clsResultRow asTheirs{&m_theirs, TheirRow, false, number,
                                m_theirIds.Parents[static_cast<size_t>(TheirRow)]};
    const int baseRow = m_baseIndex.find(number, id);
    if (baseRow < 0) {
        m_rows.push_back(asTheirs);
        ++m_counts.AddedTheirs;
        return;
    }
    const int shared = m_ourMatch.OurRowOf[static_cast<size_t>(baseRow)];
    const int ourRow = shared >= 0 ? shared : m_ourMatch.Unshared.find(number, id);
    const bool theirsChanged = !m_theirs.sameRow(TheirRow, m_base, baseRow);
    if (ourRow < 0) { // we deleted it
        if (!theirsChanged && !touched(m_theirsTouched, m_theirs, TheirRow)) {
            ++m_counts.Deleted;
        } else {
            m_rows.push_back(asTheirs);
            ++m_counts.KeptChanged;
        }
        return;
    }
    const bool oursChanged = shared < 0 && !m_ours.sameRow(ourRow, m_base, baseRow);
    if (!oursChanged) {
        m_rows.push_back(asTheirs);
        if (theirsChanged)
            ++m_counts.TakenTheirs;
    } else if (!theirsChanged) {
        m_rows.push_back(clsResultRow{&m_ours, ourRow, true, number});
        ++m_counts.TakenOurs;
    } else {
        takeRowChangedOnBothSides(baseRow, ourRow, TheirRow, number);
    }
}

// Each field takes the side that changed it, ours where both did.
void clsDataTableMerge::takeRowChangedOnBothSides(int BaseRow, int OurRow, int TheirRow, qint64 IdNumber) {
    const int ourFields = m_ours.fieldCount(OurRow);
    const int theirFields = m_theirs.fieldCount(TheirRow);
    const int fields = std::max({m_base.fieldCount(BaseRow), ourFields, theirFields});
    m_fieldMerged.append(QStringList(fields));
    const int merged = m_fieldMerged.size() - 1;
    for (int field = 0; field < fields; ++field) {
        const QByteArrayView baseValue = m_base.escaped(BaseRow, field);
        const QByteArrayView ourValue = field < ourFields ? m_ours.escaped(OurRow, field) : baseValue;
        const QByteArrayView theirValue = field < theirFields ? m_theirs.escaped(TheirRow, field) : baseValue;
        if (ourValue != baseValue) {
            if (field < ourFields)
                m_fieldMerged.setValueFrom(merged, field, m_ours, OurRow, field);
            else
                m_fieldMerged.setValueFrom(merged, field, m_base, BaseRow, field);
            if (theirValue != baseValue && theirValue != ourValue)
                ++m_counts.Conflicts;
        } else if (field < theirFields) {
            m_fieldMerged.setValueFrom(merged, field, m_theirs, TheirRow, field);
        } else {
            m_fieldMerged.setValueFrom(merged, field, m_base, BaseRow, field);
        }
    }
    const bool parentOurs = m_ours.escaped(OurRow, m_parentCol) != m_base.escaped(BaseRow, m_parentCol);
    m_rows.push_back(clsResultRow{&m_fieldMerged, merged, parentOurs, IdNumber});
    ++m_counts.FieldMerged;
}

// Our rows that theirs lacks, in our order: new ones, and those they deleted that we changed.
void clsDataTableMerge::takeOurRowsTheirsLack() {
    m_nextId = std::max(m_ourMatch.Top, m_theirIds.Top) + 1;
    for (int row = 0; row < m_ours.size(); ++row) {
        const qint64 number = m_ourMatch.Numbers[static_cast<size_t>(row)];
        const QByteArrayView id = number >= 0 ? QByteArrayView() : m_ours.escaped(row, m_idCol);
        const int shared = m_ourMatch.BaseRowOf[static_cast<size_t>(row)];
        const int baseRow = shared >= 0 ? shared : m_baseIndex.find(number, id);
        const bool inTheirs = m_theirIndex.find(number, id) >= 0;
        if (baseRow < 0) {
            takeOurNewRow(row, number, inTheirs);
        } else if (!inTheirs) { // they deleted it
            if ((shared >= 0 || m_ours.sameRow(row, m_base, baseRow)) &&
                !touched(m_oursTouched, m_ours, row)) {
                ++m_counts.Deleted;
            } else {
                m_rows.push_back(clsResultRow{&m_ours, row, true, number});
                ++m_counts.KeptChanged;
            }
        }
    }
    // The tag ends at the highest identifier handed out, so that none is used twice.
    m_result.Tag = QString::number(std::max(m_nextId - 1, m_baseIds.Top));
}

// A row we added keeps its identifier unless they may have handed it out too (they have it,
// or it lies between the base's tag and theirs): then it gets one above every identifier
// either side handed out.
void clsDataTableMerge::takeOurNewRow(int OurRow, qint64 IdNumber, bool InTheirs) {
    ++m_counts.AddedOurs;
    const qint64 number = IdNumber >= 0 ? IdNumber : IdNumberOf(m_ours.escaped(OurRow, m_idCol));
    if (!InTheirs && !(number > m_baseIds.Top && number <= m_theirIds.Top)) {
        m_rows.push_back(clsResultRow{&m_ours, OurRow, true, IdNumber});
        return;
    }
    const qint64 freshNumber = m_nextId++;
    const QString fresh = QString::number(freshNumber);
    m_result.NewIds.insert(m_ours.value(OurRow, m_idCol), fresh);
    clsResultRow row{&m_ours, OurRow, true, freshNumber};
    row.NewId = fresh;
    m_rows.push_back(row);
    ++m_counts.Renumbered;
}

// Our rows whose folder got a new identifier point at it.
void clsDataTableMerge::followRenumberedParents() {
    if (m_result.NewIds.isEmpty())
        return;
    for (clsResultRow& row : m_rows)
        if (row.ParentOurs) {
            const auto renumbered = m_result.NewIds.constFind(row.parentValue(m_parentCol));
            if (renumbered != m_result.NewIds.cend()) {
                row.NewParent = *renumbered;
                row.ParentNumber = -2;
            }
        }
}

// Every row behind its folder; rows whose folder is gone (or which sit in a loop of
// folders) go under the root.
void clsDataTableMerge::placeRowsBehindFolders() {
    const qsizetype count = static_cast<qsizetype>(m_rows.size());
    indexResultRows();
    m_placed.assign(static_cast<size_t>(count), 0);
    // Most rows are theirs as they are: the result shares their bytes.
    m_result.Records.shareBytesOf(m_theirs);
    m_result.Records.reserve(static_cast<int>(count));
    for (qsizetype i = 0; i < count; ++i) {
        const clsResultRow& row = m_rows[static_cast<size_t>(i)];
        qint64 parentNumber = row.ParentNumber;
        const QByteArray parent =
            parentNumber == -2 || parentNumber < 0 ? row.parentText(m_parentCol) : QByteArray();
        if (parentNumber == -2)
            parentNumber = PlainIdNumber(parent);
        const bool atRoot = parentNumber == 0;
        const int folder = atRoot ? -1 : m_resultIndex.find(parentNumber, parent);
        if (atRoot || folder < 0 || m_placed[folder] || folder == i) {
            if (!atRoot && (folder < 0 || folder == i))
                moveUnderRoot(i);
            placeRowAndWaitingChildren(static_cast<int>(i));
        } else {
            m_waiting[parentNumber >= 0 ? QByteArray::number(parentNumber) : parent].append(
                static_cast<int>(i));
        }
    }
    // What is left waits on itself through a loop of moves: the first row of each loop
    // goes under the root, and the rest of the loop follows it.
    for (qsizetype i = 0; i < count; ++i)
        if (!m_placed[i]) {
            moveUnderRoot(i);
            placeRowAndWaitingChildren(static_cast<int>(i));
        }
}

void clsDataTableMerge::indexResultRows() {
    qint64 top = 0;
    for (const clsResultRow& row : m_rows)
        top = std::max(top, row.IdNumber);
    m_resultIndex.reserveFor(top, static_cast<qsizetype>(m_rows.size()));
    for (size_t i = 0; i < m_rows.size(); ++i) {
        const clsResultRow& row = m_rows[i];
        m_resultIndex.add(row.IdNumber, row.IdNumber >= 0 ? QByteArray() : row.idText(m_idCol),
                          static_cast<int>(i));
    }
}

// Appends the row to the result, then the rows that waited for it as their folder, and so on
// down the subtree, in their order.
void clsDataTableMerge::placeRowAndWaitingChildren(int First) {
    m_stack.push_back(First);
    while (!m_stack.empty()) {
        const int next = m_stack.back();
        m_stack.pop_back();
        if (m_placed[next])
            continue;
        m_placed[next] = 1;
        const clsResultRow& row = m_rows[static_cast<size_t>(next)];
        const auto children = m_waiting.isEmpty() ? m_waiting.end() : m_waiting.find(row.idText(m_idCol));
        appendResultRow(row);
        if (children != m_waiting.end()) {
            const QList<int> waited = std::move(*children);
            m_waiting.erase(children);
            for (qsizetype j = waited.size() - 1; j >= 0; --j)
                m_stack.push_back(waited[j]);
        }
    }
}

void clsDataTableMerge::moveUnderRoot(qsizetype Row) {
    m_rows[static_cast<size_t>(Row)].NewParent = QStringLiteral("0");
    m_rows[static_cast<size_t>(Row)].ParentNumber = 0;
    ++m_counts.Rehomed;
}

// Appends the row to the result with its replaced values.
void clsDataTableMerge::appendResultRow(const clsResultRow& Row) {
    RecordStore& out = m_result.Records;
    out.appendFrom(*Row.Source, Row.Row);
    const int at = out.size() - 1;
    const int need = std::max(Row.NewId ? m_idCol + 1 : 0, Row.NewParent ? m_parentCol + 1 : 0);
    if (out.fieldCount(at) < need) {
        QStringList values = out.row(at);
        while (values.size() < need)
            values.append(QString());
        out.setRow(at, values);
    }
    if (Row.NewId)
        out.setValue(at, m_idCol, *Row.NewId);
    if (Row.NewParent)
        out.setValue(at, m_parentCol, *Row.NewParent);
}

} // namespace

clsMergeResult MergeDataTable(const TableEntry& Base, const TableEntry& Ours, const TableEntry& Theirs,
                              const clsRecordsTouched* Touched) {
    TRACE_PROC("modMerge.MergeDataTable", Base.RecNum(), Ours.RecNum(), Theirs.RecNum());
    return clsDataTableMerge(Base, Ours, Theirs, Touched).run();
}
