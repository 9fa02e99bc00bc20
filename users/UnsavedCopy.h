#pragma once

// Changes the program could not save when it had to end (the file's password was changed
// elsewhere, a full disk): the database in memory and the tables it was read from (the
// base of the merge) are written as two sealed user files, enciphered with the key in
// memory, beside the user's file, or in the per-user folder when that folder cannot be
// written. When the user opens next, the window offers them back: read with the password
// they were sealed with, merged three ways into what the file holds now, and saved.

#include <QString>
#include <QStringList>

class clsDatabase;

// Where the copy of a user may be, in the order it is written and looked for.
QStringList UnsavedCopyPlaces(const QString& UsName);
// The copy of a user that exists (its path), or an empty text.
QString FindUnsavedCopy(const QString& UsName);
// Writes the copy of Db (a user's database read from its file) with Key, checked; the
// path written, or an empty text when no place could be written.
QString WriteUnsavedCopy(const clsDatabase& Db, const QString& Key);

enum UnsavedCopyResult {
    ucTaken = 1,     // merged into the database: it has unsaved changes now
    ucWrongKey = -1, // the copy does not open with this key
    ucDamaged = -2,  // the copy or its base cannot be read, or holds no records table
};
// Merges the copy at CopyPath, read with Key, into Into (the same user, open).
int MergeUnsavedCopy(const QString& CopyPath, const QString& Key, clsDatabase& Into);
// Deletes the copy and its base.
void DropUnsavedCopy(const QString& CopyPath);
