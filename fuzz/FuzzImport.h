#pragma once

// What every import parser must give, whatever the bytes: either rows where every row's
// folder stands before it and is a folder, counted right, with no value over the limit of
// one value; or a refusal with an error and nothing read.

#include "records/ImportExport.h"

#include <QCoreApplication>

#include <cstddef>
#include <cstdint>

inline void checkImport(bool Ok, const ImpData& D, const ImpError& E) {
    if (!Ok) {
        if (E.Code == impOk || !D.Rows.isEmpty())
            __builtin_trap();
        return;
    }
    int folders = 0;
    for (qsizetype i = 0; i < D.Rows.size(); ++i) {
        const ImpRow& r = D.Rows[i];
        if (r.Parent >= i || r.Parent < -1 || (r.Parent >= 0 && !D.Rows[r.Parent].Folder))
            __builtin_trap();
        if (r.Title.size() > kImpMaxValue || r.Login.size() > kImpMaxValue ||
            r.Password.size() > kImpMaxValue)
            __builtin_trap();
        folders += r.Folder ? 1 : 0;
    }
    if (folders != D.Folders || D.Rows.size() - folders != D.Records)
        __builtin_trap();
}

// The language texts are looked up by the parsers' callers only; the parsers need an
// application object for nothing but Qt's own conversions.
inline void fuzzInit() {
    static int argc = 1;
    static char name[] = "fuzz";
    static char* argv[] = {name, nullptr};
    static QCoreApplication app(argc, argv);
}
