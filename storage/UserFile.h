#pragma once

// The user-file layer: one object per user file, holding what a program that keeps the
// user open knows of it: its path, its file key (with the derived key of the sealed body
// kept beside it), its lock, the identity of the bytes last read or written, and the
// tables as they were then (the base of a three-way merge).
//
// A user file has two layers: the table engine's file image (TableFile.h), sealed with
// the file key, enciphered as a whole with RC4 under the same key. Reading and writing
// happen in memory from end to end: no deciphered byte reaches any file system. Every
// write is one checked replacement (app/CheckedWrite.h), so the file at the path is
// always a whole old or a whole new version.
//
// Any process may change the file at any moment (the window, argentpm, a restore, a sync
// tool). Each read-change-write holds the user's lock (UserFileLock.h); before writing,
// the file's identity is compared with the one known, and a file changed elsewhere is
// merged three ways (UserFileMerge.h) with every table it holds, never written over.
// Every version read or written is kept in this computer's per-user folder, and every
// save adds a token to the file's lineage (FileLineage.h): the bases of the merges of
// the conflict copies sync engines make (users/ConflictMerge.h).
//
// The layers of the program, from the ground up: diagnostics, app utilities and settings,
// storage (this layer among it), users (accounts and the user session, which owns the
// open user and calls this layer), then records, maintenance and options, then the main
// window and argentpm, then the entry point. A floor calls only the floors below it.

#include "storage/FileIdentity.h"
#include "storage/TableEngine.h"
#include "storage/UserFileLock.h"

#include <QString>

#include <memory>
#include <optional>

class clsDatabase;

// Outcomes of the saves and refreshes of a user file; the numbers are the ones the saves
// have always returned.
enum UsSaveResult {
    usUnchanged = 0,      // refresh: the file is the one known
    usSaved = 1,          // written (refresh: taken in from the file)
    usMerged = 2,         // the file had changed elsewhere: merged with it, then written
    usWriteFailed = -1,   // not written: a full disk, a folder gone (the old file is whole)
    usNothingToSave = -5, // the database has no name: nothing written
    usLockTimeout = -6,   // another program held the user's file for more than 10 s: nothing changed
    usKeyChanged = -7,    // the file no longer opens with this key (its password changed elsewhere)
    usFileDeleted = -8,   // the file was deleted elsewhere: nothing written (SaveRecreate writes it)
    usOlderFile = -10,    // the file is older than one this computer has seen (FileVersionsSeen.h):
                          // nothing written or taken in (SaveOver keeps ours, AcceptOlder theirs)
    usDamaged = -9,       // the file opens with the key but fails its check (damaged, forged or not
                          // sealed): nothing written, nothing taken in (SaveOver writes over it)
};
inline constexpr int usTakenIn = usSaved; // refresh: the file's version is in memory now
inline constexpr int usDiskFull = usWriteFailed;

class clsUserFile {
public:
    clsUserFile(const QString& Path, const QString& Key);
    ~clsUserFile();
    clsUserFile(const clsUserFile&) = delete;
    clsUserFile& operator=(const clsUserFile&) = delete;

    const QString& Path() const { return m_path; }
    // True when Key is the file key this object reads and writes with.
    bool HasKey(const QString& Key) const { return m_key == Key; }

    // ---- the one reader and the one writer -------------------------------------------
    // Reads the file at Path with Key (both layers, in memory) into Out, with the identity
    // of exactly the bytes read. Cache, when given, is the key cache of the result.
    // tbeOk, or tbeNoFile, tbeIoError, tbeBadKey (a wrong key: the first line does not
    // decipher), tbeBadFormat (the key is right, but the file is not sealed, or its seal or
    // its structure fails the check: damaged or forged).
    // Sealed, when given, receives the file's bytes as they were (to keep a version).
    static int Read(const QString& Path, const QString& Key, DatabaseRecord& Out, clsFileIdentity& Id,
                    std::shared_ptr<KeyCache> Cache = {}, QByteArray* Sealed = nullptr);
    // True when the first line of the file at Path deciphers with Key to a signature: the
    // password check, which reads a few bytes only. (A plain signature proves the key as
    // well; Read then refuses the file as damaged.)
    static bool FirstLineOpens(const QString& Path, const QString& Key);
    // Writes Db as the whole new content of Path with Key, checked; Written receives the
    // identity of the bytes written (Exists false when it could not be had).
    // Sealed, when given, receives the bytes written.
    static bool Write(const QString& Path, const DatabaseRecord& Db, const QString& Key,
                      clsFileIdentity& Written, QByteArray* Sealed = nullptr);

    // ---- one open user file ----------------------------------------------------------
    // Reads the file into DB, which then keeps this object as its file. tbe codes as Read.
    int Open(clsDatabase& DB);
    // Writes DB, holding the lock; a file changed since it was last read or written is
    // merged into DB first. UsSaveResult.
    int Save(clsDatabase& DB);
    // Save that writes a file deleted elsewhere again.
    int SaveRecreate(clsDatabase& DB);
    // Writes DB over whatever the file holds now, without reading it (the user chose to
    // keep what is open over a damaged or an older file).
    int SaveOver(clsDatabase& DB);
    // Save that reads the file's version with the current key and writes with NewKey,
    // which then becomes the key (a change of password).
    int SaveRekeyed(clsDatabase& DB, const QString& NewKey);
    // For a file whose password was changed elsewhere: reads it with TheirKey, merges,
    // writes with TheirKey, which then becomes the key. usKeyChanged when TheirKey does
    // not open it either.
    int SaveWithFileKey(clsDatabase& DB, const QString& TheirKey);
    // True when the file at the path opens with the key and checks out (sealed, whole,
    // with its records table): what a backup copy may be made of. DB lends its key cache.
    bool FileChecksOut(const clsDatabase& DB);
    // Takes changes made elsewhere into DB, holding the lock: nothing is written.
    // usUnchanged, usTakenIn, or usWriteFailed (unreadable), usDamaged, usLockTimeout,
    // usKeyChanged, usFileDeleted.
    int Refresh(clsDatabase& DB);

    // ---- a file that went back in time ------------------------------------------------
    // True when the file last read is older than one seen before (by this object or, as
    // FileVersionsSeen remembers, by any program on this computer) and the user has not
    // accepted it yet: saves and refreshes give usOlderFile until then.
    bool OlderThanSeen() const { return m_olderNum.has_value(); }
    // The save counts of that older file and of the newest one seen.
    quint64 OlderNum() const { return m_olderNum.value_or(0); }
    quint64 SeenNum() const { return m_knownNum; }
    // The user keeps the older file: it is the newest one from now on.
    void AcceptOlder();

    bool HasState() const { return m_hasState; }
    const DatabaseRecord& Base() const { return m_base; }
    const clsFileIdentity& Identity() const { return m_id; }
    // True when Mem differs from the base (always false without one).
    bool HasUnsavedChanges(const DatabaseRecord& Mem) const;
    // Mem and Id are now what the file holds.
    void SetState(const DatabaseRecord& Mem, const clsFileIdentity& Id);

private:
    enum class SaveMode { Normal, Recreate, Over };
    int saveShared(clsDatabase& DB, const QString& ReadKey, const QString& WriteKey, SaveMode Mode,
                   bool ForceRead);
    int writeLocked(clsDatabase& DB, const QString& WriteKey);
    int readTheirs(const QString& Key, bool SameKey, const clsDatabase& DB, DatabaseRecord& Theirs,
                   clsFileIdentity& Id);
    int readKept(const QString& Key, DatabaseRecord& Out, clsFileIdentity& Id,
                 std::shared_ptr<KeyCache> Cache = {});
    void adoptKey(const QString& Key);
    bool wentBack(quint64 FileNum);
    void noteRead(quint64 FileNum);

    QString m_path;
    QString m_key;
    clsUserFileLock m_lock;
    DatabaseRecord m_base;
    clsFileIdentity m_id;
    bool m_hasState = false;
    quint64 m_knownNum = 0;            // the highest save count read or written here
    std::optional<quint64> m_olderNum; // the count of an older file not accepted yet
    QString m_supersedes;              // after AcceptOlder: the tokens the next write takes in
};

using clsUserFilePtr = std::shared_ptr<clsUserFile>;
