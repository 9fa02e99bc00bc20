#include "users/ConflictMerge.h"

#include "app/CheckedWrite.h"
#include "app/ProgConfig.h"
#include "app/modLang.h"
#include "app/modMain.h"
#include "diagnostics/DbgPrint.h"
#include "diagnostics/Trace.h"
#include "storage/ConflictCopies.h"
#include "storage/FileLineage.h"
#include "storage/UserFile.h"
#include "storage/clsDatabase.h"
#include "users/UserAccounts.h"
#include "users/UserSession.h"

#include <QDateTime>
#include <QFileInfo>

#include <cstdio>

namespace {

QString textOr(int Id, const char* Fallback) {
    const QString t = Texts(Id);
    return t.contains(QLatin1String("%1")) ? t : QString::fromUtf8(Fallback);
}

// The same records, folders and tables (the lineage and the save count aside).
bool sameContent(const DatabaseRecord& A, const DatabaseRecord& B) {
    if (A.Name != B.Name || A.Tag != B.Tag || A.flags != B.flags || A.Tables.size() != B.Tables.size())
        return false;
    for (qsizetype i = 0; i < A.Tables.size(); ++i) {
        const TableEntry& a = A.Tables[i];
        const TableEntry& b = B.Tables[i];
        if (a.Name != b.Name || a.Tag != b.Tag || a.FldNames != b.FldNames || a.Records != b.Records)
            return false;
    }
    return true;
}

} // namespace

QStringList UserConflictCopies(const QString& UsName) {
    return FindConflictCopies(Pt(ProgConfig[kCfgDBPath]), UsName);
}

clsCopyMerge MergeCopyInto(clsDatabase& DB, const QString& UserPath, const QString& CopyPath,
                           const QString& Key) {
    TRACE_PROC("modSync.MergeCopyInto", UserPath, CopyPath, HIDDEN(Key));
    clsCopyMerge m;
    m.Copy = CopyPath;
    DatabaseRecord theirs;
    clsFileIdentity id;
    QByteArray sealed;
    const int r = clsUserFile::Read(CopyPath, Key, theirs, id, {}, &sealed);
    if (r == tbeBadKey) {
        m.Result = ccWrongKey;
    } else if (r == tbeNoFile || r == tbeIoError) {
        m.Result = ccUnreadable;
    } else if (r != tbeOk || !CanMerge(DB.DBView(), theirs)) {
        m.Result = ccDamaged;
    }
    if (m.Result < 0) {
        DbgPrint(QStringLiteral("Conflict copy not merged (%1): %2").arg(m.Result).arg(CopyPath));
        return m;
    }
    // The copy is a version of the user's file like any other: kept, it can be the base of
    // the next merge.
    KeepVersion(UserPath, theirs.Lineage, sealed, CopyPath, id.Inode);
    DatabaseRecord merged = DB.DBView();
    const DatabaseRecord* known = nullptr; // what the copy descends from is for the lineage to say
    m.Counts = MergeVersions(UserPath, Key, merged, known, theirs, QFileInfo(CopyPath).lastModified().date(),
                             &m.Kind);
    // Two machines that merge the same copy get the same records: the second finds nothing
    // new, writes nothing, and so makes no conflict of its own.
    const bool took = m.Kind != mkNothing && !sameContent(merged, DB.DBView());
    if (took)
        DB.ReplaceDB(std::move(merged));
    m.Result = took ? ccMerged : ccNothingNew;
    return m;
}

QString MoveCopyToBackup(const QString& CopyPath, const QString& UsName) {
    TRACE_PROC("modSync.MoveCopyToBackup", CopyPath, UsName);
    const QString folder = Pt(ProgConfig[kCfgDBPath]) + QStringLiteral("Backup");
    if (!QFileInfo(folder).isDir() &&
        !MakeFolderNoFollow(folder, kPrivateFilePerms | QFileDevice::ExeOwner | QFileDevice::ExeUser))
        return {};
    if (!FolderWriteProblem(folder).isEmpty())
        return {};
    const QString stamp = QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMdd-HHmmss"));
    QString target;
    for (int n = 1; n < 1000; ++n) {
        target = folder + u'/' + UsName + QStringLiteral("_merged-") + stamp +
                 (n > 1 ? u'-' + QString::number(n) : QString()) + QStringLiteral(".bdb.BACKUP");
        if (!EntryExists(target))
            break;
    }
    if (std::rename(QFile::encodeName(CopyPath).constData(), QFile::encodeName(target).constData()) != 0) {
        DbgPrint(QStringLiteral("Merged conflict copy not moved to the backup folder: ") + CopyPath);
        return {};
    }
    return target;
}

QList<clsCopyMerge> MergeCopiesOfOpenUser(const QStringList& Files, int& Save, const QString& Key,
                                          bool SaveNow) {
    TRACE_PROC("modSync.MergeCopiesOfOpenUser", Files, SaveNow);
    Save = usUnchanged;
    QList<clsCopyMerge> out;
    if (CurUser.isEmpty() || !CurUsDB || CurUsDB->TabNum() == 0)
        return out;
    const QString userPath = UsDBFilePath(CurUser);
    const QString key = Key.isEmpty() ? GetTruePasw(CurUsPasw) : Key;
    const QStringList files = Files.isEmpty() ? UserConflictCopies(CurUser) : Files;
    bool changed = false;
    for (const QString& f : files) {
        if (QFileInfo(f).absoluteFilePath() == QFileInfo(userPath).absoluteFilePath())
            continue;
        out.append(MergeCopyInto(*CurUsDB, userPath, f, key));
        changed = changed || out.last().Result == ccMerged;
        if (out.last().Result < 0)
            DbgPrint(DescribeCopyMerge(out.last()));
    }
    // Written before any copy moves: a failed save leaves every copy where it was. Changes
    // not saved yet from before are written with them (SaveNow says the user saves on every
    // change, or has none): else a copy with nothing new would wait for the next save.
    if ((changed || CurUsDB->HasUnsavedChanges()) && SaveNow) {
        Save = UsSession().Save();
        if (Save < 0)
            return out;
    }
    // A copy moves only once what it holds is on disk.
    if (CurUsDB->HasUnsavedChanges())
        return out;
    for (clsCopyMerge& m : out) {
        if (m.Result != ccMerged && m.Result != ccNothingNew)
            continue;
        m.MovedTo = MoveCopyToBackup(m.Copy, CurUser);
        if (m.MovedTo.isEmpty())
            m.Result = ccNotMoved;
        DbgPrint(DescribeCopyMerge(m));
    }
    return out;
}

QString DescribeCopyMerge(const clsCopyMerge& M) {
    const QString copy = QFileInfo(M.Copy).fileName();
    const QString moved = QFileInfo(M.MovedTo).fileName();
    const clsMergeCounts& c = M.Counts;
    switch (M.Result) {
    case ccMerged:
        if (M.MovedTo.isEmpty()) // taken into memory, saved with the next save
            return textOr(452, "Merged %1 (%2): %3 rows taken in, %4 kept twice")
                .arg(copy, M.Kind == mkTwoWay ? textOr(451, "two-way: no version both started from")
                                              : textOr(450, "three-way"))
                .arg(c.TakenTheirs + c.FieldMerged + c.AddedTheirs + c.Deleted + c.KeptChanged)
                .arg(c.Conflicts);
        return textOr(441, "Merged %1 (%2): %3 rows taken in, %4 kept twice; now %5 in the backup folder")
            .arg(copy, M.Kind == mkTwoWay ? textOr(451, "two-way: no version both started from")
                                          : textOr(450, "three-way"))
            .arg(c.TakenTheirs + c.FieldMerged + c.AddedTheirs + c.Deleted + c.KeptChanged)
            .arg(c.Conflicts)
            .arg(moved);
    case ccNothingNew:
        if (M.MovedTo.isEmpty())
            return QString();
        return textOr(442, "Nothing new in %1; now %2 in the backup folder").arg(copy, moved);
    case ccWrongKey:
        return textOr(443, "%1 opens only with another password: not merged, left as it is").arg(copy);
    case ccDamaged:
        return textOr(444, "%1 is damaged or not a user file: left as it is, nothing changed").arg(copy);
    case ccNotMoved:
        return textOr(446, "Merged %1, but it could not be moved to the backup folder").arg(copy);
    default:
        return textOr(445, "%1 cannot be read: left as it is").arg(copy);
    }
}
