#pragma once

// Shared set-up of the record tests: a new user's empty database as the current one
// (no file needed), rows of DataTable, and the lines written to the debug log.

#include "app/ProgConfig.h"
#include "app/modMain.h"
#include "diagnostics/DbgPrint.h"
#include "diagnostics/ErrorTrap.h"
#include "storage/clsDatabase.h"
#include "tests/common/TestEnv.h"
#include "users/UserAccounts.h"

#include <QFile>
#include <QStringList>
#include <QTemporaryDir>

// A new user's database (the template, as AddUser starts it) becomes CurUsDB.
inline void useNewDatabase() {
    ChooseConfiguration();
    CreateProgramObjects();
    QTemporaryDir dir;
    const QString tmp = dir.path() + QStringLiteral("/new.bdb");
    writeFileText(tmp, NewUserTemplate());
    clsDatabasePtr db;
    MDFM->LoadDB(tmp, db, QString());
    MDFM->DeleteDBFromCol(tmp);
    db->SetName(QStringLiteral("anna"));
    db->SetTag(QStringLiteral("anna"));
    CurUsDB = db;
}

inline int dataTable() {
    return CurUsDB->FindTable(QStringLiteral("DataTable"));
}

inline QList<QStringList> allRows(clsDatabase& db = *CurUsDB) {
    return db.DBView().Tables[db.FindTable(QStringLiteral("DataTable")) - 1].Records.rows();
}

// The debug-log lines starting with prefix, without their time prefix, in order.
inline QStringList logLines(const QString& prefix = QString()) {
    QStringList out;
    for (const QByteArray& raw : readAllOf(DbgFilePath()).split('\n')) {
        const QString line = QString::fromUtf8(raw).remove(u'\r');
        const qsizetype at = line.indexOf(QStringLiteral("): "));
        if (at >= 0 && line.mid(at + 3).startsWith(prefix))
            out << line.mid(at + 3);
    }
    return out;
}

inline void clearLog() {
    QFile::remove(DbgFilePath());
}
