#include "app/ProgConfig.h"

#include "app/CheckedWrite.h"
#include "app/ReadWholeFile.h"
#include "app/VbConv.h"
#include "app/modMain.h"
#include "diagnostics/DbgPrint.h"
#include "diagnostics/ErrorTrap.h"
#include "diagnostics/Globals.h"
#include "diagnostics/Trace.h"

#include <QDir>
#include <QFile>

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

StrMass ProgConfig;
QString ProgCfgPath;

namespace {
const bool g_registered = [] {
    argent::diag::registerGlobalMass("ProgConfig", &ProgConfig.LBound, &ProgConfig.Items);
    argent::diag::registerGlobal("ProgCfgPath", &ProgCfgPath);
    argent::diag::registerModuleVar("modMain", "ProgCfgPath", &ProgCfgPath);
    return true;
}();

constexpr auto kPrivateFile = QFile::ReadOwner | QFile::WriteOwner;
constexpr auto kPrivateDir = QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner;

// The drive fix of a portable copy. Its settings name the databases folder by the path
// the copy had when it was made (entry 5 = <copy>/DataBases), and entry 24 remembers that
// copy folder. When the copy runs from another place (the drive mounted elsewhere, the
// folder moved), a databases folder that is exactly the copy's own DataBases follows the
// copy; any other folder in entry 5 is left alone. Entry 24 then names the folder the
// copy runs from, so that settings saved now stay a matching pair.
void RebaseDatabasesFolder(StrMass& pOptions) {
    TRACE_PROC("modMain.RebaseDatabasesFolder", pOptions.Items);
    if (pOptions.UBound() < kCfgPortableOrigin || pOptions[kCfgPortableOrigin].isEmpty())
        return;
    const QString app = QDir::cleanPath(AppPath());
    const QString origin = QDir::cleanPath(pOptions[kCfgPortableOrigin]);
    if (origin == app)
        return;
    pOptions[kCfgPortableOrigin] = app;
    if (QDir::cleanPath(pOptions[kCfgDBPath]) != Pt(origin) + QStringLiteral("DataBases"))
        return;
    const QString rebased = Pt(app) + QStringLiteral("DataBases");
    pOptions[kCfgDBPath] = pOptions[kCfgDBPath].endsWith(u'/') ? Pt(rebased) : rebased;
    DbgPrint(QStringLiteral("Databases folder moved with the program: ") + pOptions[kCfgDBPath]);
}
} // namespace

int LoadConfig(const QString& FPath, StrMass& pOptions) {
    TRACE_PROC("modMain.LoadConfig", FPath, pOptions.Items);
    if (!FileExist(FPath)) {
        DbgPrint(QStringLiteral("LoadConfig = -2"));
        return -2;
    }
    QByteArray bytes;
    if (!ReadWholeFile(FPath, bytes))
        RaiseError(vbErrPathFileAccess);
    const QString text = QString::fromUtf8(bytes);
    QStringList lines = text.split(u'\n');
    // A final line end does not start another line.
    if (!lines.isEmpty() && lines.last().isEmpty())
        lines.removeLast();
    const qsizetype LineCount = lines.size();
    TRACE_LOCAL(LineCount);
    for (QString& line : lines) {
        if (line.endsWith(u'\r'))
            line.chop(1);
        AddElemToStrMass(pOptions, line);
    }
    if (FPath.contains(Pt(AppPath())))
        RebaseDatabasesFolder(pOptions);
    return 0;
}

bool TrySaveConfig(const QString& FPath) {
    TRACE_PROC("modMain.TrySaveConfig", FPath);
    QByteArray out;
    int i = ProgConfig.LBound;
    TRACE_LOCAL(i);
    for (; i <= ProgConfig.UBound(); ++i) {
        out += ProgConfig[i].toUtf8();
        out += "\r\n";
    }
    return WriteFileChecked(FPath, out, kPrivateFile);
}

int SaveConfig(const QString& FPath) {
    TRACE_PROC("modMain.SaveConfig", FPath);
    if (!TrySaveConfig(FPath))
        RaiseError(vbErrPathFileAccess, QStringLiteral("Path/File access error: ") + FPath);
    return 0;
}

int CreateConfig(const QString& UsFoldPath, const QString& CfgPath) {
    TRACE_PROC("modMain.CreateConfig", UsFoldPath, CfgPath);
    LoadConfig(Pt(AppPath()) + QStringLiteral("start.dat"), ProgConfig);
    const QString dbFolder = Pt(UsFoldPath) + QStringLiteral("DataBases");
    TRACE_LOCAL(dbFolder);
    if (!FileExist(dbFolder))
        MakeFolderNoFollow(dbFolder, kPrivateDir);
    // The sample goes in before the settings: a program that finds the settings finds a
    // whole first run.
    const QString sample = Pt(AppPath()) + QStringLiteral("SampleUser.bdb");
    QByteArray bytes;
    if (FileExist(sample) && !EntryExists(Pt(dbFolder) + QStringLiteral("SampleUser.bdb")) &&
        ReadWholeFile(sample, bytes))
        WriteFileChecked(Pt(dbFolder) + QStringLiteral("SampleUser.bdb"), bytes, kPrivateFile);
    ProgConfig[kCfgDBPath] = dbFolder;
    // The running program saves into DataBases/config.dat during this first run; the
    // next start reads CfgPath.
    ProgCfgPath = Pt(UsFoldPath) + QStringLiteral("DataBases/") + QStringLiteral("config.dat");
    SaveConfig(CfgPath);
    return 0;
}

namespace {
// Held while a first run sets up the per-user folder: programs starting at the same moment
// (argentpm beside the window, or several of them) wait here and then find the folder
// whole. The lock is on the folder that holds the per-user folder, so it is there before
// the per-user folder is.
class FirstRunLock {
public:
    explicit FirstRunLock(const QString& Parent) {
        QDir().mkpath(Parent);
        m_fd = ::open(QFile::encodeName(Parent).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (m_fd >= 0)
            while (::flock(m_fd, LOCK_EX) != 0 && errno == EINTR) {
            }
    }
    ~FirstRunLock() {
        if (m_fd >= 0)
            ::close(m_fd);
    }
    FirstRunLock(const FirstRunLock&) = delete;
    FirstRunLock& operator=(const FirstRunLock&) = delete;

private:
    int m_fd = -1;
};
} // namespace

void ChooseConfiguration() {
    TRACE_PROC("modMain.ChooseConfiguration");
    ProgConfig.Reset();
    const QString portable = Pt(AppPath()) + QStringLiteral("config.dat");
    TRACE_LOCAL(portable);
    if (FileExist(portable)) {
        LoadConfig(portable, ProgConfig);
        ProgCfgPath = portable;
        return;
    }
    const QString usFolder = UserFolderPath();
    TRACE_LOCAL(usFolder);
    const QString cfg = Pt(usFolder) + QStringLiteral("config.dat");
    if (!FileExist(cfg)) {
        // The settings file appears whole (it is renamed into place) and last, so only a
        // program that finds none has to wait for a first run that may be under way.
        FirstRunLock lock(AppDataFolder());
        if (!EntryExists(usFolder)) {
            MakeFolderNoFollow(usFolder, kPrivateDir);
            CreateConfig(usFolder, cfg);
            return;
        }
    }
    if (FileExist(cfg)) {
        ProgCfgPath = cfg;
        LoadConfig(ProgCfgPath, ProgConfig);
    }
    // An existing per-user folder without config.dat loads nothing: the language
    // entry is then missing and start-up stops in the error report.
}

bool CfgSwitchOn(const QString& Value) {
    return !Value.startsWith(u'n');
}

int CfgSwitchNumber(const QString& Value) {
    TRACE_PROC("modMain.CfgSwitchNumber", Value);
    return CLng(Val(Value.startsWith(u'n') ? Value.mid(1) : Value));
}

QString CfgExtra(int Entry, const QString& Default) {
    if (ProgConfig.UBound() < Entry || ProgConfig[Entry].isEmpty())
        return Default;
    return ProgConfig[Entry];
}

void SetCfgExtra(int Entry, const QString& Value) {
    TRACE_PROC("modMain.SetCfgExtra", Entry, Value);
    while (ProgConfig.UBound() < Entry)
        AddElemToStrMass(ProgConfig, QString());
    ProgConfig[Entry] = Value;
}
