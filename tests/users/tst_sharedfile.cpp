// One user file, several writers: the program keeps what it read, merges what others
// wrote before it writes, never writes over a file whose password was changed elsewhere,
// and takes turns through the user's lock. The other writer is the real argentpm.

#include "records/RecordTree.h"
#include "storage/UserFileLock.h"
#include "tests/common/FullDisk.h"
#include "tests/common/TestMain.h"
#include "tests/records/CliRunner.h"
#include "tests/users/UsersTestKit.h"

#include <QProcess>
#include <QSet>
#include <QTest>

#include <csignal>
#include <unistd.h>

namespace {

const QString kPw = "first password";
const QString kNewPw = "second password";

// Identifier and title of every row in the user's file, opened with a typed password.
QStringList rowsInFile(const QString& Typed) {
    DatabaseRecord db;
    clsFileIdentity id;
    if (ReadUserFile(UsDBFilePath("anna"), GetTruePasw(HashString(Typed)), db, id) != 1)
        return {"<does not open>"};
    QStringList out;
    for (const QStringList& r : db.Tables[0].Records.rows())
        out << r[0] + " " + r[3];
    return out;
}

QStringList rowsInMemory() {
    QStringList out;
    for (const QStringList& r : CurUsDB->DBView().Tables[0].Records.rows())
        out << r[0] + " " + r[3];
    return out;
}

} // namespace

class SharedFileTest : public QObject {
    Q_OBJECT
private slots:
    void changesFromElsewhereAreMergedNeverLost() {
        TestEnv env;
        CliRunner cli(env);
        startFirstRun();
        ProgConfig[5] = cli.dbs();
        QDir().mkpath(cli.dbs());
        QCOMPARE(FullUserLoad("anna", makeUser("anna", kPw)), 0);
        AddRecordToDB(*CurUsDB, "0", "window 1", "", "", "");
        QCOMPARE(SaveUsDB(CurUsDB, GetTruePasw(CurUsPasw)), 1);
        QVERIFY(!CurUsDB->HasUnsavedChanges());

        // argentpm adds a record; the window adds one too and saves: both are kept, the
        // window's gets the next free identifier.
        QCOMPARE(cli.as(kPw, {"add", "anna", "0", "--title", "cli 2"}).code, 0);
        AddRecordToDB(*CurUsDB, "0", "window 2", "", "", "");
        QVERIFY(CurUsDB->HasUnsavedChanges());
        QCOMPARE(SaveUsDB(CurUsDB, GetTruePasw(CurUsPasw)), 2);
        const QStringList both{"1 window 1", "2 cli 2", "3 window 2"};
        QCOMPARE(rowsInFile(kPw), both);
        QCOMPARE(rowsInMemory(), both);
        QCOMPARE(CurUsDB->GetTblTag(1), QString("3"));

        // With nothing unsaved, a change elsewhere is a plain reload; asked again, nothing.
        QCOMPARE(cli.as(kPw, {"rename", "anna", "1", "renamed"}).code, 0);
        QCOMPARE(RefreshUsDB(CurUsDB, GetTruePasw(CurUsPasw)), 1);
        QCOMPARE(rowsInMemory().first(), QString("1 renamed"));
        QVERIFY(!CurUsDB->HasUnsavedChanges());
        QCOMPARE(RefreshUsDB(CurUsDB, GetTruePasw(CurUsPasw)), 0);

        // The password is changed elsewhere: nothing is written with the old key, until the
        // file's current password is given.
        QCOMPARE(cli.as(kPw, {"passwd", "anna"}, kNewPw.toUtf8() + '\n').code, 0);
        AddRecordToDB(*CurUsDB, "0", "window 4", "", "", "");
        const QByteArray before = readAllOf(UsDBFilePath("anna"));
        QCOMPARE(SaveUsDB(CurUsDB, GetTruePasw(CurUsPasw)), -7);
        QCOMPARE(RefreshUsDB(CurUsDB, GetTruePasw(CurUsPasw)), -7);
        QCOMPARE(SaveUsDBWithNewKey(CurUsDB, "a wrong guess"), -7);
        QCOMPARE(readAllOf(UsDBFilePath("anna")), before);
        QCOMPARE(SaveUsDBWithNewKey(CurUsDB, kNewPw), 2);
        CurUsPasw = HashString(kNewPw);
        QCOMPARE(rowsInFile(kNewPw), QStringList({"1 renamed", "2 cli 2", "3 window 2", "4 window 4"}));
        QCOMPARE(rowsInFile(kPw), QStringList{"<does not open>"});

        // Deleted elsewhere: not written again unless asked.
        QFile::remove(UsDBFilePath("anna"));
        QCOMPARE(SaveUsDB(CurUsDB, GetTruePasw(CurUsPasw)), -8);
        QVERIFY(!QFile::exists(UsDBFilePath("anna")));
        QCOMPARE(SaveUsDBRecreate(CurUsDB, GetTruePasw(CurUsPasw)), 1);
        QCOMPARE(rowsInFile(kNewPw).size(), 4);

        // The lock file is nobody's user, and no deciphered copy is left behind.
        StrMass users;
        FindUsers(cli.dbs(), users);
        QCOMPARE(users.Items, QStringList{"anna"});
        QVERIFY(QFile::exists(cli.dbs() + "/.anna.bdb.lock"));
        QCOMPARE(posixMode(cli.dbs() + "/.anna.bdb.lock"), 0600);
        QCOMPARE(leftoverTempFiles(), QStringList());
    }

    // A holder that dies never blocks anyone: the kernel drops its lock.
    void lockWaitsForItsHolderAndNotForTheDead() {
        TestEnv env;
        const QString user = env.root() + "/anna.bdb";
        QProcess holder;
        holder.setChildProcessModifier([] { setsid(); });
        holder.start("flock", {"-o", clsUserFileLock::LockFilePath(user), "sleep", "30"});
        QVERIFY(holder.waitForStarted());
        QTRY_VERIFY(QFile::exists(clsUserFileLock::LockFilePath(user)));
        QTest::qWait(200);
        clsUserFileLock lock(user);
        QVERIFY(!lock.Acquire(300));
        QVERIFY(lock.TimedOut());
        ::kill(-static_cast<pid_t>(holder.processId()), SIGKILL); // flock and its sleep
        holder.waitForFinished();
        QVERIFY(lock.Acquire(2000));
        // Within one process the lock is shared (a save inside a locked command).
        clsUserFileLock again(user);
        QVERIFY(again.Acquire(0));
    }

    void damagedFileAndTemporaryFolderAreToldApart() {
        TestEnv env;
        startFirstRun();
        const QString md5 = makeUser("anna", kPw);
        QByteArray bytes = readAllOf(UsDBFilePath("anna"));
        bytes[bytes.size() - 20] = bytes[bytes.size() - 20] ^ 1;
        writeFileText(UsDBFilePath("anna"), bytes);
        QCOMPARE(FullUserLoad("anna", HashString("wrong password")), -1);
        QCOMPARE(FullUserLoad("anna", md5), 101);
        makeUser("anna", kPw);
        // A full temporary folder no longer matters: the deciphered copy is kept in memory
        // and nothing of it reaches the folder.
        FullDisk full(GetWindowsTemp(), 0);
        full.Fill();
        QCOMPARE(full.Run([&] { return FullUserLoad("anna", md5); }), 0);
        QCOMPARE(CurUser, QString("anna"));
        QVERIFY(QDir(GetWindowsTemp()).entryList({"psc*"}, QDir::Files).isEmpty());
    }

    void staleTemporaryCopiesGoAtStart() {
        TestEnv env;
        startFirstRun();
        const QString tmp = GetWindowsTemp();
        QProcess dead;
        dead.start("true");
        QVERIFY(dead.waitForStarted());
        const qint64 deadPid = dead.processId();
        dead.waitForFinished();
        const QString mine = QString("psc%1_aaaaaa.tmp").arg(QCoreApplication::applicationPid());
        for (const QString& f : {QString("psc%1_bbbbbb.tmp").arg(deadPid),
                                 QString("psc%1_cccccc.tmp").arg(999999), mine, QString("other.txt")})
            writeFileText(tmp + f, "deciphered");
        QCOMPARE(RemoveStaleTempCopies(), 2);
        QCOMPARE(QDir(tmp).entryList(QDir::Files), QStringList({"other.txt", mine}));
    }
};

ARGENT_TEST(SharedFileTest)
#include "tst_sharedfile.moc"
