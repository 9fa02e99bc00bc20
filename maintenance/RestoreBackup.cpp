#include "maintenance/RestoreBackup.h"

#include "app/ProgConfig.h"
#include "app/modMain.h"
#include "diagnostics/DbgPrint.h"
#include "diagnostics/Trace.h"
#include "maintenance/MaintFiles.h"
#include "storage/FileVersionsSeen.h"
#include "storage/UserFileLock.h"
#include "users/UserAccounts.h"
#include "users/UserName.h"

#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <QLocale>
#include <QRegularExpression>

namespace {

bool copyIsDamaged(const QString& Copy, const QString& Md5) {
    DatabaseRecord rec;
    clsFileIdentity id;
    return ReadUserFile(Copy, GetTruePasw(Md5), rec, id) == tbeBadFormat;
}

const QString kBackupEnding = QStringLiteral(".bdb.BACKUP");
const QString kDateInfix = QStringLiteral(" Date: ");

// A name that can only mean a copy in the backup folder itself.
bool plainCopyName(const QString& Name) {
    return Name.endsWith(kBackupEnding) && !Name.contains(u'/') && !Name.contains(QChar(0)) &&
           Name.size() > kBackupEnding.size();
}

} // namespace

QString BackupFolderPath() {
    return Pt(ProgConfig[kCfgDBPath]) + QStringLiteral("Backup/");
}

QDateTime FileTimeToDate(const QDateTime& FileTime) {
    if (FileTime.isValid())
        return FileTime;
    return QDateTime(QDate(1601, 1, 1), QTime(0, 0), Qt::UTC);
}

void GetFileTimes(const QString& file_name, QDateTime& date_created, QDateTime& date_accessed,
                  QDateTime& date_written, bool local_time) {
    TRACE_PROC("modMain.GetFileTimes", file_name, local_time);
    const QFileInfo fi(file_name);
    QDateTime created = fi.birthTime();
    if (!created.isValid())
        created = fi.metadataChangeTime();
    const QDateTime times[3] = {created, fi.lastRead(), fi.lastModified()};
    QDateTime* out[3] = {&date_created, &date_accessed, &date_written};
    for (int i = 0; i < 3; ++i) {
        const QDateTime t = FileTimeToDate(times[i]);
        *out[i] = local_time ? t.toLocalTime() : t.toUTC();
    }
}

QString DefaultDateTimeText(const QDateTime& When) {
    const QLocale loc = QLocale::system();
    // The long time format of the locale, which has the seconds, without its time zone.
    QString timeFmt = loc.timeFormat(QLocale::LongFormat);
    static const QRegularExpression zone(QStringLiteral("\\s*\\bt+\\b\\s*"));
    timeFmt.replace(zone, QStringLiteral(" "));
    timeFmt = timeFmt.trimmed();
    if (timeFmt.isEmpty())
        timeFmt = QStringLiteral("HH:mm:ss");
    return loc.toString(When.date(), QLocale::ShortFormat) + u' ' + loc.toString(When.time(), timeFmt);
}

QStringList ListDBsForRestore(const QString& DBPath) {
    TRACE_PROC("frmRestore.ListDBsForRestore", DBPath);
    QStringList items;
    const QString folder = Pt(DBPath);
    TRACE_LOCAL(folder);
    const QFileInfo fi(folder);
    int entries = 0;
    TRACE_LOCAL(entries);
    if (fi.isDir() && fi.isReadable()) {
        QDirIterator it(folder, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
        while (it.hasNext()) {
            it.next();
            ++entries;
            const QString name = it.fileName();
            if (!name.endsWith(kBackupEnding) || it.fileInfo().isDir())
                continue;
            QDateTime created, accessed, written;
            GetFileTimes(folder + name, created, accessed, written, true);
            items.append(name + kDateInfix + DefaultDateTimeText(written));
        }
    }
    if (entries == 0)
        DbgPrint(QStringLiteral("Error#0003. DBPath = ") + DBPath);
    return items;
}

QString BackupFileFromItem(const QString& ItemText) {
    // The date text never holds the infix, so its last place is the one the item got.
    const qsizetype at = ItemText.lastIndexOf(kDateInfix);
    return at < 0 ? ItemText : ItemText.left(at);
}

QString BackupUserFromItem(const QString& ItemText) {
    const qsizetype at = ItemText.indexOf(u'_');
    return at < 0 ? ItemText : ItemText.left(at);
}

int RestoreBackupFile(const QString& BackupFileName) {
    TRACE_PROC("frmRestore.RestoreBackupFile", BackupFileName);
    if (!plainCopyName(BackupFileName))
        return -2;
    const QString source = BackupFolderPath() + BackupFileName;
    TRACE_LOCAL(source);
    if (!QFileInfo(source).isFile() || !FolderWriteProblem(BackupFolderPath()).isEmpty())
        return -2;
    const QString user = BackupUserFromItem(BackupFileName);
    TRACE_LOCAL(user);
    if (user.isEmpty() || user == BackupFileName || !IsValidUserName(user))
        return -3;
    // Deleting the old file and copying the backup is one replacement: until the copy
    // is complete on disk the old file stays. Not while another program writes the file.
    const QString target = UsDBFilePath(user);
    clsUserFileLock lock(target);
    if (!lock.Acquire())
        return lock.TimedOut() ? -6 : -1;
    if (!TryCopyFileOver(source, target, kPrivateFilePerms))
        return -1;
    // The user put an older copy back on purpose: whatever it counts is the newest now.
    ResetSaveNum(target, 0);
    return 1;
}

int RestoreDBFromBackup(const QString& ItemText) {
    TRACE_PROC("frmRestore.cmdRestore_Click", ItemText);
    const QString file = BackupFileFromItem(ItemText);
    TRACE_LOCAL(file);
    const QString user = BackupUserFromItem(ItemText);
    TRACE_LOCAL(user);
    if (!plainCopyName(file) || !QFileInfo(BackupFolderPath() + file).isFile())
        return -2;
    if (user.isEmpty() || user == ItemText)
        return -3;
    const QString wasUser = CurUser;
    TRACE_LOCAL(wasUser);
    QString wasKey = CurUsPasw;
    TRACE_LOCAL_HIDDEN(wasKey);
    // Kept whole, with whatever was not saved yet: should the restore not happen, that is
    // what comes back, not the file.
    const clsDatabasePtr wasDB = CurUsDB;
    // A copy of the open user that its key opens but that fails its check (damaged,
    // forged, not sealed) is not put back over the file.
    if (user == wasUser && copyIsDamaged(BackupFolderPath() + file, wasKey)) {
        WipeString(wasKey);
        return -4;
    }
    UnloadUser();
    const int r = RestoreBackupFile(file);
    if (r < 0) {
        // The user's file is as it was: the user who was open is open again.
        if (!wasUser.isEmpty())
            ReinstateUser(wasUser, wasKey, wasDB);
        WipeString(wasKey);
        return r;
    }
    int result = 1;
    TRACE_LOCAL(result);
    if (!wasUser.isEmpty() && user == wasUser && FullUserLoad(user, wasKey) == 0)
        result = 0;
    WipeString(wasKey);
    return result;
}

int DeleteBackup(const QString& ItemText) {
    TRACE_PROC("frmRestore.cmdDelete_Click", ItemText);
    const QString file = BackupFileFromItem(ItemText);
    TRACE_LOCAL(file);
    if (!plainCopyName(file))
        return -2;
    const QString path = BackupFolderPath() + file;
    TRACE_LOCAL(path);
    if (!QFileInfo(path).isFile() || !FolderWriteProblem(BackupFolderPath()).isEmpty())
        return -2;
    TrueKill(path);
    return 1;
}
