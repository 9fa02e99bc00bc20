#include "cli/CliCommands.h"

#include "cli/CliScript.h"
#include "cli/CliShared.h"
#include "cli/CliTerminal.h"

#include "app/ProgConfig.h"
#include "app/modMain.h"
#include "diagnostics/ErrorTrap.h"
#include "diagnostics/Trace.h"
#include "storage/Md5.h"
#include "storage/TableFile.h"
#include "storage/UserFileLock.h"
#include "users/UsDBTree.h"
#include "users/UserAccounts.h"
#include "users/UserName.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cstdio>

namespace cli {

constexpr int kMinPaswLen = 8;

void say(const QString& Text) {
    TRACE_PROC("modCli.Say", Text);
    const QByteArray b = Text.toUtf8();
    std::fprintf(stderr, "argentpm: %s\n", b.constData());
}

QString quoted(const QString& Name) {
    TRACE_PROC("modCli.Quoted", Name);
    return QLatin1Char('"') + Name + QLatin1Char('"');
}

// A password from the next line of standard input or from the terminal.
int askSecret(const CliOptions& Opt, const char* Prompt, QString& Out) {
    TRACE_PROC("modCli.AskSecret", Prompt);
    if (Opt.PaswStdin) {
        if (!ReadStdinLine(Out)) {
            say(QStringLiteral("standard input ended before the password"));
            return cliUsage;
        }
        return cliOk;
    }
    if (!ReadSecretFromTty(Prompt, Out)) {
        say(QStringLiteral("there is no terminal to ask for the password; use --password-stdin"));
        return cliUsage;
    }
    return cliOk;
}

int askConfirmedSecret(const CliOptions& Opt, const char* Prompt, const char* Done, QString& Out) {
    TRACE_PROC("modCli.AskConfirmedSecret", Prompt);
    if (int rc = askSecret(Opt, Prompt, Out))
        return rc;
    if (Opt.PaswStdin)
        return cliOk;
    QString again;
    if (int rc = askSecret(Opt, "Repeat it: ", again))
        return rc;
    const bool same = again == Out;
    TRACE_LOCAL(same);
    WipeString(again);
    if (!same) {
        WipeString(Out);
        say(QStringLiteral("the two passwords differ; nothing was %1").arg(QLatin1String(Done)));
        return cliRefused;
    }
    return cliOk;
}

// A new password: one line from standard input, or typed twice on the terminal.
int askNewSecret(const CliOptions& Opt, QString& Out) {
    TRACE_PROC("modCli.AskNewSecret");
    if (int rc = askConfirmedSecret(Opt, "New password: ", "changed", Out))
        return rc;
    if (Out.size() < kMinPaswLen) {
        WipeString(Out);
        say(QStringLiteral("a password needs at least %1 characters; nothing was changed").arg(kMinPaswLen));
        return cliRefused;
    }
    return cliOk;
}

namespace {
// The lock of the user this command changes; released when the process ends.
std::unique_ptr<clsUserFileLock> g_lock;
} // namespace

int lockUser(const QString& Name) {
    TRACE_PROC("modCli.LockUser", Name);
    const QString path = UsDBFilePath(Name);
    g_lock = std::make_unique<clsUserFileLock>(path);
    if (g_lock->Acquire())
        return cliOk;
    if (g_lock->TimedOut()) {
        say(QStringLiteral("another program has held the file of user %1 for more than %2 s; nothing was "
                           "changed, try again")
                .arg(quoted(Name))
                .arg(kUserLockWaitMs / 1000));
        return cliLocked;
    }
    say(QStringLiteral("the lock file %1 cannot be made").arg(clsUserFileLock::LockFilePath(path)));
    return cliFailed;
}

int saveFailure(int SaveResult) {
    TRACE_PROC("modCli.SaveFailure", SaveResult);
    switch (SaveResult) {
    case usLockTimeout:
        say(QStringLiteral("another program has held the file of user %1 for more than %2 s; nothing was "
                           "changed")
                .arg(quoted(CurUser))
                .arg(kUserLockWaitMs / 1000));
        return cliLocked;
    case usKeyChanged:
        say(QStringLiteral("the file of user %1 no longer opens with the password given; nothing was changed")
                .arg(quoted(CurUser)));
        return cliWrongPasw;
    case usFileDeleted:
        say(QStringLiteral("the file of user %1 was deleted meanwhile; nothing was written")
                .arg(quoted(CurUser)));
        return cliNoUser;
    default:
        say(QStringLiteral("the file of user %1 could not be written; it is as it was").arg(quoted(CurUser)));
        return cliFailed;
    }
}

// Checks the password and makes the user current (without touching the settings, unlike
// the desktop program: a look from the command line does not change its last user).
int openUser(const CliOptions& Opt, const QString& Name) {
    TRACE_PROC("modCli.OpenUser", Name);
    const QString path = UsDBFilePath(Name);
    TRACE_LOCAL(path);
    const QFileInfo fi(path);
    if (Name.isEmpty() || !fi.isFile()) {
        say(QStringLiteral("there is no user %1 in %2")
                .arg(quoted(Name), QDir::toNativeSeparators(ProgConfig[5])));
        return cliNoUser;
    }
    if (fi.size() <= 13) {
        say(QStringLiteral("the file of user %1 is damaged: it is too short (%2)").arg(quoted(Name), path));
        return cliDamaged;
    }
    QString typed;
    if (int rc = askSecret(Opt, "Password: ", typed))
        return rc;
    QString md5 = HashString(typed);
    TRACE_LOCAL(md5);
    WipeString(typed);
    const int test = TestUsPasw(path, md5);
    if (test == 4) {
        WipeString(md5);
        const QString why = TempFolderProblem();
        say(why.isEmpty()
                ? QStringLiteral("the temporary folder %1 is full; nothing was read").arg(GetWindowsTemp())
                : why);
        return cliFailed;
    }
    if (test != 1) {
        WipeString(md5);
        say(QStringLiteral("wrong password for user %1 (or %2 is not a user file)").arg(quoted(Name), path));
        return cliWrongPasw;
    }
    CurUsDB = std::make_shared<clsDatabase>();
    const int r = LoadUser(path, GetTruePasw(md5));
    TRACE_LOCAL(r);
    if (r < 0) {
        WipeString(md5);
        if (r == -9) {
            say(QStringLiteral("the temporary folder %1 is full or gone; nothing was read")
                    .arg(GetWindowsTemp()));
            return cliFailed;
        }
        if (r == -2) {
            say(QStringLiteral("the file of user %1 disappeared (%2)").arg(quoted(Name), path));
            return cliNoUser;
        }
        if (r == -1) {
            say(QStringLiteral("the file of user %1 cannot be read (%2)").arg(quoted(Name), path));
            return cliFailed;
        }
        say(QStringLiteral("the file of user %1 is damaged: the password is right, but its contents do not "
                           "check out (%2)")
                .arg(quoted(Name), path));
        return cliDamaged;
    }
    CurUsPasw = md5;
    WipeString(md5);
    CurUser = Name;
    CurUsDBPath = path;
    CurUsDB->SetPath(path);
    return cliOk;
}

int dataTable(int& Tbl) {
    TRACE_PROC("modCli.DataTable");
    Tbl = CurUsDB->FindTable(QStringLiteral("DataTable"));
    if (Tbl == 0) {
        say(QStringLiteral("the file of user %1 holds no record table").arg(quoted(CurUser)));
        return cliDamaged;
    }
    return cliOk;
}

// A text on one line of output: line breaks and tabs become blanks.
void appendOneLine(QByteArray& Out, const QString& Text) {
    TRACE_PROC("modCli.AppendOneLine", Text);
    bool plain = true;
    TRACE_LOCAL_HIDDEN(plain);
    for (QChar ch : Text)
        if (ch == u'\r' || ch == u'\n' || ch == u'\t')
            plain = false;
    if (plain) {
        Out.append(Text.toUtf8());
        return;
    }
    QString t = Text;
    TRACE_LOCAL(t);
    for (QChar& ch : t)
        if (ch == u'\r' || ch == u'\n' || ch == u'\t')
            ch = u' ';
    Out.append(t.toUtf8());
}

// The same for a value as the table stores it (escaped UTF-8, RecordStore.h), without
// making a text of it: line breaks and tabs become blanks, the escapes their bytes.
void appendOneLineStored(QByteArray& Out, QByteArrayView Stored) {
    for (qsizetype i = 0; i < Stored.size(); ++i) {
        char c = Stored[i];
        if (c == '\\' && i + 1 < Stored.size()) {
            const char e = Stored[++i];
            c = e == 's' ? static_cast<char>(0x87) : e == 'r' || e == 'n' ? ' ' : e;
        } else if (c == '\t') {
            c = ' ';
        }
        Out.append(c);
    }
}

void writeOut(const QByteArray& Bytes) {
    TRACE_PROC("modCli.WriteOut", static_cast<long long>(Bytes.size()));
    std::fwrite(Bytes.constData(), 1, static_cast<std::size_t>(Bytes.size()), stdout);
    std::fflush(stdout);
}

} // namespace cli

using namespace cli;

int CliPrepare(const CliOptions& Opt) {
    TRACE_PROC("modCli.CliPrepare", Opt.Databases);
    CreateProgramObjects();
    try {
        ChooseConfiguration();
    } catch (const VbError& e) {
        argent::diag::clearSnapshot();
        say(QStringLiteral("the settings file %1 cannot be read (%2)").arg(ProgCfgPath, e.description()));
        return cliBadConfig;
    }
    RemoveStaleTempCopies();
    // Settings of fewer lines than the language entry are no settings the program can run on
    // (an emptied config.dat).
    const bool usable = ProgConfig.UBound() >= 14;
    while (ProgConfig.UBound() < 5)
        AddElemToStrMass(ProgConfig, QString());
    if (!Opt.Databases.isEmpty()) {
        ProgConfig[5] = QDir(Opt.Databases).absolutePath();
    } else if (!usable) {
        say(QStringLiteral("the settings file %1 is damaged (it holds %2 of its lines); give the databases "
                           "folder with --databases DIR, or start ArgentPasswordMngr to set it up again")
                .arg(ProgCfgPath)
                .arg(ProgConfig.UBound()));
        return cliBadConfig;
    }
    if (ProgConfig[5].isEmpty()) {
        say(QStringLiteral("the settings name no databases folder; give one with --databases DIR"));
        return cliUsage;
    }
    const QFileInfo folder(ProgConfig[5]);
    if (folder.exists() && !folder.isDir()) {
        say(QStringLiteral("the databases folder %1 is a file, not a folder").arg(ProgConfig[5]));
        return Opt.Databases.isEmpty() ? cliBadConfig : cliUsage;
    }
    return cliOk;
}

int CmdUsers(const CliOptions& Opt, const QStringList& Args) {
    TRACE_PROC("modCli.CmdUsers", Args);
    if (!Args.isEmpty()) {
        say(QStringLiteral("'users' takes no arguments. Try 'argentpm users --help'."));
        return cliUsage;
    }
    if (!QFileInfo(ProgConfig[5]).isDir()) {
        say(QStringLiteral("the databases folder %1 does not exist").arg(ProgConfig[5]));
        return cliFailed;
    }
    StrMass users;
    FindUsers(ProgConfig[5], users);
    if (wantJson(Opt))
        return printUsersJson(users.UBound() >= 1 ? users.Items.mid(1 - users.LBound) : QStringList());
    QByteArray out;
    for (int i = 1; i <= users.UBound(); ++i) {
        appendOneLine(out, users[i]);
        out.append('\n');
    }
    writeOut(out);
    return cliOk;
}

int CmdAddUser(const CliOptions& Opt, const QStringList& Args) {
    TRACE_PROC("modCli.CmdAddUser", Args);
    if (Args.size() != 1) {
        say(QStringLiteral("'add-user' takes one user name. Try 'argentpm add-user --help'."));
        return cliUsage;
    }
    const QString name = Args[0];
    if (!IsValidUserName(name)) {
        say(QStringLiteral(
                "%1 cannot be a user name: it becomes a file name, so it must not be empty, \".\" or "
                "\"..\", or hold \"/\"")
                .arg(quoted(name)));
        return cliRefused;
    }
    const QString path = UsDBFilePath(name);
    TRACE_LOCAL(path);
    if (FileExist(path)) {
        say(QStringLiteral("user %1 exists already").arg(quoted(name)));
        return cliRefused;
    }
    QString pasw;
    if (int rc = askNewSecret(Opt, pasw))
        return rc;
    reportStrength(pasw, name);
    if (!QFileInfo(ProgConfig[5]).isDir()) {
        QDir().mkpath(ProgConfig[5]);
        QFile::setPermissions(ProgConfig[5], QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }
    // Two programs adding the same user take turns; the second finds the first's file.
    if (int rc = lockUser(name)) {
        WipeString(pasw);
        return rc;
    }
    if (FileExist(path)) {
        WipeString(pasw);
        say(QStringLiteral("user %1 exists already").arg(quoted(name)));
        return cliRefused;
    }
    try {
        AddUser(path, name, pasw);
    } catch (const VbError& e) {
        if (e.number() != vbErrPathFileAccess)
            throw;
        // A full disk or a folder that went away: nothing was created.
        WipeString(pasw);
        argent::diag::clearSnapshot();
        say(QStringLiteral("user %1 could not be created: %2").arg(quoted(name), e.description()));
        return cliFailed;
    }
    WipeString(pasw);
    std::printf("User \"%s\" created.\n", name.toUtf8().constData());
    return cliOk;
}

int CmdPasswd(const CliOptions& Opt, const QStringList& Args) {
    TRACE_PROC("modCli.CmdPasswd", Args);
    if (Args.size() != 1) {
        say(QStringLiteral("'passwd' takes one user name. Try 'argentpm passwd --help'."));
        return cliUsage;
    }
    if (int rc = lockUser(Args[0]))
        return rc;
    if (int rc = openUser(Opt, Args[0]))
        return rc;
    // The file is written under the name the database carries; a file renamed by hand
    // would be written elsewhere, so such a file is left alone.
    if (CurUsDB->Name() != Args[0]) {
        say(QStringLiteral("the database in %1 belongs to user %2; it was not changed")
                .arg(CurUsDBPath, quoted(CurUsDB->Name())));
        return cliFailed;
    }
    QString pasw;
    if (int rc = askNewSecret(Opt, pasw))
        return rc;
    reportStrength(pasw, Args[0]);
    const int r = ChangeUsPasw(pasw);
    TRACE_LOCAL(r);
    WipeString(pasw);
    if (r == usWriteFailed) {
        say(QStringLiteral("the file of user %1 could not be written; it still opens with the old password")
                .arg(quoted(Args[0])));
        return cliFailed;
    }
    if (r < 0)
        return saveFailure(r);
    std::printf("Password of user \"%s\" changed.\n", Args[0].toUtf8().constData());
    return cliOk;
}

int CmdDeleteUser(const CliOptions& Opt, const QStringList& Args) {
    TRACE_PROC("modCli.CmdDeleteUser", Args);
    if (Args.size() != 1) {
        say(QStringLiteral("'delete-user' takes one user name. Try 'argentpm delete-user --help'."));
        return cliUsage;
    }
    const QString path = UsDBFilePath(Args[0]);
    TRACE_LOCAL(path);
    if (Args[0].isEmpty() || !QFileInfo(path).isFile()) {
        say(QStringLiteral("there is no user %1 in %2").arg(quoted(Args[0]), ProgConfig[5]));
        return cliNoUser;
    }
    if (!Opt.Yes) {
        const QString q =
            QStringLiteral("Delete user %1 with all of its folders and records?").arg(quoted(Args[0]));
        if (!AskYesOnTty(q)) {
            say(QStringLiteral("user %1 was not deleted (confirm with --yes when there is no terminal)")
                    .arg(quoted(Args[0])));
            return cliRefused;
        }
    }
    if (int rc = lockUser(Args[0]))
        return rc;
    if (DeleteUser(Args[0], path) != 1) {
        say(QStringLiteral("there is no user %1 in %2 any more").arg(quoted(Args[0]), ProgConfig[5]));
        return cliNoUser;
    }
    std::printf("User \"%s\" deleted.\n", Args[0].toUtf8().constData());
    return cliOk;
}

int CmdLs(const CliOptions& Opt, const QStringList& Args) {
    TRACE_PROC("modCli.CmdLs", Args);
    if (Args.size() != 1) {
        say(QStringLiteral("'ls' takes one user name. Try 'argentpm ls --help'."));
        return cliUsage;
    }
    if (int rc = openUser(Opt, Args[0]))
        return rc;
    int tbl;
    if (int rc = dataTable(tbl))
        return rc;
    if (wantJson(Opt))
        return printLsJson(tbl);
    const DatabaseRecord& db = CurUsDB->DBView();
    const TableEntry& t = db.Tables[tbl - 1];
    const int fId = CurUsDB->FindField(tbl, QStringLiteral("IndNum")) - 1;
    TRACE_LOCAL(fId);
    const int fTitle = CurUsDB->FindField(tbl, QStringLiteral("Title")) - 1;
    TRACE_LOCAL(fTitle);
    const QList<UsTreeNode> nodes = UsDBTreeOrder(*CurUsDB);
    int width = 1;
    TRACE_LOCAL(width);
    for (const UsTreeNode& n : nodes)
        width = std::max<int>(width, static_cast<int>(t.Records.escaped(n.RecNum - 1, fId).size()));
    QByteArray out;
    out.reserve(64 + nodes.size() * 48);
    // Identifiers are digits: their width is their length in bytes.
    auto line = [&](QByteArrayView id, int depth, QByteArrayView title, bool folder) {
        out.append(std::max<qsizetype>(0, width - id.size()), ' ');
        appendOneLineStored(out, id);
        out.append(2 + depth * 2, ' ');
        appendOneLineStored(out, title);
        if (folder)
            out.append('/');
        out.append('\n');
    };
    line("0", 0, StoredForm(CurUsDB->Tag()), false);
    for (const UsTreeNode& n : nodes)
        line(t.Records.escaped(n.RecNum - 1, fId), n.Depth, t.Records.escaped(n.RecNum - 1, fTitle),
             n.Folder);
    writeOut(out);
    return cliOk;
}

int CmdShow(const CliOptions& Opt, const QStringList& Args) {
    TRACE_PROC("modCli.CmdShow", Args);
    bool isNum = false;
    TRACE_LOCAL(isNum);
    if (Args.size() == 2)
        Args[1].toInt(&isNum);
    if (Args.size() != 2 || !isNum) {
        say(QStringLiteral("'show' takes a user name and a record identifier. Try 'argentpm show --help'."));
        return cliUsage;
    }
    if (int rc = checkFieldOption(Opt, "show"))
        return rc;
    if (int rc = openUser(Opt, Args[0]))
        return rc;
    int tbl;
    if (int rc = dataTable(tbl))
        return rc;
    const QString id = QString::number(Args[1].toInt());
    TRACE_LOCAL(id);
    const int rec = CurUsDB->GetRecNumFromVal(tbl, CurUsDB->FindField(tbl, QStringLiteral("IndNum")), id, 1);
    TRACE_LOCAL(rec);
    if (rec == 0) {
        say(QStringLiteral("user %1 has no folder or record with identifier %2").arg(quoted(Args[0]), id));
        return cliNoRecord;
    }
    if (Opt.Given.contains(QStringLiteral("--field")))
        return printField(tbl, rec, Opt.Given.value(QStringLiteral("--field")));
    if (wantJson(Opt))
        return printShowJson(tbl, rec);
    TableEntry fields;
    CurUsDB->GetTable(tbl, fields);
    QByteArray out;
    // The fields the value pane shows: those without the hidden bit (4) in their type.
    for (qsizetype f = 0; f < fields.FldNames.size(); ++f) {
        if (fields.FldTypes.value(f) & 4)
            continue;
        const QByteArray caption = fields.FldNames[f].toUtf8() + ": ";
        QString value = CurUsDB->GetTblFldVal(tbl, rec, static_cast<int>(f + 1));
        TRACE_LOCAL(value);
        value.replace(QLatin1String("\r\n"), QLatin1String("\n"));
        const QStringList lines = value.split(u'\n');
        TRACE_LOCAL(lines);
        out += caption + lines.first().toUtf8() + '\n';
        for (qsizetype k = 1; k < lines.size(); ++k)
            out += QByteArray(caption.size(), ' ') + lines[k].toUtf8() + '\n';
    }
    writeOut(out);
    return cliOk;
}
