#include "maintenance/Autobackup.h"

#include "app/MsgBox.h"
#include "app/ProgConfig.h"
#include "app/VbConv.h"
#include "app/modMain.h"
#include "app/modTimer.h"
#include "diagnostics/DbgPrint.h"
#include "diagnostics/ErrorTrap.h"
#include "diagnostics/Globals.h"
#include "diagnostics/Trace.h"
#include "maintenance/MaintFiles.h"
#include "storage/UserFile.h"
#include "users/UserAccounts.h"
#include "users/UserSession.h"

#include <QFile>

#include <climits>
#include <cstdio>
#include <utility>

int AutobackupTickCount = 0;

namespace {
const bool g_registered = [] {
    argent::diag::registerGlobal("AutobackupTickCount", &AutobackupTickCount);
    argent::diag::registerModuleVar("modMain", "AutobackupTickCount", &AutobackupTickCount);
    return true;
}();

// A rename that replaces nothing the rotation still needs: the names below a copy have
// already moved or gone.
void renameCopy(const QString& From, const QString& To) {
    if (std::rename(QFile::encodeName(From).constData(), QFile::encodeName(To).constData()) != 0)
        RaiseError(vbErrPathFileAccess, QStringLiteral("Path/File access error: ") + From);
}
} // namespace

void CheckBackupFolder() {
    const QString why = FolderWriteProblem(Pt(ProgConfig[kCfgDBPath]) + QStringLiteral("Backup"));
    if (!why.isEmpty())
        RaiseError(vbErrPathFileAccess, why);
}

QString BackupCopyPath(const QString& Name, int k) {
    return Pt(ProgConfig[kCfgDBPath]) + QStringLiteral("Backup/") + Name + u'_' + QString::number(k) +
           QStringLiteral(".bdb.BACKUP");
}

int BackupCopiesNumber() {
    TRACE_PROC("modMain.BackupCopiesNumber");
    const QString v = ProgConfig[kCfgAutoBackup];
    TRACE_LOCAL(v);
    return CLng(v.startsWith(u'n') ? v.mid(1) : v);
}

QString DoAutobackup(const clsDatabasePtr& db, int TimerInterval) {
    TRACE_PROC("modMain.DoAutobackup", db.get(), TimerInterval);
    DbgPrint(QStringLiteral("!!!AUTOBACKUP!!!"));
    const QString name = db->Name();
    TRACE_LOCAL(name);
    const int n = BackupCopiesNumber();
    TRACE_LOCAL(n);
    // Before the copies move: a Backup folder that is not the user's own is left alone.
    CheckBackupFolder();
    // A file that fails its check (damaged, forged, not sealed) is no copy to keep: it
    // would push a good one out of the rotation.
    if (db->UserFile() && db->UserFile()->Path() == UsDBFilePath(name) &&
        !db->UserFile()->FileChecksOut(*db)) {
        DbgPrint(QStringLiteral("No backup copy: the user's file fails its check: ") + UsDBFilePath(name));
        return QString();
    }

    // The highest copy on disk, searched from N down; a gap below it is not noticed. For
    // N <= 0 the search ends at once with N: the set counts as full.
    int CopNum = n;
    TRACE_LOCAL(CopNum);
    while (CopNum >= 1 && !FileExist(BackupCopyPath(name, CopNum)))
        --CopNum;
    TRACE_LOCAL(CopNum);

    if (CopNum == n) {
        TrueKill(BackupCopyPath(name, 1));
        for (int i = 2; i <= CopNum; ++i)
            if (FileExist(BackupCopyPath(name, i)))
                renameCopy(BackupCopyPath(name, i), BackupCopyPath(name, i - 1));
        --CopNum;
    }

    const QString folder = Pt(ProgConfig[kCfgDBPath]) + QStringLiteral("Backup");
    TRACE_LOCAL(folder);
    if (!EntryExists(folder))
        MakeFolder(folder, kPrivateDirPerms);

    // A database used within the last hour (with the design interval) is saved first, so
    // that the copy holds the recent changes.
    const long long product = static_cast<long long>(TimerInterval) * 60;
    TRACE_LOCAL(product);
    if (product > INT_MAX || product < INT_MIN)
        RaiseError(vbErrOverflow);
    const double limit = static_cast<double>(product) / 1000.0;
    TRACE_LOCAL(limit);
    const double elapsed = GetQueryPerf() - db->DBLastAccess();
    TRACE_LOCAL(elapsed);
    if (limit > elapsed) {
        // Through the session, as every save: a save that fails now (a lock held elsewhere,
        // a full disk) is no reason to go without a copy of the file as it stands; the
        // window has said so already, and the next save tries again.
        const int r = UsSession().SaveDatabase(db);
        TRACE_LOCAL(r);
        if (r < 0 && r != usNothingToSave)
            DbgPrint(QStringLiteral("Backup copy made without the latest changes (save result %1): ").arg(r) +
                     UsDBFilePath(name));
    }

    const QString copy = BackupCopyPath(name, CopNum + 1);
    TRACE_LOCAL(copy);
    CopyFileOver(UsDBFilePath(name), copy, kPrivateFilePerms);
    return copy;
}

bool AutobackupTick(int& TickCount, const clsDatabasePtr& db, int TimerInterval) {
    TRACE_PROC("frmMain.tmrAutobackup_Timer", TickCount, TimerInterval);
    if (!db || db->TabNum() == 0)
        return false;
    const int v = TickCount;
    TRACE_LOCAL(v);
    if (v == INT_MAX)
        RaiseError(vbErrOverflow);
    TickCount = v + 1;
    if (v % 60 != 0)
        return false;
    // A Backup folder someone else controls is no reason to end the program: the copy is
    // left out, and said once.
    const QString why = FolderWriteProblem(Pt(ProgConfig[kCfgDBPath]) + QStringLiteral("Backup"));
    if (!why.isEmpty()) {
        static bool told = false;
        DbgPrint(QStringLiteral("No backup copy: ") + why);
        if (!std::exchange(told, true))
            MsgBox(QStringLiteral("No backup copy was made: ") + why + u'.', vbExclamation);
        return false;
    }
    DoAutobackup(db, TimerInterval);
    return true;
}

bool AutobackupTick(int TimerInterval) {
    return AutobackupTick(AutobackupTickCount, CurUsDB, TimerInterval);
}
