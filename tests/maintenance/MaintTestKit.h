#pragma once

// Shared set-up of the backup, restore and portable-copy tests: a first run in a
// private world with user anna open, and helpers to look at files.

#include "maintenance/Autobackup.h"
#include "records/RecordTree.h"
#include "tests/records/RecordsTestKit.h"

#include <QCryptographicHash>
#include <QDir>

inline const QString kAnnaPw = QStringLiteral("anna password");

// A first run, keeping three backup copies.
inline void firstRun() {
    ChooseConfiguration();
    CreateProgramObjects();
    CurUser.clear();
    CurUsPasw.clear();
    CurUsDBPath.clear();
    ProgConfig[13] = QStringLiteral("3");
}

// Creates a user; returns the MD5 text the program keeps for its password.
inline QString makeUser(const QString& name, const QString& typed = kAnnaPw) {
    QString pasw = typed;
    AddUser(UsDBFilePath(name), name, pasw);
    return pasw;
}

// A first run with anna logged in.
inline QString openAnna() {
    firstRun();
    const QString md5 = makeUser(QStringLiteral("anna"));
    FullUserLoad(QStringLiteral("anna"), md5);
    return md5;
}

inline void addTitle(const QString& title) {
    AddRecordToDB(*CurUsDB, QStringLiteral("0"), title, QString(), QString(), QString());
}

inline QByteArray digestOf(const QString& path) {
    return QCryptographicHash::hash(readAllOf(path), QCryptographicHash::Sha256);
}

inline QString backupDir() {
    return Pt(ProgConfig[5]) + QStringLiteral("Backup");
}

inline QString copyOf(const QString& user, int k) {
    return backupDir() + QStringLiteral("/%1_%2.bdb.BACKUP").arg(user).arg(k);
}

inline QStringList copiesOnDisk() {
    return QDir(backupDir()).entryList(QDir::Files | QDir::Hidden, QDir::Name);
}

// The titles of the rows of a user's file, read with the user's MD5 text (CurUsDB is
// left as it was).
inline QStringList titlesInFile(const QString& path, const QString& md5) {
    const clsDatabasePtr keep = CurUsDB;
    CurUsDB = std::make_shared<clsDatabase>();
    QStringList out{QStringLiteral("<does not open>")};
    if (LoadUser(path, GetTruePasw(md5)) == 2) {
        out.clear();
        for (const QStringList& r : allRows())
            out << r.value(3);
    }
    CurUsDB = keep;
    return out;
}
