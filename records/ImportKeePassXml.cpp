// Import of KeePass 2 XML: the unencrypted export that KeePass and KeePassXC write.

#include "records/ImportExport.h"

#include "diagnostics/Trace.h"

#include <QDateTime>
#include <QHash>
#include <QRegularExpression>
#include <QXmlStreamReader>
#include <QtEndian>

namespace {

using namespace Qt::StringLiterals;

class KeePassXmlParser {
public:
    KeePassXmlParser(const QByteArray& Bytes, ImpData& Out, const ImpProgress& Progress)
        : m_x(Bytes), m_out(Out), m_progress(Progress), m_total(Bytes.size()) {}
    // From a file, read as it goes: a large export is never held whole, nor decoded whole.
    KeePassXmlParser(QIODevice* Device, ImpData& Out, const ImpProgress& Progress)
        : m_x(Device), m_out(Out), m_progress(Progress), m_total(Device->size()) {}

    bool Run(ImpError& Err) {
        if (!m_x.readNextStartElement())
            return fail(Err);
        if (m_x.name() != "KeePassFile"_L1) {
            Err = ImpError{impXmlNotKeePass, 0, m_x.name().toString()};
            return false;
        }
        while (m_x.readNextStartElement()) {
            if (m_x.name() == "Meta"_L1)
                readMeta();
            else if (m_x.name() == "Root"_L1)
                readRoot();
            else
                m_x.skipCurrentElement();
        }
        if (m_x.hasError())
            return fail(Err);
        return true;
    }

private:
    bool fail(ImpError& Err) {
        Err.Code = impXmlBad;
        Err.Line = static_cast<int>(m_x.lineNumber());
        Err.Detail = m_x.hasError() ? m_x.errorString() : u"the file holds no XML element"_s;
        if (m_ctxKind)
            Err.Detail +=
                u", in the <%1> that starts on line %2"_s.arg(QLatin1String(m_ctxKind)).arg(m_ctxLine);
        return false;
    }

    void readMeta() {
        while (m_x.readNextStartElement()) {
            if (m_x.name() == "RecycleBinUUID"_L1)
                m_binUuid = m_x.readElementText().trimmed();
            else if (m_x.name() == "RecycleBinEnabled"_L1)
                m_binOn = m_x.readElementText().trimmed().compare("False"_L1, Qt::CaseInsensitive) != 0;
            else
                m_x.skipCurrentElement();
        }
    }

    void readRoot() {
        while (m_x.readNextStartElement()) {
            // The top group stands for the source itself: the new folder takes its place.
            if (m_x.name() == "Group"_L1)
                readGroup(-1, true);
            else
                m_x.skipCurrentElement();
        }
    }

    // Custom data items: Item { Key, Value }.
    QHash<QString, QString> readCustomData() {
        QHash<QString, QString> items;
        while (m_x.readNextStartElement()) {
            if (m_x.name() != "Item"_L1) {
                m_x.skipCurrentElement();
                continue;
            }
            QString key, value;
            while (m_x.readNextStartElement()) {
                if (m_x.name() == "Key"_L1)
                    key = m_x.readElementText();
                else if (m_x.name() == "Value"_L1)
                    value = m_x.readElementText();
                else
                    m_x.skipCurrentElement();
            }
            items.insert(key, value);
        }
        return items;
    }

    // Our own look of a row, as our export writes it.
    static void applyLook(ImpRow& Row, const QHash<QString, QString>& Data) {
        static const QRegularExpression flags(u"^-?\\d{1,10}\\|\\d{1,10}$"_s), image(u"^\\d{1,4}key$"_s);
        const QString f = Data.value(u"ArgentPM.Flags"_s), i = Data.value(u"ArgentPM.Image"_s);
        if (flags.match(f).hasMatch())
            Row.Flags = f;
        if (image.match(i).hasMatch())
            Row.Image = i;
    }

    void readGroup(int Parent, bool IsRoot) {
        const int start = static_cast<int>(m_out.Rows.size());
        int self = Parent;
        if (!IsRoot) {
            ImpRow g;
            g.Folder = true;
            g.Parent = Parent;
            m_out.Rows.append(g);
            self = start;
        }
        const char* outerKind = m_ctxKind;
        const qint64 outerLine = m_ctxLine;
        m_ctxKind = "Group";
        m_ctxLine = m_x.lineNumber();
        while (m_x.readNextStartElement()) {
            const QStringView n = m_x.name();
            if (n == "UUID"_L1) {
                const QString uuid = m_x.readElementText().trimmed();
                if (!IsRoot && m_binOn && !m_binUuid.isEmpty() && uuid == m_binUuid) {
                    // The recycle bin goes with everything in it.
                    m_out.Rows.resize(start);
                    while (m_x.readNextStartElement())
                        m_x.skipCurrentElement();
                    break;
                }
            } else if (n == "Name"_L1) {
                const QString name = m_x.readElementText();
                if (!IsRoot)
                    m_out.Rows[self].Title = name;
            } else if (n == "CustomData"_L1) {
                const QHash<QString, QString> data = readCustomData();
                if (!IsRoot)
                    applyLook(m_out.Rows[self], data);
            } else if (n == "Entry"_L1) {
                readEntry(self);
            } else if (n == "Group"_L1) {
                readGroup(self, false);
            } else {
                m_x.skipCurrentElement();
            }
        }
        m_ctxKind = outerKind;
        m_ctxLine = outerLine;
    }

    // String { Key, Value }; a value enciphered with the inner stream of a database file
    // (Protected="True") cannot be read from an export and stops the import.
    bool readString(QString& Key, QString& Value) {
        while (m_x.readNextStartElement()) {
            if (m_x.name() == "Key"_L1) {
                Key = m_x.readElementText();
            } else if (m_x.name() == "Value"_L1) {
                if (m_x.attributes().value("Protected"_L1).compare("True"_L1, Qt::CaseInsensitive) == 0) {
                    m_x.raiseError(u"the value of \"%1\" is enciphered (Protected=\"True\"); export the "
                                   u"database to XML again"_s.arg(Key));
                    return false;
                }
                Value = m_x.readElementText();
            } else {
                m_x.skipCurrentElement();
            }
        }
        return true;
    }

    // An expiry time: ISO text (KDBX 3) or base64 of the seconds since 0001-01-01 (KDBX 4).
    static QString expiryText(const QString& Raw) {
        const QByteArray bin = QByteArray::fromBase64(Raw.toLatin1());
        if (bin.size() == 8 && !Raw.contains(u'-')) {
            const qint64 secs = qFromLittleEndian<qint64>(bin.constData());
            const QDateTime t = QDateTime(QDate(1, 1, 1), QTime(0, 0), Qt::UTC).addSecs(secs);
            return t.toString(Qt::ISODate);
        }
        return Raw;
    }

    void readEntry(int Parent) {
        const qint64 groupLine = m_ctxLine;
        m_ctxKind = "Entry";
        m_ctxLine = m_x.lineNumber();
        ImpRow r;
        r.Parent = Parent;
        QString notes, url, tags, expiry, foreground;
        bool expires = false;
        QList<std::pair<QString, QString>> custom;
        QStringList attachments;
        QHash<QString, QString> data;
        while (m_x.readNextStartElement()) {
            const QStringView n = m_x.name();
            if (n == "String"_L1) {
                QString key, value;
                if (!readString(key, value))
                    return;
                if (key == "Title"_L1)
                    r.Title = value;
                else if (key == "UserName"_L1)
                    r.Login = value;
                else if (key == "Password"_L1)
                    r.Password = value;
                else if (key == "Notes"_L1)
                    notes = value;
                else if (key == "URL"_L1)
                    url = value;
                else
                    custom.append({key, value});
            } else if (n == "Binary"_L1) {
                while (m_x.readNextStartElement()) {
                    if (m_x.name() == "Key"_L1)
                        attachments.append(m_x.readElementText());
                    else
                        m_x.skipCurrentElement();
                }
            } else if (n == "Tags"_L1) {
                tags = m_x.readElementText();
            } else if (n == "ForegroundColor"_L1) {
                foreground = m_x.readElementText().trimmed();
            } else if (n == "Times"_L1) {
                while (m_x.readNextStartElement()) {
                    if (m_x.name() == "Expires"_L1)
                        expires =
                            m_x.readElementText().trimmed().compare("True"_L1, Qt::CaseInsensitive) == 0;
                    else if (m_x.name() == "ExpiryTime"_L1)
                        expiry = m_x.readElementText().trimmed();
                    else
                        m_x.skipCurrentElement();
                }
            } else if (n == "CustomData"_L1) {
                data = readCustomData();
            } else {
                // History, AutoType and the rest.
                m_x.skipCurrentElement();
            }
        }
        r.Desc = notes;
        AppendDescLine(r.Desc, u"URL"_s, url);
        for (const auto& [key, value] : custom)
            AppendDescLine(r.Desc, key, value);
        AppendDescLine(r.Desc, u"Tags"_s, tags);
        if (expires)
            AppendDescLine(r.Desc, u"Expires"_s, expiryText(expiry));
        for (const QString& a : attachments)
            AppendDescLine(r.Desc, u"Attachment (not imported)"_s, a);
        static const QRegularExpression rgb(u"^#([0-9A-Fa-f]{2})([0-9A-Fa-f]{2})([0-9A-Fa-f]{2})$"_s);
        if (const QRegularExpressionMatch m = rgb.match(foreground); m.hasMatch())
            r.Flags =
                QString::number(m.captured(1).toInt(nullptr, 16) | (m.captured(2).toInt(nullptr, 16) << 8) |
                                (m.captured(3).toInt(nullptr, 16) << 16)) +
                u"|0"_s;
        applyLook(r, data);
        m_out.Rows.append(r);
        m_ctxKind = "Group";
        m_ctxLine = groupLine;
        if (m_progress && (++m_entries & 1023) == 0)
            m_progress(m_x.characterOffset(), m_total);
    }

    QXmlStreamReader m_x;
    ImpData& m_out;
    const ImpProgress& m_progress;
    qint64 m_total;
    qint64 m_entries = 0;
    QString m_binUuid;
    bool m_binOn = true;
    // Where the reading is, for a message: the innermost group or entry and its line.
    const char* m_ctxKind = nullptr;
    qint64 m_ctxLine = 0;
};

} // namespace

bool ParseKeePassXml(const QByteArray& Bytes, ImpData& Out, ImpError& Err, const ImpProgress& Progress) {
    TRACE_PROC("modImport.ParseKeePassXml", static_cast<long long>(Bytes.size()));
    KeePassXmlParser p(Bytes, Out, Progress);
    return p.Run(Err);
}

bool ParseKeePassXmlFile(QIODevice& Device, ImpData& Out, ImpError& Err, const ImpProgress& Progress) {
    TRACE_PROC("modImport.ParseKeePassXmlFile", static_cast<long long>(Device.size()));
    KeePassXmlParser p(&Device, Out, Progress);
    return p.Run(Err);
}
