#include "tests/common/TestMain.h"
#include "users/PaswStrength.h"
#include "users/UserName.h"

#include <QTest>

class StrengthTest : public QObject {
    Q_OBJECT
private slots:
    // The estimate grows with what an attacker would have to try, and names the time.
    void estimateOrdersPasswords() {
        const QStringList ordered{"12345678", "SampleUser1", "Tr0ub4dor&3", "correct horse battery staple"};
        double last = -1;
        for (const QString& p : ordered) {
            const PaswStrength s = EstimatePaswStrength(p);
            QVERIFY2(s.Bits > last, qPrintable(p));
            last = s.Bits;
        }
        const PaswStrength weak = EstimatePaswStrength("12345678");
        QVERIFY(weak.Weak);
        QCOMPARE(weak.Unit, gtuInstant);
        QCOMPARE(GuessTimeEnglish(weak), QStringLiteral("would take less than a second to guess offline"));
        const PaswStrength strong = EstimatePaswStrength("correct horse battery staple");
        QVERIFY(!strong.Weak);
        QVERIFY(strong.Level >= pslStrong);
        // The user's own name in the password makes it weaker.
        QVERIFY(EstimatePaswStrength("anna.kowalski77", {"anna.kowalski"}).Bits <
                EstimatePaswStrength("anna.kowalski77").Bits);
    }

    void userNames_data() {
        QTest::addColumn<QString>("name");
        QTest::addColumn<bool>("valid");
        QTest::newRow("plain") << "anna" << true;
        QTest::newRow("blank inside") << "Anna K" << true;
        QTest::newRow("dots inside") << "a..b" << true;
        QTest::newRow("slash") << "a/b" << false;
        QTest::newRow("escape") << "../x" << false;
        QTest::newRow("dot") << "." << false;
        QTest::newRow("dot dot") << ".." << false;
        QTest::newRow("blanks") << "   " << false;
        QTest::newRow("nul") << QString("a") + QChar(0) + "b" << false;
        QTest::newRow("line break") << "anna\nk" << false;
        QTest::newRow("carriage return") << "anna\r" << false;
        QTest::newRow("tab") << "a\tb" << false;
        QTest::newRow("delete") << "a\x7f" << false;
        QTest::newRow("next line") << QString("a") + QChar(0x85) << false;
        QTest::newRow("line separator") << QString("a") + QChar(0x2028) << false;
        QTest::newRow("accents") << QString::fromUtf8("Zo\xc3\xab \xc3\x85sa") << true;
        // The longest backup copy's name must still fit 255 bytes.
        const int most = MaxUserNameBytes();
        QVERIFY(most + QByteArray("_2147483647.bdb.BACKUP").size() <= 255);
        QTest::newRow("longest") << QString(most, 'n') << true;
        QTest::newRow("one byte too many") << QString(most + 1, 'n') << false;
        QTest::newRow("two-byte letters, too many bytes") << QString(most / 2 + 1, QChar(0x0436)) << false;
        QTest::newRow("300 characters") << QString(300, 'n') << false;
    }
    void userNames() {
        QFETCH(QString, name);
        QFETCH(bool, valid);
        QCOMPARE(IsValidUserName(name), valid);
    }
};
ARGENT_TEST(StrengthTest)

#include "tst_strength.moc"
