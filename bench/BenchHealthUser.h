#pragma once

// The user of the password health benchmarks: the window benchmarks' user (FillBenchUser)
// whose passwords are made the hard way for the estimator: 80 % random 12 to 20 characters
// (every one distinct), 8 % taken from 500 shared ones, 5 % words, 3 % six digits, 4 %
// empty; 30 % of the records keep one to three earlier passwords from the last three years.

#include "bench/BenchUser.h"
#include "storage/FieldTable.h"

inline // Gives the records of the open user the passwords and histories described above.
    void
    ShapeHealthPasswords() {
    clsDatabase& db = *CurUsDB;
    const int tbl = db.FindTable(QStringLiteral("DataTable"));
    const int fType = db.FindField(tbl, QStringLiteral("Type"));
    const int fPasw = db.FindField(tbl, QStringLiteral("Password"));
    const int fId = db.FindField(tbl, QStringLiteral("IndNum"));
    QRandomGenerator rng(22);
    QStringList pool;
    for (int i = 0; i < 500; ++i)
        pool << BenchPasw(rng);
    const QDateTime now = QDateTime::currentDateTimeUtc();
    bool made = false;
    for (int r = 1; r <= db.GetTblRecNum(tbl); ++r) {
        if (db.GetTblFldVal(tbl, r, fType) != QLatin1String("2"))
            continue;
        const int kind = static_cast<int>(rng.bounded(100));
        QString pasw;
        if (kind < 80)
            pasw = BenchPasw(rng);
        else if (kind < 88)
            pasw = pool[rng.bounded(500)];
        else if (kind < 93)
            pasw = BenchWords(rng, 8, 16);
        else if (kind < 96)
            pasw = BenchRandomText(rng, 6, 6, "0123456789");
        db.SetTblFldVal(tbl, r, fPasw, pasw);
        if (rng.bounded(10) >= 3 || pasw.isEmpty())
            continue;
        const QString id = db.GetTblFldVal(tbl, r, fId);
        if (!made) {
            AddPaswHistory(db, id, QStringLiteral("first"), now, 10);
            made = true;
        }
        TableEntry& t = db.EditTable(FieldTableNum(db.DBView()));
        const int n = 1 + static_cast<int>(rng.bounded(3));
        for (int k = 0; k < n; ++k) {
            const QDateTime when = now.addSecs(-static_cast<qint64>(rng.bounded(3 * 365 * 86400)));
            t.Records.append({QString::number(rng.generate64(), 16), id, QString::number(rffHistory),
                              QString(), BenchPasw(rng), when.toString(Qt::ISODate)});
        }
    }
}
