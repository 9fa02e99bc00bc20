#include "storage/UserFileMergeIds.h"

#include "storage/TableFile.h"

int MergeColumnOf(const TableEntry& Table, const QString& Name, int Fallback) {
    for (qsizetype i = 0; i < Table.FldNames.size(); ++i)
        if (Table.FldNames[i].compare(Name, Qt::CaseInsensitive) == 0)
            return static_cast<int>(i);
    return Fallback;
}

qint64 PlainIdNumber(QByteArrayView Text) {
    const qsizetype length = Text.size();
    if (length == 0 || length > 18 || (length > 1 && Text[0] == '0'))
        return -1;
    qint64 value = 0;
    for (char digit : Text) {
        if (digit < '0' || digit > '9')
            return -1;
        value = value * 10 + (digit - '0');
    }
    return value;
}

qint64 IdNumberOf(QByteArrayView Text) {
    const qint64 plain = PlainIdNumber(Text);
    if (plain >= 0)
        return plain;
    bool ok = false;
    const qint64 value = QString::fromUtf8(Text).trimmed().toLongLong(&ok);
    return ok ? value : 0;
}

clsTableIds::clsTableIds(const TableEntry& Table, int IdCol, int ParentCol)
    : Numbers(static_cast<size_t>(Table.RecNum())) {
    Top = IdNumberOf(StoredForm(Table.Tag));
    if (ParentCol >= 0)
        Parents.resize(Numbers.size());
    const RecordStore& rows = Table.Records;
    for (int row = 0; row < Table.RecNum(); ++row) {
        const QByteArrayView id = rows.escaped(row, IdCol);
        const qint64 number = PlainIdNumber(id);
        Numbers[static_cast<size_t>(row)] = number;
        Top = std::max(Top, number >= 0 ? number : IdNumberOf(id));
        if (ParentCol >= 0)
            Parents[static_cast<size_t>(row)] = PlainIdNumber(rows.escaped(row, ParentCol));
    }
}

void clsIdIndex::build(const RecordStore& Rows, const std::vector<qint64>& Numbers, int IdCol, qint64 Top) {
    reserveFor(Top, Rows.size());
    for (int row = 0; row < Rows.size(); ++row) {
        const qint64 number = Numbers[static_cast<size_t>(row)];
        add(number, number >= 0 ? QByteArrayView() : Rows.escaped(row, IdCol), row);
    }
}

void clsIdIndex::addSparse(qint64 Number, QByteArrayView Id, int Pos) {
    if (Number >= 0) {
        if (!m_numbers.contains(Number))
            m_numbers.insert(Number, Pos);
    } else {
        const QByteArray text = Id.toByteArray();
        if (!m_texts.contains(text))
            m_texts.insert(text, Pos);
    }
}

clsOurRowsInBase::clsOurRowsInBase(const TableEntry& Base, const clsTableIds& BaseIds, const TableEntry& Ours,
                                   int IdCol)
    : BaseRowOf(static_cast<size_t>(Ours.RecNum()), -1), OurRowOf(static_cast<size_t>(Base.RecNum()), -1),
      Numbers(static_cast<size_t>(Ours.RecNum()), -1) {
    Top = IdNumberOf(StoredForm(Ours.Tag));
    std::vector<int> unshared;
    int nextBaseRow = 0;
    for (int row = 0; row < Ours.RecNum(); ++row) {
        const int baseRow = sharedBaseRow(Base, Ours, row, nextBaseRow);
        const QByteArrayView id = Ours.Records.escaped(row, IdCol);
        qint64& number = Numbers[static_cast<size_t>(row)];
        if (baseRow >= 0) {
            BaseRowOf[static_cast<size_t>(row)] = baseRow;
            OurRowOf[static_cast<size_t>(baseRow)] = row;
            number = BaseIds.Numbers[static_cast<size_t>(baseRow)];
            nextBaseRow = baseRow + 1;
        } else {
            number = PlainIdNumber(id);
            unshared.push_back(row);
        }
        Top = std::max(Top, number >= 0 ? number : IdNumberOf(id));
    }
    Unshared.reserveFor(Top, static_cast<qsizetype>(unshared.size()));
    for (int row : unshared) {
        const qint64 number = Numbers[static_cast<size_t>(row)];
        Unshared.add(number, number >= 0 ? QByteArrayView() : Ours.Records.escaped(row, IdCol), row);
    }
}

// The base row that our row OurRow still shares, looked for a few rows on from From (rows
// deleted from ours leave gaps); -1 when none.
int clsOurRowsInBase::sharedBaseRow(const TableEntry& Base, const TableEntry& Ours, int OurRow,
                                    int From) const {
    const int end = std::min(Base.RecNum(), From + 8);
    for (int baseRow = From; baseRow < end; ++baseRow)
        if (Ours.Records.sharesRow(OurRow, Base.Records, baseRow))
            return baseRow;
    return -1;
}

clsRowsByKey::clsRowsByKey(const RecordStore& Rows)
    : m_rows(&Rows), m_numbers(static_cast<size_t>(Rows.size())),
      m_repeatOf(static_cast<size_t>(Rows.size()), 0) {
    qint64 top = 0;
    for (int row = 0; row < Rows.size(); ++row) {
        const qint64 number = PlainIdNumber(Rows.escaped(row, 0));
        m_numbers[static_cast<size_t>(row)] = number;
        top = std::max(top, number);
    }
    m_first.reserveFor(top, Rows.size());
    for (int row = 0; row < Rows.size(); ++row) {
        const qint64 number = m_numbers[static_cast<size_t>(row)];
        const QByteArrayView key = number >= 0 ? QByteArrayView() : Rows.escaped(row, 0);
        if (m_first.find(number, key) < 0) {
            m_first.add(number, key, row);
        } else {
            const QByteArray text = Rows.escaped(row, 0).toByteArray();
            const int repeat = ++m_repeatCount[text];
            m_repeatOf[static_cast<size_t>(row)] = repeat;
            m_repeats.insert({text, repeat}, row);
        }
    }
}

int clsRowsByKey::find(const clsRowsByKey& Other, int Row) const {
    const qint64 number = Other.m_numbers[static_cast<size_t>(Row)];
    const int repeat = Other.m_repeatOf[static_cast<size_t>(Row)];
    if (repeat == 0)
        return m_first.find(number, number >= 0 ? QByteArrayView() : Other.m_rows->escaped(Row, 0));
    return m_repeats.value({Other.m_rows->escaped(Row, 0).toByteArray(), repeat}, -1);
}

clsRecordFates::clsRecordFates(const TableEntry* Base, const TableEntry* OursBefore, const TableEntry* Theirs,
                               const TableEntry* Result, bool Revive)
    : m_revive(Revive) {
    read(m_base, Base);
    read(m_ours, OursBefore);
    read(m_theirs, Theirs);
    read(m_result, Result);
}

void clsRecordFates::read(clsSide& Side, const TableEntry* Table) {
    if (!Table)
        return;
    const int idCol = MergeColumnOf(*Table, QStringLiteral("IndNum"), 0);
    const clsTableIds ids(*Table, idCol);
    Side.Index.build(Table->Records, ids.Numbers, idCol, ids.Top);
}

bool clsRecordFates::gone(QByteArrayView Id) const {
    const qint64 number = PlainIdNumber(Id);
    const QByteArrayView text = number >= 0 ? QByteArrayView() : Id;
    return !m_result.has(number, text) &&
           (m_base.has(number, text) || m_ours.has(number, text) || m_theirs.has(number, text));
}

bool clsRecordFates::revived(QByteArrayView Id) const {
    const qint64 number = PlainIdNumber(Id);
    const QByteArrayView text = number >= 0 ? QByteArrayView() : Id;
    return m_revive && m_result.has(number, text) && m_base.has(number, text) &&
           !(m_ours.has(number, text) && m_theirs.has(number, text));
}
