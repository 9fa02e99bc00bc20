#include "storage/clsDataFilesManager.h"

#include "app/modMain.h"
#include "diagnostics/DbgPrint.h"
#include "diagnostics/ErrorTrap.h"
#include "diagnostics/Globals.h"
#include "diagnostics/Trace.h"

// ---- DBCollection -------------------------------------------------------------------------

long long DBCollection::DumpCount(const void* Col) {
    return static_cast<const DBCollection*>(Col)->m_items.size();
}

const QString* DBCollection::DumpKey(const void* Col, long long i) {
    return &static_cast<const DBCollection*>(Col)->m_items[i].first;
}

int DBCollection::IndexOf(const QString& Key) const {
    TRACE_PROC("DBCollection.IndexOf", Key);
    TRACE_SELF();
    for (qsizetype i = 0; i < m_items.size(); ++i)
        if (QString::compare(m_items[i].first, Key, Qt::CaseInsensitive) == 0)
            return static_cast<int>(i + 1);
    return 0;
}

clsDatabasePtr DBCollection::Item(int Index) const {
    TRACE_PROC("DBCollection.Item", Index);
    TRACE_SELF();
    if (Index < 1 || Index > Count())
        RaiseError(vbErrSubscript);
    return m_items[Index - 1].second;
}

clsDatabasePtr DBCollection::Item(const QString& Key) const {
    TRACE_PROC("DBCollection.Item", Key);
    TRACE_SELF();
    const int i = IndexOf(Key);
    TRACE_LOCAL(i);
    if (i == 0)
        RaiseError(vbErrInvalidCall);
    return m_items[i - 1].second;
}

QString DBCollection::KeyAt(int Index) const {
    TRACE_PROC("DBCollection.KeyAt", Index);
    TRACE_SELF();
    if (Index < 1 || Index > Count())
        RaiseError(vbErrSubscript);
    return m_items[Index - 1].first;
}

void DBCollection::Add(const clsDatabasePtr& Db, const QString& Key) {
    TRACE_PROC("DBCollection.Add", Db.get(), Key);
    TRACE_SELF();
    if (IndexOf(Key) != 0)
        RaiseError(vbErrInvalidCall,
                   QStringLiteral("This key is already associated with an element of this collection"));
    m_items.append({Key, Db});
}

void DBCollection::Remove(const QString& Key) {
    TRACE_PROC("DBCollection.Remove", Key);
    TRACE_SELF();
    const int i = IndexOf(Key);
    TRACE_LOCAL(i);
    if (i == 0)
        RaiseError(vbErrInvalidCall);
    m_items.removeAt(i - 1);
}

bool FindObjInCol(const DBCollection& Collect, const QString& ObjKey) {
    TRACE_PROC("modMain.FindObjInCol", ObjKey);
    return Collect.IndexOf(ObjKey) != 0;
}

// ---- clsDataFilesManager ------------------------------------------------------------------

clsDataFilesManager::clsDataFilesManager() {
    TRACE_PROC("clsDataFilesManager.Class_Initialize");
    TRACE_SELF();
    // A report lists the loaded files of the manager, or of the collection, it fails in.
    static const bool registered = [this] {
        argent::diag::registerMemberItems("clsDataFilesManager", "DBFlsCol", this, &DBFlsCol,
                                          &DBCollection::DumpCount, &DBCollection::DumpKey);
        argent::diag::registerMemberItems("DBCollection", "Items", &DBFlsCol, &DBFlsCol,
                                          &DBCollection::DumpCount, &DBCollection::DumpKey);
        return true;
    }();
    (void)registered;
}

int clsDataFilesManager::GetLoadedDBNum() const {
    TRACE_PROC("clsDataFilesManager.GetLoadedDBNum");
    TRACE_SELF();
    return DBFlsCol.Count();
}

void clsDataFilesManager::GetLoadedDBCol(DBCollection*& BufCol) {
    TRACE_PROC("clsDataFilesManager.GetLoadedDBCol");
    TRACE_SELF();
    BufCol = &DBFlsCol;
}

int clsDataFilesManager::LoadDB(const QString& Path, clsDatabasePtr& DB, const QString& Pasw) {
    TRACE_PROC("clsDataFilesManager.LoadDB", Path, DB.get(), HIDDEN(Pasw));
    TRACE_SELF();
    if (FindObjInCol(DBFlsCol, Path)) {
        DB = DBFlsCol.Item(Path);
        return 28;
    }
    if (!FileExist(Path)) {
        DbgPrint(QStringLiteral("___LoadDB = -2"));
        return -2;
    }
    DB = std::make_shared<clsDatabase>();
    const int r = DB->LoadDB(Path, Pasw);
    TRACE_LOCAL(r);
    // Kept even when the load failed: the caller's temporary file name is never reused.
    DBFlsCol.Add(DB, Path);
    DB->SetPath(Path);
    return r;
}

int clsDataFilesManager::UpdateDB(clsDatabasePtr& DB, const QString& Path) {
    TRACE_PROC("clsDataFilesManager.UpdateDB", DB.get(), Path);
    TRACE_SELF();
    if (FindObjInCol(DBFlsCol, Path)) {
        DBFlsCol.Remove(Path);
        DBFlsCol.Add(DB, Path);
        DB = DBFlsCol.Item(Path);
        return 1;
    }
    DBFlsCol.Add(DB, Path);
    DB = DBFlsCol.Item(Path);
    return 2;
}

int clsDataFilesManager::AddDB(clsDatabasePtr& DB, const QString& Path) {
    TRACE_PROC("clsDataFilesManager.AddDB", DB.get(), Path);
    TRACE_SELF();
    if (FindObjInCol(DBFlsCol, Path))
        return 2;
    DBFlsCol.Add(DB, Path);
    return 1;
}

int clsDataFilesManager::DeleteDBFromCol(const QString& Path) {
    TRACE_PROC("clsDataFilesManager.DeleteDBFromCol", Path);
    TRACE_SELF();
    if (!FindObjInCol(DBFlsCol, Path))
        return 2;
    DBFlsCol.Remove(Path);
    return 1;
}

int clsDataFilesManager::ReadTbls(clsDatabasePtr& DB, const QString& Path, const QStringList& Tbls) {
    TRACE_PROC("clsDataFilesManager.ReadTbls", DB.get(), Path, Tbls);
    TRACE_SELF();
    if (FindObjInCol(DBFlsCol, Path)) {
        DB = DBFlsCol.Item(Path);
        return 1;
    }
    TableEngine engine;
    DatabaseRecord rec;
    engine.ReadTables(rec, Path, Tbls);
    DB = std::make_shared<clsDatabase>();
    DB->SetDB(rec);
    return 2;
}

int clsDataFilesManager::SaveDB(const clsDatabasePtr& DB, const QString& Path, const QString& Pasw,
                                bool Compress) {
    TRACE_PROC("clsDataFilesManager.SaveDB", DB.get(), Path, HIDDEN(Pasw), Compress);
    TRACE_SELF();
    if (!DB)
        RaiseError(vbErrInvalidCall);
    TableEngine engine;
    // The structure itself, not a copy: the engine keeps the derived key with it.
    return engine.SaveDatabase(DB->DBView(), Path, Pasw, Compress);
}

void clsDataFilesManager::SetDBFlsCol(const DBCollection& NewCol) {
    TRACE_PROP("clsDataFilesManager.DBFlsCol");
    TRACE_SELF();
    DBFlsCol = NewCol;
}

int clsDataFilesManager::SaveAllDB(const QString& Pasw, bool Compress) {
    TRACE_PROC("clsDataFilesManager.SaveAllDB", HIDDEN(Pasw), Compress);
    TRACE_SELF();
    for (int i = 1; i <= DBFlsCol.Count(); ++i) {
        const clsDatabasePtr db = DBFlsCol.Item(i);
        db->SaveDB(db->Path(), Pasw, Compress);
    }
    return 0;
}

int clsDataFilesManager::SaveDBOnPath(const QString& DBPath, const QString& Pasw, bool Compress) {
    TRACE_PROC("clsDataFilesManager.SaveDBOnPath", DBPath, HIDDEN(Pasw), Compress);
    TRACE_SELF();
    for (int i = 1; i <= DBFlsCol.Count(); ++i) {
        const clsDatabasePtr db = DBFlsCol.Item(i);
        if (db->Path() == DBPath) {
            db->SaveDB(db->Path(), Pasw, Compress);
            break;
        }
    }
    return 0;
}

bool clsDataFilesManager::IsDBLoaded(const QString& DBPath) const {
    TRACE_PROC("clsDataFilesManager.IsDBLoaded", DBPath);
    TRACE_SELF();
    return FindObjInCol(DBFlsCol, DBPath);
}
