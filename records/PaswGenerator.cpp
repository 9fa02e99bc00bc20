#include "records/PaswGenerator.h"

#include "app/VbConv.h"
#include "diagnostics/ErrorTrap.h"
#include "diagnostics/Globals.h"
#include "diagnostics/Trace.h"

#include <QTime>

#include <sodium.h>

#include <cstring>

QString LastGenPasw;

namespace {
const bool g_registered = [] {
    argent::diag::registerGlobalHidden("LastGenPasw");
    argent::diag::registerModuleHidden("modMain", "LastGenPasw");
    return true;
}();

const unsigned char kNonce[crypto_stream_chacha20_NONCEBYTES] = {'A', 'r', 'g', 'e', 'n', 't', 'P', 'G'};
} // namespace

PaswRandom::PaswRandom() {
    std::memset(m_key, 0, sizeof(m_key));
}

PaswRandom::~PaswRandom() {
    sodium_memzero(m_key, sizeof(m_key));
    sodium_memzero(m_buf, sizeof(m_buf));
}

void PaswRandom::Randomize() {
    TRACE_PROC("modMain.Randomize");
    if (sodium_init() < 0)
        RaiseError(vbErrInvalidCall, QStringLiteral("The random number source is unavailable"));
    unsigned char fresh[32];
    randombytes_buf(fresh, sizeof(fresh));
    // The time of day goes in as well, as it always has; the CSPRNG carries the strength.
    const float seconds = static_cast<float>(QTime::currentTime().msecsSinceStartOfDay()) / 1000.0f;
    crypto_generichash_state st;
    crypto_generichash_init(&st, nullptr, 0, sizeof(m_key));
    crypto_generichash_update(&st, fresh, sizeof(fresh));
    crypto_generichash_update(&st, reinterpret_cast<const unsigned char*>(&seconds), sizeof(seconds));
    crypto_generichash_final(&st, m_key, sizeof(m_key));
    sodium_memzero(fresh, sizeof(fresh));
    sodium_memzero(&st, sizeof(st));
    m_block = 0;
    m_pos = sizeof(m_buf);
}

void PaswRandom::Seed(const unsigned char (&Key)[32]) {
    std::memcpy(m_key, Key, sizeof(m_key));
    m_block = 0;
    m_pos = sizeof(m_buf);
}

void PaswRandom::Refill() {
    std::memset(m_buf, 0, sizeof(m_buf));
    crypto_stream_chacha20_xor_ic(m_buf, m_buf, sizeof(m_buf), kNonce, m_block, m_key);
    m_block += sizeof(m_buf) / 64;
    m_pos = 0;
}

float PaswRandom::Next() {
    if (m_pos + 3 > sizeof(m_buf))
        Refill();
    const std::uint32_t k = static_cast<std::uint32_t>(m_buf[m_pos]) |
                            (static_cast<std::uint32_t>(m_buf[m_pos + 1]) << 8) |
                            (static_cast<std::uint32_t>(m_buf[m_pos + 2]) << 16);
    m_pos += 3;
    return static_cast<float>(k) * (1.0f / 16777216.0f);
}

QString GeneratePassword(int Lenght) {
    TRACE_PROC("modMain.GeneratePassword", Lenght);
    if (Lenght < 1)
        return QString();
    PaswRandom rnd;
    rnd.Randomize();
    return BuildPassword(Lenght, [&rnd] { return rnd.Next(); });
}

int PaswLengthFromText(const QString& Text) {
    TRACE_PROC("modMain.PaswLengthFromText", Text);
    const double v = Val(Text);
    TRACE_LOCAL(v);
    if (v < 1.0)
        return 0;
    return CLng(v);
}

bool PaswLengthKeyAllowed(int KeyAscii) {
    if (KeyAscii >= '0' && KeyAscii <= '9')
        return true;
    return KeyAscii == 8 || KeyAscii == 37 || KeyAscii == 39 || KeyAscii == 46;
}
