// argentpm commands on folders and records: the same operations the main window's
// commands use, followed by a save of the user's file (one atomic replacement).

#include "cli/CliCommands.h"
#include "cli/CliFields.h"
#include "cli/CliScript.h"
#include "cli/CliShared.h"
#include "cli/CliTerminal.h"

#include "app/ProgConfig.h"
#include "app/VbConv.h"
#include "diagnostics/Trace.h"
#include "records/PaswGenerator.h"
#include "records/RecordSearch.h"
#include "records/RecordTree.h"
#include "storage/clsDatabase.h"
#include "users/UserAccounts.h"
#include "users/UserSession.h"

#include <QRegularExpression>

#include <sodium.h>

#include <algorithm>

#include <climits>
#include <cstdio>

using namespace cli;

namespace {

// The row of an identifier other than the root, or an exit status after saying why not.
int existingRow(const QString& Id, int& Rec) {
    if (Id == QLatin1String("0")) {
        say(QStringLiteral("identifier 0 is the user's root, not a folder or record"));
        return cliRefused;
    }
    return findRow(Id, Rec);
}

// A colour as decimal COLORREF (0x00BBGGRR) or as #RRGGBB.
bool parseColor(const QString& Text, int& Col) {
    static const QRegularExpression hex(
        QStringLiteral("^#([0-9A-Fa-f]{2})([0-9A-Fa-f]{2})([0-9A-Fa-f]{2})$"));
    const QRegularExpressionMatch m = hex.match(Text);
    if (m.hasMatch()) {
        const int r = m.captured(1).toInt(nullptr, 16), g = m.captured(2).toInt(nullptr, 16),
                  b = m.captured(3).toInt(nullptr, 16);
        Col = r | (g << 8) | (b << 16);
        return true;
    }
    bool ok = false;
    Col = Text.toInt(&ok);
    return ok;
}

void printLine(const QString& Text) {
    QByteArray out;
    appendOneLine(out, Text);
    out.append('\n');
    writeOut(out);
}

} // namespace

int CmdMkdir(const CliOptions& Opt, const QStringList& Args) {
    TRACE_PROC("modCli.CmdMkdir", Args);
    QString parent;
    if (!ParseIndNum(Args[1], parent))
        return badArguments(Opt);
    if (int rc = openUserForChange(Opt, Args[0]))
        return rc;
    if (int rc = existingFolder(parent))
        return rc;
    const QString id = GetNewIndNum(*CurUsDB);
    TRACE_LOCAL(id);
    AddFolderToDB(Args[2], parent.toInt(), id);
    if (int rc = saveUserChange())
        return rc;
    printLine(id);
    return cliOk;
}

int CmdAdd(const CliOptions& Opt, const QStringList& Args) {
    TRACE_PROC("modCli.CmdAdd", Args);
    QString parent;
    if (!ParseIndNum(Args[1], parent))
        return badArguments(Opt);
    if (!Opt.has("title"))
        return usage(Opt, QStringLiteral("a record needs a title: --title TEXT"));
    if (int rc = checkFieldEdits(Opt))
        return rc;
    if (int rc = checkExtraEdits(Opt))
        return rc;
    if (int rc = openUserForChange(Opt, Args[0]))
        return rc;
    if (int rc = existingFolder(parent))
        return rc;
    QString pasw;
    if (Opt.has("generate")) {
        pasw = GeneratePassword(PaswLengthFromText(Opt.value("generate")));
    } else if (Opt.has("ask-password")) {
        if (int rc = askConfirmedSecret(Opt, "Password of the record: ", "added", pasw))
            return rc;
    }
    const QString id =
        AddRecordToDB(*CurUsDB, parent, Opt.value("title"), Opt.value("login"), pasw, Opt.value("desc"));
    WipeString(pasw);
    if (editsExtras(Opt))
        if (int rc = applyExtraEdits(Opt, id))
            return rc;
    if (int rc = saveUserChange())
        return rc;
    printLine(id);
    return cliOk;
}

int CmdRename(const CliOptions& Opt, const QStringList& Args) {
    TRACE_PROC("modCli.CmdRename", Args);
    QString id;
    if (!ParseIndNum(Args[1], id))
        return badArguments(Opt);
    if (int rc = openUserForChange(Opt, Args[0]))
        return rc;
    int rec;
    if (int rc = existingRow(id, rec))
        return rc;
    ChangeDataTableField(QStringLiteral("IndNum"), id, QStringLiteral("Title"), Args[2]);
    return saveUserChange();
}

int CmdMv(const CliOptions& Opt, const QStringList& Args) {
    TRACE_PROC("modCli.CmdMv", Args);
    QString id, parent;
    if (!ParseIndNum(Args[1], id) || !ParseIndNum(Args[2], parent))
        return badArguments(Opt);
    if (int rc = openUserForChange(Opt, Args[0]))
        return rc;
    int rec;
    if (int rc = existingRow(id, rec))
        return rc;
    if (int rc = existingFolder(parent))
        return rc;
    // The row and everything below it go to the end of the table behind their new folder.
    if (MoveRecordTree(*CurUsDB, id, parent) != 1) {
        say(QStringLiteral("%1 cannot go into itself or into a folder of its own").arg(id));
        return cliRefused;
    }
    return saveUserChange();
}

int CmdRm(const CliOptions& Opt, const QStringList& Args) {
    TRACE_PROC("modCli.CmdRm", Args);
    QString id;
    if (!ParseIndNum(Args[1], id))
        return badArguments(Opt);
    if (int rc = openUserForChange(Opt, Args[0]))
        return rc;
    int rec;
    if (int rc = existingRow(id, rec))
        return rc;
    const QString title = CurUsDB->GetTblFldValNm(CurUsDB->FindTable(QStringLiteral("DataTable")), rec,
                                                  QStringLiteral("Title"));
    if (!Opt.Yes) {
        const QString what = isRecordRow(rec) ? QStringLiteral("record") : QStringLiteral("folder");
        TRACE_LOCAL(what);
        const QString q =
            QStringLiteral("Delete %1 %2 %3 with everything in it?").arg(what, id, quoted(title));
        if (!AskYesOnTty(q)) {
            say(QStringLiteral("nothing was deleted (confirm with --yes when there is no terminal)"));
            return cliRefused;
        }
    }
    const int n = DelRecordTreeFromDataTable(QStringLiteral("IndNum"), id, QStringLiteral("Parent"));
    TRACE_LOCAL(n);
    if (int rc = saveUserChange())
        return rc;
    std::printf("Deleted %d folder%s and record%s.\n", n, n == 1 ? "" : "s", n == 1 ? "" : "s");
    return cliOk;
}

int CmdEdit(const CliOptions& Opt, const QStringList& Args) {
    TRACE_PROC("modCli.CmdEdit", Args);
    QString id;
    if (!ParseIndNum(Args[1], id))
        return badArguments(Opt);
    const bool color = Opt.has("color");
    TRACE_LOCAL(color);
    const bool bold = Opt.has("bold");
    const bool fields = editsFields(Opt);
    const bool extras = editsExtras(Opt);
    if (!color && !bold && !fields && !extras)
        return usage(Opt, QStringLiteral("give at least one of --title, --login, --desc, --generate, "
                                         "--ask-password, --color, --bold, --url, --totp, --field, "
                                         "--hidden-field, --visible-field, --remove-field"));
    if (int rc = checkFieldEdits(Opt))
        return rc;
    if (int rc = checkExtraEdits(Opt))
        return rc;
    int col = 0;
    TRACE_LOCAL(col);
    if (color && !parseColor(Opt.value("color"), col))
        return usage(Opt, QStringLiteral("--color takes a number (0x00BBGGRR) or #RRGGBB"));
    const QString b = Opt.value("bold");
    TRACE_LOCAL(b);
    if (bold && b != QLatin1String("on") && b != QLatin1String("off"))
        return usage(Opt, QStringLiteral("--bold takes on or off"));
    if (int rc = openUserForChange(Opt, Args[0]))
        return rc;
    int rec;
    if (int rc = existingRow(id, rec))
        return rc;
    if (fields)
        if (int rc = applyFieldEdits(Opt, id, rec))
            return rc;
    if (extras) {
        if (!isRecordRow(rec)) {
            say(QStringLiteral("%1 is a folder: it has no web address or fields").arg(id));
            return cliRefused;
        }
        if (int rc = applyExtraEdits(Opt, id))
            return rc;
    }
    if (color || bold) {
        const int tbl = CurUsDB->FindTable(QStringLiteral("DataTable"));
        QString flags = CurUsDB->GetTblFldValNm(tbl, rec, QStringLiteral("Flags"));
        if (color)
            flags = SetRecColor(flags, col);
        if (bold)
            flags = SetRecBold(flags, b == QLatin1String("on"));
        ChangeDataTableField(QStringLiteral("IndNum"), id, QStringLiteral("Flags"), flags);
    }
    return saveUserChange();
}

int CmdFind(const CliOptions& Opt, const QStringList& Args) {
    TRACE_PROC("modCli.CmdFind", Args[0], HIDDEN(Args[1]));
    if (Args[1].isEmpty())
        return badArguments(Opt);
    if (int rc = openUser(Opt, Args[0]))
        return rc;
    int tbl;
    if (int rc = dataTable(tbl))
        return rc;
    const QList<FoundRow> found =
        FindAllRecords(*CurUsDB, Args[1], !Opt.has("titles-only"), Opt.has("case-sensitive"));
    if (wantJson(Opt))
        return printFindJson(Args[1], found);
    if (found.isEmpty()) {
        say(QStringLiteral("nothing matches %1").arg(quoted(Args[1])));
        return cliNoRecord;
    }
    int width = 1;
    TRACE_LOCAL(width);
    for (const FoundRow& f : found)
        width = std::max(width, static_cast<int>(f.IndNum.size()));
    QByteArray out;
    for (const FoundRow& f : found) {
        out.append(QByteArray(std::max<qsizetype>(0, width - f.IndNum.size()), ' '));
        appendOneLine(out, f.IndNum);
        out.append("  ");
        appendOneLine(out, f.Title);
        out.append('\n');
    }
    writeOut(out);
    return cliOk;
}

int CmdGenerate(const CliOptions& Opt, const QStringList& Args) {
    TRACE_PROC("modCli.CmdGenerate", Args);
    // Without a length, the one the generator dialog last used (settings entry 15).
    const QString text =
        Args.isEmpty()
            ? (ProgConfig.UBound() >= kCfgGenPasswordLength ? ProgConfig[kCfgGenPasswordLength] : QString())
            : Args[0];
    TRACE_LOCAL(text);
    if (Val(text) < 1 || Val(text) > INT_MAX)
        return usage(Opt, Args.isEmpty()
                              ? QStringLiteral("the settings hold no length; give one")
                              : QStringLiteral("the length must be a number from 1 to %1").arg(INT_MAX));
    QString pasw = GeneratePassword(PaswLengthFromText(text));
    TRACE_LOCAL_HIDDEN(pasw);
    QByteArray out = pasw.toLatin1();
    WipeString(pasw);
    out.append('\n');
    writeOut(out);
    sodium_memzero(out.data(), static_cast<std::size_t>(out.size()));
    return cliOk;
}
