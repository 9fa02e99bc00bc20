// argentpm: the command-line companion of ArgentPasswordMngr. It works on the same user
// files, through the same routines, and finds them through the same settings.

#include "Version.h"

#include "cli/CliCommands.h"

#include "diagnostics/ErrorTrap.h"
#include "diagnostics/Trace.h"

#include <QCoreApplication>
#include <QString>

#include <cstdio>
#include <cstring>
#include <sys/prctl.h>

namespace {

struct Command {
    const char* name;
    int (*run)(const CliOptions&, const QStringList&);
    const char* help;
};

const Command kCommands[] = {
    {"users", CmdUsers,
     "Usage: argentpm [--databases DIR] users\n"
     "\n"
     "Lists the users of the databases folder, one name a line.\n"},
    {"add-user", CmdAddUser,
     "Usage: argentpm [--databases DIR] add-user NAME [--password-stdin]\n"
     "\n"
     "Creates user NAME with an empty database. The password (at least 8 characters) is\n"
     "typed twice on the terminal, or read from the first line of standard input.\n"},
    {"passwd", CmdPasswd,
     "Usage: argentpm [--databases DIR] passwd NAME [--password-stdin]\n"
     "\n"
     "Changes the password of user NAME. The current password is asked first, then the new\n"
     "one twice. With --password-stdin the first line of standard input is the current\n"
     "password and the second line the new one (at least 8 characters).\n"},
    {"delete-user", CmdDeleteUser,
     "Usage: argentpm [--databases DIR] delete-user NAME [--yes]\n"
     "\n"
     "Deletes the file of user NAME with all of its folders and records, after a question\n"
     "on the terminal, or at once with --yes. Backup copies stay.\n"},
    {"ls", CmdLs,
     "Usage: argentpm [--databases DIR] ls NAME [--password-stdin]\n"
     "\n"
     "Shows the folders and records of user NAME as the main window's tree orders them:\n"
     "one line each, the identifier first, then the title indented by depth; folder\n"
     "titles end in \"/\". The first line is the user's root (identifier 0).\n"},
    {"show", CmdShow,
     "Usage: argentpm [--databases DIR] show NAME ID [--password-stdin]\n"
     "\n"
     "Shows the fields of the folder or record with identifier ID (see 'ls'): title,\n"
     "login, password and description, as the main window's value pane does.\n"},
};

const char kCommonHelp[] = "\n"
                           "Options:\n"
                           "  --databases DIR   use the user files in DIR instead of the settings' folder\n"
                           "  --password-stdin  read passwords from standard input, one a line\n"
                           "  -h, --help        show this help\n"
                           "\n"
                           "Exit status: 0 done, 1 a file could not be read or written, 2 bad usage,\n"
                           "3 wrong password, 4 no such user, 5 damaged user file, 6 no such record,\n"
                           "7 refused (user exists, password too short, passwords differ or not confirmed),\n"
                           "70 an unexpected error (a report is written beside the debug log).\n";

void printUsage(FILE* out) {
    TRACE_PROC("modCli.PrintUsage");
    std::fputs("Usage: argentpm [--databases DIR] COMMAND [ARGUMENTS]\n"
               "\n"
               "The command-line companion of ArgentPasswordMngr: it works on the same user\n"
               "files and settings as the desktop program.\n"
               "\n"
               "Commands:\n"
               "  users               list the users\n"
               "  add-user NAME       create a user\n"
               "  passwd NAME         change a user's password\n"
               "  delete-user NAME    delete a user\n"
               "  ls NAME             show a user's folders and records with their identifiers\n"
               "  show NAME ID        show the fields of one record\n"
               "\n"
               "'argentpm COMMAND --help' describes one command.\n",
               out);
    std::fputs(kCommonHelp, out);
    std::fputs("  --version         show the version\n", out);
}

const Command* findCommand(const QString& name) {
    TRACE_PROC("modCli.FindCommand", name);
    for (const Command& c : kCommands)
        if (name == QLatin1String(c.name))
            return &c;
    return nullptr;
}

} // namespace

int main(int argc, char** argv) {
    // The process holds passwords and their keys: no core dumps, no debugger attaching.
    prctl(PR_SET_DUMPABLE, 0);
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("argentpm"));
    InstallErrorTrap();
    const QStringList args = QCoreApplication::arguments().mid(1);

    CliOptions opt;
    QStringList words;
    bool help = false;
    for (qsizetype i = 0; i < args.size(); ++i) {
        const QString& a = args[i];
        if (a == QLatin1String("--databases")) {
            if (i + 1 >= args.size()) {
                std::fputs("argentpm: --databases needs a folder. Try 'argentpm --help'.\n", stderr);
                return cliUsage;
            }
            opt.Databases = args[++i];
        } else if (a.startsWith(QLatin1String("--databases="))) {
            opt.Databases = a.mid(12);
        } else if (a == QLatin1String("--password-stdin")) {
            opt.PaswStdin = true;
        } else if (a == QLatin1String("--yes") || a == QLatin1String("-y")) {
            opt.Yes = true;
        } else if (a == QLatin1String("--help") || a == QLatin1String("-h")) {
            help = true;
        } else if (a == QLatin1String("--version")) {
            std::printf("argentpm %s (ArgentPasswordMngr, built %s)\n", ARGENT_VERSION_TEXT,
                        ARGENT_BUILD_DATE);
            return cliOk;
        } else if (a == QLatin1String("--")) {
            words += args.mid(i + 1);
            break;
        } else if (a.startsWith(QLatin1String("-")) && a.size() > 1) {
            std::fprintf(stderr, "argentpm: unknown option '%s'. Try 'argentpm --help'.\n",
                         a.toLocal8Bit().constData());
            return cliUsage;
        } else {
            words += a;
        }
    }
    if (words.isEmpty() || words.first() == QLatin1String("help")) {
        const Command* c = words.size() > 1 ? findCommand(words[1]) : nullptr;
        if (c) {
            std::fputs(c->help, stdout);
            std::fputs(kCommonHelp, stdout);
            return cliOk;
        }
        printUsage(help || !words.isEmpty() ? stdout : stderr);
        return help || !words.isEmpty() ? cliOk : cliUsage;
    }
    const Command* cmd = findCommand(words.first());
    if (!cmd) {
        std::fprintf(stderr, "argentpm: unknown command '%s'. Try 'argentpm --help'.\n",
                     words.first().toLocal8Bit().constData());
        return cliUsage;
    }
    if (help) {
        std::fputs(cmd->help, stdout);
        std::fputs(kCommonHelp, stdout);
        return cliOk;
    }
    int rc = cliFailed;
    argent::diag::trapped([&] {
        TRACE_PROC("modCli.Main", words);
        rc = CliPrepare(opt);
        if (rc == cliOk)
            rc = cmd->run(opt, words.mid(1));
    });
    return rc;
}
