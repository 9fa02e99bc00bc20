// argentpm for scripts: single fields, JSON output and the record fields of 'edit'.

#include "cli/CliFields.h"
#include "cli/CliScript.h"
#include "cli/CliShared.h"

#include "app/ProgConfig.h"
#include "app/VbConv.h"
#include "diagnostics/Trace.h"
#include "maintenance/RestoreBackup.h"
#include "records/PaswGenerator.h"
#include "records/RecordExtras.h"
#include "records/RecordSearch.h"
#include "records/RecordTree.h"
#include "storage/clsDatabase.h"
#include "users/PaswStrength.h"
#include "users/UsDBTree.h"
#include "users/UserAccounts.h"

#include <QDateTime>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <sodium.h>

#include <climits>
#include <cstdio>
#include <unistd.h>

namespace cli {

namespace {

const QStringList kFields{QStringLiteral("title"), QStringLiteral("login"), QStringLiteral("password"),
                          QStringLiteral("description")};

int printJson(const QJsonObject& Obj) {
    QByteArray out = QJsonDocument(Obj).toJson(QJsonDocument::Indented);
    writeOut(out);
    sodium_memzero(out.data(), static_cast<std::size_t>(out.size()));
    return cliOk;
}

QJsonValue idValue(const QString& IndNum) {
    return static_cast<qint64>(Val(IndNum));
}

QString typeName(const QString& Type) {
    return Val(Type) == 2.0 ? QStringLiteral("record") : QStringLiteral("folder");
}

} // namespace

bool wantJson(const CliOptions& Opt) {
    return Opt.has("json");
}

QString fieldColumn(const QString& Field) {
    const QString f = Field.toLower();
    if (f == QLatin1String("title"))
        return QStringLiteral("Title");
    if (f == QLatin1String("login"))
        return QStringLiteral("Login");
    if (f == QLatin1String("password"))
        return QStringLiteral("Password");
    if (f == QLatin1String("description"))
        return QStringLiteral("Description");
    return QString();
}

int checkFieldOption(const CliOptions& Opt) {
    if (!Opt.has("field"))
        return cliOk;
    if (fieldColumn(Opt.value("field")).isEmpty())
        return usage(Opt, QStringLiteral("--field takes one of %1").arg(kFields.join(QStringLiteral(", "))));
    if (wantJson(Opt))
        return usage(Opt, QStringLiteral("--field and --json exclude each other"));
    return cliOk;
}

int printUsersJson(const QStringList& Users) {
    TRACE_PROC("modCli.PrintUsersJson", Users);
    return printJson({{QStringLiteral("databases"), ProgConfig[kCfgDBPath]},
                      {QStringLiteral("users"), QJsonArray::fromStringList(Users)}});
}

int printLsJson(int Tbl) {
    TRACE_PROC("modCli.PrintLsJson", Tbl);
    const TableEntry& t = CurUsDB->DBView().Tables[Tbl - 1];
    const int fId = CurUsDB->FindField(Tbl, QStringLiteral("IndNum")) - 1;
    const int fParent = CurUsDB->FindField(Tbl, QStringLiteral("Parent")) - 1;
    const int fTitle = CurUsDB->FindField(Tbl, QStringLiteral("Title")) - 1;
    QJsonArray items;
    for (const UsTreeNode& n : UsDBTreeOrder(*CurUsDB)) {
        const QStringList r = t.Records.row(n.RecNum - 1);
        items.append(QJsonObject{
            {QStringLiteral("id"), idValue(r.value(fId))},
            {QStringLiteral("parent"), idValue(r.value(fParent))},
            {QStringLiteral("type"), n.Folder ? QStringLiteral("folder") : QStringLiteral("record")},
            {QStringLiteral("depth"), n.Depth},
            {QStringLiteral("title"), r.value(fTitle)}});
    }
    return printJson({{QStringLiteral("user"), CurUser},
                      {QStringLiteral("root"), CurUsDB->Tag()},
                      {QStringLiteral("items"), items}});
}

int printShowJson(int Tbl, int Rec, bool ShowProtected) {
    TRACE_PROC("modCli.PrintShowJson", Tbl, Rec);
    auto v = [&](const char* Col) { return CurUsDB->GetTblFldValNm(Tbl, Rec, QLatin1String(Col)); };
    QJsonObject o{{QStringLiteral("id"), idValue(v("IndNum"))},
                  {QStringLiteral("parent"), idValue(v("Parent"))},
                  {QStringLiteral("type"), typeName(v("Type"))},
                  {QStringLiteral("title"), v("Title")},
                  {QStringLiteral("login"), v("Login")},
                  {QStringLiteral("password"), v("Password")},
                  {QStringLiteral("description"), v("Description")}};
    if (Val(v("Type")) == 2.0)
        addExtrasJson(o, v("IndNum"), ShowProtected);
    return printJson(o);
}

int printField(int Tbl, int Rec, const QString& Field) {
    TRACE_PROC("modCli.PrintField", Tbl, Rec, Field);
    QByteArray out = CurUsDB->GetTblFldValNm(Tbl, Rec, fieldColumn(Field)).toUtf8();
    // The value alone: a script reads it as it is, with one line end after it when
    // standard output is a terminal.
    if (isatty(1))
        out.append('\n');
    writeOut(out);
    sodium_memzero(out.data(), static_cast<std::size_t>(out.size()));
    return cliOk;
}

int printFindJson(const QString& Text, const QList<FoundRow>& Found) {
    TRACE_PROC("modCli.PrintFindJson", HIDDEN(Text));
    QJsonArray matches;
    for (const FoundRow& f : Found)
        matches.append(
            QJsonObject{{QStringLiteral("id"), idValue(f.IndNum)}, {QStringLiteral("title"), f.Title}});
    printJson({{QStringLiteral("user"), CurUser},
               {QStringLiteral("text"), Text},
               {QStringLiteral("matches"), matches}});
    return Found.isEmpty() ? cliNoRecord : cliOk;
}

int printBackupsJson(const QStringList& Items) {
    TRACE_PROC("modCli.PrintBackupsJson", Items);
    QJsonArray copies;
    for (const QString& item : Items) {
        const QString file = BackupFileFromItem(item);
        const QDateTime written = QFileInfo(BackupFolderPath() + file).lastModified();
        copies.append(QJsonObject{{QStringLiteral("file"), file},
                                  {QStringLiteral("user"), BackupUserFromItem(item)},
                                  {QStringLiteral("written"), written.toString(Qt::ISODate)}});
    }
    return printJson({{QStringLiteral("folder"), BackupFolderPath()}, {QStringLiteral("backups"), copies}});
}

void reportStrength(const QString& Pasw, const QString& UserName) {
    TRACE_PROC("modCli.ReportStrength", HIDDEN(Pasw), UserName);
    static const char* const levels[] = {"very weak", "weak", "fair", "strong", "very strong"};
    const PaswStrength s = EstimatePaswStrength(Pasw, {UserName});
    std::fprintf(stderr, "Password strength: %s (%.0f bits); it %s.\n", levels[s.Level], s.Bits,
                 GuessTimeEnglish(s).toUtf8().constData());
    if (s.Weak)
        std::fprintf(
            stderr,
            "argentpm: warning: this password is weak. Anyone with a copy of the file can test guesses "
            "offline at high speed; %.0f bits or more (several unrelated words, say) keep it out of "
            "reach.\n",
            kWeakPaswBits);
}

bool editsFields(const CliOptions& Opt) {
    for (const char* o : {"title", "login", "desc", "generate", "ask-password"})
        if (Opt.has(o))
            return true;
    return false;
}

int checkFieldEdits(const CliOptions& Opt) {
    const bool generate = Opt.has("generate");
    if (generate && Opt.has("ask-password"))
        return usage(Opt, QStringLiteral("--generate and --ask-password exclude each other"));
    const QString l = Opt.value("generate");
    if (generate && (Val(l) < 1 || Val(l) > INT_MAX))
        return usage(Opt, QStringLiteral("--generate needs a length from 1 to %1").arg(INT_MAX));
    return cliOk;
}

int applyFieldEdits(const CliOptions& Opt, const QString& Id, int Rec) {
    TRACE_PROC("modCli.ApplyFieldEdits", Id, Rec);
    const bool record = isRecordRow(Rec);
    const bool recordOnly = Opt.has("login") || Opt.has("generate") || Opt.has("ask-password");
    if (!record && recordOnly) {
        say(QStringLiteral("%1 is a folder: it has only a title and a description").arg(Id));
        return cliRefused;
    }
    QString pasw;
    bool setPasw = false;
    if (Opt.has("generate")) {
        pasw = GeneratePassword(PaswLengthFromText(Opt.value("generate")));
        setPasw = true;
    } else if (Opt.has("ask-password")) {
        if (int rc = askConfirmedSecret(Opt, "New password of the record: ", "changed", pasw))
            return rc;
        setPasw = true;
    }
    const QString ind = QStringLiteral("IndNum");
    if (Opt.has("title"))
        ChangeDataTableField(ind, Id, QStringLiteral("Title"), Opt.value("title"));
    if (Opt.has("login"))
        ChangeDataTableField(ind, Id, QStringLiteral("Login"), Opt.value("login"));
    if (Opt.has("desc"))
        ChangeDataTableField(ind, Id, QStringLiteral("Description"), Opt.value("desc"));
    if (setPasw) // the password it replaces becomes an earlier one
        SetRecordPasw(*CurUsDB, CurUsDB->FindTable(QStringLiteral("DataTable")), Rec, pasw);
    WipeString(pasw);
    return cliOk;
}

} // namespace cli
