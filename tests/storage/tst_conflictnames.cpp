// The names sync engines give conflict copies and temporary files, as the engines write
// them, and the users they belong to.

#include "storage/ConflictCopies.h"
#include "tests/common/TestMain.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

class ConflictNamesTest : public QObject {
    Q_OBJECT
private slots:
    void names_data() {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("user"); // empty: not a conflict copy
        QTest::addColumn<bool>("temp");
        // Syncthing (device IDs are the first 7 characters of base32), a copy of a copy.
        QTest::newRow("syncthing") << "pat.sync-conflict-20261124-211129-EEACIID.bdb"
                                   << "pat" << false;
        QTest::newRow("syncthing dotted user") << "anna.work.sync-conflict-20250101-000000-7Q2ZK3D.bdb"
                                               << "anna.work" << false;
        QTest::newRow("syncthing twice")
            << "pat.sync-conflict-20261124-211129-EEACIID.sync-conflict-20261125-080000-ABCDEF2.bdb"
            << "pat" << false;
        // Nextcloud and ownCloud.
        QTest::newRow("nextcloud") << "pat (conflicted copy 2026-11-24 211129).bdb"
                                   << "pat" << false;
        QTest::newRow("nextcloud account") << "Anna Smith (conflicted copy anna 2026-11-24 211129).bdb"
                                           << "Anna Smith" << false;
        QTest::newRow("owncloud") << "pat_conflict-20261124-211129.bdb"
                                  << "pat" << false;
        // Dropbox, with the typographic apostrophe of newer clients, and numbered.
        QTest::newRow("dropbox") << "pat (Pat's conflicted copy 2026-11-24).bdb"
                                 << "pat" << false;
        QTest::newRow("dropbox curly") << "pat (MacBook’s conflicted copy 2026-11-24).bdb"
                                       << "pat" << false;
        QTest::newRow("dropbox numbered outside") << "pat (laptop's conflicted copy 2026-11-24) (1).bdb"
                                                  << "pat" << false;
        QTest::newRow("dropbox numbered inside") << "pat (laptop's conflicted copy 2026-11-24 (2)).bdb"
                                                 << "pat" << false;
        QTest::newRow("dropbox user in parens") << "pat (home) (laptop's conflicted copy 2026-11-24).bdb"
                                                << "pat (home)" << false;
        // Temporary files while a file arrives.
        QTest::newRow("syncthing tmp") << ".syncthing.pat.bdb.tmp"
                                       << "" << true;
        QTest::newRow("syncthing tmp win") << "~syncthing~pat.bdb.tmp"
                                           << "" << true;
        QTest::newRow("tilde tmp") << "~pat.bdb.tmp"
                                   << "" << true;
        QTest::newRow("lock") << ".~lock.pat.bdb#"
                              << "" << true;
        QTest::newRow("nextcloud part") << ".pat.bdb.~1a2b3c"
                                        << "" << true;
        QTest::newRow("part") << "pat.bdb.part"
                              << "" << true;
        // Users, whatever their names look like.
        QTest::newRow("user") << "pat.bdb"
                              << "" << false;
        QTest::newRow("user conflict word") << "conflicted copy.bdb"
                                            << "" << false;
        QTest::newRow("user sync word") << "pat.sync-conflict.bdb"
                                        << "" << false;
        QTest::newRow("user date") << "pat (2026-11-24).bdb"
                                   << "" << false;
        QTest::newRow("backup") << "pat_1.bdb.BACKUP"
                                << "" << false;
        QTest::newRow("lock file") << ".pat.bdb.lock"
                                   << "" << false;
    }
    void names() {
        QFETCH(QString, name);
        QFETCH(QString, user);
        QFETCH(bool, temp);
        QCOMPARE(ConflictCopyUser(name), user);
        QCOMPARE(IsSyncTempName(name), temp);
        QCOMPARE(IsSyncEngineName(name), temp || !user.isEmpty());
    }

    // Only the copies of the user asked for, not those of a user whose name starts alike.
    void copiesOfOneUser() {
        QTemporaryDir dir;
        for (const char* n :
             {"pat.bdb", "pat.sync-conflict-20261124-211129-EEACIID.bdb",
              "pat (conflicted copy 2026-11-24 211129).bdb", "patrick.bdb",
              "patrick.sync-conflict-20261124-211129-EEACIID.bdb", ".syncthing.pat.bdb.tmp"}) {
            QFile f(dir.filePath(QString::fromUtf8(n)));
            QVERIFY(f.open(QIODevice::WriteOnly));
        }
        QDir(dir.path()).mkdir("pat_conflict-20261124-211129.bdb"); // a folder is no copy
        const QStringList got = FindConflictCopies(dir.path(), "pat");
        QCOMPARE(got, (QStringList{dir.filePath("pat (conflicted copy 2026-11-24 211129).bdb"),
                                   dir.filePath("pat.sync-conflict-20261124-211129-EEACIID.bdb")}));
    }
};

ARGENT_TEST(ConflictNamesTest)
#include "tst_conflictnames.moc"
