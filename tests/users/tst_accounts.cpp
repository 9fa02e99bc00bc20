#include "tests/common/TestMain.h"
#include "tests/users/UsersTestKit.h"

#include "diagnostics/ErrorTrap.h"
#include "storage/Rc4.h"
#include "storage/TableEngine.h"

#include <QFile>
#include <QTest>

class AccountsTest : public QObject {
    Q_OBJECT
private slots:
    void findUsersListsOnlyUserFiles() {
        TestEnv env;
        const QString d = env.root() + "/dbs";
        QDir().mkpath(d + "/c.bdb");
        for (const char* f : {"a.bdb", "b.BDB", "d.bdb.BACKUP", "e.bdbx", ".bdb2"})
            writeFileText(d + "/" + f, "x");
        StrMass users;
        FindUsers(d, users);
        QCOMPARE(users.Items, QStringList{"a"});
        // Names found are appended to what the array holds.
        FindUsers(d + "/", users);
        QCOMPARE(users.Items, QStringList({"a", "a"}));
        StrMass none;
        FindUsers(env.root() + "/missing", none);
        QCOMPARE(none.UBound(), 0);
        QVERIFY(readAllOf(env.progDir() + "/DbgFile.dat")
                    .contains("Error#0003. FPath = " + (env.root() + "/missing").toUtf8()));
    }

    void fileKeyChain() {
        // Twenty MD5 digests in all, then the MD5 text itself.
        QCOMPARE(GetTruePasw(HashString("12345678")),
                 QString("26c52664db7489b94d0632ce0a91ae3225d55ad283aa400af464c76d713c07ad"));
        QCOMPARE(GetTruePasw(HashString("")),
                 QString("510774e9a49ef0e765e3e521057c8b78d41d8cd98f00b204e9800998ecf8427e"));
        QCOMPARE(GetTruePasw(HashString(QString(5000, 'x'))).size(), 64);
    }

    void newUserFileOpensOnlyWithItsPassword() {
        TestEnv env;
        startFirstRun();
        const QString path = UsDBFilePath("Alice");
        writeFileText(path, "an older file of that name");
        const QString md5 = makeUser("Alice", "correct horse");
        QCOMPARE(md5, HashString("correct horse"));
        QCOMPARE(posixMode(path), 0600);
        // Outer layer: RC4 under the file key; inside, the protected table file.
        const QString key = GetTruePasw(md5);
        QVERIFY(DecryptFile(path, env.root() + "/inner", true, key));
        QVERIFY(readAllOf(env.root() + "/inner").startsWith("wqpdhxMeM.ENC\r\n"));
        DatabaseRecord db;
        TableEngine e;
        e.ResetDatabase(db);
        QCOMPARE(e.LoadDatabase(db, env.root() + "/inner", key), 1);
        QCOMPARE(db.Name, QString("Alice"));
        QCOMPARE(db.Tag, QString("Alice"));
        QCOMPARE(db.Tables.value(0).Name, QString("DataTable"));
        QCOMPARE(db.Tables.value(0).RecNum(), 0);
        // The check: right, wrong, missing; the deciphered copy never stays behind.
        QCOMPARE(TestUsPasw(path, md5), 1);
        QCOMPARE(TestUsPasw(path, HashString("correct horse ")), 2);
        QCOMPARE(TestUsPasw(UsDBFilePath("Nobody"), md5), 2);
        QCOMPARE(leftoverTempFiles(), QStringList());
        // Two names that differ only in case are two users.
        makeUser("alice", "another one");
        StrMass users;
        FindUsers(ProgConfig[5], users);
        users.Items.sort();
        QCOMPARE(users.Items, QStringList({"Alice", "SampleUser", "alice"}));
        QCOMPARE(TestUsPasw(path, md5), 1);
    }

    void openingAndUnloadingAUser() {
        TestEnv env;
        startFirstRun();
        RecordingView view;
        SetUserView(&view);
        const QString md5 = makeUser("Bob", "bob's password");
        QCOMPARE(FullUserLoad("Bob", md5), 0);
        QCOMPARE(CurUser, QString("Bob"));
        QCOMPARE(CurUsPasw, md5);
        QCOMPARE(CurUsDBPath, UsDBFilePath("Bob"));
        QCOMPARE(CurUsDB->Path(), CurUsDBPath);
        QCOMPARE(CurUsDB->Name(), QString("Bob"));
        QCOMPARE(view.calls, QStringList({"tree", "value", "show Bob"}));
        StrMass saved;
        LoadConfig(ProgCfgPath, saved);
        QCOMPARE(saved[4], QString("Bob"));
        QCOMPARE(leftoverTempFiles(), QStringList());

        view.calls.clear();
        UnloadUser();
        QCOMPARE(CurUser, QString());
        QCOMPARE(CurUsPasw, QString());
        QCOMPARE(CurUsDBPath, QString());
        QCOMPARE(CurUsDB->TabNum(), 0);
        QCOMPARE(view.calls, QStringList({"tree", "value", "tree"}));
        StrMass after;
        LoadConfig(ProgCfgPath, after);
        QCOMPARE(after[4], QString());
        SetUserView(nullptr);
    }

    void failedOpeningsChangeNothing() {
        TestEnv env;
        startFirstRun();
        RecordingView view;
        SetUserView(&view);
        const QString md5 = makeUser("Carol", "carol's password");
        QCOMPARE(FullUserLoad("Carol", HashString("wrong password")), -1);
        QCOMPARE(FullUserLoad("Nobody", md5), 100);
        QCOMPARE(CurUser, QString());
        QCOMPARE(CurUsPasw, QString());
        QCOMPARE(CurUsDBPath, QString());
        QCOMPARE(view.calls, QStringList());
        QCOMPARE(leftoverTempFiles(), QStringList());

        // Damaged files, each with the result the check and the load give it.
        const QString path = UsDBFilePath("Carol");
        const QString key = GetTruePasw(md5);
        const QByteArray good = readAllOf(path);
        QByteArray flipped = good;
        flipped[good.size() / 2] = static_cast<char>(flipped[good.size() / 2] ^ 0x10);
        QByteArray noise(good.size(), 'x');
        const struct {
            QByteArray bytes;
            int check, load;
        } cases[] = {{good.left(100), 1, -4}, {flipped, 1, -4}, {noise, 2, -4}, {QByteArray(), 2, -4}};
        for (const auto& c : cases) {
            writeFileText(path, c.bytes);
            QCOMPARE(TestUsPasw(path, md5), c.check);
            QCOMPARE(LoadUser(path, key), c.load);
            QCOMPARE(CurUsDB->TabNum(), 0);
        }
        QCOMPARE(LoadUser(UsDBFilePath("Nobody"), key), -2);
        QCOMPARE(leftoverTempFiles(), QStringList());
        QCOMPARE(MDFM->GetLoadedDBNum(), 0);
        SetUserView(nullptr);
    }

    void savingSwitchingAndChangingThePassword() {
        TestEnv env;
        startFirstRun();
        const QString alice = makeUser("Alice", "alice password");
        const QString bob = makeUser("Bob", "bob password");
        QCOMPARE(FullUserLoad("Alice", alice), 0);
        addRow(*CurUsDB, 1, 0, "2", "Alice's record");
        // Opening another user saves the loaded one first.
        QCOMPARE(LoadUser(UsDBFilePath("Bob"), GetTruePasw(bob)), 2);
        QCOMPARE(CurUsDB->Name(), QString("Bob"));
        QCOMPARE(FullUserLoad("Alice", alice), 0);
        QCOMPARE(CurUsDB->GetTblFldValNm(1, 1, "Title"), QString("Alice's record"));

        // The file is written under the database's own name, whatever path it came from.
        CurUsDB->SetPath(UsDBFilePath("Elsewhere"));
        addRow(*CurUsDB, 2, 0, "1", "a folder");
        QCOMPARE(SaveUsDB(CurUsDB, GetTruePasw(alice)), 1);
        QVERIFY(!QFile::exists(UsDBFilePath("Elsewhere")));
        QCOMPARE(FullUserLoad("Alice", alice), 0);
        QCOMPARE(CurUsDB->GetTblRecNum(1), 2);
        // A database without a name has no file: nothing is written.
        QCOMPARE(SaveUsDB(std::make_shared<clsDatabase>(), GetTruePasw(alice)), -5);
        QVERIFY(!QFile::exists(UsDBFilePath("")));

        // A new password: the old one stops working at once, the records stay.
        QCOMPARE(ChangeUsPasw("a new password"), 1);
        QCOMPARE(CurUsPasw, HashString("a new password"));
        QCOMPARE(TestUsPasw(UsDBFilePath("Alice"), alice), 2);
        QCOMPARE(FullUserLoad("Alice", HashString("a new password")), 0);
        QCOMPARE(CurUsDB->GetTblRecNum(1), 2);
        QCOMPARE(leftoverTempFiles(), QStringList());
    }

    void failedSaveKeepsTheFile() {
        TestEnv env;
        startFirstRun();
        const QString md5 = makeUser("Dave", "dave password");
        QCOMPARE(FullUserLoad("Dave", md5), 0);
        const QByteArray before = readAllOf(UsDBFilePath("Dave"));
        // The databases folder is gone and a file stands in its place.
        QDir(ProgConfig[5]).removeRecursively();
        writeFileText(ProgConfig[5], "not a folder");
        addRow(*CurUsDB, 1, 0, "2", "unsaved");
        QCOMPARE(SaveUsDB(CurUsDB, GetTruePasw(md5)), -1);
        QCOMPARE(readAllOf(ProgConfig[5]), QByteArray("not a folder"));
        QCOMPARE(leftoverTempFiles(), QStringList());
        QVERIFY(!before.isEmpty());
    }

    void deletingUsers() {
        TestEnv env;
        startFirstRun();
        const QString md5 = makeUser("Eve", "eve password");
        makeUser("Frank", "frank password");
        QCOMPARE(FullUserLoad("Eve", md5), 0);
        QCOMPARE(DeleteUser("Nobody", UsDBFilePath("Nobody")), -2);
        QCOMPARE(CurUser, QString("Eve"));
        QCOMPARE(DeleteUser("Frank", UsDBFilePath("Frank")), 1);
        QVERIFY(!QFile::exists(UsDBFilePath("Frank")));
        // Deleting the loaded user's file leaves the loaded user as it is.
        QCOMPARE(DeleteUser("Eve", UsDBFilePath("Eve")), 1);
        QCOMPARE(CurUser, QString("Eve"));
        QCOMPARE(CurUsDB->Name(), QString("Eve"));
    }
};

ARGENT_TEST(AccountsTest)
#include "tst_accounts.moc"
