#include "storage/RecordStore.h"

#include "storage/TableFile.h"

#include <sodium.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <memory>
#include <mutex>

namespace {

constexpr char kSepByte = static_cast<char>(0x87);
// Offsets with this bit set point into the append area, the others into the read bytes.
constexpr std::uint32_t kInExtra = 0x80000000u;
constexpr qsizetype kMaxArea = 0x7fffffff;
// In a length handed to appendParsed: the value has a backslash or a byte above ASCII.
constexpr std::uint32_t kOdd = 0x80000000u;

struct Cell {
    std::uint32_t Off;
    std::uint32_t Len;
};

struct RowRef {
    std::uint32_t First; // index of the row's first value in Cells
    std::uint32_t Count;
};

// Wipes the bytes of B when this is their last holder.
void wipeOwned(QByteArray& B) {
    if (!B.isEmpty() && B.isDetached())
        sodium_memzero(B.data(), static_cast<std::size_t>(B.size()));
    B = QByteArray();
}

// True when an escaped value from a file is in the form a save would write for its text:
// every backslash starts one of the four escapes, and the unescaped bytes are UTF-8.
bool isCanonical(const char* S, std::uint32_t N) {
    bool ascii = true;
    for (std::uint32_t i = 0; i < N; ++i) {
        const auto c = static_cast<unsigned char>(S[i]);
        if (c == '\\') {
            if (i + 1 == N)
                return false;
            const char e = S[++i];
            if (e != '\\' && e != 's' && e != 'r' && e != 'n')
                return false;
            if (e == 's')
                ascii = false;
        } else if (c >= 0x80) {
            ascii = false;
        }
    }
    if (ascii)
        return true;
    QByteArray raw;
    raw.reserve(N);
    for (std::uint32_t i = 0; i < N; ++i) {
        if (S[i] == '\\') {
            const char e = S[++i];
            raw.append(e == 's' ? kSepByte : e == 'r' ? '\r' : e == 'n' ? '\n' : '\\');
        } else {
            raw.append(S[i]);
        }
    }
    const bool ok = QByteArrayView(raw).isValidUtf8();
    sodium_memzero(raw.data(), static_cast<std::size_t>(raw.size()));
    return ok;
}

} // namespace

// Lines of Base not split into rows yet (attachUnread).
struct Unread {
    qsizetype Off = 0;
    qsizetype Len = 0;
    int Count = 0;
    int N = 0;
    std::atomic<bool> Split{false};
    std::mutex Lock; // copies of the store may be read from more than one thread
};

struct RecordStore::Data : QSharedData {
    QByteArray Base;  // the bytes a table was read from; never changed
    QByteArray Extra; // values set since, each escaped
    std::vector<Cell> Cells;
    std::vector<RowRef> Rows;
    std::size_t Live = 0;             // cells that rows point to
    qsizetype ExtraCheckAt = 1 << 16; // the append area's size at which its waste is counted
    std::unique_ptr<Unread> Lines;    // set while the rows may still be unsplit

    Data() = default;
    // Only a store whose lines were split is ever copied (readLines comes first).
    Data(const Data& O)
        : QSharedData(O), Base(O.Base), Extra(O.Extra), Cells(O.Cells), Rows(O.Rows), Live(O.Live),
          ExtraCheckAt(O.ExtraCheckAt) {}
    bool unread() const { return Lines && !Lines->Split.load(std::memory_order_acquire); }
    ~Data() {
        wipeOwned(Base);
        wipeOwned(Extra);
    }

    const char* at(const Cell& c) const {
        return c.Off & kInExtra ? Extra.constData() + (c.Off & ~kInExtra) : Base.constData() + c.Off;
    }
    QByteArrayView view(const Cell& c) const { return QByteArrayView(at(c), c.Len); }

    // Room for N more bytes in the append area, grown by hand so that the old block is
    // wiped rather than left behind by a reallocation.
    void reserveExtra(qsizetype N) {
        if (Extra.isDetached() && Extra.size() + N <= Extra.capacity())
            return;
        QByteArray grown;
        grown.reserve(std::max<qsizetype>(4096, 2 * (Extra.size() + N)));
        grown.append(Extra);
        wipeOwned(Extra);
        Extra = std::move(grown);
    }

    Cell store(QByteArrayView Bytes) {
        if (Bytes.isEmpty())
            return Cell{0, 0};
        // Before the new value goes in: a compaction keeps only values rows point to.
        if (Extra.size() + Bytes.size() > kMaxArea)
            compactExtra();
        else
            maybeCompactExtra();
        reserveExtra(Bytes.size());
        const auto off = static_cast<std::uint32_t>(Extra.size());
        Extra.append(Bytes.data(), Bytes.size());
        return Cell{off | kInExtra, static_cast<std::uint32_t>(Bytes.size())};
    }

    // A text escaped straight into the append area (no buffer of its own to wipe).
    Cell storeText(const QString& Text) {
        if (Text.isEmpty())
            return Cell{0, 0};
        // At most 6 bytes per UTF-16 unit (TableFile.cpp).
        const qsizetype most = Text.size() * 6;
        if (Extra.size() + most > kMaxArea)
            compactExtra();
        else
            maybeCompactExtra();
        reserveExtra(most);
        const auto off = static_cast<std::uint32_t>(Extra.size());
        AppendEscaped(Extra, Text);
        return Cell{off | kInExtra, static_cast<std::uint32_t>(Extra.size() - off)};
    }

    // A copy of a value of another store; values of the same read bytes are shared.
    Cell copyOf(const Data& From, const Cell& C) {
        if (!(C.Off & kInExtra) && From.Base.constData() == Base.constData())
            return C;
        if (&From != this)
            return store(From.view(C));
        // Our own append area may move while it grows: copy the bytes out first.
        QByteArray b(at(C), C.Len);
        const Cell out = store(b);
        sodium_memzero(b.data(), static_cast<std::size_t>(b.size()));
        return out;
    }

    void maybeCompactExtra() {
        if (Extra.size() < ExtraCheckAt)
            return;
        ExtraCheckAt = 2 * Extra.size();
        qsizetype used = 0;
        for (const RowRef& r : Rows)
            for (std::uint32_t k = 0; k < r.Count; ++k)
                if (Cells[r.First + k].Off & kInExtra)
                    used += Cells[r.First + k].Len;
        if (used < Extra.size() / 2)
            compactExtra();
    }

    // Keeps in the append area only the values rows still point to.
    void compactExtra() {
        QByteArray kept;
        kept.reserve(Extra.size() / 2 + 4096);
        for (const RowRef& r : Rows) {
            for (std::uint32_t k = 0; k < r.Count; ++k) {
                Cell& c = Cells[r.First + k];
                if (!(c.Off & kInExtra))
                    continue;
                const auto off = static_cast<std::uint32_t>(kept.size());
                kept.append(at(c), c.Len);
                c.Off = off | kInExtra;
            }
        }
        wipeOwned(Extra);
        Extra = std::move(kept);
        ExtraCheckAt = std::max<qsizetype>(1 << 16, 2 * Extra.size());
    }

    // Cells in row order with nothing between them, after rows went away or moved.
    void compactCells() {
        std::vector<Cell> cells;
        cells.reserve(Live);
        for (RowRef& r : Rows) {
            const auto first = static_cast<std::uint32_t>(cells.size());
            cells.insert(cells.end(), Cells.begin() + r.First, Cells.begin() + r.First + r.Count);
            r.First = first;
        }
        Cells = std::move(cells);
    }

    void maybeCompactCells() {
        if (Cells.size() > 2 * Live + 4096)
            compactCells();
    }

    RowRef newRow(std::uint32_t Count) {
        const RowRef r{static_cast<std::uint32_t>(Cells.size()), Count};
        Cells.resize(Cells.size() + Count, Cell{0, 0});
        Live += Count;
        return r;
    }
};

RecordStore::RecordStore() : d(new Data) {}
RecordStore::RecordStore(const RecordStore&) = default;
RecordStore& RecordStore::operator=(const RecordStore&) = default;
RecordStore::RecordStore(RecordStore&&) noexcept = default;
RecordStore& RecordStore::operator=(RecordStore&&) noexcept = default;
RecordStore::~RecordStore() = default;

void RecordStore::readLines() const {
    if (d->unread())
        splitUnread();
}

void RecordStore::splitUnread() const {
    // The split changes how the rows are kept, not what they hold: every copy sharing
    // this data may see it, so it happens in place, once.
    auto& x = const_cast<Data&>(*d.constData());
    const std::lock_guard<std::mutex> hold(x.Lines->Lock);
    if (x.Lines->Split.load(std::memory_order_relaxed))
        return;
    RecordStore rows;
    rows.attach(x.Base);
    rows.reserve(x.Lines->Count, x.Lines->N);
    // The lines were checked when the file was read: this cannot fail.
    SplitRows(x.Base, x.Lines->Off, x.Lines->Len, x.Lines->Count, x.Lines->N, &rows);
    Data& r = *rows.d;
    x.Extra = std::move(r.Extra);
    x.Cells = std::move(r.Cells);
    x.Rows = std::move(r.Rows);
    x.Live = r.Live;
    x.ExtraCheckAt = r.ExtraCheckAt;
    x.Lines->Split.store(true, std::memory_order_release);
}

bool RecordStore::isUnread() const {
    return d->unread();
}

QByteArrayView RecordStore::unreadLines(int N) const {
    if (!d->unread() || d->Lines->N != N)
        return {};
    return QByteArrayView(d->Base.constData() + d->Lines->Off, d->Lines->Len);
}

void RecordStore::attachUnread(const QByteArray& Bytes, qsizetype Off, qsizetype Len, int Count, int N) {
    attach(Bytes);
    if (Count <= 0)
        return;
    d->Lines = std::make_unique<Unread>();
    d->Lines->Off = Off;
    d->Lines->Len = Len;
    d->Lines->Count = Count;
    d->Lines->N = N;
}

int RecordStore::size() const {
    // The number of rows is known before they are split.
    if (d->unread())
        return d->Lines->Count;
    return static_cast<int>(d->Rows.size());
}

int RecordStore::fieldCount(int Row) const {
    readLines();
    return Row >= 0 && Row < size() ? static_cast<int>(d->Rows[static_cast<std::size_t>(Row)].Count) : 0;
}

QByteArrayView RecordStore::escaped(int Row, int Fld) const {
    readLines();
    if (Fld < 0 || Fld >= fieldCount(Row))
        return {};
    return d->view(d->Cells[d->Rows[static_cast<std::size_t>(Row)].First + static_cast<std::uint32_t>(Fld)]);
}

QString RecordStore::value(int Row, int Fld) const {
    if (Fld < 0 || Fld >= fieldCount(Row))
        return QString();
    const QByteArrayView v = escaped(Row, Fld);
    return UnescapeValue(v.data(), v.size());
}

bool RecordStore::intValue(int Row, int Fld, long long& Out) const {
    Out = 0;
    const QByteArrayView v = escaped(Row, Fld);
    qsizetype i = 0;
    const bool neg = !v.isEmpty() && v[0] == '-';
    if (neg)
        i = 1;
    if (i == v.size() || v.size() - i > 18)
        return false;
    long long n = 0;
    for (; i < v.size(); ++i) {
        const char c = v[i];
        if (c < '0' || c > '9')
            return false;
        n = n * 10 + (c - '0');
    }
    Out = neg ? -n : n;
    return true;
}

bool RecordStore::valueIs(int Row, int Fld, const QString& Text) const {
    if (Fld < 0 || Fld >= fieldCount(Row))
        return false;
    QByteArray e = StoredForm(Text);
    const bool same = escaped(Row, Fld) == QByteArrayView(e);
    sodium_memzero(e.data(), static_cast<std::size_t>(e.size()));
    return same;
}

QStringList RecordStore::row(int Row) const {
    QStringList out;
    const int n = fieldCount(Row);
    out.reserve(n);
    for (int f = 0; f < n; ++f)
        out.append(value(Row, f));
    return out;
}

QList<QStringList> RecordStore::rows() const {
    QList<QStringList> out;
    out.reserve(size());
    for (int i = 0; i < size(); ++i)
        out.append(row(i));
    return out;
}

RecordStore RecordStore::fromRows(const QList<QStringList>& Rows) {
    // One block of bytes, as a file would give: the rows read from it.
    QByteArray bytes;
    std::vector<std::uint32_t> offs, lens;
    for (const QStringList& r : Rows)
        for (const QString& v : r) {
            offs.push_back(static_cast<std::uint32_t>(bytes.size()));
            AppendEscaped(bytes, v);
            lens.push_back(static_cast<std::uint32_t>(bytes.size()) - offs.back());
        }
    RecordStore s;
    s.attach(bytes);
    s.reserve(static_cast<int>(Rows.size()));
    std::size_t k = 0;
    for (const QStringList& r : Rows) {
        s.appendParsed(static_cast<int>(r.size()), offs.data() + k, lens.data() + k);
        k += static_cast<std::size_t>(r.size());
    }
    return s;
}

bool RecordStore::sameValue(int Row, int Fld, const RecordStore& Other, int ORow, int OFld) const {
    const QByteArrayView a = escaped(Row, Fld), b = Other.escaped(ORow, OFld);
    // Copies of one reading point at the very same bytes.
    return a.size() == b.size() && (a.data() == b.data() || a == b);
}

bool RecordStore::sameRow(int Row, const RecordStore& Other, int ORow) const {
    const int n = fieldCount(Row);
    if (n != Other.fieldCount(ORow) || Row < 0 || Row >= size())
        return false;
    for (int f = 0; f < n; ++f)
        if (!sameValue(Row, f, Other, ORow, f))
            return false;
    return true;
}

bool RecordStore::sharesRow(int Row, const RecordStore& Other, int ORow) const {
    readLines();
    Other.readLines();
    if (Row < 0 || Row >= size() || ORow < 0 || ORow >= Other.size())
        return false;
    const RowRef& a = d->Rows[static_cast<std::size_t>(Row)];
    const RowRef& b = Other.d->Rows[static_cast<std::size_t>(ORow)];
    if (a.Count != b.Count)
        return false;
    for (std::uint32_t k = 0; k < a.Count; ++k) {
        const Cell& x = d->Cells[a.First + k];
        const Cell& y = Other.d->Cells[b.First + k];
        if (x.Off != y.Off || x.Len != y.Len || d->at(x) != Other.d->at(y))
            return false;
    }
    return true;
}

void RecordStore::setValue(int Row, int Fld, const QString& Text) {
    readLines();
    if (Fld < 0 || Fld >= fieldCount(Row))
        return;
    Data& x = *d;
    const Cell c = x.storeText(Text);
    x.Cells[x.Rows[static_cast<std::size_t>(Row)].First + static_cast<std::uint32_t>(Fld)] = c;
}

void RecordStore::setValueFrom(int Row, int Fld, const RecordStore& Other, int ORow, int OFld) {
    readLines();
    Other.readLines();
    if (Fld < 0 || Fld >= fieldCount(Row) || OFld < 0 || OFld >= Other.fieldCount(ORow))
        return;
    Data& x = *d;
    const Data& from = &Other == this ? x : *Other.d;
    const Cell c = x.copyOf(
        from, from.Cells[from.Rows[static_cast<std::size_t>(ORow)].First + static_cast<std::uint32_t>(OFld)]);
    x.Cells[x.Rows[static_cast<std::size_t>(Row)].First + static_cast<std::uint32_t>(Fld)] = c;
}

void RecordStore::setRow(int Row, const QStringList& Values) {
    readLines();
    if (Row < 0 || Row >= size())
        return;
    Data& x = *d;
    RowRef& r = x.Rows[static_cast<std::size_t>(Row)];
    if (r.Count != static_cast<std::uint32_t>(Values.size())) {
        x.Live -= r.Count;
        r = x.newRow(static_cast<std::uint32_t>(Values.size()));
        x.maybeCompactCells();
    }
    for (int f = 0; f < Values.size(); ++f)
        setValue(Row, f, Values[f]);
}

void RecordStore::append(const QStringList& Values) {
    readLines();
    Data& x = *d;
    const RowRef r = x.newRow(static_cast<std::uint32_t>(Values.size()));
    x.Rows.push_back(r);
    for (int f = 0; f < Values.size(); ++f)
        if (!Values[f].isEmpty()) {
            const Cell c = x.storeText(Values[f]);
            x.Cells[r.First + static_cast<std::uint32_t>(f)] = c;
        }
}

void RecordStore::appendFrom(const RecordStore& Other, int ORow) {
    readLines();
    Other.readLines();
    if (ORow < 0 || ORow >= Other.size())
        return;
    Data& x = *d;
    const Data& from = &Other == this ? x : *Other.d;
    const RowRef src = from.Rows[static_cast<std::size_t>(ORow)];
    // The row is in place before its values: a compaction while they are copied keeps them.
    const RowRef r = x.newRow(src.Count);
    x.Rows.push_back(r);
    for (std::uint32_t k = 0; k < src.Count; ++k) {
        const Cell c = x.copyOf(from, from.Cells[src.First + k]);
        x.Cells[r.First + k] = c;
    }
}

void RecordStore::removeAt(int Row) {
    readLines();
    if (Row < 0 || Row >= size())
        return;
    Data& x = *d;
    x.Live -= x.Rows[static_cast<std::size_t>(Row)].Count;
    x.Rows.erase(x.Rows.begin() + Row);
    x.maybeCompactCells();
}

void RecordStore::removeRows(const std::vector<bool>& Drop) {
    readLines();
    Data& x = *d;
    std::size_t w = 0;
    for (std::size_t i = 0; i < x.Rows.size(); ++i) {
        if (i < Drop.size() && Drop[i]) {
            x.Live -= x.Rows[i].Count;
            continue;
        }
        x.Rows[w++] = x.Rows[i];
    }
    x.Rows.resize(w);
    x.maybeCompactCells();
}

void RecordStore::reorder(const std::vector<int>& Order) {
    readLines();
    Data& x = *d;
    std::vector<RowRef> rows;
    rows.reserve(Order.size());
    x.Live = 0;
    for (int i : Order) {
        if (i < 0 || i >= static_cast<int>(x.Rows.size()))
            continue;
        rows.push_back(x.Rows[static_cast<std::size_t>(i)]);
        x.Live += rows.back().Count;
    }
    x.Rows = std::move(rows);
    // A row taken twice must not share its values with its twin: every row gets its own.
    x.compactCells();
}

void RecordStore::clear() {
    d = new Data;
}

void RecordStore::reserve(int Rows, int Fields) {
    readLines();
    d->Rows.reserve(static_cast<std::size_t>(std::max(Rows, 0)));
    d->Cells.reserve(d->Cells.size() + static_cast<std::size_t>(std::max(Rows, 0)) *
                                           static_cast<std::size_t>(std::max(Fields, 0)));
}

bool RecordStore::operator==(const RecordStore& Other) const {
    if (d == Other.d)
        return true;
    if (size() != Other.size())
        return false;
    // Two unsplit readings of the same lines hold the same rows (other lines may still).
    if (d->unread() && Other.d->unread() && d->Lines->N == Other.d->Lines->N &&
        unreadLines(d->Lines->N) == Other.unreadLines(d->Lines->N))
        return true;
    for (int i = 0; i < size(); ++i)
        if (!sameRow(i, Other, i))
            return false;
    return true;
}

void RecordStore::shareBytesOf(const RecordStore& Other) {
    attach(Other.d->Base);
}

void RecordStore::attach(const QByteArray& Bytes) {
    d = new Data;
    d->Base = Bytes;
}

void RecordStore::appendParsed(int N, const std::uint32_t* Offs, const std::uint32_t* Lens) {
    readLines();
    Data& x = *d;
    const RowRef r = x.newRow(static_cast<std::uint32_t>(N));
    x.Rows.push_back(r);
    for (int k = 0; k < N; ++k) {
        const char* s = x.Base.constData() + Offs[k];
        const std::uint32_t len = Lens[k] & ~kOdd;
        if (!(Lens[k] & kOdd) || isCanonical(s, len)) {
            x.Cells[r.First + static_cast<std::uint32_t>(k)] = Cell{Offs[k], len};
        } else {
            QByteArray e = StoredForm(UnescapeValue(s, len));
            x.Cells[r.First + static_cast<std::uint32_t>(k)] = x.store(e);
            sodium_memzero(e.data(), static_cast<std::size_t>(e.size()));
        }
    }
}

void RecordStore::writeRow(QByteArray& Out, int Row) const {
    readLines();
    const int n = fieldCount(Row);
    if (n == 0)
        return;
    // A row nobody changed is still its line of the file, separators and all: one copy.
    const RowRef& r = d->Rows[static_cast<std::size_t>(Row)];
    const Cell* c = d->Cells.data() + r.First;
    bool line = !(c[0].Off & kInExtra);
    for (int f = 1; line && f < n; ++f)
        line = !(c[f].Off & kInExtra) && c[f].Off == c[f - 1].Off + c[f - 1].Len + 1;
    if (line) {
        Out.append(d->Base.constData() + c[0].Off, c[n - 1].Off + c[n - 1].Len - c[0].Off);
        return;
    }
    for (int f = 0; f < n; ++f) {
        if (f > 0)
            Out.append(kSepByte);
        const QByteArrayView v = escaped(Row, f);
        Out.append(v.data(), v.size());
    }
}

qsizetype RecordStore::byteSize() const {
    if (d->unread())
        return d->Lines->Len;
    qsizetype n = 0;
    for (const RowRef& r : d->Rows) {
        n += r.Count;
        for (std::uint32_t k = 0; k < r.Count; ++k)
            n += d->Cells[r.First + k].Len;
    }
    return n;
}
