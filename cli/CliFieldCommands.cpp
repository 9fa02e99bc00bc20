// argentpm and the fields of a record beyond the four: web address, TOTP seed, custom
// fields and earlier passwords (storage/FieldTable.h).

#include "cli/CliCommands.h"
#include "cli/CliFields.h"
#include "cli/CliScript.h"
#include "cli/CliShared.h"

#include "diagnostics/Trace.h"
#include "records/RecordExtras.h"
#include "records/Totp.h"
#include "storage/clsDatabase.h"
#include "users/UserAccounts.h"

#include <QDateTime>
#include <QJsonArray>

#include <sodium.h>

#include <cstdio>
#include <unistd.h>

namespace cli {

namespace {

RecExtras extrasOf(const QString& Id) {
    return ReadRecExtras(CurUsDB->DBView(), Id);
}

// "NAME: value", later lines of the value indented under the first.
void appendField(QByteArray& Out, const QString& Name, QString Value) {
    const QByteArray caption = Name.toUtf8() + ": ";
    Value.replace(QLatin1String("\r\n"), QLatin1String("\n"));
    const QStringList lines = Value.split(u'\n');
    Out += caption + lines.first().toUtf8() + '\n';
    for (qsizetype k = 1; k < lines.size(); ++k)
        Out += QByteArray(caption.size(), ' ') + lines[k].toUtf8() + '\n';
}

int printValue(QString Value) {
    QByteArray out = Value.toUtf8();
    sodium_memzero(Value.data(), static_cast<std::size_t>(Value.size()) * sizeof(QChar));
    if (isatty(1))
        out.append('\n');
    writeOut(out);
    sodium_memzero(out.data(), static_cast<std::size_t>(out.size()));
    return cliOk;
}

// The record ID of user NAME opened for reading, its row in Rec.
int openRecord(const CliOptions& Opt, const QStringList& Args, QString& Id, int& Rec) {
    bool isNum = false;
    Args[1].toInt(&isNum);
    if (!isNum)
        return badArguments(Opt);
    if (int rc = openUser(Opt, Args[0]))
        return rc;
    int tbl;
    if (int rc = dataTable(tbl))
        return rc;
    Id = QString::number(Args[1].toInt());
    return findRow(Id, Rec);
}

} // namespace

bool editsExtras(const CliOptions& Opt) {
    for (const char* o : {"url", "totp", "field", "hidden-field", "visible-field", "remove-field"})
        if (Opt.has(o))
            return true;
    return false;
}

int checkExtraEdits(const CliOptions& Opt) {
    QString why;
    TotpParams p;
    if (Opt.has("totp") && !Opt.value("totp").isEmpty() && !ParseTotp(Opt.value("totp"), p, &why))
        return usage(Opt, QStringLiteral("--totp: ") + why);
    for (const QString& f : Opt.values("field"))
        if (f.indexOf(u'=') < 1)
            return usage(Opt, QStringLiteral("--field takes NAME=VALUE"));
    return cliOk;
}

int applyExtraEdits(const CliOptions& Opt, const QString& Id) {
    TRACE_PROC("modCli.ApplyExtraEdits", Id);
    RecExtras ex = extrasOf(Id);
    if (Opt.has("url"))
        ex.Url = Opt.value("url").trimmed();
    if (Opt.has("totp")) {
        TotpParams p;
        const QString seed = Opt.value("totp").trimmed();
        ex.Otp = seed.isEmpty() || seed.startsWith(QLatin1String("otpauth://"), Qt::CaseInsensitive) ||
                         !ParseTotp(seed, p)
                     ? seed
                     : TotpUri(p);
    }
    auto find = [&ex](const QString& Name) -> RecCustomField* {
        for (RecCustomField& f : ex.Custom)
            if (f.Name == Name)
                return &f;
        return nullptr;
    };
    for (const QString& f : Opt.values("field")) {
        const QString name = f.section(u'=', 0, 0), value = f.section(u'=', 1);
        if (RecCustomField* c = find(name))
            c->Value = value;
        else
            ex.Custom.append({name, value, false, {}});
    }
    for (const char* o : {"hidden-field", "visible-field"})
        for (const QString& name : Opt.values(o)) {
            RecCustomField* c = find(name);
            if (!c) {
                say(QStringLiteral("%1 has no field %2").arg(Id, quoted(name)));
                return cliNoRecord;
            }
            c->Hidden = o[0] == 'h';
        }
    for (const QString& name : Opt.values("remove-field")) {
        if (!find(name)) {
            say(QStringLiteral("%1 has no field %2").arg(Id, quoted(name)));
            return cliNoRecord;
        }
        ex.Custom.removeIf([&name](const RecCustomField& c) { return c.Name == name; });
    }
    WriteRecExtras(*CurUsDB, Id, ex);
    return cliOk;
}

void appendExtrasText(QByteArray& Out, const QString& Id, bool ShowProtected) {
    const RecExtras ex = extrasOf(Id);
    if (!ex.Url.isEmpty())
        appendField(Out, QStringLiteral("URL"), ex.Url);
    if (!ex.Otp.isEmpty())
        appendField(Out, QStringLiteral("TOTP"), ShowProtected ? ex.Otp : QStringLiteral("[hidden]"));
    for (const RecCustomField& f : ex.Custom)
        appendField(Out, f.Name, f.Hidden && !ShowProtected ? QStringLiteral("[hidden]") : f.Value);
    if (ex.History.isEmpty())
        return;
    if (!ShowProtected) {
        appendField(Out, QStringLiteral("Earlier passwords"), QString::number(ex.History.size()));
        return;
    }
    for (const RecOldPasw& h : ex.History)
        appendField(Out, QStringLiteral("Earlier password"),
                    h.Pasw +
                        QStringLiteral("  (replaced %1)").arg(h.When.toLocalTime().toString(Qt::ISODate)));
}

void addExtrasJson(QJsonObject& Obj, const QString& Id, bool ShowProtected) {
    const RecExtras ex = extrasOf(Id);
    Obj.insert(QStringLiteral("url"), ex.Url);
    Obj.insert(QStringLiteral("totp"), !ex.Otp.isEmpty());
    if (ShowProtected && !ex.Otp.isEmpty())
        Obj.insert(QStringLiteral("totp_uri"), ex.Otp);
    QJsonArray fields;
    for (const RecCustomField& f : ex.Custom)
        fields.append(
            QJsonObject{{QStringLiteral("name"), f.Name},
                        {QStringLiteral("value"), f.Hidden && !ShowProtected ? QJsonValue() : f.Value},
                        {QStringLiteral("hidden"), f.Hidden}});
    Obj.insert(QStringLiteral("fields"), fields);
    if (!ShowProtected) {
        Obj.insert(QStringLiteral("history_count"), static_cast<int>(ex.History.size()));
        return;
    }
    QJsonArray history;
    for (const RecOldPasw& h : ex.History)
        history.append(QJsonObject{{QStringLiteral("password"), h.Pasw},
                                   {QStringLiteral("replaced"), h.When.toString(Qt::ISODate)}});
    Obj.insert(QStringLiteral("history"), history);
}

bool recordFieldValue(const QString& Id, int Rec, const QString& Name, bool AsCode, QString& Value, int& Rc) {
    TRACE_PROC("modCli.RecordFieldValue", Id, Name, AsCode);
    Rc = cliOk;
    const QString column = fieldColumn(Name);
    if (!column.isEmpty()) {
        Value = CurUsDB->GetTblFldValNm(CurUsDB->FindTable(QStringLiteral("DataTable")), Rec, column);
        return true;
    }
    const RecExtras ex = extrasOf(Id);
    const QString lower = Name.toLower();
    const bool otp = lower == QLatin1String("totp") || lower == QLatin1String("otp");
    if (const RecCustomField* f = ex.Field(Name)) {
        Value = f->Value;
    } else if (lower == QLatin1String("url")) {
        Value = ex.Url;
    } else if (otp && !AsCode) {
        Value = ex.Otp;
    } else if (otp) {
        TotpParams p;
        QString why;
        if (ex.Otp.isEmpty()) {
            say(QStringLiteral("%1 has no TOTP seed (set one with 'argentpm edit NAME ID --totp SEED')")
                    .arg(Id));
            Rc = cliNoRecord;
            return false;
        }
        if (!ParseTotp(ex.Otp, p, &why)) {
            say(QStringLiteral("the TOTP seed of %1 gives no codes: %2").arg(Id, why));
            Rc = cliDamaged;
            return false;
        }
        Value = TotpCode(p, QDateTime::currentSecsSinceEpoch());
    } else {
        say(QStringLiteral("%1 has no field %2").arg(Id, quoted(Name)));
        Rc = cliNoRecord;
        return false;
    }
    return true;
}

QList<QCommandLineOption> extraFieldOptions() {
    auto opt = [](const char* Name, const char* Help, const char* Value) {
        return QCommandLineOption(QString::fromLatin1(Name), QString::fromLatin1(Help),
                                  QString::fromLatin1(Value));
    };
    return {opt("url", "the web address", "URL"),
            opt("totp", "the TOTP seed (otpauth:// URI or base32)", "SEED"),
            opt("field", "a custom field", "NAME=VALUE"),
            opt("hidden-field", "hide a custom field", "NAME"),
            opt("visible-field", "show a custom field again", "NAME"),
            opt("remove-field", "remove a custom field", "NAME")};
}

} // namespace cli

using namespace cli;

int CmdField(const CliOptions& Opt, const QStringList& Args) {
    TRACE_PROC("modCli.CmdField", Args);
    QString id;
    int rec;
    if (int rc = openRecord(Opt, Args, id, rec))
        return rc;
    QString value;
    int rc;
    if (!recordFieldValue(id, rec, Args[2], false, value, rc))
        return rc;
    return printValue(value);
}

int CmdTotp(const CliOptions& Opt, const QStringList& Args) {
    TRACE_PROC("modCli.CmdTotp", Args);
    QString id;
    int rec;
    if (int rc = openRecord(Opt, Args, id, rec))
        return rc;
    const RecExtras ex = extrasOf(id);
    TotpParams p;
    QString why;
    if (ex.Otp.isEmpty()) {
        say(QStringLiteral("%1 has no TOTP seed (set one with 'argentpm edit NAME ID --totp SEED')").arg(id));
        return cliNoRecord;
    }
    if (!ParseTotp(ex.Otp, p, &why)) {
        say(QStringLiteral("the TOTP seed of %1 gives no codes: %2").arg(id, why));
        return cliDamaged;
    }
    const qint64 now = QDateTime::currentSecsSinceEpoch();
    writeOut(TotpCode(p, now).toLatin1() + '\n');
    if (isatty(2))
        std::fprintf(stderr, "Valid for %d more seconds.\n", TotpSecondsLeft(p, now));
    return cliOk;
}

int CmdMoveNoteFields(const CliOptions& Opt, const QStringList& Args) {
    TRACE_PROC("modCli.CmdMoveNoteFields", Args);
    if (int rc = openUserForChange(Opt, Args[0]))
        return rc;
    const QList<MovedNoteLine> moved = MoveNoteLinesToFields(*CurUsDB);
    if (moved.isEmpty()) {
        std::printf("No description holds a URL or TOTP line to move.\n");
        return cliOk;
    }
    if (int rc = saveUserChange())
        return rc;
    QByteArray out;
    for (const MovedNoteLine& m : moved) {
        appendOneLine(out, QStringLiteral("%1 %2: %3 moved to its field (%4)")
                               .arg(m.IndNum, quoted(m.Title), m.Field,
                                    m.Field == QLatin1String("TOTP") ? QStringLiteral("seed") : m.Value));
        out.append('\n');
    }
    appendOneLine(out, QStringLiteral("Moved %1 line(s).").arg(moved.size()));
    out.append('\n');
    writeOut(out);
    return cliOk;
}
