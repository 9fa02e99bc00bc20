#include "storage/FileIdentity.h"
#include "tests/common/TestEnv.h"
#include "tests/common/TestMain.h"

#include <QFile>
#include <QTest>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

// The quick check of a save: a file changed by anyone, in any way a writer can change it,
// is never taken for the one the program read, even when size, time and inode all agree.
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
        const qint64 ms = 1000000;
        QTest::newRow("untouched, checked at once") << "none" << false << 0LL << true << true;
        QTest::newRow("untouched, checked later") << "none" << false << 5000 * ms << true << true;
        QTest::newRow("untouched, coarse clock") << "none" << true << 1000 * ms << true << true;
        QTest::newRow("replaced by rename") << "rename" << false << 5000 * ms << false << true;
        QTest::newRow("grown") << "append" << false << 5000 * ms << false << true;
        QTest::newRow("deleted") << "delete" << false << 5000 * ms << false << false;
        // Rewritten in place with the same size within the clock tick of the reading:
        // size, time and inode agree, the bytes do not.
        QTest::newRow("same tick, fine clock") << "inplace" << false << 50 * ms << false << true;
        QTest::newRow("same tick, coarse clock") << "inplace" << true << 2000 * ms << false << true;
    }

    void changesAreSeen() {
        QFETCH(QString, change);
        QFETCH(bool, coarseClock);
        QFETCH(qint64, checkedAfterNs);
        QFETCH(bool, unchanged);
        QFETCH(bool, exists);
        TestEnv env;
        const QString path = env.root() + "/anna.bdb";
        write(path, "first version of the file", false);
        const qint64 mtime =
            coarseClock ? 1700000000LL * 1000000000LL : 1700000000LL * 1000000000LL + 123456789;
        stamp(path, mtime);
        QByteArray bytes;
        clsFileIdentity known;
        QVERIFY(ReadFileWithIdentity(path, bytes, known));
        QCOMPARE(bytes, QByteArray("first version of the file"));
        // The reading happened this long after the file's last change.
        known.TakenNs = known.CTimeNs + checkedAfterNs;

        if (change == "rename")
            write(path, "other version of the file", false);
        else if (change == "append")
            write(path, "first version of the file, and more", true);
        else if (change == "delete")
            QFile::remove(path);
        else if (change == "inplace")
            write(path, "FIRST version of the file", true);
        if (change != "delete" && change != "none")
            stamp(path, mtime);

        bool there = false;
        QCOMPARE(FileUnchanged(path, known, &there), unchanged);
        QCOMPARE(there, exists);
    }
};

ARGENT_TEST(FileIdentityTest)
#include "tst_fileidentity.moc"
