#include "users/UserSession.h"

#include "users/IUserView.h"
#include "users/UnsavedCopy.h"
#include "users/UserAccounts.h"

#include "app/ProgConfig.h"
#include "app/SecureMemory.h"
#include "diagnostics/DbgPrint.h"
#include "diagnostics/Trace.h"
#include "storage/Md5.h"

namespace {

// Remembering the last user is no reason to stop an opening or a closing: a settings file
// that cannot be written now (a full disk) is written by the next save of the settings.
void saveLastUser(const QString& UsName) {
    TRACE_PROC("modMain.SaveLastUser", UsName);
    ProgConfig[kCfgLastUser] = UsName;
    if (!TrySaveConfig(ProgCfgPath))
        DbgPrint(QStringLiteral("Settings not written: ") + ProgCfgPath);
}

void showInView(bool Show) {
    IUserView* view = UserView();
    if (!view)
        return;
    view->ClearUsTree();
    view->ClearUsValue();
    if (Show)
        view->ShowUsDB(*CurUsDB);
}

} // namespace

clsUserSession& UsSession() {
    static clsUserSession session;
    return session;
}

bool clsUserSession::IsOpen() const {
    return !CurUser.isEmpty() && CurUsDB && !CurUsDB->Name().isEmpty();
}

int clsUserSession::Open(const QString& UsName, const QString& UsPasw) {
    TRACE_PROC("clsUserSession.Open", UsName, HIDDEN(UsPasw));
    CurUsDB = std::make_shared<clsDatabase>();
    const QString path = UsDBFilePath(UsName);
    TRACE_LOCAL(path);
    const int r = LoadUser(path, GetTruePasw(UsPasw));
    // The first line deciphers with this password, so the key is right: the contents
    // themselves fail their check.
    if ((r == tbeBadKey || r == tbeBadFormat) && TestUsPasw(path, UsPasw) == tupRight)
        return fulDamaged;
    if (r < 0)
        return r == tbeBadKey ? fulWrongPassword : fulFailed;
    m_kept.reset();
    CurUsPasw = UsPasw;
    LockSecretText(CurUsPasw);
    CurUsDBPath = path;
    CurUsDB->SetPath(CurUsDBPath);
    CurUser = UsName;
    if (UserView()) {
        UserView()->ClearUsTree();
        UserView()->ClearUsValue();
    }
    saveLastUser(UsName);
    if (UserView())
        UserView()->ShowUsDB(*CurUsDB);
    return fulLoaded;
}

int clsUserSession::Save() {
    TRACE_PROC("clsUserSession.Save");
    return SaveDatabase(CurUsDB);
}

int clsUserSession::SaveDatabase(const clsDatabasePtr& Db) {
    TRACE_PROC("clsUserSession.SaveDatabase", Db.get());
    if (!Db || Db->Name().isEmpty())
        return usNothingToSave;
    // A database read from its file is saved with the key it was read with: a database a
    // lock kept stays saveable after the user was closed.
    const clsUserFilePtr& file = Db->UserFile();
    if (file && file->Path() == UsDBFilePath(Db->Name()))
        return file->Save(*Db);
    return SaveUsDB(Db, GetTruePasw(CurUsPasw));
}

int clsUserSession::SaveRecreate() {
    TRACE_PROC("clsUserSession.SaveRecreate");
    return SaveUsDBRecreate(CurUsDB, GetTruePasw(CurUsPasw));
}

int clsUserSession::SaveOver() {
    TRACE_PROC("clsUserSession.SaveOver");
    if (!IsOpen())
        return usNothingToSave;
    const clsUserFilePtr& file = CurUsDB->UserFile();
    if (!file || file->Path() != UsDBFilePath(CurUsDB->Name()))
        return SaveRecreate();
    return file->SaveOver(*CurUsDB);
}

int clsUserSession::SaveWithPassword(const QString& Typed) {
    TRACE_PROC("clsUserSession.SaveWithPassword", HIDDEN(Typed));
    const int r = SaveUsDBWithNewKey(CurUsDB, Typed);
    if (r == usSaved || r == usMerged) {
        WipeString(CurUsPasw);
        CurUsPasw = HashString(Typed);
        LockSecretText(CurUsPasw);
    }
    return r;
}

int clsUserSession::Refresh() {
    TRACE_PROC("clsUserSession.Refresh");
    return RefreshUsDB(CurUsDB, GetTruePasw(CurUsPasw));
}

int clsUserSession::ChangeKey(const QString& NewPasw) {
    TRACE_PROC("clsUserSession.ChangeKey", HIDDEN(NewPasw));
    QString old = CurUsPasw;
    CurUsPasw = HashString(NewPasw);
    LockSecretText(CurUsPasw);
    const int r = SaveUsDBRekeyed(CurUsDB, GetTruePasw(old), GetTruePasw(CurUsPasw));
    if (r < 0)
        std::swap(CurUsPasw, old);
    WipeString(old);
    return r;
}

int clsUserSession::Lock() {
    TRACE_PROC("clsUserSession.Lock");
    const int r = Save();
    // A database that cannot be written now is not thrown away with the lock.
    if (r < 0 && r != usNothingToSave)
        m_kept = CurUsDB;
    CurUsDB = std::make_shared<clsDatabase>();
    return r;
}

bool clsUserSession::TakeBackKept() {
    TRACE_PROC("clsUserSession.TakeBackKept");
    if (!m_kept)
        return false;
    CurUsDB = std::move(m_kept);
    m_kept.reset();
    return true;
}

int clsUserSession::SaveKept() {
    TRACE_PROC("clsUserSession.SaveKept");
    if (!m_kept)
        return usNothingToSave;
    const int r = SaveDatabase(m_kept);
    if (r >= 0)
        m_kept.reset();
    return r;
}

QString clsUserSession::KeepUnsavedCopy(bool* Unsaved) {
    TRACE_PROC("clsUserSession.KeepUnsavedCopy");
    const clsDatabasePtr& db = m_kept ? m_kept : CurUsDB;
    const bool unsaved = db && !db->Name().isEmpty() && (db == m_kept || db->HasUnsavedChanges());
    if (Unsaved)
        *Unsaved = unsaved;
    return unsaved ? WriteUnsavedCopy(*db, GetTruePasw(CurUsPasw)) : QString();
}

void clsUserSession::Unload() {
    TRACE_PROC("modMain.UnloadUser");
    CurUsDB = std::make_shared<clsDatabase>();
    WipeString(CurUsPasw);
    CurUsDBPath.clear();
    CurUser.clear();
    showInView(false);
    saveLastUser(QString());
    if (UserView())
        UserView()->ClearUsTree();
}

void clsUserSession::Reinstate(const QString& UsName, const QString& UsPasw, const clsDatabasePtr& DB) {
    TRACE_PROC("modMain.ReinstateUser", UsName, HIDDEN(UsPasw));
    CurUsDB = DB;
    CurUsPasw = UsPasw;
    LockSecretText(CurUsPasw);
    CurUsDBPath = UsDBFilePath(UsName);
    CurUser = UsName;
    saveLastUser(UsName);
    showInView(true);
}
