#include "cli/CliParser.h"

#include "Version.h"

#include "diagnostics/Trace.h"

#include <QCommandLineParser>

#include <algorithm>
#include <utility>

#include <cstdio>

namespace {

const char kExitHelp[] = "Exit status: 0 done, 1 a file could not be read or written, 2 bad usage,\n"
                         "3 wrong password, 4 no such user, 5 damaged user file, 6 no such record,\n"
                         "7 refused (user exists, password too short, passwords differ or not confirmed),\n"
                         "8 no such backup copy, 9 a setting the command needs is not usable,\n"
                         "10 another program held the user's file for more than 10 s (nothing changed),\n"
                         "11 no desktop clipboard, or it could not be set,\n"
                         "70 an unexpected error (a report is written beside the debug log).\n"
                         "Commands that change a user's file take turns with every other program\n"
                         "writing it (the desktop program, other argentpm runs) and wait up to 10 s.\n";

const QList<QCommandLineOption>& commonOptions() {
    static const QList<QCommandLineOption> common{
        {QStringLiteral("databases"),
         QStringLiteral("use the user files in DIR instead of the settings' folder"), QStringLiteral("DIR")},
        {QStringLiteral("password-stdin"), QStringLiteral("read passwords from standard input, one a line")},
        {{QStringLiteral("y"), QStringLiteral("yes")},
         QStringLiteral("answer the command's question with yes")},
        {QStringLiteral("accept-older"),
         QStringLiteral("change a user file even when it is older than one this computer has seen")},
        {{QStringLiteral("h"), QStringLiteral("help")}, QStringLiteral("show this help")},
        {QStringLiteral("version"), QStringLiteral("show the version")}};
    return common;
}

// The name a word of the command line gives an option: "--title=x" and "-title" name "title".
QString optionName(const QString& Word) {
    return Word.mid(Word.startsWith(QLatin1String("--")) ? 2 : 1).section(u'=', 0, 0);
}

bool isOptionWord(const QString& Word) {
    return Word.startsWith(u'-') && Word.size() > 1;
}

// The command decides which options there are besides the common ones, so it is found
// first: the first word that is no option, skipping the folder of --databases.
QString commandWord(const QStringList& Argv) {
    for (qsizetype i = 1; i < Argv.size(); ++i) {
        const QString& w = Argv[i];
        if (w == QLatin1String("--"))
            return Argv.value(i + 1);
        if (!isOptionWord(w))
            return w;
        if (optionName(w) == QLatin1String("databases") && !w.contains(u'='))
            ++i;
    }
    return QString();
}

// "  -o, --output FILE" and the description from the 21st column.
QByteArray optionLine(const QCommandLineOption& Opt, const QString& Help) {
    QStringList names;
    for (const QString& n : Opt.names())
        names << (n.size() == 1 ? QStringLiteral("-") : QStringLiteral("--")) + n;
    QString left = QStringLiteral("  ") + names.join(QStringLiteral(", "));
    if (!Opt.valueName().isEmpty())
        left += u' ' + Opt.valueName();
    return (left.leftJustified(19) + u' ' + Help + u'\n').toUtf8();
}

QByteArray commonHelp() {
    QByteArray out = "\nCommon options:\n";
    for (const QCommandLineOption& o : commonOptions())
        out += optionLine(o, o.description());
    return out + '\n' + kExitHelp;
}

QByteArray commandList() {
    QByteArray out = "Commands:\n";
    qsizetype width = 0;
    auto left = [](const CliCommand& c) {
        return *c.Args ? QLatin1String(c.Name) + u' ' + QLatin1String(c.Args) : QString::fromLatin1(c.Name);
    };
    for (const CliCommand& c : CliCommandTable())
        width = std::max(width, left(c).size());
    for (const CliCommand& c : CliCommandTable())
        out += "  " + left(c).leftJustified(width + 3).toUtf8() + c.Summary + '\n';
    return out;
}

// Every option of a command, once, with the commands that take it: "users, ls: JSON
// output; show: ...", in the order the table first names them.
QByteArray commandOptionList() {
    QList<QCommandLineOption> options;
    QList<QList<std::pair<QString, QStringList>>> uses; // per option: description -> commands
    for (const CliCommand& c : CliCommandTable()) {
        for (const QCommandLineOption& o : c.Options) {
            qsizetype k = 0;
            while (k < options.size() && options[k].names() != o.names())
                ++k;
            if (k == options.size()) {
                options << o;
                uses.append(QList<std::pair<QString, QStringList>>());
            }
            auto same = std::find_if(uses[k].begin(), uses[k].end(),
                                     [&](const auto& u) { return u.first == o.description(); });
            if (same == uses[k].end())
                uses[k].append({o.description(), {QLatin1String(c.Name)}});
            else
                same->second << QLatin1String(c.Name);
        }
    }
    QByteArray out = "Options of the commands:\n";
    for (qsizetype k = 0; k < options.size(); ++k) {
        QStringList parts;
        for (const auto& [help, commands] : uses[k])
            parts << commands.join(QStringLiteral(", ")) + QStringLiteral(": ") + help;
        out += optionLine(options[k], parts.join(QStringLiteral("; ")));
    }
    return out;
}

void printUsage(FILE* Out) {
    TRACE_PROC("modCli.PrintUsage");
    QByteArray out = "Usage: argentpm [--databases DIR] COMMAND [ARGUMENTS]\n"
                     "\n"
                     "The command-line companion of ArgentPasswordMngr: it works on the same user\n"
                     "files and settings as the desktop program.\n"
                     "\n";
    out += commandList() + "\n'argentpm COMMAND --help' describes one command.\n\n";
    out += commandOptionList() + commonHelp();
    std::fputs(out.constData(), Out);
}

void printCommandHelp(const CliCommand& Cmd) {
    TRACE_PROC("modCli.PrintCommandHelp", Cmd.Name);
    QByteArray out = Cmd.Help;
    if (!Cmd.Options.isEmpty()) {
        out += "\nOptions of '" + QByteArray(Cmd.Name) + "':\n";
        for (const QCommandLineOption& o : Cmd.Options)
            out += optionLine(o, o.description());
    }
    out += commonHelp();
    std::fputs(out.constData(), stdout);
}

int lineError(const char* Text, const QString& Word, const CliCommand* Cmd) {
    const QByteArray help = Cmd ? QByteArray("argentpm ") + Cmd->Name + " --help" : "argentpm --help";
    std::fprintf(stderr, Text, Word.toLocal8Bit().constData(), help.constData());
    return cliUsage;
}

// Says what is wrong with a line the parser refused, naming the first wrong word: an
// unknown option, a switch given a value, or an option whose value is missing.
int lineProblem(const QStringList& Argv, const QList<QCommandLineOption>& Known, const CliCommand* Cmd,
                const QString& ParserText) {
    // Not the words themselves: one may be a text searched for.
    TRACE_PROC("modCli.LineProblem", static_cast<long long>(Argv.size()));
    for (qsizetype i = 1; i < Argv.size() && Argv[i] != QLatin1String("--"); ++i) {
        const QString& w = Argv[i];
        if (!isOptionWord(w))
            continue;
        const QString name = optionName(w);
        const auto o = std::find_if(Known.begin(), Known.end(),
                                    [&](const QCommandLineOption& k) { return k.names().contains(name); });
        if (o == Known.end())
            return lineError("argentpm: unknown option '%s'. Try 'argentpm --help'.\n", w, nullptr);
        const QString typed = w.section(u'=', 0, 0);
        if (o->valueName().isEmpty() && w.contains(u'='))
            return lineError("argentpm: %s takes no value. Try '%s'.\n", typed, Cmd);
        if (!o->valueName().isEmpty() && !w.contains(u'=') && ++i == Argv.size())
            return name == QLatin1String("databases")
                       ? lineError("argentpm: %s needs a folder. Try '%s'.\n", typed, nullptr)
                       : lineError("argentpm: %s needs a value. Try '%s'.\n", typed, Cmd);
    }
    return lineError("argentpm: %s Try '%s'.\n", ParserText, Cmd);
}

void fillOptions(const QCommandLineParser& P, const CliCommand& Cmd, CliOptions& Opt) {
    Opt.Command = &Cmd;
    Opt.Databases = P.value(QStringLiteral("databases"));
    Opt.PaswStdin = P.isSet(QStringLiteral("password-stdin"));
    Opt.Yes = P.isSet(QStringLiteral("yes"));
    Opt.AcceptOlder = P.isSet(QStringLiteral("accept-older"));
    for (const QCommandLineOption& o : Cmd.Options)
        if (P.isSet(o)) {
            Opt.Given.insert(o.names().last(), P.value(o));
            Opt.GivenAll.insert(o.names().last(), P.values(o));
        }
}

} // namespace

int ReadCliCommandLine(const QStringList& Argv, CliCall& Call) {
    const CliCommand* cmd = FindCliCommand(commandWord(Argv));
    QList<QCommandLineOption> known = commonOptions();
    if (cmd)
        known += cmd->Options;
    QCommandLineParser p;
    // "-y" and "-o FILE" as well as "--yes"; no bundling of letters.
    p.setSingleDashWordOptionMode(QCommandLineParser::ParseAsLongOptions);
    p.addOptions(known);
    if (!p.parse(Argv))
        return lineProblem(Argv, known, cmd, p.errorText());
    if (p.isSet(QStringLiteral("version"))) {
        std::printf("argentpm %s (ArgentPasswordMngr, built %s)\n", ARGENT_VERSION_TEXT, ARGENT_BUILD_DATE);
        return cliOk;
    }
    const QStringList words = p.positionalArguments();
    const bool help = p.isSet(QStringLiteral("help"));
    if (words.isEmpty() || words.first() == QLatin1String("help")) {
        if (const CliCommand* c = words.size() > 1 ? FindCliCommand(words[1]) : nullptr) {
            printCommandHelp(*c);
            return cliOk;
        }
        const bool asked = help || !words.isEmpty();
        printUsage(asked ? stdout : stderr);
        return asked ? cliOk : cliUsage;
    }
    if (!cmd || words.first() != QLatin1String(cmd->Name)) {
        std::fprintf(stderr, "argentpm: unknown command '%s'. Try 'argentpm --help'.\n",
                     words.first().toLocal8Bit().constData());
        return cliUsage;
    }
    if (help) {
        printCommandHelp(*cmd);
        return cliOk;
    }
    Call.Command = cmd;
    fillOptions(p, *cmd, Call.Opt);
    Call.Args = words.mid(1);
    return -1;
}

int RunCliCall(const CliCall& Call) {
    // The words of the call, but a text searched for shows only that it was given.
    QStringList shown = QStringList{QLatin1String(Call.Command->Name)} + Call.Args;
    if (qstrcmp(Call.Command->Name, "find") == 0 && shown.size() > 2)
        shown[2] = QStringLiteral("{Hidden}");
    TRACE_PROC("modCli.Main", shown);
    if (int rc = CliPrepare(Call.Opt))
        return rc;
    if (Call.Args.size() < Call.Command->minArgs() || Call.Args.size() > Call.Command->maxArgs())
        return cli::badArguments(Call.Opt);
    return Call.Command->Run(Call.Opt, Call.Args);
}
