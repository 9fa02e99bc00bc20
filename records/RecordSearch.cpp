#include "records/RecordSearch.h"

#include <algorithm>

#include "app/MsgBox.h"
#include "app/VbConv.h"
#include "app/modLang.h"
#include "diagnostics/Globals.h"
#include "diagnostics/Trace.h"
#include "storage/FieldTable.h"
#include "storage/clsDatabase.h"
#include "users/UserAccounts.h"

int FindIndNum = 0;
QString LastFindText;

namespace {

const bool g_registered = [] {
    argent::diag::registerGlobal("FindIndNum", &FindIndNum);
    // What was searched for may be a password: a report shows only that it exists.
    argent::diag::registerGlobalHidden("LastFindText");
    argent::diag::registerModuleVar("modMain", "FindIndNum", &FindIndNum);
    argent::diag::registerModuleHidden("modMain", "LastFindText");
    return true;
}();

// The columns of a caption ("Name Type" entries joined by the field separator) that the
// search in every column looks at: those whose type lacks bit 4. Numbers from 1.
QList<int> searchableColumns(const QString& Caption) {
    QList<int> cols;
    if (Caption.isEmpty())
        return cols;
    const QStringList entries = Caption.split(QChar(kFldSep));
    for (qsizetype i = 0; i < entries.size(); ++i) {
        const QString& e = entries[i];
        const int type = CLng(Val(e.mid(e.lastIndexOf(u' ') + 1)));
        if ((type & 4) == 0)
            cols.append(static_cast<int>(i + 1));
    }
    return cols;
}

} // namespace

QString FindRecordInDB(const QString& SText, int STblNum, int SFNum, int& Start, clsDatabase& pDB,
                       bool SearchAll, bool CaseSens) {
    TRACE_PROC("modMain.FindRecordInDB", HIDDEN(SText), STblNum, SFNum, Start, SearchAll, CaseSens);
    int best;
    if (SearchAll) {
        // The smallest row that any searchable column matches from Start on, in one pass
        // over the rows: the row that searching column by column and keeping the
        // smallest result gives, but the pass stops at the first matching row. (With a
        // start of 0, a column without any match would make that result 0 and send the
        // search round to row 1, which finds what this pass finds: the row returned and
        // the new start row are the same either way.)
        const QList<int> cols = searchableColumns(pDB.GetTblCaption(STblNum));
        best = pDB.GetTblRecNum(STblNum) + 1;
        const int r = cols.isEmpty() ? 0 : pDB.FindRecordInFields(STblNum, cols, SText, Start, CaseSens);
        TRACE_LOCAL(r);
        if (r >= 1 && r >= Start && r < best)
            best = r;
        // The web address and the custom fields that are not hidden (FieldTable.h).
        const QList<int> extra = RowsWithMatchingExtras(pDB.DBView(), STblNum, SText, CaseSens);
        const auto at = std::lower_bound(extra.cbegin(), extra.cend(), std::max(Start, 1));
        if (at != extra.cend() && *at < best)
            best = *at;
    } else {
        best = pDB.FindRecord(STblNum, SFNum, SText, Start, CaseSens);
    }
    if (best == pDB.GetTblRecNum(STblNum) + 1)
        best = 0;
    if (Start != 1 && best == 0) {
        Start = 1;
        return FindRecordInDB(SText, STblNum, SFNum, Start, pDB, SearchAll, CaseSens);
    }
    if (best == 0)
        return QStringLiteral("-2");
    Start = best + 1;
    return QString::number(best);
}

QString FindNextRecord(const QString& SText, bool SearchAll, bool CaseSens) {
    TRACE_PROC("modMain.FindNextRecord", HIDDEN(SText), SearchAll, CaseSens);
    if (SText.isEmpty()) {
        MsgBox(Texts(20), vbCritical);
        return QString();
    }
    clsDatabase& db = *CurUsDB;
    const int tbl = db.FindTable(QStringLiteral("DataTable"));
    TRACE_LOCAL(tbl);
    const int fld = SearchAll ? -1 : db.FindField(tbl, QStringLiteral("Title"));
    TRACE_LOCAL(fld);
    const int rec = CLng(FindRecordInDB(SText, tbl, fld, FindIndNum, db, SearchAll, CaseSens));
    TRACE_LOCAL(rec);
    if (rec == -2) {
        MsgBox(Texts(18), vbExclamation);
        return QString();
    }
    return db.GetTblFldValNm(tbl, rec, QStringLiteral("IndNum"));
}

QList<FoundRow> FindAllRecords(clsDatabase& pDB, const QString& SText, bool SearchAll, bool CaseSens) {
    TRACE_PROC("modMain.FindAllRecords", HIDDEN(SText), SearchAll, CaseSens);
    QList<FoundRow> found;
    const int tbl = pDB.FindTable(QStringLiteral("DataTable"));
    TRACE_LOCAL(tbl);
    if (tbl == 0)
        return found;
    const int titleF = pDB.FindField(tbl, QStringLiteral("Title"));
    TRACE_LOCAL(titleF);
    const int idF = pDB.FindField(tbl, QStringLiteral("IndNum"));
    TRACE_LOCAL(idF);
    // What pressing "find" from row 1 until the search comes round again would list, in
    // one pass: each search goes on from the row after the last match.
    const QList<int> cols = SearchAll ? searchableColumns(pDB.GetTblCaption(tbl)) : QList<int>{titleF};
    if (cols.isEmpty())
        return found;
    const QList<int> extra =
        SearchAll ? RowsWithMatchingExtras(pDB.DBView(), tbl, SText, CaseSens) : QList<int>();
    qsizetype nextExtra = 0;
    for (int start = 1;;) {
        int rec = pDB.FindRecordInFields(tbl, cols, SText, start, CaseSens);
        TRACE_LOCAL(rec);
        while (nextExtra < extra.size() && extra[nextExtra] < start)
            ++nextExtra;
        if (nextExtra < extra.size() && (rec == 0 || extra[nextExtra] < rec))
            rec = extra[nextExtra];
        if (rec == 0)
            break;
        const RecordStore& r = pDB.DBView().Tables[tbl - 1].Records;
        found.append({rec, r.value(rec - 1, idF - 1), r.value(rec - 1, titleF - 1)});
        start = rec + 1;
    }
    return found;
}
