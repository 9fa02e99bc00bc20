// argentpm commands on backup copies and the portable copy: the logic of the restore
// dialog and of the tools menu's installation, with the questions asked on the terminal.

#include "cli/CliCommands.h"
#include "cli/CliScript.h"
#include "cli/CliShared.h"
#include "cli/CliTerminal.h"

#include "app/CheckedWrite.h"
#include "app/ProgConfig.h"
#include "app/VbConv.h"
#include "app/modMain.h"
#include "diagnostics/ErrorTrap.h"
#include "diagnostics/Trace.h"
#include "maintenance/Autobackup.h"
#include "maintenance/RemovableInstall.h"
#include "maintenance/RestoreBackup.h"
#include "users/UserAccounts.h"

#include <QDir>
#include <QFileInfo>

#include <cstdio>
#include <unistd.h>

using namespace cli;

namespace {

// A copy named on the command line: a plain name in the backup folder.
int existingCopy(const QString& Name) {
    const QString why = FolderWriteProblem(BackupFolderPath());
    if (!why.isEmpty()) {
        say(why);
        return cliRefused;
    }
    if (Name.contains(u'/') || !Name.endsWith(QLatin1String(".bdb.BACKUP")) ||
        !QFileInfo(BackupFolderPath() + Name).isFile()) {
        say(QStringLiteral("there is no backup copy %1 in %2 (see 'argentpm backups')")
                .arg(quoted(Name), BackupFolderPath()));
        return cliNoBackup;
    }
    return cliOk;
}

// Runs a file operation that raises on a failed read or write (a full disk, a folder that
// is gone); such a failure is said plainly and is exit status 1. Any other error stays
// unexpected.
template <class F> int fileStep(const QString& What, F&& Fn) {
    try {
        Fn();
    } catch (const VbError& e) {
        if (e.number() != vbErrPathFileAccess && e.number() != vbErrPathNotFound &&
            e.number() != vbErrFileNotFound)
            throw;
        argent::diag::clearSnapshot();
        say(QStringLiteral("%1 failed: %2; files already there are as they were").arg(What, e.description()));
        return cliFailed;
    }
    return cliOk;
}

bool confirmed(const CliOptions& Opt, const QString& Question) {
    return Opt.Yes || AskYesOnTty(Question);
}

} // namespace

int CmdBackup(const CliOptions& Opt, const QStringList& Args) {
    TRACE_PROC("modCli.CmdBackup", Args);
    // The number of copies to keep must be a number (the "n" of switched-off backups
    // aside) before anything is touched.
    const QString copies = ProgConfig.UBound() >= kCfgAutoBackup ? ProgConfig[kCfgAutoBackup] : QString();
    TRACE_LOCAL(copies);
    bool ok = false;
    TRACE_LOCAL(ok);
    (copies.startsWith(u'n') ? copies.mid(1) : copies).trimmed().toInt(&ok);
    if (!ok) {
        say(QStringLiteral("the settings' number of backup copies (entry 13) is %1, which is not a number; "
                           "set it in the options")
                .arg(quoted(copies)));
        return cliBadConfig;
    }
    if (int rc = lockUser(Args[0]))
        return rc;
    if (int rc = openUser(Opt, Args[0]))
        return rc;
    if (CurUsDB->Name() != Args[0]) {
        say(QStringLiteral("the database in %1 belongs to user %2; no copy was made")
                .arg(CurUsDBPath, quoted(CurUsDB->Name())));
        return cliFailed;
    }
    QString copy;
    if (int rc = fileStep(QStringLiteral("the backup copy"), [&] { copy = DoAutobackup(CurUsDB); }))
        return rc;
    if (copy.isEmpty()) {
        say(QStringLiteral("the file of user %1 is damaged; no copy was made").arg(quoted(Args[0])));
        return cliDamaged;
    }
    std::printf("%s\n", QFile::encodeName(copy).constData());
    return cliOk;
}

int CmdBackups(const CliOptions& Opt, const QStringList& Args) {
    TRACE_PROC("modCli.CmdBackups", Args);
    const QStringList items = ListDBsForRestore(BackupFolderPath());
    if (wantJson(Opt))
        return printBackupsJson(items);
    QByteArray out;
    for (const QString& item : items) {
        appendOneLine(out, item);
        out.append('\n');
    }
    writeOut(out);
    return cliOk;
}

int CmdRestore(const CliOptions& Opt, const QStringList& Args) {
    TRACE_PROC("modCli.CmdRestore", Args);
    const QString name = BackupFileFromItem(Args[0]);
    TRACE_LOCAL(name);
    if (int rc = existingCopy(name))
        return rc;
    const QString user = BackupUserFromItem(name);
    TRACE_LOCAL(user);
    if (user.isEmpty() || user == name) {
        say(QStringLiteral("%1 names no user before its \"_\"").arg(quoted(name)));
        return cliRefused;
    }
    const QString q = QStringLiteral("Replace the database of user %1 with the backup copy %2? Changes made "
                                     "since that copy are lost.")
                          .arg(quoted(user), quoted(name));
    if (!confirmed(Opt, q)) {
        say(QStringLiteral("nothing was restored (confirm with --yes when there is no terminal)"));
        return cliRefused;
    }
    const int r = RestoreBackupFile(name);
    if (r == -6) {
        say(QStringLiteral("another program has held the file of user %1 for more than 10 s; nothing was "
                           "restored, try again")
                .arg(quoted(user)));
        return cliLocked;
    }
    if (r < 0) {
        say(QStringLiteral("the backup copy could not be written over the file of user %1 (a full disk?); "
                           "that file is as it was")
                .arg(quoted(user)));
        return cliFailed;
    }
    std::printf("User \"%s\" restored from %s.\n", user.toUtf8().constData(), name.toUtf8().constData());
    return cliOk;
}

int CmdDeleteBackup(const CliOptions& Opt, const QStringList& Args) {
    TRACE_PROC("modCli.CmdDeleteBackup", Args);
    const QString name = BackupFileFromItem(Args[0]);
    TRACE_LOCAL(name);
    if (int rc = existingCopy(name))
        return rc;
    if (!confirmed(Opt, QStringLiteral("Delete the backup copy %1 for good?").arg(quoted(name)))) {
        say(QStringLiteral("nothing was deleted (confirm with --yes when there is no terminal)"));
        return cliRefused;
    }
    DeleteBackup(name);
    std::printf("Backup copy %s deleted.\n", name.toUtf8().constData());
    return cliOk;
}

int CmdInstallPortable(const CliOptions& Opt, const QStringList& Args) {
    TRACE_PROC("modCli.CmdInstallPortable", Args);
    if (Args[0].isEmpty())
        return badArguments(Opt);
    const QString target = QDir(Args[0]).absolutePath();
    TRACE_LOCAL(target);
    for (const QString& f : PortableRequiredFiles()) {
        // The programs are beside argentpm, start.dat in the program folder (the same
        // folder but for an installed copy).
        const QString folder = f == QLatin1String("start.dat") ? AppPath() : ExeFolderPath();
        if (!QFileInfo(Pt(folder) + f).isFile()) {
            say(QStringLiteral("%1 is missing in %2; there is nothing to copy").arg(quoted(f), folder));
            return cliFailed;
        }
    }
    if (QFileInfo::exists(Pt(target) + QStringLiteral("DataBases"))) {
        say(QStringLiteral("%1 holds a DataBases folder already: a copy is installed there; choose another "
                           "folder or remove it first")
                .arg(target));
        return cliRefused;
    }
    if (!QFileInfo(target).isDir() && !QDir().mkpath(target)) {
        say(QStringLiteral("the folder %1 cannot be created").arg(target));
        return cliFailed;
    }
    const bool tty = isatty(STDERR_FILENO);
    int n = 0;
    const int rc = fileStep(QStringLiteral("the portable copy"), [&] {
        n = InstallToRemovableDevice(target, [tty](int Done, int Total, const QString&) {
            if (tty)
                std::fprintf(stderr, "\rCopying... %d of %d", Done, Total);
        });
    });
    if (tty)
        std::fputs("\n", stderr);
    if (rc)
        return rc;
    std::printf("Installed to %s: %d files and folders copied. Start %s/ArgentPasswordMngr there.\n",
                QFile::encodeName(target).constData(), n, QFile::encodeName(target).constData());
    return cliOk;
}
