#include "tests/common/TestMain.h"
#include "tests/users/UsersTestKit.h"

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
    }

    void newUserFileOpensOnlyWithItsPassword() {
        TestEnv env;
        startFirstRun();
        const QString path = UsDBFilePath("Alice");
        writeFileText(path, "an older file of that name");
        const QString md5 = makeUser("Alice", "correct horse");
        QCOMPARE(md5, HashString("correct horse"));
        QCOMPARE(posixMode(path), 0600);
        // Twenty MD5 digests in all, then the MD5 text itself, make the file key.
        QCOMPARE(GetTruePasw(HashString("12345678")),
                 QString("26c52664db7489b94d0632ce0a91ae3225d55ad283aa400af464c76d713c07ad"));
        // Outer layer: RC4 under the file key; inside, the protected table file.
        const QString key = GetTruePasw(md5);
        QVERIFY(DecryptFile(path, env.root() + "/inner", true, key));
        DatabaseRecord db;
        TableEngine e;
        e.ResetDatabase(db);
        QCOMPARE(e.LoadDatabase(db, env.root() + "/inner", key), 1);
        QCOMPARE(db.Name, QString("Alice"));
        QCOMPARE(db.Tables.value(0).RecNum(), 0);
        // The check: right, wrong, missing; the deciphered copy never stays behind.
        QCOMPARE(TestUsPasw(path, md5), 1);
        QCOMPARE(TestUsPasw(path, HashString("correct horse ")), 2);
        QCOMPARE(TestUsPasw(UsDBFilePath("Nobody"), md5), 2);
        QCOMPARE(leftoverTempFiles(), QStringList());
        // Two names that differ only in case are two users.
        makeUser("alice", "another one");
        QCOMPARE(TestUsPasw(path, md5), 1);
        QCOMPARE(TestUsPasw(UsDBFilePath("alice"), HashString("another one")), 1);
    }

    void openingAndUnloadingAUser() {
        TestEnv env;
        startFirstRun();
        RecordingView view;
        SetUserView(&view);
        const QString md5 = makeUser("Bob", "bob's password");
        QCOMPARE(FullUserLoad("Bob", HashString("wrong password")), -1);
        QCOMPARE(FullUserLoad("Nobody", md5), 100);
        QCOMPARE(CurUser, QString());
        QCOMPARE(view.calls, QStringList());
        QCOMPARE(FullUserLoad("Bob", md5), 0);
        QCOMPARE(CurUser, QString("Bob"));
        QCOMPARE(CurUsDB->Path(), UsDBFilePath("Bob"));
        QCOMPARE(view.calls, QStringList({"tree", "value", "show Bob"}));
        StrMass saved;
        LoadConfig(ProgCfgPath, saved);
        QCOMPARE(saved[4], QString("Bob"));
        UnloadUser();
        QCOMPARE(CurUser, QString());
        QCOMPARE(CurUsPasw, QString());
        QCOMPARE(CurUsDB->TabNum(), 0);
        StrMass after;
        LoadConfig(ProgCfgPath, after);
        QCOMPARE(after[4], QString());
        QCOMPARE(leftoverTempFiles(), QStringList());
        SetUserView(nullptr);
    }

    void damagedFiles_data() {
        QTest::addColumn<int>("kind");
        QTest::addColumn<int>("check");
        QTest::addColumn<int>("load");
        // The check deciphers only the outer layer; the load finds the damage, and a file
        // whose first line opened is damaged, not one of a wrong password.
        QTest::newRow("truncated") << 0 << 1 << -3;
        QTest::newRow("flipped byte") << 1 << 1 << -3;
        QTest::newRow("random") << 2 << 2 << -4;
        QTest::newRow("empty") << 3 << 2 << -4;
        QTest::newRow("missing") << 4 << 2 << -2;
    }
    void damagedFiles() {
        QFETCH(int, kind);
        QFETCH(int, check);
        QFETCH(int, load);
        TestEnv env;
        startFirstRun();
        const QString md5 = makeUser("Carol", "carol's password");
        const QString path = UsDBFilePath("Carol");
        QByteArray bytes = readAllOf(path);
        bytes[bytes.size() / 2] = static_cast<char>(bytes[bytes.size() / 2] ^ 0x10);
        const QByteArray damaged[] = {readAllOf(path).left(100), bytes, QByteArray(bytes.size(), 'x'), {}};
        if (kind < 4)
            writeFileText(path, damaged[kind]);
        else
            QFile::remove(path);
        QCOMPARE(TestUsPasw(path, md5), check);
        QCOMPARE(LoadUser(path, GetTruePasw(md5)), load);
        QCOMPARE(CurUsDB->TabNum(), 0);
        QCOMPARE(MDFM->GetLoadedDBNum(), 0);
        QCOMPARE(leftoverTempFiles(), QStringList());
    }

    // A load right after a successful check reads the file as it is then, with its own
    // key: a file replaced in between is the one loaded, and another key opens nothing.
    void loadAfterCheckReadsTheFileAsItIsThen() {
        TestEnv env;
        startFirstRun();
        const QString dan = makeUser("Dan", "dan's password");
        const QString eve = makeUser("Eve", "eve's password");
        const QString path = UsDBFilePath("Dan");
        auto load = [&](const QString& Md5) {
            CurUsDB = std::make_shared<clsDatabase>();
            return LoadUser(path, GetTruePasw(Md5));
        };
        QCOMPARE(TestUsPasw(path, dan), 1);
        QCOMPARE(load(dan), 2);
        QCOMPARE(CurUsDB->Name(), QString("Dan"));
        QVERIFY(CurUsDB->FileId() == ReadFileIdentity(path, true));
        // Another key than the check's.
        QCOMPARE(TestUsPasw(path, dan), 1);
        QCOMPARE(load(eve), -4);
        // The file replaced between the check and the load: the new file is what is read.
        QCOMPARE(TestUsPasw(path, dan), 1);
        QVERIFY(QFile::remove(path) && QFile::copy(UsDBFilePath("Eve"), path));
        QCOMPARE(load(dan), -4);
        QCOMPARE(TestUsPasw(path, eve), 1);
        QCOMPARE(load(eve), 2);
        QCOMPARE(CurUsDB->Name(), QString("Eve"));
        QVERIFY(CurUsDB->FileId() == ReadFileIdentity(path, true));
        QCOMPARE(MDFM->GetLoadedDBNum(), 0);
        QCOMPARE(leftoverTempFiles(), QStringList());
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
        QCOMPARE(FullUserLoad("Alice", alice), 0);
        QCOMPARE(CurUsDB->GetTblFldValNm(1, 1, "Title"), QString("Alice's record"));
        // The file is written under the database's own name, whatever path it came from.
        CurUsDB->SetPath(UsDBFilePath("Elsewhere"));
        QCOMPARE(SaveUsDB(CurUsDB, GetTruePasw(alice)), 1);
        QVERIFY(!QFile::exists(UsDBFilePath("Elsewhere")));
        // A database without a name has no file: nothing is written.
        QCOMPARE(SaveUsDB(std::make_shared<clsDatabase>(), GetTruePasw(alice)), -5);
        // A new password: the old one stops working at once, the records stay.
        QCOMPARE(ChangeUsPasw("a new password"), 1);
        QCOMPARE(TestUsPasw(UsDBFilePath("Alice"), alice), 2);
        QCOMPARE(FullUserLoad("Alice", HashString("a new password")), 0);
        QCOMPARE(CurUsDB->GetTblRecNum(1), 1);
        QCOMPARE(leftoverTempFiles(), QStringList());
    }

    void deletingUsers() {
        TestEnv env;
        startFirstRun();
        const QString md5 = makeUser("Eve", "eve password");
        QCOMPARE(FullUserLoad("Eve", md5), 0);
        QCOMPARE(DeleteUser("Nobody", UsDBFilePath("Nobody")), -2);
        // Deleting the loaded user's file leaves the loaded user as it is.
        QCOMPARE(DeleteUser("Eve", UsDBFilePath("Eve")), 1);
        QVERIFY(!QFile::exists(UsDBFilePath("Eve")));
        QCOMPARE(CurUser, QString("Eve"));
    }
};

ARGENT_TEST(AccountsTest)
#include "tst_accounts.moc"
