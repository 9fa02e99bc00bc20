#pragma once

// clsDataFilesManager: every database the program has opened, keyed by the path it was
// opened from, so that one file is never loaded twice; the one place through which
// databases are read from and written to disk (the inner layer only: callers apply the
// outer cipher). One instance, MDFM, lives for the whole run.
//
// Result codes: 1 done on an existing key or newly added as asked, 2 the other case,
// 28 already loaded, -2 no such file; below that the engine's own load results.

#include "storage/clsDatabase.h"

#include <QList>
#include <QString>
#include <QStringList>

#include <utility>

// A keyed collection in insertion order; keys compare without regard to letter case.
class DBCollection {
public:
    int Count() const { return static_cast<int>(m_items.size()); }
    // Position from 1; out of range is error 9.
    clsDatabasePtr Item(int Index) const;
    // By key; an unknown key is error 5.
    clsDatabasePtr Item(const QString& Key) const;
    QString KeyAt(int Index) const;
    // Adding a key that is there already is error 5.
    void Add(const clsDatabasePtr& Db, const QString& Key);
    void Remove(const QString& Key);
    int IndexOf(const QString& Key) const;

    // The keys as an error report lists them (plain reads, no allocation).
    static long long DumpCount(const void* Col);
    static const QString* DumpKey(const void* Col, long long i);

private:
    QList<std::pair<QString, clsDatabasePtr>> m_items;
};

// True when the collection holds an item under the key (the look-up's error is swallowed).
bool FindObjInCol(const DBCollection& Collect, const QString& ObjKey);

class clsDataFilesManager {
public:
    clsDataFilesManager();

    int GetLoadedDBNum() const;
    // BufCol points at the manager's own collection afterwards, not at a copy.
    void GetLoadedDBCol(DBCollection*& BufCol);
    int LoadDB(const QString& Path, clsDatabasePtr& DB, const QString& Pasw);
    int UpdateDB(clsDatabasePtr& DB, const QString& Path);
    int AddDB(clsDatabasePtr& DB, const QString& Path);
    int DeleteDBFromCol(const QString& Path);
    int ReadTbls(clsDatabasePtr& DB, const QString& Path, const QStringList& Tbls);
    int SaveDB(const clsDatabasePtr& DB, const QString& Path, const QString& Pasw, bool Compress);
    int SaveAllDB(const QString& Pasw, bool Compress);
    // Saves the first database whose Path equals DBPath exactly (letter case counts here).
    int SaveDBOnPath(const QString& DBPath, const QString& Pasw, bool Compress);
    bool IsDBLoaded(const QString& DBPath) const;

private:
    void SetDBFlsCol(const DBCollection& NewCol);
    DBCollection DBFlsCol;
};
