#include "storage/FieldTable.h"

#include "diagnostics/Trace.h"
#include "storage/clsDatabase.h"

#include <QByteArray>

#include <sodium.h>

#include <algorithm>

namespace {

const QStringList kColumns = {QStringLiteral("FldKey"), QStringLiteral("IndNum"), QStringLiteral("Flags"),
                              QStringLiteral("Name"),   QStringLiteral("Value"),  QStringLiteral("Date")};
enum Col { cKey, cInd, cFlags, cName, cValue, cDate, cCount };

// Column positions of a FieldTable as its field line names them.
struct Columns {
    int At[cCount];
    explicit Columns(const TableEntry& T) {
        for (int c = 0; c < cCount; ++c) {
            At[c] = c;
            for (qsizetype i = 0; i < T.FldNames.size(); ++i)
                if (T.FldNames[i].compare(kColumns[c], Qt::CaseInsensitive) == 0)
                    At[c] = static_cast<int>(i);
        }
    }
    int operator[](Col C) const { return At[C]; }
};

QString newKey() {
    unsigned char raw[9];
    randombytes_buf(raw, sizeof raw);
    return QString::fromLatin1(QByteArray(reinterpret_cast<const char*>(raw), sizeof raw)
                                   .toBase64(QByteArray::Base64UrlEncoding | QByteArray::OmitTrailingEquals));
}

QString dateText(const QDateTime& When) {
    return When.toUTC().toString(Qt::ISODateWithMs);
}

int flagsOf(const RecordStore& R, int Row, const Columns& C) {
    long long f = 0;
    return R.intValue(Row, C[cFlags], f) ? static_cast<int>(f) : 0;
}

// Adds row Row (of record IndNum) to Ex.
void takeRow(RecExtras& Ex, const RecordStore& R, int Row, const Columns& C) {
    const int flags = flagsOf(R, Row, C);
    if (flags & kRffInternal)
        return;
    if (flags & rffHistory) {
        RecOldPasw h{R.value(Row, C[cValue]), QDateTime::fromString(R.value(Row, C[cDate]), Qt::ISODate),
                     R.value(Row, C[cKey])};
        Ex.History.append(std::move(h));
    } else if (flags & rffUrl) {
        Ex.Url = R.value(Row, C[cValue]);
    } else if (flags & rffOtp) {
        Ex.Otp = R.value(Row, C[cValue]);
    } else {
        RecCustomField f{R.value(Row, C[cName]), R.value(Row, C[cValue]), (flags & rffHidden) != 0,
                         R.value(Row, C[cKey])};
        for (RecCustomField& old : Ex.Custom)
            if (old.Name == f.Name) {
                old = std::move(f); // two rows of one name after a merge: the last one
                return;
            }
        Ex.Custom.append(std::move(f));
    }
}

// Newest first (of one time, the later row); a password kept twice (both sides of a
// merge kept it) shows once.
void sortHistory(RecExtras& Ex) {
    std::reverse(Ex.History.begin(), Ex.History.end());
    std::stable_sort(Ex.History.begin(), Ex.History.end(),
                     [](const RecOldPasw& A, const RecOldPasw& B) { return A.When > B.When; });
    QSet<QString> seen;
    Ex.History.removeIf([&seen](const RecOldPasw& H) {
        if (seen.contains(H.Pasw))
            return true;
        seen.insert(H.Pasw);
        return false;
    });
}

// The FieldTable of Db, made when it has none.
int fieldTableOf(clsDatabase& Db) {
    const int t = FieldTableNum(Db.DBView());
    return t > 0 ? t : Db.AppendTable(NewFieldTable());
}

QByteArray storedId(const QString& IndNum) {
    QByteArray s = IndNum.toUtf8();
    return s;
}

} // namespace

const RecCustomField* RecExtras::Field(const QString& Name) const {
    for (const RecCustomField& f : Custom)
        if (f.Name == Name)
            return &f;
    return nullptr;
}

int FieldTableNum(const DatabaseRecord& Db) {
    for (int i = 0; i < Db.TabNum(); ++i)
        if (Db.Tables[i].Name.compare(kFieldTable, Qt::CaseInsensitive) == 0)
            return i + 1;
    return 0;
}

TableEntry NewFieldTable() {
    TableEntry t;
    t.Name = kFieldTable;
    t.FldNames = kColumns;
    t.FldTypes = {69, 5, 5, 2, 2, 5};
    QStringList caption;
    for (int i = 0; i < cCount; ++i)
        caption.append(kColumns[i] + u' ' + QString::number(t.FldTypes[i]));
    t.Caption = caption.join(QChar(kFldSep));
    t.Tag = QStringLiteral("0");
    return t;
}

RecExtras ReadRecExtras(const DatabaseRecord& Db, const QString& IndNum) {
    RecExtras ex;
    const int t = FieldTableNum(Db);
    if (t == 0 || IndNum.isEmpty())
        return ex;
    const TableEntry& table = Db.Tables[t - 1];
    const Columns c(table);
    const QByteArray id = storedId(IndNum);
    for (int row = 0; row < table.RecNum(); ++row)
        if (table.Records.escaped(row, c[cInd]) == id)
            takeRow(ex, table.Records, row, c);
    sortHistory(ex);
    return ex;
}

QHash<QString, RecExtras> ReadAllRecExtras(const DatabaseRecord& Db) {
    QHash<QString, RecExtras> all;
    const int t = FieldTableNum(Db);
    if (t == 0)
        return all;
    const TableEntry& table = Db.Tables[t - 1];
    const Columns c(table);
    for (int row = 0; row < table.RecNum(); ++row)
        takeRow(all[table.Records.value(row, c[cInd])], table.Records, row, c);
    for (RecExtras& ex : all)
        sortHistory(ex);
    return all;
}

namespace {

// Rewrites the rows of one record that are not history to the wanted ones.
class clsExtrasWriter {
public:
    clsExtrasWriter(TableEntry& T, const QString& IndNum) : m_t(T), m_c(T), m_id(IndNum) {}

    void write(const RecExtras& Ex) {
        std::vector<bool> drop(static_cast<size_t>(m_t.RecNum()), false);
        QList<Wanted> want;
        if (!Ex.Url.isEmpty())
            want.append({rffUrl, QString(), Ex.Url, QString()});
        if (!Ex.Otp.isEmpty())
            want.append({rffOtp, QString(), Ex.Otp, QString()});
        for (const RecCustomField& f : Ex.Custom)
            want.append({f.Hidden ? rffHidden : 0, f.Name, f.Value, f.Key});
        std::vector<bool> placed(static_cast<size_t>(want.size()), false);
        const QByteArray id = storedId(m_id);
        const int rows = m_t.RecNum();
        for (int row = 0; row < rows; ++row) {
            if (m_t.Records.escaped(row, m_c[cInd]) != id)
                continue;
            const int flags = flagsOf(m_t.Records, row, m_c);
            if (flags & (rffHistory | kRffInternal))
                continue;
            const int w = match(want, placed, row, flags);
            if (w < 0) {
                drop[static_cast<size_t>(row)] = true;
                continue;
            }
            placed[static_cast<size_t>(w)] = true;
            update(row, want[w]);
        }
        for (qsizetype w = 0; w < want.size(); ++w)
            if (!placed[static_cast<size_t>(w)])
                m_t.Records.append(
                    {newKey(), m_id, QString::number(want[w].Flags), want[w].Name, want[w].Value, QString()});
        drop.resize(static_cast<size_t>(m_t.RecNum()), false);
        if (std::find(drop.begin(), drop.end(), true) != drop.end())
            m_t.Records.removeRows(drop);
    }

private:
    struct Wanted {
        int Flags;
        QString Name, Value, Key;
    };

    // The wanted value a row of the record becomes: by key, else by kind and name.
    int match(const QList<Wanted>& Want, const std::vector<bool>& Placed, int Row, int Flags) const {
        const QString key = m_t.Records.value(Row, m_c[cKey]);
        const int kind = Flags & (rffUrl | rffOtp);
        for (qsizetype w = 0; w < Want.size(); ++w)
            if (!Placed[static_cast<size_t>(w)] && !Want[w].Key.isEmpty() && Want[w].Key == key)
                return static_cast<int>(w);
        for (qsizetype w = 0; w < Want.size(); ++w) {
            if (Placed[static_cast<size_t>(w)] || (Want[w].Flags & (rffUrl | rffOtp)) != kind)
                continue;
            if (kind != 0 || (Want[w].Key.isEmpty() && m_t.Records.valueIs(Row, m_c[cName], Want[w].Name)))
                return static_cast<int>(w);
        }
        return -1;
    }

    void update(int Row, const Wanted& W) {
        const QString flags = QString::number(W.Flags);
        if (!m_t.Records.valueIs(Row, m_c[cFlags], flags))
            m_t.Records.setValue(Row, m_c[cFlags], flags);
        if (!m_t.Records.valueIs(Row, m_c[cName], W.Name))
            m_t.Records.setValue(Row, m_c[cName], W.Name);
        if (!m_t.Records.valueIs(Row, m_c[cValue], W.Value))
            m_t.Records.setValue(Row, m_c[cValue], W.Value);
    }

    TableEntry& m_t;
    const Columns m_c;
    const QString m_id;
};

} // namespace

void WriteRecExtras(clsDatabase& Db, const QString& IndNum, const RecExtras& Ex) {
    TRACE_PROC("modFields.WriteRecExtras", IndNum);
    if (FieldTableNum(Db.DBView()) == 0 && Ex.Url.isEmpty() && Ex.Otp.isEmpty() && Ex.Custom.isEmpty())
        return; // an ordinary file stays one
    clsExtrasWriter(Db.EditTable(fieldTableOf(Db)), IndNum).write(Ex);
}

void AddPaswHistory(clsDatabase& Db, const QString& IndNum, const QString& OldPasw, const QDateTime& When,
                    int Max) {
    TRACE_PROC("modFields.AddPaswHistory", IndNum, Max);
    if ((OldPasw.isEmpty() || Max < 1) && FieldTableNum(Db.DBView()) == 0)
        return; // an ordinary file stays one
    TableEntry& t = Db.EditTable(fieldTableOf(Db));
    const Columns c(t);
    if (!OldPasw.isEmpty() && Max > 0) {
        QStringList row(cCount);
        row[c[cKey]] = newKey();
        row[c[cInd]] = IndNum;
        row[c[cFlags]] = QString::number(rffHistory);
        row[c[cValue]] = OldPasw;
        row[c[cDate]] = dateText(When);
        t.Records.append(row);
    }
    // The oldest entries beyond Max go.
    const QByteArray id = storedId(IndNum);
    QList<QPair<QDateTime, int>> entries; // newest first: of one time, the later row
    for (int r = t.RecNum() - 1; r >= 0; --r)
        if (t.Records.escaped(r, c[cInd]) == id && (flagsOf(t.Records, r, c) & rffHistory))
            entries.append({QDateTime::fromString(t.Records.value(r, c[cDate]), Qt::ISODate), r});
    if (entries.size() <= std::max(Max, 0))
        return;
    std::stable_sort(entries.begin(), entries.end(),
                     [](const auto& A, const auto& B) { return A.first > B.first; });
    std::vector<bool> drop(static_cast<size_t>(t.RecNum()), false);
    for (qsizetype i = std::max(Max, 0); i < entries.size(); ++i)
        drop[static_cast<size_t>(entries[i].second)] = true;
    t.Records.removeRows(drop);
}

void AppendNewRecExtras(clsDatabase& Db, const QString& IndNum, const RecExtras& Ex) {
    if (Ex.IsEmpty())
        return; // an ordinary file stays one
    TableEntry& t = Db.EditTable(fieldTableOf(Db));
    const Columns c(t);
    auto add = [&](int Flags, const QString& Name, const QString& Value, const QString& Date) {
        QStringList row(std::max<qsizetype>(cCount, t.FldNames.size()));
        row[c[cKey]] = newKey();
        row[c[cInd]] = IndNum;
        row[c[cFlags]] = QString::number(Flags);
        row[c[cName]] = Name;
        row[c[cValue]] = Value;
        row[c[cDate]] = Date;
        t.Records.append(row);
    };
    if (!Ex.Url.isEmpty())
        add(rffUrl, QString(), Ex.Url, QString());
    if (!Ex.Otp.isEmpty())
        add(rffOtp, QString(), Ex.Otp, QString());
    for (const RecCustomField& f : Ex.Custom)
        add(f.Hidden ? rffHidden : 0, f.Name, f.Value, QString());
    for (const RecOldPasw& h : Ex.History)
        add(rffHistory, QString(), h.Pasw, h.When.isValid() ? dateText(h.When) : QString());
}

QHash<QString, QList<RecFlaggedRow>> ReadFlaggedRows(const DatabaseRecord& Db, int Flag) {
    QHash<QString, QList<RecFlaggedRow>> out;
    const int t = FieldTableNum(Db);
    if (t == 0)
        return out;
    const TableEntry& table = Db.Tables[t - 1];
    const Columns c(table);
    for (int row = 0; row < table.RecNum(); ++row)
        if (flagsOf(table.Records, row, c) & Flag)
            out[table.Records.value(row, c[cInd])].append(
                {table.Records.value(row, c[cName]), table.Records.value(row, c[cValue])});
    return out;
}

void AddFlaggedRow(clsDatabase& Db, const QString& IndNum, int Flag, const QString& Name,
                   const QString& Value) {
    TRACE_PROC("modFields.AddFlaggedRow", IndNum, Flag);
    TableEntry& t = Db.EditTable(fieldTableOf(Db));
    const Columns c(t);
    QStringList row(std::max<qsizetype>(cCount, t.FldNames.size()));
    row[c[cKey]] = newKey();
    row[c[cInd]] = IndNum;
    row[c[cFlags]] = QString::number(Flag);
    row[c[cName]] = Name;
    row[c[cValue]] = Value;
    t.Records.append(row);
}

int DropRecExtras(clsDatabase& Db, const QSet<QString>& IndNums) {
    TRACE_PROC("modFields.DropRecExtras", IndNums.size());
    const int tn = FieldTableNum(Db.DBView());
    if (tn == 0 || IndNums.isEmpty())
        return 0;
    const TableEntry& view = Db.DBView().Tables[tn - 1];
    const Columns c(view);
    std::vector<bool> drop(static_cast<size_t>(view.RecNum()), false);
    int n = 0;
    for (int r = 0; r < view.RecNum(); ++r)
        if (IndNums.contains(view.Records.value(r, c[cInd]))) {
            drop[static_cast<size_t>(r)] = true;
            ++n;
        }
    if (n > 0)
        Db.EditTable(tn).Records.removeRows(drop);
    return n;
}

namespace {

// DataTable rows by identifier, as stored.
QHash<QByteArray, int> rowsById(const TableEntry& T, int IdCol) {
    QHash<QByteArray, int> rows;
    rows.reserve(T.RecNum());
    for (int r = 0; r < T.RecNum(); ++r)
        rows.insert(T.Records.escaped(r, IdCol).toByteArray(), r);
    return rows;
}

int columnOf(const TableEntry& T, const QString& Name) {
    for (qsizetype i = 0; i < T.FldNames.size(); ++i)
        if (T.FldNames[i].compare(Name, Qt::CaseInsensitive) == 0)
            return static_cast<int>(i);
    return -1;
}

} // namespace

int KeepLostPasswords(DatabaseRecord& Ours, const TableEntry& OursBefore, const TableEntry* Base,
                      const TableEntry& Theirs) {
    TRACE_PROC("modFields.KeepLostPasswords");
    const int id = columnOf(Theirs, QStringLiteral("IndNum")),
              pw = columnOf(Theirs, QStringLiteral("Password"));
    if (!Base || id < 0 || pw < 0 || columnOf(*Base, QStringLiteral("Password")) != pw ||
        columnOf(OursBefore, QStringLiteral("Password")) != pw)
        return 0;
    const QHash<QByteArray, int> base = rowsById(*Base, id), ours = rowsById(OursBefore, id);
    QList<QStringList> kept;
    const QString now = dateText(QDateTime::currentDateTimeUtc());
    for (int r = 0; r < Theirs.RecNum(); ++r) {
        const QByteArray key = Theirs.Records.escaped(r, id).toByteArray();
        const auto b = base.constFind(key), o = ours.constFind(key);
        if (b == base.cend() || o == ours.cend() || Theirs.Records.sameValue(r, pw, Base->Records, *b, pw) ||
            OursBefore.Records.sameValue(*o, pw, Base->Records, *b, pw) ||
            OursBefore.Records.sameValue(*o, pw, Theirs.Records, r, pw) ||
            Theirs.Records.value(r, pw).isEmpty())
            continue;
        kept.append({newKey(), Theirs.Records.value(r, id), QString::number(rffHistory), QString(),
                     Theirs.Records.value(r, pw), now});
    }
    if (kept.isEmpty())
        return 0;
    int t = FieldTableNum(Ours);
    if (t == 0) {
        Ours.Tables.append(NewFieldTable());
        t = Ours.TabNum();
    }
    TableEntry& table = Ours.Tables[t - 1];
    const Columns c(table);
    for (const QStringList& k : kept) {
        QStringList row(std::max<qsizetype>(table.FldNames.size(), cCount));
        for (int i = 0; i < cCount; ++i)
            row[c[static_cast<Col>(i)]] = k[i];
        table.Records.append(row);
    }
    return static_cast<int>(kept.size());
}

QList<int> RowsWithMatchingExtras(const DatabaseRecord& Db, int DataTblNum, const QString& Text,
                                  bool CaseSens) {
    QList<int> rows;
    const int t = FieldTableNum(Db);
    if (t == 0 || DataTblNum < 1 || DataTblNum > Db.TabNum() || Text.isEmpty())
        return rows;
    const TableEntry& table = Db.Tables[t - 1];
    const Columns c(table);
    const QString needle = CaseSens ? Text : Text.toCaseFolded();
    QSet<QByteArray> ids;
    for (int r = 0; r < table.RecNum(); ++r) {
        const int flags = flagsOf(table.Records, r, c);
        if (flags & (rffHidden | rffOtp | rffHistory | kRffInternal))
            continue;
        QString v = table.Records.value(r, c[cValue]);
        QString n = table.Records.value(r, c[cName]);
        if (!CaseSens) {
            v = v.toCaseFolded();
            n = n.toCaseFolded();
        }
        if (v.contains(needle) || n.contains(needle))
            ids.insert(table.Records.escaped(r, c[cInd]).toByteArray());
    }
    if (ids.isEmpty())
        return rows;
    const TableEntry& data = Db.Tables[DataTblNum - 1];
    const int id = std::max(columnOf(data, QStringLiteral("IndNum")), 0);
    for (int r = 0; r < data.RecNum(); ++r)
        if (ids.contains(data.Records.escaped(r, id).toByteArray()))
            rows.append(r + 1);
    return rows;
}

QSet<QByteArray> RecordsWithChangedExtras(const DatabaseRecord& Side, const DatabaseRecord& Base) {
    QSet<QByteArray> out;
    const int st = FieldTableNum(Side), bt = FieldTableNum(Base);
    if (st == 0 && bt == 0)
        return out;
    static const TableEntry none = NewFieldTable();
    const TableEntry& s = st > 0 ? Side.Tables[st - 1] : none;
    const TableEntry& b = bt > 0 ? Base.Tables[bt - 1] : none;
    const Columns cs(s), cb(b);
    QHash<QByteArrayView, int> baseByKey;
    baseByKey.reserve(b.RecNum());
    for (int r = 0; r < b.RecNum(); ++r)
        baseByKey.insert(b.Records.escaped(r, cb[cKey]), r);
    std::vector<char> seen(static_cast<size_t>(b.RecNum()), 0);
    for (int r = 0; r < s.RecNum(); ++r) {
        const auto it = baseByKey.constFind(s.Records.escaped(r, cs[cKey]));
        if (it == baseByKey.cend()) {
            out.insert(s.Records.escaped(r, cs[cInd]).toByteArray());
            continue;
        }
        seen[static_cast<size_t>(*it)] = 1;
        if (!s.Records.sharesRow(r, b.Records, *it) && !s.Records.sameRow(r, b.Records, *it)) {
            out.insert(s.Records.escaped(r, cs[cInd]).toByteArray());
            out.insert(b.Records.escaped(*it, cb[cInd]).toByteArray());
        }
    }
    for (int r = 0; r < b.RecNum(); ++r)
        if (!seen[static_cast<size_t>(r)])
            out.insert(b.Records.escaped(r, cb[cInd]).toByteArray());
    return out;
}
