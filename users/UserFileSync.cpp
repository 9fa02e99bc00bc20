// Saving a user file that other programs may change too (the window, argentpm, a restore,
// a sync tool): every save holds the user's lock, compares the file with the one the
// database was read from, and merges when it changed. See UserAccounts.h.

#include "users/UserAccounts.h"

#include "app/modMain.h"
#include "diagnostics/DbgPrint.h"
#include "diagnostics/Trace.h"
#include "storage/FileSeal.h"
#include "storage/Md5.h"
#include "storage/Rc4.h"
#include "storage/TableFile.h"
#include "storage/UserFileLock.h"
#include "storage/UserFileMerge.h"

#include <sodium.h>

namespace {

enum class SaveMode { Normal, Recreate };

int lockFailure(const clsUserFileLock& Lock) {
    return Lock.TimedOut() ? usLockTimeout : usWriteFailed;
}

// Writes DB with WriteKey to Path (the lock is held): the engine's file goes to the
// private temporary folder, is enciphered into Path in one checked replacement, and the
// database takes the new file as its base.
int writeUserFile(const clsDatabasePtr& DB, const QString& Path, const QString& WriteKey) {
    TRACE_PROC("modMain.WriteUserFile", Path, HIDDEN(WriteKey));
    QString tmp;
    if (!TryGetTempFileName(tmp)) {
        DbgPrint(QStringLiteral("Temporary folder unusable: ") + GetWindowsTemp());
        return usWriteFailed;
    }
    int r = MDFM->SaveDB(DB, tmp, WriteKey, false);
    clsFileIdentity written;
    if (r >= 0 && !EncryptFile(tmp, Path, true, WriteKey, written))
        r = usWriteFailed;
    TrueKill(tmp);
    if (r < 0)
        return usWriteFailed;
    // The identity of the bytes just written, without reading them back; should it be
    // missing, the file is read as any other.
    DB->MarkSaved(written.Exists ? written : ReadFileIdentity(Path));
    return usSaved;
}

int saveShared(const clsDatabasePtr& DB, const QString& ReadKey, const QString& WriteKey, SaveMode Mode,
               bool ForceRead) {
    TRACE_PROC("modMain.SaveShared", DB.get(), HIDDEN(ReadKey), HIDDEN(WriteKey), ForceRead);
    // A database without a name belongs to no user: there is no file to write.
    if (!DB || DB->Name().isEmpty())
        return usNothingToSave;
    const QString path = UsDBFilePath(DB->Name());
    clsUserFileLock lock(path);
    if (!lock.Acquire())
        return lockFailure(lock);
    int result = usSaved;
    bool exists = false;
    clsFileIdentity known = DB->FileId();
    const bool unchanged = FileUnchanged(path, known, &exists);
    const bool changed = DB->HasFileState() && !unchanged;
    if (DB->HasFileState() && unchanged)
        DB->SetFileId(known);
    if ((changed || ForceRead) && !exists) {
        if (Mode != SaveMode::Recreate)
            return usFileDeleted;
    } else if (changed || ForceRead) {
        DatabaseRecord theirs;
        clsFileIdentity id;
        // The same password shares the key cache: a file written with the same salt
        // needs no second key derivation.
        const int r =
            ReadUserFile(path, ReadKey, theirs, id, ReadKey == WriteKey ? DB->DBView().Key : nullptr);
        if (r == tbeBadKey)
            return usKeyChanged;
        if (r == tbeIoError || r == tbeNoFile)
            return r == tbeNoFile && Mode != SaveMode::Recreate ? usFileDeleted : usWriteFailed;
        if (r < 0) {
            DbgPrint(QStringLiteral("User file fails its check, written over: ") + path);
        } else if (changed) {
            DatabaseRecord merged = DB->DBView();
            const clsMergeCounts c = MergeDatabases(merged, DB->Base(), theirs);
            DbgPrint(QStringLiteral("Merged with the file: theirs %1 changed, %2 added, ours %3 added, %4 "
                                    "renumbered, %5 rehomed")
                         .arg(c.TakenTheirs + c.FieldMerged)
                         .arg(c.AddedTheirs)
                         .arg(c.AddedOurs)
                         .arg(c.Renumbered)
                         .arg(c.Rehomed));
            DB->ReplaceDB(std::move(merged));
            // Memory now holds the file's version: should the write fail, the next save
            // starts from it and merges nothing twice.
            DB->SetFileState(theirs, id);
            result = usMerged;
        }
    }
    const int w = writeUserFile(DB, path, WriteKey);
    return w < 0 ? w : result;
}

} // namespace

int ReadUserFile(const QString& UPath, const QString& Pasw, DatabaseRecord& Out, clsFileIdentity& Id,
                 std::shared_ptr<KeyCache> Cache) {
    TRACE_PROC("modMain.ReadUserFile", UPath, HIDDEN(Pasw));
    QByteArray bytes;
    Out = DatabaseRecord();
    if (!ReadFileWithIdentity(UPath, bytes, Id))
        return Id.Exists ? tbeIoError : tbeNoFile;
    {
        QByteArray key = Pasw.toUtf8();
        Rc4 rc4(key);
        sodium_memzero(key.data(), static_cast<size_t>(key.size()));
        rc4.Apply(bytes.data(), bytes.size());
    }
    Out.Key = Cache ? std::move(Cache) : std::make_shared<KeyCache>();
    DatabaseRecord db;
    db.Key = Out.Key;
    const int r = ParseFileImage(bytes, Pasw, db, nullptr);
    if (r < 0)
        return r;
    Out = std::move(db);
    Out.Ready = true;
    return tbeOk;
}

int SaveUsDB(const clsDatabasePtr& DB, const QString& Pasw) {
    TRACE_PROC("modMain.SaveUsDB", DB.get(), HIDDEN(Pasw));
    return saveShared(DB, Pasw, Pasw, SaveMode::Normal, false);
}

int SaveUsDBRecreate(const clsDatabasePtr& DB, const QString& Pasw) {
    TRACE_PROC("modMain.SaveUsDBRecreate", DB.get(), HIDDEN(Pasw));
    return saveShared(DB, Pasw, Pasw, SaveMode::Recreate, false);
}

int SaveUsDBRekeyed(const clsDatabasePtr& DB, const QString& ReadKey, const QString& WriteKey) {
    TRACE_PROC("modMain.SaveUsDBRekeyed", DB.get(), HIDDEN(ReadKey), HIDDEN(WriteKey));
    return saveShared(DB, ReadKey, WriteKey, SaveMode::Normal, false);
}

int SaveUsDBWithNewKey(const clsDatabasePtr& DB, const QString& TheirPasw) {
    TRACE_PROC("modMain.SaveUsDBWithNewKey", DB.get(), HIDDEN(TheirPasw));
    QString md5 = HashString(TheirPasw);
    const QString key = GetTruePasw(md5);
    WipeString(md5);
    return saveShared(DB, key, key, SaveMode::Normal, true);
}

int RefreshUsDB(const clsDatabasePtr& DB, const QString& Pasw) {
    TRACE_PROC("modMain.RefreshUsDB", DB.get(), HIDDEN(Pasw));
    if (!DB || DB->Name().isEmpty())
        return 0;
    const QString path = UsDBFilePath(DB->Name());
    clsUserFileLock lock(path);
    if (!lock.Acquire())
        return lockFailure(lock);
    if (DB->HasFileState()) {
        clsFileIdentity known = DB->FileId();
        if (FileUnchanged(path, known)) {
            DB->SetFileId(known);
            return 0;
        }
    }
    DatabaseRecord theirs;
    clsFileIdentity id;
    const int r = ReadUserFile(path, Pasw, theirs, id, DB->DBView().Key);
    if (r == tbeNoFile)
        return usFileDeleted;
    if (r == tbeBadKey)
        return usKeyChanged;
    if (r < 0)
        return usWriteFailed;
    if (DB->HasFileState() && DB->HasUnsavedChanges()) {
        DatabaseRecord merged = DB->DBView();
        MergeDatabases(merged, DB->Base(), theirs);
        DB->ReplaceDB(std::move(merged));
    } else {
        DB->ReplaceDB(theirs);
    }
    DB->SetFileState(theirs, id);
    return 1;
}
