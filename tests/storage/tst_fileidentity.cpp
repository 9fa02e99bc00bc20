#include "storage/FileIdentity.h"
#include "tests/common/TestEnv.h"
#include "tests/common/TestMain.h"

#include <QFile>
#include <QTest>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

// The quick check of a save: a file changed by anyone, in any way a writer can change it,
// is never taken for the one the program read, even when size, time and inode all agree
// (for a sealed user file: any change that leaves a file that opens).
class FileIdentityTest : public QObject {
    Q_OBJECT

    static void write(const QString& Path, const QByteArray& Bytes, bool InPlace) {
        if (!InPlace)
            QFile::remove(Path);
        QFile f(Path);
        QVERIFY(f.open(QIODevice::ReadWrite));
        QVERIFY(f.seek(0));
        QCOMPARE(f.write(Bytes), Bytes.size());
        QVERIFY(f.resize(Bytes.size()));
    }
    // Sets the file's time stamp to exactly Ns (nanoseconds since the epoch).
    static void stamp(const QString& Path, qint64 Ns) {
        const timespec t[2] = {{Ns / 1000000000LL, Ns % 1000000000LL},
                               {Ns / 1000000000LL, Ns % 1000000000LL}};
        QCOMPARE(::utimensat(AT_FDCWD, QFile::encodeName(Path).constData(), t, 0), 0);
    }

private slots:
    void changesAreSeen_data() {
        QTest::addColumn<QString>("change");
        QTest::addColumn<bool>("coarseClock"); // time stamps in whole seconds, as on FAT
        QTest::addColumn<qint64>("checkedAfterNs");
        QTest::addColumn<bool>("unchanged");
        QTest::addColumn<bool>("exists");
        QTest::addColumn<bool>("sealed"); // the identity of a sealed user file: size and ends
        const qint64 ms = 1000000;
        QTest::newRow("untouched, checked at once") << "none" << false << 0LL << true << true << false;
        QTest::newRow("untouched, checked later") << "none" << false << 5000 * ms << true << true << false;
        QTest::newRow("untouched, coarse clock") << "none" << true << 1000 * ms << true << true << false;
        QTest::newRow("replaced by rename") << "rename" << false << 5000 * ms << false << true << false;
        QTest::newRow("grown") << "append" << false << 5000 * ms << false << true << false;
        QTest::newRow("deleted") << "delete" << false << 5000 * ms << false << false << false;
        // Rewritten in place with the same size within the clock tick of the reading:
        // size, time and inode agree, the bytes do not.
        QTest::newRow("same tick, fine clock") << "inplace" << false << 50 * ms << false << true << false;
        QTest::newRow("same tick, coarse clock") << "inplace" << true << 2000 * ms << false << true << false;
        QTest::newRow("middle rewritten, whole digest")
            << "middle" << false << 50 * ms << false << true << false;
        // A sealed file's head holds the nonce of its save and its end the tag over the
        // rest: a save of another program changes both, and a middle changed alone is a
        // file that no longer opens, not a save to take in.
        QTest::newRow("sealed, untouched") << "none" << false << 50 * ms << true << true << true;
        QTest::newRow("sealed, head rewritten") << "inplace" << false << 50 * ms << false << true << true;
        QTest::newRow("sealed, tag rewritten") << "tail" << false << 50 * ms << false << true << true;
        QTest::newRow("sealed, replaced by rename")
            << "rename" << false << 5000 * ms << false << true << true;
        QTest::newRow("sealed, middle rewritten") << "middle" << false << 50 * ms << true << true << true;
    }

    void changesAreSeen() {
        QFETCH(QString, change);
        QFETCH(bool, coarseClock);
        QFETCH(qint64, checkedAfterNs);
        QFETCH(bool, unchanged);
        QFETCH(bool, exists);
        QFETCH(bool, sealed);
        TestEnv env;
        const QString path = env.root() + "/anna.bdb";
        const QByteArray middle(2000, 'm');
        const QByteArray first = "first version of the file" + middle + "tag1";
        write(path, first, false);
        const qint64 mtime =
            coarseClock ? 1700000000LL * 1000000000LL : 1700000000LL * 1000000000LL + 123456789;
        stamp(path, mtime);
        QByteArray bytes;
        clsFileIdentity known;
        QVERIFY(ReadFileWithIdentity(path, bytes, known, sealed));
        QCOMPARE(bytes, first);
        QVERIFY(known == ReadFileIdentity(path, sealed));
        // The reading happened this long after the file's last change.
        known.TakenNs = known.CTimeNs + checkedAfterNs;

        if (change == "rename")
            write(path, "other version of the file" + middle + "tag2", false);
        else if (change == "append")
            write(path, first + ", and more", true);
        else if (change == "delete")
            QFile::remove(path);
        else if (change == "inplace")
            write(path, "FIRST version of the file" + middle + "tag1", true);
        else if (change == "middle")
            write(path,
                  "first version of the file" + QByteArray(middle).replace(500, 1000, QByteArray(1000, 'M')) +
                      "tag1",
                  true);
        else if (change == "tail")
            write(path, "first version of the file" + middle + "tag2", true);
        if (change != "delete" && change != "none")
            stamp(path, mtime);

        bool there = false;
        QCOMPARE(FileUnchanged(path, known, &there), unchanged);
        QCOMPARE(there, exists);
    }
};

ARGENT_TEST(FileIdentityTest)
#include "tst_fileidentity.moc"
