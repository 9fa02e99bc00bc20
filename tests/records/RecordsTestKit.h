#pragma once

// Shared set-up of the record tests: a private world, a new user's empty database as
// the current one (no file needed), rows made as the editors make them, and the lines
// the operations wrote to the debug log.

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
inline void useNewDatabase(const QString& name = QStringLiteral("anna")) {
    ChooseConfiguration();
    CreateProgramObjects();
    QTemporaryDir dir;
    const QString tmp = dir.path() + QStringLiteral("/new.bdb");
    writeFileText(tmp, NewUserTemplate());
    clsDatabasePtr db;
    MDFM->LoadDB(tmp, db, QString());
    MDFM->DeleteDBFromCol(tmp);
    db->SetName(name);
    db->SetTag(name);
    CurUsDB = db;
}

inline int dataTable() {
    return CurUsDB->FindTable(QStringLiteral("DataTable"));
}

// Every row of DataTable, values in column order.
inline QList<QStringList> allRows(clsDatabase& db = *CurUsDB) {
    return db.DBView().Tables[db.FindTable(QStringLiteral("DataTable")) - 1].Records;
}

// The texts of the debug-log lines written so far (without their time prefix).
inline QStringList logTexts() {
    QStringList out;
    QFile f(DbgFilePath());
    if (!f.open(QIODevice::ReadOnly))
        return out;
    for (const QByteArray& raw : f.readAll().split('\n')) {
        QString line = QString::fromUtf8(raw);
        if (line.endsWith(u'\r'))
            line.chop(1);
        const qsizetype at = line.indexOf(QStringLiteral("): "));
        if (at >= 0)
            out << line.mid(at + 3);
    }
    return out;
}

// The log lines that start with a prefix, in order.
inline QStringList logLinesStarting(const QString& prefix) {
    QStringList out;
    for (const QString& l : logTexts())
        if (l.startsWith(prefix))
            out << l;
    return out;
}

// Removes the debug log, so that a test sees only its own lines.
inline void clearLog() {
    QFile::remove(DbgFilePath());
}
