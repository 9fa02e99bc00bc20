#include "maintenance/RemovableInstall.h"

#include "app/ProgConfig.h"
#include "app/modMain.h"
#include "diagnostics/ErrorTrap.h"
#include "diagnostics/Trace.h"
#include "maintenance/MaintFiles.h"
#include "maintenance/PortableRuntime.h"
#include "storage/ConflictCopies.h"

#include <QDir>
#include <QDirIterator>
#include <QFileInfo>

#include <QSet>

#include <algorithm>
#include <optional>

namespace {

constexpr QFileDevice::Permissions kPublicDirPerms =
    kPrivateDirPerms | QFileDevice::ReadUser | QFileDevice::WriteUser | QFileDevice::ExeUser |
    QFileDevice::ReadGroup | QFileDevice::ExeGroup | QFileDevice::ReadOther | QFileDevice::ExeOther;
constexpr auto kEntryFilter = QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot;

constexpr QFileDevice::Permissions kPublicFilePerms = QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                                                      QFileDevice::ReadUser | QFileDevice::WriteUser |
                                                      QFileDevice::ReadGroup | QFileDevice::ReadOther;

// The weight of what CopyDir would copy under a folder (for the progress total).
template <typename Weight> int countWeight(const QString& Folder, Weight weightOf) {
    int n = 0;
    QDirIterator it(Folder, kEntryFilter, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        it.next();
        const QFileInfo& fi = it.fileInfo();
        if (fi.fileName().endsWith(QLatin1String(".bdb.lock")))
            continue;
        if (fi.isDir())
            n += fi.isSymLink() ? 0 : 1;
        else
            n += weightOf(fi.size());
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
        } else if (PrivateData && name.startsWith(u'.') && name.endsWith(QLatin1String(".bdb.lock"))) {
            // A user's lock file belongs to this folder's writers, not to the copy.
            continue;
        } else if (PrivateData && IsSyncEngineName(name)) {
            // A sync engine's conflict copy or temporary file: merged where it was made
            // (ConflictCopies.h), never a user of the copy.
            continue;
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

// Writes a small file in one step (see CopyFileOver), error 75 when it cannot.
void writeFileOver(const QString& Path, const QByteArray& Bytes, QFileDevice::Permissions Perms) {
    TRACE_PROC("modMain.WriteFileOver", Path);
    if (!WriteFileChecked(Path, Bytes, Perms))
        RaiseError(vbErrPathFileAccess, QStringLiteral("Path/File access error: ") + Path);
}

} // namespace

QStringList PortableProgramFiles() {
    QStringList files{QStringLiteral("ArgentPasswordMngr"),  QStringLiteral("argentpm"),
                      QStringLiteral("argentpm-clipkeeper"), QStringLiteral("start.dat"),
                      QStringLiteral("mainicon.ico"),        QStringLiteral("mainicon.png"),
                      QStringLiteral("readme.txt"),          QStringLiteral("SampleUser.bdb")};
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
    // Programs others could replace, or a folder of theirs filled with this user's data: no.
    const QString why = FolderWriteProblem(targ);
    if (!why.isEmpty())
        RaiseError(vbErrPathFileAccess, why);
    // The programs come from their own folder, the rest from the program folder: the two
    // differ for an installed copy (bin/ and share/argentpm/).
    const QString exe = Pt(ExeFolderPath());
    const QString prog = Pt(AppPath());
    TRACE_LOCAL(prog);
    const QString dbFolder = Pt(ProgConfig[kCfgDBPath]);
    const QStringList programs = {QStringLiteral("ArgentPasswordMngr"), QStringLiteral("argentpm"),
                                  QStringLiteral("argentpm-clipkeeper")};

    QStringList files;
    const QStringList required = PortableRequiredFiles();
    TRACE_LOCAL(required);
    for (const QString& f : PortableProgramFiles())
        if (required.contains(f) || QFileInfo(prog + f).isFile() || QFileInfo(exe + f).isFile())
            files.append(f);
    const auto sourceOf = [&](const QString& f) { return (programs.contains(f) ? exe : prog) + f; };
    QStringList programPaths;
    for (const QString& f : programs)
        if (files.contains(f))
            programPaths.append(exe + f);
    const QList<PortableRuntimeFile> runtime = PortableRuntimeFiles(programPaths);

    // Progress counts work, not entries: an entry weighs one unit and one more for every
    // 64 KiB it holds, so that the libraries (tens of megabytes) move the bar as much as
    // they take time.
    const auto weightOf = [](qint64 Size) { return 1 + static_cast<int>(Size / 65536); };
    int total = 1 + 3; // config.dat; the folders DataBases, Languages and qt.conf
    for (const QString& f : files)
        total += weightOf(QFileInfo(sourceOf(f)).size());
    for (const PortableRuntimeFile& r : runtime)
        total += weightOf(r.Size);
    total += countWeight(dbFolder, weightOf) + countWeight(prog + QStringLiteral("Languages"), weightOf);
    QSet<QString> runtimeFolders;
    for (const PortableRuntimeFile& r : runtime)
        for (QString d = QFileInfo(r.Target).path(); d != QLatin1String("."); d = QFileInfo(d).path())
            runtimeFolders.insert(d);
    total += static_cast<int>(runtimeFolders.size());

    int done = 0;
    int count = 0;
    auto step = [&](const QString& item) {
        ++count;
        const QFileInfo fi(item);
        done += fi.isDir() ? 1 : weightOf(fi.size());
        if (Progress)
            Progress(std::min(done, total), total, item);
    };

    for (const QString& f : files) {
        CopyFileOver(sourceOf(f), targ + f);
        step(targ + f);
    }

    // The libraries and plugins, in folders of their own: a copy over an older one
    // replaces each file.
    QStringList folders(runtimeFolders.cbegin(), runtimeFolders.cend());
    std::sort(folders.begin(), folders.end());
    for (const QString& d : folders) {
        if (!QFileInfo(targ + d).isDir()) {
            MakeFolder(targ + d, kPublicDirPerms);
            step(targ + d);
        } else {
            ++done;
        }
    }
    for (const PortableRuntimeFile& r : runtime) {
        CopyFileOver(r.Source, targ + r.Target, kPublicFilePerms);
        step(targ + r.Target);
    }
    writeFileOver(targ + QStringLiteral("qt.conf"), PortableQtConf(), kPublicFilePerms);
    step(targ + QStringLiteral("qt.conf"));

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

    // The copy's settings: the running ones, but naming the copy's own databases folder,
    // and the folder the copy is made into (entry 24), by which a copy that is later
    // mounted elsewhere finds that folder again. Entries the running settings end
    // before take the defaults of start.dat. The program's own settings (in memory and
    // on disk) stay as they are.
    struct Restore {
        StrMass& slot;
        StrMass value;
        ~Restore() { slot = value; }
    } restore{ProgConfig, ProgConfig};
    StrMass defaults;
    LoadConfig(prog + QStringLiteral("start.dat"), defaults);
    while (ProgConfig.UBound() < kCfgPortableOrigin) {
        const int k = ProgConfig.UBound() + 1;
        AddElemToStrMass(ProgConfig, k <= defaults.UBound() ? defaults[k] : QString());
    }
    ProgConfig[kCfgDBPath] = dbTarget;
    ProgConfig[kCfgPortableOrigin] = QDir::cleanPath(targ);
    SaveConfig(targ + QStringLiteral("config.dat"));
    step(targ + QStringLiteral("config.dat"));
    return count;
}
