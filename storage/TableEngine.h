#pragma once

// The table engine: the structure of one database (tables of text records, help tables
// of code/text pairs) and the operations on it, including reading and writing the
// database file. clsDatabase wraps one structure and its own engine object; nothing
// else in the program touches the structure directly except through these calls.
//
// Numbers of tables, records and fields are 1-based everywhere in this interface.
// Operations that take numbers check them and answer an empty text, 0 or nothing when
// they are out of range; they never raise.
//
// Matching rules:
//  - FindTable, FindHTable and FindField compare names without regard to letter case.
//  - GetRecNumFromVal finds a record whose value equals the text exactly.
//  - FindRecord finds a record whose value contains the text (an empty text is in every
//    value); without CaseSens letters are compared by Unicode case folding.
//  - Both search from Start inclusive (Start below 1 counts as 1) and answer 0 when no
//    record matches.
//  - AddRecord appends an empty record and answers its number; DeleteRec removes one and
//    moves every later record one number up (answers 1, or 0 for a bad number).

#include "storage/RecordStore.h"

#include <QList>
#include <QString>
#include <QStringList>

#include <climits>
#include <cstdint>
#include <memory>

// The separator of values in a line, as a character in texts the engine hands out
// (GetTblCaption, TablesToString, the table list of TblsToString). In a file it is the
// single byte 0x87.
inline constexpr char16_t kFldSep = 0x87;

struct TableEntry {
    QString Name;
    QString Caption;      // the field line: "Name Type" entries joined by kFldSep
    QStringList FldNames; // field definitions: names ...
    QList<int> FldTypes;  // ... and their type codes (bit sets: 64, 4, 2, 1)
    std::int16_t Flags = 0;
    QString Tag;
    RecordStore Records; // each record holds one text per field
    int RecNum() const { return Records.size(); }
};

struct HelpTable {
    QString Name;
    QList<int> Codes;
    QStringList Texts;
};

// The key that protected the database when it was last read or written, kept so that
// saving again with the same password needs no second key derivation (FileSeal.h).
// Copies of a record share it; it is only ever used for the password it was made from.
struct KeyCache;

struct DatabaseRecord {
    QString Version;
    bool Ready = false;
    QString Path;
    QString Name;
    std::int16_t flags = 0;
    QString Tag;
    // How many times the file was saved (0 in a file from before the count): a file that
    // goes back in time is known by it (FileVersionsSeen.h).
    quint64 SaveNum = 0;
    // The versions this one descends from (storage/FileLineage.h): each save adds one; a
    // merge keeps those of both sides. Empty in a file from before the lineage.
    QString Lineage;
    QList<TableEntry> Tables;
    QList<HelpTable> HTables;
    std::shared_ptr<KeyCache> Key;
    int TabNum() const { return static_cast<int>(Tables.size()); }
    int HTabNum() const { return static_cast<int>(HTables.size()); }
};

// Splits the tables of Db still kept as their lines in a thread of the pool, so that the
// first look at them (the window's first record shown) does not: for a program that will
// look, right after a reading. Each holds a copy of its table until done.
void SplitTablesBehind(const DatabaseRecord& Db);

// Selects the records that TablesToString writes: with FldNum 0 every record, else the
// records whose field FldNum equals FldVal (exactly, or by case folding).
struct TblsFilter {
    int FldNum = 0;
    QString FldVal;
    bool CaseSens = true;
};

// Results of LoadDatabase, SaveDatabase and ReadTables.
enum TableEngineResult {
    tbeOk = 1,
    tbeIoError = -1,      // the file could not be read or written
    tbeNoFile = -2,       // no file at the path
    tbeBadFormat = -3,    // a table file whose structure is damaged
    tbeBadKey = -4,       // not a table file, wrong password, or a protected body that was changed
    tbeNothingToSave = -5 // see clsDatabase / SaveUsDB
};

class clsFoldedSearch;

class TableEngine {
public:
    int AddRecord(DatabaseRecord& db, int TblNum);
    // Writes the whole database to Path in one atomic replacement (mode 0600). With a
    // non-empty Pasw the body is protected and the first line is "wqpdhxMeM.ENC";
    // Compress packs a protected body before sealing it (a plain file is never packed).
    int SaveDatabase(const DatabaseRecord& db, const QString& Path, const QString& Pasw, bool Compress);
    QString GetComplexFldVal(const DatabaseRecord& db, int TblNum, int RecNum, int FldNum);
    // Reads Path into db, which must be empty (ResetDatabase). On failure db stays empty.
    int LoadDatabase(DatabaseRecord& db, const QString& Path, const QString& Pasw);
    // The help text of code Val for field FldNum of the table (see GetHelpVal).
    QString FindHelpVal(const DatabaseRecord& db, int TblNum, int FldNum, const QString& Val);
    int FindField(const DatabaseRecord& db, int TblNum, const QString& FldName);
    int FindTable(const DatabaseRecord& db, const QString& TblName);
    int FindHTable(const DatabaseRecord& db, const QString& HTblName);
    // Reads only the named tables (and every help table) of an unprotected file into db;
    // names the file lacks are skipped. Result: the number of tables read, or a failure
    // code (a protected file is tbeBadKey: there is no password to open it with).
    int ReadTables(DatabaseRecord& db, const QString& Path, const QStringList& TblNames);
    void SetTblFldValNm(DatabaseRecord& db, int TblNum, int RecNum, const QString& FldName,
                        const QString& newval);
    // The code whose help text is StrVal in help table HTabNum; 0 when there is none.
    int GetHelpValNum(const DatabaseRecord& db, int HTabNum, const QString& StrVal);
    QString GetTblFldValNm(const DatabaseRecord& db, int TblNum, int RecNum, const QString& FldName);
    int GetRecNumFromVal(const DatabaseRecord& db, int TblNum, int FldNum, const QString& FldVal, int Start);
    // The named tables (names each followed by kFldSep) in their file form, values
    // escaped as in a file, lines ending in CR LF. Result: the number of tables written.
    int TablesToString(const DatabaseRecord& db, const QString& Names, QString& BufStr,
                       const TblsFilter& Filter);
    // A field is coded when a help table carries the field's name; the help text is the
    // text of the code that the record's field holds. Empty when not coded or unknown.
    QString GetHelpVal(const DatabaseRecord& db, int TblNum, const QString& FName, int RecNum);
    void ResetDatabase(DatabaseRecord& db);
    int DeleteRec(DatabaseRecord& db, int TblNum, int RecNum);
    int FindRecord(const DatabaseRecord& db, int TblNum, int FldNum, const QString& SText, int Start,
                   bool CaseSens);
    // Beyond the classic set: FindRecord over several fields at once, the first record
    // from Start on that matches in any of them (the smallest FindRecord of the fields).
    int FindRecordInFields(const DatabaseRecord& db, int TblNum, const QList<int>& FldNums,
                           const QString& SText, int Start, bool CaseSens);

    // Beyond the classic set: removes many records in one pass (numbers in any order,
    // repeats and bad numbers ignored). Answers how many were removed.
    int DeleteRecs(DatabaseRecord& db, int TblNum, const QList<int>& RecNums);

    // Beyond the classic set: a search answers from a copy of the searched columns (case
    // folded, or as they are) that the engine keeps for the structure it last searched.
    // Whoever changes that structure other than through the engine says so here: records
    // From..To of a table (To = INT_MAX: From and every later one), or all of it.
    void TableChanged(int TblNum, int From, int To = INT_MAX);
    void DatabaseChanged();

    TableEngine();
    ~TableEngine();
    TableEngine(const TableEngine&);
    TableEngine& operator=(const TableEngine&);

private:
    std::unique_ptr<clsFoldedSearch> m_folded; // made by the first search that uses it
};
