// argentpm merge: conflict copies of a sync engine, or any other versions of a user's
// file, taken into the user (users/ConflictMerge.h).

#include "cli/CliCommands.h"

#include "app/ProgConfig.h"
#include "diagnostics/Trace.h"
#include "storage/clsDatabase.h"
#include "users/ConflictMerge.h"
#include "users/UserAccounts.h"

#include <QFileInfo>

using namespace cli;

int CmdMerge(const CliOptions& Opt, const QStringList& Args) {
    TRACE_PROC("modCli.CmdMerge", Args);
    const QString name = Args[0];
    QStringList files;
    for (const QString& f : Args.mid(1)) {
        const QFileInfo fi(f);
        if (!fi.isFile()) {
            say(QStringLiteral("there is no file %1; nothing was merged").arg(quoted(f)));
            return cliFailed;
        }
        if (fi.absoluteFilePath() == QFileInfo(UsDBFilePath(name)).absoluteFilePath()) {
            say(QStringLiteral("%1 is the file of user %2 itself; nothing was merged")
                    .arg(quoted(f), quoted(name)));
            return cliUsage;
        }
        files.append(fi.absoluteFilePath());
    }
    if (files.isEmpty() && UserConflictCopies(name).isEmpty()) {
        if (!QFileInfo(UsDBFilePath(name)).isFile()) {
            say(QStringLiteral("there is no user %1 in %2").arg(quoted(name), ProgConfig[kCfgDBPath]));
            return cliNoUser;
        }
        say(QStringLiteral("user %1 has no conflict copies; nothing to merge").arg(quoted(name)));
        return cliOk;
    }
    if (int rc = lockUser(name))
        return rc;
    if (int rc = openUser(Opt, name))
        return rc;
    if (int rc = confirmOlderFile(Opt))
        return rc;
    if (CurUsDB->Name() != name) {
        say(QStringLiteral("the database in %1 belongs to user %2; nothing was merged")
                .arg(CurUsDBPath, quoted(CurUsDB->Name())));
        return cliFailed;
    }
    int tbl;
    if (int rc = dataTable(tbl))
        return rc;
    return mergeWaitingCopies(files, true);
}
