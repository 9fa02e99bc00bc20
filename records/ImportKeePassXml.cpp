// Import of KeePass 2 XML: the unencrypted export that KeePass and KeePassXC write.
//
// libxml2's SAX2 push parser reads the file in pieces as it goes: a large export is never
// held whole, and no tree of it is built. The handlers below follow where they are with a
// stack of element kinds; what an entry, group or custom data item carries is gathered
// while it is open and becomes a row when it closes.

#include "records/ImportExport.h"

#include "diagnostics/Trace.h"
#include "records/ImportFields.h"

#include <QDateTime>
#include <QHash>
#include <QIODevice>

#include <libxml/parser.h>
#include <libxml/xmlerror.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

namespace {

using namespace Qt::StringLiterals;

// What an open element is, by its name and the kind of its parent. The kinds after
// TextFirst hold a value whose text is gathered.
enum Kind : unsigned char {
    kSkip, // anything not read, with everything inside it
    kFile,
    kMeta,
    kRoot,
    kGroup,
    kCustomData,
    kItem,
    kEntry,
    kString,
    kBinary,
    kTimes,
    kHistory,
    kOldEntry, // an old version of an entry: its password and time are kept
    kTextFirst,
    kBinUuid = kTextFirst,
    kBinEnabled,
    kGroupUuid,
    kGroupName,
    kGroupNotes,
    kItemKey,
    kItemValue,
    kStringKey,
    kStringValue,
    kBinaryKey,
    kTags,
    kForeground,
    kExpires,
    kExpiryTime,
    kModTime,
};

bool is(const xmlChar* Name, const char* What) {
    return std::strcmp(reinterpret_cast<const char*>(Name), What) == 0;
}

Kind kindOf(Kind Parent, const xmlChar* n) {
    switch (Parent) {
    case kFile:
        return is(n, "Meta") ? kMeta : is(n, "Root") ? kRoot : kSkip;
    case kMeta:
        return is(n, "RecycleBinUUID") ? kBinUuid : is(n, "RecycleBinEnabled") ? kBinEnabled : kSkip;
    case kRoot:
        return is(n, "Group") ? kGroup : kSkip;
    case kGroup:
        return is(n, "Entry")        ? kEntry
               : is(n, "Group")      ? kGroup
               : is(n, "UUID")       ? kGroupUuid
               : is(n, "Name")       ? kGroupName
               : is(n, "Notes")      ? kGroupNotes
               : is(n, "CustomData") ? kCustomData
                                     : kSkip;
    case kCustomData:
        return is(n, "Item") ? kItem : kSkip;
    case kItem:
        return is(n, "Key") ? kItemKey : is(n, "Value") ? kItemValue : kSkip;
    case kEntry:
        // AutoType and the rest are skipped.
        return is(n, "String")            ? kString
               : is(n, "Binary")          ? kBinary
               : is(n, "Times")           ? kTimes
               : is(n, "Tags")            ? kTags
               : is(n, "ForegroundColor") ? kForeground
               : is(n, "CustomData")      ? kCustomData
               : is(n, "History")         ? kHistory
                                          : kSkip;
    case kHistory:
        return is(n, "Entry") ? kOldEntry : kSkip;
    case kOldEntry:
        return is(n, "String") ? kString : is(n, "Times") ? kTimes : kSkip;
    case kString:
        return is(n, "Key") ? kStringKey : is(n, "Value") ? kStringValue : kSkip;
    case kBinary:
        return is(n, "Key") ? kBinaryKey : kSkip;
    case kTimes:
        return is(n, "Expires")                ? kExpires
               : is(n, "ExpiryTime")           ? kExpiryTime
               : is(n, "LastModificationTime") ? kModTime
                                               : kSkip;
    default:
        return kSkip;
    }
}

// An expiry time as text: ISO, or the file's own text when it is no base64 time.
QString expiryText(const QString& Raw) {
    bool b64 = false;
    const QDateTime t = ImpKdbxTime(Raw, &b64);
    return b64 ? t.toString(Qt::ISODate) : Raw;
}

bool isTrue(const QString& Text) {
    return Text.trimmed().compare("True"_L1, Qt::CaseInsensitive) == 0;
}

class KeePassXmlParser {
public:
    // Source answers like read(): the bytes put into Buffer (at most Size), 0 at the end,
    // -1 when the file cannot be read.
    using Source = std::function<qint64(char* Buffer, qint64 Size)>;

    KeePassXmlParser(ImpData& Out, const ImpProgress& Progress, qint64 Total)
        : m_out(Out), m_progress(Progress), m_total(Total) {
        m_kinds.reserve(64);
    }

    bool Run(const Source& Read, ImpError& Err) {
        xmlInitParser();
        xmlSAXHandler h;
        std::memset(&h, 0, sizeof h);
        h.initialized = XML_SAX2_MAGIC;
        h.startElementNs = &KeePassXmlParser::onStart;
        h.endElementNs = &KeePassXmlParser::onEnd;
        h.characters = &KeePassXmlParser::onText;
        h.ignorableWhitespace = &KeePassXmlParser::onText;
        h.cdataBlock = &KeePassXmlParser::onText;
        h.serror = &KeePassXmlParser::onError;
        // No handlers for entities: a file that declares its own gets an error, and
        // nothing is ever fetched from outside.
        m_read = &Read;
        // libxml2 writes some errors (of the encoding) to standard error on its own; they
        // reach us through onError too, and a terminal is no place for them.
        xmlSetGenericErrorFunc(nullptr, &KeePassXmlParser::quiet);
        m_ctxt =
            xmlCreateIOParserCtxt(&h, this, &KeePassXmlParser::onRead, nullptr, this, XML_CHAR_ENCODING_NONE);
        if (!m_ctxt) {
            failWith(0, u"the XML reader could not be started"_s);
        } else {
            xmlCtxtUseOptions(m_ctxt, XML_PARSE_NONET);
            const int rc = xmlParseDocument(m_ctxt);
            if (!m_failed && !m_done && (rc != 0 || !m_ctxt->wellFormed))
                failWith(xmlSAX2GetLineNumber(m_ctxt), u"the XML reader stopped"_s);
            if (!m_failed && !m_sawRoot)
                failWith(xmlSAX2GetLineNumber(m_ctxt), u"the file holds no XML element"_s);
            xmlFreeParserCtxt(m_ctxt);
            m_ctxt = nullptr;
        }
        xmlSetGenericErrorFunc(nullptr, nullptr);
        if (!m_failed)
            return true;
        Err = m_err;
        m_out.Rows.clear();
        return false;
    }

private:
    struct GroupFrame {
        int Self = -1; // the folder row, or the parent's for the top group
        int Start = 0; // rows before this group's own
        bool IsRoot = false;
        long Line = 0;
    };
    // What an open entry has gathered so far.
    struct CustomString {
        QString Key, Value;
        bool Protect;
    };
    struct EntryData {
        ImpRow Row;
        QString Notes, Url, Tags, Expiry, Foreground, Otp, OtpSeed, OtpSettings;
        bool Expires = false;
        QList<CustomString> Custom;
        QList<std::pair<QString, QString>> Old; // earlier versions: password, time
        QStringList Attachments;
        QHash<QString, QString> Data;
        long Line = 0;
    };

    static void quiet(void*, const char*, ...) {}

    static KeePassXmlParser* self(void* Ctx) { return static_cast<KeePassXmlParser*>(Ctx); }

    static void onStart(void* Ctx, const xmlChar* Name, const xmlChar*, const xmlChar*, int, const xmlChar**,
                        int AttrCount, int, const xmlChar** Attrs) {
        self(Ctx)->start(Name, AttrCount, Attrs);
    }
    static void onEnd(void* Ctx, const xmlChar*, const xmlChar*, const xmlChar*) { self(Ctx)->end(); }
    static void onText(void* Ctx, const xmlChar* Text, int Len) {
        KeePassXmlParser* p = self(Ctx);
        if (p->m_failed || p->m_kinds.empty() || p->m_kinds.back() < kTextFirst)
            return;
        // The length in UTF-16 units, as the value will have it: a byte that starts a
        // character counts one, a four-byte character two.
        for (int i = 0; i < Len; ++i)
            if ((Text[i] & 0xC0) != 0x80)
                p->m_units += Text[i] >= 0xF0 ? 2 : 1;
        if (p->m_units > kImpMaxValue) {
            p->failWith(p->line(), QString(), impValueTooLarge);
            return;
        }
        p->m_text.append(reinterpret_cast<const char*>(Text), static_cast<std::size_t>(Len));
    }
    static int onRead(void* Ctx, char* Buffer, int Size) {
        KeePassXmlParser* p = self(Ctx);
        // The buffer is filled as far as the source goes: libxml2 takes a short read in
        // the XML declaration for a damaged one (a pipe or a network file gives them).
        int got = 0;
        while (got < Size) {
            const qint64 n = (*p->m_read)(Buffer + got, Size - got);
            if (n < 0) {
                p->m_readFailed = true;
                return -1;
            }
            if (n == 0)
                break;
            got += static_cast<int>(n);
        }
        p->m_fed += got;
        return got;
    }
    static void onError(void* Ctx, xmlErrorPtr E) {
        KeePassXmlParser* p = self(Ctx);
        if (!E || E->level < XML_ERR_ERROR || p->m_failed || p->m_done || p->m_readFailed)
            return;
        QString msg = QString::fromUtf8(E->message ? E->message : "XML error").simplified();
        p->failWith(E->line, msg);
    }

    long line() const { return xmlSAX2GetLineNumber(m_ctxt); }

    // The innermost open entry or group, with the line it starts on, after the reason.
    void failWith(long Line, const QString& Why, ImpErrCode Code = impXmlBad) {
        if (m_failed)
            return;
        m_failed = true;
        m_err = ImpError{Code, static_cast<int>(Line), Why};
        m_text = std::string(); // a long value goes at once
        if (Code == impXmlBad && m_inEntry)
            m_err.Detail += u", in the <Entry> that starts on line %1"_s.arg(m_entry.Line);
        else if (Code == impXmlBad && !m_groups.empty())
            m_err.Detail += u", in the <Group> that starts on line %1"_s.arg(m_groups.back().Line);
        if (m_ctxt)
            xmlStopParser(m_ctxt);
    }

    void start(const xmlChar* Name, int AttrCount, const xmlChar** Attrs) {
        if (m_failed || m_done)
            return;
        if (m_kinds.empty()) {
            m_sawRoot = true;
            if (!is(Name, "KeePassFile")) {
                m_failed = true;
                m_err = ImpError{impXmlNotKeePass, 0, QString::fromUtf8(reinterpret_cast<const char*>(Name))};
                xmlStopParser(m_ctxt);
                return;
            }
            m_kinds.push_back(kFile);
            return;
        }
        const Kind parent = static_cast<Kind>(m_kinds.back());
        const Kind k = parent == kSkip ? kSkip : kindOf(parent, Name);
        m_kinds.push_back(k);
        if (k >= kTextFirst) {
            m_text.clear();
            m_units = 0;
            if (k == kStringValue)
                checkProtected(AttrCount, Attrs);
            else if (k == kModTime)
                m_oldTime.clear();
            return;
        }
        switch (k) {
        case kOldEntry:
            m_inOld = true;
            m_oldPasw.clear();
            m_oldTime.clear();
            break;
        case kGroup:
            openGroup(parent == kRoot);
            break;
        case kEntry:
            m_inEntry = true;
            m_entry = EntryData();
            m_entry.Row.Parent = m_groups.back().Self;
            m_entry.Line = line();
            break;
        case kCustomData:
            m_items.clear();
            break;
        case kItem:
            m_key.clear();
            m_value.clear();
            break;
        case kString:
            m_key.clear();
            m_value.clear();
            m_protect = false;
            break;
        default:
            break;
        }
    }

    // A value enciphered with the inner stream of a database file (Protected="True")
    // cannot be read from an export and stops the import; ProtectInMemory="True" marks a
    // value the source hides.
    void checkProtected(int AttrCount, const xmlChar** Attrs) {
        for (int i = 0; i < AttrCount; ++i, Attrs += 5) {
            const QByteArray v(reinterpret_cast<const char*>(Attrs[3]), Attrs[4] - Attrs[3]);
            const bool on = v.compare("True", Qt::CaseInsensitive) == 0;
            if (is(Attrs[0], "ProtectInMemory"))
                m_protect = on;
            else if (is(Attrs[0], "Protected") && on)
                failWith(line(), u"the value of \"%1\" is enciphered (Protected=\"True\"); export the "
                                 u"database to XML again"_s.arg(m_key));
        }
    }

    QString text() const { return QString::fromUtf8(m_text.data(), static_cast<qsizetype>(m_text.size())); }

    void end() {
        if (m_failed || m_done || m_kinds.empty())
            return;
        const Kind k = static_cast<Kind>(m_kinds.back());
        m_kinds.pop_back();
        if (m_kinds.empty()) {
            // The file ends with its top element, as it always did: whatever follows is
            // not read.
            m_done = true;
            xmlStopParser(m_ctxt);
            return;
        }
        const Kind parent = m_kinds.empty() ? kSkip : static_cast<Kind>(m_kinds.back());
        switch (k) {
        case kBinUuid:
            m_binUuid = text().trimmed();
            break;
        case kBinEnabled:
            m_binOn = text().trimmed().compare("False"_L1, Qt::CaseInsensitive) != 0;
            break;
        case kGroupUuid:
            groupUuid(text().trimmed());
            break;
        case kGroupName:
            if (!m_groups.back().IsRoot)
                m_out.Rows[m_groups.back().Self].Title = text();
            break;
        case kGroupNotes:
            (m_groups.back().IsRoot ? m_out.Notes : m_out.Rows[m_groups.back().Self].Desc) = text();
            break;
        case kItemKey:
            m_key = text();
            break;
        case kItemValue:
            m_value = text();
            break;
        case kItem:
            m_items.insert(m_key, m_value);
            break;
        case kCustomData:
            if (parent == kEntry)
                m_entry.Data = m_items;
            else if (!m_groups.back().IsRoot)
                ImpApplyLook(m_out.Rows[m_groups.back().Self], m_items);
            break;
        case kStringKey:
            m_key = text();
            break;
        case kStringValue:
            m_value = text();
            break;
        case kString:
            if (!m_inOld)
                entryString();
            else if (m_key == "Password"_L1)
                m_oldPasw = m_value;
            break;
        case kModTime:
            m_oldTime = text().trimmed();
            break;
        case kOldEntry:
            m_entry.Old.append({m_oldPasw, m_oldTime});
            m_inOld = false;
            break;
        case kBinaryKey:
            m_entry.Attachments.append(text());
            break;
        case kTags:
            m_entry.Tags = text();
            break;
        case kForeground:
            m_entry.Foreground = text().trimmed();
            break;
        case kExpires:
            if (!m_inOld)
                m_entry.Expires = isTrue(text());
            break;
        case kExpiryTime:
            if (!m_inOld)
                m_entry.Expiry = text().trimmed();
            break;
        case kEntry:
            closeEntry();
            break;
        case kGroup:
            m_groups.pop_back();
            break;
        default:
            break;
        }
    }

    void openGroup(bool IsRoot) {
        GroupFrame g;
        g.Start = static_cast<int>(m_out.Rows.size());
        g.IsRoot = IsRoot;
        g.Line = line();
        // The top group stands for the source itself: the new folder takes its place.
        g.Self = IsRoot ? -1 : m_groups.back().Self;
        if (!IsRoot) {
            ImpRow r;
            r.Folder = true;
            r.Parent = g.Self;
            m_out.Rows.append(r);
            g.Self = g.Start;
            tooMany();
        }
        m_groups.push_back(g);
    }

    // A file of more rows than any export has stops at the first one too many.
    void tooMany() {
        if (m_out.Rows.size() > kImpMaxRows)
            failWith(line(), QString(), impTooManyRows);
    }

    void groupUuid(const QString& Uuid) {
        const GroupFrame& g = m_groups.back();
        if (g.IsRoot || !m_binOn || m_binUuid.isEmpty() || Uuid != m_binUuid)
            return;
        // The recycle bin goes with everything in it: its rows so far are dropped, and the
        // rest of the group is skipped.
        m_out.Rows.resize(g.Start);
        m_groups.pop_back();
        m_kinds.back() = kSkip;
    }

    void entryString() {
        EntryData& e = m_entry;
        if (m_key == "Title"_L1)
            e.Row.Title = m_value;
        else if (m_key == "UserName"_L1)
            e.Row.Login = m_value;
        else if (m_key == "Password"_L1)
            e.Row.Password = m_value;
        else if (m_key == "Notes"_L1)
            e.Notes = m_value;
        else if (m_key == "URL"_L1)
            e.Url = m_value;
        else if (m_key == "otp"_L1)
            e.Otp = m_value;
        else if (m_key == "TOTP Seed"_L1)
            e.OtpSeed = m_value;
        else if (m_key == "TOTP Settings"_L1)
            e.OtpSettings = m_value;
        else
            e.Custom.append({m_key, m_value, m_protect});
    }

    // The web address, the seed, custom strings and the passwords of earlier versions.
    void entryFields(EntryData& E) {
        ImpRow& r = E.Row;
        ImpAddUrl(r, E.Url);
        ImpKeePassOtp(r, E.Otp, E.OtpSeed, E.OtpSettings);
        for (const CustomString& c : E.Custom)
            ImpAddCustom(r, c.Key, c.Value, c.Protect);
        for (const auto& [pasw, time] : E.Old)
            ImpAddOldPasw(r, pasw, ImpKdbxTime(time));
    }

    void closeEntry() {
        m_inEntry = false;
        EntryData& e = m_entry;
        ImpRow& r = e.Row;
        r.Desc = e.Notes;
        entryFields(e);
        AppendDescLine(r.Desc, u"Tags"_s, e.Tags);
        if (e.Expires)
            AppendDescLine(r.Desc, u"Expires"_s, expiryText(e.Expiry));
        for (const QString& a : e.Attachments) {
            AppendDescLine(r.Desc, u"Attachment (not imported)"_s, a);
            ++m_out.Dropped[dropAttachment];
        }
        if (const QString f = ImpForegroundFlags(e.Foreground); !f.isEmpty())
            r.Flags = f;
        if (!e.Data.isEmpty())
            ImpApplyLook(r, e.Data);
        m_out.Rows.append(std::move(r));
        tooMany();
        if (m_progress && (++m_entries & 1023) == 0)
            m_progress(m_fed, m_total);
    }

    xmlParserCtxtPtr m_ctxt = nullptr;
    const Source* m_read = nullptr;
    bool m_readFailed = false;
    ImpData& m_out;
    const ImpProgress& m_progress;
    qint64 m_total;
    qint64 m_fed = 0;
    qint64 m_entries = 0;
    bool m_failed = false, m_sawRoot = false, m_done = false;
    ImpError m_err;

    std::vector<unsigned char> m_kinds; // the open elements, outermost first
    std::string m_text;                 // the text of the open value
    qsizetype m_units = 0;              // its length in UTF-16 units
    std::vector<GroupFrame> m_groups;
    bool m_inEntry = false;
    EntryData m_entry;
    QString m_key, m_value; // of the open String or custom data Item
    bool m_protect = false; // the open String's value is ProtectInMemory
    bool m_inOld = false;   // in an earlier version of the entry
    QString m_oldPasw, m_oldTime;
    QHash<QString, QString> m_items;
    QString m_binUuid;
    bool m_binOn = true;
};

} // namespace

bool ParseKeePassXml(const QByteArray& Bytes, ImpData& Out, ImpError& Err, const ImpProgress& Progress) {
    TRACE_PROC("modImport.ParseKeePassXml", static_cast<long long>(Bytes.size()));
    qsizetype at = 0;
    KeePassXmlParser p(Out, Progress, Bytes.size());
    return p.Run(
        [&](char* Buffer, qint64 Size) {
            const qsizetype n = std::min<qsizetype>(Size, Bytes.size() - at);
            std::memcpy(Buffer, Bytes.constData() + at, n);
            at += n;
            return qint64(n);
        },
        Err);
}

bool ParseKeePassXmlFile(QIODevice& Device, ImpData& Out, ImpError& Err, const ImpProgress& Progress) {
    TRACE_PROC("modImport.ParseKeePassXmlFile", static_cast<long long>(Device.size()));
    KeePassXmlParser p(Out, Progress, Device.size());
    bool readFailed = false, tooLarge = false;
    qint64 fed = 0;
    if (p.Run(
            [&](char* Buffer, qint64 Size) {
                // A file that grows past the limit while it is read stops there.
                if (fed >= kImpMaxFile + 1) {
                    tooLarge = true;
                    return qint64(-1);
                }
                const qint64 n = Device.read(Buffer, std::min(Size, kImpMaxFile + 1 - fed));
                readFailed = readFailed || n < 0;
                fed += std::max<qint64>(n, 0);
                return n;
            },
            Err))
        return true;
    if (tooLarge)
        Err = ImpError{impTooLarge, 0, QString::number(fed)};
    else if (readFailed)
        Err = ImpError{impCantRead, 0, Device.errorString()};
    return false;
}
