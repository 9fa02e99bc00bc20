#include "diagnostics/ErrorTrap.h"
#include "storage/FileSeal.h"
#include "storage/Md5.h"
#include "storage/Rc4.h"
#include "tests/common/TestEnv.h"
#include "tests/common/TestMain.h"

#include <QRandomGenerator>
#include <QTest>

namespace {

QByteArray rc4Of(const QByteArray& key, QByteArray data) {
    Rc4 c(key);
    c.Apply(data.data(), data.size());
    return data;
}

QByteArray randomBytes(qsizetype n, quint32 seed) {
    QByteArray b(n, Qt::Uninitialized);
    QRandomGenerator rng(seed);
    for (char& c : b)
        c = static_cast<char>(rng.bounded(256));
    return b;
}

} // namespace

class CryptoTest : public QObject {
    Q_OBJECT
private slots:
    void md5_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("digest");
        // RFC 1321, appendix A.5.
        QTest::newRow("empty") << ""
                               << "d41d8cd98f00b204e9800998ecf8427e";
        QTest::newRow("abc") << "abc"
                             << "900150983cd24fb0d6963f7d28e17f72";
        QTest::newRow("80 digits")
            << "12345678901234567890123456789012345678901234567890123456789012345678901234567890"
            << "57edf4a22be3c955ac49da2e2107b67a";
        // Text is hashed as UTF-8.
        QTest::newRow("utf-8") << QStringLiteral("Ї") << "b9a064cacae9c8eb5e2ceedfc40eec97";
    }
    void md5() {
        QFETCH(QString, text);
        QFETCH(QString, digest);
        QCOMPARE(HashString(text), digest);
        // Fed in uneven pieces across the padding edges, the digest is the same.
        const QByteArray data = text.toUtf8().repeated(3);
        Md5 h;
        for (qsizetype at = 0, step = 1; at < data.size(); at += step, step = step % 13 + 1)
            h.Update(data.constData() + at, static_cast<std::size_t>(std::min(step, data.size() - at)));
        const auto d = h.Final();
        QCOMPARE(QByteArray(reinterpret_cast<const char*>(d.data()), 16), Md5Digest(data));
    }

    void rc4_data() {
        QTest::addColumn<QByteArray>("key");
        QTest::addColumn<int>("offset");
        QTest::addColumn<QByteArray>("stream");
        // RFC 6229, section 2.
        QTest::newRow("40 bit @0") << QByteArray("0102030405") << 0
                                   << QByteArray("b2396305f03dc027ccc3524a0a1118a8");
        QTest::newRow("40 bit @4096")
            << QByteArray("0102030405") << 4096 << QByteArray("ff25b58995996707e51fbdf08b34d875");
        QTest::newRow("256 bit @240")
            << QByteArray("1ada31d5cf688221c109163908ebe51debb46227c6cc8b37641910833222772a") << 240
            << QByteArray("af3e30f9c095045938151575c3fb9098");
    }
    void rc4() {
        QFETCH(QByteArray, key);
        QFETCH(int, offset);
        QFETCH(QByteArray, stream);
        const QByteArray all = rc4Of(QByteArray::fromHex(key), QByteArray(offset + 16, '\0'));
        QCOMPARE(all.mid(offset).toHex(), stream);
    }

    void fileCipherIsDeterministicAndInPlace() {
        TestEnv env;
        QVERIFY_THROWS_EXCEPTION(VbError, [] { Rc4 empty{QByteArray()}; }());
        // More than one read chunk, so the stream must carry on from call to call.
        const QByteArray plain = randomBytes(2'500'000, 11);
        const QString a = env.root() + "/a.bin", b = env.root() + "/b.bin";
        writeFileText(a, plain);
        QVERIFY(EncryptFile(a, b, true, "file key"));
        QCOMPARE(readAllOf(b), rc4Of("file key", plain));
        QCOMPARE(posixMode(b), 0600);
        // The same input and key give the same bytes: the outer layer adds no salt.
        QVERIFY(EncryptFile(a, a, true, "file key"));
        QCOMPARE(readAllOf(a), readAllOf(b));
        QVERIFY(DecryptFile(a, a, true, "file key"));
        QCOMPARE(readAllOf(a), plain);
    }

    void fileCipherFailuresWriteNothing() {
        TestEnv env;
        const QString in = env.root() + "/in.bin", out = env.root() + "/out.bin";
        writeFileText(out, "keep");
        writeFileText(in, "data");
        QVERIFY(!DecryptFile(env.root() + "/none.bin", out, true, "k"));
        // Without the replace flag an existing target is refused.
        QVERIFY_THROWS_EXCEPTION(VbError, EncryptFile(in, out, false, "k"));
        QVERIFY(!EncryptFile(in, out + "/x", true, "k"));
        QCOMPARE(readAllOf(out), QByteArray("keep"));
    }

    // A sealed body opened block by block behind a layer still coming off (as a reading
    // does while the outer layer's thread runs) gives what the one-shot opening gives, and
    // reads no byte before it is final: bytes past the point made ready are still masked,
    // and reading one would fail the tag.
    void sealOpensBehindALayer_data() {
        QTest::addColumn<int>("bodyLen");
        QTest::addColumn<int>("flipAt"); // a byte of the sealed file changed; -1 none
        for (int n : {0, 1, 63, 64, 65, 256 * 1024 - 1, 256 * 1024, 256 * 1024 + 1, 1024 * 1024 + 17})
            QTest::newRow(qPrintable(QStringLiteral("body of %1").arg(n))) << n << -1;
        QTest::newRow("changed header") << 1000 << 20;
        QTest::newRow("changed body, second block") << 600 * 1024 << 300 * 1024;
        QTest::newRow("changed tag") << 1000 << 15 + kSealHeaderSize + 1000 + 3;
    }
    void sealOpensBehindALayer() {
        QFETCH(int, bodyLen);
        QFETCH(int, flipAt);
        const QByteArray body = randomBytes(bodyLen, static_cast<quint32>(bodyLen) + 7);
        QByteArray sealed = QByteArray("wqpdhxMeM.ENC\r\n") + QByteArray(kSealHeaderSize, '\0') + body;
        KeyCache cache;
        QVERIFY(SealInPlace(sealed, 15, "engine key", false, &cache));
        if (flipAt >= 0)
            sealed[flipAt] = static_cast<char>(sealed[flipAt] ^ 0x40);

        QByteArray oneShot = sealed;
        const int r1 = OpenInPlace(oneShot, 15, "engine key", &cache);

        const QByteArray mask = randomBytes(sealed.size(), 99);
        QByteArray behind = sealed;
        for (qsizetype i = 0; i < behind.size(); ++i)
            behind[i] = static_cast<char>(behind[i] ^ mask[i]);
        qsizetype ready = 0;
        bool backwards = false;
        const BytesReady unmask = [&](qsizetype n) {
            backwards = backwards || n < ready;
            for (; ready < n; ++ready)
                behind[ready] = static_cast<char>(behind[ready] ^ mask[ready]);
        };
        const int r2 = OpenInPlace(behind, 15, "engine key", &cache, unmask);

        QCOMPARE(r2, r1);
        QVERIFY(!backwards);
        QCOMPARE(ready, sealed.size());
        if (flipAt < 0) {
            QCOMPARE(r2, 1);
            QCOMPARE(behind, body);
        } else {
            QCOMPARE(r2, -4);
            QVERIFY(behind.isEmpty());
        }
    }
};

ARGENT_TEST(CryptoTest)
#include "tst_crypto.moc"
