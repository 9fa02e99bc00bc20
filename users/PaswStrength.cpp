#include "users/PaswStrength.h"

#include "diagnostics/Trace.h"

#include <QByteArray>

#include <sodium.h>
#include <zxcvbn.h>

#include <cmath>
#include <vector>

namespace {
void wipe(QByteArray& b) {
    sodium_memzero(b.data(), static_cast<std::size_t>(b.size()));
}
} // namespace

PaswStrengthLevel PaswLevelOfBits(double Bits) {
    if (Bits < 40)
        return pslVeryWeak;
    if (Bits < 52)
        return pslWeak;
    if (Bits < kWeakPaswBits)
        return pslFair;
    return Bits < 80 ? pslStrong : pslVeryStrong;
}

double PaswEntropyBits(const char* Utf8) {
    return *Utf8 ? ZxcvbnMatch(Utf8, nullptr, nullptr) : 0.0;
}

PaswStrength EstimatePaswStrength(const QString& Pasw, const QStringList& UserWords) {
    TRACE_PROC("modMain.EstimatePaswStrength", HIDDEN(Pasw));
    PaswStrength s;
    // The estimator's work grows with the length; more characters only add strength, so
    // the first 256 give a lower bound that keeps the meter quick on every key.
    QByteArray utf8 = Pasw.left(256).toUtf8();
    std::vector<QByteArray> words;
    std::vector<const char*> dict;
    for (const QString& w : UserWords)
        if (!w.trimmed().isEmpty())
            words.push_back(w.trimmed().toUtf8());
    for (const QByteArray& w : words)
        dict.push_back(w.constData());
    dict.push_back(nullptr);
    s.Bits = utf8.isEmpty() ? 0.0 : ZxcvbnMatch(utf8.constData(), dict.data(), nullptr);
    wipe(utf8);

    // Half of the guesses on average; 2^(Bits-1) / rate.
    s.Seconds = std::exp2(std::max(0.0, s.Bits - 1.0)) / kGuessesPerSecond;
    s.Weak = s.Bits < kWeakPaswBits;
    s.Level = PaswLevelOfBits(s.Bits);

    constexpr double minute = 60, hour = 3600, day = 86400, year = 365.25 * 86400;
    const double t = s.Seconds;
    auto set = [&s](GuessTimeUnit u, double v) {
        s.Unit = u;
        s.Amount = std::max(1LL, std::llround(v));
    };
    if (t < 1)
        s.Unit = gtuInstant;
    else if (t < minute)
        set(gtuSeconds, t);
    else if (t < hour)
        set(gtuMinutes, t / minute);
    else if (t < day)
        set(gtuHours, t / hour);
    else if (t < year)
        set(gtuDays, t / day);
    else if (t < 1000 * year)
        set(gtuYears, t / year);
    else
        s.Unit = gtuAges;
    return s;
}

QString GuessTimeEnglish(const PaswStrength& S) {
    const auto n = [&S](const char* unit) {
        return QStringLiteral("about %1 %2%3")
            .arg(S.Amount)
            .arg(QLatin1String(unit))
            .arg(S.Amount == 1 ? "" : "s");
    };
    QString span;
    switch (S.Unit) {
    case gtuInstant:
        span = QStringLiteral("less than a second");
        break;
    case gtuSeconds:
        span = n("second");
        break;
    case gtuMinutes:
        span = n("minute");
        break;
    case gtuHours:
        span = n("hour");
        break;
    case gtuDays:
        span = n("day");
        break;
    case gtuYears:
        span = n("year");
        break;
    case gtuAges:
        span = QStringLiteral("more than a thousand years");
        break;
    }
    return QStringLiteral("would take %1 to guess offline").arg(span);
}
