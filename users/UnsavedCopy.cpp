#include "users/UnsavedCopy.h"

#include "app/ProgConfig.h"
#include "app/modMain.h"
#include "diagnostics/DbgPrint.h"
#include "diagnostics/Trace.h"
#include "storage/UserFile.h"
#include "storage/UserFileMerge.h"
#include "storage/clsDatabase.h"
#include "users/UserAccounts.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace {
const QString kCopySuffix = QStringLiteral(".unsaved");
const QString kBaseSuffix = QStringLiteral(".unsaved-base");

QString basePath(const QString& CopyPath) {
    return CopyPath.left(CopyPath.size() - kCopySuffix.size()) + kBaseSuffix;
}
} // namespace

QStringList UnsavedCopyPlaces(const QString& UsName) {
    const QString file = UsDBFilePath(UsName);
    QStringList places{file + kCopySuffix};
    // The per-user folder; a portable copy keeps its settings, and this, beside the program.
    const QString cfgFolder = QFileInfo(ProgCfgPath).absolutePath();
    const bool portable = !ProgCfgPath.isEmpty() && cfgFolder == QDir(AppPath()).absolutePath();
    const QString folder = portable ? cfgFolder : UserFolderPath();
    const QString own = Pt(folder) + QFileInfo(file).fileName() + kCopySuffix;
    if (!folder.isEmpty() && QFileInfo(own).absoluteFilePath() != QFileInfo(places[0]).absoluteFilePath())
        places.append(own);
    return places;
}

QString FindUnsavedCopy(const QString& UsName) {
    for (const QString& p : UnsavedCopyPlaces(UsName))
        if (QFileInfo(p).isFile())
            return p;
    return {};
}

QString WriteUnsavedCopy(const clsDatabase& Db, const QString& Key) {
    TRACE_PROC("modMain.WriteUnsavedCopy", Db.Name(), HIDDEN(Key));
    if (Db.Name().isEmpty() || !Db.HasFileState())
        return {};
    for (const QString& place : UnsavedCopyPlaces(Db.Name())) {
        // The base first: a copy found later always has its base beside it.
        clsFileIdentity id;
        if (clsUserFile::Write(basePath(place), Db.Base(), Key, id) &&
            clsUserFile::Write(place, Db.DBView(), Key, id)) {
            DbgPrint(QStringLiteral("Unsaved changes kept in a sealed copy: ") + place);
            return place;
        }
        QFile::remove(basePath(place));
    }
    return {};
}

int MergeUnsavedCopy(const QString& CopyPath, const QString& Key, clsDatabase& Into) {
    TRACE_PROC("modMain.MergeUnsavedCopy", CopyPath, HIDDEN(Key));
    DatabaseRecord ours, base;
    clsFileIdentity id;
    const int r = clsUserFile::Read(CopyPath, Key, ours, id);
    if (r == tbeBadKey && !clsUserFile::FirstLineOpens(CopyPath, Key))
        return ucWrongKey;
    if (r != tbeOk || clsUserFile::Read(basePath(CopyPath), Key, base, id) != tbeOk)
        return ucDamaged;
    const DatabaseRecord& theirs = Into.DBView();
    if (!CanMerge(ours, theirs) || !CanMerge(base, theirs))
        return ucDamaged;
    MergeDatabases(ours, base, theirs);
    // Written with the open user's key, not the one the copy was sealed with.
    ours.Key.reset();
    ours.Name = theirs.Name;
    Into.ReplaceDB(std::move(ours));
    return ucTaken;
}

void DropUnsavedCopy(const QString& CopyPath) {
    TRACE_PROC("modMain.DropUnsavedCopy", CopyPath);
    QFile::remove(CopyPath);
    QFile::remove(basePath(CopyPath));
}
