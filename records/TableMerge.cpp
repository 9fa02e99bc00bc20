#include "records/TableMerge.h"

#include "diagnostics/Trace.h"

#include <algorithm>
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
qint64 plainNumber(const QString& Text) {
    const qsizetype n = Text.size();
    if (n == 0 || n > 18 || (n > 1 && Text[0] == u'0'))
        return -1;
    qint64 v = 0;
    for (QChar c : Text) {
        const char16_t u = c.unicode();
        if (u < u'0' || u > u'9')
            return -1;
        v = v * 10 + (u - u'0');
    }
    return v;
}

qint64 numberOf(const QString& Text) {
    const qint64 v = plainNumber(Text);
    if (v >= 0)
        return v;
    bool ok = false;
    const qint64 w = Text.trimmed().toLongLong(&ok);
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
    Ids(const TableEntry& T, int IdCol, int ParentCol = -1) : Num(static_cast<size_t>(T.Records.size())) {
        Top = numberOf(T.Tag);
        if (ParentCol >= 0)
            Parent.resize(Num.size());
        for (qsizetype i = 0; i < T.Records.size(); ++i) {
            const QStringList& r = T.Records[i];
            const qint64 v = IdCol < r.size() ? plainNumber(r[IdCol]) : -1;
            Num[static_cast<size_t>(i)] = v;
            Top = std::max(Top, v >= 0 ? v : numberOf(r.value(IdCol)));
            if (ParentCol >= 0)
                Parent[static_cast<size_t>(i)] = ParentCol < r.size() ? plainNumber(r[ParentCol]) : -1;
        }
    }
};

// Row position by identifier; the first row wins when a damaged table repeats one. Plain
// numbers (every identifier the program hands out) go to a table indexed by the number
// itself, other texts to a hash.
class IdIndex {
public:
    // Room for identifiers up to Top in a table of Rows rows (a few far above go to the hash).
    void size(qint64 Top, qsizetype Rows) {
        m_dense.assign(static_cast<size_t>(std::min<qint64>(Top, 16 * Rows + 1024) + 1), -1);
    }
    void build(const QList<QStringList>& Rows, const std::vector<qint64>& Num, int IdCol, qint64 Top) {
        size(Top, Rows.size());
        for (qsizetype i = 0; i < Rows.size(); ++i) {
            const qint64 v = Num[static_cast<size_t>(i)];
            add(v, v >= 0 ? QString() : Rows[i].value(IdCol), static_cast<int>(i));
        }
    }
    void add(qint64 V, const QString& Id, int Pos) {
        if (V >= 0 && V < static_cast<qint64>(m_dense.size())) {
            int& slot = m_dense[static_cast<size_t>(V)];
            if (slot < 0)
                slot = Pos;
        } else if (V >= 0) {
            if (!m_num.contains(V))
                m_num.insert(V, Pos);
        } else if (!m_text.contains(Id)) {
            m_text.insert(Id, Pos);
        }
    }
    // Position of the identifier (its number V when plain, else its text), -1 when none.
    int find(qint64 V, const QString& Id) const {
        if (V >= 0 && V < static_cast<qint64>(m_dense.size()))
            return m_dense[static_cast<size_t>(V)];
        if (V >= 0)
            return m_num.value(V, -1);
        return m_text.value(Id, -1);
    }
    int find(const QString& Id) const { return find(plainNumber(Id), Id); }

private:
    std::vector<int> m_dense;
    QHash<qint64, int> m_num;
    QHash<QString, int> m_text;
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
        : BaseOf(static_cast<size_t>(Ours.Records.size()), -1),
          OursOf(static_cast<size_t>(Base.Records.size()), -1),
          Num(static_cast<size_t>(Ours.Records.size()), -1) {
        const qsizetype nb = Base.Records.size();
        const qsizetype no = Ours.Records.size();
        Top = numberOf(Ours.Tag);
        std::vector<int> others;
        qsizetype j = 0;
        for (qsizetype i = 0; i < no; ++i) {
            const QStringList& o = Ours.Records[i];
            int match = -1;
            // A few rows ahead: rows deleted from ours leave gaps.
            for (qsizetype k = j; o.constData() && k < std::min(nb, j + 8); ++k)
                if (Base.Records[k].constData() == o.constData() && Base.Records[k].size() == o.size()) {
                    match = static_cast<int>(k);
                    break;
                }
            if (match >= 0) {
                BaseOf[static_cast<size_t>(i)] = match;
                OursOf[static_cast<size_t>(match)] = static_cast<int>(i);
                Num[static_cast<size_t>(i)] = BIds.Num[static_cast<size_t>(match)];
                j = match + 1;
            } else {
                Num[static_cast<size_t>(i)] = IdCol < o.size() ? plainNumber(o[IdCol]) : -1;
                others.push_back(static_cast<int>(i));
            }
            const qint64 v = Num[static_cast<size_t>(i)];
            Top = std::max(Top, v >= 0 ? v : numberOf(o.value(IdCol)));
        }
        Others.size(Top, static_cast<qsizetype>(others.size()));
        for (int i : others) {
            const qint64 v = Num[static_cast<size_t>(i)];
            Others.add(v, v >= 0 ? QString() : Ours.Records[i].value(IdCol), i);
        }
    }
};

struct OutRow {
    QStringList Row;
    bool ParentOurs = false; // the Parent value came from our side
    qint64 Num = -1;         // the identifier when it is a plain number
    qint64 ParentNum = -2;   // the parent when it is a plain number; -2 not read yet
};

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

    QList<OutRow> out;
    out.reserve(Theirs.Records.size() + Ours.Records.size() / 8 + 16);
    for (qsizetype ti = 0; ti < Theirs.Records.size(); ++ti) {
        const QStringList& t = Theirs.Records[ti];
        const qint64 num = tIds.Num[static_cast<size_t>(ti)];
        const QString id = num >= 0 ? QString() : t.value(idCol);
        const int b = bIdx.find(num, id);
        if (b < 0) {
            out.append({t, false, num, tIds.Parent[static_cast<size_t>(ti)]});
            ++c.AddedTheirs;
            continue;
        }
        const QStringList& B = Base.Records[b];
        const int shared = oIds.OursOf[static_cast<size_t>(b)];
        const int o = shared >= 0 ? shared : oIds.Others.find(num, id);
        if (o < 0) {
            if (t == B) {
                ++c.Deleted;
            } else {
                out.append({t, false, num, tIds.Parent[static_cast<size_t>(ti)]});
                ++c.KeptChanged;
            }
            continue;
        }
        const QStringList& O = Ours.Records[o];
        const bool oursChanged = O != B;
        const bool theirsChanged = t != B;
        if (!oursChanged) {
            out.append({t, false, num, tIds.Parent[static_cast<size_t>(ti)]});
            if (theirsChanged)
                ++c.TakenTheirs;
        } else if (!theirsChanged) {
            out.append({O, true, num});
            ++c.TakenOurs;
        } else {
            const qsizetype n = std::max({B.size(), O.size(), t.size()});
            QStringList row;
            row.reserve(n);
            for (qsizetype f = 0; f < n; ++f) {
                const QString& bv = f < B.size() ? B[f] : QString();
                const QString ov = O.value(f, bv);
                const QString tv = t.value(f, bv);
                if (ov != bv) {
                    row.append(ov);
                    if (tv != bv && tv != ov)
                        ++c.Conflicts;
                } else {
                    row.append(tv);
                }
            }
            out.append({row, O.value(pCol) != B.value(pCol), num});
            ++c.FieldMerged;
        }
    }

    // Our rows that theirs lacks, in our order.
    const qint64 baseTop = bIds.Top;
    const qint64 theirsTop = tIds.Top;
    qint64 next = std::max(oIds.Top, theirsTop) + 1;
    for (qsizetype oi = 0; oi < Ours.Records.size(); ++oi) {
        const QStringList& O = Ours.Records[oi];
        const qint64 oNum = oIds.Num[static_cast<size_t>(oi)];
        const QString id = oNum >= 0 ? QString() : O.value(idCol);
        const int shared = oIds.BaseOf[static_cast<size_t>(oi)];
        const int b = shared >= 0 ? shared : bIdx.find(oNum, id);
        const bool inTheirs = tIdx.find(oNum, id) >= 0;
        if (b >= 0) {
            if (inTheirs)
                continue;
            if (O == Base.Records[b]) {
                ++c.Deleted;
            } else {
                out.append({O, true, oNum});
                ++c.KeptChanged;
            }
            continue;
        }
        ++c.AddedOurs;
        const qint64 num = oNum >= 0 ? oNum : numberOf(O.value(idCol));
        if (inTheirs || (num > baseTop && num <= theirsTop)) {
            const qint64 freshNum = next++;
            const QString fresh = QString::number(freshNum);
            res.NewIds.insert(O.value(idCol), fresh);
            QStringList row = O;
            row[idCol] = fresh;
            out.append({row, true, freshNum});
            ++c.Renumbered;
        } else {
            out.append({O, true, oNum});
        }
    }
    if (!res.NewIds.isEmpty())
        for (OutRow& r : out)
            if (r.ParentOurs) {
                const auto m = res.NewIds.constFind(r.Row.value(pCol));
                if (m != res.NewIds.cend()) {
                    r.Row[pCol] = *m;
                    r.ParentNum = -2;
                }
            }
    res.Tag = QString::number(std::max(next - 1, baseTop));

    // Every row behind its folder; rows whose folder is gone (or which sit in a loop of
    // folders) go under the root.
    const qsizetype n = out.size();
    qint64 outTop = 0;
    for (const OutRow& r : out)
        outTop = std::max(outTop, r.Num);
    IdIndex outIdx;
    outIdx.size(outTop, n);
    for (qsizetype i = 0; i < n; ++i)
        outIdx.add(out[i].Num, out[i].Num >= 0 ? QString() : out[i].Row.value(idCol), static_cast<int>(i));
    std::vector<char> done(static_cast<size_t>(n), 0);
    QHash<QString, QList<int>> waiting;
    res.Records.reserve(n);
    std::vector<int> stack;
    const QString root = QStringLiteral("0");
    auto place = [&](int First) {
        stack.push_back(First);
        while (!stack.empty()) {
            const int k = stack.back();
            stack.pop_back();
            if (done[k])
                continue;
            done[k] = 1;
            const auto w = waiting.isEmpty() ? waiting.end() : waiting.find(out[k].Row.value(idCol));
            res.Records.append(std::move(out[k].Row));
            if (w != waiting.end()) {
                const QList<int> kids = std::move(*w);
                waiting.erase(w);
                for (qsizetype j = kids.size() - 1; j >= 0; --j)
                    stack.push_back(kids[j]);
            }
        }
    };
    const QString none;
    auto underRoot = [&](qsizetype i) {
        QStringList& r = out[i].Row;
        while (r.size() <= pCol)
            r.append(QString());
        r[pCol] = root;
        out[i].ParentNum = 0;
        ++c.Rehomed;
    };
    for (qsizetype i = 0; i < n; ++i) {
        const QStringList& r = out[i].Row;
        qint64 pn = out[i].ParentNum;
        if (pn == -2)
            pn = pCol < r.size() ? plainNumber(r[pCol]) : -1;
        const bool atRoot = pn == 0;
        const int at = atRoot ? -1 : outIdx.find(pn, pn >= 0 ? none : (pCol < r.size() ? r[pCol] : none));
        if (atRoot || at < 0 || done[at] || at == i) {
            if (!atRoot && (at < 0 || at == i))
                underRoot(i);
            place(static_cast<int>(i));
        } else {
            waiting[r.value(pCol)].append(static_cast<int>(i));
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
