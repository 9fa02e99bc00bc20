#include "storage/TableEngine.h"

#include "storage/FileSeal.h"
#include "storage/FoldedSearch.h"
#include "storage/TableFile.h"

#include "app/CheckedWrite.h"
#include "app/ReadWholeFile.h"
#include "diagnostics/Trace.h"

#include <QFileInfo>
#include <QSet>
#include <QThreadPool>

#include <algorithm>
#include <array>
#include <optional>
#include <string>
#include <vector>

namespace {

// Bounds checks of one line, used by every operation: not traced.
bool tblOk(const DatabaseRecord& db, int TblNum) {
    return TblNum >= 1 && TblNum <= db.TabNum();
}

bool recOk(const DatabaseRecord& db, int TblNum, int RecNum) {
    return tblOk(db, TblNum) && RecNum >= 1 && RecNum <= db.Tables[TblNum - 1].RecNum();
}

// The value of a field of a record, or a null text when any number is out of range.
std::optional<QString> valueAt(const DatabaseRecord& db, int TblNum, int RecNum, int FldNum) {
    TRACE_PROC("TableEngine.ValueAt", TblNum, RecNum, FldNum);
    if (!recOk(db, TblNum, RecNum))
        return std::nullopt;
    const RecordStore& r = db.Tables[TblNum - 1].Records;
    if (FldNum < 1 || FldNum > r.fieldCount(RecNum - 1))
        return std::nullopt;
    return r.value(RecNum - 1, FldNum - 1);
}

QString helpText(const HelpTable& h, const QString& CodeText) {
    TRACE_PROC("TableEngine.HelpText", h.Name, CodeText);
    bool ok = false;
    const int code = CodeText.trimmed().toInt(&ok);
    if (!ok)
        return QString();
    const qsizetype i = h.Codes.indexOf(code);
    return i >= 0 && i < h.Texts.size() ? h.Texts[i] : QString();
}

int findName(const QStringList& names, const QString& name) {
    TRACE_PROC("TableEngine.FindName", name);
    for (qsizetype i = 0; i < names.size(); ++i)
        if (QString::compare(names[i], name, Qt::CaseInsensitive) == 0)
            return static_cast<int>(i + 1);
    return 0;
}

// "Value contains the text", prepared once for a search over many values. Without
// CaseSens both sides are compared by Unicode simple case folding, one UTF-16 unit at a
// time, which is what QString's case-insensitive search does whenever the search text
// has no surrogate pair (no character outside the BMP folds into the BMP or out of it);
// such a search text is left to QString. Texts of a few characters, where skipping
// gains nothing, are left to QString as well; longer ones use Horspool's skips.
class TextMatcher {
public:
    TextMatcher(const QString& Text, bool CaseSens) : m_text(Text), m_cs(CaseSens) {
        m_useQt = Text.size() < (CaseSens ? 3 : 2);
        if (!CaseSens)
            for (QChar c : Text)
                if (c.isSurrogate())
                    m_useQt = true;
        if (m_useQt)
            return;
        m_needle.reserve(Text.size());
        for (QChar c : Text)
            m_needle.push_back(CaseSens ? c.unicode() : fold(c.unicode()));
        const int m = static_cast<int>(m_needle.size());
        m_skip.fill(m);
        for (int i = 0; i + 1 < m; ++i) {
            int& sk = m_skip[m_needle[static_cast<std::size_t>(i)] & 0xFF];
            sk = std::min(sk, m - 1 - i);
        }
    }

    bool operator()(const QString& Value) const {
        if (m_useQt)
            return Value.contains(m_text, m_cs ? Qt::CaseSensitive : Qt::CaseInsensitive);
        return m_cs ? find<false>(Value) : find<true>(Value);
    }

private:
    static char16_t fold(char16_t c) {
        if (c < 128)
            return c >= u'A' && c <= u'Z' ? static_cast<char16_t>(c + 32) : c;
        return QChar::isSurrogate(c) ? c : QChar::toCaseFolded(c);
    }

    template <bool Fold> bool find(const QString& Value) const {
        const qsizetype m = static_cast<qsizetype>(m_needle.size());
        const qsizetype n = Value.size();
        if (n < m)
            return false;
        const char16_t* p = reinterpret_cast<const char16_t*>(Value.constData());
        const char16_t last = m_needle.back();
        for (qsizetype i = m - 1; i < n;) {
            const char16_t c = Fold ? fold(p[i]) : p[i];
            if (c == last) {
                qsizetype k = m - 2, j = i - 1;
                while (k >= 0 && (Fold ? fold(p[j]) : p[j]) == m_needle[static_cast<std::size_t>(k)]) {
                    --k;
                    --j;
                }
                if (k < 0)
                    return true;
            }
            i += m_skip[c & 0xFF];
        }
        return false;
    }

    const QString& m_text;
    bool m_cs;
    bool m_useQt = true;
    std::u16string m_needle;
    std::array<int, 256> m_skip{};
};

} // namespace

TableEngine::TableEngine() = default;
TableEngine::~TableEngine() = default;
// A copy starts without the folded copy: it belongs to the structure the original searched.
TableEngine::TableEngine(const TableEngine&) {}
TableEngine& TableEngine::operator=(const TableEngine& Other) {
    if (this != &Other)
        m_folded.reset();
    return *this;
}

void SplitTablesBehind(const DatabaseRecord& Db) {
    TRACE_PROC("TableEngine.SplitTablesBehind");
    for (const TableEntry& t : Db.Tables)
        if (t.Records.isUnread())
            QThreadPool::globalInstance()->start([rows = t.Records] { rows.splitLines(); });
}

void TableEngine::TableChanged(int TblNum, int From, int To) {
    if (m_folded)
        m_folded->Changed(TblNum, From, To);
}

void TableEngine::DatabaseChanged() {
    if (m_folded)
        m_folded->Clear();
}

int TableEngine::AddRecord(DatabaseRecord& db, int TblNum) {
    TRACE_PROC("TableEngine.AddRecord", TblNum);
    if (!tblOk(db, TblNum))
        return 0;
    TableEntry& t = db.Tables[TblNum - 1];
    QStringList rec;
    rec.resize(t.FldNames.size());
    t.Records.append(rec);
    TableChanged(TblNum, t.RecNum());
    return t.RecNum();
}

int TableEngine::SaveDatabase(const DatabaseRecord& db, const QString& Path, const QString& Pasw,
                              bool Compress) {
    TRACE_PROC("TableEngine.SaveDatabase", Path, HIDDEN(Pasw), Compress);
    QByteArray image = BuildFileImage(db, Pasw, Compress);
    if (image.isEmpty())
        return tbeIoError;
    const bool ok = WriteFileChecked(Path, image);
    WipeBytes(image);
    return ok ? tbeOk : tbeIoError;
}

QString TableEngine::GetComplexFldVal(const DatabaseRecord& db, int TblNum, int RecNum, int FldNum) {
    TRACE_PROC("TableEngine.GetComplexFldVal", TblNum, RecNum, FldNum);
    const std::optional<QString> v = valueAt(db, TblNum, RecNum, FldNum);
    if (!v)
        return QString();
    const int h = FindHTable(db, db.Tables[TblNum - 1].FldNames.value(FldNum - 1));
    if (h == 0)
        return *v;
    const QString text = helpText(db.HTables[h - 1], *v);
    return text.isNull() ? *v : text;
}

int TableEngine::LoadDatabase(DatabaseRecord& db, const QString& Path, const QString& Pasw) {
    TRACE_PROC("TableEngine.LoadDatabase", Path, HIDDEN(Pasw));
    DatabaseChanged();
    if (!QFileInfo(Path).isFile())
        return tbeNoFile;
    QByteArray data;
    if (!ReadWholeFile(Path, data))
        return tbeIoError;
    const int r = ParseFileImage(data, Pasw, db, nullptr);
    if (r > 0)
        db.Path = Path;
    return r;
}

QString TableEngine::FindHelpVal(const DatabaseRecord& db, int TblNum, int FldNum, const QString& Val) {
    TRACE_PROC("TableEngine.FindHelpVal", TblNum, FldNum, Val);
    if (!tblOk(db, TblNum) || FldNum < 1 || FldNum > db.Tables[TblNum - 1].FldNames.size())
        return QString();
    const int h = FindHTable(db, db.Tables[TblNum - 1].FldNames[FldNum - 1]);
    return h ? helpText(db.HTables[h - 1], Val) : QString();
}

int TableEngine::FindField(const DatabaseRecord& db, int TblNum, const QString& FldName) {
    TRACE_PROC("TableEngine.FindField", TblNum, FldName);
    return tblOk(db, TblNum) ? findName(db.Tables[TblNum - 1].FldNames, FldName) : 0;
}

int TableEngine::FindTable(const DatabaseRecord& db, const QString& TblName) {
    TRACE_PROC("TableEngine.FindTable", TblName);
    for (int i = 0; i < db.TabNum(); ++i)
        if (QString::compare(db.Tables[i].Name, TblName, Qt::CaseInsensitive) == 0)
            return i + 1;
    return 0;
}

int TableEngine::FindHTable(const DatabaseRecord& db, const QString& HTblName) {
    TRACE_PROC("TableEngine.FindHTable", HTblName);
    for (int i = 0; i < db.HTabNum(); ++i)
        if (QString::compare(db.HTables[i].Name, HTblName, Qt::CaseInsensitive) == 0)
            return i + 1;
    return 0;
}

int TableEngine::ReadTables(DatabaseRecord& db, const QString& Path, const QStringList& TblNames) {
    TRACE_PROC("TableEngine.ReadTables", Path, TblNames);
    ResetDatabase(db);
    if (!QFileInfo(Path).isFile())
        return tbeNoFile;
    QByteArray data;
    if (!ReadWholeFile(Path, data))
        return tbeIoError;
    QSet<QString> only;
    for (const QString& n : TblNames)
        only.insert(n.toCaseFolded());
    const int r = ParseFileImage(data, QString(), db, &only);
    if (r < 0)
        return r;
    db.Path = Path;
    return db.TabNum();
}

void TableEngine::SetTblFldValNm(DatabaseRecord& db, int TblNum, int RecNum, const QString& FldName,
                                 const QString& newval) {
    TRACE_PROC("TableEngine.SetTblFldValNm", TblNum, RecNum, FldName, HIDDEN(newval));
    // Row 0 (a row that was not found) changes nothing.
    if (!recOk(db, TblNum, RecNum))
        return;
    const int f = FindField(db, TblNum, FldName);
    db.Tables[TblNum - 1].Records.setValue(RecNum - 1, f - 1, newval);
    TableChanged(TblNum, RecNum, RecNum);
}

int TableEngine::GetHelpValNum(const DatabaseRecord& db, int HTabNum, const QString& StrVal) {
    TRACE_PROC("TableEngine.GetHelpValNum", HTabNum, StrVal);
    if (HTabNum < 1 || HTabNum > db.HTabNum())
        return 0;
    const HelpTable& h = db.HTables[HTabNum - 1];
    const qsizetype i = h.Texts.indexOf(StrVal);
    return i >= 0 && i < h.Codes.size() ? h.Codes[i] : 0;
}

QString TableEngine::GetTblFldValNm(const DatabaseRecord& db, int TblNum, int RecNum,
                                    const QString& FldName) {
    TRACE_PROC("TableEngine.GetTblFldValNm", TblNum, RecNum, FldName);
    const std::optional<QString> v = valueAt(db, TblNum, RecNum, FindField(db, TblNum, FldName));
    return v ? *v : QString();
}

int TableEngine::GetRecNumFromVal(const DatabaseRecord& db, int TblNum, int FldNum, const QString& FldVal,
                                  int Start) {
    TRACE_PROC("TableEngine.GetRecNumFromVal", TblNum, FldNum, FldVal, Start);
    if (!tblOk(db, TblNum))
        return 0;
    const RecordStore& recs = db.Tables[TblNum - 1].Records;
    // Equal texts have equal stored bytes: the text is escaped once and compared as bytes.
    QByteArray want = StoredForm(FldVal);
    const int f = FldNum - 1;
    int found = 0;
    for (int i = std::max(Start, 1) - 1; i < recs.size() && !found; ++i)
        if (f >= 0 && f < recs.fieldCount(i) && recs.escaped(i, f) == QByteArrayView(want))
            found = i + 1;
    WipeBytes(want);
    return found;
}

int TableEngine::TablesToString(const DatabaseRecord& db, const QString& Names, QString& BufStr,
                                const TblsFilter& Filter) {
    TRACE_PROC("TableEngine.TablesToString", Names);
    BufStr.clear();
    int written = 0;
    for (const QString& name : Names.split(QChar(kFldSep), Qt::SkipEmptyParts)) {
        const int t = FindTable(db, name);
        if (t == 0)
            continue;
        WriteTablesText(BufStr, db.Tables[t - 1], &Filter);
        ++written;
    }
    return written;
}

QString TableEngine::GetHelpVal(const DatabaseRecord& db, int TblNum, const QString& FName, int RecNum) {
    TRACE_PROC("TableEngine.GetHelpVal", TblNum, FName, RecNum);
    const std::optional<QString> v = valueAt(db, TblNum, RecNum, FindField(db, TblNum, FName));
    const int h = FindHTable(db, FName);
    return v && h ? helpText(db.HTables[h - 1], *v) : QString();
}

void TableEngine::ResetDatabase(DatabaseRecord& db) {
    TRACE_PROC("TableEngine.ResetDatabase");
    db = DatabaseRecord();
    db.Key = std::make_shared<KeyCache>();
    DatabaseChanged();
}

int TableEngine::DeleteRec(DatabaseRecord& db, int TblNum, int RecNum) {
    TRACE_PROC("TableEngine.DeleteRec", TblNum, RecNum);
    if (!recOk(db, TblNum, RecNum))
        return 0;
    db.Tables[TblNum - 1].Records.removeAt(RecNum - 1);
    TableChanged(TblNum, RecNum);
    return 1;
}

int TableEngine::FindRecord(const DatabaseRecord& db, int TblNum, int FldNum, const QString& SText, int Start,
                            bool CaseSens) {
    TRACE_PROC("TableEngine.FindRecord", TblNum, FldNum, HIDDEN(SText), Start, CaseSens);
    return FindRecordInFields(db, TblNum, QList<int>{FldNum}, SText, Start, CaseSens);
}

int TableEngine::FindRecordInFields(const DatabaseRecord& db, int TblNum, const QList<int>& FldNums,
                                    const QString& SText, int Start, bool CaseSens) {
    TRACE_PROC("TableEngine.FindRecordInFields", TblNum, HIDDEN(SText), Start, CaseSens);
    if (!tblOk(db, TblNum))
        return 0;
    if (!m_folded)
        m_folded = std::make_unique<clsFoldedSearch>();
    const int r = m_folded->Find(db, TblNum, FldNums, SText, Start, CaseSens);
    if (r >= 0)
        return r;
    const RecordStore& recs = db.Tables[TblNum - 1].Records;
    const TextMatcher match(SText, CaseSens);
    const int n = recs.size();
    for (int i = std::max(Start, 1) - 1; i < n; ++i)
        for (int fld : FldNums)
            if (fld >= 1 && fld <= recs.fieldCount(i) && match(recs.value(i, fld - 1)))
                return i + 1;
    return 0;
}

int TableEngine::DeleteRecs(DatabaseRecord& db, int TblNum, const QList<int>& RecNums) {
    TRACE_PROC("TableEngine.DeleteRecs", TblNum, static_cast<long long>(RecNums.size()));
    if (!tblOk(db, TblNum))
        return 0;
    RecordStore& recs = db.Tables[TblNum - 1].Records;
    std::vector<bool> drop(static_cast<std::size_t>(recs.size()), false);
    int removed = 0;
    for (int n : RecNums) {
        if (n >= 1 && n <= recs.size() && !drop[static_cast<std::size_t>(n - 1)]) {
            drop[static_cast<std::size_t>(n - 1)] = true;
            ++removed;
        }
    }
    if (removed == 0)
        return 0;
    TableChanged(TblNum, static_cast<int>(std::find(drop.begin(), drop.end(), true) - drop.begin()) + 1);
    recs.removeRows(drop);
    return removed;
}
