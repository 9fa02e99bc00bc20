#include "maintenance/RemovableInstall.h"

#include "app/ProgConfig.h"
#include "app/modMain.h"
#include "diagnostics/ErrorTrap.h"
#include "diagnostics/Trace.h"
#include "maintenance/MaintFiles.h"

#include <QDir>
#include <QDirIterator>
#include <QFileInfo>

#include <optional>

namespace {

constexpr QFileDevice::Permissions kPublicDirPerms =
    kPrivateDirPerms | QFileDevice::ReadUser | QFileDevice::WriteUser | QFileDevice::ExeUser |
    QFileDevice::ReadGroup | QFileDevice::ExeGroup | QFileDevice::ReadOther | QFileDevice::ExeOther;
constexpr auto kEntryFilter = QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot;

// Entries CopyDir would copy under a folder (for the progress total).
int countEntries(const QString& Folder) {
    int n = 0;
    QDirIterator it(Folder, kEntryFilter, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        it.next();
        if (!(it.fileInfo().isSymLink() && it.fileInfo().isDir()))
            ++n;
    }
    return n;
}

int copyDirInto(const QString& from_dir, const QString& to_dir, bool PrivateData, const QString& Guard,
                const std::function<void(const QString&)>& Copied) {
    TRACE_PROC("modMain.CopyDir", from_dir, to_dir, PrivateData);
    int count = 0;
    TRACE_LOCAL(count);
    QStringList folders;
    const std::optional<QFileDevice::Permissions> filePerms =
        PrivateData ? std::optional<QFileDevice::Permissions>(kPrivateFilePerms) : std::nullopt;
    QDirIterator it(from_dir, kEntryFilter);
    while (it.hasNext()) {
        it.next();
        const QFileInfo& fi = it.fileInfo();
        const QString name = it.fileName();
        TRACE_LOCAL(name);
        if (fi.isDir()) {
            // A link to a folder could lead round in a circle; the target folder itself
            // may lie inside the source.
            if (fi.isSymLink() || fi.canonicalFilePath() == Guard)
                continue;
            MakeFolder(to_dir + name, PrivateData ? kPrivateDirPerms : fi.permissions());
            folders.append(name);
        } else {
            CopyFileOver(from_dir + name, to_dir + name, filePerms);
        }
        ++count;
        if (Copied)
            Copied(to_dir + name);
    }
    for (const QString& f : folders)
        count += copyDirInto(from_dir + f + u'/', to_dir + f + u'/', PrivateData, Guard, Copied);
    return count;
}

} // namespace

QStringList PortableProgramFiles() {
    QStringList files{QStringLiteral("ArgentPasswordMngr"), QStringLiteral("argentpm"),
                      QStringLiteral("start.dat"),          QStringLiteral("mainicon.ico"),
                      QStringLiteral("mainicon.png"),       QStringLiteral("readme.txt"),
                      QStringLiteral("SampleUser.bdb")};
    // The help files of the languages go along with the general one.
    files += QDir(AppPath()).entryList({QStringLiteral("readme.*.txt")}, QDir::Files, QDir::Name);
    return files;
}

QStringList PortableRequiredFiles() {
    return {QStringLiteral("ArgentPasswordMngr"), QStringLiteral("argentpm"), QStringLiteral("start.dat")};
}

int CopyDir(const QString& from_dir, const QString& to_dir, bool PrivateData,
            const std::function<void(const QString& Item)>& Copied) {
    const QString guard = QFileInfo(to_dir).canonicalFilePath();
    return copyDirInto(Pt(from_dir), Pt(to_dir), PrivateData, guard, Copied);
}

int InstallToRemovableDevice(const QString& TargPath, const InstallProgress& Progress) {
    TRACE_PROC("modMain.InstallToRemovableDevice", TargPath);
    const QString targ = Pt(QFileInfo(TargPath).absoluteFilePath());
    TRACE_LOCAL(targ);
    const QString prog = Pt(AppPath());
    TRACE_LOCAL(prog);
    const QString dbFolder = Pt(ProgConfig[5]);
    TRACE_LOCAL(dbFolder);

    QStringList files;
    const QStringList required = PortableRequiredFiles();
    TRACE_LOCAL(required);
    for (const QString& f : PortableProgramFiles())
        if (required.contains(f) || QFileInfo(prog + f).isFile())
            files.append(f);
    const int total = static_cast<int>(files.size()) + 2 + countEntries(dbFolder) +
                      countEntries(prog + QStringLiteral("Languages")) + 1;
    int done = 0;
    TRACE_LOCAL(done);
    auto step = [&](const QString& item) {
        ++done;
        if (Progress)
            Progress(done, total, item);
    };

    for (const QString& f : files) {
        CopyFileOver(prog + f, targ + f);
        step(targ + f);
    }

    const QString dbTarget = targ + QStringLiteral("DataBases");
    TRACE_LOCAL(dbTarget);
    MakeFolder(dbTarget, kPrivateDirPerms);
    step(dbTarget);
    CopyDir(dbFolder, dbTarget, true, step);

    const QString langTarget = targ + QStringLiteral("Languages");
    TRACE_LOCAL(langTarget);
    const QFileInfo langSource(prog + QStringLiteral("Languages"));
    MakeFolder(langTarget, langSource.isDir() ? langSource.permissions() : kPublicDirPerms);
    step(langTarget);
    CopyDir(prog + QStringLiteral("Languages"), langTarget, false, step);

    // The copy's settings: the running ones, but naming the copy's own databases folder.
    // The program's own settings (in memory and on disk) stay as they are.
    const QString oldFolder = ProgConfig[5];
    TRACE_LOCAL(oldFolder);
    struct Restore {
        QString& slot;
        QString value;
        ~Restore() { slot = value; }
    } restore{ProgConfig[5], oldFolder};
    ProgConfig[5] = dbTarget;
    SaveConfig(targ + QStringLiteral("config.dat"));
    step(targ + QStringLiteral("config.dat"));
    return done;
}
