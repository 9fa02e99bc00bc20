#include "app/modLang.h"

#include "app/ReadWholeFile.h"
#include "app/VbConv.h"
#include "diagnostics/DbgPrint.h"
#include "diagnostics/ErrorTrap.h"
#include "diagnostics/Globals.h"
#include "diagnostics/Trace.h"

#include <QFile>
#include <QStringList>

#include <optional>

namespace {
std::optional<QStringList> g_table; // index 0 holds identifier 1
QString g_langFile;                 // the file the table was read from
int g_langCount = 0;                // identifiers the table holds

const bool g_registered = [] {
    argent::diag::registerModuleVar("modLang", "LangFile", &g_langFile);
    argent::diag::registerModuleVar("modLang", "LangTextCount", &g_langCount);
    return true;
}();

// More identifiers than this is not a language file but damage; refuse it before
// reserving memory for it.
constexpr int kMaxTexts = 100000;
} // namespace

void LoadLang(const QString& LangFile) {
    TRACE_PROC("modLang.LoadLang", LangFile);
    if (!QFile::exists(LangFile))
        RaiseError(vbErrFileNotFound, QStringLiteral("File not found: ") + LangFile);
    QByteArray bytes;
    if (!ReadWholeFile(LangFile, bytes))
        RaiseError(vbErrPathFileAccess, QStringLiteral("Path/File access error: ") + LangFile);
    QString text = QString::fromUtf8(bytes);
    if (text.startsWith(QChar(0xFEFF)))
        text.remove(0, 1);
    QStringList lines = text.split(u'\n');
    if (!lines.isEmpty() && lines.last().isEmpty())
        lines.removeLast();
    for (QString& l : lines)
        if (l.endsWith(u'\r'))
            l.chop(1);
    const qsizetype LineCount = lines.size();
    TRACE_LOCAL(LineCount);
    if (lines.isEmpty())
        RaiseError(vbErrTypeMismatch, QStringLiteral("Type mismatch: empty language file ") + LangFile);
    const QString& header = lines.first();
    TRACE_LOCAL(header);
    const int n = CLng(header);
    TRACE_LOCAL(n);
    if (n < 0 || n > kMaxTexts)
        RaiseError(vbErrOverflow);
    QStringList table(n);
    for (qsizetype i = 1; i < lines.size(); ++i) {
        TRACE_LOCAL(i);
        const QString& line = lines[i];
        TRACE_LOCAL(line);
        if (line.startsWith(u'#'))
            continue;
        const qsizetype eq = line.indexOf(u'=');
        if (eq < 0)
            RaiseError(
                vbErrInvalidCall,
                QStringLiteral("Invalid procedure call or argument: line %1 of %2").arg(i + 1).arg(LangFile));
        const int id = CLng(line.left(eq));
        TRACE_LOCAL(id);
        if (id < 1 || id > n)
            RaiseError(vbErrSubscript,
                       QStringLiteral("Subscript out of range: identifier %1 on line %2 of %3")
                           .arg(id)
                           .arg(i + 1)
                           .arg(LangFile));
        table[id - 1] = line.mid(eq + 1);
    }
    g_langFile = LangFile;
    g_langCount = n;
    g_table = std::move(table);
}

QString Texts(int TxtIdent) {
    TRACE_PROC("modLang.Texts", TxtIdent);
    if (g_table && TxtIdent >= 1 && TxtIdent <= g_table->size())
        return (*g_table)[TxtIdent - 1];
    DbgPrint(QStringLiteral("Error #0001. TxtIdent = ") + QString::number(TxtIdent) + QStringLiteral("."));
    return QStringLiteral("#Error in language module#");
}

void UnloadLang() {
    g_table.reset();
    g_langFile.clear();
    g_langCount = 0;
}
