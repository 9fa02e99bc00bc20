#pragma once

// Shared set-up of the backup, restore and portable-copy tests: a first run in a
// private world, users with real files, and helpers to look at files.

#include "app/ProgConfig.h"
#include "app/modMain.h"
#include "diagnostics/DbgPrint.h"
#include "records/RecordTree.h"
#include "storage/Md5.h"
#include "tests/common/TestEnv.h"
#include "tests/records/RecordsTestKit.h"
#include "users/UserAccounts.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QStringList>

inline void firstRun() {
    ChooseConfiguration();
    CreateProgramObjects();
    CurUser.clear();
    CurUsPasw.clear();
    CurUsDBPath.clear();
    ProgConfig[13] = QStringLiteral("3");
}

// Creates a user with a typed password; returns the MD5 text the program keeps.
inline QString makeUser(const QString& name, const QString& typed) {
    QString pasw = typed;
    AddUser(UsDBFilePath(name), name, pasw);
    return pasw;
}

// A record in the current user's database (in memory).
inline void addTitle(const QString& title) {
    AddRecordToDB(*CurUsDB, QStringLiteral("0"), title, QString(), QString(), QString());
}

inline QByteArray digestOf(const QString& path) {
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly))
        return QByteArray();
    return QCryptographicHash::hash(f.readAll(), QCryptographicHash::Sha256);
}

inline QString backupDir() {
    return Pt(ProgConfig[5]) + QStringLiteral("Backup");
}

inline QString copyOf(const QString& user, int k) {
    return backupDir() + QStringLiteral("/%1_%2.bdb.BACKUP").arg(user).arg(k);
}

// The backup copies in the folder, sorted.
inline QStringList copiesOnDisk() {
    QStringList l = QDir(backupDir()).entryList(QDir::Files | QDir::Hidden, QDir::Name);
    return l;
}

// The titles of the rows of a user's file, read with the user's MD5 text (CurUsDB is
// left as it was).
inline QStringList titlesInFile(const QString& path, const QString& md5) {
    const clsDatabasePtr keep = CurUsDB;
    CurUsDB = std::make_shared<clsDatabase>();
    QStringList out;
    if (LoadUser(path, GetTruePasw(md5)) == 2) {
        const int tbl = CurUsDB->FindTable(QStringLiteral("DataTable"));
        for (const QStringList& r : CurUsDB->DBView().Tables[tbl - 1].Records)
            out << r.value(3);
    } else {
        out << QStringLiteral("<does not open>");
    }
    CurUsDB = keep;
    return out;
}

// Runs a child action of this test executable; returns its exit code, -1 when it did
// not end normally. Its standard error goes to err.
inline int runChild(const TestEnv& env, const QString& action, const QStringList& args,
                    QString* err = nullptr) {
    QProcess p;
    p.setEnvironment(env.childEnv(action));
    p.start(QCoreApplication::applicationFilePath(), args);
    if (!p.waitForFinished(60000))
        return -1;
    if (err)
        *err = QString::fromUtf8(p.readAllStandardError());
    return p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1;
}

// In a child: the same world as the parent's test.
inline void childWorld() {
    SetAppPath(qEnvironmentVariable("ARGENT_TEST_PROGDIR"));
    ChooseConfiguration();
    CreateProgramObjects();
}
