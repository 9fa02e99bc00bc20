#pragma once

// The user both window benchmarks open: ten top folders, each with ten folders of twenty
// folders (2,210 folders), and RecordsPerLeaf records in each of the 2,000 innermost ones,
// with the field lengths of real use. Filled into the open user (CurUsDB) and saved.

#include "app/modMain.h"
#include "storage/clsDatabase.h"
#include "users/UserAccounts.h"

#include <QRandomGenerator>
#include <QString>

inline QString BenchText(QRandomGenerator& rng, int minLen, int maxLen) {
    static const char* const words[] = {"mail",  "bank",   "shop",  "forum", "server", "account",
                                        "home",  "office", "cloud", "wifi",  "router", "games",
                                        "music", "travel", "news",  "work"};
    QString s;
    const int len = minLen + static_cast<int>(rng.bounded(maxLen - minLen + 1));
    while (s.size() < len)
        s += QString::fromLatin1(words[rng.bounded(16)]) + u' ';
    return s.left(len).trimmed();
}

inline void FillBenchUser(int RecordsPerLeaf) {
    clsDatabase& db = *CurUsDB;
    const int tbl = db.FindTable(QStringLiteral("DataTable"));
    QRandomGenerator rng(7);
    int id = 0;
    auto row = [&](int parent, bool folder) {
        const int r = db.AddRecord(tbl);
        db.SetTblRecord(tbl, r,
                        {QString::number(++id), QString::number(parent), folder ? "1" : "2",
                         BenchText(rng, 6, 28), folder ? QString() : BenchText(rng, 6, 14),
                         folder ? QString() : BenchText(rng, 12, 20),
                         folder || rng.bounded(2) ? QString() : BenchText(rng, 10, 100),
                         folder ? "2key" : "1key", rng.bounded(10) ? "0|0" : "255|1"});
        return id;
    };
    for (int a = 0; a < 10; ++a) {
        const int top = row(0, true);
        for (int b = 0; b < 10; ++b) {
            const int mid = row(top, true);
            for (int c = 0; c < 20; ++c) {
                const int leaf = row(mid, true);
                for (int r = 0; r < RecordsPerLeaf; ++r)
                    row(leaf, false);
            }
        }
    }
    db.SetTblTag(tbl, QString::number(id));
}
