#pragma once

// Search in a user's DataTable: in titles only or in every searchable column, with or
// without regard to letter case. Each press of the find button selects the next
// matching row, wrapping round to the top of the table once when the end is reached.
//
// Matching is the table engine's FindRecord: a row matches when the value contains the
// text anywhere; without regard to case letters compare by Unicode case folding. A
// column takes part in the search in every column when its field type lacks bit 4, so
// in a user's table Title, Login, Password and Description are searched, and IndNum,
// Parent, Type, Image and Flags are not ("key" never matches an icon key).

#include <QList>
#include <QString>

class clsDatabase;

// The row (from 1, not an identifier) where the next search starts; 0 at start. Only
// FindRecordInDB changes it, and nothing resets it, not even a new search text.
extern int FindIndNum;
// The text last typed into the find dialog, offered again when it opens.
extern QString LastFindText;

// The first row at or after Start that matches, as decimal text, Start becoming that
// row + 1; when no row from Start on matches, one wrap-round to row 1; "-2" when no row
// matches at all (Start is then 1). SFNum is the column of the title search; SearchAll
// searches every searchable column instead.
QString FindRecordInDB(const QString& SText, int STblNum, int SFNum, int& Start, clsDatabase& pDB,
                       bool SearchAll, bool CaseSens);

// One press of the find button over the current user's database. Returns the IndNum of
// the row found; the caller selects the node "<IndNum>key" and shows its values. An
// empty result means there is nothing to select: SText was empty (message 20 has been
// shown, FindIndNum stays) or nothing matches (message 18 has been shown).
QString FindNextRecord(const QString& SText, bool SearchAll, bool CaseSens);

struct FoundRow {
    int RecNum = 0; // from 1
    QString IndNum;
    QString Title;
};
// Every matching row of pDB's DataTable, in table order, found by pressing "find" from
// the top until the search comes round again (FindIndNum is not touched).
QList<FoundRow> FindAllRecords(clsDatabase& pDB, const QString& SText, bool SearchAll, bool CaseSens);
