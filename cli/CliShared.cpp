// The helpers every argentpm command uses: settings, the user's lock, opening and saving
// the user, asking for passwords, and what is said and written.

#include "cli/CliShared.h"

#include "cli/CliCommands.h"
#include "cli/CliTerminal.h"

#include "app/ProgConfig.h"
#include "app/SecureMemory.h"
#include "app/VbConv.h"
#include "app/modMain.h"
#include "diagnostics/ErrorTrap.h"
#include "diagnostics/Trace.h"
#include "records/RecordTree.h"
#include "storage/Md5.h"
#include "storage/TableFile.h"
#include "storage/UserFile.h"
#include "storage/UserFileLock.h"
#include "storage/clsDatabase.h"
#include "users/ConflictMerge.h"
#include "users/UnsavedCopy.h"
#include "users/UserAccounts.h"
#include "users/UserSession.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cstdio>
#include <memory>

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

int usage(const CliOptions& Opt, const QString& Why) {
    TRACE_PROC("modCli.Usage", Why);
    const QString name = Opt.Command ? QLatin1String(Opt.Command->Name) : QLatin1String("");
    say(QStringLiteral("%1. Try 'argentpm %2 --help'.").arg(Why, name));
    return cliUsage;
}

int badArguments(const CliOptions& Opt) {
    return usage(Opt, QStringLiteral("'%1' takes %2")
                          .arg(QLatin1String(Opt.Command->Name), QLatin1String(Opt.Command->Takes)));
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
    case usOlderFile:
        say(QStringLiteral("the file of user %1 is older than a version this computer has seen; nothing was "
                           "written (keep it with --accept-older)")
                .arg(quoted(CurUser)));
        return cliRefused;
    case usDamaged:
        say(QStringLiteral("the file of user %1 is damaged: the password is right, but its contents do not "
                           "check out; nothing was written (restore a backup copy: argentpm restore)")
                .arg(quoted(CurUser)));
        return cliDamaged;
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
                .arg(quoted(Name), QDir::toNativeSeparators(ProgConfig[kCfgDBPath])));
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
    // Hidden from error reports, and kept out of swap like the key made from it.
    TRACE_LOCAL_HIDDEN(md5);
    LockSecretText(md5);
    WipeString(typed);
    const int test = TestUsPasw(path, md5);
    if (test != tupRight) {
        WipeString(md5);
        say(QStringLiteral("wrong password for user %1 (or %2 is not a user file)").arg(quoted(Name), path));
        return cliWrongPasw;
    }
    CurUsDB = std::make_shared<clsDatabase>();
    const int r = LoadUser(path, GetTruePasw(md5));
    TRACE_LOCAL(r);
    if (r < 0) {
        WipeString(md5);
        if (r == tbeNoFile) {
            say(QStringLiteral("the file of user %1 disappeared (%2)").arg(quoted(Name), path));
            return cliNoUser;
        }
        if (r == tbeIoError) {
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
    if (const QString copy = FindUnsavedCopy(Name); !copy.isEmpty())
        say(QStringLiteral(
                "note: changes to user %1 that the window could not save are kept in %2; the window "
                "offers them back when it opens this user")
                .arg(quoted(Name), copy));
    if (const clsUserFilePtr& file = CurUsDB->UserFile(); file && file->OlderThanSeen())
        say(QStringLiteral("the file of user %1 is older than a version this computer has seen (saved %2 "
                           "times, a later copy %3 times): an older copy was put back")
                .arg(quoted(Name))
                .arg(file->OlderNum())
                .arg(file->SeenNum()));
    // A changing command merges the copies next (openUserForChange); a read-only one says
    // that they wait.
    if (!(g_lock && g_lock->IsHeld()))
        if (const qsizetype n = UserConflictCopies(Name).size(); n > 0)
            say(QStringLiteral(
                    "%1 conflict cop%2 of user %3 wait%4 to be merged: argentpm merge %5 takes them "
                    "in (so does any change of the user)")
                    .arg(n)
                    .arg(n == 1 ? QStringLiteral("y") : QStringLiteral("ies"))
                    .arg(quoted(Name))
                    .arg(n == 1 ? QStringLiteral("s") : QString())
                    .arg(Name));
    return cliOk;
}

int confirmOlderFile(const CliOptions& Opt) {
    TRACE_PROC("modCli.ConfirmOlderFile");
    const clsUserFilePtr& file = CurUsDB->UserFile();
    if (!file || !file->OlderThanSeen())
        return cliOk;
    if (!Opt.AcceptOlder &&
        !AskYesOnTty(QStringLiteral("Keep this older file and write the change into it?"))) {
        say(QStringLiteral("nothing was changed (keep the older file with --accept-older when there is no "
                           "terminal)"));
        return cliRefused;
    }
    file->AcceptOlder();
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

// The stored form is decoded by the table file's own reader; the text is then put on
// one line like any other.
void appendOneLineStored(QByteArray& Out, QByteArrayView Stored) {
    appendOneLine(Out, UnescapeValue(Stored.data(), Stored.size()));
}

void writeOut(const QByteArray& Bytes) {
    TRACE_PROC("modCli.WriteOut", static_cast<long long>(Bytes.size()));
    std::fwrite(Bytes.constData(), 1, static_cast<std::size_t>(Bytes.size()), stdout);
    std::fflush(stdout);
}

// Opens the user for a change: the file is written under the name the database holds,
// so a file renamed by hand is left alone.
int openUserForChange(const CliOptions& Opt, const QString& Name) {
    TRACE_PROC("modCli.OpenForChange", Name);
    if (int rc = lockUser(Name))
        return rc;
    if (int rc = openUser(Opt, Name))
        return rc;
    if (int rc = confirmOlderFile(Opt))
        return rc;
    if (CurUsDB->Name() != Name) {
        say(QStringLiteral("the database in %1 belongs to user %2; it was not changed")
                .arg(CurUsDBPath, quoted(CurUsDB->Name())));
        return cliFailed;
    }
    int tbl;
    if (int rc = dataTable(tbl))
        return rc;
    return mergeWaitingCopies({}, false);
}

int mergeWaitingCopies(const QStringList& Files, bool ToStdout) {
    TRACE_PROC("modCli.MergeWaitingCopies", Files);
    int save = usUnchanged;
    const QList<clsCopyMerge> done = MergeCopiesOfOpenUser(Files, save);
    QByteArray out;
    int rc = cliOk;
    for (const clsCopyMerge& m : done) {
        if (DescribeCopyMerge(m).isEmpty())
            continue;
        if (ToStdout) {
            appendOneLine(out, DescribeCopyMerge(m));
            out.append('\n');
        } else {
            say(DescribeCopyMerge(m));
        }
        if (m.Result == ccDamaged || m.Result == ccUnreadable)
            rc = cliDamaged;
        else if (m.Result == ccWrongKey && rc == cliOk)
            rc = cliWrongPasw;
        else if (m.Result == ccNotMoved && rc == cliOk)
            rc = cliFailed;
    }
    writeOut(out);
    if (save < 0)
        return saveFailure(save);
    // A copy that could not be taken in leaves the command free to go on: it stays.
    return ToStdout ? rc : cliOk;
}

int saveUserChange() {
    TRACE_PROC("modCli.SaveCurrent");
    const int r = UsSession().Save();
    return r < 0 ? saveFailure(r) : cliOk;
}

bool isRecordRow(int Rec) {
    const QString t =
        CurUsDB->GetTblFldValNm(CurUsDB->FindTable(QStringLiteral("DataTable")), Rec, QStringLiteral("Type"));
    return Val(t) == 2.0;
}

int findRow(const QString& Id, int& Rec) {
    TRACE_PROC("modCli.FindRow", Id);
    Rec = FindDataRow(*CurUsDB, Id);
    if (Rec == 0) {
        say(QStringLiteral("user %1 has no folder or record with identifier %2").arg(quoted(CurUser), Id));
        return cliNoRecord;
    }
    return cliOk;
}

// The root or a folder, to put rows into.
int existingFolder(const QString& Id) {
    if (Id == QLatin1String("0"))
        return cliOk;
    const int rec = FindDataRow(*CurUsDB, Id);
    if (rec == 0) {
        say(QStringLiteral("user %1 has no folder with identifier %2").arg(quoted(CurUser), Id));
        return cliNoRecord;
    }
    if (isRecordRow(rec)) {
        say(QStringLiteral("%1 is a record, not a folder: it cannot hold anything").arg(Id));
        return cliRefused;
    }
    return cliOk;
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
    const bool usable = ProgConfig.UBound() >= kCfgLanguage;
    while (ProgConfig.UBound() < kCfgDBPath)
        AddElemToStrMass(ProgConfig, QString());
    if (!Opt.Databases.isEmpty()) {
        ProgConfig[kCfgDBPath] = QDir(Opt.Databases).absolutePath();
    } else if (!usable) {
        // No settings were read at all: the per-user folder is there without its settings file.
        if (ProgCfgPath.isEmpty())
            say(QStringLiteral("the settings file %1 is missing; give the databases folder with --databases "
                               "DIR, or start ArgentPasswordMngr to set it up again")
                    .arg(Pt(UserFolderPath()) + QStringLiteral("config.dat")));
        else
            say(QStringLiteral("the settings file %1 is damaged (it holds %2 of its lines); give the "
                               "databases folder with --databases DIR, or start ArgentPasswordMngr to set "
                               "it up again")
                    .arg(ProgCfgPath)
                    .arg(ProgConfig.UBound()));
        return cliBadConfig;
    }
    if (ProgConfig[kCfgDBPath].isEmpty()) {
        say(QStringLiteral("the settings name no databases folder; give one with --databases DIR"));
        return cliUsage;
    }
    const QFileInfo folder(ProgConfig[kCfgDBPath]);
    if (folder.exists() && !folder.isDir()) {
        say(QStringLiteral("the databases folder %1 is a file, not a folder").arg(ProgConfig[kCfgDBPath]));
        return Opt.Databases.isEmpty() ? cliBadConfig : cliUsage;
    }
    return cliOk;
}
