#pragma once

// Restoring from the backup copies: the list of copies of every user, putting one back
// as a user's database file, and deleting copies. The restore dialog shows the list and
// asks its questions; everything else happens here.
//
// A list item is the copy's file name, " Date: " and its last-write time in local time
// as the system's default date and time text, e.g.
//   anna_2.bdb.BACKUP Date: 14.11.2026 22:40:01
// The user of an item is its text up to the first "_" (so a user whose name holds "_"
// is cut there; that is the program's rule); its file name is the text before " Date: ".

#include <QDateTime>
#include <QString>
#include <QStringList>

// The backup folder: <databases folder>/Backup/.
QString BackupFolderPath();

// The times of a file: created (the birth time where the file system keeps one, else
// the time of its last status change), last accessed and last written; in local time
// or in UTC. A time that cannot be read is FileTimeToDate's zero time.
void GetFileTimes(const QString& file_name, QDateTime& date_created, QDateTime& date_accessed,
                  QDateTime& date_written, bool local_time);
// The date of a file time: an invalid one (no time) is 1 January 1601, 0:00.
QDateTime FileTimeToDate(const QDateTime& FileTime);
// The system's default date and time text: short date, then the time with seconds.
QString DefaultDateTimeText(const QDateTime& When);

// One item per entry of folder DBPath whose name ends in ".bdb.BACKUP" exactly and which
// is not a folder, in the order the folder lists them. A folder that cannot be read or
// holds nothing writes "Error#0003. DBPath = <folder>" to the debug log.
QStringList ListDBsForRestore(const QString& DBPath);

// The file name and the user of an item (a bare file name is its own file name).
QString BackupFileFromItem(const QString& ItemText);
QString BackupUserFromItem(const QString& ItemText);

// Puts the copy BackupFileName of the backup folder back as its user's file, replacing
// that file in one step (a failure half-way leaves it whole). Does not touch the current
// user. Holds the user's lock. 1 done; -2 no such copy (not a plain name ending in
// ".bdb.BACKUP", or no file); -3 the name has no user before its "_"; -1 the copy could
// not be written (a full disk): the user's file is as it was; -6 another program held the
// user's file for more than 10 s.
int RestoreBackupFile(const QString& BackupFileName);

// The restore button: the current user is logged out (without saving), the copy of the
// item replaces its user's file, and when that user was the one logged in it is opened
// again with the key it was open with. 0 restored and open again; 1 restored, not
// opened (another user, or the copy was made under an older password: ask for it);
// -1 / -2 / -3 / -6 as RestoreBackupFile, and then nothing has changed on disk; after -1
// and -6 the user who was open is opened again (with the key it was open with); -4 the
// copy is of the open user and its key opens it, but it fails its check (damaged): nothing
// was touched, the user stays open.
int RestoreDBFromBackup(const QString& ItemText);

// The delete button: deletes the item's copy. 1 deleted, -2 no such copy.
int DeleteBackup(const QString& ItemText);
