// argentpm as one of several writers: changing commands take turns on the user's lock
// and nothing is lost; a lock held too long, a databases or temporary folder that is a
// file and unusable settings each get a clear message and their own exit status.

#include "app/modMain.h"
#include "tests/common/TestMain.h"
#include "tests/records/CliRunner.h"
#include "users/UserAccounts.h"

#include <QDir>
#include <QElapsedTimer>
#include <QProcess>
#include <QRegularExpression>
#include <QSet>
#include <QTest>

#include <csignal>
#include <unistd.h>

namespace {

const QByteArray kPw = "shared password\n";

// argentpm with the settings of the test's world (no --databases).
CliRun plain(const CliRunner& Cli, const QStringList& Args) {
    QProcess p;
    p.start(Cli.exe(), Args);
    p.closeWriteChannel();
    CliRun r;
    if (p.waitForFinished(30000) && p.exitStatus() == QProcess::NormalExit)
        r = {p.exitCode(), QString::fromUtf8(p.readAllStandardOutput()),
             QString::fromUtf8(p.readAllStandardError())};
    return r;
}

} // namespace

class CliSharedTest : public QObject {
    Q_OBJECT
private slots:
    void twoWritersAtOnceKeepEveryChange() {
        TestEnv env;
        CliRunner cli(env);
        QCOMPARE(cli({"add-user", "anna", "--password-stdin"}, kPw).code, 0);
        // Two processes, each making 100 changes one after the other, at the same time.
        QList<QProcess*> writers;
        for (const char* side : {"a", "b"}) {
            auto* p = new QProcess(this);
            p->start("sh",
                     {"-c",
                      QString("for i in $(seq 100); do printf '%1' | '%2' --databases '%3' mkdir anna 0 %4$i "
                              "--password-stdin >/dev/null || exit 1; done")
                          .arg(QString::fromUtf8(kPw).trimmed() + "\\n", cli.exe(), cli.dbs(), side)});
            writers << p;
        }
        for (QProcess* p : writers) {
            QVERIFY(p->waitForFinished(240000));
            QCOMPARE(p->exitCode(), 0);
        }
        const CliRun ls = cli.as(kPw.trimmed(), {"ls", "anna"});
        QStringList lines = ls.out.split('\n', Qt::SkipEmptyParts);
        QCOMPARE(lines.size(), 201);
        QSet<QString> ids, titles;
        for (const QString& l : lines.mid(1)) {
            const QStringList w = l.split(' ', Qt::SkipEmptyParts);
            ids << w[0];
            titles << w[1];
        }
        QCOMPARE(ids.size(), 200);
        QCOMPARE(titles.size(), 200);

        // A row moved into a folder made after it is listed under that folder.
        QCOMPARE(cli.as(kPw.trimmed(), {"add", "anna", "1", "--title", "moved"}).out, QString("201\n"));
        QCOMPARE(cli.as(kPw.trimmed(), {"mkdir", "anna", "0", "later"}).out, QString("202\n"));
        QCOMPARE(cli.as(kPw.trimmed(), {"mv", "anna", "1", "202"}).code, 0);
        QCOMPARE(cli.as(kPw.trimmed(), {"mv", "anna", "202", "201"}).code, 7);
        const QString after = cli.as(kPw.trimmed(), {"ls", "anna"}).out;
        QVERIFY2(QRegularExpression("\n202    later/\n  1      [ab]1/\n201        moved\n")
                     .match(after)
                     .hasMatch(),
                 qPrintable(after));
    }

    void lockHeldTooLongIsExitTen() {
        TestEnv env;
        CliRunner cli(env);
        QCOMPARE(cli({"add-user", "anna", "--password-stdin"}, kPw).code, 0);
        const QByteArray before = readAllOf(cli.dbs() + "/anna.bdb");
        QProcess holder;
        holder.setChildProcessModifier([] { setsid(); });
        holder.start("flock", {"-o", cli.dbs() + "/.anna.bdb.lock", "sleep", "20"});
        QVERIFY(holder.waitForStarted());
        QTest::qWait(300);
        QElapsedTimer t;
        t.start();
        const CliRun r = cli.as(kPw.trimmed(), {"mkdir", "anna", "0", "late"});
        QCOMPARE(r.code, 10);
        QVERIFY(t.elapsed() >= 9500);
        QVERIFY(r.err.contains("more than 10 s"));
        QCOMPARE(readAllOf(cli.dbs() + "/anna.bdb"), before);
        ::kill(-static_cast<pid_t>(holder.processId()), SIGKILL); // flock and its sleep
        holder.waitForFinished();
        QCOMPARE(cli.as(kPw.trimmed(), {"mkdir", "anna", "0", "late"}).code, 0);
        QVERIFY(cli({"--help"}).out.contains("10 another program held the user's file"));
    }

    void unusableFoldersAndSettingsAreSaidPlainly() {
        TestEnv env;
        CliRunner cli(env);
        QCOMPARE(plain(cli, {"users"}).code, 0); // a first run writes the settings
        const QString cfg = env.userFolder() + "/config.dat";
        const QByteArray settings = readAllOf(cfg);

        writeFileText(env.root() + "/afile", "x");
        CliRun r = plain(cli, {"--databases", env.root() + "/afile", "users"});
        QCOMPARE(r.code, 2);
        QVERIFY(r.err.contains("is a file"));
        QByteArray pointed = settings;
        pointed.replace(QFile::encodeName(env.userFolder() + "/DataBases"),
                        QFile::encodeName(env.root() + "/afile"));
        writeFileText(cfg, pointed);
        r = plain(cli, {"users"});
        QCOMPARE(r.code, 9);
        QVERIFY(r.err.contains("is a file"));
        writeFileText(cfg, "");
        r = plain(cli, {"users"});
        QCOMPARE(r.code, 9);
        QVERIFY(r.err.contains("damaged"));
        writeFileText(cfg, settings);

        QCOMPARE(cli({"add-user", "anna", "--password-stdin"}, kPw).code, 0);
        // The runtime folder and the system's temporary folder are files: the deciphered copy
        // lives in memory, so the user still opens and nothing is written beside them.
        const QByteArray runtime = qgetenv("XDG_RUNTIME_DIR"), tmpdir = qgetenv("TMPDIR");
        qputenv("XDG_RUNTIME_DIR", QFile::encodeName(env.root() + "/afile"));
        qputenv("TMPDIR", QFile::encodeName(env.root() + "/afile"));
        r = cli.as(kPw.trimmed(), {"ls", "anna"});
        qputenv("XDG_RUNTIME_DIR", runtime);
        tmpdir.isNull() ? qunsetenv("TMPDIR") : qputenv("TMPDIR", tmpdir);
        QCOMPARE(r.code, 0);
        QVERIFY2(r.err.isEmpty(), qPrintable(r.err));
        QCOMPARE(QFileInfo(env.root() + "/afile").isFile(), true);
    }
};

ARGENT_TEST(CliSharedTest)
#include "tst_cli_shared.moc"
