#include "app/modMain.h"
#include "storage/Md5.h"
#include "storage/Rc4.h"
#include "tests/common/TestEnv.h"
#include "tests/common/TestMain.h"
#include "users/UserAccounts.h"

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

// Runs argentpm from the test's program folder, detached from any terminal, so that a
// password can only come from standard input.
class Cli {
public:
    explicit Cli(TestEnv& env) : m_env(env) {
        const QString exe = env.progDir() + "/argentpm";
        QFile::copy(QStringLiteral(ARGENT_BIN_DIR) + "/argentpm", exe);
        m_exe = exe;
        m_dbs = env.root() + "/dbs";
    }
    QString dbs() const { return m_dbs; }
    Run operator()(const QStringList& args, const QByteArray& input = QByteArray(), bool withFolder = true) {
        QProcess p;
        p.setChildProcessModifier([] { setsid(); });
        p.start(m_exe, withFolder ? QStringList{"--databases", m_dbs} + args : args);
        p.write(input);
        p.closeWriteChannel();
        Run r;
        if (!p.waitForFinished(20000))
            return r;
        r.code = p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1;
        r.out = QString::fromUtf8(p.readAllStandardOutput());
        r.err = QString::fromUtf8(p.readAllStandardError());
        return r;
    }

private:
    TestEnv& m_env;
    QString m_exe, m_dbs;
};

} // namespace

class CliTest : public QObject {
    Q_OBJECT
private slots:
    void helpAndUsage() {
        TestEnv env;
        Cli cli(env);
        Run r = cli({"--help"}, {}, false);
        QCOMPARE(r.code, 0);
        QVERIFY(r.out.contains("Usage: argentpm") && r.out.contains("Exit status"));
        for (const char* cmd : {"users", "add-user", "passwd", "delete-user", "ls", "show"}) {
            r = cli({QString::fromLatin1(cmd), "--help"}, {}, false);
            QCOMPARE(r.code, 0);
            QVERIFY2(r.out.startsWith(QStringLiteral("Usage: argentpm [--databases DIR] ") + cmd), cmd);
            QCOMPARE(cli({"help", QString::fromLatin1(cmd)}, {}, false).out, r.out);
        }
        QCOMPARE(cli({}, {}, false).code, 2);
        QCOMPARE(cli({"frobnicate"}).code, 2);
        QCOMPARE(cli({"ls"}).code, 2);
        QCOMPARE(cli({"show", "SampleUser", "x"}).code, 2);
        QCOMPARE(cli({"users", "--bogus"}).code, 2);
        QCOMPARE(cli({"--databases"}, {}, false).code, 2);
        // Without a terminal and without --password-stdin there is no way to ask.
        r = cli({"add-user", "Zed"});
        QCOMPARE(r.code, 2);
        QVERIFY(r.err.contains("--password-stdin"));
    }

    void accountsFromTheCommandLine() {
        TestEnv env;
        Cli cli(env);
        QCOMPARE(cli({"add-user", "Alice", "--password-stdin"}, "alice pass 1\n").code, 0);
        QCOMPARE(posixMode(cli.dbs() + "/Alice.bdb"), 0600);
        QCOMPARE(posixMode(cli.dbs()), 0700);
        QCOMPARE(cli({"add-user", "Alice", "--password-stdin"}, "another one\n").code, 7);
        QCOMPARE(cli({"add-user", "Bob", "--password-stdin"}, "short\n").code, 7);
        QCOMPARE(cli({"add-user", "../evil", "--password-stdin"}, "long enough\n").code, 7);
        QVERIFY(!QFile::exists(cli.dbs() + "/Bob.bdb"));
        QCOMPARE(cli({"users"}).out, QString("Alice\n"));
        // The file is the program's own: the library opens it with the same password.
        QCOMPARE(TestUsPasw(cli.dbs() + "/Alice.bdb", HashString("alice pass 1")), 1);

        Run r = cli({"ls", "Alice", "--password-stdin"}, "alice pass 1\n");
        QCOMPARE(r.code, 0);
        QCOMPARE(r.out, QString("0  Alice\n"));
        r = cli({"ls", "Alice", "--password-stdin"}, "alice pass 2\n");
        QCOMPARE(r.code, 3);
        QVERIFY(r.err.contains("wrong password"));
        QCOMPARE(cli({"ls", "Nobody", "--password-stdin"}, "x\n").code, 4);
        QCOMPARE(cli({"ls", "Alice", "--password-stdin"}, "").code, 2);

        // A new password: two lines, the current one and the new one.
        QCOMPARE(cli({"passwd", "Alice", "--password-stdin"}, "wrong\nnew password\n").code, 3);
        QCOMPARE(cli({"passwd", "Alice", "--password-stdin"}, "alice pass 1\nshort\n").code, 7);
        QCOMPARE(cli({"passwd", "Alice", "--password-stdin"}, "alice pass 1\nnew password\n").code, 0);
        QCOMPARE(cli({"ls", "Alice", "--password-stdin"}, "alice pass 1\n").code, 3);
        QCOMPARE(cli({"ls", "Alice", "--password-stdin"}, "new password\n").code, 0);

        // Deleting asks; without a terminal only --yes confirms.
        QCOMPARE(cli({"delete-user", "Alice"}).code, 7);
        QVERIFY(QFile::exists(cli.dbs() + "/Alice.bdb"));
        QCOMPARE(cli({"delete-user", "Alice", "--yes"}).code, 0);
        QVERIFY(!QFile::exists(cli.dbs() + "/Alice.bdb"));
        QCOMPARE(cli({"delete-user", "Alice", "--yes"}).code, 4);
        QCOMPARE(QDir(GetWindowsTemp()).entryList(QDir::Files), QStringList());
    }

    void listingAndShowingTheDemonstrationUser() {
        TestEnv env;
        Cli cli(env);
        // Without --databases the settings' folder of a first run is used, with its sample.
        Run r = cli({"ls", "SampleUser", "--password-stdin"}, "12345678\n", false);
        QCOMPARE(r.code, 0);
        const QStringList lines = r.out.split('\n', Qt::SkipEmptyParts);
        QCOMPARE(lines.size(), 18);
        QCOMPARE(lines.first().trimmed(), QString("0  SampleUser"));
        QStringList top;
        QString webmailId;
        for (const QString& l : lines.mid(1)) {
            const QString id = l.section(' ', 0, 0, QString::SectionSkipEmpty);
            // The title is indented by two blanks per level below the root.
            const QString rest = l.mid(l.indexOf(id) + id.size() + 2);
            if (rest.startsWith("  ") && !rest.startsWith("    "))
                top << rest.trimmed();
            if (rest.trimmed() == "Webmail")
                webmailId = id;
        }
        QCOMPARE(top, QStringList({"Internet/", "Finance/", "Work/", "Read me first", "Wi-Fi at home"}));
        r = cli({"show", "SampleUser", webmailId, "--password-stdin"}, "12345678\n", false);
        QCOMPARE(r.code, 0);
        QCOMPARE(r.out, QString("Title: Webmail\nLogin: sample.user@example.org\nPassword: vT8#qLm2!xRb\n"
                                "Description: Personal mail box.\n"
                                "             Recovery codes are in the safe at home.\n"));
        QCOMPARE(cli({"show", "SampleUser", "999", "--password-stdin"}, "12345678\n", false).code, 6);
        QCOMPARE(cli({"users"}, {}, false).out, QString("SampleUser\n"));
    }

    void damagedFilesGetClearMessages() {
        TestEnv env;
        Cli cli(env);
        QCOMPARE(cli({"add-user", "Dan", "--password-stdin"}, "dan's password\n").code, 0);
        const QString path = cli.dbs() + "/Dan.bdb";
        const QByteArray good = readAllOf(path);
        auto ls = [&](const QByteArray& bytes) {
            writeFileText(path, bytes);
            return cli({"ls", "Dan", "--password-stdin"}, "dan's password\n");
        };
        QByteArray flipped = good;
        flipped[good.size() - 5] = static_cast<char>(flipped[good.size() - 5] ^ 1);
        Run r = ls(flipped);
        QCOMPARE(r.code, 5);
        QVERIFY(r.err.contains("damaged"));
        QCOMPARE(ls(good.left(good.size() / 2)).code, 5);
        QCOMPARE(ls(QByteArray()).code, 5);
        QCOMPARE(ls("short").code, 5);
        // Random bytes cannot be told from a wrong password.
        QCOMPARE(ls(QByteArray(good.size(), 'r')).code, 3);
        QCOMPARE(ls(good).code, 0);
        QFile::remove(path);
        QCOMPARE(cli({"ls", "Dan", "--password-stdin"}, "dan's password\n").code, 4);
    }
};

ARGENT_TEST(CliTest)
#include "tst_cli.moc"
