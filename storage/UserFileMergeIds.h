#pragma once

// The identifiers of the tables a merge reads (UserFileMerge.h): read once per table, and
// looked up by number without converting texts. Used by the merge only.

#include "storage/TableEngine.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QHash>

#include <algorithm>
#include <utility>
#include <vector>

// The position of the field named Name (any letter case), Fallback when the table lacks it.
int MergeColumnOf(const TableEntry& Table, const QString& Name, int Fallback);

// The value of an identifier written plainly (decimal digits, no sign, no leading zero,
// at most 18 digits); -1 for any other text.
qint64 PlainIdNumber(QByteArrayView Text);

// The number an identifier or tag stands for: plain, or any integer text; 0 for other texts.
qint64 IdNumberOf(QByteArrayView Text);

// The identifiers of a table, read once: plain numbers as numbers (-1 for any other text),
// and the highest identifier the table handed out (its tag, or a higher row identifier).
// With ParentCol, the parents are read in the same pass (the other side's rows make most of
// the result, whose order is checked by parent).
struct clsTableIds {
    std::vector<qint64> Numbers;
    std::vector<qint64> Parents;
    qint64 Top = 0;
    clsTableIds(const TableEntry& Table, int IdCol, int ParentCol = -1);
};

// Row position by identifier; the first row wins when a damaged table repeats one. Plain
// numbers (every identifier the program hands out) go to a table indexed by the number
// itself, other texts (in their stored form) to a hash.
class clsIdIndex {
public:
    // Room for identifiers up to Top in a table of Rows rows (a few far above go to the hash).
    void reserveFor(qint64 Top, qsizetype Rows) {
        m_dense.assign(static_cast<size_t>(std::min<qint64>(Top, 16 * Rows + 1024) + 1), -1);
    }
    void build(const RecordStore& Rows, const std::vector<qint64>& Numbers, int IdCol, qint64 Top);
    // Adds the row at Pos under its identifier (its number when plain, else its text Id).
    void add(qint64 Number, QByteArrayView Id, int Pos) {
        if (Number >= 0 && Number < static_cast<qint64>(m_dense.size())) {
            int& slot = m_dense[static_cast<size_t>(Number)];
            if (slot < 0)
                slot = Pos;
        } else {
            addSparse(Number, Id, Pos);
        }
    }
    // Position of the identifier (its number when plain, else its text), -1 when none.
    int find(qint64 Number, QByteArrayView Id) const {
        if (Number >= 0 && Number < static_cast<qint64>(m_dense.size()))
            return m_dense[static_cast<size_t>(Number)];
        if (Number >= 0)
            return m_numbers.value(Number, -1);
        return m_texts.value(Id.toByteArray(), -1);
    }

private:
    void addSparse(qint64 Number, QByteArrayView Id, int Pos);

    std::vector<int> m_dense;
    QHash<qint64, int> m_numbers;
    QHash<QByteArray, int> m_texts;
};

// Our rows matched to the base. Rows that are still the very rows of the base (shared, not
// copied: memory is made from the base, and a row nobody touched stays shared) are found by
// walking both tables side by side, without reading them; only the other rows of ours are
// read and indexed.
struct clsOurRowsInBase {
    std::vector<int> BaseRowOf;  // per row of ours: its row in the base, -1 when none was found
    std::vector<int> OurRowOf;   // per row of the base: its shared row in ours, -1
    std::vector<qint64> Numbers; // per row of ours: the identifier when plain
    qint64 Top = 0;
    clsIdIndex Unshared; // the rows of ours that are not shared, by identifier

    clsOurRowsInBase(const TableEntry& Base, const clsTableIds& BaseIds, const TableEntry& Ours, int IdCol);

private:
    int sharedBaseRow(const TableEntry& Base, const TableEntry& Ours, int OurRow, int From) const;
};

// The rows of a table other than DataTable by key, its first field: the first row of a key
// found as clsIdIndex finds identifiers; a key repeated in a damaged table pairs its n-th
// rows on each side.
class clsRowsByKey {
public:
    explicit clsRowsByKey(const RecordStore& Rows);
    // The row here with the key of row Row of Other (the same repeat of it); -1 when none.
    int find(const clsRowsByKey& Other, int Row) const;

private:
    const RecordStore* m_rows;
    std::vector<qint64> m_numbers; // per row: the key when it is a plain number
    std::vector<int> m_repeatOf;   // per row: 0, or n for the n-th repeat of its key
    clsIdIndex m_first;            // the first row of each key
    QHash<QByteArray, int> m_repeatCount;
    QHash<std::pair<QByteArray, int>, int> m_repeats; // (key, n) -> row
};

// What the merge of DataTable did to each record, by identifier, for the rows of other
// tables that name records (their IndNum).
class clsRecordFates {
public:
    // The DataTable of each side and of the result; null where there is none. Without
    // Revive no record counts as revived.
    clsRecordFates(const TableEntry* Base, const TableEntry* OursBefore, const TableEntry* Theirs,
                   const TableEntry* Result, bool Revive);
    // Some side had the record, and the merged DataTable does not.
    bool gone(QByteArrayView Id) const;
    // The base and the result have the record, and one side had deleted it: the merge kept
    // it against that delete.
    bool revived(QByteArrayView Id) const;

private:
    struct clsSide {
        clsIdIndex Index;
        bool has(qint64 Number, QByteArrayView Id) const { return Index.find(Number, Id) >= 0; }
    };
    static void read(clsSide& Side, const TableEntry* Table);

    clsSide m_base, m_ours, m_theirs, m_result;
    bool m_revive;
};
