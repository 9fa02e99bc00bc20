#pragma once

// Three-way merge of a user's DataTable by IndNum: the table as last read from or written
// to the file (base), the table in memory (ours) and the table in the file now (theirs).
// Used before a save when the file changed elsewhere, and to take changes made elsewhere
// into an open database. Rules:
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
// Other tables and the database line are taken from ours.

#include "storage/TableEngine.h"

#include <QHash>
#include <QList>
#include <QString>
#include <QStringList>

struct clsMergeCounts {
    int TakenTheirs = 0; // rows changed only on their side
    int TakenOurs = 0;   // rows changed only on our side
    int FieldMerged = 0; // rows changed on both sides, merged field by field
    int Conflicts = 0;   // fields both sides changed to different values (ours kept)
    int AddedTheirs = 0;
    int AddedOurs = 0;
    int Deleted = 0;     // rows deleted on one side and unchanged on the other
    int KeptChanged = 0; // rows deleted on one side and changed on the other (kept)
    int Renumbered = 0;  // our new rows given new identifiers
    int Rehomed = 0;     // rows put under the root because their folder is gone
};

struct clsMergeResult {
    RecordStore Records;
    QString Tag;
    clsMergeCounts Counts;
    QHash<QString, QString> NewIds; // our renumbered rows: old identifier -> new one
};

// Field positions come from the field names ("IndNum", "Parent"; the first and second
// column when a table lacks them).
clsMergeResult MergeDataTable(const TableEntry& Base, const TableEntry& Ours, const TableEntry& Theirs);

// Merges the DataTable of Theirs into Ours (base Base) in place. Ours keeps everything
// else. A structure without DataTable counts as an empty one.
clsMergeCounts MergeDatabases(DatabaseRecord& Ours, const DatabaseRecord& Base, const DatabaseRecord& Theirs,
                              QHash<QString, QString>* NewIds = nullptr);
