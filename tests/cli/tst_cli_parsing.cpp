// argentpm's command line: each command takes its own options and the common ones, in
// any place, and its help lists exactly the options it takes; a wrong line names the
// wrong word and the help to read.

#include "tests/common/TestMain.h"
#include "tests/records/CliRunner.h"

#include <QProcess>
#include <QRegularExpression>
#include <QTest>

namespace {

const QByteArray kPw = "parsing password\n";

// argentpm with exactly these arguments (no --databases added).
CliRun bare(const CliRunner& Cli, const QStringList& Args, const QByteArray& Input = QByteArray()) {
    QProcess p;
    p.setChildProcessModifier([] { setsid(); });
    p.start(Cli.exe(), Args);
    p.write(Input);
    p.closeWriteChannel();
    CliRun r;
    if (p.waitForFinished(30000) && p.exitStatus() == QProcess::NormalExit)
        r = {p.exitCode(), QString::fromUtf8(p.readAllStandardOutput()),
             QString::fromUtf8(p.readAllStandardError())};
    return r;
}

struct HelpOption {
    QString name;   // "--title"
    bool withValue; // "--title TEXT"
};

// The option lines of one section of a help text ("Options of 'show':").
QList<HelpOption> optionsIn(const QString& Help, const QString& Section) {
    QList<HelpOption> found;
    if (!Help.contains(Section + '\n'))
        return found;
    static const QRegularExpression line("^  (?:-[a-z], )?(--[a-z-]+)( [^ ]+)?(?: |$)");
    for (const QString& l : Help.section(Section + '\n', 1).section("\n\n", 0, 0).split('\n')) {
        const QRegularExpressionMatch m = line.match(l);
        if (m.hasMatch())
            found.append({m.captured(1), !m.captured(2).isEmpty()});
    }
    return found;
}

QStringList namesOf(const QList<HelpOption>& Options) {
    QStringList n;
    for (const HelpOption& o : Options)
        n << o.name;
    return n;
}

} // namespace

class CliParsingTest : public QObject {
    Q_OBJECT
private slots:
    // What a command's help lists is what it takes: its own options are accepted, the
    // other commands' options are unknown to it, and every command takes the common ones.
    void eachCommandTakesTheOptionsItsHelpLists() {
        TestEnv env;
        CliRunner cli(env);
        const QString all = cli({"--help"}).out;
        const QList<HelpOption> every = optionsIn(all, "Options of the commands:");
        const QList<HelpOption> common = optionsIn(all, "Common options:");
        QVERIFY(every.size() > 10);
        QVERIFY(namesOf(common).contains("--password-stdin"));
        int own = 0;
        for (const QString& line : all.section("Commands:\n", 1).section("\n\n", 0, 0).split('\n')) {
            const QString cmd = line.trimmed().section(' ', 0, 0);
            const QString help = cli({cmd, "--help"}).out;
            QVERIFY2(help.startsWith("Usage: argentpm"), qPrintable(cmd));
            QCOMPARE(optionsIn(help, "Common options:").size(), common.size());
            const QStringList mine = namesOf(optionsIn(help, QString("Options of '%1':").arg(cmd)));
            for (const HelpOption& o : every) {
                const QString word = o.withValue ? o.name + "=1" : o.name;
                const CliRun r = cli({cmd, word, "--help"});
                const QString what = cmd + ' ' + word + ": " + r.err;
                if (mine.contains(o.name)) {
                    ++own;
                    QVERIFY2(r.code == 0 && r.out == help, qPrintable(what));
                } else {
                    QVERIFY2(r.code == 2 && r.err.contains("unknown option '" + word + "'"),
                             qPrintable(what));
                }
            }
            for (const QString& m : mine)
                QVERIFY2(namesOf(every).contains(m), qPrintable(cmd + ' ' + m));
        }
        QVERIFY(own > 20);
    }

    // A wrong line changes nothing, is exit status 2, and its message names the word that
    // is wrong and the help to read.
    void wrongLinesNameTheWrongWord() {
        TestEnv env;
        CliRunner cli(env);
        QCOMPARE(cli({"add-user", "anna", "--password-stdin"}, kPw).code, 0);
        const QByteArray before = readAllOf(cli.dbs() + "/anna.bdb");
        struct Case {
            QStringList args;
            QString said;
        };
        const QList<Case> cases = {
            {{"mkdir", "anna", "0", "--colour=red"}, "unknown option '--colour=red'. Try 'argentpm --help'."},
            {{"mkdir", "anna", "0", "x", "--json"}, "unknown option '--json'. Try 'argentpm --help'."},
            {{"find", "anna", "x", "--titles-only=yes"},
             "--titles-only takes no value. Try 'argentpm find --help'."},
            {{"--yes=1", "rm", "anna", "1"}, "--yes takes no value. Try 'argentpm rm --help'."},
            {{"add", "anna", "0", "--title"}, "--title needs a value. Try 'argentpm add --help'."},
            {{"mkdir", "anna", "0"},
             "'mkdir' takes a user name, a parent identifier and a title. Try "
             "'argentpm mkdir --help'."},
            {{"mkdir", "anna", "zero", "x"}, "'mkdir' takes a user name, a parent identifier and a title."},
            {{"rename", "anna", "1", "x", "y"},
             "'rename' takes a user name, an identifier and the new title."},
            {{"users", "anna"}, "'users' takes no arguments. Try 'argentpm users --help'."},
            {{"generate", "8", "9"}, "'generate' takes at most a length."},
            {{"add", "anna", "0"}, "a record needs a title: --title TEXT. Try 'argentpm add --help'."},
            {{"mkdir", "anna", "0", "--", "x", "y"},
             "'mkdir' takes a user name, a parent identifier and a "
             "title."},
        };
        for (const Case& c : cases) {
            const CliRun r = cli(QStringList{"--password-stdin"} + c.args, kPw);
            QVERIFY2(r.code == 2 && r.err.startsWith("argentpm: ") && r.err.contains(c.said),
                     qPrintable(c.args.join(' ') + " -> " + r.err));
            QCOMPARE(r.out, QString());
        }
        QCOMPARE(readAllOf(cli.dbs() + "/anna.bdb"), before);
    }

    // The common options may stand before or after the command, a command's switch before
    // it too; "--" ends the options, so a title may start with a dash.
    void optionsStandAnywhere() {
        TestEnv env;
        CliRunner cli(env);
        const QString dbs = cli.dbs();
        QCOMPARE(bare(cli, {"--password-stdin", "--databases=" + dbs, "add-user", "anna"}, kPw).code, 0);
        QCOMPARE(bare(cli, {"mkdir", "anna", "0", "--", "-dash", "--databases", dbs, "--password-stdin"}, kPw)
                     .code,
                 2); // after "--" every word is an argument, too many for mkdir
        QCOMPARE(
            bare(cli, {"--databases", dbs, "--password-stdin", "mkdir", "anna", "0", "--", "-dash"}, kPw).out,
            QString("1\n"));
        const QString listed = cli.as(kPw.trimmed(), {"ls", "anna"}).out;
        QCOMPARE(listed, QString("0  anna\n1    -dash/\n"));
        for (const QStringList& args :
             {QStringList{"ls", "anna", "--databases", dbs, "--password-stdin"},
              QStringList{"--password-stdin", "ls", "--databases=" + dbs, "anna"}}) {
            const CliRun r = bare(cli, args, kPw);
            QVERIFY2(r.code == 0 && r.out == listed, qPrintable(args.join(' ') + " -> " + r.err));
        }
        QCOMPARE(bare(cli, {"--json", "--databases", dbs, "users"}).out, cli({"users", "--json"}).out);
        QCOMPARE(cli({"help", "find"}).out, cli({"--help", "find"}).out);
        QCOMPARE(cli({"find", "-h"}).out, cli({"help", "find"}).out);
        QCOMPARE(bare(cli, {"-y", "--databases", dbs, "delete-user", "anna"}).code, 0);
        QCOMPARE(cli({"users"}).out, QString());
    }
};

ARGENT_TEST(CliParsingTest)
#include "tst_cli_parsing.moc"
