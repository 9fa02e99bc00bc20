#pragma once

// The password generator: random passwords of digits and Latin letters.
//
// Each position takes one draw r1 from a uniform generator on [0, 1) (single precision):
// above 0.3 it is a letter, a second draw above 0.5 choosing upper case, and a third
// draw r3 giving the letter Int(r3 * 25 + 65) or Int(r3 * 25 + 97); otherwise it is the
// digit Int(r2 * 9 + 48) of a second draw. So about 30 % digits 0-8 and 35 % each of
// A-Y and a-y; 9, Z and z never occur. This is how the program's passwords have always
// looked, and it is kept.
//
// The generator is reseeded at the start of every call, from the system's CSPRNG with
// the time of day mixed in, and streams ChaCha20 output under that seed. Draws are 24-bit
// multiples of 2^-24, exact in single precision; the letter and digit arithmetic is done
// in double so that a draw just below 1 still gives Y, y or 8.

#include <QString>

#include <cstddef>
#include <cstdint>

// The password last generated in the generator dialog. The opener clears it before
// showing the dialog and reads it afterwards (Cancel keeps it).
extern QString LastGenPasw;

// A uniform generator on [0, 1): ChaCha20 keystream under a 32-byte seed.
class PaswRandom {
public:
    PaswRandom();
    ~PaswRandom();
    PaswRandom(const PaswRandom&) = delete;
    PaswRandom& operator=(const PaswRandom&) = delete;

    // A fresh seed: 32 bytes of the system's CSPRNG hashed together with the seconds
    // since midnight.
    void Randomize();
    // A chosen seed (tests, reproducible sequences).
    void Seed(const unsigned char (&Key)[32]);
    // The next draw: k / 2^24 for a uniform 24-bit k.
    float Next();

private:
    void Refill();

    unsigned char m_key[32];
    std::uint64_t m_block = 0; // the next 64-byte block of the keystream
    unsigned char m_buf[3 * 1024];
    std::size_t m_pos = sizeof(m_buf);
};

// The characters of a password of Lenght positions from a source of draws (a callable
// returning float in [0, 1)), in the draw order above. Empty for Lenght < 1.
template <class Draw> QString BuildPassword(int Lenght, Draw&& Rnd) {
    QString out;
    if (Lenght < 1)
        return out;
    out.reserve(Lenght);
    for (int i = 1; i <= Lenght; ++i) {
        const float r1 = Rnd();
        char16_t c;
        if (r1 > 0.3f) {
            const float r2 = Rnd();
            const int base = r2 > 0.5f ? 65 : 97;
            const float r3 = Rnd();
            c = static_cast<char16_t>(static_cast<int>(static_cast<double>(r3) * 25.0) + base);
        } else {
            const float r2 = Rnd();
            c = static_cast<char16_t>(static_cast<int>(static_cast<double>(r2) * 9.0) + 48);
        }
        out.append(QChar(c));
    }
    return out;
}

// A new random password of Lenght characters; "" when Lenght < 1.
QString GeneratePassword(int Lenght);

// ---- what the generator dialog needs --------------------------------------------------

// The length a length field asks for: its leading number, rounded half to even; 0 (do
// nothing) for an empty, non-numeric or below-1 text. Beyond the 32-bit range is error 6.
int PaswLengthFromText(const QString& Text);
// The key filter of the length field: digits, backspace (8) and the codes 37, 39 and 46
// ("%", "'", ".") pass; every other typed character is dropped.
bool PaswLengthKeyAllowed(int KeyAscii);
