#pragma once

// Three-way merge of a user file, table by table: the file as last read or written (base),
// the database in memory (ours) and the file as it is now (theirs). Used before a save
// when the file changed elsewhere, and to take changes made elsewhere into an open
// database. The user-file layer calls it; it needs nothing above storage.
//
// DataTable is merged by IndNum, with the rules of the tree:
//
//  - A row changed on one side only takes that side's values. Changed on both, each
//    field takes the side that changed it, and ours where both changed the same field.
//  - A row deleted on one side and unchanged on the other is deleted; deleted on one side
//    and changed on the other it is kept, with the changes.
//  - Rows added on both sides: theirs keep their identifiers. Our new rows whose
//    identifier the other side may have handed out (up to its tag) get new ones above
//    every identifier either side handed out, in our order; the Parent of our rows that
//    pointed at them follows. The tag ends at the highest identifier handed out, so
//    identifiers stay unique and are never reused.
//  - Order: theirs' order, then our rows that theirs lacks (new, or kept against a
//    delete) in our order. A row whose folder comes later is placed right behind it, so
//    every row stays behind its folder and the tree shows every row.
//  - A row whose folder is gone (a record added into a folder the other side deleted) is
//    kept under the root, and so is a row that moves on both sides put inside its own
//    subtree. Under the root the user sees it at once and can move it; bringing the
//    folder back instead would undo the other side's delete of the folder and of the
//    rest of its contents.
//
// Every other table is merged by rows keyed by its first column, with the same rules for
// changes and deletes; rows added on both sides under one key are merged field by field
// against an empty row (ours where both gave a field different values). A key repeated
// in a damaged table pairs its n-th rows on each side. Order: theirs' order, then our rows
// that theirs lacks. The tag: the higher of both sides when both are numbers, else ours
// unless ours left it as it was.
//
// A field named IndNum in such a table names a DataTable row: it follows our renumbered
// rows (clsMergeResult::NewIds), and a row whose IndNum names a DataTable row that the
// merged DataTable no longer has is dropped: a record's data goes with the record. A
// record kept against a delete (changed on the other side) keeps its rows there too, even
// those the deleting side dropped and the other side left alone.
//
// A record's password changed on both sides keeps ours, and theirs becomes an earlier
// password of the record in FieldTable (storage/FieldTable.h), whose rows, keyed by a
// random key each, merge like any other table's: the earlier passwords of both sides are
// kept, and a web address or custom field changed on one side takes that side's value.
//
// A table present on one side only is taken, unless the other side deleted it while this
// side left it as it was in the base. Tables keep ours' order, then theirs' new tables.
// The database line takes theirs where ours left a value alone; help tables are ours.
//
// A side without DataTable is damaged or not a user file, never a user who deleted every
// record: CanMerge says so before, and clsMergeCounts::NoDataTable after a merge, which then
// keeps the other side's DataTable whole. The caller should not write such a result.

#include "storage/TableEngine.h"

#include <QHash>
#include <QList>
#include <QSet>
#include <QString>
#include <QStringList>

// MergeDataTable counts DataTable rows; MergeDatabases adds the rows of every other table.
struct clsMergeCounts {
    int TakenTheirs = 0; // rows changed only on their side
    int TakenOurs = 0;   // rows changed only on our side
    int FieldMerged = 0; // rows changed on both sides, merged field by field
    int Conflicts = 0;   // fields both sides changed to different values (ours kept)
    int AddedTheirs = 0;
    int AddedOurs = 0;
    int Deleted = 0;           // rows deleted on one side and unchanged on the other
    int KeptChanged = 0;       // rows deleted on one side and changed on the other (kept)
    int Renumbered = 0;        // our new rows given new identifiers
    int Rehomed = 0;           // rows put under the root because their folder is gone
    int DroppedWithRecord = 0; // rows of other tables dropped because their DataTable row is gone
    bool NoDataTable = false;  // ours or theirs has no DataTable (see CanMerge)
};

struct clsMergeResult {
    RecordStore Records;
    QString Tag;
    clsMergeCounts Counts;
    QHash<QString, QString> NewIds; // our renumbered rows: old identifier -> new one
};

// Records (IndNum as stored) whose data in other tables a side changed: a row deleted on
// one side and unchanged on the other is kept when the other side changed such data.
struct clsRecordsTouched {
    QSet<QByteArray> Ours, Theirs;
};

// Field positions come from the field names ("IndNum", "Parent"; the first and second
// column when a table lacks them).
clsMergeResult MergeDataTable(const TableEntry& Base, const TableEntry& Ours, const TableEntry& Theirs,
                              const clsRecordsTouched* Touched = nullptr);

// False when Ours or Theirs has no DataTable: such a side cannot be merged with.
bool CanMerge(const DatabaseRecord& Ours, const DatabaseRecord& Theirs);

// Merges every table of Theirs into Ours (base Base) in place, as described above. A table
// the base lacks counts as one without rows. NewIds receives our renumbered DataTable rows.
// When CanMerge is false the counts say NoDataTable; the DataTable of the side that has one
// is kept as it is (the other tables are merged as usual).
clsMergeCounts MergeDatabases(DatabaseRecord& Ours, const DatabaseRecord& Base, const DatabaseRecord& Theirs,
                              QHash<QString, QString>* NewIds = nullptr);

// Two-way merge, for two versions of a user file without a known version both started
// from (a conflict copy whose lineage shares no kept version with ours, FileLineage.h).
// Nothing is dropped: their DataTable rows that ours lacks are taken (a row ours deleted
// comes back), under the root when their folder is not there; a row both sides hold
// differently (or whose rows in other tables, under one key, differ) stays as ours is, and
// theirs is added beside it under a new identifier, its Title made CopyTitle.arg(title),
// with its rows of the other tables under new keys (AddedTheirs and Conflicts count them).
// Rows of other tables under keys ours lacks are taken. The lineages are joined.
clsMergeCounts MergeTwoWay(DatabaseRecord& Ours, const DatabaseRecord& Theirs, const QString& CopyTitle);
