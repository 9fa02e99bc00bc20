// Nothing is lost: a process saving a user's database over and over is killed at random
// moments, and every time the file opens with the right password and holds one whole
// version. And a save on a full disk leaves the old file as it was.

#include "app/ProgConfig.h"
#include "app/modMain.h"
#include "tests/common/TestEnv.h"
#include "tests/common/TestMain.h"
#include "users/UserAccounts.h"

#include <QCoreApplication>
#include <QDir>
#include <QProcess>
#include <QRandomGenerator>
#include <QTest>
#include <QThread>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <sys/resource.h>

namespace {

constexpr int kKills = 200;

void useFolder(const QString& folder) {
    ProgConfig.Reset();
    for (int i = 1; i <= 5; ++i)
        AddElemToStrMass(ProgConfig, QString());
    ProgConfig[5] = folder;
    CreateProgramObjects();
}

// Version g of the database: 5 + g % 7 records of about 2 KB, each naming g; the table tag
// g + kIdRoom (the last identifier handed out is never below a row's).
constexpr int kIdRoom = 11;
QStringList row(int i, int g) {
    return {QString::number(i + 1),
            "0",
            "2",
            QStringLiteral("version %1").arg(g),
            "login",
            QString(40, QChar('a' + g % 26)),
            QStringLiteral("record %1 of %2").arg(i).arg(g) + QString(2000, u'.'),
            "1key",
            "0|0"};
}

void fillVersion(clsDatabase& db, int g) {
    QList<int> all;
    for (int r = 1; r <= db.GetTblRecNum(1); ++r)
        all << r;
    db.DeleteRecs(1, all);
    for (int i = 0; i < 5 + g % 7; ++i)
        db.SetTblRecord(1, db.AddRecord(1), row(i, g));
    db.SetTblTag(1, QString::number(g + kIdRoom));
}

// The version a database holds, or -1 when its records do not form one whole version.
int versionOf(clsDatabase& db) {
    const int g = db.GetTblTag(1).toInt() - kIdRoom;
    if (db.GetTblRecNum(1) != 5 + g % 7)
        return -1;
    for (int r = 1; r <= db.GetTblRecNum(1); ++r)
        if (db.GetTblRecord(1, r) != row(r - 1, g))
            return -1;
    return g;
}

// In a child: the user "Kill" in the folder and with the password given as arguments,
// loaded; returns the file key, empty when it does not load.
QString loadKillUser() {
    const QStringList args = QCoreApplication::arguments().mid(1);
    useFolder(args.value(0));
    const QString key = GetTruePasw(args.value(1));
    return LoadUser(UsDBFilePath("Kill"), key) == 2 ? key : QString();
}

void say(const char* what, int g) {
    std::printf("%s %d\n", what, g);
    std::fflush(stdout);
}

// Child: saves new versions until it is killed.
int saveForeverChild(int& argc, char** argv) {
    QCoreApplication app(argc, argv);
    const QString key = loadKillUser();
    if (key.isEmpty())
        return 3;
    int g = std::max(CurUsDB->GetTblTag(1).toInt() - kIdRoom, 0);
    say("ready", g);
    for (;;) {
        fillVersion(*CurUsDB, ++g);
        say("saving", g);
        if (SaveUsDB(CurUsDB, key) != 1)
            return 4;
        say("saved", g);
    }
}
ARGENT_CHILD("save-forever", saveForeverChild)

// Child: adds records and saves with a file size limit below what the save needs.
int fullDiskChild(int& argc, char** argv) {
    QCoreApplication app(argc, argv);
    const QString key = loadKillUser();
    if (key.isEmpty())
        return 3;
    for (int i = 0; i < 3000; ++i)
        CurUsDB->SetTblRecord(1, CurUsDB->AddRecord(1), QStringList(9, QString(40, 'x')));
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit lim{64 * 1024, 64 * 1024};
    setrlimit(RLIMIT_FSIZE, &lim);
    return SaveUsDB(CurUsDB, key) == -1 ? 0 : 5;
}
ARGENT_CHILD("full-disk", fullDiskChild)

// A user "Kill" in a fresh folder; md5 becomes the kept hash. Returns the folder.
QString makeKillUser(TestEnv& env, QString& md5) {
    const QString folder = env.root() + "/dbs";
    QDir().mkpath(folder);
    useFolder(folder);
    AddUser(UsDBFilePath("Kill"), "Kill", md5);
    return folder;
}

} // namespace

class KillSaveTest : public QObject {
    Q_OBJECT
private slots:
    void killedWhileSavingLosesNothing() {
        TestEnv env;
        QString md5 = "kill password";
        const QString folder = makeKillUser(env, md5);
        const QString key = GetTruePasw(md5);
        QCOMPARE(LoadUser(UsDBFilePath("Kill"), key), 2);
        fillVersion(*CurUsDB, 1);
        QCOMPARE(SaveUsDB(CurUsDB, key), 1);

        int known = 1, duringSave = 0;
        for (int kill = 0; kill < kKills; ++kill) {
            QProcess p;
            p.setEnvironment(env.childEnv("save-forever"));
            p.start(QCoreApplication::applicationFilePath(), {folder, md5});
            while (!p.canReadLine())
                QVERIFY2(p.waitForReadyRead(10000), "the child did not get ready");
            QVERIFY(p.readLine().startsWith("ready "));
            QThread::usleep(QRandomGenerator::global()->bounded(15000));
            p.kill();
            QVERIFY(p.waitForFinished());
            int reported = known;
            bool saving = false;
            for (const QByteArray& line : p.readAllStandardOutput().split('\n')) {
                if (line.startsWith("saved "))
                    reported = line.mid(6).toInt();
                if (!line.isEmpty())
                    saving = line.startsWith("saving ");
            }
            duringSave += saving;

            // The file opens with the password and holds the last reported version or the
            // one being written when the kill came, whole.
            CreateProgramObjects();
            QCOMPARE(LoadUser(UsDBFilePath("Kill"), key), 2);
            const int g = versionOf(*CurUsDB);
            QVERIFY2(g == reported || g == reported + 1,
                     qPrintable(QString("%1: %2 %3").arg(kill).arg(g).arg(reported)));
            known = g;
        }
        // A kill between writing the new copy and renaming it over the file can leave that
        // copy beside the file; it is never taken for a user.
        StrMass users;
        FindUsers(folder, users);
        QCOMPARE(users.Items, QStringList{"Kill"});
        QVERIFY(duringSave > kKills / 4);
        QVERIFY(known > 1);
    }

    void fullDiskKeepsTheOldFile() {
        TestEnv env;
        QString md5 = "disk password";
        const QString folder = makeKillUser(env, md5);
        const QByteArray before = readAllOf(UsDBFilePath("Kill"));
        QProcess p;
        p.setEnvironment(env.childEnv("full-disk"));
        p.start(QCoreApplication::applicationFilePath(), {folder, md5});
        QVERIFY(p.waitForFinished());
        QCOMPARE(p.exitCode(), 0);
        QCOMPARE(readAllOf(UsDBFilePath("Kill")), before);
        QCOMPARE(TestUsPasw(UsDBFilePath("Kill"), md5), 1);
    }
};

ARGENT_TEST(KillSaveTest)
#include "tst_killsave.moc"
