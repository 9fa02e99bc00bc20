#pragma once

// RC4 component: enciphers and deciphers whole files with a key. The outer layer of
// every user file; it carries no salt or nonce, so one key and one input always give
// the same bytes.

#include "storage/FileIdentity.h"

#include <QByteArray>
#include <QString>

#include <cstdint>

class Rc4 {
public:
    // Key schedule over the key's bytes (any length from 1; bytes past 256 have no effect).
    explicit Rc4(const QByteArray& Key);
    ~Rc4();
    Rc4(const Rc4&) = delete;
    Rc4& operator=(const Rc4&) = delete;
    // XORs the next Len bytes of the key stream into Data.
    void Apply(char* Data, qsizetype Len);

private:
    std::uint8_t m_s[256];
    std::uint8_t m_i = 0;
    std::uint8_t m_j = 0;
};

// Enciphers InPath into OutPath with the key's UTF-8 bytes. InPath and OutPath may be the
// same file: the output is written beside the target and renamed over it when complete,
// so OutPath holds either its old or its new content, never a part (mode 0600).
// Flag: replace an existing OutPath; without it an existing OutPath is error 58.
// Returns false when InPath cannot be read or OutPath cannot be written (a full disk):
// OutPath then keeps what it held.
bool EncryptFile(const QString& InPath, const QString& OutPath, bool Flag, const QString& Key);
// EncryptFile that also gives the identity of the file it wrote (see FileIdentity.h), from
// the bytes written and the synced file, without reading it back. An identity with
// Exists false when that could not be had.
bool EncryptFile(const QString& InPath, const QString& OutPath, bool Flag, const QString& Key,
                 clsFileIdentity& Written);
// RC4 is its own inverse: the same as EncryptFile.
bool DecryptFile(const QString& InPath, const QString& OutPath, bool Flag, const QString& Key);
// DecryptFile that also gives the identity (size, time, inode, digest) of exactly the
// bytes it deciphered, read once.
bool DecryptFile(const QString& InPath, const QString& OutPath, bool Flag, const QString& Key,
                 clsFileIdentity& Id);
