#include "diagnostics/ErrorTrap.h"
#include "storage/Md5.h"
#include "storage/Rc4.h"
#include "tests/common/TestEnv.h"
#include "tests/common/TestMain.h"

#include <QFile>
#include <QRandomGenerator>
#include <QTest>

namespace {

// RFC 6229, section 2: key stream bytes at 18 offsets for keys of 40, 128 and 256 bits.
struct Rc4Vector {
    const char* key;
    const char* rows; // "offset:hex;" repeated
};
const Rc4Vector kRc4Vectors[] = {
    {"0102030405", "0:b2396305f03dc027ccc3524a0a1118a8;16:6982944f18fc82d589c403a47a0d0919;240:"
                   "28cb1132c96ce286421dcaadb8b69eae;"
                   "256:1cfcf62b03eddb641d77dfcf7f8d8c93;496:42b7d0cdd918a8a33dd51781c81f4041;512:"
                   "6459844432a7da923cfb3eb4980661f6;"
                   "752:ec10327bde2beefd18f9277680457e22;768:eb62638d4f0ba1fe9fca20e05bf8ff2b;1008:"
                   "45129048e6a0ed0b56b490338f078da5;"
                   "1024:30abbcc7c20b01609f23ee2d5f6bb7df;1520:3294f744d8f9790507e70f62e5bbceea;1536:"
                   "d8729db41882259bee4f825325f5a130;"
                   "2032:1eb14a0c13b3bf47fa2a0ba93ad45b8b;2048:cc582f8ba9f265e2b1be9112e975d2d7;3056:"
                   "f2e30f9bd102ecbf75aaade9bc35c43c;"
                   "3072:ec0e11c479dc329dc8da7968fe965681;4080:068326a2118416d21f9d04b2cd1ca050;4096:"
                   "ff25b58995996707e51fbdf08b34d875"},
    {"0102030405060708090a0b0c0d0e0f10",
     "0:9ac7cc9a609d1ef7b2932899cde41b97;16:5248c4959014126a6e8a84f11d1a9e1c;240:"
     "065902e4b620f6cc36c8589f66432f2b;"
     "256:d39d566bc6bce3010768151549f3873f;496:b6d1e6c4a5e4771cad79538df295fb11;512:"
     "c68c1d5c559a974123df1dbc52a43b89;"
     "752:c5ecf88de897fd57fed301701b82a259;768:eccbe13de1fcc91c11a0b26c0bc8fa4d;1008:"
     "e7a72574f8782ae26aabcf9ebcd66065;"
     "1024:bdf0324e6083dcc6d3cedd3ca8c53c16;1520:b40110c4190b5622a96116b0017ed297;1536:"
     "ffa0b514647ec04f6306b892ae661181;"
     "2032:d03d1bc03cd33d70dff9fa5d71963ebd;2048:8a44126411eaa78bd51e8d87a8879bf5;3056:"
     "fabeb76028ade2d0e48722e46c4615a3;"
     "3072:c05d88abd50357f935a63c59ee537623;4080:ff38265c1642c1abe8d3c2fe5e572bf8;4096:"
     "a36a4c301ae8ac13610ccbc12256cacc"},
    {"1ada31d5cf688221c109163908ebe51debb46227c6cc8b37641910833222772a",
     "0:dd5bcb0018e922d494759d7c395d02d3;16:c8446f8f77abf737685353eb89a1c9eb;240:"
     "af3e30f9c095045938151575c3fb9098;"
     "256:f8cb6274db99b80b1d2012a98ed48f0e;496:25c3005a1cb85de076259839ab7198ab;512:"
     "9dcbc183e8cb994b727b75be3180769c;"
     "752:a1d3078dfa9169503ed9d4491dee4eb2;768:8514a5495858096f596e4bcd66b10665;1008:"
     "5f40d59ec1b03b33738efa60b2255d31;"
     "1024:3477c7f764a41baceff90bf14f92b7cc;1520:ac4e95368d99b9eb78b8da8f81ffa795;1536:"
     "8c3c13f8c2388bb73f38576e65b7c446;"
     "2032:13c4b9c1dfb66579eddd8a280b9f7316;2048:ddd27820550126698efaadc64b64f66e;3056:"
     "f08f2e66d28ed143f3a237cf9de73559;"
     "3072:9ea36c525531b880ba124334f57b0b70;4080:d5a39e3dfcc50280bac4a6b5aa0dca7d;4096:"
     "370b1c1fe655916d97fd0d47ca1d72b8"},
};

QByteArray fromHex(const char* text) {
    return QByteArray::fromHex(QByteArray(text).replace(' ', ""));
}

QByteArray rc4(const QByteArray& key, QByteArray data) {
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
    void md5MatchesRfc1321() {
        const char* const vectors[][2] = {
            {"", "d41d8cd98f00b204e9800998ecf8427e"},
            {"a", "0cc175b9c0f1b6a831c399e269772661"},
            {"abc", "900150983cd24fb0d6963f7d28e17f72"},
            {"message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
            {"abcdefghijklmnopqrstuvwxyz", "c3fcd3d76192e4007dfb496cca67e13b"},
            {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789",
             "d174ab98d277d9f5a5611c2c9f419d9f"},
            {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
             "57edf4a22be3c955ac49da2e2107b67a"},
        };
        for (const auto& v : vectors)
            QCOMPARE(HashString(QString::fromLatin1(v[0])), QString::fromLatin1(v[1]));
        // Text is hashed as UTF-8.
        QCOMPARE(HashString(QStringLiteral("Пароль")), QStringLiteral("5ebe553e01799a927b1d045924bbd4fd"));
        QCOMPARE(HashString(QStringLiteral("Ї")), QStringLiteral("b9a064cacae9c8eb5e2ceedfc40eec97"));
    }

    void md5GivesTheSameDigestWhateverTheChunks() {
        // Every length around the 56- and 64-byte padding edges, fed in uneven pieces.
        const QByteArray data = randomBytes(300, 7);
        for (int len = 0; len <= 200; ++len) {
            const QByteArray part = data.left(len);
            Md5 h;
            for (int at = 0, step = 1; at < len; at += step, step = step % 13 + 1)
                h.Update(part.constData() + at, static_cast<std::size_t>(std::min(step, len - at)));
            const auto d = h.Final();
            QCOMPARE(QByteArray(reinterpret_cast<const char*>(d.data()), 16), Md5Digest(part));
        }
    }

    void rc4MatchesRfc6229() {
        for (const Rc4Vector& v : kRc4Vectors) {
            const QByteArray stream = rc4(fromHex(v.key), QByteArray(4112, '\0'));
            for (const QByteArray& row : QByteArray(v.rows).split(';')) {
                const qsizetype colon = row.indexOf(':');
                const int offset = row.left(colon).toInt();
                QCOMPARE(stream.mid(offset, 16).toHex(), fromHex(row.mid(colon + 1).constData()).toHex());
            }
        }
    }

    void rc4StreamContinuesAcrossCalls() {
        const QByteArray data = randomBytes(5000, 3);
        Rc4 c("Key");
        QByteArray pieces = data;
        for (qsizetype at = 0, step = 1; at < pieces.size(); at += step, step = step * 3 % 1021 + 1)
            c.Apply(pieces.data() + at, std::min(step, pieces.size() - at));
        QCOMPARE(pieces, rc4("Key", data));
        QCOMPARE(rc4("Key", QByteArray("Plaintext")).toHex(), QByteArray("bbf316e8d940af0ad3"));
        QVERIFY_THROWS_EXCEPTION(VbError, [] { Rc4 empty{QByteArray()}; }());
    }

    void fileCipherIsDeterministicAndInPlace() {
        TestEnv env;
        // More than one read chunk, so the stream must carry on from chunk to chunk.
        const QByteArray plain = randomBytes(2'500'000, 11);
        const QString a = env.root() + "/a.bin", b = env.root() + "/b.bin";
        writeFileText(a, plain);
        QVERIFY(EncryptFile(a, b, true, "file key"));
        QCOMPARE(readAllOf(b), rc4("file key", plain));
        QCOMPARE(posixMode(b), 0600);
        // The same input and key give the same bytes: the outer layer adds no salt.
        QVERIFY(EncryptFile(a, a, true, "file key"));
        QCOMPARE(readAllOf(a), readAllOf(b));
        QVERIFY(DecryptFile(a, a, true, "file key"));
        QCOMPARE(readAllOf(a), plain);
        // An empty file stays empty.
        writeFileText(a, QByteArray());
        QVERIFY(EncryptFile(a, b, true, "k"));
        QCOMPARE(readAllOf(b), QByteArray());
    }

    void fileCipherFailures() {
        TestEnv env;
        const QString out = env.root() + "/out.bin";
        writeFileText(out, "keep");
        // A missing source writes nothing.
        QVERIFY(!DecryptFile(env.root() + "/none.bin", out, true, "k"));
        QCOMPARE(readAllOf(out), QByteArray("keep"));
        // Without the replace flag an existing target is refused.
        writeFileText(env.root() + "/in.bin", "data");
        QVERIFY_THROWS_EXCEPTION(VbError, EncryptFile(env.root() + "/in.bin", out, false, "k"));
        QCOMPARE(readAllOf(out), QByteArray("keep"));
        // A target under a regular file cannot be written: nothing is half done.
        QVERIFY(!EncryptFile(env.root() + "/in.bin", out + "/x", true, "k"));
        QCOMPARE(readAllOf(out), QByteArray("keep"));
    }
};

ARGENT_TEST(CryptoTest)
#include "tst_crypto.moc"
