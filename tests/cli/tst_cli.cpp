#include "app/modMain.h"
#include "storage/Md5.h"
#include "tests/common/TestEnv.h"
#include "tests/common/TestMain.h"
#include "users/UserAccounts.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QTest>

#include <unistd.h>

namespace {

struct Run {
    int code = -1;
    QString out, err;
};

// Runs argentpm from the test's program folder, detached from any terminal, so that a
// password can only come from standard input.
struct Cli {
    QString exe, dbs;
    explicit Cli(TestEnv& env) : exe(env.progDir() + "/argentpm"), dbs(env.root() + "/dbs") {
        QFile::copy(QStringLiteral(ARGENT_BIN_DIR) + "/argentpm", exe);
    }
    Run operator()(const QStringList& args, const QByteArray& input = QByteArray(), bool withFolder = true) {
        QProcess p;
        p.setChildProcessModifier([] { setsid(); });
        p.start(exe, withFolder ? QStringList{"--databases", dbs} + args : args);
        p.write(input);
        p.closeWriteChannel();
        if (!p.waitForFinished(20000) || p.exitStatus() != QProcess::NormalExit)
            return {};
        return {p.exitCode(), QString::fromUtf8(p.readAllStandardOutput()),
                QString::fromUtf8(p.readAllStandardError())};
    }
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
        QVERIFY(
            cli({"help", "passwd"}, {}, false).out.startsWith("Usage: argentpm [--databases DIR] passwd"));
        // Bad usage is 2.
        const QList<QStringList> bad = {
            {}, {"frobnicate"}, {"ls"}, {"show", "SampleUser", "x"}, {"users", "--bogus"}, {"--databases"}};
        for (const QStringList& args : bad)
            QCOMPARE(cli(args, {}, false).code, 2);
        // Without a terminal and without --password-stdin there is no way to ask.
        r = cli({"add-user", "Zed"});
        QCOMPARE(r.code, 2);
        QVERIFY(r.err.contains("--password-stdin"));
    }

    void accountsFromTheCommandLine() {
        TestEnv env;
        Cli cli(env);
        const QString path = cli.dbs + "/Alice.bdb";
        QCOMPARE(cli({"add-user", "Alice", "--password-stdin"}, "alice pass 1\n").code, 0);
        QCOMPARE(posixMode(path), 0600);
        QCOMPARE(posixMode(cli.dbs), 0700);
        QCOMPARE(cli({"add-user", "Alice", "--password-stdin"}, "another one\n").code, 7);
        QCOMPARE(cli({"add-user", "Bob", "--password-stdin"}, "short\n").code, 7);
        QCOMPARE(cli({"add-user", "../evil", "--password-stdin"}, "long enough\n").code, 7);
        QCOMPARE(cli({"users"}).out, QString("Alice\n"));
        // The file is the program's own: the library opens it with the same password.
        QCOMPARE(TestUsPasw(path, HashString("alice pass 1")), 1);
        auto ls = [&](const QByteArray& input) { return cli({"ls", "Alice", "--password-stdin"}, input); };
        Run r = ls("alice pass 1\n");
        QCOMPARE(r.code, 0);
        QCOMPARE(r.out, QString("0  Alice\n"));
        r = ls("alice pass 2\n");
        QCOMPARE(r.code, 3);
        QVERIFY(r.err.contains("wrong password"));
        QCOMPARE(ls("").code, 2);
        QCOMPARE(cli({"ls", "Nobody", "--password-stdin"}, "x\n").code, 4);

        // Damaged files; random bytes cannot be told from a wrong password.
        const QByteArray good = readAllOf(path);
        QByteArray flipped = good;
        flipped[good.size() - 5] = static_cast<char>(flipped[good.size() - 5] ^ 1);
        for (const QByteArray& bytes : {flipped, good.left(good.size() / 2), QByteArray()}) {
            writeFileText(path, bytes);
            r = ls("alice pass 1\n");
            QCOMPARE(r.code, 5);
            QVERIFY(r.err.contains("damaged"));
        }
        writeFileText(path, QByteArray(good.size(), 'r'));
        QCOMPARE(ls("alice pass 1\n").code, 3);
        writeFileText(path, good);

        // A new password: two lines, the current one and the new one.
        QCOMPARE(cli({"passwd", "Alice", "--password-stdin"}, "wrong\nnew password\n").code, 3);
        QCOMPARE(cli({"passwd", "Alice", "--password-stdin"}, "alice pass 1\nnew password\n").code, 0);
        QCOMPARE(ls("alice pass 1\n").code, 3);
        QCOMPARE(ls("new password\n").code, 0);

        // Deleting asks; without a terminal only --yes confirms.
        QCOMPARE(cli({"delete-user", "Alice"}).code, 7);
        QVERIFY(QFile::exists(path));
        QCOMPARE(cli({"delete-user", "Alice", "--yes"}).code, 0);
        QCOMPARE(cli({"delete-user", "Alice", "--yes"}).code, 4);
        QCOMPARE(QDir(GetWindowsTemp()).entryList(QDir::Files), QStringList());
    }

    void showingTheDemonstrationUser() {
        TestEnv env;
        Cli cli(env);
        // Without --databases the settings' folder of a first run is used, with its sample:
        // an identifier, then the title indented by two blanks per level below the root.
        Run r = cli({"ls", "SampleUser", "--password-stdin"}, "12345678\n", false);
        QCOMPARE(r.code, 0);
        QCOMPARE(r.out.count('\n'), 18);
        const QString id =
            QRegularExpression("^ *(\\d+)        Webmail$", QRegularExpression::MultilineOption)
                .match(r.out)
                .captured(1);
        r = cli({"show", "SampleUser", id, "--password-stdin"}, "12345678\n", false);
        QCOMPARE(r.code, 0);
        QCOMPARE(r.out, QString("Title: Webmail\nLogin: sample.user@example.org\nPassword: vT8#qLm2!xRb\n"
                                "Description: Personal mail box.\n"
                                "             Recovery codes are in the safe at home.\n"));
        QCOMPARE(cli({"show", "SampleUser", "999", "--password-stdin"}, "12345678\n", false).code, 6);
    }
};

ARGENT_TEST(CliTest)
#include "tst_cli.moc"
