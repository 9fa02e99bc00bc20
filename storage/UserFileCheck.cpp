#include "storage/UserFileCheck.h"

#include "diagnostics/Trace.h"
#include "storage/RecordStore.h"

namespace {

int fieldIndex(const TableEntry& T, QLatin1String Name) {
    for (qsizetype i = 0; i < T.FldNames.size(); ++i)
        if (T.FldNames[i].compare(Name, Qt::CaseInsensitive) == 0)
            return static_cast<int>(i);
    return -1;
}

// Identifiers handed out before the count runs out: far more than any file holds, and
// more than a billion left after it.
constexpr long long kMaxLastId = 1000000000;

// A plain decimal number from 0 to kMaxLastId, written as the program writes it.
bool countable(const QString& Text, long long& Out) {
    if (Text.isEmpty() || Text.size() > 10 || (Text.size() > 1 && Text[0] == u'0'))
        return false;
    for (QChar c : Text)
        if (c < u'0' || c > u'9')
            return false;
    Out = Text.toLongLong();
    return Out <= kMaxLastId;
}

} // namespace

bool UserTablesCheckOut(const DatabaseRecord& Db) {
    TRACE_PROC("modUserFile.UserTablesCheckOut");
    const TableEntry* data = nullptr;
    for (const TableEntry& t : Db.Tables)
        if (!data && t.Name.compare(QLatin1String("DataTable"), Qt::CaseInsensitive) == 0)
            data = &t;
    if (!data)
        return false;
    // Every field the program writes into a new row: one missing would drop what the
    // user typed without a word.
    static const char* const kFields[] = {"IndNum",   "Parent",      "Type",  "Title", "Login",
                                          "Password", "Description", "Image", "Flags"};
    for (const char* f : kFields)
        if (fieldIndex(*data, QLatin1String(f)) < 0)
            return false;
    const int idF = fieldIndex(*data, QLatin1String("IndNum"));
    long long last = 0;
    if (!countable(data->Tag, last))
        return false;
    const RecordStore& rows = data->Records;
    for (int r = 0; r < rows.size(); ++r) {
        long long id = 0;
        if (rows.intValue(r, idF, id) && (id < 1 || id > last))
            return false;
    }
    return true;
}
