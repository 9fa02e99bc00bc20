// MergeTwoWay: two versions of a user file without a version both started from.

#include "diagnostics/Trace.h"
#include "storage/FileLineage.h"
#include "storage/UserFileMerge.h"
#include "storage/UserFileMergeIds.h"

#include <QRandomGenerator>

#include <algorithm>

namespace {

const QString kDataTableName = QStringLiteral("DataTable");

int tableAt(const DatabaseRecord& Db, const QString& Name) {
    for (qsizetype i = 0; i < Db.Tables.size(); ++i)
        if (Db.Tables[i].Name.compare(Name, Qt::CaseInsensitive) == 0)
            return static_cast<int>(i);
    return -1;
}

int namedColumn(const TableEntry& T, const char* Name) {
    for (qsizetype i = 0; i < T.FldNames.size(); ++i)
        if (T.FldNames[i].compare(QLatin1String(Name), Qt::CaseInsensitive) == 0)
            return static_cast<int>(i);
    return -1;
}

QByteArray cell(const RecordStore& R, int Row, int Col) {
    return Col >= 0 && Col < R.fieldCount(Row) ? R.escaped(Row, Col).toByteArray() : QByteArray();
}

QHash<QByteArray, int> indexBy(const RecordStore& R, int Col) {
    QHash<QByteArray, int> out;
    out.reserve(R.size());
    for (int r = 0; r < R.size(); ++r)
        out.insert(cell(R, r, Col), r);
    return out;
}

QString freshKey() {
    return QStringLiteral("%1").arg(QRandomGenerator::system()->generate64(), 16, 16, QChar(u'0'));
}

// The records (IndNum as stored) whose rows in other tables both sides hold under one key
// with different values: such a record was changed on both sides.
void changedInOtherTables(const DatabaseRecord& Ours, const DatabaseRecord& Theirs, QSet<QByteArray>& Out) {
    for (const TableEntry& t : Theirs.Tables) {
        const int o = tableAt(Ours, t.Name);
        const int ind = namedColumn(t, "IndNum");
        if (o < 0 || ind <= 0 || t.Name.compare(kDataTableName, Qt::CaseInsensitive) == 0)
            continue;
        const RecordStore& ours = Ours.Tables[o].Records;
        const QHash<QByteArray, int> byKey = indexBy(ours, 0);
        for (int r = 0; r < t.Records.size(); ++r) {
            const auto at = byKey.constFind(cell(t.Records, r, 0));
            if (at != byKey.cend() && !t.Records.sameRow(r, ours, *at))
                Out.insert(cell(t.Records, r, ind));
        }
    }
}

class clsTwoWayData {
public:
    clsTwoWayData(TableEntry& Ours, const TableEntry& Theirs, const QString& CopyTitle,
                  const QSet<QByteArray>& Conflicted, QHash<QByteArray, QByteArray>& Copied,
                  clsMergeCounts& Counts)
        : m_ours(Ours), m_theirs(Theirs.Records), m_copyTitle(CopyTitle), m_conflicted(Conflicted),
          m_copied(Copied), m_counts(Counts) {
        m_id = std::max(namedColumn(Ours, "IndNum"), 0);
        m_parent = namedColumn(Ours, "Parent") < 0 ? 1 : namedColumn(Ours, "Parent");
        m_title = namedColumn(Ours, "Title") < 0 ? 3 : namedColumn(Ours, "Title");
        m_top = std::max(IdNumberOf(Ours.Tag.toUtf8()), IdNumberOf(Theirs.Tag.toUtf8()));
    }

    void run() {
        RecordStore& out = m_ours.Records;
        const QHash<QByteArray, int> ours = indexBy(out, m_id);
        QSet<QByteArray> present(ours.keyBegin(), ours.keyEnd());
        for (int r = 0; r < m_ours.Records.size(); ++r)
            m_top = std::max(m_top, IdNumberOf(out.escaped(r, m_id)));
        for (int r = 0; r < m_theirs.size(); ++r)
            m_top = std::max(m_top, IdNumberOf(m_theirs.escaped(r, m_id)));
        // Their rows that ours lacks are taken; rows both hold differently are copied.
        std::vector<std::pair<int, QByteArray>> take; // their row, its new identifier (or none)
        for (int r = 0; r < m_theirs.size(); ++r) {
            const QByteArray id = cell(m_theirs, r, m_id);
            const auto at = ours.constFind(id);
            if (at == ours.cend()) {
                take.emplace_back(r, QByteArray());
                ++m_counts.AddedTheirs;
            } else if (!m_theirs.sameRow(r, out, *at) || m_conflicted.contains(id)) {
                const QByteArray fresh = QByteArray::number(++m_top);
                m_copied.insert(id, fresh);
                take.emplace_back(r, fresh);
                ++m_counts.Conflicts;
            }
        }
        for (const auto& [row, newId] : take) {
            out.appendFrom(m_theirs, row);
            const int at = out.size() - 1;
            if (!newId.isEmpty()) {
                out.setValue(at, m_id, QString::fromUtf8(newId));
                out.setValue(at, m_title, m_copyTitle.arg(m_theirs.value(row, m_title)));
            }
            QByteArray parent = cell(m_theirs, row, m_parent);
            const auto moved = m_copied.constFind(parent);
            if (moved != m_copied.cend()) {
                parent = *moved;
                out.setValue(at, m_parent, QString::fromUtf8(parent));
            }
            // Every row behind its folder: one whose folder is not there goes under the root.
            if (parent != "0" && !present.contains(parent)) {
                out.setValue(at, m_parent, QStringLiteral("0"));
                ++m_counts.Rehomed;
            }
            present.insert(newId.isEmpty() ? cell(m_theirs, row, m_id) : newId);
        }
        m_ours.Tag = QString::number(m_top);
    }

private:
    TableEntry& m_ours;
    const RecordStore& m_theirs;
    const QString& m_copyTitle;
    const QSet<QByteArray>& m_conflicted;
    QHash<QByteArray, QByteArray>& m_copied;
    clsMergeCounts& m_counts;
    int m_id = 0, m_parent = 1, m_title = 3;
    qint64 m_top = 0;
};

// A table other than DataTable: their rows under keys ours lacks are taken; the rows of a
// record that was copied go with the copy, under new keys.
void mergeOtherTwoWay(TableEntry& Ours, const TableEntry& Theirs, const QHash<QByteArray, QByteArray>& Copied,
                      clsMergeCounts& Counts) {
    const int ind = namedColumn(Theirs, "IndNum");
    RecordStore& out = Ours.Records;
    const QHash<QByteArray, int> byKey = indexBy(out, 0);
    for (int r = 0; r < Theirs.Records.size(); ++r) {
        const auto copy = ind > 0 ? Copied.constFind(cell(Theirs.Records, r, ind)) : Copied.cend();
        if (copy != Copied.cend()) {
            out.appendFrom(Theirs.Records, r);
            out.setValue(out.size() - 1, 0, freshKey());
            out.setValue(out.size() - 1, ind, QString::fromUtf8(*copy));
        } else if (!byKey.contains(cell(Theirs.Records, r, 0))) {
            out.appendFrom(Theirs.Records, r);
            ++Counts.AddedTheirs;
        }
    }
    bool okOurs = false, okTheirs = false;
    const qint64 a = Ours.Tag.toLongLong(&okOurs), b = Theirs.Tag.toLongLong(&okTheirs);
    if (okOurs && okTheirs)
        Ours.Tag = QString::number(std::max(a, b));
}

} // namespace

clsMergeCounts MergeTwoWay(DatabaseRecord& Ours, const DatabaseRecord& Theirs, const QString& CopyTitle) {
    TRACE_PROC("modMerge.MergeTwoWay");
    clsMergeCounts counts;
    const int od = tableAt(Ours, kDataTableName), td = tableAt(Theirs, kDataTableName);
    if (od < 0 || td < 0) {
        counts.NoDataTable = true;
        return counts;
    }
    QSet<QByteArray> conflicted;
    changedInOtherTables(Ours, Theirs, conflicted);
    QHash<QByteArray, QByteArray> copied;
    clsTwoWayData(Ours.Tables[od], Theirs.Tables[td], CopyTitle, conflicted, copied, counts).run();
    for (const TableEntry& t : Theirs.Tables) {
        if (t.Name.compare(kDataTableName, Qt::CaseInsensitive) == 0)
            continue;
        const int o = tableAt(Ours, t.Name);
        if (o >= 0) {
            mergeOtherTwoWay(Ours.Tables[o], t, copied, counts);
        } else {
            TableEntry fresh = t;
            fresh.Records = RecordStore();
            Ours.Tables.append(fresh);
            mergeOtherTwoWay(Ours.Tables.last(), t, copied, counts);
        }
    }
    Ours.Lineage = JoinLineages(Ours.Lineage, Theirs.Lineage);
    Ours.SaveNum = std::max(Ours.SaveNum, Theirs.SaveNum);
    return counts;
}
