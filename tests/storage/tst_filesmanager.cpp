#include "storage/clsDataFilesManager.h"
#include "tests/common/TestEnv.h"
#include "tests/common/TestMain.h"
#include "users/UserAccounts.h"

#include <QTest>

class FilesManagerTest : public QObject {
    Q_OBJECT
private slots:
    void loadingKeepsOneObjectPerPath() {
        TestEnv env;
        clsDataFilesManager m;
        const QString path = env.root() + "/Db.bdb";
        writeFileText(path, NewUserTemplate());
        clsDatabasePtr a, b;
        QCOMPARE(m.LoadDB(path, a, QString()), 1);
        // The second time the file is not read and the password not checked; keys compare
        // without regard to case.
        QCOMPARE(m.LoadDB(env.root() + "/DB.BDB", b, "any password"), 28);
        QCOMPARE(b, a);
        QCOMPARE(m.GetLoadedDBNum(), 1);
        QCOMPARE(m.DeleteDBFromCol(env.root() + "/unknown.bdb"), 2);
        QCOMPARE(m.DeleteDBFromCol(path.toUpper()), 1);
        QCOMPARE(m.GetLoadedDBNum(), 0);
    }

    void failedLoads() {
        TestEnv env;
        clsDataFilesManager m;
        clsDatabasePtr db;
        QCOMPARE(m.LoadDB(env.root() + "/none.bdb", db, QString()), -2);
        QVERIFY(!db);
        QCOMPARE(m.GetLoadedDBNum(), 0);
        // A file that does not open still takes its place in the collection.
        writeFileText(env.root() + "/junk.bdb", "not a table file");
        QCOMPARE(m.LoadDB(env.root() + "/junk.bdb", db, QString()), -4);
        QCOMPARE(m.GetLoadedDBNum(), 1);
        QCOMPARE(db->TabNum(), 0);
    }

    void savingByPath() {
        TestEnv env;
        clsDataFilesManager m;
        const QString path = env.root() + "/Save.bdb";
        writeFileText(path, NewUserTemplate());
        clsDatabasePtr db;
        QCOMPARE(m.LoadDB(path, db, QString()), 1);
        db->SetTag("changed");
        // A path that matches the key only up to case saves nothing.
        m.SaveDBOnPath(env.root() + "/SAVE.bdb", QString(), false);
        QCOMPARE(readAllOf(path), NewUserTemplate());
        m.SaveDBOnPath(path, QString(), false);
        QVERIFY(readAllOf(path).contains("changed"));
        m.SaveAllDB("pw", false);
        QVERIFY(readAllOf(path).startsWith("wqpdhxMeM.ENC\r\n"));
    }
};

ARGENT_TEST(FilesManagerTest)
#include "tst_filesmanager.moc"
