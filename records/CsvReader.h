#pragma once

// Comma-separated values as RFC 4180 has them, read and written in one place.
//
// Reading: records end at CR LF, LF or a lone CR; fields are separated by the separator
// (a comma unless told otherwise); a field in double quotes may hold separators, line
// breaks and doubled quotes (""). A UTF-8 byte order mark at the start is skipped, and
// lines that are entirely empty are no records. A quote inside an unquoted field is
// taken as it stands (some exporters write them). Two faults stop the reading: a quoted
// field that is never closed, and anything but a separator or a line end after a
// closing quote; the error names the line where it happened. A reader given a largest
// field length stops at a field longer than that (TooLong) before it is copied.
//
// Writing: every field quoted, quotes doubled, records ending in CR LF.

#include <QString>
#include <QStringList>

struct CsvRecord {
    QStringList Fields;
    int Line = 0; // the line (from 1) on which the record starts
};

class CsvReader {
public:
    enum Fault { NoFault, Unclosed, AfterQuote, TooLong };
    explicit CsvReader(const QString& Text, QChar Separator = u',', qsizetype MaxField = -1);
    // The next record; false at the end of the text or at a fault (see Failed).
    bool Next(CsvRecord& Out);
    bool Failed() const { return m_fault != NoFault; }
    Fault LastFault() const { return m_fault; }
    int ErrorLine() const { return m_errorLine; }
    // How far the reading has got, in characters of the text.
    qsizetype Position() const { return m_pos; }

private:
    QString m_text;
    QChar m_sep;
    qsizetype m_maxField; // -1 for no limit
    qsizetype m_pos = 0;  // a byte order mark is passed over at the start
    int m_line = 1;
    Fault m_fault = NoFault;
    int m_errorLine = 0;

    bool tooLong(qsizetype Length, int Line);
};

// The separator of a CSV text: a comma, unless its first line has none and holds a
// semicolon or a tab (exports made with European spreadsheet settings).
QChar CsvGuessSeparator(const QString& Text);

// One record in CSV form, CR LF included.
void AppendCsvRecord(QString& Out, const QStringList& Fields);
