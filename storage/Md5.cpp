#include "storage/Md5.h"

#include "diagnostics/Trace.h"

#include <sodium.h>

#include <cstring>

namespace {

inline std::uint32_t rotl(std::uint32_t x, int c) {
    return (x << c) | (x >> (32 - c));
}

// Per-round shift amounts and the sine table of RFC 1321 section 3.4.
constexpr int kShift[64] = {7, 12, 17, 22, 7, 12, 17, 22, 7, 12, 17, 22, 7, 12, 17, 22,
                            5, 9,  14, 20, 5, 9,  14, 20, 5, 9,  14, 20, 5, 9,  14, 20,
                            4, 11, 16, 23, 4, 11, 16, 23, 4, 11, 16, 23, 4, 11, 16, 23,
                            6, 10, 15, 21, 6, 10, 15, 21, 6, 10, 15, 21, 6, 10, 15, 21};

constexpr std::uint32_t kSine[64] = {
    0xd76aa478, 0xe8c7b756, 0x242070db, 0xc1bdceee, 0xf57c0faf, 0x4787c62a, 0xa8304613, 0xfd469501,
    0x698098d8, 0x8b44f7af, 0xffff5bb1, 0x895cd7be, 0x6b901122, 0xfd987193, 0xa679438e, 0x49b40821,
    0xf61e2562, 0xc040b340, 0x265e5a51, 0xe9b6c7aa, 0xd62f105d, 0x02441453, 0xd8a1e681, 0xe7d3fbc8,
    0x21e1cde6, 0xc33707d6, 0xf4d50d87, 0x455a14ed, 0xa9e3e905, 0xfcefa3f8, 0x676f02d9, 0x8d2a4c8a,
    0xfffa3942, 0x8771f681, 0x6d9d6122, 0xfde5380c, 0xa4beea44, 0x4bdecfa9, 0xf6bb4b60, 0xbebfbc70,
    0x289b7ec6, 0xeaa127fa, 0xd4ef3085, 0x04881d05, 0xd9d4d039, 0xe6db99e5, 0x1fa27cf8, 0xc4ac5665,
    0xf4292244, 0x432aff97, 0xab9423a7, 0xfc93a039, 0x655b59c3, 0x8f0ccc92, 0xffeff47d, 0x85845dd1,
    0x6fa87e4f, 0xfe2ce6e0, 0xa3014314, 0x4e0811a1, 0xf7537e82, 0xbd3af235, 0x2ad7d2bb, 0xeb86d391};

} // namespace

Md5::Md5() : m_state{0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476} {
    TRACE_PROC("clsMD5.Class_Initialize");
}

Md5::~Md5() {
    // The state follows the text it digested, which is often a password.
    sodium_memzero(m_state, sizeof m_state);
    sodium_memzero(m_buf, sizeof m_buf);
}

// The compression of one 64-byte block: the inner loop of Update, not traced.
void Md5::Transform(const std::uint8_t* Block) {
    std::uint32_t w[16];
    for (int i = 0; i < 16; ++i)
        w[i] = static_cast<std::uint32_t>(Block[i * 4]) | static_cast<std::uint32_t>(Block[i * 4 + 1]) << 8 |
               static_cast<std::uint32_t>(Block[i * 4 + 2]) << 16 |
               static_cast<std::uint32_t>(Block[i * 4 + 3]) << 24;
    std::uint32_t a = m_state[0], b = m_state[1], c = m_state[2], d = m_state[3];
    for (int i = 0; i < 64; ++i) {
        std::uint32_t f;
        int g;
        if (i < 16) {
            f = (b & c) | (~b & d);
            g = i;
        } else if (i < 32) {
            f = (d & b) | (~d & c);
            g = (5 * i + 1) % 16;
        } else if (i < 48) {
            f = b ^ c ^ d;
            g = (3 * i + 5) % 16;
        } else {
            f = c ^ (b | ~d);
            g = (7 * i) % 16;
        }
        const std::uint32_t t = d;
        d = c;
        c = b;
        b = b + rotl(a + f + kSine[i] + w[g], kShift[i]);
        a = t;
    }
    m_state[0] += a;
    m_state[1] += b;
    m_state[2] += c;
    m_state[3] += d;
    sodium_memzero(w, sizeof w);
}

void Md5::Update(const void* Data, std::size_t Len) {
    TRACE_PROC("clsMD5.Update", static_cast<long long>(Len));
    const auto* p = static_cast<const std::uint8_t*>(Data);
    std::size_t used = static_cast<std::size_t>(m_bytes % 64);
    m_bytes += Len;
    if (used) {
        const std::size_t take = std::min(Len, 64 - used);
        std::memcpy(m_buf + used, p, take);
        p += take;
        Len -= take;
        used += take;
        if (used < 64)
            return;
        Transform(m_buf);
    }
    while (Len >= 64) {
        Transform(p);
        p += 64;
        Len -= 64;
    }
    if (Len)
        std::memcpy(m_buf, p, Len);
}

std::array<std::uint8_t, 16> Md5::Final() {
    TRACE_PROC("clsMD5.Final");
    const std::uint64_t bits = m_bytes * 8;
    static const std::uint8_t pad[64] = {0x80};
    const std::size_t used = static_cast<std::size_t>(m_bytes % 64);
    Update(pad, used < 56 ? 56 - used : 120 - used);
    std::uint8_t len[8];
    for (int i = 0; i < 8; ++i)
        len[i] = static_cast<std::uint8_t>(bits >> (8 * i));
    Update(len, 8);
    std::array<std::uint8_t, 16> out;
    for (int i = 0; i < 4; ++i)
        for (int k = 0; k < 4; ++k)
            out[i * 4 + k] = static_cast<std::uint8_t>(m_state[i] >> (8 * k));
    return out;
}

QByteArray Md5Digest(const QByteArray& Data) {
    TRACE_PROC("clsMD5.Md5Digest", HIDDEN(Data));
    Md5 h;
    h.Update(Data.constData(), static_cast<std::size_t>(Data.size()));
    const auto d = h.Final();
    return QByteArray(reinterpret_cast<const char*>(d.data()), 16);
}

QString HashString(const QString& Str) {
    TRACE_PROC("clsMD5.HashString", HIDDEN(Str));
    QByteArray bytes = Str.toUtf8();
    Md5 h;
    h.Update(bytes.constData(), static_cast<std::size_t>(bytes.size()));
    sodium_memzero(bytes.data(), static_cast<std::size_t>(bytes.size()));
    auto d = h.Final();
    static const char hex[] = "0123456789abcdef";
    QString out(32, Qt::Uninitialized);
    for (int i = 0; i < 16; ++i) {
        out[i * 2] = QLatin1Char(hex[d[i] >> 4]);
        out[i * 2 + 1] = QLatin1Char(hex[d[i] & 15]);
    }
    sodium_memzero(d.data(), d.size());
    return out;
}
