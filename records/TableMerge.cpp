#include "records/TableMerge.h"

#include "diagnostics/Trace.h"
#include "storage/TableFile.h"

#include <algorithm>
#include <optional>
#include <vector>

namespace {

int columnOf(const TableEntry& T, const QString& Name, int Fallback) {
    for (qsizetype i = 0; i < T.FldNames.size(); ++i)
        if (T.FldNames[i].compare(Name, Qt::CaseInsensitive) == 0)
            return static_cast<int>(i);
    return Fallback;
}

// The value of an identifier written plainly (decimal digits, no sign, no leading zero,
// at most 18 digits); -1 for any other text.
qint64 plainNumber(QByteArrayView Text) {
    const qsizetype n = Text.size();
    if (n == 0 || n > 18 || (n > 1 && Text[0] == '0'))
        return -1;
    qint64 v = 0;
    for (char c : Text) {
        if (c < '0' || c > '9')
            return -1;
        v = v * 10 + (c - '0');
    }
    return v;
}

qint64 numberOf(QByteArrayView Text) {
    const qint64 v = plainNumber(Text);
    if (v >= 0)
        return v;
    bool ok = false;
    const qint64 w = QString::fromUtf8(Text).trimmed().toLongLong(&ok);
    return ok ? w : 0;
}

// The identifiers of a table, read once: plain numbers as numbers (-1 for any other text),
// and the highest identifier the table handed out (its tag, or a higher row identifier).
// With ParentCol, the parents are read in the same pass (the other side's rows make most of
// the result, whose order is checked by parent).
struct Ids {
    std::vector<qint64> Num;
    std::vector<qint64> Parent;
    qint64 Top = 0;
    Ids(const TableEntry& T, int IdCol, int ParentCol = -1) : Num(static_cast<size_t>(T.RecNum())) {
        Top = numberOf(StoredForm(T.Tag));
        if (ParentCol >= 0)
            Parent.resize(Num.size());
        const RecordStore& r = T.Records;
        for (int i = 0; i < T.RecNum(); ++i) {
            const QByteArrayView id = r.escaped(i, IdCol);
            const qint64 v = plainNumber(id);
            Num[static_cast<size_t>(i)] = v;
            Top = std::max(Top, v >= 0 ? v : numberOf(id));
            if (ParentCol >= 0)
                Parent[static_cast<size_t>(i)] = plainNumber(r.escaped(i, ParentCol));
        }
    }
};

// Row position by identifier; the first row wins when a damaged table repeats one. Plain
// numbers (every identifier the program hands out) go to a table indexed by the number
// itself, other texts (in their stored form) to a hash.
class IdIndex {
public:
    // Room for identifiers up to Top in a table of Rows rows (a few far above go to the hash).
    void size(qint64 Top, qsizetype Rows) {
        m_dense.assign(static_cast<size_t>(std::min<qint64>(Top, 16 * Rows + 1024) + 1), -1);
    }
    void build(const RecordStore& Rows, const std::vector<qint64>& Num, int IdCol, qint64 Top) {
        size(Top, Rows.size());
        for (int i = 0; i < Rows.size(); ++i) {
            const qint64 v = Num[static_cast<size_t>(i)];
            add(v, v >= 0 ? QByteArrayView() : Rows.escaped(i, IdCol), i);
        }
    }
    void add(qint64 V, QByteArrayView Id, int Pos) {
        if (V >= 0 && V < static_cast<qint64>(m_dense.size())) {
            int& slot = m_dense[static_cast<size_t>(V)];
            if (slot < 0)
                slot = Pos;
        } else if (V >= 0) {
            if (!m_num.contains(V))
                m_num.insert(V, Pos);
        } else if (!m_text.contains(Id.toByteArray())) {
            m_text.insert(Id.toByteArray(), Pos);
        }
    }
    // Position of the identifier (its number V when plain, else its text), -1 when none.
    int find(qint64 V, QByteArrayView Id) const {
        if (V >= 0 && V < static_cast<qint64>(m_dense.size()))
            return m_dense[static_cast<size_t>(V)];
        if (V >= 0)
            return m_num.value(V, -1);
        return m_text.value(Id.toByteArray(), -1);
    }

private:
    std::vector<int> m_dense;
    QHash<qint64, int> m_num;
    QHash<QByteArray, int> m_text;
};

// Our rows matched to the base. Rows that are still the very rows of the base (shared, not
// copied: memory is made from the base, and a row nobody touched stays shared) are found by
// walking both tables side by side, without reading them; only the other rows of ours are
// read and indexed.
struct OursMatch {
    std::vector<int> BaseOf; // per row of ours: its row in the base, -1 when none was found
    std::vector<int> OursOf; // per row of the base: its shared row in ours, -1
    std::vector<qint64> Num; // per row of ours: the identifier when plain
    qint64 Top = 0;
    IdIndex Others; // the rows of ours that are not shared, by identifier

    OursMatch(const TableEntry& Base, const Ids& BIds, const TableEntry& Ours, int IdCol)
        : BaseOf(static_cast<size_t>(Ours.RecNum()), -1), OursOf(static_cast<size_t>(Base.RecNum()), -1),
          Num(static_cast<size_t>(Ours.RecNum()), -1) {
        const int nb = Base.RecNum();
        const int no = Ours.RecNum();
        Top = numberOf(StoredForm(Ours.Tag));
        std::vector<int> others;
        int j = 0;
        for (int i = 0; i < no; ++i) {
            int match = -1;
            // A few rows ahead: rows deleted from ours leave gaps.
            for (int k = j; k < std::min(nb, j + 8); ++k)
                if (Ours.Records.sharesRow(i, Base.Records, k)) {
                    match = k;
                    break;
                }
            const QByteArrayView id = Ours.Records.escaped(i, IdCol);
            if (match >= 0) {
                BaseOf[static_cast<size_t>(i)] = match;
                OursOf[static_cast<size_t>(match)] = i;
                Num[static_cast<size_t>(i)] = BIds.Num[static_cast<size_t>(match)];
                j = match + 1;
            } else {
                Num[static_cast<size_t>(i)] = plainNumber(id);
                others.push_back(i);
            }
            const qint64 v = Num[static_cast<size_t>(i)];
            Top = std::max(Top, v >= 0 ? v : numberOf(id));
        }
        Others.size(Top, static_cast<qsizetype>(others.size()));
        for (int i : others) {
            const qint64 v = Num[static_cast<size_t>(i)];
            Others.add(v, v >= 0 ? QByteArrayView() : Ours.Records.escaped(i, IdCol), i);
        }
    }
};

// A row of the result: a row of one of the sides (or of the rows merged field by field),
// with its identifier or parent replaced where the merge says so.
struct OutRow {
    OutRow(const RecordStore* S, int R, bool PO, qint64 N, qint64 PN = -2)
        : Src(S), Row(R), ParentOurs(PO), Num(N), ParentNum(PN) {}
    const RecordStore* Src = nullptr;
    int Row = -1;
    bool ParentOurs = false; // the Parent value came from our side
    qint64 Num = -1;         // the identifier when it is a plain number
    qint64 ParentNum = -2;   // the parent when it is a plain number; -2 not read yet
    std::optional<QString> Id, Parent;

    QByteArray idText(int IdCol) const {
        return Id ? StoredForm(*Id) : Src->escaped(Row, IdCol).toByteArray();
    }
    QByteArray parentText(int PCol) const {
        return Parent ? StoredForm(*Parent) : Src->escaped(Row, PCol).toByteArray();
    }
};

// Appends Row to Out with its replaced values.
void appendOut(RecordStore& Out, const OutRow& R, int IdCol, int PCol) {
    Out.appendFrom(*R.Src, R.Row);
    const int at = Out.size() - 1;
    const int need = std::max(R.Id ? IdCol + 1 : 0, R.Parent ? PCol + 1 : 0);
    if (Out.fieldCount(at) < need) {
        QStringList row = Out.row(at);
        while (row.size() < need)
            row.append(QString());
        Out.setRow(at, row);
    }
    if (R.Id)
        Out.setValue(at, IdCol, *R.Id);
    if (R.Parent)
        Out.setValue(at, PCol, *R.Parent);
}

} // namespace

clsMergeResult MergeDataTable(const TableEntry& Base, const TableEntry& Ours, const TableEntry& Theirs) {
    TRACE_PROC("modMerge.MergeDataTable", Base.RecNum(), Ours.RecNum(), Theirs.RecNum());
    const TableEntry& layout = Ours.FldNames.isEmpty() ? Theirs : Ours;
    const int idCol = columnOf(layout, QStringLiteral("IndNum"), 0);
    const int pCol = columnOf(layout, QStringLiteral("Parent"), 1);
    clsMergeResult res;
    clsMergeCounts& c = res.Counts;
    const Ids bIds(Base, idCol), tIds(Theirs, idCol, pCol);
    const OursMatch oIds(Base, bIds, Ours, idCol);
    IdIndex bIdx, tIdx;
    bIdx.build(Base.Records, bIds.Num, idCol, bIds.Top);
    tIdx.build(Theirs.Records, tIds.Num, idCol, tIds.Top);
    const RecordStore& B = Base.Records;
    const RecordStore& O = Ours.Records;
    const RecordStore& T = Theirs.Records;
    RecordStore merged; // rows both sides changed, merged field by field

    std::vector<OutRow> out;
    out.reserve(static_cast<size_t>(T.size() + O.size() / 8 + 16));
    for (int ti = 0; ti < T.size(); ++ti) {
        const qint64 num = tIds.Num[static_cast<size_t>(ti)];
        const QByteArrayView id = num >= 0 ? QByteArrayView() : T.escaped(ti, idCol);
        const int b = bIdx.find(num, id);
        const OutRow theirs{&T, ti, false, num, tIds.Parent[static_cast<size_t>(ti)]};
        if (b < 0) {
            out.push_back(theirs);
            ++c.AddedTheirs;
            continue;
        }
        const int shared = oIds.OursOf[static_cast<size_t>(b)];
        const int o = shared >= 0 ? shared : oIds.Others.find(num, id);
        const bool theirsChanged = !T.sameRow(ti, B, b);
        if (o < 0) {
            if (!theirsChanged) {
                ++c.Deleted;
            } else {
                out.push_back(theirs);
                ++c.KeptChanged;
            }
            continue;
        }
        const bool oursChanged = shared < 0 && !O.sameRow(o, B, b);
        if (!oursChanged) {
            out.push_back(theirs);
            if (theirsChanged)
                ++c.TakenTheirs;
        } else if (!theirsChanged) {
            out.push_back(OutRow{&O, o, true, num});
            ++c.TakenOurs;
        } else {
            const int n = std::max({B.fieldCount(b), O.fieldCount(o), T.fieldCount(ti)});
            merged.append(QStringList(n));
            const int m = merged.size() - 1;
            for (int f = 0; f < n; ++f) {
                const QByteArrayView bv = B.escaped(b, f);
                const QByteArrayView ov = f < O.fieldCount(o) ? O.escaped(o, f) : bv;
                const QByteArrayView tv = f < T.fieldCount(ti) ? T.escaped(ti, f) : bv;
                if (ov != bv) {
                    if (f < O.fieldCount(o))
                        merged.setValueFrom(m, f, O, o, f);
                    else
                        merged.setValueFrom(m, f, B, b, f);
                    if (tv != bv && tv != ov)
                        ++c.Conflicts;
                } else if (f < T.fieldCount(ti)) {
                    merged.setValueFrom(m, f, T, ti, f);
                } else {
                    merged.setValueFrom(m, f, B, b, f);
                }
            }
            out.push_back(OutRow{&merged, m, O.escaped(o, pCol) != B.escaped(b, pCol), num});
            ++c.FieldMerged;
        }
    }

    // Our rows that theirs lacks, in our order.
    const qint64 baseTop = bIds.Top;
    const qint64 theirsTop = tIds.Top;
    qint64 next = std::max(oIds.Top, theirsTop) + 1;
    for (int oi = 0; oi < O.size(); ++oi) {
        const qint64 oNum = oIds.Num[static_cast<size_t>(oi)];
        const QByteArrayView id = oNum >= 0 ? QByteArrayView() : O.escaped(oi, idCol);
        const int shared = oIds.BaseOf[static_cast<size_t>(oi)];
        const int b = shared >= 0 ? shared : bIdx.find(oNum, id);
        const bool inTheirs = tIdx.find(oNum, id) >= 0;
        if (b >= 0) {
            if (inTheirs)
                continue;
            if (shared >= 0 || O.sameRow(oi, B, b)) {
                ++c.Deleted;
            } else {
                out.push_back(OutRow{&O, oi, true, oNum});
                ++c.KeptChanged;
            }
            continue;
        }
        ++c.AddedOurs;
        const qint64 num = oNum >= 0 ? oNum : numberOf(O.escaped(oi, idCol));
        if (inTheirs || (num > baseTop && num <= theirsTop)) {
            const qint64 freshNum = next++;
            const QString fresh = QString::number(freshNum);
            res.NewIds.insert(O.value(oi, idCol), fresh);
            OutRow row{&O, oi, true, freshNum};
            row.Id = fresh;
            out.push_back(row);
            ++c.Renumbered;
        } else {
            out.push_back(OutRow{&O, oi, true, oNum});
        }
    }
    if (!res.NewIds.isEmpty())
        for (OutRow& r : out)
            if (r.ParentOurs) {
                const auto m = res.NewIds.constFind(r.Parent ? *r.Parent : r.Src->value(r.Row, pCol));
                if (m != res.NewIds.cend()) {
                    r.Parent = *m;
                    r.ParentNum = -2;
                }
            }
    res.Tag = QString::number(std::max(next - 1, baseTop));

    // Every row behind its folder; rows whose folder is gone (or which sit in a loop of
    // folders) go under the root.
    const qsizetype n = static_cast<qsizetype>(out.size());
    qint64 outTop = 0;
    for (const OutRow& r : out)
        outTop = std::max(outTop, r.Num);
    IdIndex outIdx;
    outIdx.size(outTop, n);
    for (qsizetype i = 0; i < n; ++i) {
        const OutRow& r = out[static_cast<size_t>(i)];
        outIdx.add(r.Num, r.Num >= 0 ? QByteArray() : r.idText(idCol), static_cast<int>(i));
    }
    std::vector<char> done(static_cast<size_t>(n), 0);
    QHash<QByteArray, QList<int>> waiting;
    // Most rows are theirs as they are: the result shares their bytes.
    res.Records.shareBytesOf(T);
    res.Records.reserve(static_cast<int>(n));
    std::vector<int> stack;
    auto place = [&](int First) {
        stack.push_back(First);
        while (!stack.empty()) {
            const int k = stack.back();
            stack.pop_back();
            if (done[k])
                continue;
            done[k] = 1;
            const OutRow& r = out[static_cast<size_t>(k)];
            const auto w = waiting.isEmpty() ? waiting.end() : waiting.find(r.idText(idCol));
            appendOut(res.Records, r, idCol, pCol);
            if (w != waiting.end()) {
                const QList<int> kids = std::move(*w);
                waiting.erase(w);
                for (qsizetype j = kids.size() - 1; j >= 0; --j)
                    stack.push_back(kids[j]);
            }
        }
    };
    auto underRoot = [&](qsizetype i) {
        out[static_cast<size_t>(i)].Parent = QStringLiteral("0");
        out[static_cast<size_t>(i)].ParentNum = 0;
        ++c.Rehomed;
    };
    for (qsizetype i = 0; i < n; ++i) {
        const OutRow& r = out[static_cast<size_t>(i)];
        qint64 pn = r.ParentNum;
        const QByteArray parent = pn == -2 || pn < 0 ? r.parentText(pCol) : QByteArray();
        if (pn == -2)
            pn = plainNumber(parent);
        const bool atRoot = pn == 0;
        const int at = atRoot ? -1 : outIdx.find(pn, parent);
        if (atRoot || at < 0 || done[at] || at == i) {
            if (!atRoot && (at < 0 || at == i))
                underRoot(i);
            place(static_cast<int>(i));
        } else {
            waiting[pn >= 0 ? QByteArray::number(pn) : parent].append(static_cast<int>(i));
        }
    }
    // What is left waits on itself through a loop of moves: the first row of each loop
    // goes under the root, and the rest of the loop follows it.
    for (qsizetype i = 0; i < n; ++i)
        if (!done[i]) {
            underRoot(i);
            place(static_cast<int>(i));
        }
    return res;
}

clsMergeCounts MergeDatabases(DatabaseRecord& Ours, const DatabaseRecord& Base, const DatabaseRecord& Theirs,
                              QHash<QString, QString>* NewIds) {
    TRACE_PROC("modMerge.MergeDatabases");
    auto find = [](const DatabaseRecord& D) -> int {
        for (int i = 0; i < D.TabNum(); ++i)
            if (D.Tables[i].Name.compare(QLatin1String("DataTable"), Qt::CaseInsensitive) == 0)
                return i;
        return -1;
    };
    const int o = find(Ours);
    const int b = find(Base);
    const int t = find(Theirs);
    // The database line: a value that ours left alone takes theirs.
    if (Ours.Tag == Base.Tag)
        Ours.Tag = Theirs.Tag;
    if (Ours.flags == Base.flags)
        Ours.flags = Theirs.flags;
    const TableEntry empty;
    const TableEntry& bt = b >= 0 ? Base.Tables[b] : empty;
    const TableEntry& tt = t >= 0 ? Theirs.Tables[t] : empty;
    if (o < 0) {
        if (t >= 0)
            Ours.Tables.append(tt);
        return {};
    }
    clsMergeResult r = MergeDataTable(bt, Ours.Tables[o], tt);
    TableEntry& ot = Ours.Tables[o];
    ot.Records = std::move(r.Records);
    ot.Tag = r.Tag;
    if (NewIds)
        *NewIds = std::move(r.NewIds);
    return r.Counts;
}
