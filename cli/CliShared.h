#pragma once

// What every argentpm command shares (CliShared.cpp): the exit statuses, the options of
// the command line as the command sees them, and the helpers that open the user, ask
// for passwords, say what went wrong and write the output.

#include <QByteArray>
#include <QByteArrayView>
#include <QHash>
#include <QString>
#include <QStringList>

struct CliCommand;

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
    cliLocked = 10,      // another program held the user's file for more than 10 s
    cliNoClipboard = 11, // no desktop clipboard, or it could not be set
};

struct CliOptions {
    QString Databases; // --databases DIR, empty for the settings' folder
    bool PaswStdin = false;
    bool Yes = false;
    bool AcceptOlder = false;            // --accept-older: write over a file older than one seen here
    const CliCommand* Command = nullptr; // the command being run
    // The command's own options that were given: long name (without dashes) -> value,
    // an empty value for a switch.
    QHash<QString, QString> Given;
    // Every value of an option given more than once (--field), in order.
    QHash<QString, QStringList> GivenAll;

    bool has(const char* Name) const { return Given.contains(QLatin1String(Name)); }
    QString value(const char* Name, const QString& Default = QString()) const {
        return Given.value(QLatin1String(Name), Default);
    }
    QStringList values(const char* Name) const { return GivenAll.value(QLatin1String(Name)); }
};

// Settings as the desktop program resolves them, then the databases folder override.
// Returns cliOk, or an exit status after printing why not.
int CliPrepare(const CliOptions& Opt);

namespace cli {

// "argentpm: <text>" on standard error.
void say(const QString& Text);
QString quoted(const QString& Name);
// "<Why>. Try 'argentpm COMMAND --help'." for the command being run; cliUsage.
int usage(const CliOptions& Opt, const QString& Why);
// The arguments do not fit the command: what it takes, as usage() says it; cliUsage.
int badArguments(const CliOptions& Opt);

// A password from the next line of standard input (--password-stdin) or the terminal.
int askSecret(const CliOptions& Opt, const char* Prompt, QString& Out);
// askSecret, typed a second time on a terminal; differing entries are cliRefused after
// saying that nothing was Done ("changed", "added").
int askConfirmedSecret(const CliOptions& Opt, const char* Prompt, const char* Done, QString& Out);
// A new master password of at least 8 characters, confirmed on a terminal.
int askNewSecret(const CliOptions& Opt, QString& Out);

// Takes the lock of user Name's file for the rest of the command (every changing command
// holds it across its read, change and write). cliOk, or cliLocked / cliFailed after
// saying why.
int lockUser(const QString& Name);
// Checks the password and makes the user current, without touching the settings.
int openUser(const CliOptions& Opt, const QString& Name);
// The current user's file is older than a version this computer has seen: cliOk when the
// user keeps it anyway (--accept-older, or yes on a terminal), else cliRefused after
// saying so. cliOk at once for a file that did not go back.
int confirmOlderFile(const CliOptions& Opt);
// The user locked and opened for a change; a file renamed by hand is left alone.
int openUserForChange(const CliOptions& Opt, const QString& Name);
// Merges the current user's conflict copies (Files, or every one when empty), saves and
// moves them to Backup/ (users/ConflictMerge.h); what became of each goes to standard
// output (ToStdout) or error. An exit status: a failed save; with ToStdout also a copy
// that was damaged (cliDamaged), opened with another password (cliWrongPasw) or stayed.
int mergeWaitingCopies(const QStringList& Files, bool ToStdout);
// Saves the change of the current user; an exit status after saying why not.
int saveUserChange();
// Says what a failed save of the current user means; the exit status for it.
int saveFailure(int SaveResult);
// The current user's DataTable.
int dataTable(int& Tbl);
// Whether row Rec of the current user's DataTable is a record (not a folder).
bool isRecordRow(int Rec);
// The row of the folder or record with identifier Id in the current user's DataTable;
// cliNoRecord after saying so when there is none.
int findRow(const QString& Id, int& Rec);
// The root ("0") or a folder of the current user, to put rows into; an exit status after
// saying why not.
int existingFolder(const QString& Id);

// A text on one line of output: line breaks and tabs become blanks.
void appendOneLine(QByteArray& Out, const QString& Text);
// The same for a value in its stored form (RecordStore::escaped).
void appendOneLineStored(QByteArray& Out, QByteArrayView Stored);
void writeOut(const QByteArray& Bytes);

} // namespace cli
