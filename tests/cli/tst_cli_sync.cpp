// argentpm and the conflict copies of a sync engine: never a user, said to wait by the
// commands that read, merged first by the commands that change, and by "merge" on demand;
// a copy under another password or a damaged one is left as it is.

#include "tests/common/TestEnv.h"
#include "tests/common/TestMain.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTest>

#include <unistd.h>

namespace {

struct Run {
    int code = -1;
    QString out, err;
};

struct Cli {
    QString exe;
    explicit Cli(TestEnv& env) : exe(env.progDir() + "/argentpm") {
        QFile::copy(QStringLiteral(ARGENT_BIN_DIR) + "/argentpm", exe);
    }
    Run operator()(const QString& Dbs, const QStringList& Args, const QString& Pasw = "pat password 1") {
        QProcess p;
        p.setChildProcessModifier([] { setsid(); });
        p.start(exe, QStringList{"--databases", Dbs} + Args + QStringList{"--password-stdin"});
        p.write((Pasw + "\n").toUtf8());
        p.closeWriteChannel();
        if (!p.waitForFinished(30000) || p.exitStatus() != QProcess::NormalExit)
            return {};
        return {p.exitCode(), QString::fromUtf8(p.readAllStandardOutput()),
                QString::fromUtf8(p.readAllStandardError())};
    }
};

QByteArray bytesOf(const QString& Path) {
    QFile f(Path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

} // namespace

class CliSyncTest : public QObject {
    Q_OBJECT
private slots:
    void conflictCopiesFromTheCommandLine() {
        TestEnv env;
        Cli cli(env);
        const QString a = env.root() + "/a", b = env.root() + "/b", c = env.root() + "/c";
        QCOMPARE(cli(a, {"add-user", "pat"}).code, 0);
        const QString mail = cli(a, {"mkdir", "pat", "0", "Mail"}).out.trimmed();
        const QString old = cli(a, {"add", "pat", mail, "--title", "Old"}).out.trimmed();
        // The other machine: a copy of the folder, changed there.
        QDir().mkpath(b);
        QVERIFY(QFile::copy(a + "/pat.bdb", b + "/pat.bdb"));
        QCOMPARE(cli(b, {"add", "pat", "0", "--title", "From B"}).code, 0);
        QCOMPARE(cli(b, {"rm", "pat", old, "--yes"}).code, 0);
        QCOMPARE(cli(a, {"edit", "pat", mail, "--title", "Mail A"}).code, 0);
        const QString copy = a + "/pat.sync-conflict-20261124-211129-EEACIID.bdb";
        QVERIFY(QFile::copy(b + "/pat.bdb", copy));

        Run r = cli(a, {"users"});
        QCOMPARE(r.out, QString("pat\n"));
        r = cli(a, {"ls", "pat"});
        QCOMPARE(r.code, 0);
        QVERIFY2(r.err.contains("1 conflict copy of user \"pat\" waits"), qPrintable(r.err));
        QVERIFY(!r.out.contains("From B"));
        // A change merges the copy first, then makes itself.
        r = cli(a, {"add", "pat", "0", "--title", "After"});
        QCOMPARE(r.code, 0);
        QVERIFY2(r.err.contains("Merged pat.sync-conflict") && r.err.contains("three-way"),
                 qPrintable(r.err));
        QVERIFY(!QFile::exists(copy));
        r = cli(a, {"ls", "pat"});
        QVERIFY(r.err.isEmpty());
        QVERIFY(r.out.contains("Mail A") && r.out.contains("From B") && r.out.contains("After"));
        QVERIFY(!r.out.contains("Old"));
        r = cli(a, {"backups"});
        QVERIFY2(r.out.contains("pat_merged-"), qPrintable(r.out));
        r = cli(a, {"merge", "pat"});
        QCOMPARE(r.code, 0);
        QVERIFY(r.err.contains("no conflict copies"));

        // Another password (the user was made anew elsewhere) and a damaged copy: both left.
        QCOMPARE(cli(c, {"add-user", "pat"}, "another password 2").code, 0);
        const QString locked = a + "/pat (conflicted copy 2026-11-24 211129).bdb";
        QVERIFY(QFile::copy(c + "/pat.bdb", locked));
        const QByteArray before = bytesOf(a + "/pat.bdb");
        r = cli(a, {"merge", "pat"});
        QCOMPARE(r.code, 3);
        QVERIFY2(r.out.contains("opens only with another password"), qPrintable(r.out));
        QVERIFY(QFile::exists(locked));
        QCOMPARE(bytesOf(a + "/pat.bdb"), before);
        QVERIFY(QFile::remove(locked));
        QByteArray damaged = bytesOf(b + "/pat.bdb");
        damaged[damaged.size() / 2] = char(damaged[damaged.size() / 2] ^ 0x01);
        const QString broken = b + "/broken.bdb";
        QFile f(broken);
        QVERIFY(f.open(QIODevice::WriteOnly) && f.write(damaged) == damaged.size());
        f.close();
        r = cli(a, {"merge", "pat", broken});
        QCOMPARE(r.code, 5);
        QVERIFY(r.out.contains("damaged"));
        QCOMPARE(bytesOf(broken), damaged);
        QCOMPARE(bytesOf(a + "/pat.bdb"), before);
        QCOMPARE(cli(a, {"merge", "pat", env.root() + "/none.bdb"}).code, 1);
    }
};

ARGENT_TEST(CliSyncTest)
#include "tst_cli_sync.moc"
