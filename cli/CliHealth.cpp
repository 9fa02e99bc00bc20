// argentpm health: the password health report of a user (records/PasswordHealth.h).

#include "cli/CliCommands.h"
#include "cli/CliScript.h"

#include "app/VbConv.h"
#include "app/modMain.h"
#include "diagnostics/Trace.h"
#include "records/PasswordHealth.h"
#include "users/PaswStrength.h"
#include "users/UserAccounts.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <unistd.h>

using namespace cli;

namespace {

const char* const kLevelNames[] = {"very weak", "weak", "fair", "strong", "very strong"};

QString levelName(int Level) {
    return QLatin1String(kLevelNames[std::clamp(Level, 0, 4)]);
}

QString dayOf(const QDateTime& When) {
    return When.toUTC().date().toString(Qt::ISODate);
}

QJsonObject itemJson(const HealthItem& It) {
    return {{QStringLiteral("id"), static_cast<qint64>(Val(It.IndNum))}, {QStringLiteral("path"), It.Path}};
}

QJsonArray listJson(const QList<HealthItem>& Items, const char* Extra = nullptr) {
    QJsonArray a;
    for (const HealthItem& it : Items) {
        QJsonObject o = itemJson(it);
        if (Extra && qstrcmp(Extra, "level") == 0)
            o.insert(QStringLiteral("level"), levelName(it.Level));
        else if (Extra)
            o.insert(QStringLiteral("set"), dayOf(it.Set));
        a.append(o);
    }
    return a;
}

int printHealthJson(const QString& User, const HealthReport& R, const QList<HealthItem>& Old,
                    const QDateTime& Cutoff) {
    QJsonArray reused;
    for (const QList<HealthItem>& g : R.Reused)
        reused.append(listJson(g));
    const QJsonObject o{{QStringLiteral("user"), User},
                        {QStringLiteral("records"), R.Records},
                        {QStringLiteral("weak"), listJson(R.Weak, "level")},
                        {QStringLiteral("reused"), reused},
                        {QStringLiteral("old"), listJson(Old, "set")},
                        {QStringLiteral("older_than"), dayOf(Cutoff)},
                        {QStringLiteral("unknown_age"), R.UnknownAge},
                        {QStringLiteral("empty"), listJson(R.Empty)}};
    writeOut(QJsonDocument(o).toJson(QJsonDocument::Indented));
    return cliOk;
}

// "  12  Folder / Title  (note)" lines, identifiers right-aligned to Width.
void appendItems(QByteArray& Out, const QList<HealthItem>& Items, int Width, int Indent,
                 const std::function<QString(const HealthItem&)>& Note = {}) {
    for (const HealthItem& it : Items) {
        Out.append(Indent + std::max<qsizetype>(0, Width - it.IndNum.size()), ' ');
        appendOneLine(Out, it.IndNum);
        Out.append("  ");
        appendOneLine(Out, it.Path);
        if (Note)
            Out.append("  (" + Note(it).toUtf8() + ')');
        Out.append('\n');
    }
}

QByteArray heading(const QString& Text, qsizetype Count) {
    return '\n' + Text.toUtf8() + ": " + QByteArray::number(Count) + '\n';
}

int printHealth(const QString& User, const HealthReport& R, const QList<HealthItem>& Old,
                const QString& Age) {
    int width = 1;
    for (const auto* list : {&R.Weak, &R.Empty, &Old})
        for (const HealthItem& it : *list)
            width = std::max(width, static_cast<int>(it.IndNum.size()));
    for (const QList<HealthItem>& g : R.Reused)
        for (const HealthItem& it : g)
            width = std::max(width, static_cast<int>(it.IndNum.size()));
    QByteArray out =
        QStringLiteral("Password health of user \"%1\": %2 records.\n").arg(User).arg(R.Records).toUtf8();
    out += heading(QStringLiteral("Weak passwords"), R.Weak.size());
    appendItems(out, R.Weak, width, 2, [](const HealthItem& It) { return levelName(It.Level); });
    qsizetype shared = 0;
    for (const QList<HealthItem>& g : R.Reused)
        shared += g.size();
    out += heading(QStringLiteral("Passwords used by more than one record"), R.Reused.size());
    for (const QList<HealthItem>& g : R.Reused) {
        out += "  one password, " + QByteArray::number(g.size()) + " records:\n";
        appendItems(out, g, width, 4);
    }
    out += heading(QStringLiteral("Passwords older than %1").arg(Age), Old.size());
    appendItems(out, Old, width, 2,
                [](const HealthItem& It) { return QStringLiteral("set ") + dayOf(It.Set); });
    if (R.UnknownAge > 0)
        out += QStringLiteral(
                   "  %1 record(s) keep no earlier password, so the age of their password is unknown.\n")
                   .arg(R.UnknownAge)
                   .toUtf8();
    out += heading(QStringLiteral("Records with an empty password"), R.Empty.size());
    appendItems(out, R.Empty, width, 2);
    writeOut(out);
    return cliOk;
}

} // namespace

int CmdHealth(const CliOptions& Opt, const QStringList& Args) {
    TRACE_PROC("modCli.CmdHealth", Args);
    QDateTime cutoff;
    QString age;
    if (Opt.has("older-than")) {
        bool ok = false;
        const int days = Opt.value("older-than").toInt(&ok);
        if (!ok || days < 0 || days > 36500)
            return usage(Opt, QStringLiteral("--older-than takes a number of days from 0 to 36500"));
        cutoff = QDateTime::currentDateTimeUtc().addDays(-days);
        age = QStringLiteral("%1 day(s)").arg(days);
    } else {
        const int months = HealthAgeMonths();
        cutoff = HealthCutoffMonths(months);
        age = QStringLiteral("%1 month(s)").arg(months);
    }
    if (int rc = openUser(Opt, Args[0]))
        return rc;
    // On a terminal, a report that takes a while shows how far it got on standard error.
    HealthProgress progress;
    if (isatty(STDERR_FILENO))
        progress = [](int Done, int Total) {
            std::fprintf(stderr, "\rChecking passwords: %d of %d", Done, Total);
            if (Done == Total)
                std::fputs("\r\033[K", stderr);
            std::fflush(stderr);
            return true;
        };
    const HealthReport rep = MakeHealthReport(*CurUsDB, progress);
    const QList<HealthItem> old = HealthOlderThan(rep, cutoff);
    if (wantJson(Opt))
        return printHealthJson(Args[0], rep, old, cutoff);
    return printHealth(Args[0], rep, old, age);
}
