#pragma once

// Shared set-up of the user-account tests: a first run in a private world (settings,
// DataBases/ folder), fresh program objects, and a view that records what it was told.

#include "app/ProgConfig.h"
#include "app/modMain.h"
#include "storage/Md5.h"
#include "tests/common/TestEnv.h"
#include "users/IUserView.h"
#include "users/UserAccounts.h"

#include <QDir>
#include <QStringList>

struct RecordingView : IUserView {
    QStringList calls;
    void ClearUsTree() override { calls << "tree"; }
    void ClearUsValue() override { calls << "value"; }
    void ShowUsDB(clsDatabase& db) override { calls << "show " + db.Tag(); }
};

inline void startFirstRun() {
    ChooseConfiguration();
    CreateProgramObjects();
    CurUser.clear();
    CurUsPasw.clear();
    CurUsDBPath.clear();
}

// Creates a user with a typed password; returns the MD5 text the program keeps.
inline QString makeUser(const QString& name, const QString& typed) {
    QString pasw = typed;
    AddUser(UsDBFilePath(name), name, pasw);
    return pasw;
}

// Deciphered copies left in the private temporary folder.
inline QStringList leftoverTempFiles() {
    return QDir(GetWindowsTemp()).entryList(QDir::Files | QDir::Hidden | QDir::System);
}

// Appends a record row to the current database, as the record editor would.
inline void addRow(clsDatabase& db, int id, int parent, const QString& type, const QString& title) {
    const int tbl = db.FindTable("DataTable");
    const int r = db.AddRecord(tbl);
    db.SetTblRecord(tbl, r,
                    {QString::number(id), QString::number(parent), type, title, "", "", "", "1key", "0|0"});
    db.SetTblTag(tbl, QString::number(id));
}
