#include "records/RecordTree.h"

#include "app/VbConv.h"
#include "app/modLang.h"
#include "diagnostics/DbgPrint.h"
#include "diagnostics/ErrorTrap.h"
#include "diagnostics/Trace.h"
#include "storage/FieldTable.h"
#include "storage/TableFile.h"
#include "storage/clsDatabase.h"
#include "users/UserAccounts.h"

#include <QHash>

#include <QList>

#include <algorithm>
#include <climits>
#include <optional>
#include <unordered_map>
#include <vector>

namespace {

const QString kDataTable = QStringLiteral("DataTable");

// The value of column FldNum (from 1) of a record in its stored form (RecordStore.h:
// equal texts have equal bytes), or nothing when the record is short.
std::optional<QByteArrayView> fieldOf(const RecordStore& Recs, int Row, int FldNum) {
    if (FldNum < 1 || FldNum > Recs.fieldCount(Row))
        return std::nullopt;
    return Recs.escaped(Row, FldNum - 1);
}

// Type of numeric value 2: a record.
bool isRecordType(QByteArrayView Type) {
    if (Type.size() == 1)
        return Type[0] == '2';
    return Val(QString::fromUtf8(Type)) == 2.0;
}

// A plain decimal number (no sign, no leading zero, within 32 bits), or -1.
int plainNumber(QByteArrayView Text) {
    const qsizetype len = Text.size();
    if (len == 0 || len > 10 || (len > 1 && Text[0] == '0'))
        return -1;
    long long v = 0;
    for (char c : Text) {
        if (c < '0' || c > '9')
            return -1;
        v = v * 10 + (c - '0');
    }
    return v <= INT_MAX ? static_cast<int>(v) : -1;
}

// The rows of a table by the value of one field (the parent link): the first row with a
// value, and after each row the next one with the same value, in table order. Values
// are compared as texts; those that are plain numbers of a sensible size (identifiers)
// are found by number without hashing, any other by its text. Built in one pass.
class ChildIndex {
public:
    ChildIndex(const RecordStore& Recs, int FldNum) : m_next(static_cast<std::size_t>(Recs.size()), -1) {
        const int n = Recs.size();
        m_limit = static_cast<int>(std::min<qsizetype>(32LL * n + 4096, INT_MAX - 1));
        for (int i = n - 1; i >= 0; --i) {
            const std::optional<QByteArrayView> v = fieldOf(Recs, i, FldNum);
            if (!v)
                continue;
            const int k = plainNumber(*v);
            int* head;
            if (k >= 0 && k <= m_limit) {
                if (static_cast<std::size_t>(k) >= m_byNumber.size())
                    m_byNumber.resize(static_cast<std::size_t>(k) + 1, -1);
                head = &m_byNumber[static_cast<std::size_t>(k)];
            } else {
                head = &m_byText.try_emplace(v->toByteArray(), -1).first->second;
            }
            m_next[static_cast<std::size_t>(i)] = *head;
            *head = i;
        }
    }
    int First(QByteArrayView Value) const {
        const int k = plainNumber(Value);
        if (k >= 0 && k <= m_limit)
            return static_cast<std::size_t>(k) < m_byNumber.size() ? m_byNumber[static_cast<std::size_t>(k)]
                                                                   : -1;
        auto it = m_byText.find(Value.toByteArray());
        return it == m_byText.end() ? -1 : it->second;
    }
    int Next(int Row) const { return m_next[static_cast<std::size_t>(Row)]; }

private:
    int m_limit = 0;
    std::vector<int> m_byNumber;
    std::unordered_map<QByteArray, int> m_byText;
    std::vector<int> m_next;
};

} // namespace

QString GetTblTrueCapText(const QString& InTxt) {
    TRACE_PROC("modMain.GetTblTrueCapText", InTxt);
    int id = 0;
    TRACE_LOCAL(id);
    if (InTxt == QLatin1String("Title"))
        id = 13;
    else if (InTxt == QLatin1String("Login"))
        id = 14;
    else if (InTxt == QLatin1String("Password"))
        id = 15;
    else if (InTxt == QLatin1String("Description"))
        id = 16;
    if (id == 0)
        return InTxt;
    const QString text = Texts(id);
    TRACE_LOCAL(text);
    return text.isEmpty() ? InTxt : text;
}

bool ParseIndNum(const QString& Text, QString& Id) {
    bool ok = false;
    const int v = Text.toInt(&ok);
    if (!ok || v < 0)
        return false;
    Id = QString::number(v);
    return true;
}

QString GetNewIndNum(clsDatabase& pDB) {
    TRACE_PROC("modMain.GetNewIndNum");
    const int tbl = pDB.FindTable(kDataTable);
    TRACE_LOCAL(tbl);
    const int last = CLng(pDB.GetTblTag(tbl));
    TRACE_LOCAL(last);
    if (last == INT_MAX)
        RaiseError(vbErrOverflow);
    pDB.SetTblTag(tbl, QString::number(last + 1));
    return pDB.GetTblTag(tbl);
}

void AddFolderToDB(const QString& FoldName, int Parent, const QString& FoldID) {
    TRACE_PROC("modMain.AddFolderToDB", FoldName, Parent, FoldID);
    clsDatabase& db = *CurUsDB;
    const int tbl = db.FindTable(kDataTable);
    TRACE_LOCAL(tbl);
    db.AddRecord(tbl);
    const int rec = db.GetTblRecNum(tbl);
    TRACE_LOCAL(rec);
    db.SetTblFldValNm(tbl, rec, QStringLiteral("IndNum"), FoldID);
    db.SetTblFldValNm(tbl, rec, QStringLiteral("Parent"), QString::number(Parent));
    db.SetTblFldValNm(tbl, rec, QStringLiteral("Type"), QStringLiteral("1"));
    db.SetTblFldValNm(tbl, rec, QStringLiteral("Title"), FoldName);
    db.SetTblFldValNm(tbl, rec, QStringLiteral("Image"), QStringLiteral("2key"));
    db.SetTblFldValNm(tbl, rec, QStringLiteral("Flags"), QStringLiteral("0|0"));
}

QString AddRecordToDB(clsDatabase& pDB, const QString& rParent, const QString& rTitle, const QString& rLogin,
                      const QString& rPasw, const QString& rDesc) {
    // The description may hold what another program kept hidden (imported custom fields).
    TRACE_PROC("modMain.AddRecordToDB", rParent, rTitle, rLogin, HIDDEN(rPasw), HIDDEN(rDesc));
    const int tbl = pDB.FindTable(kDataTable);
    TRACE_LOCAL(tbl);
    pDB.AddRecord(tbl);
    const int rec = pDB.GetTblRecNum(tbl);
    TRACE_LOCAL(rec);
    // The identifier comes from the same database the row goes to.
    const QString id = GetNewIndNum(pDB);
    TRACE_LOCAL(id);
    pDB.SetTblFldValNm(tbl, rec, QStringLiteral("IndNum"), id);
    pDB.SetTblFldValNm(tbl, rec, QStringLiteral("Parent"), rParent);
    pDB.SetTblFldValNm(tbl, rec, QStringLiteral("Type"), QStringLiteral("2"));
    pDB.SetTblFldValNm(tbl, rec, QStringLiteral("Title"), rTitle);
    pDB.SetTblFldValNm(tbl, rec, QStringLiteral("Login"), rLogin);
    pDB.SetTblFldValNm(tbl, rec, QStringLiteral("Password"), rPasw);
    pDB.SetTblFldValNm(tbl, rec, QStringLiteral("Description"), rDesc);
    pDB.SetTblFldValNm(tbl, rec, QStringLiteral("Image"), QStringLiteral("1key"));
    pDB.SetTblFldValNm(tbl, rec, QStringLiteral("Flags"), QStringLiteral("0|0"));
    return id;
}

void ChangeDataTableField(const QString& UniqFName, const QString& UniqFVal, const QString& FldName,
                          const QString& newval) {
    TRACE_PROC("modMain.ChangeDataTableField", UniqFName, UniqFVal, FldName, HIDDEN(newval));
    clsDatabase& db = *CurUsDB;
    const int tbl = db.FindTable(kDataTable);
    TRACE_LOCAL(tbl);
    const int fld = db.FindField(tbl, UniqFName);
    TRACE_LOCAL(fld);
    const int rec = db.GetRecNumFromVal(tbl, fld, UniqFVal, 1);
    TRACE_LOCAL(rec);
    // Row 0 (not found) changes nothing.
    db.SetTblFldValNm(tbl, rec, FldName, newval);
}

int DelRecordTreeFromDataTable(const QString& UniqFName, const QString& UniqFVal,
                               const QString& SearchFName) {
    TRACE_PROC("modMain.DelRecordTreeFromDataTable", UniqFName, UniqFVal, SearchFName);
    clsDatabase& db = *CurUsDB;
    const int tbl = db.FindTable(kDataTable);
    TRACE_LOCAL(tbl);
    const int uniqFNum = db.FindField(tbl, UniqFName);
    TRACE_LOCAL(uniqFNum);
    const int curRecNum = db.GetRecNumFromVal(tbl, uniqFNum, UniqFVal, 1);
    TRACE_LOCAL(curRecNum);
    const int searchFNum = db.FindField(tbl, SearchFName);
    TRACE_LOCAL(searchFNum);
    return DelRecordTree(tbl, uniqFNum, UniqFVal, searchFNum, curRecNum, db);
}

int DelRecordTree(int TblNum, int UniqFNum, const QString& UniqFVal, int SearchFNum, int CurRecNum,
                  clsDatabase& pDB) {
    TRACE_PROC("modMain.DelRecordTree", TblNum, UniqFNum, UniqFVal, SearchFNum, CurRecNum);
    const DatabaseRecord& db = pDB.DBView();
    if (TblNum < 1 || TblNum > db.TabNum())
        return 0;
    const TableEntry& t = db.Tables[TblNum - 1];
    const RecordStore& recs = t.Records;
    const int n = t.RecNum();
    TRACE_LOCAL(n);
    const int titleFNum = pDB.FindField(TblNum, QStringLiteral("Title"));
    TRACE_LOCAL(titleFNum);

    const ChildIndex kids(recs, SearchFNum);

    // Depth first, children before their parent, siblings in table order: the order in
    // which deleting the first remaining child again and again would meet them.
    struct Step {
        int row;   // from 0; -1 for a start row that is not there
        int child; // the next child to look at, -1 when there is none
    };
    std::vector<char> onPath(static_cast<std::size_t>(n), 0), gone(static_cast<std::size_t>(n), 0);
    std::vector<Step> stack;
    QList<int> order; // rows to delete, in deletion order, from 0
    const int start = CurRecNum >= 1 && CurRecNum <= n ? CurRecNum - 1 : -1;
    TRACE_LOCAL(start);
    const QByteArray uniq = StoredForm(UniqFVal);
    stack.push_back({start, kids.First(uniq)});
    if (start >= 0)
        onPath[static_cast<std::size_t>(start)] = 1;
    while (!stack.empty()) {
        Step& s = stack.back();
        int c = s.child;
        TRACE_LOCAL(c);
        while (c >= 0 && (onPath[static_cast<std::size_t>(c)] || gone[static_cast<std::size_t>(c)]))
            c = kids.Next(c);
        if (c >= 0) {
            s.child = kids.Next(c);
            const std::optional<QByteArrayView> cid = fieldOf(recs, c, UniqFNum);
            onPath[static_cast<std::size_t>(c)] = 1;
            stack.push_back({c, cid ? kids.First(*cid) : -1});
            continue;
        }
        const int row = s.row;
        TRACE_LOCAL(row);
        stack.pop_back();
        if (row >= 0) {
            onPath[static_cast<std::size_t>(row)] = 0;
            gone[static_cast<std::size_t>(row)] = 1;
        }
        order.append(row);
    }

    // The log first, then one pass that removes every row: a log that cannot be written
    // stops the deletion before anything is gone.
    QList<int> recNums;
    QStringList lines;
    QSet<QString> ids; // their fields go with them
    recNums.reserve(order.size());
    lines.reserve(order.size());
    for (qsizetype k = 0; k < order.size(); ++k) {
        const int row = order[k];
        TRACE_LOCAL(row);
        lines.append(QStringLiteral("-= DELETE: ") + (row >= 0 ? recs.value(row, titleFNum - 1) : QString()));
        if (row >= 0) {
            recNums.append(row + 1);
            if (UniqFNum >= 1)
                ids.insert(recs.value(row, UniqFNum - 1));
        }
    }
    DbgPrintLines(lines);
    if (recNums.isEmpty())
        return 0;
    DropRecExtras(pDB, ids);
    return pDB.DeleteRecs(TblNum, recNums);
}

void GetStatBarData(clsDatabase& pDB, const QString& IndNum, int& NumFolds, int& NumRecs) {
    TRACE_PROC("modMain.GetStatBarData", IndNum, NumFolds, NumRecs);
    const int tbl = pDB.FindTable(kDataTable);
    TRACE_LOCAL(tbl);
    const int parentFNum = pDB.FindField(tbl, QStringLiteral("Parent"));
    TRACE_LOCAL(parentFNum);
    const int typeFNum = pDB.FindField(tbl, QStringLiteral("Type"));
    TRACE_LOCAL(typeFNum);
    const DatabaseRecord& db = pDB.DBView();
    if (tbl < 1 || tbl > db.TabNum())
        return;
    const RecordStore& recs = db.Tables[tbl - 1].Records;
    const QByteArray want = StoredForm(IndNum);
    const int n = recs.size();
    TRACE_LOCAL(n);
    for (int i = 0; i < n; ++i) {
        const std::optional<QByteArrayView> p = fieldOf(recs, i, parentFNum);
        if (!p || *p != QByteArrayView(want))
            continue;
        const std::optional<QByteArrayView> type = fieldOf(recs, i, typeFNum);
        if (type && isRecordType(*type))
            ++NumRecs;
        else
            ++NumFolds;
    }
}

void GetSepatRecOptns(const QString& InpStr, int& BufCol, int& BufFlags) {
    TRACE_PROC("modMain.GetSepatRecOptns", InpStr, BufCol, BufFlags);
    if (InpStr.isEmpty()) {
        BufCol = 0;
        BufFlags = 0;
        return;
    }
    const qsizetype p = InpStr.indexOf(u'|');
    TRACE_LOCAL(p);
    if (p < 0) {
        BufCol = CLng(InpStr);
        BufFlags = 0;
        return;
    }
    BufCol = CLng(InpStr.left(p));
    BufFlags = CLng(Val(InpStr.mid(p + 1)));
}

QString MakeRecOptns(int Col, int Flags) {
    return QString::number(Col) + u'|' + QString::number(Flags);
}

QString SetRecBold(const QString& InpStr, bool Bold) {
    TRACE_PROC("modMain.SetRecBold", InpStr, Bold);
    int col = 0, bits = 0;
    TRACE_LOCAL(col);
    GetSepatRecOptns(InpStr, col, bits);
    return MakeRecOptns(col, Bold ? (bits | 1) : (bits & ~1));
}

QString SetRecColor(const QString& InpStr, int Col) {
    TRACE_PROC("modMain.SetRecColor", InpStr, Col);
    int col = 0, bits = 0;
    TRACE_LOCAL(col);
    GetSepatRecOptns(InpStr, col, bits);
    return MakeRecOptns(Col, bits);
}

int GetTextTillSepar(const QString& Text, QString& Buffer, const QString& separ, int& Start) {
    TRACE_PROC("modMain.GetTextTillSepar", Text, separ, Start);
    if (Start < 1)
        Start = 1;
    const qsizetype from = Start - 1;
    TRACE_LOCAL(from);
    const qsizetype p = from <= Text.size() ? Text.indexOf(separ, from) : -1;
    TRACE_LOCAL(p);
    if (p < 0) {
        Buffer = Text.mid(from);
        return static_cast<int>(Text.size()) + 1;
    }
    Buffer = Text.mid(from, p - from);
    return static_cast<int>(p + 1 + separ.size());
}

int FindDataRow(clsDatabase& pDB, const QString& IndNum) {
    TRACE_PROC("modMain.FindDataRow", IndNum);
    const int tbl = pDB.FindTable(kDataTable);
    TRACE_LOCAL(tbl);
    return pDB.GetRecNumFromVal(tbl, pDB.FindField(tbl, QStringLiteral("IndNum")), IndNum, 1);
}

bool IsInRecordTree(clsDatabase& pDB, const QString& AncestorID, const QString& IndNum) {
    TRACE_PROC("modMain.IsInRecordTree", AncestorID, IndNum);
    const int tbl = pDB.FindTable(kDataTable);
    TRACE_LOCAL(tbl);
    const int idF = pDB.FindField(tbl, QStringLiteral("IndNum"));
    TRACE_LOCAL(idF);
    const int parentF = pDB.FindField(tbl, QStringLiteral("Parent"));
    TRACE_LOCAL(parentF);
    const DatabaseRecord& db = pDB.DBView();
    if (tbl < 1 || tbl > db.TabNum())
        return AncestorID == IndNum;
    // The first row of each identifier decides, as every look-up by identifier does.
    QHash<QString, QString> parentOf;
    const RecordStore& recs = db.Tables[tbl - 1].Records;
    parentOf.reserve(recs.size());
    for (int i = 0; i < recs.size(); ++i) {
        const std::optional<QByteArrayView> id = fieldOf(recs, i, idF);
        if (!id)
            continue;
        const QString key = recs.value(i, idF - 1);
        if (!parentOf.contains(key))
            parentOf.insert(key, recs.value(i, parentF - 1));
    }
    QString cur = IndNum;
    TRACE_LOCAL(cur);
    // At most one step per row: a loop in a damaged file ends the walk.
    for (qsizetype steps = 0; steps <= recs.size(); ++steps) {
        if (cur == AncestorID)
            return true;
        auto it = parentOf.constFind(cur);
        if (it == parentOf.constEnd())
            return false;
        cur = it.value();
    }
    return false;
}

int MoveRecordTree(clsDatabase& pDB, const QString& IndNum, const QString& NewParent) {
    TRACE_PROC("modMain.MoveRecordTree", IndNum, NewParent);
    const int tbl = pDB.FindTable(kDataTable);
    const int idF = pDB.FindField(tbl, QStringLiteral("IndNum"));
    const int parentF = pDB.FindField(tbl, QStringLiteral("Parent"));
    const int typeF = pDB.FindField(tbl, QStringLiteral("Type"));
    if (tbl < 1 || idF < 1 || parentF < 1)
        return 0;
    const RecordStore& recs = pDB.DBView().Tables[tbl - 1].Records;
    // Children by parent in table order; the first row of each identifier decides.
    QHash<QByteArray, QList<int>> kids;
    QHash<QByteArray, int> rowOf;
    kids.reserve(recs.size());
    rowOf.reserve(recs.size());
    for (int i = 0; i < recs.size(); ++i) {
        const std::optional<QByteArrayView> id = fieldOf(recs, i, idF);
        const std::optional<QByteArrayView> p = fieldOf(recs, i, parentF);
        kids[p ? p->toByteArray() : QByteArray()].append(i);
        if (id && !rowOf.contains(id->toByteArray()))
            rowOf.insert(id->toByteArray(), i);
    }
    const auto moved = rowOf.constFind(StoredForm(IndNum));
    if (moved == rowOf.cend())
        return 0;
    const QByteArray newParent = StoredForm(NewParent);
    if (NewParent != QLatin1String("0")) {
        const auto target = rowOf.constFind(newParent);
        if (target == rowOf.cend())
            return -2;
        const std::optional<QByteArrayView> type = typeF > 0 ? fieldOf(recs, *target, typeF) : std::nullopt;
        if (type && Val(QString::fromUtf8(*type)) == 2.0)
            return -2;
    }
    // The subtree in tree order; a loop in a damaged file visits each row once.
    std::vector<char> inTree(static_cast<size_t>(recs.size()), 0);
    QList<int> order;
    std::vector<int> stack{*moved};
    while (!stack.empty()) {
        const int r = stack.back();
        stack.pop_back();
        if (inTree[r])
            continue;
        inTree[r] = 1;
        order.append(r);
        const std::optional<QByteArrayView> id = fieldOf(recs, r, idF);
        const auto k = id ? kids.constFind(id->toByteArray()) : kids.cend();
        if (k != kids.cend())
            for (qsizetype j = k->size() - 1; j >= 0; --j)
                stack.push_back(k->at(j));
    }
    const auto target = rowOf.constFind(newParent);
    if (NewParent == IndNum || (target != rowOf.cend() && inTree[*target]))
        return -1;

    DatabaseRecord db = pDB.DBView();
    std::vector<int> out;
    out.reserve(static_cast<std::size_t>(recs.size()));
    for (int i = 0; i < recs.size(); ++i)
        if (!inTree[i])
            out.push_back(i);
    for (int r : order)
        out.push_back(r);
    RecordStore& moved2 = db.Tables[tbl - 1].Records;
    moved2.reorder(out);
    const int head = moved2.size() - static_cast<int>(order.size());
    if (moved2.fieldCount(head) < parentF) {
        QStringList row = moved2.row(head);
        while (row.size() < parentF)
            row.append(QString());
        moved2.setRow(head, row);
    }
    moved2.setValue(head, parentF - 1, NewParent);
    pDB.ReplaceDB(std::move(db));
    return 1;
}
