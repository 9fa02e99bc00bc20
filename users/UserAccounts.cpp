#include "users/UserAccounts.h"

#include "users/IUserView.h"

#include "app/MemoryFile.h"
#include "app/ProgConfig.h"
#include "app/modMain.h"
#include "diagnostics/DbgPrint.h"
#include "diagnostics/ErrorTrap.h"
#include "diagnostics/Globals.h"
#include "diagnostics/Trace.h"
#include "storage/Md5.h"
#include "storage/Rc4.h"
#include "storage/TableFile.h"
#include "storage/UserFileLock.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryFile>

#include <sodium.h>

#include <dirent.h>
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

constexpr qint64 kSignatureEncLen = 13; // "wqpdhxMeM.ENC"

// The deciphered copy of the last password check that succeeded, kept for the load that
// follows it (the window's password dialog, argentpm's commands), so that a file is read
// and deciphered once per opening. It is only taken for the same file, still unchanged
// (same size, time and inode), and the same key, within a few seconds; any other check
// or load drops it.
struct CheckedCopy {
    QString UPath;
    QByteArray KeyDigest;
    clsFileIdentity Id;
    QString Tmp;
    QElapsedTimer Age;
};
CheckedCopy g_checked;
constexpr qint64 kCheckedCopyMs = 10000;

QByteArray keyDigest(const QString& Key) {
    const QByteArray k = Key.toUtf8();
    QByteArray d(crypto_generichash_BYTES, Qt::Uninitialized);
    crypto_generichash(reinterpret_cast<unsigned char*>(d.data()), crypto_generichash_BYTES,
                       reinterpret_cast<const unsigned char*>(k.constData()),
                       static_cast<unsigned long long>(k.size()), nullptr, 0);
    return d;
}

void dropCheckedCopy() {
    if (!g_checked.Tmp.isEmpty())
        TrueKill(g_checked.Tmp);
    g_checked = CheckedCopy();
}

// Takes the kept copy when it is the one for UPath and Key: Tmp and Id receive it.
bool takeCheckedCopy(const QString& UPath, const QString& Key, QString& Tmp, clsFileIdentity& Id) {
    if (g_checked.Tmp.isEmpty())
        return false;
    bool fits = g_checked.UPath == UPath && g_checked.Age.isValid() &&
                !g_checked.Age.hasExpired(kCheckedCopyMs) && g_checked.KeyDigest == keyDigest(Key);
    if (fits) {
        struct stat st;
        fits = ::stat(QFile::encodeName(UPath).constData(), &st) == 0 && st.st_size == g_checked.Id.Size &&
               st.st_ino == g_checked.Id.Inode &&
               static_cast<qint64>(st.st_mtim.tv_sec) * 1000000000LL + st.st_mtim.tv_nsec ==
                   g_checked.Id.MTimeNs;
    }
    if (!fits) {
        dropCheckedCopy();
        return false;
    }
    Tmp = g_checked.Tmp;
    Id = g_checked.Id;
    g_checked = CheckedCopy();
    return true;
}

// Remembering the last user is no reason to stop an opening or a closing: a settings file
// that cannot be written now (a full disk) is written by the next save of the settings.
void saveLastUser(const QString& UsName) {
    TRACE_PROC("modMain.SaveLastUser", UsName);
    ProgConfig[4] = UsName;
    if (!TrySaveConfig(ProgCfgPath))
        DbgPrint(QStringLiteral("Settings not written: ") + ProgCfgPath);
}

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
    if (!Text.isEmpty() && Text.isDetached())
        sodium_memzero(Text.data(), static_cast<std::size_t>(Text.size()) * sizeof(QChar));
    Text.clear();
}

QString UsDBFilePath(const QString& UsName) {
    TRACE_PROC("modMain.UsDBFilePath", UsName);
    return Pt(ProgConfig[5]) + UsName + QStringLiteral(".bdb");
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

bool TryGetTempFileName(QString& Out) {
    TRACE_PROC("modMain.TryGetTempFileName");
    // In memory where the system allows: the copy then never reaches a disk.
    Out = CreateMemoryFile("psc");
    if (!Out.isEmpty())
        return true;
    // The process id in the name tells the start-up clean-up whose copy it is.
    QTemporaryFile f(GetWindowsTemp() +
                     QStringLiteral("psc%1_XXXXXX.tmp").arg(QCoreApplication::applicationPid()));
    f.setAutoRemove(false);
    if (!f.open())
        return false;
    f.setPermissions(QFile::ReadOwner | QFile::WriteOwner);
    Out = f.fileName();
    return true;
}

QString GetTempFileName() {
    TRACE_PROC("modMain.GetTempFileName");
    QString name;
    if (!TryGetTempFileName(name))
        RaiseError(vbErrPathFileAccess, QStringLiteral("Path/File access error: ") + GetWindowsTemp());
    return name;
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
    QFile::setPermissions(FilePath, QFile::ReadOwner | QFile::WriteOwner);
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
    // The template and its protected form are made in the private temporary folder; the
    // user's path receives only the finished, enciphered file.
    const QString tmp = GetTempFileName();
    TRACE_LOCAL(tmp);
    {
        QFile f(tmp);
        const QByteArray tpl = NewUserTemplate();
        if (!f.open(QIODevice::WriteOnly | QIODevice::Truncate) || f.write(tpl) != tpl.size() || !f.flush()) {
            f.close();
            TrueKill(tmp);
            RaiseError(vbErrPathFileAccess, QStringLiteral("Path/File access error: ") + tmp);
        }
    }
    const QString typed = Pasw;
    TRACE_LOCAL_HIDDEN(typed);
    Pasw = HashString(typed);
    clsDatabasePtr db;
    const int r = MDFM->LoadDB(tmp, db, QString());
    TRACE_LOCAL(r);
    MDFM->DeleteDBFromCol(tmp);
    if (r < 0) {
        TrueKill(tmp);
        RaiseError(vbErrPathFileAccess, QStringLiteral("Path/File access error: ") + tmp);
    }
    db->SetTag(Name);
    db->SetName(Name);
    const QString key = GetTruePasw(Pasw);
    TRACE_LOCAL_HIDDEN(key);
    const int s = MDFM->SaveDB(db, tmp, key, false);
    TRACE_LOCAL(s);
    if (s < 0) {
        TrueKill(tmp);
        RaiseError(vbErrPathFileAccess, QStringLiteral("Path/File access error: ") + tmp);
    }
    const bool written = EncryptFile(tmp, Path, true, key);
    TRACE_LOCAL(written);
    TrueKill(tmp);
    if (!written)
        RaiseError(vbErrPathFileAccess, QStringLiteral("Path/File access error: ") + Path);
}

int TestUsPasw(const QString& UPath, const QString& Pasw) {
    TRACE_PROC("modMain.TestUsPasw", UPath, HIDDEN(Pasw));
    dropCheckedCopy();
    const QString key = GetTruePasw(Pasw);
    QString tmp;
    if (!TryGetTempFileName(tmp))
        return 4;
    int result = 2;
    clsFileIdentity id;
    if (!DecryptFile(UPath, tmp, true, key, id) && id.Exists) {
        TrueKill(tmp);
        return 4;
    }
    QFile f(tmp);
    if (f.size() > kSignatureEncLen && f.open(QIODevice::ReadOnly)) {
        QByteArray line = f.readLine(64);
        if (line.endsWith('\n'))
            line.chop(1);
        if (line.endsWith('\r'))
            line.chop(1);
        if (line == kSignatureEnc)
            result = 1;
        f.close();
    }
    if (result == 1) {
        // The load that follows takes this copy instead of deciphering the file again.
        g_checked.UPath = UPath;
        g_checked.KeyDigest = keyDigest(key);
        g_checked.Id = id;
        g_checked.Tmp = tmp;
        g_checked.Age.start();
        return result;
    }
    TrueKill(tmp);
    return result;
}

int LoadUser(const QString& UPath, const QString& Pasw) {
    TRACE_PROC("modMain.LoadUser", UPath, HIDDEN(Pasw));
    QString tmp;
    // The identity is that of exactly the bytes deciphered: a replacement after them makes
    // the next save merge, never write over a version it did not see.
    clsFileIdentity id;
    if (!takeCheckedCopy(UPath, Pasw, tmp, id)) {
        if (!TryGetTempFileName(tmp))
            return -9;
        // A missing user file leaves nothing to load: the manager then reports -2.
        if (!DecryptFile(UPath, tmp, true, Pasw, id)) {
            TrueKill(tmp);
            if (id.Exists && !id.Digest.isEmpty())
                return -9;
        }
    }
    clsDatabasePtr db;
    const int r = MDFM->LoadDB(tmp, db, Pasw);
    TRACE_LOCAL(r);
    // The deciphered copy is erased on every path, and its entry goes with it: the key
    // names a file that no longer exists.
    TrueKill(tmp);
    MDFM->DeleteDBFromCol(tmp);
    if (r < 0)
        return r;
    db->SetFileState(db->DBView(), id);
    if (CurUsDB && !CurUsDB->Path().isEmpty())
        SaveUsDB(CurUsDB, GetTruePasw(CurUsPasw));
    CurUsDB = db;
    return 2;
}

int FullUserLoad(const QString& UsName, const QString& UsPasw) {
    TRACE_PROC("modMain.FullUserLoad", UsName, HIDDEN(UsPasw));
    CurUsDB = std::make_shared<clsDatabase>();
    const QString path = UsDBFilePath(UsName);
    TRACE_LOCAL(path);
    const int r = LoadUser(path, GetTruePasw(UsPasw));
    if (r == -9)
        return 102;
    // The first line deciphers with this password, so the key is right: the contents
    // themselves fail their check.
    if ((r == -4 || r == -3) && TestUsPasw(path, UsPasw) == 1)
        return 101;
    if (r < 0)
        return r == -4 ? -1 : 100;
    CurUsPasw = UsPasw;
    CurUsDBPath = path;
    CurUsDB->SetPath(CurUsDBPath);
    CurUser = UsName;
    if (g_view) {
        g_view->ClearUsTree();
        g_view->ClearUsValue();
    }
    saveLastUser(UsName);
    if (g_view)
        g_view->ShowUsDB(*CurUsDB);
    return 0;
}

void UnloadUser() {
    TRACE_PROC("modMain.UnloadUser");
    CurUsDB = std::make_shared<clsDatabase>();
    WipeString(CurUsPasw);
    CurUsDBPath.clear();
    CurUser.clear();
    if (g_view) {
        g_view->ClearUsTree();
        g_view->ClearUsValue();
    }
    saveLastUser(QString());
    if (g_view)
        g_view->ClearUsTree();
}

void ReinstateUser(const QString& UsName, const QString& UsPasw, const clsDatabasePtr& DB) {
    TRACE_PROC("modMain.ReinstateUser", UsName, HIDDEN(UsPasw));
    CurUsDB = DB;
    CurUsPasw = UsPasw;
    CurUsDBPath = UsDBFilePath(UsName);
    CurUser = UsName;
    saveLastUser(UsName);
    if (g_view) {
        g_view->ClearUsTree();
        g_view->ClearUsValue();
        g_view->ShowUsDB(*CurUsDB);
    }
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
    QString old = CurUsPasw;
    CurUsPasw = HashString(NewPasw);
    const int r = SaveUsDBRekeyed(CurUsDB, GetTruePasw(old), GetTruePasw(CurUsPasw));
    if (r < 0)
        std::swap(CurUsPasw, old);
    WipeString(old);
    return r;
}
