#include "storage/FoldedSearch.h"

#include "storage/TableFile.h"

#include "diagnostics/Trace.h"

#include <sodium.h>

#include <algorithm>
#include <cstring>

namespace {

constexpr int kBlockRecs = 1024;

void appendUtf8(std::string& Out, char32_t c) {
    if (c < 0x80) {
        Out += static_cast<char>(c);
    } else if (c < 0x800) {
        Out += static_cast<char>(0xC0 | (c >> 6));
        Out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
        Out += static_cast<char>(0xE0 | (c >> 12));
        Out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        Out += static_cast<char>(0x80 | (c & 0x3F));
    }
}

// A stored value's text as UTF-8: its escapes undone.
void appendUnescaped(std::string& Out, QByteArrayView Escaped) {
    for (qsizetype i = 0; i < Escaped.size(); ++i) {
        char c = Escaped[i];
        if (c == '\\' && i + 1 < Escaped.size()) {
            const char e = Escaped[++i];
            c = e == 's' ? static_cast<char>(0x87) : e == 'r' ? '\r' : e == 'n' ? '\n' : e;
        }
        Out += c;
    }
}

// Values may be passwords: the buffers are wiped before they are let go.
void wipe(std::string& s) {
    if (!s.empty())
        sodium_memzero(s.data(), s.size());
    std::string().swap(s);
}

} // namespace

bool clsFoldedSearch::AppendFolded(std::string& Out, const QString& Text) {
    bool exact = true;
    for (const QChar ch : Text) {
        const char16_t u = ch.unicode();
        if (u < 0x80) {
            if (u == 0)
                exact = false;
            Out += static_cast<char>(u >= u'A' && u <= u'Z' ? u + 32 : u);
        } else if (QChar::isSurrogate(u)) {
            // Kept as it is (a three-byte form of its own): a search text without
            // surrogates never matches inside it.
            exact = false;
            appendUtf8(Out, u);
        } else {
            appendUtf8(Out, QChar::toCaseFolded(static_cast<char32_t>(u)));
        }
    }
    return exact;
}

void clsFoldedSearch::AppendFoldedEscaped(std::string& Out, QByteArrayView Escaped) {
    // Most values are plain ASCII: folded byte by byte, with no text made of them.
    const qsizetype at = static_cast<qsizetype>(Out.size());
    for (const char c : Escaped) {
        if (static_cast<unsigned char>(c) >= 0x80 || c == '\\') {
            Out.resize(static_cast<std::size_t>(at));
            QString v = UnescapeValue(Escaped.data(), Escaped.size());
            AppendFolded(Out, v);
            v.fill(QChar(0));
            return;
        }
        Out += c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
    }
}

clsFoldedSearch::Column& clsFoldedSearch::column(int TblNum, int FldNum, bool Folded) {
    for (Column& c : m_cols)
        if (c.TblNum == TblNum && c.FldNum == FldNum && c.Folded == Folded)
            return c;
    m_cols.push_back(Column{TblNum, FldNum, Folded, {}});
    return m_cols.back();
}

void clsFoldedSearch::build(const TableEntry& t, const Column& c, int BlockNo, Block& b) {
    TRACE_PROC("TableEngine.BuildFoldedBlock", c.FldNum, c.Folded, BlockNo);
    const int FldNum = c.FldNum;
    wipe(b.Text);
    b.End.clear();
    const int from = BlockNo * kBlockRecs;
    const int to = std::min(from + kBlockRecs, t.RecNum());
    b.End.reserve(static_cast<std::size_t>(to - from));
    for (int i = from; i < to; ++i) {
        if (FldNum <= t.Records.fieldCount(i))
            (c.Folded ? AppendFoldedEscaped : appendUnescaped)(b.Text, t.Records.escaped(i, FldNum - 1));
        b.Text += '\0';
        b.End.push_back(static_cast<unsigned>(b.Text.size()));
    }
    b.Ready = true;
}

int clsFoldedSearch::Find(const DatabaseRecord& db, int TblNum, const QList<int>& FldNums,
                          const QString& SText, int Start, bool CaseSens) {
    TRACE_PROC("TableEngine.FindFolded", TblNum, HIDDEN(SText), Start);
    std::string needle;
    if (SText.isEmpty())
        return -1;
    if (CaseSens) {
        for (const QChar ch : SText)
            if (ch.unicode() == 0 || ch.isSurrogate())
                return -1;
        const QByteArray u = SText.toUtf8();
        needle.assign(u.constData(), static_cast<std::size_t>(u.size()));
    } else if (!AppendFolded(needle, SText)) {
        return -1;
    }
    if (m_for != &db)
        Clear();
    m_for = &db;
    const TableEntry& t = db.Tables[TblNum - 1];
    const int n = t.RecNum();
    const int nBlocks = (n + kBlockRecs - 1) / kBlockRecs;
    int best = 0; // 0-based record + 1 of the nearest match so far
    for (int fld : FldNums) {
        if (fld < 1)
            continue;
        Column& col = column(TblNum, fld, !CaseSens);
        if (static_cast<int>(col.Blocks.size()) != nBlocks) {
            // A count that changed without a word: every block after the shorter end is new.
            const std::size_t keep =
                std::min<std::size_t>(col.Blocks.size(), static_cast<std::size_t>(nBlocks));
            if (keep > 0)
                col.Blocks[keep - 1].Ready = false;
            for (std::size_t k = keep; k < col.Blocks.size(); ++k)
                wipe(col.Blocks[k].Text);
            col.Blocks.resize(static_cast<std::size_t>(nBlocks));
        }
        const int first = std::max(Start, 1) - 1;
        const int stop = best ? best - 1 : n; // a later match cannot win
        for (int bn = first / kBlockRecs; bn * kBlockRecs < stop; ++bn) {
            Block& b = col.Blocks[static_cast<std::size_t>(bn)];
            if (!b.Ready)
                build(t, col, bn, b);
            const int local = std::max(first - bn * kBlockRecs, 0);
            // Only the records before the nearest match of another column can win.
            const int limit = std::min(stop - bn * kBlockRecs, static_cast<int>(b.End.size()));
            if (local >= limit)
                continue;
            const std::size_t from = local == 0 ? 0 : b.End[static_cast<std::size_t>(local - 1)];
            const std::size_t to = b.End[static_cast<std::size_t>(limit - 1)];
            const void* hit = ::memmem(b.Text.data() + from, to - from, needle.data(), needle.size());
            if (!hit)
                continue;
            const auto pos = static_cast<unsigned>(static_cast<const char*>(hit) - b.Text.data());
            const auto it = std::upper_bound(b.End.begin(), b.End.end(), pos);
            const int rec = bn * kBlockRecs + static_cast<int>(it - b.End.begin()) + 1;
            if (rec - 1 < stop)
                best = rec;
            break;
        }
    }
    sodium_memzero(needle.data(), needle.size());
    return best;
}

void clsFoldedSearch::Changed(int TblNum, int From, int To) {
    for (Column& c : m_cols) {
        if (c.TblNum != TblNum)
            continue;
        const std::size_t a = static_cast<std::size_t>(std::max(From, 1) - 1) / kBlockRecs;
        const std::size_t b =
            To == INT_MAX ? c.Blocks.size() : static_cast<std::size_t>(std::max(To, 1) - 1) / kBlockRecs + 1;
        for (std::size_t k = a; k < std::min(b, c.Blocks.size()); ++k)
            c.Blocks[k].Ready = false;
    }
}

void clsFoldedSearch::Clear() {
    for (Column& c : m_cols)
        for (Block& b : c.Blocks)
            wipe(b.Text);
    m_cols.clear();
    m_for = nullptr;
}
