#pragma once

// clsDatabase: one open database, a thin object around the table engine's structure.
// Plain lookups read the structure directly; loading, saving, searching and structural
// changes go through the object's own engine.
//
// Guarded members (SetTblName, GetTblName, GetTblRecNum, Get/SetTblFlags, Get/SetTblTag,
// GetTblCaption, GetTblRecord) quietly answer an empty value for numbers out of range.
// The direct members (GetTblFldVal, SetTblFldVal, SetTblRecord, SetFldAllRecsVal,
// GetTable, GetHTable) raise error 9 "Subscript out of range" instead. Members that
// read records or fields, and those that call the engine, note the time of the access.
// Record values may be passwords: the setters keep them out of error reports.

#include "storage/FileIdentity.h"
#include "storage/TableEngine.h"

#include <QString>
#include <QStringList>

#include <memory>

class clsUserFile;

class clsDatabase {
public:
    clsDatabase();

    DatabaseRecord DB() const;
    void SetDB(const DatabaseRecord& NewDB);
    // The structure itself, for loops over many records that must not copy or trace
    // per value (tree building, listing). Read only.
    const DatabaseRecord& DBView() const { return lDB; }
    void SetSaveNum(quint64 N) { lDB.SaveNum = N; }
    void SetLineage(const QString& L) { lDB.Lineage = L; }

    int flags() const;
    void SetFlags(int NewFlags); // 16 bits: outside -32768..32767 is error 6
    int HTabNum() const;
    QString Name() const;
    void SetName(const QString& NewName);
    QString Path() const;
    void SetPath(const QString& NewPath);
    bool Ready() const;
    void SetReady(bool NewReady);
    int TabNum() const;
    QString Tag() const;
    void SetTag(const QString& NewTag);
    QString Version() const;
    void SetTblName(int TblNum, const QString& NewName);
    int DBLastAccess() const;
    void SetDBLastAccess(int NewValue);
    QString GetTblName(int TblNum) const;
    int GetTblRecNum(int TblNum);
    int GetTblFlags(int TblNum) const;
    void SetTblFlags(int TblNum, int newval);
    QString GetTblTag(int TblNum) const;
    void SetTblTag(int TblNum, const QString& newval);
    QString GetTblCaption(int TblNum) const;
    // A copy of the record: value of field k at index k - 1.
    QStringList GetTblRecord(int TblNum, int RecNum);
    QString GetTblFldVal(int TblNum, int RecNum, int FldNum);
    QString GetTblFldValNm(int TblNum, int RecNum, const QString& FldName);
    void SetTblFldVal(int TblNum, int RecNum, int FldNum, const QString& newval);
    void SetTblFldValNm(int TblNum, int RecNum, const QString& FldName, const QString& newval);
    void SetTblRecord(int TblNum, int RecNum, const QStringList& NewRec);
    QString FindHelpVal(int TblNum, int FldNum, const QString& Val);
    int FindTable(const QString& TblName);
    int FindHTable(const QString& HTblName);
    int FindField(int TblNum, const QString& FldName);
    int GetRecNumFromVal(int TblNum, int FldNum, const QString& FldVal, int Start);
    int LoadDB(const QString& Path, const QString& Pasw);
    // The engine's result is not passed on (see clsDataFilesManager::SaveDB for one that is).
    void SaveDB(const QString& Path, const QString& Pasw, bool Compress);
    int TblsToString(const QStringList& Tbls, QString& BufStr, const TblsFilter& TblsFltr);
    QString GetHelpVal(int TblNum, const QString& FName, int RecNum);
    int AddRecord(int TblNum);
    void GetHTable(int Num, HelpTable& BufHTbl) const;
    void GetTable(int Num, TableEntry& BufTbl) const;
    int DeleteRec(int TblNum, int RecNum);
    // Sets field FldNum of every record to lVal; buf receives the number of records set.
    void SetFldAllRecsVal(int TblNum, int FldNum, const QString& lVal, int& buf);
    int GetHelpValNum(int HTabNum, const QString& StrVal);
    QString GetComplexFldVal(int TblNum, int RecNum, int FldNum);
    int FindRecord(int TblNum, int FldNum, const QString& SText, int Start, bool CaseSens);

    // Beyond the classic set: many records removed in one pass (engine DeleteRecs).
    int DeleteRecs(int TblNum, const QList<int>& RecNums);
    // FindRecord over several fields in one pass (engine FindRecordInFields).
    int FindRecordInFields(int TblNum, const QList<int>& FldNums, const QString& SText, int Start,
                           bool CaseSens);

    // The user file this database was read from and is saved to (UserFile.h), which
    // keeps the tables as last read or written (the base of a three-way merge) and the
    // file's identity; null for a database never tied to a user file.
    const std::shared_ptr<clsUserFile>& UserFile() const { return lFile; }
    void SetUserFile(std::shared_ptr<clsUserFile> File) { lFile = std::move(File); }
    bool HasFileState() const;
    const DatabaseRecord& Base() const;
    const clsFileIdentity& FileId() const;
    // True when the tables in memory differ from the base (always false without one).
    bool HasUnsavedChanges() const;
    // Replaces the structure (after a merge), keeping path and access time.
    void ReplaceDB(DatabaseRecord NewDB);
    // Write access to one table other than the records (the field table, FieldTable.h);
    // the engine forgets what it kept of it. AppendTable answers the new table's number.
    TableEntry& EditTable(int TblNum);
    int AppendTable(TableEntry Table);
    // Changes with every change of the tables (a number no other database had before), so
    // that an index built from them knows when it is out of date.
    quint64 Generation() const { return lGeneration; }

private:
    void Touch();
    void Changed();
    bool TblOk(int TblNum) const { return TblNum >= 1 && TblNum <= lDB.TabNum(); }

    DatabaseRecord lDB;
    int lDBLastAccess = 0;
    quint64 lGeneration = 0;
    TableEngine lDBMngr;
    std::shared_ptr<clsUserFile> lFile;
};

using clsDatabasePtr = std::shared_ptr<clsDatabase>;
