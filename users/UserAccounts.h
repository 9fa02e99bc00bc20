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
// Decided for this program: deciphered copies live in the private temporary folder and
// are erased on every path, success or failure, and are dropped from MDFM with them; every
// write of a user file replaces it in one step (the complete enciphered bytes are written
// beside it and renamed over it), so the file at the user's path is always a whole old or
// a whole new version; user files are created with mode 0600.

#include "app/StrMass.h"
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
// (not folders) whose name ends in ".bdb" exactly, without that ending. A folder that
// cannot be read writes "Error#0003. FPath = <folder>" to the debug log.
void FindUsers(const QString& FPath, StrMass& pUsers);
// Creates the user's file at Path protected with the typed password Pasw, which is
// replaced by its MD5 text. Replaces any file there; does not load the user.
void AddUser(const QString& Path, const QString& Name, QString& Pasw);
// The file key made from the MD5 text of a password: the MD5 text hashed twenty times
// in all, followed by the MD5 text itself (64 characters).
QString GetTruePasw(const QString& InPasw);
// 1 when Pasw (MD5 text) opens the file at UPath, 2 for a wrong password or a file that
// is missing, too short or not a user file.
int TestUsPasw(const QString& UPath, const QString& Pasw);
// Opens the file at UPath with the file key Pasw and makes it the current database,
// saving the previously loaded one first. 2 loaded; below zero the manager's failure code
// (-2 no file, -4 wrong key or changed file, -3 damaged structure, -1 unreadable).
int LoadUser(const QString& UPath, const QString& Pasw);
// Opens user UsName with the MD5 text UsPasw and makes it the current user: globals,
// settings entry 4 (saved) and the view. 0 on success; -1 when the file would not open
// with that key (-4); 100 on any other failure. A failure changes no current-user global.
int FullUserLoad(const QString& UsName, const QString& UsPasw);
// Saves DB to the databases folder under its Name with the file key Pasw. Result: the
// manager's save result, 1 saved; -1 when the file could not be written (a full disk,
// a folder that is gone): the old file then stays as it was, whole; -5 when DB has no
// name (nothing is written).
int SaveUsDB(const clsDatabasePtr& DB, const QString& Pasw);
// Back to no user, without saving: globals emptied, view cleared, entry 4 emptied (saved).
void UnloadUser();
// 1 deleted; -2 no file at UsDBPath. The current user and MDFM are not touched.
int DeleteUser(const QString& UsName, const QString& UsDBPath);
// New password of the current user: CurUsPasw becomes its MD5 text and the database is
// saved with the new key at once. Returns SaveUsDB's result.
int ChangeUsPasw(const QString& NewPasw);

// ---- helpers -----------------------------------------------------------------------------

// Path of a user's file: Pt(settings entry 5) + name + ".bdb".
QString UsDBFilePath(const QString& UsName);
// The file a new user starts from, byte for byte (an empty database with one table).
QByteArray NewUserTemplate();
// A fresh empty file (mode 0600) in the private temporary folder, named "psc...".
QString GetTempFileName();
// Deletes a file if it exists, clearing its read-only state first; error 70 when a file
// that exists cannot be deleted.
void TrueKill(const QString& FilePath);
// Overwrites the characters of a text that held a secret, if no other text shares them.
void WipeString(QString& Text);
