#pragma once

// MD5 (RFC 1321), our own small implementation. It only feeds the key chain of user
// files (GetTruePasw); nothing relies on it as a password hash of its own.

#include <QByteArray>
#include <QString>

#include <array>
#include <cstddef>
#include <cstdint>

class Md5 {
public:
    Md5();
    ~Md5();
    Md5(const Md5&) = delete;
    Md5& operator=(const Md5&) = delete;
    void Update(const void* Data, std::size_t Len);
    // Finishes the digest; the object must not be updated afterwards.
    std::array<std::uint8_t, 16> Final();

private:
    void Transform(const std::uint8_t* Block);
    std::uint32_t m_state[4];
    std::uint64_t m_bytes = 0;
    std::uint8_t m_buf[64];
};

// The 16-byte digest of the bytes.
QByteArray Md5Digest(const QByteArray& Data);

// MD5 component: the digest of the text's UTF-8 bytes as 32 lower-case hexadecimal digits.
QString HashString(const QString& Str);
