#include "users/UserAccounts.h"

#include "users/IUserView.h"
#include "users/UserSession.h"

#include "app/CheckedWrite.h"
#include "app/MemoryFile.h"
#include "app/ProgConfig.h"
#include "app/SecureMemory.h"
#include "app/modMain.h"
#include "diagnostics/DbgPrint.h"
#include "diagnostics/ErrorTrap.h"
#include "diagnostics/Globals.h"
#include "diagnostics/Trace.h"
#include "storage/ConflictCopies.h"
#include "storage/FileLineage.h"
#include "storage/FileVersionsSeen.h"
#include "storage/Md5.h"
#include "storage/TableFile.h"
#include "users/UserName.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <sodium.h>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

QString CurUser;
QString CurUsDBPath;
QString CurUsPasw;
clsDatabasePtr CurUsDB;
std::unique_ptr<clsDataFilesManager> MDFM;
int FrmPaswResult = 0;
QString FrmPaswEnetered;

namespace {

const bool g_registered = [] {
    using namespace argent::diag;
    registerGlobal("CurUser", &CurUser);
    registerGlobal("CurUsDBPath", &CurUsDBPath);
    registerGlobalHidden("CurUsPasw");
    registerGlobalFixed("CurUsDB", "{Cannot dump external UDTs}");
    registerGlobalFixed("MDFM", "{Cannot dump external UDTs}");
    registerGlobal("FrmPaswResult", &FrmPaswResult);
    registerGlobalHidden("FrmPaswEnetered");
    registerModuleVar("modMain", "CurUser", &CurUser);
    registerModuleVar("modMain", "CurUsDBPath", &CurUsDBPath);
    registerModuleHidden("modMain", "CurUsPasw");
    return true;
}();

IUserView* g_view = nullptr;

} // namespace

IUserView* SetUserView(IUserView* View) {
    TRACE_PROP("modMain.UserView", View);
    IUserView* old = g_view;
    g_view = View;
    return old;
}

IUserView* UserView() {
    TRACE_PROP("modMain.UserView");
    return g_view;
}

void CreateProgramObjects() {
    TRACE_PROC("modMain.CreateProgramObjects");
    MDFM = std::make_unique<clsDataFilesManager>();
    CurUsDB = std::make_shared<clsDatabase>();
}

void WipeString(QString& Text) {
    TRACE_PROC("modMain.WipeString", HIDDEN(Text));
    if (!Text.isEmpty() && Text.isDetached()) {
        sodium_memzero(Text.data(), static_cast<std::size_t>(Text.size()) * sizeof(QChar));
        UnlockSecret(Text.constData());
    }
    Text.clear();
}

QString UsDBFilePath(const QString& UsName) {
    TRACE_PROC("modMain.UsDBFilePath", UsName);
    return Pt(ProgConfig[kCfgDBPath]) + UsName + QStringLiteral(".bdb");
}

QByteArray NewUserTemplate() {
    TRACE_PROC("modMain.NewUserTemplate");
    // Seven lines, each ending in CR LF; \x87 is the single separator byte.
    return QByteArrayLiteral("wqpdhxMeM\r\n"
                             "UserDataBase\x87"
                             "0\x87"
                             "1.1a\r\n"
                             "[DataTable]\r\n"
                             "0\x87"
                             "0\r\n"
                             "0\r\n"
                             "IndNum 69\x87Parent 5\x87Type 5\x87Title 66\x87Login 2\x87Password 2\x87"
                             "Description 2\x87Image 5\x87"
                             "Flags 5\r\n"
                             "[End DataTable]\r\n");
}

void TrueKill(const QString& FilePath) {
    TRACE_PROC("modMain.TrueKill", FilePath);
    if (CloseMemoryFile(FilePath))
        return;
    const QFileInfo fi(FilePath);
    if (!fi.exists() && !fi.isSymLink())
        return;
    if (fi.isDir() && !fi.isSymLink())
        RaiseError(vbErrPermission, QStringLiteral("Permission denied: ") + FilePath);
    // Never through a link: a link is removed itself, whatever it leads to stays as it is.
    ::fchmodat(AT_FDCWD, QFile::encodeName(FilePath).constData(), 0600, AT_SYMLINK_NOFOLLOW);
    if (!QFile::remove(FilePath) && QFileInfo::exists(FilePath))
        RaiseError(vbErrPermission, QStringLiteral("Permission denied: ") + FilePath);
}

void FindUsers(const QString& FPath, StrMass& pUsers) {
    TRACE_PROC("modMain.FindUsers", FPath, pUsers.Items);
    const QString folder = Pt(FPath);
    TRACE_LOCAL(folder);
    DIR* dir = opendir(QFile::encodeName(folder).constData());
    if (!dir) {
        DbgPrint(QStringLiteral("Error#0003. FPath = ") + FPath);
        return;
    }
    while (const dirent* e = readdir(dir)) {
        QString name = QFile::decodeName(e->d_name);
        TRACE_LOCAL(name);
        StripNulls(name);
        if (name == QLatin1String(".") || name == QLatin1String(".."))
            continue;
        if (!name.endsWith(QLatin1String(".bdb"), Qt::CaseSensitive))
            continue;
        // A name no user can have (a line break in it, brought in with a copied folder) is
        // no user's file: listed, it would end up in the line-based settings.
        if (CheckUserName(name.left(name.size() - 4)) == unpControlChar)
            continue;
        // A sync engine's conflict copy is part of a user, never one (ConflictCopies.h).
        if (IsConflictCopyName(name))
            continue;
        // A folder named like a user is not one; anything else counts as a file, even
        // an entry whose state cannot be read.
        struct stat st;
        if (stat(QFile::encodeName(folder + name).constData(), &st) == 0 && S_ISDIR(st.st_mode))
            continue;
        AddElemToStrMass(pUsers, name.left(name.size() - 4));
    }
    closedir(dir);
}

QString GetTruePasw(const QString& InPasw) {
    TRACE_PROC("modMain.GetTruePasw", HIDDEN(InPasw));
    QString h = HashString(InPasw);
    TRACE_LOCAL_HIDDEN(h);
    for (int i = 0; i < 19; ++i)
        h = HashString(h);
    return h + InPasw;
}

void AddUser(const QString& Path, const QString& Name, QString& Pasw) {
    TRACE_PROC("modMain.AddUser", Path, Name, HIDDEN(Pasw));
    if (const QString why = FolderWriteProblem(QFileInfo(Path).absolutePath()); !why.isEmpty())
        RaiseError(vbErrPathFileAccess, why);
    // The template is read and protected in memory; the user's path receives only the
    // finished, enciphered file.
    QByteArray tpl = NewUserTemplate();
    DatabaseRecord db;
    if (ParseFileImage(tpl, QString(), db, nullptr) < 0)
        RaiseError(vbErrPathFileAccess, QStringLiteral("Path/File access error: ") + Path);
    const QString typed = Pasw;
    TRACE_LOCAL_HIDDEN(typed);
    Pasw = HashString(typed);
    db.Tag = Name;
    db.Name = Name;
    const QString key = GetTruePasw(Pasw);
    TRACE_LOCAL_HIDDEN(key);
    // The first version of the lineage (storage/FileLineage.h), kept here: a copy another
    // machine changes descends from it.
    db.Lineage = ExtendLineage(QString(), 0);
    clsFileIdentity written;
    QByteArray sealed;
    const bool ok = clsUserFile::Write(Path, db, key, written, &sealed);
    TRACE_LOCAL(ok);
    if (!ok)
        RaiseError(vbErrPathFileAccess, QStringLiteral("Path/File access error: ") + Path);
    KeepVersion(Path, db.Lineage, sealed);
    // A new user: what this computer saw of an earlier file of that name counts no more.
    ResetSaveNum(Path, 0);
}

int TestUsPasw(const QString& UPath, const QString& Pasw) {
    TRACE_PROC("modMain.TestUsPasw", UPath, HIDDEN(Pasw));
    return clsUserFile::FirstLineOpens(UPath, GetTruePasw(Pasw)) ? tupRight : tupWrong;
}

int LoadUser(const QString& UPath, const QString& Pasw) {
    TRACE_PROC("modMain.LoadUser", UPath, HIDDEN(Pasw));
    // The identity is that of exactly the bytes read: a replacement after them makes the
    // next save merge, never write over a version it did not see.
    auto file = std::make_shared<clsUserFile>(UPath, Pasw);
    auto db = std::make_shared<clsDatabase>();
    const int r = file->Open(*db);
    TRACE_LOCAL(r);
    if (r < 0)
        return r;
    db->SetUserFile(std::move(file));
    if (CurUsDB && !CurUsDB->Path().isEmpty())
        SaveUsDB(CurUsDB, GetTruePasw(CurUsPasw));
    CurUsDB = db;
    return kUserLoaded;
}

int FullUserLoad(const QString& UsName, const QString& UsPasw) {
    TRACE_PROC("modMain.FullUserLoad", UsName, HIDDEN(UsPasw));
    return UsSession().Open(UsName, UsPasw);
}

void UnloadUser() {
    UsSession().Unload();
}

void ReinstateUser(const QString& UsName, const QString& UsPasw, const clsDatabasePtr& DB) {
    UsSession().Reinstate(UsName, UsPasw, DB);
}

int DeleteUser(const QString& UsName, const QString& UsDBPath) {
    TRACE_PROC("modMain.DeleteUser", UsName, UsDBPath);
    if (!FileExist(UsDBPath))
        return -2;
    // Not while another program is in the middle of writing it.
    clsUserFileLock lock(UsDBPath);
    if (!lock.Acquire() && lock.TimedOut())
        return usLockTimeout;
    TrueKill(UsDBPath);
    return 1;
}

int ChangeUsPasw(const QString& NewPasw) {
    TRACE_PROC("modMain.ChangeUsPasw", HIDDEN(NewPasw));
    return UsSession().ChangeKey(NewPasw);
}
