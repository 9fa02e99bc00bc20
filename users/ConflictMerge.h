#pragma once

// Taking the conflict copies a sync engine left beside a user's file (storage/
// ConflictCopies.h) into that user, so that nothing is ever lost to one and nobody has to
// think about them.
//
// A copy is read with the open user's key and merged into the database in memory (memory
// counts as ours, unsaved changes included) with the best base there is
// (storage/MergeBase.h: three-way with a kept common ancestor, else two-way). Then the user
// is saved, through the user file with its lock and its own merge, and only once the save
// is done does each merged copy move to Backup/ as a backup copy,
// "<user>_merged-YYYYMMDD-HHMMSS.bdb.BACKUP" (a number added when taken), so that the
// restore dialog can undo the merge. A copy that changes nothing moves without a save (two
// machines merging the same copy must not make a new conflict of their own).
//
// A copy that opens only with another password (changed on the other machine) is left as
// it is and reported (ccWrongKey): the window asks for that password once, argentpm says so.
// A damaged copy (or one that is not a user file) is left alone and reported; nothing changes.
//
// The window merges the open user's copies when it opens the user and when the folder
// watch sees one arrive; every changing argentpm command merges them first, under the
// user's lock; read-only commands say how many wait; "argentpm merge" merges on demand.

#include "storage/MergeBase.h"

#include <QList>
#include <QString>
#include <QStringList>

class clsDatabase;

enum ConflictCopyResult {
    ccMerged = 1,      // taken in (Counts say what)
    ccNothingNew = 2,  // everything it holds was there already
    ccWrongKey = -1,   // does not open with the key given
    ccDamaged = -2,    // opens, but fails its check or has no records table
    ccUnreadable = -3, // gone, or cannot be read
    ccNotMoved = -4,   // merged and saved, but could not move to Backup/ (it is left)
};

struct clsCopyMerge {
    QString Copy;   // the copy's path
    int Result = 0; // ConflictCopyResult
    MergeKind Kind = mkNothing;
    clsMergeCounts Counts;
    QString MovedTo; // the backup copy it became
};

// The conflict copies of user UsName in the databases folder.
QStringList UserConflictCopies(const QString& UsName);
// Merges the copy at CopyPath, read with Key (the file key), into DB, whose user file is
// UserPath. Nothing is saved or moved.
clsCopyMerge MergeCopyInto(clsDatabase& DB, const QString& UserPath, const QString& CopyPath,
                           const QString& Key);
// Moves a merged copy of user UsName to Backup/; the path it got, or empty.
QString MoveCopyToBackup(const QString& CopyPath, const QString& UsName);
// The open user (CurUsDB, CurUsPasw): merges Files (every conflict copy when empty), read
// with Key (the user's file key when empty); saves when anything was taken in (SaveNow),
// then, once nothing is left unsaved, moves the merged copies (and those that held nothing
// new) to Backup/. Save receives the save's result (usUnchanged when nothing was saved);
// when it fails no copy moves. Without SaveNow the copies stay until the user's next save;
// merged again then, they hold nothing new (the lineage says so) and move.
QList<clsCopyMerge> MergeCopiesOfOpenUser(const QStringList& Files, int& Save, const QString& Key = {},
                                          bool SaveNow = true);
// One line saying what a merge of a copy did, for the status bar, the log and argentpm.
QString DescribeCopyMerge(const clsCopyMerge& M);
