#include "app/modMain.h"

#include "Version.h"
#include "app/InstanceChannel.h"
#include "app/MsgBox.h"
#include "app/ProgConfig.h"
#include "app/modLang.h"
#include "diagnostics/DbgPrint.h"
#include "diagnostics/ErrorTrap.h"
#include "diagnostics/Globals.h"
#include "diagnostics/Trace.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLockFile>
#include <QStandardPaths>

#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <unistd.h>

QByteArray CustomColors;

namespace {
QString g_appPath;
QString g_exePath;
std::unique_ptr<QLockFile> g_instanceLock;
const bool g_registered = [] {
    argent::diag::registerModuleVar("modMain", "AppPath", &g_appPath);
    return true;
}();

// Makes path a private folder of this user's, or finds it one already: mode 0700 for a
// new folder; an existing one must be a real folder (a link is never followed) that
// belongs to this user, and its mode is narrowed on the opened folder itself, so that a
// link put in its place between the checks changes nothing anywhere else.
bool ensurePrivateDir(const QString& path) {
    const QByteArray enc = QFile::encodeName(path);
    if (::mkdir(enc.constData(), 0700) != 0 && errno != EEXIST)
        return false;
    const int fd = ::open(enc.constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0)
        return false;
    struct stat st {};
    bool ok = ::fstat(fd, &st) == 0 && S_ISDIR(st.st_mode) && st.st_uid == getuid();
    if (ok && (st.st_mode & 07777) != 0700)
        ok = ::fchmod(fd, 0700) == 0;
    ::close(fd);
    return ok;
}

// A real directory (no link) owned by this user with mode 0700.
bool isPrivateDir(const QString& path) {
    struct stat st {};
    const QByteArray enc = QFile::encodeName(path);
    return lstat(enc.constData(), &st) == 0 && S_ISDIR(st.st_mode) && st.st_uid == getuid() &&
           (st.st_mode & 07777) == 0700;
}

// A folder of our own under Base named Name: used only when it is private (see above);
// anything else - a folder someone else prepared, a link, wider rights that cannot be
// narrowed - is left alone and a fresh folder with a random suffix is made instead, and
// kept for the run while it stays private.
QString privateFolder(const QString& Base, const QString& Name, QString& Fresh) {
    const QString dir = Pt(Base) + Name;
    if (ensurePrivateDir(dir))
        return Pt(dir);
    if (Fresh.isEmpty() || !Fresh.startsWith(Pt(Base)) || !isPrivateDir(Fresh)) {
        Fresh.clear();
        QByteArray tpl = QFile::encodeName(Pt(Base) + Name + QStringLiteral("-XXXXXX"));
        if (mkdtemp(tpl.data()))
            Fresh = QFile::decodeName(tpl);
    }
    return Fresh.isEmpty() ? Pt(dir) : Pt(Fresh);
}

// The user's runtime folder, where the instance lock lives.
QString runtimeFolderOnce() {
    const QString dir = qEnvironmentVariable("XDG_RUNTIME_DIR");
    if (!dir.isEmpty() && QFileInfo(dir).isDir())
        return Pt(dir);
    static QString fresh;
    return privateFolder(QDir::tempPath(), QStringLiteral("argentpm-") + QString::number(getuid()), fresh);
}

// True when another instance of the program holds the lock.
bool PrevInstance() {
    TRACE_PROC("modMain.PrevInstance");
    g_instanceLock =
        std::make_unique<QLockFile>(InstanceRuntimeFolder() + QStringLiteral("ArgentPasswordMngr.lock"));
    g_instanceLock->setStaleLockTime(0);
    if (g_instanceLock->tryLock(0))
        return false;
    g_instanceLock.reset();
    return true;
}
} // namespace

QString InstanceRuntimeFolder() {
    return runtimeFolderOnce();
}

QString Pt(const QString& Path) {
    TRACE_PROC("modMain.Pt", Path);
    if (Path.endsWith(u'/'))
        return Path;
    return Path + u'/';
}

bool FileExist(const QString& FileName) {
    TRACE_PROC("modMain.FileExist", FileName);
    if (FileName.isEmpty())
        return false;
    return QFileInfo::exists(FileName);
}

QString GetWindowsTemp() {
    TRACE_PROC("modMain.GetWindowsTemp");
    QString base = qEnvironmentVariable("XDG_RUNTIME_DIR");
    TRACE_LOCAL(base);
    if (base.isEmpty() || !QFileInfo(base).isDir() || !QFileInfo(base).isWritable())
        base = QDir::tempPath();
    static QString fresh;
    return privateFolder(base, QStringLiteral("argentpm-tmp-") + QString::number(getuid()), fresh);
}

int RemoveStaleTempCopies() {
    TRACE_PROC("modMain.RemoveStaleTempCopies");
    const QString dir = GetWindowsTemp();
    const QFileInfo di(dir);
    if (!di.isDir())
        return 0;
    int removed = 0;
    const QFileInfoList entries =
        QDir(dir).entryInfoList({QStringLiteral("psc*")}, QDir::Files | QDir::Hidden);
    for (const QFileInfo& fi : entries) {
        // "psc<pid>_XXXXXX.tmp"; a name without a process id comes from an older build and
        // is stale once it is a minute old (a copy lives for one load or save).
        const QString name = fi.fileName();
        const qsizetype bar = name.indexOf(u'_');
        bool hasPid = false;
        const qint64 pid = bar > 3 ? name.mid(3, bar - 3).toLongLong(&hasPid) : 0;
        bool stale;
        if (hasPid && pid > 0)
            stale = pid != getpid() && ::kill(static_cast<pid_t>(pid), 0) != 0 && errno == ESRCH;
        else
            stale = fi.lastModified().secsTo(QDateTime::currentDateTime()) > 60;
        if (stale && QFile::remove(fi.absoluteFilePath()))
            ++removed;
    }
    if (removed > 0)
        DbgPrint(QStringLiteral("Stale temporary copies removed: %1").arg(removed));
    return removed;
}

QString TempFolderProblem() {
    TRACE_PROC("modMain.TempFolderProblem");
    QString dir = GetWindowsTemp();
    dir.chop(1);
    const QFileInfo fi(dir);
    if (!fi.exists())
        return QStringLiteral("the temporary folder %1 is missing and cannot be made").arg(dir);
    if (!fi.isDir())
        return QStringLiteral("the temporary folder %1 is a file, not a folder").arg(dir);
    if (!fi.isWritable())
        return QStringLiteral("the temporary folder %1 cannot be written").arg(dir);
    return QString();
}

QString StripNulls(QString& OriginalStr) {
    TRACE_PROC("modMain.StripNulls", OriginalStr);
    const qsizetype at = OriginalStr.indexOf(QChar(0));
    TRACE_LOCAL(at);
    if (at >= 0)
        OriginalStr.truncate(at);
    return OriginalStr;
}

void RemoveNullChar(QString& Text) {
    TRACE_PROC("modMain.RemoveNullChar", Text);
    StripNulls(Text);
}

QString FindProgramFolder(const QString& exeDir, const QStringList& DataFolders) {
    const auto holdsStart = [](const QString& dir) {
        return QFileInfo(Pt(dir) + QStringLiteral("start.dat")).isFile();
    };
    if (holdsStart(exeDir))
        return exeDir;
    for (const QString& d : DataFolders)
        if (holdsStart(d))
            return QDir::cleanPath(d);
    return exeDir;
}

QString ExeFolderPath() {
    if (g_exePath.isEmpty() && QCoreApplication::instance())
        g_exePath = QCoreApplication::applicationDirPath();
    return g_exePath;
}

void SetExeFolderPath(const QString& Path) {
    g_exePath = Path;
}

QString AppPath() {
    if (g_appPath.isEmpty() && !ExeFolderPath().isEmpty()) {
        const QString exe = ExeFolderPath();
        // ARGENT_DATA_FROM_BIN: the data folder relative to the folder of the programs
        // (../share/argentpm); ARGENT_DATA_DIR: the same folder under the built-for prefix.
        g_appPath = FindProgramFolder(
            exe, {exe + QStringLiteral("/" ARGENT_DATA_FROM_BIN), QStringLiteral(ARGENT_DATA_DIR)});
    }
    return g_appPath;
}

void SetAppPath(const QString& Path) {
    g_appPath = Path;
}

bool ProgramBesideExe() {
    return QDir::cleanPath(AppPath()) == QDir::cleanPath(ExeFolderPath());
}

QString AppDataFolder() {
    QString d = qEnvironmentVariable("XDG_DATA_HOME");
    if (d.isEmpty())
        d = QDir::homePath() + QStringLiteral("/.local/share");
    return d;
}

QString UserFolderPath() {
    return Pt(AppDataFolder()) + QStringLiteral("ArgentPM");
}

void ReleaseInstanceLock() {
    g_instanceLock.reset();
}

bool Main(const std::function<void()>& CreateProgramObjects) {
    TRACE_PROC("modMain.Main");
    InstallErrorTrap();
    DbgPrint(QStringLiteral("========== Start Logging ==========\r\n"));
    DbgPrint(QStringLiteral("===Version %1.%2.%3===")
                 .arg(ARGENT_VERSION_MAJOR)
                 .arg(ARGENT_VERSION_MINOR)
                 .arg(ARGENT_VERSION_REVISION));

    if (PrevInstance()) {
        DbgPrint(QStringLiteral("PrevInstance detected"));
        // The language is not loaded yet, so this shows the lookup's failure text.
        MsgBox(Texts(2), vbInformation);
        // Then the running window comes to the front (the log keeps its lines as they are).
        AskFirstInstanceToShow();
        return false;
    }

    // No control files to register or common controls to set up on this platform;
    // the log keeps its lines so that logs of every build read alike.
    DbgPrint(QStringLiteral("Registering controls..."));
    DbgPrint(QStringLiteral("Registering controls... Ok"));
    DbgPrint(QStringLiteral("Common controls initialization..."));
    DbgPrint(QStringLiteral("Common controls initialization... Ok"));

    DbgPrint(QStringLiteral("Colors initializing..."));
    CustomColors = QByteArray(64, '\0');
    argent::diag::registerGlobalBytes("CustomColors", &CustomColors);
    DbgPrint(QStringLiteral("Colors initializing...Ok"));

    DbgPrint(QStringLiteral("Configuration Loading..."));
    ChooseConfiguration();
    DbgPrint(QStringLiteral("Configuration Loading... Ok"));

    DbgPrint(QStringLiteral("Language Loading..."));
    LoadLang(Pt(AppPath()) + QStringLiteral("Languages/") + ProgConfig[kCfgLanguage] +
             QStringLiteral(".lng"));
    DbgPrint(QStringLiteral("Language Loading... Ok"));

    RemoveStaleTempCopies();
    if (CreateProgramObjects)
        CreateProgramObjects();
    return true;
}

QString ReadmePath(const QString& Folder, const QString& Language) {
    TRACE_PROC("modMain.ReadmePath", Folder, Language);
    const QString own = Pt(Folder) + QStringLiteral("readme.") + Language + QStringLiteral(".txt");
    TRACE_LOCAL(own);
    if (!Language.isEmpty() && !Language.contains(u'/') && QFileInfo(own).isFile())
        return own;
    return Pt(Folder) + QStringLiteral("readme.txt");
}
