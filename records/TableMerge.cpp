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

qint64 numberOf(const QString& Text) {
    bool ok = false;
    const qint64 v = Text.trimmed().toLongLong(&ok);
    return ok ? v : 0;
}

// Row position by identifier; the first row wins when a damaged table repeats one.
QHash<QString, int> indexById(const QList<QStringList>& Rows, int IdCol) {
    QHash<QString, int> idx;
    idx.reserve(Rows.size());
    for (qsizetype i = 0; i < Rows.size(); ++i)
        if (!idx.contains(Rows[i].value(IdCol)))
            idx.insert(Rows[i].value(IdCol), static_cast<int>(i));
    return idx;
}

// The highest identifier a side handed out: its tag, or a higher row identifier.
qint64 handedOut(const TableEntry& T, int IdCol) {
    qint64 top = numberOf(T.Tag);
    for (const QStringList& r : T.Records)
        top = std::max(top, numberOf(r.value(IdCol)));
    return top;
}

struct OutRow {
    QStringList Row;
    bool ParentOurs = false; // the Parent value came from our side
};

} // namespace

clsMergeResult MergeDataTable(const TableEntry& Base, const TableEntry& Ours, const TableEntry& Theirs) {
    TRACE_PROC("modMerge.MergeDataTable", Base.RecNum(), Ours.RecNum(), Theirs.RecNum());
    const TableEntry& layout = Ours.FldNames.isEmpty() ? Theirs : Ours;
    const int idCol = columnOf(layout, QStringLiteral("IndNum"), 0);
    const int pCol = columnOf(layout, QStringLiteral("Parent"), 1);
    clsMergeResult res;
    clsMergeCounts& c = res.Counts;
    const QHash<QString, int> bIdx = indexById(Base.Records, idCol);
    const QHash<QString, int> oIdx = indexById(Ours.Records, idCol);
    const QHash<QString, int> tIdx = indexById(Theirs.Records, idCol);

    QList<OutRow> out;
    out.reserve(Theirs.Records.size() + Ours.Records.size() / 8 + 16);
    for (const QStringList& t : Theirs.Records) {
        const QString id = t.value(idCol);
        const auto b = bIdx.constFind(id);
        if (b == bIdx.cend()) {
            out.append({t, false});
            ++c.AddedTheirs;
            continue;
        }
        const QStringList& B = Base.Records[*b];
        const auto o = oIdx.constFind(id);
        if (o == oIdx.cend()) {
            if (t == B) {
                ++c.Deleted;
            } else {
                out.append({t, false});
                ++c.KeptChanged;
            }
            continue;
        }
        const QStringList& O = Ours.Records[*o];
        const bool oursChanged = O != B;
        const bool theirsChanged = t != B;
        if (!oursChanged) {
            out.append({t, false});
            if (theirsChanged)
                ++c.TakenTheirs;
        } else if (!theirsChanged) {
            out.append({O, true});
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
            out.append({row, O.value(pCol) != B.value(pCol)});
            ++c.FieldMerged;
        }
    }

    // Our rows that theirs lacks, in our order.
    const qint64 baseTop = handedOut(Base, idCol);
    const qint64 theirsTop = handedOut(Theirs, idCol);
    qint64 next = std::max(handedOut(Ours, idCol), theirsTop) + 1;
    for (const QStringList& O : Ours.Records) {
        const QString id = O.value(idCol);
        const auto b = bIdx.constFind(id);
        if (b != bIdx.cend()) {
            if (tIdx.contains(id))
                continue;
            if (O == Base.Records[*b]) {
                ++c.Deleted;
            } else {
                out.append({O, true});
                ++c.KeptChanged;
            }
            continue;
        }
        ++c.AddedOurs;
        const qint64 num = numberOf(id);
        if (tIdx.contains(id) || (num > baseTop && num <= theirsTop)) {
            const QString fresh = QString::number(next++);
            res.NewIds.insert(id, fresh);
            QStringList row = O;
            row[idCol] = fresh;
            out.append({row, true});
            ++c.Renumbered;
        } else {
            out.append({O, true});
        }
    }
    if (!res.NewIds.isEmpty())
        for (OutRow& r : out)
            if (r.ParentOurs) {
                const auto m = res.NewIds.constFind(r.Row.value(pCol));
                if (m != res.NewIds.cend())
                    r.Row[pCol] = *m;
            }
    res.Tag = QString::number(std::max(next - 1, baseTop));

    // Every row behind its folder; rows whose folder is gone (or which sit in a loop of
    // folders) go under the root.
    const qsizetype n = out.size();
    QHash<QString, int> outIdx;
    outIdx.reserve(n);
    for (qsizetype i = 0; i < n; ++i)
        if (!outIdx.contains(out[i].Row.value(idCol)))
            outIdx.insert(out[i].Row.value(idCol), static_cast<int>(i));
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
            res.Records.append(out[k].Row);
            const auto w = waiting.find(out[k].Row.value(idCol));
            if (w != waiting.end()) {
                const QList<int> kids = std::move(*w);
                waiting.erase(w);
                for (qsizetype j = kids.size() - 1; j >= 0; --j)
                    stack.push_back(kids[j]);
            }
        }
    };
    QHash<QString, char> placedIds;
    for (qsizetype i = 0; i < n; ++i) {
        const QString p = out[i].Row.value(pCol);
        const auto at = outIdx.constFind(p);
        if (p == root || at == outIdx.cend() || done[*at] || *at == i) {
            if (p != root && (at == outIdx.cend() || *at == i)) {
                out[i].Row[pCol] = root;
                ++c.Rehomed;
            }
            place(static_cast<int>(i));
        } else {
            waiting[p].append(static_cast<int>(i));
        }
    }
    // What is left waits on itself through a loop of moves: the first row of each loop
    // goes under the root, and the rest of the loop follows it.
    for (qsizetype i = 0; i < n; ++i)
        if (!done[i]) {
            out[i].Row[pCol] = root;
            ++c.Rehomed;
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
