#pragma once

// User accounts. A user is nothing but a database file, the user's name followed by
// ".bdb", in the databases folder (settings entry 5); there is no list of users apart
// from the folder. These routines list, create, check, open, save, unload and delete
// users and hold the state of the one current user.
//
// The file of a user has two layers: the table engine's file (protected with the file
// key, TableFile.h) enciphered as a whole with RC4 under the same key. The file key comes
// from the MD5 text of the typed password (GetTruePasw); the typed password itself is
// never kept.
//
// Decided for this program: a user file is read and written in memory from end to end
// (storage/UserFile.h); no deciphered copy reaches any file system. Every write of a user
// file replaces it in one step, so the file at the user's path is always a whole old or a
// whole new version; user files are created with mode 0600. The open user belongs to the
// user session (UserSession.h): these routines are the steps it is made of.

#include "app/StrMass.h"
#include "storage/FileIdentity.h"
#include "storage/UserFile.h"
#include "storage/clsDataFilesManager.h"
#include "storage/clsDatabase.h"

#include <QByteArray>
#include <QString>

#include <memory>

// ---- the current user --------------------------------------------------------------------

extern QString CurUser;        // name of the loaded user; empty when none
extern QString CurUsDBPath;    // databases folder + CurUser + ".bdb"
extern QString CurUsPasw;      // MD5 text of the loaded user's password
extern clsDatabasePtr CurUsDB; // the loaded user's database; a fresh empty one when none
extern std::unique_ptr<clsDataFilesManager> MDFM;
// Results of the password dialog: 1 right password, 2 wrong password or no file, 3 cancelled.
extern int FrmPaswResult;
extern QString FrmPaswEnetered; // MD5 text of the password typed there

// Start-up: the data files manager and an empty current database (created anew on every
// call, which tests rely on).
void CreateProgramObjects();

// ---- accounts ----------------------------------------------------------------------------

// Appends the user names found in FPath, in the order the system lists the folder: files
// (not folders) whose name ends in ".bdb" exactly, without that ending; a sync engine's
// conflict copy (storage/ConflictCopies.h) is no user and is skipped. A folder that
// cannot be read writes "Error#0003. FPath = <folder>" to the debug log.
void FindUsers(const QString& FPath, StrMass& pUsers);
// Creates the user's file at Path protected with the typed password Pasw, which is
// replaced by its MD5 text. Replaces any file there; does not load the user.
void AddUser(const QString& Path, const QString& Name, QString& Pasw);
// The file key made from the MD5 text of a password: the MD5 text hashed twenty times
// in all, followed by the MD5 text itself (64 characters).
QString GetTruePasw(const QString& InPasw);
// Results of TestUsPasw, LoadUser and FullUserLoad.
enum TestUsPaswResult { tupRight = 1, tupWrong = 2 };
inline constexpr int kUserLoaded = 2; // LoadUser
enum FullUserLoadResult {
    fulLoaded = 0,
    fulWrongPassword = -1, // the file would not open with that key
    fulFailed = 100,       // no file, unreadable, or anything else
    fulDamaged = 101,      // the right password, contents that fail their check: offer its backups
};

// tupRight when Pasw (MD5 text) opens the file at UPath; tupWrong for a wrong password or
// a file that is missing, too short or not a user file. Only the first line is read.
int TestUsPasw(const QString& UPath, const QString& Pasw);
// Opens the file at UPath with the file key Pasw and makes it the current database,
// saving the previously loaded one first. kUserLoaded; below zero the engine's failure
// code (-2 no file, -4 wrong key or changed file, -3 damaged structure, -1 unreadable).
// The database keeps its user file (storage/UserFile.h) with the identity and the tables
// as read (the base of a merge).
int LoadUser(const QString& UPath, const QString& Pasw);
// Opens user UsName with the MD5 text UsPasw and makes it the current user: globals,
// settings entry 4 (saved) and the view. FullUserLoadResult. A failure changes no
// current-user global.
int FullUserLoad(const QString& UsName, const QString& UsPasw);

// Saves DB to the databases folder under its Name with the file key Pasw, through DB's
// user file (storage/UserFile.h: locked, merged with a version changed elsewhere, checked).
// A key other than the one DB was read with is a new password: the file's version is read
// with the old one. A file whose contents fail their check is written over (there is
// nothing to merge from; its backups remain). Results: UsSaveResult.
int SaveUsDB(const clsDatabasePtr& DB, const QString& Pasw);
// SaveUsDB that writes a file deleted elsewhere again.
int SaveUsDBRecreate(const clsDatabasePtr& DB, const QString& Pasw);
// For a file whose password was changed elsewhere: opens it with TheirPasw (the password
// as typed), merges and saves with that password. On success (1 or 2) the caller sets
// CurUsPasw to the MD5 text of TheirPasw. -7 when TheirPasw does not open it either.
int SaveUsDBWithNewKey(const clsDatabasePtr& DB, const QString& TheirPasw);
// Takes changes made elsewhere into DB (file key Pasw), holding the user's lock: when the
// file is not the one DB knows, its version is merged into memory (memory counts as ours;
// with no unsaved changes that is a plain reload) and becomes DB's base. Nothing is
// written. 0 nothing changed, 1 merged or reloaded, -1 the file cannot be read or fails
// its check, -6, -7, -8 as for SaveUsDB.
int RefreshUsDB(const clsDatabasePtr& DB, const QString& Pasw);
// SaveUsDB that reads the file's version with ReadKey and writes with WriteKey (a new
// password).
int SaveUsDBRekeyed(const clsDatabasePtr& DB, const QString& ReadKey, const QString& WriteKey);
// Reads a user file into Out with the file key Pasw (both layers, in memory), with the
// identity of exactly the bytes read. Cache, when given, is the key cache of the result.
// 1, or -2 no file, -1 unreadable, -4 wrong key or changed bytes, -3 damaged structure.
int ReadUserFile(const QString& UPath, const QString& Pasw, DatabaseRecord& Out, clsFileIdentity& Id,
                 std::shared_ptr<KeyCache> Cache = {});

// Back to no user, without saving: globals emptied, view cleared, entry 4 emptied (saved).
void UnloadUser();
// Makes DB, unloaded a moment ago with its changes still in memory, the current user again
// (a step that needed the user closed did not happen): nothing is read from the file.
void ReinstateUser(const QString& UsName, const QString& UsPasw, const clsDatabasePtr& DB);
// 1 deleted; -2 no file at UsDBPath; -6 another program held the file for more than
// 10 s (nothing deleted). The current user and MDFM are not touched.
int DeleteUser(const QString& UsName, const QString& UsDBPath);
// New password of the current user: CurUsPasw becomes its MD5 text and the database is
// saved with the new key at once (a version changed elsewhere is read with the old key and
// merged). Returns SaveUsDB's result; on a failure CurUsPasw keeps the old password, which
// still opens the file.
int ChangeUsPasw(const QString& NewPasw);

// ---- helpers -----------------------------------------------------------------------------

// Path of a user's file: Pt(settings entry 5) + name + ".bdb".
QString UsDBFilePath(const QString& UsName);
// The file a new user starts from, byte for byte (an empty database with one table).
QByteArray NewUserTemplate();
// Deletes a file if it exists, clearing its read-only state first; error 70 when a file
// that exists cannot be deleted.
void TrueKill(const QString& FilePath);
// Overwrites the characters of a text that held a secret, if no other text shares them.
void WipeString(QString& Text);
