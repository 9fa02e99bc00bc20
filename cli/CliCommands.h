#pragma once

// The commands of argentpm, one entry each in one table (CliCommandTable.cpp). An entry
// names the command, its arguments, its one-line summary for 'argentpm --help', its own
// help ('argentpm COMMAND --help'), the options it takes besides the common ones
// (CliParser.h), and the routine that runs it, which returns the exit status.

#include "cli/CliShared.h"

#include <QCommandLineOption>
#include <QList>
#include <QStringList>

#include <span>

struct CliCommand {
    const char* Name;
    // The arguments after the name, optional ones in brackets: "NAME ID", "[LENGTH]".
    const char* Args;
    // What a wrong number of arguments is told: "'show' takes <Takes>".
    const char* Takes;
    // The line of 'argentpm --help'.
    const char* Summary;
    // The usage and the description that 'argentpm NAME --help' shows.
    const char* Help;
    // The command's own options; a description is one line.
    QList<QCommandLineOption> Options;
    int (*Run)(const CliOptions&, const QStringList&);

    // How many arguments Args allows.
    qsizetype minArgs() const;
    qsizetype maxArgs() const;
};

// Every command, in the order 'argentpm --help' lists them.
std::span<const CliCommand> CliCommandTable();
// The command of that name, or nullptr.
const CliCommand* FindCliCommand(const QString& Name);

// Users, and looking at their records (CliCommands.cpp).
int CmdUsers(const CliOptions& Opt, const QStringList& Args);
int CmdAddUser(const CliOptions& Opt, const QStringList& Args);
int CmdPasswd(const CliOptions& Opt, const QStringList& Args);
int CmdDeleteUser(const CliOptions& Opt, const QStringList& Args);
int CmdLs(const CliOptions& Opt, const QStringList& Args);
int CmdShow(const CliOptions& Opt, const QStringList& Args);

// Folders and records (CliRecordCommands.cpp).
int CmdMkdir(const CliOptions& Opt, const QStringList& Args);
int CmdAdd(const CliOptions& Opt, const QStringList& Args);
int CmdRename(const CliOptions& Opt, const QStringList& Args);
int CmdMv(const CliOptions& Opt, const QStringList& Args);
int CmdRm(const CliOptions& Opt, const QStringList& Args);
int CmdEdit(const CliOptions& Opt, const QStringList& Args);
int CmdFind(const CliOptions& Opt, const QStringList& Args);
int CmdGenerate(const CliOptions& Opt, const QStringList& Args);
// Fields beyond the four (CliFieldCommands.cpp).
int CmdField(const CliOptions& Opt, const QStringList& Args);
int CmdTotp(const CliOptions& Opt, const QStringList& Args);
int CmdMoveNoteFields(const CliOptions& Opt, const QStringList& Args);
// A field of a record onto the desktop clipboard (CliClip.cpp).
int CmdClip(const CliOptions& Opt, const QStringList& Args);

// Backup copies and the portable copy (CliMaintCommands.cpp).
int CmdBackup(const CliOptions& Opt, const QStringList& Args);
// Conflict copies of sync engines (CliSyncCommands.cpp).
int CmdMerge(const CliOptions& Opt, const QStringList& Args);
int CmdBackups(const CliOptions& Opt, const QStringList& Args);
int CmdRestore(const CliOptions& Opt, const QStringList& Args);
int CmdDeleteBackup(const CliOptions& Opt, const QStringList& Args);
int CmdInstallPortable(const CliOptions& Opt, const QStringList& Args);

// Import and export (CliImportExport.cpp).
int CmdImport(const CliOptions& Opt, const QStringList& Args);
int CmdExport(const CliOptions& Opt, const QStringList& Args);

// The password health report (CliHealth.cpp).
int CmdHealth(const CliOptions& Opt, const QStringList& Args);

// The browsers' connection to the KeePassXC-Browser extension (CliBrowser.cpp).
int CmdBrowser(const CliOptions& Opt, const QStringList& Args);
