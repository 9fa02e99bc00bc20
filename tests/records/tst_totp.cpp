// One-time codes: RFC 6238's own test vectors, oathtool for random seeds, algorithms,
// digits, periods and times, the Steam variant, and the seeds a user pastes.

#include "records/Totp.h"
#include "tests/common/TestMain.h"

#include <QProcess>
#include <QRandomGenerator>
#include <QStandardPaths>
#include <QTest>

class TotpTest : public QObject {
    Q_OBJECT

private slots:
    // RFC 6238, appendix B: eight digits, period 30, the three algorithms.
    void rfcVectors() {
        const QByteArray seed20("12345678901234567890");
        const struct {
            TotpParams::Algorithm Algo;
            QByteArray Secret;
            const char* Codes[6];
        } cases[] = {
            {TotpParams::Sha1,
             seed20,
             {"94287082", "07081804", "14050471", "89005924", "69279037", "65353130"}},
            {TotpParams::Sha256,
             seed20 + "123456789012",
             {"46119246", "68084774", "67062674", "91819424", "90698825", "77737706"}},
            {TotpParams::Sha512,
             seed20 + seed20 + seed20 + "1234",
             {"90693936", "25091201", "99943326", "93441116", "38618901", "47863826"}},
        };
        const qint64 times[] = {59, 1111111109, 1111111111, 1234567890, 2000000000, 20000000000LL};
        for (const auto& c : cases) {
            TotpParams p;
            p.Algo = c.Algo;
            p.Secret = c.Secret;
            p.Digits = 8;
            for (int i = 0; i < 6; ++i)
                QCOMPARE(TotpCode(p, times[i]), QString::fromLatin1(c.Codes[i]));
            // The same seed given as a URI reads to the same code.
            TotpParams fromUri;
            static const char* const names[] = {"SHA1", "SHA256", "SHA512"};
            QVERIFY(ParseTotp(QStringLiteral("otpauth://totp/ACME:anna?secret=%1&algorithm=%2&digits=8")
                                  .arg(TotpBase32Encode(c.Secret), QLatin1String(names[c.Algo])),
                              fromUri));
            QCOMPARE(TotpCode(fromUri, times[3]), QString::fromLatin1(c.Codes[3]));
            QCOMPARE(fromUri.Issuer, QString("ACME"));
            QCOMPARE(fromUri.Account, QString("anna"));
        }
    }

    // Random seeds, algorithms, digits, periods and times against oathtool.
    void againstOathtool() {
        const QString tool = QStandardPaths::findExecutable("oathtool");
        if (tool.isEmpty())
            QSKIP("oathtool is not installed (apt-get install oathtool)");
        QRandomGenerator rng(6238);
        static const char* const modes[] = {"SHA1", "SHA256", "SHA512"};
        for (int i = 0; i < 40; ++i) {
            TotpParams p;
            p.Secret.resize(10 + rng.bounded(40));
            for (char& b : p.Secret)
                b = static_cast<char>(rng.bounded(256));
            p.Algo = static_cast<TotpParams::Algorithm>(rng.bounded(3));
            p.Digits = 6 + rng.bounded(3); // oathtool makes 6 to 8
            p.Period = i % 4 == 0 ? 30 : 1 + rng.bounded(120);
            const qint64 t = rng.bounded(4000000000LL);
            // The URI the record keeps reads back to the same parameters.
            TotpParams back;
            QVERIFY(ParseTotp(TotpUri(p), back));
            QCOMPARE(back.Secret, p.Secret);
            QCOMPARE(back.Period, p.Period);
            QProcess proc;
            proc.start(tool, {QStringLiteral("--totp=%1").arg(modes[p.Algo]), "--base32", "-d",
                              QString::number(p.Digits), "-s", QStringLiteral("%1s").arg(p.Period), "-N",
                              QStringLiteral("@%1").arg(t), TotpBase32Encode(p.Secret)});
            QVERIFY(proc.waitForFinished(10000));
            const QString expected = QString::fromLatin1(proc.readAllStandardOutput()).trimmed();
            QVERIFY2(!expected.isEmpty(), proc.readAllStandardError().constData());
            QCOMPARE(TotpCode(back, t), expected);
        }
    }

    // Ten digits keep their leading zeros; the seconds left run from the period down to 1.
    void digitsAndSecondsLeft() {
        TotpParams p;
        QVERIFY(ParseTotp("otpauth://totp/x?secret=GEZDGNBVGY3TQOJQGEZDGNBVGY3TQOJQ&digits=10&period=45", p));
        QCOMPARE(p.Digits, 10);
        for (qint64 t : {0LL, 44LL, 45LL, 1234567890LL}) {
            const QString code = TotpCode(p, t);
            QCOMPARE(code.size(), 10);
            QVERIFY(code.toULongLong() < 2147483648ULL);
        }
        QCOMPARE(TotpSecondsLeft(p, 45), 45);
        QCOMPARE(TotpSecondsLeft(p, 89), 1);
        // Two times in one period give one code, the next period another (almost surely).
        QCOMPARE(TotpCode(p, 90), TotpCode(p, 134));
    }

    // Steam: five characters of its alphabet from the SHA-1 code of the same seed.
    void steam() {
        TotpParams s, u;
        QVERIFY(ParseTotp("steam://GEZDGNBVGY3TQOJQGEZDGNBVGY3TQOJQ", s));
        QVERIFY(
            ParseTotp("otpauth://totp/Steam:anna?secret=GEZDGNBVGY3TQOJQGEZDGNBVGY3TQOJQ&encoder=steam", u));
        QVERIFY(s.Steam && u.Steam);
        for (qint64 t = 0; t < 3000; t += 30) {
            const QString code = TotpCode(s, t);
            QCOMPARE(code.size(), 5);
            for (QChar c : code)
                QVERIFY(QStringLiteral("23456789BCDFGHJKMNPQRTVWXY").contains(c));
            QCOMPARE(TotpCode(u, t), code);
        }
        TotpParams back;
        QVERIFY(ParseTotp(TotpUri(s), back));
        QVERIFY(back.Steam);
        QCOMPARE(TotpCode(back, 77), TotpCode(s, 77));
    }

    // What a user pastes: a bare secret with spaces and lower case, and what is refused.
    void pastedSeeds() {
        TotpParams p;
        QVERIFY(ParseTotp("  jbsw y3dp ehpk 3pxp ", p));
        QCOMPARE(p.Secret, QByteArray("Hello!\xde\xad\xbe\xef"));
        QCOMPARE(p.Digits, 6);
        QCOMPARE(p.Period, 30);
        QString why;
        for (const char* bad :
             {"", "not base32!", "otpauth://hotp/x?secret=JBSWY3DPEHPK3PXP",
              "otpauth://totp/x?secret=JBSWY3DPEHPK3PXP&digits=5",
              "otpauth://totp/x?secret=JBSWY3DPEHPK3PXP&digits=11",
              "otpauth://totp/x?secret=JBSWY3DPEHPK3PXP&period=0",
              "otpauth://totp/x?secret=JBSWY3DPEHPK3PXP&algorithm=MD5", "otpauth://totp/x"}) {
            why.clear();
            QVERIFY2(!ParseTotp(QString::fromLatin1(bad), p, &why), bad);
            QVERIFY(!why.isEmpty());
        }
    }
};

ARGENT_TEST(TotpTest)
#include "tst_totp.moc"
