#pragma once

// The prepared copy behind searches without regard to letter case: the values of the
// searched columns of a table, case-folded once and packed as UTF-8 into one buffer per
// column and block of records, so that a search press is a plain byte search with no
// conversion of any value. Blocks are made when a search first needs them and made again
// after the engine is told that their records changed.
//
// A search that minds letter case has its own copy of the same shape, of the values as
// they are.
//
// Folding is Unicode simple case folding of each UTF-16 unit (ASCII by table), which is
// what the engine's own matcher does, so both find the same records. A search text that
// this copy cannot answer exactly (empty, with a surrogate or a NUL) is left to the caller.

#include "storage/TableEngine.h"

#include <QByteArrayView>
#include <QList>
#include <QString>

#include <climits>
#include <string>
#include <vector>

class clsFoldedSearch {
public:
    // The first record at or after Start (from 1) of table TblNum of db whose value in any of
    // FldNums contains SText (case folded); 0 when none does; -1 when the text is one this
    // copy leaves to the caller. The copy follows db: another structure drops it.
    // With CaseSens the copy holds the values as they are, and a search matches letter case.
    int Find(const DatabaseRecord& db, int TblNum, const QList<int>& FldNums, const QString& SText, int Start,
             bool CaseSens = false);
    // Records From..To (from 1) of table TblNum changed; To = INT_MAX: every record from
    // From on (records were added, removed or moved up).
    void Changed(int TblNum, int From, int To = INT_MAX);
    // The whole structure changed (loaded, replaced).
    void Clear();

    // The folded UTF-8 form of Text appended to Out. False when Text holds a surrogate or a
    // NUL (Out is then incomplete).
    static bool AppendFolded(std::string& Out, const QString& Text);
    // The same for a stored value in its escaped UTF-8 form (RecordStore::escaped).
    static void AppendFoldedEscaped(std::string& Out, QByteArrayView Escaped);

private:
    struct Block {
        bool Ready = false;
        std::string Text;          // each value followed by one NUL
        std::vector<unsigned> End; // offset just past each record's value
    };
    struct Column {
        int TblNum = 0;
        int FldNum = 0;
        bool Folded = true;
        std::vector<Block> Blocks;
    };
    Column& column(int TblNum, int FldNum, bool Folded);
    void build(const TableEntry& t, const Column& c, int BlockNo, Block& b);

    const DatabaseRecord* m_for = nullptr;
    std::vector<Column> m_cols;
};
