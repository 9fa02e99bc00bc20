// The saves of a user file as the rest of the program has always called them: thin
// wrappers over the user-file layer (storage/UserFile.h), which does the reading, the
// locking, the merging and the writing.

#include "users/UserAccounts.h"

#include "diagnostics/Trace.h"
#include "storage/Md5.h"
#include "storage/UserFile.h"

namespace {

// The user file DB is saved to: its own, or for a database that has none yet (or whose
// name now points elsewhere) a new one at the path of its name, with no state: it is
// written as it is.
clsUserFile& userFileOf(const clsDatabasePtr& DB, const QString& Key) {
    const QString path = UsDBFilePath(DB->Name());
    if (!DB->UserFile() || DB->UserFile()->Path() != path)
        DB->SetUserFile(std::make_shared<clsUserFile>(path, Key));
    return *DB->UserFile();
}

bool hasNoFile(const clsDatabasePtr& DB) {
    // A database without a name belongs to no user: there is no file to write.
    return !DB || DB->Name().isEmpty();
}

} // namespace

int ReadUserFile(const QString& UPath, const QString& Pasw, DatabaseRecord& Out, clsFileIdentity& Id,
                 std::shared_ptr<KeyCache> Cache) {
    return clsUserFile::Read(UPath, Pasw, Out, Id, std::move(Cache));
}

int SaveUsDB(const clsDatabasePtr& DB, const QString& Pasw) {
    TRACE_PROC("modMain.SaveUsDB", DB.get(), HIDDEN(Pasw));
    if (hasNoFile(DB))
        return usNothingToSave;
    clsUserFile& file = userFileOf(DB, Pasw);
    // Another key than the file's is a new password: the file's version is read with the
    // key it was written with.
    return file.HasKey(Pasw) ? file.Save(*DB) : file.SaveRekeyed(*DB, Pasw);
}

int SaveUsDBRecreate(const clsDatabasePtr& DB, const QString& Pasw) {
    TRACE_PROC("modMain.SaveUsDBRecreate", DB.get(), HIDDEN(Pasw));
    if (hasNoFile(DB))
        return usNothingToSave;
    return userFileOf(DB, Pasw).SaveRecreate(*DB);
}

int SaveUsDBRekeyed(const clsDatabasePtr& DB, const QString& ReadKey, const QString& WriteKey) {
    TRACE_PROC("modMain.SaveUsDBRekeyed", DB.get(), HIDDEN(ReadKey), HIDDEN(WriteKey));
    if (hasNoFile(DB))
        return usNothingToSave;
    return userFileOf(DB, ReadKey).SaveRekeyed(*DB, WriteKey);
}

int SaveUsDBWithNewKey(const clsDatabasePtr& DB, const QString& TheirPasw) {
    TRACE_PROC("modMain.SaveUsDBWithNewKey", DB.get(), HIDDEN(TheirPasw));
    if (hasNoFile(DB))
        return usNothingToSave;
    QString md5 = HashString(TheirPasw);
    const QString key = GetTruePasw(md5);
    WipeString(md5);
    clsUserFile& file = userFileOf(DB, key);
    return file.SaveWithFileKey(*DB, key);
}

int RefreshUsDB(const clsDatabasePtr& DB, const QString& Pasw) {
    TRACE_PROC("modMain.RefreshUsDB", DB.get(), HIDDEN(Pasw));
    if (hasNoFile(DB))
        return usUnchanged;
    return userFileOf(DB, Pasw).Refresh(*DB);
}
