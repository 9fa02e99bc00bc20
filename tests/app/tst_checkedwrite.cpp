#include "app/CheckedWrite.h"
#include "tests/common/FullDisk.h"
#include "tests/common/TestEnv.h"
#include "tests/common/TestMain.h"

#include <QDir>
#include <QFile>
#include <QTest>

#include <sys/stat.h>
#include <unistd.h>

namespace {
bool isLink(const QString& path) {
    struct stat st {};
    return lstat(QFile::encodeName(path).constData(), &st) == 0 && S_ISLNK(st.st_mode);
}
QStringList entries(const QString& dir) {
    return QDir(dir).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
}
} // namespace

// The one way the program replaces a file: what is at the name, and the folder it is in.
class CheckedWriteTest : public QObject {
    Q_OBJECT
private slots:
    // Someone else's link is replaced, never written through, even one that leads nowhere
    // yet; the user's own link (a file kept in a synced folder, say) is followed.
    void linksAtTheTarget() {
        TestEnv env;
        const QString dir = env.root() + "/d", away = env.root() + "/away";
        QDir().mkpath(dir);
        QVERIFY(QFile::link(env.root() + "/made-there", dir + "/theirs"));
        QCOMPARE(lchown(QFile::encodeName(dir + "/theirs").constData(), 65534, 65534), 0);
        QVERIFY(WriteFileChecked(dir + "/theirs", "new"));
        QVERIFY(!isLink(dir + "/theirs"));
        QCOMPARE(readAllOf(dir + "/theirs"), QByteArray("new"));
        QVERIFY(!QFile::exists(env.root() + "/made-there"));

        writeFileText(away, "kept");
        QVERIFY(QFile::link(away, dir + "/mine"));
        QVERIFY(WriteFileChecked(dir + "/mine", "through"));
        QVERIFY(isLink(dir + "/mine"));
        QCOMPARE(readAllOf(away), QByteArray("through"));
        QCOMPARE(posixMode(away), 0600);
        QCOMPARE(entries(dir), QStringList({"mine", "theirs"}));
    }

    // Group rights of the user's own private group are the user's; another group's are not.
    void groupThatMayWrite() {
        TestEnv env;
        const QString dir = env.root() + "/d";
        QDir().mkpath(dir);
        chmod(QFile::encodeName(dir).constData(), 0770);
        QVERIFY(WriteFileChecked(dir + "/a", "x"));
        QCOMPARE(chown(QFile::encodeName(dir).constData(), 0, 65534), 0);
        clsCheckedFile f(dir + "/b");
        QVERIFY(!f.Open());
        QVERIFY2(f.ErrorText().contains("the folder " + dir), qPrintable(f.ErrorText()));
        QCOMPARE(entries(dir), QStringList{"a"});
    }

    // A write that fails halfway leaves the old file and no temporary one.
    void failedWriteLeavesNoTrace() {
        TestEnv env;
        const QString dir = env.root() + "/full";
        FullDisk disk(dir, 8192);
        writeFileText(dir + "/file", "old");
        disk.Fill();
        clsCheckedFile f(dir + "/file");
        const bool ok =
            disk.Run([&] { return f.Open() && f.Write(QByteArray(64 * 1024, 'n')) && f.Commit(); });
        QVERIFY(!ok);
        QVERIFY(!f.ErrorText().isEmpty());
        QCOMPARE(readAllOf(dir + "/file"), QByteArray("old"));
        QStringList left = entries(dir);
        left.removeAll("filler");
        QCOMPARE(left.join(","), QString("file"));
        // A parent path that is a file.
        QVERIFY(!WriteFileChecked(dir + "/file/inner", "x"));
        QCOMPARE(readAllOf(dir + "/file"), QByteArray("old"));
    }
};
ARGENT_TEST(CheckedWriteTest)

#include "tst_checkedwrite.moc"
