#include "storage/clsDatabase.h"

#include "storage/UserFile.h"

#include "app/VbConv.h"
#include "app/modTimer.h"
#include "diagnostics/ErrorTrap.h"
#include "diagnostics/Globals.h"
#include "diagnostics/Trace.h"

#include <atomic>
#include <climits>

namespace {
std::int16_t toInt16(int v) {
    if (v < SHRT_MIN || v > SHRT_MAX)
        RaiseError(vbErrOverflow);
    return static_cast<std::int16_t>(v);
}
} // namespace

clsDatabase::clsDatabase() {
    TRACE_PROC("clsDatabase.Class_Initialize");
    Changed();
    TRACE_SELF();
    // The variables a report shows for the database its failing procedure works on.
    static const bool registered = [this] {
        using namespace argent::diag;
        registerMember("clsDatabase", "lDB.Name", this, &lDB.Name);
        registerMember("clsDatabase", "lDB.Path", this, &lDB.Path);
        registerMember("clsDatabase", "lDB.Version", this, &lDB.Version);
        registerMember("clsDatabase", "lDB.Ready", this, &lDB.Ready);
        registerMember("clsDatabase", "lDB.Tag", this, &lDB.Tag);
        registerMemberCount("clsDatabase", "lDB.TabNum", this, &lDB, [](const void* p) -> long long {
            return static_cast<const DatabaseRecord*>(p)->TabNum();
        });
        registerMember("clsDatabase", "lDBLastAccess", this, &lDBLastAccess);
        return true;
    }();
    (void)registered;
    lDBMngr.ResetDatabase(lDB);
}

namespace {
std::atomic<quint64> g_lastGeneration{0};
} // namespace

void clsDatabase::Changed() {
    lGeneration = ++g_lastGeneration;
}

void clsDatabase::Touch() {
    lDBLastAccess = CLng(GetQueryPerf());
}

DatabaseRecord clsDatabase::DB() const {
    TRACE_PROP("clsDatabase.DB");
    TRACE_SELF();
    return lDB;
}

void clsDatabase::SetDB(const DatabaseRecord& NewDB) {
    Changed();
    TRACE_PROP("clsDatabase.DB", NewDB);
    TRACE_SELF();
    lDB = NewDB;
    lDBMngr.DatabaseChanged();
}

int clsDatabase::flags() const {
    TRACE_PROP("clsDatabase.flags");
    TRACE_SELF();
    return lDB.flags;
}

void clsDatabase::SetFlags(int NewFlags) {
    TRACE_PROP("clsDatabase.flags", NewFlags);
    TRACE_SELF();
    lDB.flags = toInt16(NewFlags);
}

int clsDatabase::HTabNum() const {
    TRACE_PROP("clsDatabase.HTabNum");
    TRACE_SELF();
    return lDB.HTabNum();
}

QString clsDatabase::Name() const {
    TRACE_PROP("clsDatabase.Name");
    TRACE_SELF();
    return lDB.Name;
}

void clsDatabase::SetName(const QString& NewName) {
    TRACE_PROP("clsDatabase.Name", NewName);
    TRACE_SELF();
    lDB.Name = NewName;
}

QString clsDatabase::Path() const {
    TRACE_PROP("clsDatabase.Path");
    TRACE_SELF();
    return lDB.Path;
}

void clsDatabase::SetPath(const QString& NewPath) {
    TRACE_PROP("clsDatabase.Path", NewPath);
    TRACE_SELF();
    lDB.Path = NewPath;
}

bool clsDatabase::Ready() const {
    TRACE_PROP("clsDatabase.Ready");
    TRACE_SELF();
    return lDB.Ready;
}

void clsDatabase::SetReady(bool NewReady) {
    TRACE_PROP("clsDatabase.Ready", NewReady);
    TRACE_SELF();
    lDB.Ready = NewReady;
}

int clsDatabase::TabNum() const {
    TRACE_PROP("clsDatabase.TabNum");
    TRACE_SELF();
    return lDB.TabNum();
}

QString clsDatabase::Tag() const {
    TRACE_PROP("clsDatabase.Tag");
    TRACE_SELF();
    return lDB.Tag;
}

void clsDatabase::SetTag(const QString& NewTag) {
    TRACE_PROP("clsDatabase.Tag", NewTag);
    TRACE_SELF();
    lDB.Tag = NewTag;
}

QString clsDatabase::Version() const {
    TRACE_PROP("clsDatabase.Version");
    TRACE_SELF();
    return lDB.Version;
}

void clsDatabase::SetTblName(int TblNum, const QString& NewName) {
    Changed();
    TRACE_PROC("clsDatabase.SetTblName", TblNum, NewName);
    TRACE_SELF();
    if (TblOk(TblNum))
        lDB.Tables[TblNum - 1].Name = NewName;
}

int clsDatabase::DBLastAccess() const {
    TRACE_PROP("clsDatabase.DBLastAccess");
    TRACE_SELF();
    return lDBLastAccess;
}

void clsDatabase::SetDBLastAccess(int NewValue) {
    TRACE_PROP("clsDatabase.DBLastAccess", NewValue);
    TRACE_SELF();
    lDBLastAccess = NewValue;
}

QString clsDatabase::GetTblName(int TblNum) const {
    TRACE_PROC("clsDatabase.GetTblName", TblNum);
    TRACE_SELF();
    return TblOk(TblNum) ? lDB.Tables[TblNum - 1].Name : QString();
}

int clsDatabase::GetTblRecNum(int TblNum) {
    TRACE_PROC("clsDatabase.GetTblRecNum", TblNum);
    TRACE_SELF();
    Touch();
    return TblOk(TblNum) ? lDB.Tables[TblNum - 1].RecNum() : 0;
}

int clsDatabase::GetTblFlags(int TblNum) const {
    TRACE_PROC("clsDatabase.GetTblFlags", TblNum);
    TRACE_SELF();
    return TblOk(TblNum) ? lDB.Tables[TblNum - 1].Flags : 0;
}

void clsDatabase::SetTblFlags(int TblNum, int newval) {
    TRACE_PROC("clsDatabase.SetTblFlags", TblNum, newval);
    TRACE_SELF();
    if (TblOk(TblNum))
        lDB.Tables[TblNum - 1].Flags = toInt16(newval);
}

QString clsDatabase::GetTblTag(int TblNum) const {
    TRACE_PROC("clsDatabase.GetTblTag", TblNum);
    TRACE_SELF();
    return TblOk(TblNum) ? lDB.Tables[TblNum - 1].Tag : QString();
}

void clsDatabase::SetTblTag(int TblNum, const QString& newval) {
    Changed();
    TRACE_PROC("clsDatabase.SetTblTag", TblNum, newval);
    TRACE_SELF();
    if (TblOk(TblNum))
        lDB.Tables[TblNum - 1].Tag = newval;
}

QString clsDatabase::GetTblCaption(int TblNum) const {
    TRACE_PROC("clsDatabase.GetTblCaption", TblNum);
    TRACE_SELF();
    return TblOk(TblNum) ? lDB.Tables[TblNum - 1].Caption : QString();
}

QStringList clsDatabase::GetTblRecord(int TblNum, int RecNum) {
    TRACE_PROC("clsDatabase.GetTblRecord", TblNum, RecNum);
    TRACE_SELF();
    Touch();
    if (!TblOk(TblNum) || RecNum < 1 || RecNum > lDB.Tables[TblNum - 1].RecNum())
        return QStringList();
    return lDB.Tables[TblNum - 1].Records.row(RecNum - 1);
}

QString clsDatabase::GetTblFldVal(int TblNum, int RecNum, int FldNum) {
    TRACE_PROC("clsDatabase.GetTblFldVal", TblNum, RecNum, FldNum);
    TRACE_SELF();
    Touch();
    if (!TblOk(TblNum))
        RaiseError(vbErrSubscript);
    const TableEntry& t = lDB.Tables[TblNum - 1];
    if (RecNum < 1 || RecNum > t.RecNum())
        RaiseError(vbErrSubscript);
    if (FldNum < 1 || FldNum > t.Records.fieldCount(RecNum - 1))
        RaiseError(vbErrSubscript);
    return t.Records.value(RecNum - 1, FldNum - 1);
}

QString clsDatabase::GetTblFldValNm(int TblNum, int RecNum, const QString& FldName) {
    TRACE_PROC("clsDatabase.GetTblFldValNm", TblNum, RecNum, FldName);
    TRACE_SELF();
    Touch();
    return lDBMngr.GetTblFldValNm(lDB, TblNum, RecNum, FldName);
}

void clsDatabase::SetTblFldVal(int TblNum, int RecNum, int FldNum, const QString& newval) {
    Changed();
    TRACE_PROC("clsDatabase.SetTblFldVal", TblNum, RecNum, FldNum, HIDDEN(newval));
    TRACE_SELF();
    if (!TblOk(TblNum))
        RaiseError(vbErrSubscript);
    TableEntry& t = lDB.Tables[TblNum - 1];
    if (RecNum < 1 || RecNum > t.RecNum())
        RaiseError(vbErrSubscript);
    if (FldNum < 1 || FldNum > t.Records.fieldCount(RecNum - 1))
        RaiseError(vbErrSubscript);
    t.Records.setValue(RecNum - 1, FldNum - 1, newval);
    lDBMngr.TableChanged(TblNum, RecNum, RecNum);
}

void clsDatabase::SetTblFldValNm(int TblNum, int RecNum, const QString& FldName, const QString& newval) {
    TRACE_PROC("clsDatabase.SetTblFldValNm", TblNum, RecNum, FldName, HIDDEN(newval));
    TRACE_SELF();
    Touch();
    Changed();
    lDBMngr.SetTblFldValNm(lDB, TblNum, RecNum, FldName, newval);
}

void clsDatabase::SetTblRecord(int TblNum, int RecNum, const QStringList& NewRec) {
    Changed();
    TRACE_PROC("clsDatabase.SetTblRecord", TblNum, RecNum, HIDDEN(NewRec));
    TRACE_SELF();
    if (!TblOk(TblNum))
        RaiseError(vbErrSubscript);
    TableEntry& t = lDB.Tables[TblNum - 1];
    if (RecNum < 1 || RecNum > t.RecNum())
        RaiseError(vbErrSubscript);
    t.Records.setRow(RecNum - 1, NewRec);
    lDBMngr.TableChanged(TblNum, RecNum, RecNum);
}

QString clsDatabase::FindHelpVal(int TblNum, int FldNum, const QString& Val) {
    TRACE_PROC("clsDatabase.FindHelpVal", TblNum, FldNum, Val);
    TRACE_SELF();
    Touch();
    return lDBMngr.FindHelpVal(lDB, TblNum, FldNum, Val);
}

int clsDatabase::FindTable(const QString& TblName) {
    TRACE_PROC("clsDatabase.FindTable", TblName);
    TRACE_SELF();
    Touch();
    return lDBMngr.FindTable(lDB, TblName);
}

int clsDatabase::FindHTable(const QString& HTblName) {
    TRACE_PROC("clsDatabase.FindHTable", HTblName);
    TRACE_SELF();
    Touch();
    return lDBMngr.FindHTable(lDB, HTblName);
}

int clsDatabase::FindField(int TblNum, const QString& FldName) {
    TRACE_PROC("clsDatabase.FindField", TblNum, FldName);
    TRACE_SELF();
    Touch();
    return lDBMngr.FindField(lDB, TblNum, FldName);
}

int clsDatabase::GetRecNumFromVal(int TblNum, int FldNum, const QString& FldVal, int Start) {
    TRACE_PROC("clsDatabase.GetRecNumFromVal", TblNum, FldNum, FldVal, Start);
    TRACE_SELF();
    Touch();
    return lDBMngr.GetRecNumFromVal(lDB, TblNum, FldNum, FldVal, Start);
}

int clsDatabase::LoadDB(const QString& Path, const QString& Pasw) {
    Changed();
    TRACE_PROC("clsDatabase.LoadDB", Path, HIDDEN(Pasw));
    TRACE_SELF();
    Touch();
    lDBMngr.ResetDatabase(lDB);
    return lDBMngr.LoadDatabase(lDB, Path, Pasw);
}

void clsDatabase::SaveDB(const QString& Path, const QString& Pasw, bool Compress) {
    TRACE_PROC("clsDatabase.SaveDB", Path, HIDDEN(Pasw), Compress);
    TRACE_SELF();
    Touch();
    lDBMngr.SaveDatabase(lDB, Path, Pasw, Compress);
}

int clsDatabase::TblsToString(const QStringList& Tbls, QString& BufStr, const TblsFilter& TblsFltr) {
    TRACE_PROC("clsDatabase.TblsToString", Tbls);
    TRACE_SELF();
    Touch();
    QString names;
    for (const QString& t : Tbls) {
        names += t;
        names += QChar(kFldSep);
    }
    return lDBMngr.TablesToString(lDB, names, BufStr, TblsFltr);
}

QString clsDatabase::GetHelpVal(int TblNum, const QString& FName, int RecNum) {
    TRACE_PROC("clsDatabase.GetHelpVal", TblNum, FName, RecNum);
    TRACE_SELF();
    Touch();
    return lDBMngr.GetHelpVal(lDB, TblNum, FName, RecNum);
}

int clsDatabase::AddRecord(int TblNum) {
    Changed();
    TRACE_PROC("clsDatabase.AddRecord", TblNum);
    TRACE_SELF();
    Touch();
    return lDBMngr.AddRecord(lDB, TblNum);
}

void clsDatabase::GetHTable(int Num, HelpTable& BufHTbl) const {
    TRACE_PROC("clsDatabase.GetHTable", Num);
    TRACE_SELF();
    if (Num < 1 || Num > lDB.HTabNum())
        RaiseError(vbErrSubscript);
    BufHTbl = lDB.HTables[Num - 1];
}

void clsDatabase::GetTable(int Num, TableEntry& BufTbl) const {
    TRACE_PROC("clsDatabase.GetTable", Num);
    TRACE_SELF();
    if (!TblOk(Num))
        RaiseError(vbErrSubscript);
    BufTbl = lDB.Tables[Num - 1];
}

int clsDatabase::DeleteRec(int TblNum, int RecNum) {
    Changed();
    TRACE_PROC("clsDatabase.DeleteRec", TblNum, RecNum);
    TRACE_SELF();
    Touch();
    return lDBMngr.DeleteRec(lDB, TblNum, RecNum);
}

void clsDatabase::SetFldAllRecsVal(int TblNum, int FldNum, const QString& lVal, int& buf) {
    Changed();
    TRACE_PROC("clsDatabase.SetFldAllRecsVal", TblNum, FldNum, HIDDEN(lVal));
    TRACE_SELF();
    buf = 0;
    if (!TblOk(TblNum))
        RaiseError(vbErrSubscript);
    TableEntry& t = lDB.Tables[TblNum - 1];
    for (int r = 0; r < t.RecNum(); ++r) {
        if (FldNum < 1 || FldNum > t.Records.fieldCount(r))
            RaiseError(vbErrSubscript);
        t.Records.setValue(r, FldNum - 1, lVal);
        ++buf;
    }
    lDBMngr.TableChanged(TblNum, 1);
}

int clsDatabase::GetHelpValNum(int HTabNum, const QString& StrVal) {
    TRACE_PROC("clsDatabase.GetHelpValNum", HTabNum, StrVal);
    TRACE_SELF();
    Touch();
    return lDBMngr.GetHelpValNum(lDB, HTabNum, StrVal);
}

QString clsDatabase::GetComplexFldVal(int TblNum, int RecNum, int FldNum) {
    TRACE_PROC("clsDatabase.GetComplexFldVal", TblNum, RecNum, FldNum);
    TRACE_SELF();
    Touch();
    return lDBMngr.GetComplexFldVal(lDB, TblNum, RecNum, FldNum);
}

int clsDatabase::FindRecord(int TblNum, int FldNum, const QString& SText, int Start, bool CaseSens) {
    TRACE_PROC("clsDatabase.FindRecord", TblNum, FldNum, HIDDEN(SText), Start, CaseSens);
    TRACE_SELF();
    Touch();
    return lDBMngr.FindRecord(lDB, TblNum, FldNum, SText, Start, CaseSens);
}

int clsDatabase::DeleteRecs(int TblNum, const QList<int>& RecNums) {
    Changed();
    TRACE_PROC("clsDatabase.DeleteRecs", TblNum);
    TRACE_SELF();
    Touch();
    return lDBMngr.DeleteRecs(lDB, TblNum, RecNums);
}

int clsDatabase::FindRecordInFields(int TblNum, const QList<int>& FldNums, const QString& SText, int Start,
                                    bool CaseSens) {
    TRACE_PROC("clsDatabase.FindRecordInFields", TblNum, HIDDEN(SText), Start, CaseSens);
    TRACE_SELF();
    Touch();
    return lDBMngr.FindRecordInFields(lDB, TblNum, FldNums, SText, Start, CaseSens);
}

bool clsDatabase::HasFileState() const {
    return lFile && lFile->HasState();
}

const DatabaseRecord& clsDatabase::Base() const {
    static const DatabaseRecord none;
    return lFile ? lFile->Base() : none;
}

const clsFileIdentity& clsDatabase::FileId() const {
    static const clsFileIdentity none;
    return lFile ? lFile->Identity() : none;
}

bool clsDatabase::HasUnsavedChanges() const {
    TRACE_PROC("clsDatabase.HasUnsavedChanges");
    return lFile && lFile->HasUnsavedChanges(lDB);
}

void clsDatabase::ReplaceDB(DatabaseRecord NewDB) {
    Changed();
    TRACE_PROC("clsDatabase.ReplaceDB");
    NewDB.Path = lDB.Path;
    if (!NewDB.Key)
        NewDB.Key = lDB.Key;
    lDB = std::move(NewDB);
    lDBMngr.DatabaseChanged();
}

TableEntry& clsDatabase::EditTable(int TblNum) {
    Changed();
    if (!TblOk(TblNum))
        RaiseError(vbErrSubscript);
    lDBMngr.TableChanged(TblNum, 1);
    return lDB.Tables[TblNum - 1];
}

int clsDatabase::AppendTable(TableEntry Table) {
    Changed();
    lDB.Tables.append(std::move(Table));
    return lDB.TabNum();
}
