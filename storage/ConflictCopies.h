#pragma once

// The names file-sync engines give the copies they make beside a user's file, in one place.
//
// The databases folder may live in Syncthing, Nextcloud, ownCloud or Dropbox. When two
// machines change one user file while apart, the engine keeps one version under the user's
// name and renames the other into a conflict copy beside it; while it downloads a file it
// writes a temporary one first. Neither is ever a user: every list of users (the window,
// argentpm users, completion, the portable copy) skips them, and a conflict copy of a user
// merges into that user (users/ConflictMerge.h).
//
// Conflict copies of user NAME's file NAME.bdb:
//   Syncthing          NAME.sync-conflict-YYYYMMDD-HHMMSS-DEVICE.bdb (a copy of a copy
//                      repeats the infix)
//   Nextcloud          NAME (conflicted copy YYYY-MM-DD HHMMSS).bdb, also with the name of
//                      the account before the date
//   ownCloud (older)   NAME_conflict-YYYYMMDD-HHMMSS.bdb
//   Dropbox            NAME (HOST's conflicted copy YYYY-MM-DD).bdb, and numbered:
//                      NAME (HOST's conflicted copy YYYY-MM-DD) (1).bdb or
//                      NAME (HOST's conflicted copy YYYY-MM-DD (1)).bdb
// Temporary files while a file arrives: .syncthing.NAME.bdb.tmp, ~syncthing~NAME.bdb.tmp,
// ~*.tmp, .~lock*, Nextcloud's .NAME.bdb.~XXXX and *.part.

#include <QString>
#include <QStringList>

// The user whose conflict copy FileName (a bare file name) is; empty when it is none.
QString ConflictCopyUser(const QString& FileName);
inline bool IsConflictCopyName(const QString& FileName) {
    return !ConflictCopyUser(FileName).isEmpty();
}
// True for the temporary file of a sync engine that is still writing.
bool IsSyncTempName(const QString& FileName);
// Neither a conflict copy nor a temporary file of a sync engine: may be a user's file.
inline bool IsSyncEngineName(const QString& FileName) {
    return IsSyncTempName(FileName) || IsConflictCopyName(FileName);
}
// The conflict copies of user UsName in folder Folder (full paths, sorted by name).
QStringList FindConflictCopies(const QString& Folder, const QString& UsName);
