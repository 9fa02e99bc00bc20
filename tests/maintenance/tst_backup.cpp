#include "app/MsgBox.h"
#include "app/VbConv.h"
#include "app/modTimer.h"
#include "tests/common/TestMain.h"
#include "tests/maintenance/MaintTestKit.h"

#include <QTest>

#include <climits>
#include <unistd.h>

namespace {

// One backup after a change, so that every copy differs from the one before; returns
// the digest of the user's file that was copied.
QByteArray backupWithChange(const QString& title) {
    addTitle(title);
    DoAutobackup(CurUsDB);
    return digestOf(UsDBFilePath("anna"));
}

} // namespace

class BackupTest : public QObject {
    Q_OBJECT
private slots:
    // The version each copy _0.._5 holds ("-": none) after one backup per entry of
    // keep (the number of copies to keep at that backup; "n": automatic backups off, the
    // number still counts), the copies in removed deleted by hand before the last one.
    void rotationKeepsTheNewestCopies_data() {
        QTest::addColumn<QString>("keep");
        QTest::addColumn<QString>("removed");
        QTest::addColumn<QString>("expected");
        QTest::newRow("from empty") << "3,3,3"
                                    << ""
                                    << "-123--";
        QTest::newRow("full") << "3,3,3,3"
                              << ""
                              << "-234--";
        QTest::newRow("with gaps") << "3,3,3,3,3"
                                   << "1,2"
                                   << "--45--";
        QTest::newRow("5 lowered to 3") << "5,5,5,5,5,n3"
                                        << ""
                                        << "-23645";
        QTest::newRow("one copy") << "3,3,1"
                                  << ""
                                  << "-32---";
        QTest::newRow("none") << "3,0,0"
                              << ""
                              << "3-----";
    }
    void rotationKeepsTheNewestCopies() {
        QFETCH(QString, keep);
        QFETCH(QString, removed);
        QFETCH(QString, expected);
        TestEnv env;
        openAnna();
        const QStringList keeps = keep.split(u',');
        QList<QByteArray> version{{}};
        for (int k = 0; k < keeps.size(); ++k) {
            ProgConfig[13] = keeps[k];
            if (k == keeps.size() - 1)
                for (const QString& r : removed.split(u',', Qt::SkipEmptyParts))
                    QFile::remove(copyOf("anna", r.toInt()));
            version << backupWithChange(QStringLiteral("v%1").arg(k + 1));
        }
        QString actual;
        for (int k = 0; k <= 5; ++k) {
            const qsizetype v =
                QFile::exists(copyOf("anna", k)) ? version.indexOf(digestOf(copyOf("anna", k))) : -1;
            actual += v < 0 ? u'-' : QChar(char16_t(u'0' + v));
        }
        QCOMPARE(actual, expected);
        QCOMPARE(logLines("!!!AUTOBACKUP!!!").size(), keeps.size());
        // A copy is the user's file as it is on disk: still enciphered, byte for byte.
        const int newest = expected.indexOf(QString::number(keeps.size()));
        QCOMPARE(titlesInFile(copyOf("anna", newest), CurUsPasw).size(), keeps.size());
        QCOMPARE(posixMode(copyOf("anna", newest)), 0600);
        QCOMPARE(posixMode(backupDir()), 0700);
    }

    void usedDatabasesAreSavedFirst() {
        TestEnv env;
        const QString md5 = openAnna();
        addTitle("unsaved");
        // Not used for two hours: the file is copied as it stands.
        const QByteArray before = digestOf(UsDBFilePath("anna"));
        // Nonsense as the number of copies stops it before any change.
        for (const char* bad : {"abc", "n", "9999999999"}) {
            ProgConfig[13] = QString::fromLatin1(bad);
            QVERIFY_THROWS_EXCEPTION(VbError, DoAutobackup(CurUsDB));
            argent::diag::clearSnapshot();
        }
        QVERIFY(!QFile::exists(backupDir()));
        ProgConfig[13] = "3";
        CurUsDB->SetDBLastAccess(CLng(GetQueryPerf()) - 7200);
        DoAutobackup(CurUsDB);
        QCOMPARE(digestOf(UsDBFilePath("anna")), before);
        QCOMPARE(digestOf(copyOf("anna", 1)), before);
        // Used just now: saved, and the copy holds the change.
        CurUsDB->SetDBLastAccess(CLng(GetQueryPerf()));
        DoAutobackup(CurUsDB);
        QCOMPARE(titlesInFile(copyOf("anna", 2), md5), QStringList({"unsaved"}));
        QCOMPARE(digestOf(copyOf("anna", 2)), digestOf(UsDBFilePath("anna")));
    }

    void timerBacksUpOnTheFirstTickAndHourly() {
        TestEnv env;
        firstRun();
        const QString md5 = makeUser("anna");
        int ticks = 0;
        QVERIFY(!AutobackupTick(ticks, CurUsDB)); // no user: the ticks do not count
        QCOMPARE(ticks, 0);
        FullUserLoad("anna", md5);
        int made = 0;
        for (int i = 0; i <= 120; ++i)
            made += AutobackupTick(ticks, CurUsDB);
        QCOMPARE(ticks, 121);
        QCOMPARE(made, 3); // ticks 0, 60 and 120
        QCOMPARE(copiesOnDisk().size(), 3);
    }

    // A Backup folder that is another user's link: no copy is made, moved or deleted
    // there; the timer says so and the program goes on, a backup asked for fails.
    void foreignBackupFolderIsLeftAlone() {
        TestEnv env;
        openAnna();
        const QString theirs = env.root() + "/theirs", backup = ProgConfig[5] + "/Backup";
        QDir().mkpath(theirs);
        writeFileText(theirs + "/anna_1.bdb.BACKUP", "theirs");
        QCOMPARE(chown(QFile::encodeName(theirs).constData(), 65534, 65534), 0);
        QVERIFY(QFile::link(theirs, backup));
        QCOMPARE(lchown(QFile::encodeName(backup).constData(), 65534, 65534), 0);
        QStringList boxes;
        const MsgBoxHandler was = SetMsgBoxHandler([&](const QString& Prompt, int, const QString&) {
            boxes << Prompt;
            return int(vbOK);
        });
        int ticks = 0;
        QVERIFY(!AutobackupTick(ticks, CurUsDB));
        SetMsgBoxHandler(was);
        QCOMPARE(boxes.size(), 1);
        QVERIFY(boxes[0].contains(backup));
        QVERIFY_THROWS_EXCEPTION(VbError, DoAutobackup(CurUsDB));
        QCOMPARE(QDir(theirs).entryList(QDir::Files), QStringList{"anna_1.bdb.BACKUP"});
        QCOMPARE(readAllOf(theirs + "/anna_1.bdb.BACKUP"), QByteArray("theirs"));
    }
};
ARGENT_TEST(BackupTest)

#include "tst_backup.moc"
