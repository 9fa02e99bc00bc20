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
    // Someone else's link is replaced, never written through; the user's own is followed.
    void linksAtTheTarget() {
        TestEnv env;
        const QString dir = env.root() + "/d", away = env.root() + "/away";
        QDir().mkpath(dir);
        writeFileText(away, "kept");
        chmod(QFile::encodeName(away).constData(), 0644);
        QVERIFY(QFile::link(away, dir + "/theirs"));
        QCOMPARE(lchown(QFile::encodeName(dir + "/theirs").constData(), 65534, 65534), 0);
        QVERIFY(WriteFileChecked(dir + "/theirs", "new"));
        QVERIFY(!isLink(dir + "/theirs"));
        QCOMPARE(readAllOf(dir + "/theirs"), QByteArray("new"));
        QCOMPARE(readAllOf(away), QByteArray("kept"));
        QCOMPARE(posixMode(away), 0644);

        // A dangling link of theirs: nothing appears where it points.
        QVERIFY(QFile::link(env.root() + "/made-there", dir + "/dangling"));
        QCOMPARE(lchown(QFile::encodeName(dir + "/dangling").constData(), 65534, 65534), 0);
        QVERIFY(WriteFileChecked(dir + "/dangling", "x"));
        QVERIFY(!QFile::exists(env.root() + "/made-there"));

        // The user's own link (a file kept in a synced folder, say) stays a link.
        QVERIFY(QFile::link(away, dir + "/mine"));
        QVERIFY(WriteFileChecked(dir + "/mine", "through"));
        QVERIFY(isLink(dir + "/mine"));
        QCOMPARE(readAllOf(away), QByteArray("through"));
        QCOMPARE(posixMode(away), 0600);
        QCOMPARE(entries(dir), QStringList({"dangling", "mine", "theirs"}));
    }

    // Folders that others control; the message names the folder, and nothing is made.
    void foldersOthersControl_data() {
        QTest::addColumn<int>("mode");
        QTest::addColumn<int>("owner");
        QTest::addColumn<bool>("allowed");
        QTest::newRow("own") << 0700 << 0 << true;
        QTest::newRow("sticky, open to all") << 01777 << 0 << true;
        QTest::newRow("open to all") << 0777 << 0 << false;
        QTest::newRow("open to the group") << 0770 << 0 << false;
        QTest::newRow("another user's") << 0700 << 65534 << false;
    }
    void foldersOthersControl() {
        QFETCH(int, mode);
        QFETCH(int, owner);
        QFETCH(bool, allowed);
        TestEnv env;
        const QString dir = env.root() + "/d";
        QDir().mkpath(dir);
        chmod(QFile::encodeName(dir).constData(), mode);
        QCOMPARE(chown(QFile::encodeName(dir).constData(), owner, owner), 0);
        clsCheckedFile f(dir + "/file");
        QCOMPARE(f.Open() && f.Write("x") && f.Commit(), allowed);
        QCOMPARE(FolderWriteProblem(dir).isEmpty(), allowed);
        if (!allowed) {
            QVERIFY2(f.ErrorText().contains("the folder " + dir), qPrintable(f.ErrorText()));
            QCOMPARE(entries(dir), QStringList());
        }
        // Through someone else's link to the folder, never.
        QVERIFY(QFile::link(dir, env.root() + "/via"));
        QCOMPARE(lchown(QFile::encodeName(env.root() + "/via").constData(), 65534, 65534), 0);
        QVERIFY(!WriteFileChecked(env.root() + "/via/other", "x"));
        QVERIFY(!QFile::exists(dir + "/other"));
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
