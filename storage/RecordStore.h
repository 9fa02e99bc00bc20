#pragma once

// The records of one table, kept without a text object per value. The values live as the
// escaped UTF-8 of the file (TableFile.h) in one block of bytes: the deciphered body a
// table was read from, shared by every table of that file and never changed afterwards,
// plus an append area for the values set since. Each value is an offset and a length into
// those bytes; a row is a run of values. A value becomes a QString only when a caller asks
// for it, and a save copies the bytes as they are.
//
// Copies share everything until one of them changes (the database keeps a copy of the
// table as it was last read or written, for the merge of a save). Bytes that nobody needs
// any more are wiped when the last copy lets go of them.
//
// A table other than the records may be read later than its file: its rows stay unsplit
// lines of the shared bytes (attachUnread) until something asks for them, and a save
// before that copies the lines as they are.
//
// Rows and fields are counted from 0 here. Out-of-range numbers read as an empty (null)
// value and are ignored by the setters.

#include <QByteArray>
#include <QByteArrayView>
#include <QSharedDataPointer>
#include <QString>
#include <QStringList>

#include <cstdint>
#include <vector>

class RecordStore {
public:
    RecordStore();
    RecordStore(const RecordStore&);
    RecordStore& operator=(const RecordStore&);
    RecordStore(RecordStore&&) noexcept;
    RecordStore& operator=(RecordStore&&) noexcept;
    ~RecordStore();

    int size() const;
    bool isEmpty() const { return size() == 0; }
    // The number of values in a row (every row of a table read from a file has one per field).
    int fieldCount(int Row) const;

    QString value(int Row, int Fld) const;
    // The value as it stands in a file: escaped UTF-8, valid until the store changes.
    QByteArrayView escaped(int Row, int Fld) const;
    // A value that is a plain decimal integer (an optional '-' and up to 18 digits), read
    // without any conversion; false for anything else, Out then 0.
    bool intValue(int Row, int Fld, long long& Out) const;
    // True when the value is exactly Text.
    bool valueIs(int Row, int Fld, const QString& Text) const;
    QStringList row(int Row) const;
    // Every row as texts, and a store made of such rows (tests, tools, small tables).
    QList<QStringList> rows() const;
    static RecordStore fromRows(const QList<QStringList>& Rows);

    // Row Row of this store holds exactly the values of row ORow of Other.
    bool sameRow(int Row, const RecordStore& Other, int ORow) const;
    bool sameValue(int Row, int Fld, const RecordStore& Other, int ORow, int OFld) const;
    // Row Row is, untouched, the very row ORow of Other (both copies of one reading): a
    // cheap test that needs no comparison of bytes. False says nothing.
    bool sharesRow(int Row, const RecordStore& Other, int ORow) const;
    // True when both are copies of one state that neither changed since: a store that is
    // written to while a copy is kept gets data of its own. False says nothing.
    bool sameState(const RecordStore& Other) const { return d.constData() == Other.d.constData(); }

    void setValue(int Row, int Fld, const QString& Text);
    // Copies one value of another store (or of this one) without conversion.
    void setValueFrom(int Row, int Fld, const RecordStore& Other, int ORow, int OFld);
    void setRow(int Row, const QStringList& Values);
    void append(const QStringList& Values);
    // Appends row ORow of Other (or of this store) without conversion.
    void appendFrom(const RecordStore& Other, int ORow);
    void removeAt(int Row);
    // Removes the rows whose flag is set (Drop holds one flag per row).
    void removeRows(const std::vector<bool>& Drop);
    // The rows become Order's rows of today, in that order (rows left out are dropped).
    void reorder(const std::vector<int>& Order);
    void clear();
    // Room for Rows rows of Fields values each.
    void reserve(int Rows, int Fields = 0);
    // Starts the store over, empty, on the read bytes of Other: rows of Other appended
    // afterwards share their values instead of copying them.
    void shareBytesOf(const RecordStore& Other);

    bool operator==(const RecordStore& Other) const;
    bool operator!=(const RecordStore& Other) const { return !(*this == Other); }

    // ---- for the file reader and writer ---------------------------------------------------
    // Starts the store over on Bytes (the deciphered body, shared, never changed again).
    void attach(const QByteArray& Bytes);
    // Appends a row whose N values are at Offs[k], Lens[k] in the attached bytes (escaped).
    // The top bit of a length marks a value with a backslash or a byte above ASCII; such a
    // value in a form the store does not keep (a stray backslash, bytes that are not
    // UTF-8) is taken through its text instead, so that equal texts are equal bytes.
    void appendParsed(int N, const std::uint32_t* Offs, const std::uint32_t* Lens);
    // Starts the store over on Bytes with Count rows of N values each, not split yet: their
    // lines are the Len bytes from Off, every line checked already (SplitRows, TableFile.h)
    // and ending in CR LF. They are split on first use.
    void attachUnread(const QByteArray& Bytes, qsizetype Off, qsizetype Len, int Count, int N);
    // The lines of a store whose rows were never split, when they have N values each:
    // what a save writes for them. Empty otherwise.
    QByteArrayView unreadLines(int N) const;
    // True while the rows are still unsplit lines.
    bool isUnread() const;
    // Splits them now (once; any thread may, the store and its copies wait for it).
    void splitLines() const { readLines(); }
    // Appends row Row in its file form: escaped values separated by the byte 0x87.
    void writeRow(QByteArray& Out, int Row) const;
    // The bytes a save writes for all rows, without line ends: a size estimate.
    qsizetype byteSize() const;

private:
    struct Data;
    // Splits unread lines (copies share the result); every other member calls it first.
    void readLines() const;
    void splitUnread() const;
    QSharedDataPointer<Data> d;
};
