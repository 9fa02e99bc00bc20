#include "storage/UserFile.h"

#include "app/CheckedWrite.h"
#include "app/SecureMemory.h"
#include "diagnostics/DbgPrint.h"
#include "diagnostics/Trace.h"
#include "storage/FileLineage.h"
#include "storage/FileSeal.h"
#include "storage/FileVersionsSeen.h"
#include "storage/MergeBase.h"
#include "storage/Rc4.h"
#include "storage/TableFile.h"
#include "storage/UserFileCheck.h"
#include "storage/UserFileMerge.h"
#include "storage/clsDatabase.h"

#include <QDateTime>
#include <QFile>

#include <sodium.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <memory>
#include <thread>

namespace {

void wipeText(QString& Text) {
    if (!Text.isEmpty() && Text.isDetached()) {
        sodium_memzero(Text.data(), static_cast<std::size_t>(Text.size()) * sizeof(QChar));
        UnlockSecret(Text.constData());
    }
    Text.clear();
}

// The outer layer: RC4 under the key's UTF-8 bytes, over Len bytes of Data in place.
void applyOuterLayer(const QString& Key, char* Data, qsizetype Len) {
    QByteArray key = Key.toUtf8();
    Rc4 rc4(key);
    sodium_memzero(key.data(), static_cast<std::size_t>(key.size()));
    rc4.Apply(Data, Len);
}

// Takes the outer layer off a large file in a thread of its own, block by block, while the
// reader opens the seal behind it (OpenInPlace's Ready): the two passes over the bytes then
// take the time of one. A small file, or a machine of one core, does it at once.
class OuterLayerBehind {
public:
    OuterLayerBehind(const QString& Key, char* Data, qsizetype Len) {
        QByteArray key = Key.toUtf8();
        auto rc4 = std::make_shared<Rc4>(key);
        sodium_memzero(key.data(), static_cast<std::size_t>(key.size()));
        constexpr qsizetype kBehindFrom = 1 << 20;
        if (Len < kBehindFrom || std::thread::hardware_concurrency() < 2) {
            rc4->Apply(Data, Len);
            m_done.store(Len);
            return;
        }
        m_thread = std::thread([this, rc4, Data, Len] {
            constexpr qsizetype kStep = 256 * 1024;
            for (qsizetype at = 0; at < Len; at += kStep) {
                rc4->Apply(Data + at, std::min(kStep, Len - at));
                m_done.store(std::min(at + kStep, Len), std::memory_order_release);
                m_done.notify_all();
            }
        });
    }
    ~OuterLayerBehind() {
        if (m_thread.joinable())
            m_thread.join();
    }
    OuterLayerBehind(const OuterLayerBehind&) = delete;
    OuterLayerBehind& operator=(const OuterLayerBehind&) = delete;
    void WaitFor(qsizetype N) {
        for (qsizetype done = m_done.load(std::memory_order_acquire); done < N;
             done = m_done.load(std::memory_order_acquire))
            m_done.wait(done, std::memory_order_acquire);
    }

private:
    std::atomic<qsizetype> m_done{0};
    std::thread m_thread;
};

// Holds a lock for one operation of the object that owns it.
class HeldLock {
public:
    explicit HeldLock(clsUserFileLock& Lock) : m_lock(Lock) { m_ok = m_lock.Acquire(); }
    ~HeldLock() { m_lock.Release(); }
    HeldLock(const HeldLock&) = delete;
    HeldLock& operator=(const HeldLock&) = delete;
    bool Ok() const { return m_ok; }
    // What a lock that could not be had means for the caller.
    int Failure() const { return m_lock.TimedOut() ? usLockTimeout : usWriteFailed; }

private:
    clsUserFileLock& m_lock;
    bool m_ok = false;
};

void logMerge(const clsMergeCounts& c) {
    DbgPrint(QStringLiteral("Merged with the file: theirs %1 changed, %2 added, ours %3 added, %4 "
                            "renumbered, %5 rehomed")
                 .arg(c.TakenTheirs + c.FieldMerged)
                 .arg(c.AddedTheirs)
                 .arg(c.AddedOurs)
                 .arg(c.Renumbered)
                 .arg(c.Rehomed));
}

} // namespace

clsUserFile::clsUserFile(const QString& Path, const QString& Key) : m_path(Path), m_key(Key), m_lock(Path) {
    LockSecretText(m_key);
}

clsUserFile::~clsUserFile() {
    wipeText(m_key);
}

void clsUserFile::adoptKey(const QString& Key) {
    if (m_key == Key)
        return;
    wipeText(m_key);
    m_key = Key;
    LockSecretText(m_key);
}

int clsUserFile::Read(const QString& Path, const QString& Key, DatabaseRecord& Out, clsFileIdentity& Id,
                      std::shared_ptr<KeyCache> Cache, QByteArray* Sealed) {
    TRACE_PROC("modMain.ReadUserFile", Path, HIDDEN(Key));
    QByteArray bytes;
    Out = DatabaseRecord();
    // Only a sealed file is read as a user file: its identity is its size and ends.
    if (!ReadFileWithIdentity(Path, bytes, Id, true))
        return Id.Exists ? tbeIoError : tbeNoFile;
    if (Sealed)
        *Sealed = QByteArray(bytes.constData(), bytes.size());
    // Detached before the outer layer's thread gets its pointer: nothing reallocates it.
    bytes.detach();
    OuterLayerBehind outer(Key, bytes.data(), bytes.size());
    // The first line deciphers only with the right key. A user file is sealed: a plain
    // one is forged (the outer layer alone proves nothing), and a sealed one that fails
    // its check after a first line that opened is damaged, not a wrong password.
    outer.WaitFor(std::min<qsizetype>(bytes.size(), sizeof(kSignatureEnc) + 1));
    const int kind = ImageKind(bytes);
    if (kind != kImageSealed) {
        outer.WaitFor(bytes.size());
        WipeBytes(bytes);
        return kind == kImagePlain ? tbeBadFormat : tbeBadKey;
    }
    DatabaseRecord db;
    db.Key = Cache ? std::move(Cache) : std::make_shared<KeyCache>();
    // ParseFileImage consumes the bytes and wipes them when nothing could be read; it waits
    // for the outer layer before anything but the seal's opening touches them.
    const int r = ParseFileImage(bytes, Key, db, nullptr, [&outer](qsizetype N) { outer.WaitFor(N); });
    if (r < 0 || !UserTablesCheckOut(db))
        return tbeBadFormat;
    db.Path = Path;
    db.Ready = true;
    Out = std::move(db);
    return tbeOk;
}

bool clsUserFile::FirstLineOpens(const QString& Path, const QString& Key) {
    TRACE_PROC("modMain.FirstLineOpens", Path, HIDDEN(Key));
    QFile f(Path);
    if (!f.open(QIODevice::ReadOnly))
        return false;
    // The signature line and its line end; RC4 needs no more of the file than that.
    constexpr qsizetype kLen = sizeof(kSignatureEnc) - 1;
    QByteArray head = f.read(kLen + 2);
    if (head.size() <= kLen)
        return false;
    applyOuterLayer(Key, head.data(), head.size());
    // A plain signature line deciphered as well: the key is right and the reader refuses
    // the file as damaged (ImageKind).
    const int kind = ImageKind(head);
    // A file of exactly the signature line holds nothing to open.
    return kind != kImageNone && f.size() > kLen;
}

bool clsUserFile::Write(const QString& Path, const DatabaseRecord& Db, const QString& Key,
                        clsFileIdentity& Written, QByteArray* Sealed) {
    TRACE_PROC("modMain.WriteUserFile", Path, HIDDEN(Key));
    Written = clsFileIdentity();
    QByteArray image = BuildFileImage(Db, Key, false);
    if (image.isEmpty())
        return false;
    applyOuterLayer(Key, image.data(), image.size());
    clsCheckedFile out(Path);
    const bool ok = out.Open() && out.Write(image) && out.Commit();
    if (ok && out.WrittenStat(Written.Size, Written.MTimeNs, Written.Inode)) {
        // The change time is left unknown: the rename moves it on, so the first check after
        // the save reads the file once more, and takes it from there.
        Written.Exists = true;
        Written.Sealed = true;
        Written.Digest = FileDigest(image.constData(), image.size(), true);
        Written.TakenNs = QDateTime::currentMSecsSinceEpoch() * 1000000LL;
    }
    if (!ok)
        DbgPrint(QStringLiteral("User file not written (") + out.ErrorText() + QStringLiteral("): ") + Path);
    if (ok && Sealed)
        *Sealed = image; // enciphered: nothing to wipe
    else
        WipeBytes(image);
    return ok;
}

int clsUserFile::Open(clsDatabase& DB) {
    TRACE_PROC("clsUserFile.Open", m_path);
    DatabaseRecord rec;
    clsFileIdentity id;
    const int r = Read(m_path, m_key, rec, id);
    if (r < 0)
        return r;
    // A version this computer never had, with a lineage, is another machine's (put here
    // by a sync engine): its save count says nothing about the ones seen here. An older
    // version put back was read or written here, and is kept (FileLineage.h).
    const QString head = LineageHead(rec.Lineage);
    const bool otherMachines = !head.isEmpty() && !KeptVersionsFolder(m_path).isEmpty() &&
                               !QFile::exists(KeptVersionPath(m_path, head));
    KeepVersion(m_path, rec.Lineage, QByteArray(), m_path, id.Inode);
    DB.SetDB(rec);
    DB.SetPath(m_path);
    SetState(rec, id);
    m_olderNum.reset();
    if (!otherMachines && wentBack(rec.SaveNum))
        m_olderNum = rec.SaveNum;
    else
        noteRead(rec.SaveNum);
    return tbeOk;
}

// What this computer remembers decides (a restore elsewhere resets it); what this object
// saw itself stands in when nothing is remembered.
bool clsUserFile::wentBack(quint64 FileNum) {
    const std::optional<quint64> seen = SeenSaveNum(m_path);
    if (seen)
        m_knownNum = *seen;
    return FileNum < m_knownNum;
}

void clsUserFile::noteRead(quint64 FileNum) {
    m_knownNum = std::max(m_knownNum, FileNum);
    NoteSaveNum(m_path, FileNum);
}

void clsUserFile::AcceptOlder() {
    TRACE_PROC("clsUserFile.AcceptOlder", m_path);
    if (!m_olderNum)
        return;
    m_knownNum = *m_olderNum;
    ResetSaveNum(m_path, m_knownNum);
    m_olderNum.reset();
    // The next version written supersedes every version this computer has seen: it
    // descends from them all, so no program here merges them back in.
    m_supersedes = KeptVersions(m_path).join(u' ');
}

void clsUserFile::SetState(const DatabaseRecord& Mem, const clsFileIdentity& Id) {
    m_base = Mem;
    m_base.Key.reset();
    m_id = Id;
    m_hasState = true;
}

bool clsUserFile::HasUnsavedChanges(const DatabaseRecord& Mem) const {
    TRACE_PROC("clsUserFile.HasUnsavedChanges");
    if (!m_hasState)
        return false;
    if (Mem.Name != m_base.Name || Mem.Tag != m_base.Tag || Mem.flags != m_base.flags ||
        Mem.Tables.size() != m_base.Tables.size())
        return true;
    // Rows that were not touched share their data with the base, so this is quick.
    for (qsizetype i = 0; i < Mem.Tables.size(); ++i) {
        const TableEntry& a = Mem.Tables[i];
        const TableEntry& b = m_base.Tables[i];
        if (a.Name != b.Name || a.Tag != b.Tag || a.Flags != b.Flags || a.FldNames != b.FldNames ||
            a.Records != b.Records)
            return true;
    }
    return false;
}

int clsUserFile::Save(clsDatabase& DB) {
    TRACE_PROC("clsUserFile.Save", m_path);
    return saveShared(DB, m_key, m_key, SaveMode::Normal, false);
}

int clsUserFile::SaveRecreate(clsDatabase& DB) {
    TRACE_PROC("clsUserFile.SaveRecreate", m_path);
    return saveShared(DB, m_key, m_key, SaveMode::Recreate, false);
}

int clsUserFile::SaveOver(clsDatabase& DB) {
    TRACE_PROC("clsUserFile.SaveOver", m_path);
    return saveShared(DB, m_key, m_key, SaveMode::Over, false);
}

int clsUserFile::SaveRekeyed(clsDatabase& DB, const QString& NewKey) {
    TRACE_PROC("clsUserFile.SaveRekeyed", m_path, HIDDEN(NewKey));
    const QString readKey = m_key;
    const int r = saveShared(DB, readKey, NewKey, SaveMode::Normal, false);
    if (r > 0)
        adoptKey(NewKey);
    return r;
}

int clsUserFile::SaveWithFileKey(clsDatabase& DB, const QString& TheirKey) {
    TRACE_PROC("clsUserFile.SaveWithFileKey", m_path, HIDDEN(TheirKey));
    const int r = saveShared(DB, TheirKey, TheirKey, SaveMode::Normal, true);
    if (r > 0)
        adoptKey(TheirKey);
    return r;
}

// Reads the file's version under the lock. SameKey: the file is read with the key DB was
// saved with, so a file written with the same salt needs no second key derivation.
int clsUserFile::readTheirs(const QString& Key, bool SameKey, const clsDatabase& DB, DatabaseRecord& Theirs,
                            clsFileIdentity& Id) {
    return readKept(Key, Theirs, Id, SameKey ? DB.DBView().Key : nullptr);
}

// Read, keeping the version read (FileLineage.h).
int clsUserFile::readKept(const QString& Key, DatabaseRecord& Out, clsFileIdentity& Id,
                          std::shared_ptr<KeyCache> Cache) {
    const int r = Read(m_path, Key, Out, Id, std::move(Cache));
    if (r == tbeOk)
        KeepVersion(m_path, Out.Lineage, QByteArray(), m_path, Id.Inode);
    return r;
}

int clsUserFile::writeLocked(clsDatabase& DB, const QString& WriteKey) {
    // Every save counts one up from the newest version known, so that no copy written
    // before can pass for a later one.
    const quint64 was = DB.DBView().SaveNum;
    const quint64 num = std::max({was, m_base.SaveNum, m_knownNum, SeenSaveNum(m_path).value_or(0)}) + 1;
    const QString wasLineage = DB.DBView().Lineage;
    DB.SetSaveNum(num);
    DB.SetLineage(ExtendLineage(JoinLineages(wasLineage, m_supersedes), num));
    clsFileIdentity written;
    QByteArray sealed;
    if (!Write(m_path, DB.DBView(), WriteKey, written, &sealed)) {
        DB.SetSaveNum(was);
        DB.SetLineage(wasLineage);
        return usWriteFailed;
    }
    KeepVersion(m_path, DB.DBView().Lineage, sealed, m_path, written.Inode);
    m_supersedes.clear();
    m_olderNum.reset();
    m_knownNum = num;
    NoteSaveNum(m_path, num);
    // The identity of the bytes just written, without reading them back; should it be
    // missing, the file is read as any other.
    SetState(DB.DBView(), written.Exists ? written : ReadFileIdentity(m_path, true));
    return usSaved;
}

int clsUserFile::saveShared(clsDatabase& DB, const QString& ReadKey, const QString& WriteKey, SaveMode Mode,
                            bool ForceRead) {
    TRACE_PROC("clsUserFile.SaveShared", m_path, HIDDEN(ReadKey), HIDDEN(WriteKey), ForceRead);
    HeldLock lock(m_lock);
    if (!lock.Ok())
        return lock.Failure();
    if (Mode == SaveMode::Over)
        return writeLocked(DB, WriteKey);
    bool exists = false;
    const bool unchanged = FileUnchanged(m_path, m_id, &exists);
    const bool changed = m_hasState && !unchanged;
    // An older file read before is not written over until the user says which one stays.
    if (!changed && m_olderNum)
        return usOlderFile;
    if (!changed && !ForceRead)
        return writeLocked(DB, WriteKey);
    if (!exists)
        return Mode == SaveMode::Recreate ? writeLocked(DB, WriteKey) : usFileDeleted;
    DatabaseRecord theirs;
    clsFileIdentity id;
    const int r = readTheirs(ReadKey, ReadKey == WriteKey, DB, theirs, id);
    if (r == tbeBadKey)
        return usKeyChanged;
    if (r == tbeIoError || r == tbeNoFile)
        return r == tbeNoFile && Mode != SaveMode::Recreate ? usFileDeleted : usWriteFailed;
    // A damaged or forged file is neither merged nor written over unasked, and a side
    // without its records table is damaged, never "every row deleted".
    if (r < 0 || !CanMerge(DB.DBView(), theirs)) {
        DbgPrint(QStringLiteral("User file fails its check, not written: ") + m_path);
        return usDamaged;
    }
    if (!(m_hasState && IsSibling(theirs, m_base)) && wentBack(theirs.SaveNum)) {
        m_olderNum = theirs.SaveNum;
        return usOlderFile;
    }
    int result = usSaved;
    if (changed) {
        DatabaseRecord merged = DB.DBView();
        logMerge(MergeVersions(m_path, ReadKey, merged, &m_base, theirs, QDate::currentDate()));
        DB.ReplaceDB(std::move(merged));
        // Memory now holds the file's version: should the write fail, the next save
        // starts from it and merges nothing twice.
        SetState(theirs, id);
        result = usMerged;
    }
    const int w = writeLocked(DB, WriteKey);
    return w < 0 ? w : result;
}

bool clsUserFile::FileChecksOut(const clsDatabase& DB) {
    TRACE_PROC("clsUserFile.FileChecksOut", m_path);
    if (m_hasState && FileUnchanged(m_path, m_id))
        return true;
    DatabaseRecord file;
    clsFileIdentity id;
    const int r = Read(m_path, m_key, file, id, DB.DBView().Key);
    return r == tbeOk && CanMerge(file, file);
}

int clsUserFile::Refresh(clsDatabase& DB) {
    TRACE_PROC("clsUserFile.Refresh", m_path);
    HeldLock lock(m_lock);
    if (!lock.Ok())
        return lock.Failure();
    if (m_hasState && FileUnchanged(m_path, m_id))
        return usUnchanged;
    DatabaseRecord theirs;
    clsFileIdentity id;
    const int r = readTheirs(m_key, true, DB, theirs, id);
    if (r == tbeNoFile)
        return usFileDeleted;
    if (r == tbeBadKey)
        return usKeyChanged;
    if (r == tbeIoError)
        return usWriteFailed;
    if (r < 0 || !CanMerge(DB.DBView(), theirs))
        return usDamaged;
    if (!(m_hasState && IsSibling(theirs, m_base)) && wentBack(theirs.SaveNum)) {
        m_olderNum = theirs.SaveNum;
        return usOlderFile;
    }
    noteRead(theirs.SaveNum);
    m_olderNum.reset();
    // A version that does not descend from ours (another machine's, put in place by a sync
    // engine) is merged even without unsaved changes: ours would be lost in a reload.
    if (m_hasState && (HasUnsavedChanges(DB.DBView()) || IsSibling(theirs, m_base))) {
        DatabaseRecord merged = DB.DBView();
        logMerge(MergeVersions(m_path, m_key, merged, &m_base, theirs, QDate::currentDate()));
        DB.ReplaceDB(std::move(merged));
    } else {
        DB.ReplaceDB(theirs);
    }
    SetState(theirs, id);
    return usTakenIn;
}
