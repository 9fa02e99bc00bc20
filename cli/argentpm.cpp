// argentpm: the command-line companion of ArgentPasswordMngr. It works on the same user
// files, through the same routines, and finds them through the same settings.

#include "Version.h"

#include "app/DiagnosticsHookup.h"
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
    // The command's own options, blank-separated; a trailing "=" marks one that takes
    // a value ("--title=" is given as --title TEXT or --title=TEXT).
    const char* options = "";
};

const Command kCommands[] = {
    {"users", CmdUsers,
     "Usage: argentpm [--databases DIR] users [--json]\n"
     "\n"
     "Lists the users of the databases folder, one name a line. With --json:\n"
     "  {\"databases\": DIR, \"users\": [NAME, ...]}\n",
     "--json"},
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
     "Usage: argentpm [--databases DIR] ls NAME [--json] [--password-stdin]\n"
     "\n"
     "Shows the folders and records of user NAME as the main window's tree orders them:\n"
     "one line each, the identifier first, then the title indented by depth; folder\n"
     "titles end in \"/\". The first line is the user's root (identifier 0). With --json:\n"
     "  {\"user\": NAME, \"root\": TEXT, \"items\": [{\"id\": N, \"parent\": N,\n"
     "   \"type\": \"folder\"|\"record\", \"depth\": N, \"title\": TEXT}, ...]}\n",
     "--json"},
    {"show", CmdShow,
     "Usage: argentpm [--databases DIR] show NAME ID [--field FIELD | --json] [--password-stdin]\n"
     "\n"
     "Shows the fields of the folder or record with identifier ID (see 'ls'): title,\n"
     "login, password and description, as the main window's value pane does.\n"
     "--field title|login|password|description prints that field alone, exactly as\n"
     "stored, for scripts (a line end follows only on a terminal). With --json:\n"
     "  {\"id\": N, \"parent\": N, \"type\": \"folder\"|\"record\", \"title\": TEXT,\n"
     "   \"login\": TEXT, \"password\": TEXT, \"description\": TEXT}\n",
     "--field= --json"},
    {"mkdir", CmdMkdir,
     "Usage: argentpm [--databases DIR] mkdir NAME PARENT_ID TITLE [--password-stdin]\n"
     "\n"
     "Adds a folder TITLE to user NAME, in the folder PARENT_ID (0 for the top), and\n"
     "prints its identifier.\n"},
    {"add", CmdAdd,
     "Usage: argentpm [--databases DIR] add NAME PARENT_ID --title TITLE [--login LOGIN]\n"
     "                [--desc TEXT] [--generate LENGTH | --ask-password] [--password-stdin]\n"
     "\n"
     "Adds a record to user NAME, in the folder PARENT_ID (0 for the top), and prints its\n"
     "identifier. Its password is made by the password generator (--generate), asked\n"
     "for (--ask-password: twice on the terminal, or with --password-stdin the second\n"
     "line of standard input, after the user's password), or left empty.\n",
     "--title= --login= --desc= --generate= --ask-password"},
    {"rename", CmdRename,
     "Usage: argentpm [--databases DIR] rename NAME ID TITLE [--password-stdin]\n"
     "\n"
     "Gives the folder or record ID of user NAME the title TITLE.\n"},
    {"mv", CmdMv,
     "Usage: argentpm [--databases DIR] mv NAME ID NEW_PARENT_ID [--password-stdin]\n"
     "\n"
     "Moves the folder or record ID of user NAME, with everything in it, into the folder\n"
     "NEW_PARENT_ID (0 for the top). A folder cannot go into itself or its own folders.\n"},
    {"rm", CmdRm,
     "Usage: argentpm [--databases DIR] rm NAME ID [--yes] [--password-stdin]\n"
     "\n"
     "Deletes the folder or record ID of user NAME with everything in it, after a\n"
     "question on the terminal, or at once with --yes.\n"},
    {"edit", CmdEdit,
     "Usage: argentpm [--databases DIR] edit NAME ID [--title TITLE] [--login LOGIN]\n"
     "                [--desc TEXT] [--generate LENGTH | --ask-password]\n"
     "                [--color COLOR] [--bold on|off] [--password-stdin]\n"
     "\n"
     "Changes the folder or record ID of user NAME, keeping its identifier; only what\n"
     "is given changes. --title, --login and --desc set those fields (a folder has only\n"
     "a title). The password becomes a new one from the password generator\n"
     "(--generate LENGTH) or one that is asked for (--ask-password: twice on the\n"
     "terminal, or with --password-stdin the second line of standard input, after the\n"
     "user's password). --color sets the title's colour in the tree (#RRGGBB, or the\n"
     "number 0x00BBGGRR in decimal; 0 is the default black), --bold whether it is bold.\n",
     "--title= --login= --desc= --generate= --ask-password --color= --bold="},
    {"find", CmdFind,
     "Usage: argentpm [--databases DIR] find NAME TEXT [--titles-only] [--case-sensitive]\n"
     "                [--json] [--password-stdin]\n"
     "\n"
     "Lists the folders and records of user NAME that hold TEXT, in the order of the\n"
     "table, each with its identifier: everything the find dialog would select, press\n"
     "after press. TEXT is looked for anywhere in the title, login, password and\n"
     "description (only the title with --titles-only), without regard to letter case\n"
     "unless --case-sensitive. Nothing found is exit status 6. With --json:\n"
     "  {\"user\": NAME, \"text\": TEXT, \"matches\": [{\"id\": N, \"title\": TEXT}, ...]}\n",
     "--titles-only --case-sensitive --json"},
    {"clip", CmdClip,
     "Usage: argentpm [--databases DIR] clip NAME ID [--field FIELD] [--password-stdin]\n"
     "\n"
     "Copies a field of record ID of user NAME to the desktop clipboard (X11, or\n"
     "Wayland through XWayland): the password, or the field named by --field\n"
     "title|login|password|description. The value is marked as secret, so clipboard\n"
     "managers leave it out of their history, and is taken off the clipboard after the\n"
     "delay of the settings (entry 23, 10 seconds unless changed in the options; 0\n"
     "keeps it) unless something else was copied meanwhile. A small keeper process,\n"
     "argentpm-clipkeeper, holds the clipboard for that time; argentpm returns at once.\n"
     "No desktop clipboard is exit status 11.\n",
     "--field="},
    {"generate", CmdGenerate,
     "Usage: argentpm generate [LENGTH]\n"
     "\n"
     "Prints a new random password of LENGTH characters (digits and Latin letters), or\n"
     "of the length the password generator was last set to.\n"},
    {"backup", CmdBackup,
     "Usage: argentpm [--databases DIR] backup NAME [--password-stdin]\n"
     "\n"
     "Makes a backup copy of user NAME now, as the hourly automatic backup does: the\n"
     "user's file is saved, and copied to Backup/NAME_k.bdb.BACKUP in the databases\n"
     "folder, the oldest copy going when the set (settings entry 13) is full. Prints the\n"
     "copy's path.\n"},
    {"backups", CmdBackups,
     "Usage: argentpm [--databases DIR] backups [--json]\n"
     "\n"
     "Lists the backup copies of every user, one a line, as the restore dialog does:\n"
     "the file name, \" Date: \" and the time it was written. With --json:\n"
     "  {\"folder\": DIR, \"backups\": [{\"file\": FILE, \"user\": NAME,\n"
     "   \"written\": \"YYYY-MM-DDTHH:MM:SS\"}, ...]}   (local time)\n",
     "--json"},
    {"restore", CmdRestore,
     "Usage: argentpm [--databases DIR] restore BACKUP_FILE_NAME [--yes]\n"
     "\n"
     "Puts the backup copy BACKUP_FILE_NAME (see 'backups') back as its user's\n"
     "database, replacing the user's file in one step; the user is the part of the name\n"
     "before the first \"_\". Every backup copy stays. Asks first on the terminal, or\n"
     "goes ahead with --yes. A desktop program that has the user open takes the\n"
     "restored file in, keeping only the changes it had not saved yet.\n"},
    {"delete-backup", CmdDeleteBackup,
     "Usage: argentpm [--databases DIR] delete-backup BACKUP_FILE_NAME [--yes]\n"
     "\n"
     "Deletes the backup copy BACKUP_FILE_NAME (see 'backups'), after a question on the\n"
     "terminal, or at once with --yes.\n"},
    {"install-portable", CmdInstallPortable,
     "Usage: argentpm [--databases DIR] install-portable TARGET_DIR\n"
     "\n"
     "Copies the program, its language files, every user's database with the backup\n"
     "copies, and settings that make the copy portable into TARGET_DIR (a removable\n"
     "drive, say), so that the program runs from there with those users. A folder that\n"
     "holds a copy already (a DataBases folder) is refused.\n"},
    {"import", CmdImport,
     "Usage: argentpm [--databases DIR] import NAME FILE [--format FORMAT] [--into ID]\n"
     "                [--map FIELD=COLUMN,...] [--password-stdin]\n"
     "\n"
     "Imports the folders and entries of FILE into a new folder, named after the file, in\n"
     "the folder ID of user NAME (0, the top, by default), and prints its identifier and\n"
     "the counts. FORMAT is found from the contents unless given: keepass-xml (KeePass 2\n"
     "XML export), keepassxc-csv, bitwarden-json (unencrypted), browser-csv (Chrome,\n"
     "Firefox, Edge, Safari) or csv (any CSV with a header row). The columns of a csv are\n"
     "guessed from their names, or given with --map: FIELD is title, login, password,\n"
     "notes or group (a folder path with \"/\"), COLUMN a header name or a number from 1.\n"
     "What has no field of its own (URL, TOTP, custom fields, tags) goes into the\n"
     "description. A file that cannot be read whole changes nothing.\n",
     "--format= --into= --map="},
    {"export", CmdExport,
     "Usage: argentpm [--databases DIR] export NAME [--format xml|csv] [--folder ID]\n"
     "                [-o|--output FILE] [--password-stdin]\n"
     "\n"
     "Writes the folders and records of user NAME, or of its folder ID with everything\n"
     "in it, as KeePass 2 XML (the default; KeePassXC imports it) or KeePassXC CSV, to\n"
     "standard output or to FILE (created readable by its owner only). The export holds\n"
     "every password in plain text.\n",
     "--format= --folder= --output= -o="},
};

const char kCommonHelp[] = "\n"
                           "Options:\n"
                           "  --databases DIR   use the user files in DIR instead of the settings' folder\n"
                           "  --password-stdin  read passwords from standard input, one a line\n"
                           "  -y, --yes         answer the command's question with yes\n"
                           "  -h, --help        show this help\n"
                           "  --version         show the version\n"
                           "\n"
                           "Exit status: 0 done, 1 a file could not be read or written, 2 bad usage,\n"
                           "3 wrong password, 4 no such user, 5 damaged user file, 6 no such record,\n"
                           "7 refused (user exists, password too short, passwords differ or not confirmed),\n"
                           "8 no such backup copy, 9 a setting the command needs is not usable,\n"
                           "10 another program held the user's file for more than 10 s (nothing changed),\n"
                           "11 no desktop clipboard, or it could not be set,\n"
                           "70 an unexpected error (a report is written beside the debug log).\n"
                           "Commands that change a user's file take turns with every other program\n"
                           "writing it (the desktop program, other argentpm runs) and wait up to 10 s.\n";

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
               "  show NAME ID        show the fields of one record (or one field: --field)\n"
               "  mkdir NAME PARENT_ID TITLE       add a folder\n"
               "  add NAME PARENT_ID --title ...   add a record\n"
               "  rename NAME ID TITLE             rename a folder or record\n"
               "  mv NAME ID NEW_PARENT_ID         move a folder or record\n"
               "  rm NAME ID                       delete a folder or record with its contents\n"
               "  edit NAME ID --title/--login/... change a folder's or record's fields or look\n"
               "  find NAME TEXT                   list the folders and records holding a text\n"
               "  clip NAME ID [--field FIELD]     copy a password (or field) to the clipboard\n"
               "  generate [LENGTH]                make a random password\n"
               "  backup NAME                      make a backup copy of a user now\n"
               "  backups                          list the backup copies\n"
               "  restore BACKUP_FILE_NAME         put a backup copy back\n"
               "  delete-backup BACKUP_FILE_NAME   delete a backup copy\n"
               "  install-portable TARGET_DIR      copy the program with its users to a drive\n"
               "  import NAME FILE                 import a file of another password manager\n"
               "  export NAME                      write a user's records as KeePass XML or CSV\n"
               "\n"
               "'argentpm COMMAND --help' describes one command.\n"
               "\n"
               "Options of the commands:\n"
               "  --json            users, ls, show, find, backups: JSON output (see the command)\n"
               "  --field FIELD     show, clip: title, login, password or description alone\n"
               "  --title TEXT      add, edit: the title\n"
               "  --login TEXT      add, edit: the login\n"
               "  --desc TEXT       add, edit: the description\n"
               "  --generate LENGTH add, edit: a new generated password\n"
               "  --ask-password    add, edit: ask for the record's password\n"
               "  --color COLOR     edit: the title's colour in the tree\n"
               "  --bold on|off     edit: whether the title is bold\n"
               "  --titles-only     find: look in titles only\n"
               "  --case-sensitive  find: tell upper and lower case apart\n"
               "  --format FORMAT   import: the file's format; export: xml or csv\n"
               "  --into ID         import: the folder that takes the new folder\n"
               "  --map COLUMNS     import: the columns of a CSV (title=COLUMN,...)\n"
               "  --folder ID       export: one folder with everything in it\n"
               "  -o, --output FILE export: the file to write, instead of standard output\n",
               out);
    std::fputs(kCommonHelp, out);
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
    ConnectDiagnostics();
    InstallErrorTrap();
    const QStringList args = QCoreApplication::arguments().mid(1);

    CliOptions opt;
    QStringList words;
    bool help = false;
    // The command decides which options of its own there are: find it first.
    const Command* named = nullptr;
    for (qsizetype i = 0; i < args.size(); ++i) {
        if (args[i] == QLatin1String("--databases")) {
            ++i;
        } else if (args[i] == QLatin1String("--")) {
            named = findCommand(args.value(i + 1));
            break;
        } else if (!args[i].startsWith(u'-') || args[i].size() == 1) {
            named = findCommand(args[i]);
            break;
        }
    }
    const QStringList ownOptions =
        named ? QString::fromLatin1(named->options).split(u' ', Qt::SkipEmptyParts) : QStringList();
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
        } else if (a.startsWith(u'-') && (ownOptions.contains(a) || ownOptions.contains(a + u'=') ||
                                          ownOptions.contains(a.section(u'=', 0, 0) + u'='))) {
            const QString name = a.section(u'=', 0, 0);
            if (!ownOptions.contains(name + u'=')) {
                if (a.contains(u'=')) {
                    std::fprintf(stderr, "argentpm: %s takes no value. Try 'argentpm %s --help'.\n",
                                 name.toLocal8Bit().constData(), named->name);
                    return cliUsage;
                }
                opt.Given.insert(name, QString());
            } else if (a.contains(u'=')) {
                opt.Given.insert(name, a.section(u'=', 1));
            } else if (i + 1 < args.size()) {
                opt.Given.insert(name, args[++i]);
            } else {
                std::fprintf(stderr, "argentpm: %s needs a value. Try 'argentpm %s --help'.\n",
                             name.toLocal8Bit().constData(), named->name);
                return cliUsage;
            }
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
