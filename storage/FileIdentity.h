#pragma once

// What a program that keeps a user open knows of the file it last read or wrote: size,
// modification time, inode and a digest of the bytes. Any writer's replacement changes
// at least the inode and the digest, so a differing identity means "changed elsewhere".
//
// A sealed user file needs no hash of every byte: its head holds a nonce drawn anew for
// every save and its end the tag that authenticates everything between, so its size and
// its ends name one save as surely (a file whose middle changed under the same ends does
// not open, and is no one's save). Such an identity is Sealed; taking it again reads the
// ends only, and a reading or a save of a large user file does not hash it whole.

#include <QByteArray>
#include <QString>

struct clsFileIdentity {
    bool Exists = false;
    qint64 Size = 0;
    qint64 MTimeNs = 0;
    quint64 Inode = 0;
    QByteArray Digest; // BLAKE2b-256 of the whole file, or of its size and ends (Sealed)
    bool Sealed = false;
    // Not part of the identity, for the quick check only: the change time (no program can
    // set it; a rename alone moves it on) and the wall clock when the identity was taken.
    qint64 CTimeNs = 0;
    qint64 TakenNs = 0;

    bool operator==(const clsFileIdentity& O) const {
        return Exists == O.Exists && Size == O.Size && MTimeNs == O.MTimeNs && Inode == O.Inode &&
               Digest == O.Digest;
    }
};

// The bytes of a sealed file's ends that its digest covers, each way.
inline constexpr qsizetype kSealedDigestEnds = 256;

// The digest of Size bytes at Data as an identity keeps it (Sealed: size and ends only).
QByteArray FileDigest(const char* Data, qsizetype Size, bool Sealed);
// The identity of the file at Path now; Exists false when there is no file to read.
// Sealed reads the file's ends only.
clsFileIdentity ReadFileIdentity(const QString& Path, bool Sealed = false);
// True when the file at Path is still the one Known describes. A stat decides when size,
// time, inode and change time all agree and the change time is far enough before the
// moment Known was taken that no write since could have left it as it was (coarse time
// stamps, as on FAT, need seconds). Otherwise the bytes are read and hashed (as Known
// was: whole, or the ends of a sealed file); when they
// agree, Known takes the new change time and moment, so the next check is a stat alone.
// Exists, when given, tells whether there is a file at Path.
bool FileUnchanged(const QString& Path, clsFileIdentity& Known, bool* Exists = nullptr);
// Reads the whole file and its identity from one open file, so the two always agree.
// False when there is no file or it cannot be read (Id.Exists tells which).
bool ReadFileWithIdentity(const QString& Path, QByteArray& Bytes, clsFileIdentity& Id, bool Sealed = false);
