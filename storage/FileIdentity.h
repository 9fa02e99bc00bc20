#pragma once

// What a program that keeps a user open knows of the file it last read or wrote: size,
// modification time, inode and a digest of the bytes. Any writer's replacement changes
// at least the inode and the digest, so a differing identity means "changed elsewhere".

#include <QByteArray>
#include <QString>

struct clsFileIdentity {
    bool Exists = false;
    qint64 Size = 0;
    qint64 MTimeNs = 0;
    quint64 Inode = 0;
    QByteArray Digest; // BLAKE2b-256 of the whole file

    bool operator==(const clsFileIdentity&) const = default;
};

// The identity of the file at Path now; Exists false when there is no file to read.
clsFileIdentity ReadFileIdentity(const QString& Path);
// Reads the whole file and its identity from one open file, so the two always agree.
// False when there is no file or it cannot be read (Id.Exists tells which).
bool ReadFileWithIdentity(const QString& Path, QByteArray& Bytes, clsFileIdentity& Id);
