#include "diagnostics/ErrorTrap.h"
#include "diagnostics/Globals.h"
#include "records/PaswGenerator.h"
#include "tests/common/TestMain.h"

#include <QSet>
#include <QTest>

#include <cmath>
#include <vector>

namespace {

// A source that hands out the given draws in order.
struct Script {
    std::vector<float> draws;
    std::size_t used = 0;
    float operator()() { return draws.at(used++); }
};

} // namespace

class GeneratorTest : public QObject {
    Q_OBJECT
private slots:
    // Draw order and thresholds: one draw for the kind, a letter then one for its case
    // and one for the letter, a digit one more; 0.3 and 0.5 themselves go to digits and
    // lower case; the highest draw still gives Y, y and 8.
    void drawOrderAndBounds() {
        const float belowOne = std::nextafter(1.0f, 0.0f);
        const float justAbove03 = std::nextafter(0.3f, 1.0f);
        const float justAbove05 = std::nextafter(0.5f, 1.0f);
        Script s{{0.9f, 0.9f, 0.0f, 0.1f, 0.5f, 0.3f, belowOne, justAbove03, 0.5f, belowOne, justAbove03,
                  justAbove05, belowOne, 0.0f, 0.0f}};
        QCOMPARE(BuildPassword(6, std::ref(s)), QStringLiteral("A48yY0"));
        QCOMPARE(s.used, s.draws.size());
        // The 24-bit draws of the real generator reach 1 - 2^-24 at most.
        Script top{{belowOne, belowOne, 1.0f - 1.0f / 16777216.0f}};
        QCOMPARE(BuildPassword(1, std::ref(top)), QStringLiteral("Y"));
    }

    void statisticsOverManyCharacters() {
        const int n = 100000;
        const QString p = GeneratePassword(n);
        QCOMPARE(p.size(), n);
        int digits = 0, upper = 0, lower = 0;
        QSet<QChar> seen;
        for (QChar c : p) {
            seen.insert(c);
            if (c >= u'0' && c <= u'8')
                ++digits;
            else if (c >= u'A' && c <= u'Y')
                ++upper;
            else if (c >= u'a' && c <= u'y')
                ++lower;
            else
                QFAIL(qPrintable(QStringLiteral("unexpected character %1").arg(c)));
        }
        // Binomial standard deviations are about 0.15 %; allow about seven of them.
        QVERIFY2(std::abs(digits / double(n) - 0.30) < 0.01, qPrintable(QString::number(digits)));
        QVERIFY2(std::abs(upper / double(n) - 0.35) < 0.01, qPrintable(QString::number(upper)));
        QVERIFY2(std::abs(lower / double(n) - 0.35) < 0.01, qPrintable(QString::number(lower)));
        // Every allowed character occurs, and each about as often as the others of its kind.
        QCOMPARE(seen.size(), 9 + 25 + 25);
        for (QChar c : {QChar(u'0'), QChar(u'8'), QChar(u'A'), QChar(u'Y'), QChar(u'a'), QChar(u'y')}) {
            const double share = p.count(c) / double(n);
            const double expected = c.isDigit() ? 0.30 / 9 : 0.35 / 25;
            QVERIFY2(std::abs(share - expected) < expected * 0.2, qPrintable(QString(c)));
        }
    }

    void twoCallsInOneSecondDiffer() {
        QCOMPARE(GeneratePassword(0), QString());
        QSet<QString> seen;
        for (int i = 0; i < 50; ++i)
            seen.insert(GeneratePassword(16));
        QCOMPARE(seen.size(), 50);
        // The seeded source gives exact 24-bit draws, the same for the same key.
        unsigned char key[32] = {1, 2, 3};
        PaswRandom a, b;
        a.Seed(key);
        b.Seed(key);
        for (int i = 0; i < 20000; ++i) {
            const double x = a.Next();
            QCOMPARE(x, b.Next());
            QVERIFY(x >= 0 && x < 1 && std::ldexp(x, 24) == std::floor(std::ldexp(x, 24)));
        }
    }

    void lengthFieldRules_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("length");
        for (auto [text, length] : {std::pair{"12abc", 12},
                                    {"2.5", 2},
                                    {"3.5", 4},
                                    {" 16", 16},
                                    {"0.9", 0},
                                    {"-3", 0},
                                    {"", 0},
                                    {"abc", 0},
                                    {"99999999999", -1}})
            QTest::newRow(text) << QString::fromLatin1(text) << length;
    }
    void lengthFieldRules() {
        QFETCH(QString, text);
        QFETCH(int, length);
        if (length < 0) {
            QVERIFY_THROWS_EXCEPTION(VbError, PaswLengthFromText(text));
            argent::diag::clearSnapshot();
        } else {
            QCOMPARE(PaswLengthFromText(text), length);
        }
        for (char c : QByteArray("0123456789.%'\b"))
            QVERIFY(PaswLengthKeyAllowed(c));
        for (char c : QByteArray("a-+ Z,e"))
            QVERIFY(!PaswLengthKeyAllowed(c));
    }

    void lastPasswordStaysOutOfReports() {
        LastGenPasw = QStringLiteral("Sekr3tValue");
        const QString dump = DumpGlobals();
        QVERIFY(dump.contains(QStringLiteral("LastGenPasw")));
        QVERIFY(!dump.contains(QStringLiteral("Sekr3tValue")));
        LastGenPasw.clear();
    }
};
ARGENT_TEST(GeneratorTest)

#include "tst_generator.moc"
