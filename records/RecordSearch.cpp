#include "records/RecordSearch.h"

#include "app/MsgBox.h"
#include "app/VbConv.h"
#include "app/modLang.h"
#include "diagnostics/Globals.h"
#include "diagnostics/Trace.h"
#include "storage/clsDatabase.h"
#include "users/UserAccounts.h"

int FindIndNum = 0;
QString LastFindText;

namespace {

const bool g_registered = [] {
    argent::diag::registerGlobal("FindIndNum", &FindIndNum);
    argent::diag::registerGlobal("LastFindText", &LastFindText);
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
    TRACE_PROC("modMain.FindRecordInDB", SText, STblNum, SFNum, Start, SearchAll, CaseSens);
    int best;
    if (SearchAll) {
        const QList<int> cols = searchableColumns(pDB.GetTblCaption(STblNum));
        best = pDB.GetTblRecNum(STblNum) + 1;
        for (int col : cols) {
            // A column can only improve on the best row so far: it need not be searched
            // at all when that is the start row itself.
            if (best == Start)
                break;
            const int r = pDB.FindRecord(STblNum, col, SText, Start, CaseSens);
            // With a start of 0, a column without a match (0) counts as well; the
            // wrap-round below then searches again from row 1.
            if (r >= Start && r < best)
                best = r;
        }
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
    TRACE_PROC("modMain.FindNextRecord", SText, SearchAll, CaseSens);
    if (SText.isEmpty()) {
        MsgBox(Texts(20), vbCritical);
        return QString();
    }
    clsDatabase& db = *CurUsDB;
    const int tbl = db.FindTable(QStringLiteral("DataTable"));
    const int fld = SearchAll ? -1 : db.FindField(tbl, QStringLiteral("Title"));
    const int rec = CLng(FindRecordInDB(SText, tbl, fld, FindIndNum, db, SearchAll, CaseSens));
    if (rec == -2) {
        MsgBox(Texts(18), vbExclamation);
        return QString();
    }
    return db.GetTblFldValNm(tbl, rec, QStringLiteral("IndNum"));
}

QList<FoundRow> FindAllRecords(clsDatabase& pDB, const QString& SText, bool SearchAll, bool CaseSens) {
    TRACE_PROC("modMain.FindAllRecords", SText, SearchAll, CaseSens);
    QList<FoundRow> found;
    const int tbl = pDB.FindTable(QStringLiteral("DataTable"));
    if (tbl == 0)
        return found;
    const int titleF = pDB.FindField(tbl, QStringLiteral("Title"));
    const int idF = pDB.FindField(tbl, QStringLiteral("IndNum"));
    int start = 1;
    int prev = 0;
    for (;;) {
        const int rec = CLng(FindRecordInDB(SText, tbl, titleF, start, pDB, SearchAll, CaseSens));
        // Nothing at all, or the search came round to a row it has already met.
        if (rec == -2 || rec <= prev)
            break;
        const QStringList& r = pDB.DBView().Tables[tbl - 1].Records[rec - 1];
        found.append({rec, r.value(idF - 1), r.value(titleF - 1)});
        prev = rec;
    }
    return found;
}
