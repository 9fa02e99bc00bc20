// The table of argentpm's commands: each one's arguments, summary, help and own options.

#include "cli/CliCommands.h"
#include "cli/CliFields.h"

namespace {

QCommandLineOption opt(const char* Name, const char* Help, const char* Value = nullptr) {
    return QCommandLineOption(QLatin1String(Name), QLatin1String(Help),
                              Value ? QLatin1String(Value) : QString());
}

// Options more than one command takes, said the same way for each.
QCommandLineOption json() {
    return opt("json", "JSON output");
}
QCommandLineOption field() {
    return opt("field", "title, login, password or description alone", "FIELD");
}
QList<QCommandLineOption> recordFields() {
    return {opt("title", "the title", "TEXT"), opt("login", "the login", "TEXT"),
            opt("desc", "the description", "TEXT"), opt("generate", "a new generated password", "LENGTH"),
            opt("ask-password", "ask for the record's password")};
}

const char kUsersHelp[] = "Usage: argentpm [--databases DIR] users [--json]\n"
                          "\n"
                          "Lists the users of the databases folder, one name a line. With --json:\n"
                          "  {\"databases\": DIR, \"users\": [NAME, ...]}\n";

const char kAddUserHelp[] =
    "Usage: argentpm [--databases DIR] add-user NAME [--password-stdin]\n"
    "\n"
    "Creates user NAME with an empty database. The password (at least 8 characters) is\n"
    "typed twice on the terminal, or read from the first line of standard input.\n";

const char kPasswdHelp[] =
    "Usage: argentpm [--databases DIR] passwd NAME [--password-stdin]\n"
    "\n"
    "Changes the password of user NAME. The current password is asked first, then the new\n"
    "one twice. With --password-stdin the first line of standard input is the current\n"
    "password and the second line the new one (at least 8 characters).\n";

const char kDeleteUserHelp[] =
    "Usage: argentpm [--databases DIR] delete-user NAME [--yes]\n"
    "\n"
    "Deletes the file of user NAME with all of its folders and records, after a question\n"
    "on the terminal, or at once with --yes. Backup copies stay.\n";

const char kLsHelp[] = "Usage: argentpm [--databases DIR] ls NAME [--json] [--password-stdin]\n"
                       "\n"
                       "Shows the folders and records of user NAME as the main window's tree orders them:\n"
                       "one line each, the identifier first, then the title indented by depth; folder\n"
                       "titles end in \"/\". The first line is the user's root (identifier 0). With --json:\n"
                       "  {\"user\": NAME, \"root\": TEXT, \"items\": [{\"id\": N, \"parent\": N,\n"
                       "   \"type\": \"folder\"|\"record\", \"depth\": N, \"title\": TEXT}, ...]}\n";

const char kShowHelp[] =
    "Usage: argentpm [--databases DIR] show NAME ID [--field FIELD | --json] [--show-protected]\n"
    "                [--password-stdin]\n"
    "\n"
    "Shows the fields of the folder or record with identifier ID (see 'ls'): title,\n"
    "login, password and description, as the main window's value pane does, then a\n"
    "record's web address, TOTP seed, custom fields and earlier passwords (the seed,\n"
    "hidden fields and earlier passwords only with --show-protected).\n"
    "--field title|login|password|description prints that field alone, exactly as\n"
    "stored, for scripts (a line end follows only on a terminal). With --json:\n"
    "  {\"id\": N, \"parent\": N, \"type\": \"folder\"|\"record\", \"title\": TEXT,\n"
    "   \"login\": TEXT, \"password\": TEXT, \"description\": TEXT}\n"
    "and for a record \"url\": TEXT, \"totp\": true|false, \"fields\": [{\"name\": TEXT,\n"
    "\"value\": TEXT|null, \"hidden\": BOOL}, ...] and \"history_count\": N; with\n"
    "--show-protected \"totp_uri\", the hidden values and \"history\": [{\"password\": TEXT,\n"
    "\"replaced\": DATE}, ...] instead.\n";

const char kMkdirHelp[] = "Usage: argentpm [--databases DIR] mkdir NAME PARENT_ID TITLE [--password-stdin]\n"
                          "\n"
                          "Adds a folder TITLE to user NAME, in the folder PARENT_ID (0 for the top), and\n"
                          "prints its identifier.\n";

const char kAddHelp[] =
    "Usage: argentpm [--databases DIR] add NAME PARENT_ID --title TITLE [--login LOGIN]\n"
    "                [--desc TEXT] [--generate LENGTH | --ask-password] [--password-stdin]\n"
    "                [--url URL] [--totp SEED] [--field NAME=VALUE]... [--hidden-field NAME]...\n"
    "\n"
    "Adds a record to user NAME, in the folder PARENT_ID (0 for the top), and prints its\n"
    "identifier. Its password is made by the password generator (--generate), asked\n"
    "for (--ask-password: twice on the terminal, or with --password-stdin the second\n"
    "line of standard input, after the user's password), or left empty. --url, --totp,\n"
    "--field and --hidden-field set its web address, TOTP seed and custom fields, as\n"
    "with 'argentpm edit'.\n";

const char kRenameHelp[] = "Usage: argentpm [--databases DIR] rename NAME ID TITLE [--password-stdin]\n"
                           "\n"
                           "Gives the folder or record ID of user NAME the title TITLE.\n";

const char kMvHelp[] = "Usage: argentpm [--databases DIR] mv NAME ID NEW_PARENT_ID [--password-stdin]\n"
                       "\n"
                       "Moves the folder or record ID of user NAME, with everything in it, into the folder\n"
                       "NEW_PARENT_ID (0 for the top). A folder cannot go into itself or its own folders.\n";

const char kRmHelp[] = "Usage: argentpm [--databases DIR] rm NAME ID [--yes] [--password-stdin]\n"
                       "\n"
                       "Deletes the folder or record ID of user NAME with everything in it, after a\n"
                       "question on the terminal, or at once with --yes.\n";

const char kEditHelp[] =
    "Usage: argentpm [--databases DIR] edit NAME ID [--title TITLE] [--login LOGIN]\n"
    "                [--desc TEXT] [--generate LENGTH | --ask-password]\n"
    "                [--color COLOR] [--bold on|off] [--url URL] [--totp SEED]\n"
    "                [--field NAME=VALUE]... [--hidden-field NAME]... [--visible-field NAME]...\n"
    "                [--remove-field NAME]... [--password-stdin]\n"
    "\n"
    "Changes the folder or record ID of user NAME, keeping its identifier; only what\n"
    "is given changes. --title, --login and --desc set those fields (a folder has only\n"
    "a title and a description). The password becomes a new one from the password\n"
    "generator (--generate LENGTH) or one that is asked for (--ask-password: twice on\n"
    "the terminal, or with --password-stdin the second line of standard input, after\n"
    "the user's password). --color sets the title's colour in the tree (#RRGGBB, or the\n"
    "number 0x00BBGGRR in decimal; 0 is the default black), --bold whether it is bold.\n"
    "A record also has a web address (--url), a TOTP seed (--totp: an otpauth:// URI or\n"
    "a base32 secret) and custom fields: --field NAME=VALUE sets one (repeat it for\n"
    "more), --hidden-field NAME hides one (shown only with 'show --show-protected'),\n"
    "--visible-field NAME shows it again, --remove-field NAME removes it. An empty --url\n"
    "or --totp removes that field. A changed password is kept among the record's\n"
    "earlier passwords.\n";

const char kFieldHelp[] =
    "Usage: argentpm [--databases DIR] field NAME ID FIELD [--password-stdin]\n"
    "\n"
    "Prints one field of record ID exactly as stored, for scripts (a line end follows only\n"
    "on a terminal): a custom field by its name, or url, totp (the seed), title, login,\n"
    "password, description. Hidden fields are printed too: they were asked for by name.\n";

const char kTotpHelp[] =
    "Usage: argentpm [--databases DIR] totp NAME ID [--password-stdin]\n"
    "\n"
    "Prints the current one-time code of record ID from its TOTP seed (RFC 6238 with the\n"
    "seed's algorithm, digits and period, or Steam's five characters); on a terminal the\n"
    "seconds it stays valid follow on standard error.\n";

const char kMoveNoteFieldsHelp[] =
    "Usage: argentpm [--databases DIR] move-note-fields NAME [--password-stdin]\n"
    "\n"
    "Records made or imported before they had fields keep their web address and TOTP seed\n"
    "as \"URL: ...\" and \"TOTP: ...\" lines of the description. This moves each such line\n"
    "into the record's own field, where the field is still empty, and lists every line\n"
    "it moved.\n";

const char kFindHelp[] =
    "Usage: argentpm [--databases DIR] find NAME TEXT [--titles-only] [--case-sensitive]\n"
    "                [--json] [--password-stdin]\n"
    "\n"
    "Lists the folders and records of user NAME that hold TEXT, in the order of the\n"
    "table, each with its identifier: everything the find dialog would select, press\n"
    "after press. TEXT is looked for anywhere in the title, login, password and\n"
    "description (only the title with --titles-only), without regard to letter case\n"
    "unless --case-sensitive. Nothing found is exit status 6. With --json:\n"
    "  {\"user\": NAME, \"text\": TEXT, \"matches\": [{\"id\": N, \"title\": TEXT}, ...]}\n";

const char kClipHelp[] = "Usage: argentpm [--databases DIR] clip NAME ID [--field FIELD] [--password-stdin]\n"
                         "\n"
                         "Copies a field of record ID of user NAME to the desktop clipboard (X11, or\n"
                         "Wayland through XWayland): the password, or the field named by --field:\n"
                         "title, login, password, description, url, totp (the current one-time code)\n"
                         "or a custom field by its name. The value is marked as secret, so clipboard\n"
                         "managers leave it out of their history, and is taken off the clipboard after the\n"
                         "delay of the settings (entry 23, 10 seconds unless changed in the options; 0\n"
                         "keeps it) unless something else was copied meanwhile. A small keeper process,\n"
                         "argentpm-clipkeeper, holds the clipboard for that time; argentpm returns at once.\n"
                         "No desktop clipboard is exit status 11.\n";

const char kGenerateHelp[] =
    "Usage: argentpm generate [LENGTH]\n"
    "\n"
    "Prints a new random password of LENGTH characters (digits and Latin letters), or\n"
    "of the length the password generator was last set to.\n";

const char kBackupHelp[] =
    "Usage: argentpm [--databases DIR] backup NAME [--password-stdin]\n"
    "\n"
    "Makes a backup copy of user NAME now, as the hourly automatic backup does: the\n"
    "user's file is saved, and copied to Backup/NAME_k.bdb.BACKUP in the databases\n"
    "folder, the oldest copy going when the set (settings entry 13) is full. Prints the\n"
    "copy's path.\n";

const char kMergeHelp[] =
    "Usage: argentpm [--databases DIR] merge NAME [FILE...] [--password-stdin]\n"
    "\n"
    "Merges into user NAME the conflict copies a sync engine (Syncthing, Nextcloud,\n"
    "Dropbox) left beside its file, or the FILEs given (any versions of that user's\n"
    "file), all with the one password of the user. Each copy merges with the version\n"
    "both sides started from when this computer kept it, else two-way: nothing is\n"
    "dropped, and a record changed on both sides is kept twice, the copy's version\n"
    "titled \"... (conflict copy DATE)\". The user is saved, then each merged copy moves\n"
    "to Backup/ as NAME_merged-DATE.bdb.BACKUP (put it back with 'restore' to undo).\n"
    "Prints what it took in from each. A copy saved with another password, or damaged,\n"
    "is left as it is (exit status 3 or 5). Every command that changes a user merges its\n"
    "conflict copies first; commands that only read say how many wait.\n";

const char kBackupsHelp[] = "Usage: argentpm [--databases DIR] backups [--json]\n"
                            "\n"
                            "Lists the backup copies of every user, one a line, as the restore dialog does:\n"
                            "the file name, \" Date: \" and the time it was written. With --json:\n"
                            "  {\"folder\": DIR, \"backups\": [{\"file\": FILE, \"user\": NAME,\n"
                            "   \"written\": \"YYYY-MM-DDTHH:MM:SS\"}, ...]}   (local time)\n";

const char kRestoreHelp[] =
    "Usage: argentpm [--databases DIR] restore BACKUP_FILE_NAME [--yes]\n"
    "\n"
    "Puts the backup copy BACKUP_FILE_NAME (see 'backups') back as its user's\n"
    "database, replacing the user's file in one step; the user is the part of the name\n"
    "before the first \"_\". Every backup copy stays. Asks first on the terminal, or\n"
    "goes ahead with --yes. A desktop program that has the user open takes the\n"
    "restored file in, keeping only the changes it had not saved yet.\n";

const char kDeleteBackupHelp[] =
    "Usage: argentpm [--databases DIR] delete-backup BACKUP_FILE_NAME [--yes]\n"
    "\n"
    "Deletes the backup copy BACKUP_FILE_NAME (see 'backups'), after a question on the\n"
    "terminal, or at once with --yes.\n";

const char kInstallPortableHelp[] =
    "Usage: argentpm [--databases DIR] install-portable TARGET_DIR\n"
    "\n"
    "Copies the program, its language files, every user's database with the backup\n"
    "copies, and settings that make the copy portable into TARGET_DIR (a removable\n"
    "drive, say), so that the program runs from there with those users. A folder that\n"
    "holds a copy already (a DataBases folder) is refused.\n";

const char kImportHelp[] =
    "Usage: argentpm [--databases DIR] import NAME FILE [--format FORMAT] [--into ID]\n"
    "                [--map FIELD=COLUMN,...] [--password-stdin]\n"
    "\n"
    "Imports the folders and entries of FILE into a new folder, named after the file, in\n"
    "the folder ID of user NAME (0, the top, by default), and prints its identifier and\n"
    "the counts. FORMAT is found from the contents unless given: keepass-xml (KeePass 2\n"
    "XML export), keepassxc-csv, bitwarden-json (unencrypted), browser-csv (Chrome,\n"
    "Firefox, Edge, Safari), lastpass-csv, keepass1-csv or csv (any CSV with a header\n"
    "row). An encrypted database (.kdbx) must be exported to XML or CSV first. The\n"
    "columns of a csv are guessed from their names, or given with --map: FIELD is\n"
    "title, login, password, notes or group (a folder path with \"/\"), COLUMN a header\n"
    "name or a number from 1.\n"
    "What has no field of its own (URL, TOTP, custom fields, tags) goes into the\n"
    "description; what cannot be taken in (passkeys, old passwords, files) is listed.\n"
    "Files over 256 MiB and values over 1 Mi characters are refused. A file that\n"
    "cannot be read whole changes nothing.\n";

const char kExportHelp[] =
    "Usage: argentpm [--databases DIR] export NAME [--format xml|csv] [--folder ID]\n"
    "                [-o|--output FILE] [--password-stdin]\n"
    "\n"
    "Writes the folders and records of user NAME, or of its folder ID with everything\n"
    "in it, as KeePass 2 XML (the default; KeePassXC imports it) or KeePassXC CSV, to\n"
    "standard output or to FILE (created readable by its owner only). The export holds\n"
    "every password in plain text.\n";

const char kHealthHelp[] =
    "Usage: argentpm [--databases DIR] health NAME [--older-than DAYS] [--json]\n"
    "                [--password-stdin]\n"
    "\n"
    "Reports the records of user NAME whose password is weak (as the strength meter\n"
    "rates it: weak or very weak), whose password other records use too, whose password\n"
    "is older than DAYS days (the age set in the window's report, 12 months unless\n"
    "changed, when not given), and whose password is empty. A record's age is known\n"
    "from the earlier passwords it keeps; the others are counted as of unknown age.\n"
    "Each line names a record by its identifier and its folders and title; no password\n"
    "is printed. With --json:\n"
    "  {\"user\": NAME, \"records\": N, \"weak\": [{\"id\": N, \"path\": TEXT,\n"
    "   \"level\": \"weak\"|\"very weak\"}, ...], \"reused\": [[{\"id\": N, \"path\": TEXT}, ...], ...],\n"
    "   \"old\": [{\"id\": N, \"path\": TEXT, \"set\": \"YYYY-MM-DD\"}, ...],\n"
    "   \"older_than\": \"YYYY-MM-DD\", \"unknown_age\": N, \"empty\": [{\"id\": N, \"path\": TEXT}, ...]}\n";

const char kBrowserHelp[] =
    "Usage: argentpm browser setup [--browser LIST] [--take-over]\n"
    "       argentpm browser status\n"
    "       argentpm browser remove\n"
    "\n"
    "Lets the KeePassXC-Browser extension fill logins from the program's window, as the\n"
    "window's options page \"Browser\" does. setup writes the native-messaging manifest\n"
    "of each browser in LIST (comma-separated: firefox, librewolf, chromium, chrome,\n"
    "brave, vivaldi, edge; the browsers chosen before when not given) under your home\n"
    "and turns the connection on. A manifest of KeePassXC found there is left alone\n"
    "unless --take-over is given; it is then kept and put back by remove. status\n"
    "tells what is set up and whether the window listens; remove takes the manifests\n"
    "away and turns the connection off.\n";

const CliCommand kCommands[] = {
    {"users", "", "no arguments", "list the users", kUsersHelp, {json()}, CmdUsers},
    {"add-user", "NAME", "one user name", "create a user", kAddUserHelp, {}, CmdAddUser},
    {"passwd", "NAME", "one user name", "change a user's password", kPasswdHelp, {}, CmdPasswd},
    {"delete-user", "NAME", "one user name", "delete a user", kDeleteUserHelp, {}, CmdDeleteUser},
    {"ls",
     "NAME",
     "one user name",
     "show a user's folders and records with their identifiers",
     kLsHelp,
     {json()},
     CmdLs},
    {"show",
     "NAME ID",
     "a user name and a record identifier",
     "show the fields of one record (or one field: --field)",
     kShowHelp,
     {field(), json(), opt("show-protected", "the TOTP seed, hidden fields and earlier passwords too")},
     CmdShow},
    {"mkdir",
     "NAME PARENT_ID TITLE",
     "a user name, a parent identifier and a title",
     "add a folder",
     kMkdirHelp,
     {},
     CmdMkdir},
    {"add", "NAME PARENT_ID", "a user name and a parent identifier", "add a record", kAddHelp,
     recordFields() + cli::extraFieldOptions(), CmdAdd},
    {"rename",
     "NAME ID TITLE",
     "a user name, an identifier and the new title",
     "rename a folder or record",
     kRenameHelp,
     {},
     CmdRename},
    {"mv",
     "NAME ID NEW_PARENT_ID",
     "a user name, an identifier and the new parent's identifier",
     "move a folder or record",
     kMvHelp,
     {},
     CmdMv},
    {"rm",
     "NAME ID",
     "a user name and an identifier",
     "delete a folder or record with its contents",
     kRmHelp,
     {},
     CmdRm},
    {"edit", "NAME ID", "a user name and an identifier", "change a folder's or record's fields or look",
     kEditHelp,
     recordFields() +
         QList<QCommandLineOption>{opt("color", "the title's colour in the tree", "COLOR"),
                                   opt("bold", "whether the title is bold", "on|off")} +
         cli::extraFieldOptions(),
     CmdEdit},
    {"field",
     "NAME ID FIELD",
     "a user name, a record identifier and a field name",
     "print one field of a record (custom fields by name)",
     kFieldHelp,
     {},
     CmdField},
    {"totp",
     "NAME ID",
     "a user name and a record identifier",
     "print a record's current one-time code",
     kTotpHelp,
     {},
     CmdTotp},
    {"move-note-fields",
     "NAME",
     "one user name",
     "move URL and TOTP lines of descriptions into fields",
     kMoveNoteFieldsHelp,
     {},
     CmdMoveNoteFields},
    {"find",
     "NAME TEXT",
     "a user name and a text",
     "list the folders and records holding a text",
     kFindHelp,
     {opt("titles-only", "look in titles only"), opt("case-sensitive", "tell upper and lower case apart"),
      json()},
     CmdFind},
    {"clip",
     "NAME ID",
     "a user name and a record identifier",
     "copy a password (or field) to the clipboard",
     kClipHelp,
     {field()},
     CmdClip},
    {"generate", "[LENGTH]", "at most a length", "make a random password", kGenerateHelp, {}, CmdGenerate},
    {"backup", "NAME", "one user name", "make a backup copy of a user now", kBackupHelp, {}, CmdBackup},
    {"merge",
     "NAME [FILE...]",
     "a user name and any number of files",
     "merge conflict copies (or other files) into a user",
     kMergeHelp,
     {},
     CmdMerge},
    {"backups", "", "no arguments", "list the backup copies", kBackupsHelp, {json()}, CmdBackups},
    {"restore",
     "BACKUP_FILE_NAME",
     "the file name of one backup copy",
     "put a backup copy back",
     kRestoreHelp,
     {},
     CmdRestore},
    {"delete-backup",
     "BACKUP_FILE_NAME",
     "the file name of one backup copy",
     "delete a backup copy",
     kDeleteBackupHelp,
     {},
     CmdDeleteBackup},
    {"install-portable",
     "TARGET_DIR",
     "one target folder",
     "copy the program with its users to a drive",
     kInstallPortableHelp,
     {},
     CmdInstallPortable},
    {"import",
     "NAME FILE",
     "a user name and a file",
     "import a file of another password manager",
     kImportHelp,
     {opt("format", "the file's format", "FORMAT"), opt("into", "the folder that takes the new folder", "ID"),
      opt("map", "the columns of a CSV (title=COLUMN,...)", "COLUMNS")},
     CmdImport},
    {"export",
     "NAME",
     "a user name",
     "write a user's records as KeePass XML or CSV",
     kExportHelp,
     {opt("format", "xml or csv", "FORMAT"), opt("folder", "one folder with everything in it", "ID"),
      QCommandLineOption({QStringLiteral("o"), QStringLiteral("output")},
                         QStringLiteral("the file to write, instead of standard output"),
                         QStringLiteral("FILE"))},
     CmdExport},
    {"health",
     "NAME",
     "one user name",
     "report weak, shared, old and empty passwords",
     kHealthHelp,
     {opt("older-than", "passwords older than this many days", "DAYS"), json()},
     CmdHealth},
    {"browser",
     "ACTION",
     "setup, status or remove",
     "set up the browser extension's connection",
     kBrowserHelp,
     {opt("browser", "the browsers, comma-separated", "LIST"),
      opt("take-over", "replace KeePassXC's manifest")},
     CmdBrowser},
};

qsizetype countWords(const char* Args, bool Optional) {
    qsizetype n = 0;
    for (const QString& w : QString::fromLatin1(Args).split(u' ', Qt::SkipEmptyParts))
        n += w.startsWith(u'[') == Optional ? (w.endsWith(QLatin1String("...]")) ? 100000 : 1) : 0;
    return n;
}

} // namespace

qsizetype CliCommand::minArgs() const {
    return countWords(Args, false);
}

qsizetype CliCommand::maxArgs() const {
    return countWords(Args, false) + countWords(Args, true);
}

std::span<const CliCommand> CliCommandTable() {
    return kCommands;
}

const CliCommand* FindCliCommand(const QString& Name) {
    for (const CliCommand& c : CliCommandTable())
        if (Name == QLatin1String(c.Name))
            return &c;
    return nullptr;
}
