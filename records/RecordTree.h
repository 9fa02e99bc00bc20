#pragma once

// Folders and records: the rows of a user's DataTable and the few operations through
// which the rest of the program adds, changes, deletes and counts them.
//
// Columns, all text, in file order:
//   IndNum       identifier of the row, a positive decimal integer, never reused
//   Parent       IndNum of the folder holding the row; "0" is the database root
//   Type         "1" folder, "2" record (counting treats anything but 2 as a folder)
//   Title, Login, Password, Description
//   Image        icon key: "<index>key"; "1key" default record, "2key" default folder
//   Flags        "<colour>|<bits>": colour 0x00BBGGRR as signed decimal, bit 1 = bold
//
// The table tag of DataTable holds the last identifier handed out ("0" in a new file).
// New rows are appended, so siblings keep their order of creation. Nothing here writes
// the file: changes stay in memory until the user's database is saved.
//
// Operations without a database argument work on the current user's one (CurUsDB).

#include <QString>

class clsDatabase;

// Display caption of a column: Title, Login, Password and Description map to language
// texts 13 to 16 (exact, case-sensitive names); any other name, or a text the language
// file leaves empty, gives the column name itself.
QString GetTblTrueCapText(const QString& InTxt);

// An identifier typed by a person (a folder or record, "0" the root): a whole number from
// 0, written back plainly into Id ("007" gives "7"). False, Id untouched, for anything else.
bool ParseIndNum(const QString& Text, QString& Id);

// Hands out the next identifier of DataTable in pDB: tag + 1, written back as the tag.
// A tag that is no number is error 13, one at 2147483647 error 6 (the tag stays).
QString GetNewIndNum(clsDatabase& pDB);

// Appends a folder row under Parent with the identifier FoldID, which the caller has
// already taken with GetNewIndNum (the main window makes the node first).
void AddFolderToDB(const QString& FoldName, int Parent, const QString& FoldID);
// Appends a record row to pDB, taking its identifier from pDB's tag; returns it.
QString AddRecordToDB(clsDatabase& pDB, const QString& rParent, const QString& rTitle, const QString& rLogin,
                      const QString& rPasw, const QString& rDesc);
// Sets column FldName of the first row whose column UniqFName equals UniqFVal exactly.
// A row that is not there changes nothing.
void ChangeDataTableField(const QString& UniqFName, const QString& UniqFVal, const QString& FldName,
                          const QString& newval);

// Deletes the row whose UniqFName equals UniqFVal and, depth first, every row below it
// (rows whose SearchFName holds the identifier of a deleted row). Callers pass "IndNum",
// the identifier and "Parent". Returns the number of rows deleted.
int DelRecordTreeFromDataTable(const QString& UniqFName, const QString& UniqFVal, const QString& SearchFName);
// The worker: deletes row CurRecNum (UniqFVal is its UniqFNum value; 0 for a row that
// is not there, whose children still go) with everything below it. Children go before
// their parent, siblings in table order, and every deleted row writes the debug-log
// line "-= DELETE: <title>" as it goes, deepest first.
//
// One pass indexes the table by parent and one pass removes the rows, however big the
// subtree. The rows deleted are the subtree's own rows, found by identity: a child
// stored before its parent (moved there after it was made) does not shift the parent's
// deletion onto a neighbour. A damaged file whose parent links form a loop deletes each
// row once.
int DelRecordTree(int TblNum, int UniqFNum, const QString& UniqFVal, int SearchFNum, int CurRecNum,
                  clsDatabase& pDB);

// Adds to the counters the direct children of IndNum that are folders and records (Type
// of numeric value 2). The caller zeroes them first. One pass over the table.
void GetStatBarData(clsDatabase& pDB, const QString& IndNum, int& NumFolds, int& NumRecs);

// Splits a Flags value at its first "|": the colour before it (strict: a text that is no
// number is error 13), the bits after it (lenient: the leading number, halves to even,
// no digits give 0). A value without "|" is all colour; an empty value (a row whose later
// columns were never written) gives 0 and 0.
void GetSepatRecOptns(const QString& InpStr, int& BufCol, int& BufFlags);
// The Flags value of a colour and a set of bits.
QString MakeRecOptns(int Col, int Flags);
// Flags with the bold bit (1) set or cleared; every other bit and the colour stay.
QString SetRecBold(const QString& InpStr, bool Bold);
// Flags with another colour; the bits stay.
QString SetRecColor(const QString& InpStr, int Col);

// Tokenizer over separated lists. Start (1-based; below 1 counts as 1) is where the
// token begins; Buffer receives it; the result is where the next token begins (the
// length of Text plus 1 after the last one).
int GetTextTillSepar(const QString& Text, QString& Buffer, const QString& separ, int& Start);

// FindObjInCol, the probe of a keyed collection, lives with the one collection the
// program keys: storage/clsDataFilesManager.h.

// ---- helpers for the commands that work on the tree -------------------------------------

// Moves the row with identifier IndNum, with everything below it, into the folder
// NewParent ("0" the root): its Parent becomes NewParent, and the row and its whole
// subtree are taken out and appended at the end of the table in tree order (each folder
// before its contents, siblings in their table order), identifiers and values unchanged.
// So a folder made after the rows moved into it still comes before them in the table, and
// the tree after the move is exactly what opening the user again shows. Results: 1 moved;
// 0 no row IndNum; -1 refused: NewParent is the row itself or lies below it; -2 refused:
// NewParent is a record or no row at all. One pass over the table.
int MoveRecordTree(clsDatabase& pDB, const QString& IndNum, const QString& NewParent);

// Row number (from 1) of the row with identifier IndNum in DataTable, 0 when none.
int FindDataRow(clsDatabase& pDB, const QString& IndNum);
// True when the row with identifier IndNum is AncestorID itself or lies somewhere below
// it. Moving AncestorID into such a folder would cut it off from the root. One pass.
bool IsInRecordTree(clsDatabase& pDB, const QString& AncestorID, const QString& IndNum);
