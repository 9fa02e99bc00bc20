#pragma once

// How long a master password would hold out against someone who has the user's file.
//
// The outer layer of the file lets an attacker test a guess with 21 MD5 rounds and a
// short RC4 run: a few graphics cards try about ten billion guesses a second. The
// estimate takes the password's entropy from libzxcvbn (dictionaries, keyboard walks,
// dates, repeats, the user's own name), assumes the attacker finds it after trying half
// the guesses of that entropy, and divides by that rate. Below kWeakPaswBits (64 bits:
// about 30 years at that rate) the password counts as weak and both the window and
// argentpm warn; the 8-character rule stays the only refusal.

#include <QString>
#include <QStringList>

constexpr double kGuessesPerSecond = 1e10;
constexpr double kWeakPaswBits = 64.0;

enum PaswStrengthLevel { pslVeryWeak = 0, pslWeak, pslFair, pslStrong, pslVeryStrong };

// The time units of an estimate, from "less than a second" to "more than a thousand years".
enum GuessTimeUnit { gtuInstant = 0, gtuSeconds, gtuMinutes, gtuHours, gtuDays, gtuYears, gtuAges };

struct PaswStrength {
    double Bits = 0;    // entropy as libzxcvbn estimates it
    double Seconds = 0; // average time to guess offline at kGuessesPerSecond
    int Level = pslVeryWeak;
    bool Weak = true; // below kWeakPaswBits
    GuessTimeUnit Unit = gtuInstant;
    long long Amount = 0; // how many of Unit (rounded)
};

// The level of an estimate of Bits of entropy, as the meter shows it.
PaswStrengthLevel PaswLevelOfBits(double Bits);
// The estimator's entropy of a password given as UTF-8 (null-terminated).
double PaswEntropyBits(const char* Utf8);

// UserWords: words that make a password weaker when it contains them (the user name).
PaswStrength EstimatePaswStrength(const QString& Pasw, const QStringList& UserWords = {});
// The estimate in English words, for argentpm: "would take about 3 hours to guess offline".
QString GuessTimeEnglish(const PaswStrength& S);
