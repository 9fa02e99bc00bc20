#pragma once

// What a record keeps beyond its DataTable row: a web address, a TOTP seed (an otpauth://
// URI), named custom fields with a "hidden" flag, and the passwords it had before.
//
// They live in a second table of the user file, FieldTable, one row per value:
//   FldKey   a random key of the row, so that a three-way merge pairs a field with itself
//            across renames and value changes (the merge keys other tables by column 1)
//   IndNum   the record's identifier (the merge renumbers it with the record, and drops
//            the rows of a record that is gone)
//   Flags    bits: 1 hidden, 2 web address, 4 TOTP seed, 8 an earlier password,
//            16 a site the browser may fill this record into without asking (Name: the
//            site); such rows are the program's own, never a custom field
//   Name     a custom field's name (empty for the others)
//   Value    the value
//   Date     an earlier password: when it was replaced (ISO 8601, UTC); else empty
//
// DataTable is never touched here, and a file without FieldTable is an ordinary user file:
// the table is made by the first value written.
//
// A merge may leave two rows for one web address, seed or custom name (both sides added
// it); reading takes the last one (the merge puts our rows after theirs), and the next
// write of the record keeps that one only.

#include "storage/TableEngine.h"

#include <QDateTime>
#include <QHash>
#include <QList>
#include <QSet>
#include <QString>

class clsDatabase;

inline const QString kFieldTable = QStringLiteral("FieldTable");

enum RecFieldFlag { rffHidden = 1, rffUrl = 2, rffOtp = 4, rffHistory = 8, rffSiteAllowed = 16 };
// Rows that are the program's own: never read as custom fields, kept by WriteRecExtras.
inline constexpr int kRffInternal = rffSiteAllowed;

struct RecCustomField {
    QString Name;
    QString Value;
    bool Hidden = false;
    QString Key; // the row it was read from; empty for a new field
    bool operator==(const RecCustomField& O) const {
        return Name == O.Name && Value == O.Value && Hidden == O.Hidden;
    }
};

struct RecOldPasw {
    QString Pasw;
    QDateTime When; // UTC; invalid when the file's date could not be read
    QString Key;
};

// The whole set of one record. Import and export fill and read records through this.
struct RecExtras {
    QString Url;
    QString Otp;
    QList<RecCustomField> Custom; // in the order of the table
    QList<RecOldPasw> History;    // newest first
    bool IsEmpty() const { return Url.isEmpty() && Otp.isEmpty() && Custom.isEmpty() && History.isEmpty(); }
    // The custom field named Name (exactly), or null.
    const RecCustomField* Field(const QString& Name) const;
};

// The number (from 1) of FieldTable in Db, 0 when it has none.
int FieldTableNum(const DatabaseRecord& Db);
// An empty FieldTable, as a new file gets it.
TableEntry NewFieldTable();

// The set of record IndNum (empty when it has none). One pass over the table.
RecExtras ReadRecExtras(const DatabaseRecord& Db, const QString& IndNum);
// The sets of every record that has one, in one pass.
QHash<QString, RecExtras> ReadAllRecExtras(const DatabaseRecord& Db);

// Makes the web address, seed and custom fields of record IndNum those of Ex (the history
// is not touched; see AddPaswHistory). Rows whose values stay are left as they are, so a
// merge sees only what changed; a custom field is matched by its Key, else by its name.
void WriteRecExtras(clsDatabase& Db, const QString& IndNum, const RecExtras& Ex);
// Keeps OldPasw as record IndNum's earliest-replaced password, replaced at When; the oldest
// entries beyond Max go (Max below 1 keeps none and drops every entry). An empty OldPasw
// keeps nothing.
void AddPaswHistory(clsDatabase& Db, const QString& IndNum, const QString& OldPasw, const QDateTime& When,
                    int Max);
// For a record that has no rows yet (an imported one): appends the rows of Ex, history
// included, without looking at the table.
void AppendNewRecExtras(clsDatabase& Db, const QString& IndNum, const RecExtras& Ex);
// Removes every row of the records in IndNums; answers how many rows went.
int DropRecExtras(clsDatabase& Db, const QSet<QString>& IndNums);

// For the merge: records whose password both sides changed keep ours; theirs goes into the
// history of ours (OursBefore: our DataTable before the merge). Rows are appended to
// Ours' FieldTable, made when needed. Answers how many passwords were kept.
int KeepLostPasswords(DatabaseRecord& Ours, const TableEntry& OursBefore, const TableEntry* Base,
                      const TableEntry& Theirs);

// For the merge: the records (IndNum as stored) whose FieldTable rows Side added, changed
// or removed against Base.
QSet<QByteArray> RecordsWithChangedExtras(const DatabaseRecord& Side, const DatabaseRecord& Base);

// The rows of every record that carry Flag: record IndNum -> (Name, Value) in table order.
// One pass over the table (the browser's site index reads web addresses and sites so).
struct RecFlaggedRow {
    QString Name, Value;
};
QHash<QString, QList<RecFlaggedRow>> ReadFlaggedRows(const DatabaseRecord& Db, int Flag);
// Appends a row of Flag (an internal one, kRffInternal) to record IndNum.
void AddFlaggedRow(clsDatabase& Db, const QString& IndNum, int Flag, const QString& Name,
                   const QString& Value);

// The search of every column: the DataTable rows (from 1, ascending) whose web address or a
// custom field that is not hidden contains Text (CaseSens false: by case folding).
QList<int> RowsWithMatchingExtras(const DatabaseRecord& Db, int DataTblNum, const QString& Text,
                                  bool CaseSens);
