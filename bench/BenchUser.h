#pragma once

// What the benchmarks make their users and data with: the program set up in a folder,
// texts of the lengths of real use drawn from a seeded generator (the same seed gives the
// same user on every run), the user both window benchmarks open, and the median.

#include "app/ProgConfig.h"
#include "app/StrMass.h"
#include "app/modMain.h"
#include "storage/clsDatabase.h"
#include "users/UserAccounts.h"

#include <QElapsedTimer>
#include <QFile>
#include <QRandomGenerator>
#include <QString>

#include <algorithm>
#include <cstring>
#include <vector>

// The program's objects with empty settings whose databases folder is Dir.
inline void BenchProgramIn(const QString& Dir) {
    ProgConfig.Reset();
    for (int i = 1; i <= 20; ++i)
        AddElemToStrMass(ProgConfig, QString());
    ProgConfig[kCfgDBPath] = Dir;
    ProgCfgPath = Dir + QStringLiteral("/config.dat");
    CreateProgramObjects();
}

// BenchProgramIn with everything else of the program in Dir too: the program folder (the
// debug log goes there) and the runtime folder.
inline void BenchProgramAllIn(const QString& Dir) {
    SetAppPath(Dir);
    SetExeFolderPath(Dir);
    qputenv("XDG_RUNTIME_DIR", QFile::encodeName(Dir));
    BenchProgramIn(Dir);
}

// Words joined by spaces, cut to a length between MinLen and MaxLen.
inline QString BenchWords(QRandomGenerator& Rng, int MinLen, int MaxLen) {
    static const char* const kWords[] = {"mail",   "bank",   "shop",  "forum", "server", "account", "home",
                                         "office", "cloud",  "music", "video", "travel", "energy",  "phone",
                                         "tax",    "health", "games", "news",  "backup", "router"};
    const int len = MinLen + static_cast<int>(Rng.bounded(MaxLen - MinLen + 1));
    QString s;
    while (s.size() < len) {
        if (!s.isEmpty())
            s += u' ';
        s += QLatin1String(kWords[Rng.bounded(20)]);
    }
    s.truncate(len);
    return s;
}

inline QString BenchRandomText(QRandomGenerator& Rng, int MinLen, int MaxLen, const char* Alphabet) {
    const int len = MinLen + static_cast<int>(Rng.bounded(MaxLen - MinLen + 1));
    const int n = static_cast<int>(std::strlen(Alphabet));
    QString s(len, Qt::Uninitialized);
    for (int i = 0; i < len; ++i)
        s[i] = QLatin1Char(Alphabet[Rng.bounded(n)]);
    return s;
}

// A login, every other one a mail address.
inline QString BenchLogin(QRandomGenerator& Rng) {
    return BenchRandomText(Rng, 5, 12, "abcdefghijklmnopqrstuvwxyz0123456789._") +
           (Rng.bounded(2) ? QStringLiteral("@example.org") : QString());
}

inline QString BenchPasw(QRandomGenerator& Rng) {
    return BenchRandomText(Rng, 12, 20,
                           "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789!#$%&*+-=?@^_~");
}

inline double BenchMs(const QElapsedTimer& T) {
    return static_cast<double>(T.nsecsElapsed()) / 1e6;
}

inline double BenchMedian(std::vector<double> V) {
    std::sort(V.begin(), V.end());
    return V[V.size() / 2];
}

// The titles of the window benchmarks' user (a word list of its own).
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

// The user both window benchmarks open: ten top folders, each with ten folders of twenty
// folders (2,210 folders), and RecordsPerLeaf records in each of the 2,000 innermost ones,
// with the field lengths of real use. Filled into the open user (CurUsDB).
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
