#pragma once

// The user session: the one owner of the open user (CurUser, CurUsDBPath, CurUsPasw and
// CurUsDB, kept under their old names for the error report and the older routines).
// Opening, saving, locking, refreshing, writing a deleted file again, a change of key,
// an import and the automatic backup of the current user all go through it, so that every
// save of the program takes one path: the user file of the open database
// (storage/UserFile.h), with its lock, its merge and its checked write. No widget here:
// the window and argentpm present the outcomes (UsSaveResult), the window in one place.
//
// A lock keeps in memory what could not be saved (a full disk, a lock held elsewhere):
// the unlock takes it back, a close tries it once more, and nothing is dropped unsaved.

#include "storage/UserFile.h"
#include "storage/clsDatabase.h"

#include <QString>

class clsUserSession {
public:
    // Opens user UsName with the MD5 text UsPasw (FullUserLoadResult); the view is told.
    int Open(const QString& UsName, const QString& UsPasw);
    bool IsOpen() const;

    // Saves the open user (usNothingToSave with none).
    int Save();
    // Writes a file deleted elsewhere again.
    int SaveRecreate();
    // Writes what is open over the file as it is now, unread (a damaged file, or an older
    // one the user chose to replace).
    int SaveOver();
    // The file's password was changed elsewhere: Typed (as typed) is its password now;
    // on success it becomes the open user's.
    int SaveWithPassword(const QString& Typed);
    // Takes changes made elsewhere into memory (usUnchanged, usTakenIn or a failure).
    int Refresh();
    // A new password (as typed): the file is written with it at once; on a failure the old
    // one stays, and still opens the file.
    int ChangeKey(const QString& NewPasw);
    // Saves Db, a database of this session (the open one, or one kept by a lock), for an
    // automatic backup or any other caller that holds it.
    int SaveDatabase(const clsDatabasePtr& Db);

    // Lock: saves; a database that cannot be saved now is kept (HasKept). The open user's
    // name and password stay known; the database in memory is dropped.
    int Lock();
    bool HasKept() const { return static_cast<bool>(m_kept); }
    // Unlocked with the right password: the kept database becomes the open one again.
    // False when nothing was kept (the caller opens the user from the file).
    bool TakeBackKept();
    // Saves the kept database (usNothingToSave with none); kept no longer once saved.
    int SaveKept();
    // Forgets the kept database (the user chose to close without it).
    void DropKept() { m_kept.reset(); }
    // The program must end and what is open (or kept by a lock) cannot be saved: it goes
    // into a sealed copy (users/UnsavedCopy.h) with the key in memory. The copy's path,
    // or an empty text when there was nothing unsaved or no copy could be written.
    QString KeepUnsavedCopy(bool* Unsaved = nullptr);

    // Back to no user, without saving.
    void Unload();
    // Makes DB, unloaded a moment ago with its changes still in memory, the open user
    // again: nothing is read from the file.
    void Reinstate(const QString& UsName, const QString& UsPasw, const clsDatabasePtr& DB);

private:
    clsDatabasePtr m_kept;
};

// The program's one session.
clsUserSession& UsSession();
