#include "storage/clsDataFilesManager.h"
#include "tests/common/TestEnv.h"
#include "tests/common/TestMain.h"
#include "users/UserAccounts.h"

#include <QFileInfo>
#include <QTest>

class FilesManagerTest : public QObject {
    Q_OBJECT
private slots:
    void loadingKeepsOneObjectPerPath() {
        TestEnv env;
        clsDataFilesManager m;
        const QString path = env.root() + "/Db.bdb";
        writeFileText(path, NewUserTemplate());
        clsDatabasePtr a, b, c;
        QCOMPARE(m.LoadDB(path, a, QString()), 1);
        QCOMPARE(a->Path(), path);
        // The second time the file is not read and the password not checked.
        QCOMPARE(m.LoadDB(path, b, "any password"), 28);
        QCOMPARE(b, a);
        // Keys compare without regard to case; the manager holds the same object.
        QCOMPARE(m.LoadDB(env.root() + "/DB.BDB", c, QString()), 28);
        QCOMPARE(c, a);
        QVERIFY(m.IsDBLoaded(path.toLower()));
        QCOMPARE(m.GetLoadedDBNum(), 1);
        DBCollection* col = nullptr;
        m.GetLoadedDBCol(col);
        QCOMPARE(col->Item(1), a);
        QVERIFY(FindObjInCol(*col, path));
        QVERIFY(!FindObjInCol(*col, path + "x"));
    }

    void missingAndFailedLoads() {
        TestEnv env;
        clsDataFilesManager m;
        clsDatabasePtr db;
        QCOMPARE(m.LoadDB(env.root() + "/none.bdb", db, QString()), -2);
        QVERIFY(!db);
        QCOMPARE(m.GetLoadedDBNum(), 0);
        QVERIFY(readAllOf(env.progDir() + "/DbgFile.dat").contains("): ___LoadDB = -2\r\n"));
        // A file that does not open still takes its place in the collection.
        writeFileText(env.root() + "/junk.bdb", "not a table file");
        QCOMPARE(m.LoadDB(env.root() + "/junk.bdb", db, QString()), -4);
        QCOMPARE(m.GetLoadedDBNum(), 1);
        QCOMPARE(db->Path(), env.root() + "/junk.bdb");
        QCOMPARE(db->TabNum(), 0);
        QCOMPARE(m.DeleteDBFromCol(env.root() + "/unknown.bdb"), 2);
        QCOMPARE(m.DeleteDBFromCol(env.root() + "/JUNK.bdb"), 1);
        QCOMPARE(m.GetLoadedDBNum(), 0);
    }

    void addUpdateAndRead() {
        TestEnv env;
        clsDataFilesManager m;
        auto a = std::make_shared<clsDatabase>(), b = std::make_shared<clsDatabase>();
        QCOMPARE(m.AddDB(a, "k1"), 1);
        QCOMPARE(m.AddDB(b, "K1"), 2);
        QCOMPARE(m.UpdateDB(b, "k1"), 1);
        DBCollection* col = nullptr;
        m.GetLoadedDBCol(col);
        QCOMPARE(col->Item("k1"), b);
        QCOMPARE(m.UpdateDB(a, "k2"), 2);
        QCOMPARE(m.GetLoadedDBNum(), 2);
        // ReadTbls hands out the stored object for a known path, and a new, unlisted one otherwise.
        clsDatabasePtr got;
        QCOMPARE(m.ReadTbls(got, "K2", {"DataTable"}), 1);
        QCOMPARE(got, a);
        writeFileText(env.root() + "/r.bdb", NewUserTemplate());
        QCOMPARE(m.ReadTbls(got, env.root() + "/r.bdb", {"DataTable"}), 2);
        QCOMPARE(got->TabNum(), 1);
        QCOMPARE(m.GetLoadedDBNum(), 2);
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
        // SaveAllDB writes every database to its own path with one password.
        m.SaveAllDB("pw", false);
        QVERIFY(readAllOf(path).startsWith("wqpdhxMeM.ENC\r\n"));
        // SaveDB passes the engine's result on, and needs no entry in the collection.
        auto loose = std::make_shared<clsDatabase>();
        QCOMPARE(m.SaveDB(loose, env.root() + "/loose.bdb", QString(), false), 1);
        writeFileText(env.root() + "/file", "x");
        QCOMPARE(m.SaveDB(loose, env.root() + "/file/loose.bdb", QString(), false), -1);
        QCOMPARE(m.GetLoadedDBNum(), 1);
    }
};

ARGENT_TEST(FilesManagerTest)
#include "tst_filesmanager.moc"
