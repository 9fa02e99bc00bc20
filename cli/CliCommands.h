#pragma once

// The commands of argentpm. Each returns the process exit status.

#include <QHash>
#include <QString>
#include <QStringList>

enum CliExit {
    cliOk = 0,
    cliFailed = 1,       // could not read or write a file
    cliUsage = 2,        // bad command line, or no way to ask for a password
    cliWrongPasw = 3,    // the password does not open the user's file
    cliNoUser = 4,       // no such user in the databases folder
    cliDamaged = 5,      // the user's file is damaged
    cliNoRecord = 6,     // no row with that identifier
    cliRefused = 7,      // user exists already, password too short, passwords differ, not confirmed
    cliNoBackup = 8,     // no such backup copy
    cliBadConfig = 9,    // the settings hold a value the command cannot use
    cliNoClipboard = 11, // no desktop clipboard, or it could not be set
};

struct CliOptions {
    QString Databases; // --databases DIR, empty for the settings' folder
    bool PaswStdin = false;
    bool Yes = false;
    // The command's own options that were given: name (with its dashes) -> value, an
    // empty value for a switch.
    QHash<QString, QString> Given;
};

// Settings as the desktop program resolves them, then the databases folder override.
// Returns cliOk, or an exit status after printing why not.
int CliPrepare(const CliOptions& Opt);

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
// A field of a record onto the desktop clipboard (CliClip.cpp).
int CmdClip(const CliOptions& Opt, const QStringList& Args);

// Backup copies and the portable copy (CliMaintCommands.cpp).
int CmdBackup(const CliOptions& Opt, const QStringList& Args);
int CmdBackups(const CliOptions& Opt, const QStringList& Args);
int CmdRestore(const CliOptions& Opt, const QStringList& Args);
int CmdDeleteBackup(const CliOptions& Opt, const QStringList& Args);
int CmdInstallPortable(const CliOptions& Opt, const QStringList& Args);
