// libFuzzer target for a user file's whole round: any bytes as a body, read as the user-file
// loader reads it (the structure, then the check of the user's tables); a body that is
// taken in gets the changes argentpm and the window make (a new folder, a record in it, a
// rename, a move, a delete), is written, and must read back, pass the check again and
// hold the new folder. An error raised on the way is an internal error: a finding.
//
// Build and run as fuzz_loader (see there), target fuzz_change:
//                    build-fuzz/bin/fuzz_change -max_total_time=600 fuzz/corpus

#include "diagnostics/ErrorTrap.h"
#include "records/RecordTree.h"
#include "storage/TableFile.h"
#include "storage/UserFileCheck.h"
#include "storage/clsDatabase.h"
#include "users/UserAccounts.h"

#include <cstddef>
#include <cstdint>
#include <memory>

namespace {

bool taken(const QByteArray& Body, DatabaseRecord& Out) {
    return ParseBody(Body, 0, Out, nullptr) > 0 && UserTablesCheckOut(Out);
}

void change(clsDatabase& Db, std::uint8_t Pick) {
    const QString folder = GetNewIndNum(Db);
    AddFolderToDB(QStringLiteral("Added"), 0, folder);
    const QString rec = AddRecordToDB(Db, folder, QStringLiteral("Rec"), QStringLiteral("login"),
                                      QStringLiteral("pw"), QStringLiteral("desc"));
    ChangeDataTableField(QStringLiteral("IndNum"), rec, QStringLiteral("Title"), QStringLiteral("Renamed"));
    // An existing row picked by the input: moved under the new folder, or deleted.
    const int tbl = Db.FindTable(QStringLiteral("DataTable"));
    const int rows = Db.GetTblRecNum(tbl);
    if (rows > 2) {
        const QString id = Db.GetTblFldValNm(tbl, 1 + Pick % (rows - 2), QStringLiteral("IndNum"));
        if (Pick & 1)
            MoveRecordTree(Db, id, folder);
        else if (id != folder)
            DelRecordTreeFromDataTable(QStringLiteral("IndNum"), id, QStringLiteral("Parent"));
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* Data, std::size_t Size) {
    const QByteArray body(reinterpret_cast<const char*>(Data), static_cast<qsizetype>(Size));
    DatabaseRecord rec;
    if (!taken(body, rec))
        return 0;
    try {
        CurUsDB = std::make_shared<clsDatabase>();
        CurUsDB->SetDB(rec);
        change(*CurUsDB, Size > 0 ? Data[Size - 1] : 0);
        QByteArray written;
        WriteBody(written, CurUsDB->DBView());
        DatabaseRecord back;
        if (!taken(written, back))
            __builtin_trap();
        clsDatabase again;
        again.SetDB(back);
        const int tbl = again.FindTable(QStringLiteral("DataTable"));
        bool found = false;
        for (int r = 1; r <= again.GetTblRecNum(tbl) && !found; ++r)
            found = again.GetTblFldValNm(tbl, r, QStringLiteral("Title")) == QLatin1String("Added");
        if (!found)
            __builtin_trap();
    } catch (const VbError&) {
        __builtin_trap();
    }
    CurUsDB.reset();
    return 0;
}
