#pragma once

// Automatic backup: rotating copies of the current user's database file in the folder
// Backup under the databases folder (settings entry 5).
//
// Copy k of user anna is Backup/anna_k.bdb.BACKUP; copy 1 is the oldest, the highest
// number the newest, and at most N copies are kept (settings entry 13, "n" prefix when
// automatic backups are off; the number follows it). A copy is the user's file byte for
// byte, still enciphered. When the set is full the oldest copy goes and the others move
// down one number before the new copy is written as the highest.
//
// The one-minute timer makes a copy on its first tick and on every 60th tick after it,
// i.e. one minute after start and then hourly while a user is open.

#include "storage/clsDatabase.h"

#include <QString>

// The design interval of the main window's backup timer, in milliseconds.
inline constexpr int kAutobackupInterval = 60000;

// Ticks of the backup timer while a database was open, since the program started; never
// reset, so the hourly rhythm goes on across users.
extern int AutobackupTickCount;

// Copy k of the database named Name: <databases folder>/Backup/<Name>_<k>.bdb.BACKUP.
QString BackupCopyPath(const QString& Name, int k);
// Raises error 75, naming the folder, when the Backup folder is not the user's own (a link
// someone else planted, a folder of another user's or one others can write in).
void CheckBackupFolder();
// The number of copies to keep: entry 13 without its "n" prefix, as a 32-bit integer
// (error 13 when it is no number, 6 when out of range).
int BackupCopiesNumber();

// Makes one backup copy of db (the open database of the logged-in user), in this order:
// "!!!AUTOBACKUP!!!" to the debug log; nothing more (an empty result) when the user's file
// fails its check with db's key (damaged, forged, not sealed); find the highest copy k <= N on disk; when it
// is N (the set is full: also for N <= 0) delete copy 1 and rename every existing copy i to i - 1; create the
// Backup folder if it is missing; save db first when it was used within the last TimerInterval * 60 / 1000
// seconds (a save that fails is logged, and the file is copied as it stands); copy the user's file to the
// next number. Every file error of the copying is raised for the error trap; the user's file is only ever
// read (a save replaces it atomically), so a failure leaves it whole. Returns the path
// of the copy written.
QString DoAutobackup(const clsDatabasePtr& db, int TimerInterval = kAutobackupInterval);

// One tick of the backup timer: nothing while db holds no open database (no tables);
// otherwise the counter goes up by one and a copy is made when its value before the
// tick divides by 60. Returns true when a copy was made.
bool AutobackupTick(int& TickCount, const clsDatabasePtr& db, int TimerInterval = kAutobackupInterval);
// The main window's timer handler: the same with AutobackupTickCount and CurUsDB.
bool AutobackupTick(int TimerInterval = kAutobackupInterval);
