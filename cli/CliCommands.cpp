// argentpm commands on users, and on looking at a user's records: users, add-user,
// passwd, delete-user, ls and show.

#include "cli/CliCommands.h"
#include "cli/CliFields.h"

#include "cli/CliScript.h"
#include "cli/CliTerminal.h"

#include "app/CheckedWrite.h"
#include "app/ProgConfig.h"
#include "app/modMain.h"
#include "diagnostics/ErrorTrap.h"
#include "diagnostics/Trace.h"
#include "storage/TableFile.h"
#include "users/UsDBTree.h"
#include "users/UserAccounts.h"
#include "users/UserName.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cstdio>

using namespace cli;

int CmdUsers(const CliOptions& Opt, const QStringList& Args) {
    TRACE_PROC("modCli.CmdUsers", Args);
    if (!QFileInfo(ProgConfig[kCfgDBPath]).isDir()) {
        say(QStringLiteral("the databases folder %1 does not exist").arg(ProgConfig[kCfgDBPath]));
        return cliFailed;
    }
    StrMass users;
    FindUsers(ProgConfig[kCfgDBPath], users);
    if (wantJson(Opt))
        return printUsersJson(users.UBound() >= 1 ? users.Items.mid(1 - users.LBound) : QStringList());
    QByteArray out;
    for (int i = 1; i <= users.UBound(); ++i) {
        appendOneLine(out, users[i]);
        out.append('\n');
    }
    writeOut(out);
    return cliOk;
}

namespace {
// A name no user can have is said plainly, and is exit status 7.
int refuseUserName(const QString& Name) {
    switch (CheckUserName(Name)) {
    case unpNone:
        return cliOk;
    case unpControlChar:
        say(QStringLiteral("%1 cannot be a user name: it holds a line break or another control character")
                .arg(quoted(Name)));
        break;
    case unpTooLong:
        say(QStringLiteral("that name cannot be a user name: it becomes a file name, so it can be at most %1 "
                           "bytes long (as UTF-8), and it is %2")
                .arg(MaxUserNameBytes())
                .arg(Name.toUtf8().size()));
        break;
    default:
        say(QStringLiteral(
                "%1 cannot be a user name: it becomes a file name, so it must not be empty, \".\" or "
                "\"..\", or hold \"/\"")
                .arg(quoted(Name)));
        break;
    }
    return cliRefused;
}
} // namespace

int CmdAddUser(const CliOptions& Opt, const QStringList& Args) {
    TRACE_PROC("modCli.CmdAddUser", Args);
    const QString name = Args[0];
    if (int rc = refuseUserName(name))
        return rc;
    const QString path = UsDBFilePath(name);
    TRACE_LOCAL(path);
    // The databases folder must be the user's own: a file planted there could be read as
    // the user's, and a link could send the new file anywhere.
    if (const QString why = FolderWriteProblem(ProgConfig[kCfgDBPath]); !why.isEmpty()) {
        say(why);
        return cliRefused;
    }
    // A link left at the name, even one that leads nowhere, is a name taken.
    if (EntryExists(path)) {
        say(QStringLiteral("user %1 exists already").arg(quoted(name)));
        return cliRefused;
    }
    QString pasw;
    if (int rc = askNewSecret(Opt, pasw))
        return rc;
    reportStrength(pasw, name);
    if (const QString db = QDir::cleanPath(ProgConfig[kCfgDBPath]); !EntryExists(db)) {
        QDir().mkpath(QFileInfo(db).absolutePath());
        MakeFolderNoFollow(db, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }
    // Two programs adding the same user take turns; the second finds the first's file.
    if (int rc = lockUser(name)) {
        WipeString(pasw);
        return rc;
    }
    if (EntryExists(path)) {
        WipeString(pasw);
        say(QStringLiteral("user %1 exists already").arg(quoted(name)));
        return cliRefused;
    }
    try {
        AddUser(path, name, pasw);
    } catch (const VbError& e) {
        if (e.number() != vbErrPathFileAccess)
            throw;
        // A full disk or a folder that went away: nothing was created.
        WipeString(pasw);
        argent::diag::clearSnapshot();
        say(QStringLiteral("user %1 could not be created: %2").arg(quoted(name), e.description()));
        return cliFailed;
    }
    WipeString(pasw);
    std::printf("User \"%s\" created.\n", name.toUtf8().constData());
    return cliOk;
}

int CmdPasswd(const CliOptions& Opt, const QStringList& Args) {
    TRACE_PROC("modCli.CmdPasswd", Args);
    if (int rc = lockUser(Args[0]))
        return rc;
    if (int rc = openUser(Opt, Args[0]))
        return rc;
    if (int rc = confirmOlderFile(Opt))
        return rc;
    // The file is written under the name the database carries; a file renamed by hand
    // would be written elsewhere, so such a file is left alone.
    if (CurUsDB->Name() != Args[0]) {
        say(QStringLiteral("the database in %1 belongs to user %2; it was not changed")
                .arg(CurUsDBPath, quoted(CurUsDB->Name())));
        return cliFailed;
    }
    QString pasw;
    if (int rc = askNewSecret(Opt, pasw))
        return rc;
    reportStrength(pasw, Args[0]);
    const int r = ChangeUsPasw(pasw);
    TRACE_LOCAL(r);
    WipeString(pasw);
    if (r == usWriteFailed) {
        say(QStringLiteral("the file of user %1 could not be written; it still opens with the old password")
                .arg(quoted(Args[0])));
        return cliFailed;
    }
    if (r < 0)
        return saveFailure(r);
    std::printf("Password of user \"%s\" changed.\n", Args[0].toUtf8().constData());
    return cliOk;
}

int CmdDeleteUser(const CliOptions& Opt, const QStringList& Args) {
    TRACE_PROC("modCli.CmdDeleteUser", Args);
    const QString path = UsDBFilePath(Args[0]);
    TRACE_LOCAL(path);
    if (Args[0].isEmpty() || !QFileInfo(path).isFile()) {
        say(QStringLiteral("there is no user %1 in %2").arg(quoted(Args[0]), ProgConfig[kCfgDBPath]));
        return cliNoUser;
    }
    if (!Opt.Yes) {
        const QString q =
            QStringLiteral("Delete user %1 with all of its folders and records?").arg(quoted(Args[0]));
        if (!AskYesOnTty(q)) {
            say(QStringLiteral("user %1 was not deleted (confirm with --yes when there is no terminal)")
                    .arg(quoted(Args[0])));
            return cliRefused;
        }
    }
    if (int rc = lockUser(Args[0]))
        return rc;
    if (DeleteUser(Args[0], path) != 1) {
        say(QStringLiteral("there is no user %1 in %2 any more")
                .arg(quoted(Args[0]), ProgConfig[kCfgDBPath]));
        return cliNoUser;
    }
    std::printf("User \"%s\" deleted.\n", Args[0].toUtf8().constData());
    return cliOk;
}

int CmdLs(const CliOptions& Opt, const QStringList& Args) {
    TRACE_PROC("modCli.CmdLs", Args);
    if (int rc = openUser(Opt, Args[0]))
        return rc;
    int tbl;
    if (int rc = dataTable(tbl))
        return rc;
    if (wantJson(Opt))
        return printLsJson(tbl);
    const DatabaseRecord& db = CurUsDB->DBView();
    const TableEntry& t = db.Tables[tbl - 1];
    const int fId = CurUsDB->FindField(tbl, QStringLiteral("IndNum")) - 1;
    TRACE_LOCAL(fId);
    const int fTitle = CurUsDB->FindField(tbl, QStringLiteral("Title")) - 1;
    TRACE_LOCAL(fTitle);
    const QList<UsTreeNode> nodes = UsDBTreeOrder(*CurUsDB);
    int width = 1;
    TRACE_LOCAL(width);
    for (const UsTreeNode& n : nodes)
        width = std::max<int>(width, static_cast<int>(t.Records.escaped(n.RecNum - 1, fId).size()));
    QByteArray out;
    out.reserve(64 + nodes.size() * 48);
    // Identifiers are digits: their width is their length in bytes.
    auto line = [&](QByteArrayView id, int depth, QByteArrayView title, bool folder) {
        out.append(std::max<qsizetype>(0, width - id.size()), ' ');
        appendOneLineStored(out, id);
        out.append(2 + depth * 2, ' ');
        appendOneLineStored(out, title);
        if (folder)
            out.append('/');
        out.append('\n');
    };
    line("0", 0, StoredForm(CurUsDB->Tag()), false);
    for (const UsTreeNode& n : nodes)
        line(t.Records.escaped(n.RecNum - 1, fId), n.Depth, t.Records.escaped(n.RecNum - 1, fTitle),
             n.Folder);
    writeOut(out);
    return cliOk;
}

int CmdShow(const CliOptions& Opt, const QStringList& Args) {
    TRACE_PROC("modCli.CmdShow", Args);
    bool isNum = false;
    TRACE_LOCAL(isNum);
    Args[1].toInt(&isNum);
    if (!isNum)
        return badArguments(Opt);
    if (int rc = checkFieldOption(Opt))
        return rc;
    if (int rc = openUser(Opt, Args[0]))
        return rc;
    int tbl;
    if (int rc = dataTable(tbl))
        return rc;
    const QString id = QString::number(Args[1].toInt());
    TRACE_LOCAL(id);
    int rec;
    if (int rc = findRow(id, rec))
        return rc;
    if (Opt.has("field"))
        return printField(tbl, rec, Opt.value("field"));
    if (wantJson(Opt))
        return printShowJson(tbl, rec, Opt.has("show-protected"));
    TableEntry fields;
    CurUsDB->GetTable(tbl, fields);
    QByteArray out;
    // The fields the value pane shows: those without the hidden bit (4) in their type.
    for (qsizetype f = 0; f < fields.FldNames.size(); ++f) {
        if (fields.FldTypes.value(f) & 4)
            continue;
        const QByteArray caption = fields.FldNames[f].toUtf8() + ": ";
        QString value = CurUsDB->GetTblFldVal(tbl, rec, static_cast<int>(f + 1));
        TRACE_LOCAL(value);
        value.replace(QLatin1String("\r\n"), QLatin1String("\n"));
        const QStringList lines = value.split(u'\n');
        TRACE_LOCAL(lines);
        out += caption + lines.first().toUtf8() + '\n';
        for (qsizetype k = 1; k < lines.size(); ++k)
            out += QByteArray(caption.size(), ' ') + lines[k].toUtf8() + '\n';
    }
    if (isRecordRow(rec))
        appendExtrasText(out, id, Opt.has("show-protected"));
    writeOut(out);
    return cliOk;
}
