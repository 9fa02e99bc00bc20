#include "records/CsvReader.h"

#include "diagnostics/Trace.h"

CsvReader::CsvReader(const QString& Text, QChar Separator, qsizetype MaxField)
    : m_text(Text), m_sep(Separator), m_maxField(MaxField) {
    if (!Text.isEmpty() && Text[0] == QChar(0xFEFF))
        m_pos = 1;
}

bool CsvReader::tooLong(qsizetype Length, int Line) {
    if (m_maxField < 0 || Length <= m_maxField)
        return false;
    m_fault = TooLong;
    m_errorLine = Line;
    return true;
}

bool CsvReader::Next(CsvRecord& Out) {
    Out.Fields.clear();
    if (Failed())
        return false;
    const QChar* s = m_text.constData();
    const qsizetype n = m_text.size();
    // Empty lines are no records.
    while (m_pos < n && (s[m_pos] == u'\r' || s[m_pos] == u'\n')) {
        if (s[m_pos] == u'\r' && m_pos + 1 < n && s[m_pos + 1] == u'\n')
            ++m_pos;
        ++m_pos;
        ++m_line;
    }
    if (m_pos >= n)
        return false;
    Out.Line = m_line;
    QString field;
    for (;;) {
        field.clear();
        if (m_pos < n && s[m_pos] == u'"') {
            const int opened = m_line;
            ++m_pos;
            for (;;) {
                // Copy the run up to the next quote in one go.
                qsizetype q = m_pos;
                while (q < n && s[q] != u'"') {
                    if (s[q] == u'\n' || (s[q] == u'\r' && (q + 1 >= n || s[q + 1] != u'\n')))
                        ++m_line;
                    ++q;
                }
                if (tooLong(field.size() + (q - m_pos), opened))
                    return false;
                field.append(s + m_pos, q - m_pos);
                if (q >= n) {
                    m_pos = n;
                    m_fault = Unclosed;
                    m_errorLine = opened;
                    return false;
                }
                if (q + 1 < n && s[q + 1] == u'"') {
                    field.append(u'"');
                    m_pos = q + 2;
                    continue;
                }
                m_pos = q + 1;
                break;
            }
            if (m_pos < n && s[m_pos] != m_sep && s[m_pos] != u'\r' && s[m_pos] != u'\n') {
                m_fault = AfterQuote;
                m_errorLine = m_line;
                return false;
            }
        } else {
            const qsizetype from = m_pos;
            while (m_pos < n && s[m_pos] != m_sep && s[m_pos] != u'\r' && s[m_pos] != u'\n')
                ++m_pos;
            if (tooLong(m_pos - from, m_line))
                return false;
            field = QString(s + from, m_pos - from);
        }
        Out.Fields.append(field);
        if (m_pos >= n)
            return true;
        if (s[m_pos] == m_sep) {
            ++m_pos;
            continue;
        }
        // The line end of the record.
        if (s[m_pos] == u'\r' && m_pos + 1 < n && s[m_pos + 1] == u'\n')
            ++m_pos;
        ++m_pos;
        ++m_line;
        return true;
    }
}

QChar CsvGuessSeparator(const QString& Text) {
    TRACE_PROC("modImport.CsvGuessSeparator");
    qsizetype end = Text.indexOf(u'\n');
    const QString first = Text.left(end < 0 ? Text.size() : end);
    if (first.contains(u','))
        return u',';
    if (first.contains(u';'))
        return u';';
    if (first.contains(u'\t'))
        return u'\t';
    return u',';
}

void AppendCsvRecord(QString& Out, const QStringList& Fields) {
    for (qsizetype i = 0; i < Fields.size(); ++i) {
        if (i > 0)
            Out.append(u',');
        Out.append(u'"');
        const QString& f = Fields[i];
        if (f.contains(u'"')) {
            QString q = f;
            q.replace(u'"', QLatin1String("\"\""));
            Out.append(q);
        } else {
            Out.append(f);
        }
        Out.append(u'"');
    }
    Out.append(QLatin1String("\r\n"));
}
