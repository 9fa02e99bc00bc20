#include "app/modMain.h"
#include "diagnostics/DbgPrint.h"
#include "tests/common/TestEnv.h"
#include "tests/common/TestMain.h"

#include <QDir>
#include <QFileInfo>
#include <QTest>

#include <functional>

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

    // A temporary or runtime folder someone else prepared under the expected name is not
    // used, and not touched either: a link's target keeps its owner and mode.
    void preparedTempFolderIsRefused_data() {
        QTest::addColumn<QString>("kind");
        QTest::addColumn<bool>("fallback"); // XDG_RUNTIME_DIR unset: both under TMPDIR
        for (bool fallback : {false, true}) {
            const char* where = fallback ? " in the fallback folder" : "";
            QTest::newRow(qPrintable(QString("someone else's") + where)) << "foreign" << fallback;
            QTest::newRow(qPrintable(QString("a link") + where)) << "link" << fallback;
        }
    }
    void preparedTempFolderIsRefused() {
        QFETCH(QString, kind);
        QFETCH(bool, fallback);
        TestEnv env;
        const QByteArray oldTmp = qgetenv("TMPDIR");
        struct Back {
            QByteArray v;
            ~Back() { v.isNull() ? qunsetenv("TMPDIR") : qputenv("TMPDIR", v); }
        } back{oldTmp};
        QString base = qEnvironmentVariable("XDG_RUNTIME_DIR");
        if (fallback) {
            base = env.root() + "/tmp";
            QVERIFY(QDir().mkpath(base));
            QCOMPARE(chmod(QFile::encodeName(base).constData(), 01777), 0);
            qputenv("TMPDIR", QFile::encodeName(base));
            qunsetenv("XDG_RUNTIME_DIR");
        }
        const QString uid = QString::number(getuid());
        QList<std::pair<QString, std::function<QString()>>> all = {{"/argentpm-tmp-" + uid, GetWindowsTemp}};
        if (fallback)
            all.append({"/argentpm-" + uid, InstanceRuntimeFolder});
        for (const auto& [name, folderOf] : all) {
            const QString expected = base + name;
            const QString elsewhere = env.root() + "/elsewhere" + name;
            QVERIFY(QDir().mkpath(elsewhere));
            QCOMPARE(chmod(QFile::encodeName(elsewhere).constData(), 0755), 0);
            QCOMPARE(chown(QFile::encodeName(elsewhere).constData(), 65534, 65534), 0);
            if (kind == "foreign") {
                QVERIFY(QDir().mkpath(expected));
                QCOMPARE(chown(QFile::encodeName(expected).constData(), 65534, 65534), 0);
            } else {
                QVERIFY(QFile::link(elsewhere, expected));
                QCOMPARE(lchown(QFile::encodeName(expected).constData(), 65534, 65534), 0);
            }
            const QString tmp = folderOf();
            QVERIFY2(tmp != expected + "/", qPrintable(tmp));
            QVERIFY(!tmp.startsWith(elsewhere));
            struct stat st {};
            QCOMPARE(lstat(QFile::encodeName(tmp).constData(), &st), 0);
            QVERIFY(S_ISDIR(st.st_mode));
            QCOMPARE(st.st_uid, getuid());
            QCOMPARE(int(st.st_mode & 07777), 0700);
            // Nothing was done to what the name leads to.
            QCOMPARE(posixMode(elsewhere), 0755);
            QCOMPARE(lstat(QFile::encodeName(elsewhere).constData(), &st), 0);
            QCOMPARE(st.st_uid, uid_t(65534));
            QCOMPARE(posixMode(kind == "foreign" ? expected : elsewhere), 0755);
        }
    }
};
ARGENT_TEST(PrivateFilesTest)

#include "tst_private.moc"
