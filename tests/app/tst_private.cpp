#include "app/modMain.h"
#include "diagnostics/DbgPrint.h"
#include "tests/common/TestEnv.h"
#include "tests/common/TestMain.h"

#include <QDir>
#include <QFileInfo>
#include <QTest>

#include <sys/stat.h>
#include <unistd.h>

// What the program leaves on disk is for its user's eyes only.
class PrivateFilesTest : public QObject {
    Q_OBJECT
private slots:
    void debugLogIsPrivate() {
        TestEnv env;
        DbgPrint("-= DELETE: Bank");
        QCOMPARE(posixMode(DbgFilePath()), 0600);
    }

    // A temporary folder someone else prepared under the expected name is not used.
    void preparedTempFolderIsRefused_data() {
        QTest::addColumn<QString>("kind");
        QTest::newRow("someone else's") << "foreign";
        QTest::newRow("a link") << "link";
    }
    void preparedTempFolderIsRefused() {
        QFETCH(QString, kind);
        TestEnv env;
        const QString base = qEnvironmentVariable("XDG_RUNTIME_DIR");
        const QString expected = base + "/argentpm-tmp-" + QString::number(getuid());
        const QString elsewhere = env.root() + "/elsewhere";
        QVERIFY(QDir().mkpath(elsewhere));
        if (kind == "foreign") {
            QVERIFY(QDir().mkpath(expected));
            QCOMPARE(chown(QFile::encodeName(expected).constData(), 65534, 65534), 0);
        } else {
            QVERIFY(QFile::link(elsewhere, expected));
        }
        const QString tmp = GetWindowsTemp();
        QVERIFY(tmp != expected + "/");
        QVERIFY(!tmp.startsWith(elsewhere));
        struct stat st {};
        QCOMPARE(lstat(QFile::encodeName(tmp).constData(), &st), 0);
        QVERIFY(S_ISDIR(st.st_mode));
        QCOMPARE(st.st_uid, getuid());
        QCOMPARE(int(st.st_mode & 07777), 0700);
    }
};
ARGENT_TEST(PrivateFilesTest)

#include "tst_private.moc"
