#pragma once

// Helpers that every argentpm command uses (CliCommands.cpp).

#include "cli/CliCommands.h"

#include <QByteArray>
#include <QString>

namespace cli {

// "argentpm: <text>" on standard error.
void say(const QString& Text);
QString quoted(const QString& Name);
// A password from the next line of standard input (--password-stdin) or the terminal.
int askSecret(const CliOptions& Opt, const char* Prompt, QString& Out);
// askSecret, typed a second time on a terminal; differing entries are cliRefused after
// saying that nothing was Done ("changed", "added").
int askConfirmedSecret(const CliOptions& Opt, const char* Prompt, const char* Done, QString& Out);
// The root ("0") or a folder of the current user, to put rows into; an exit status after
// saying why not.
int existingFolder(const QString& Id);
// Takes the lock of user Name's file for the rest of the command (every changing command
// holds it across its read, change and write). cliOk, or cliLocked / cliFailed after
// saying why.
int lockUser(const QString& Name);
// Says what a failed save of the current user means; the exit status for it.
int saveFailure(int SaveResult);
// Checks the password and makes the user current, without touching the settings.
int openUser(const CliOptions& Opt, const QString& Name);
// The current user's DataTable.
int dataTable(int& Tbl);
// A text on one line of output: line breaks and tabs become blanks.
void appendOneLine(QByteArray& Out, const QString& Text);
void writeOut(const QByteArray& Bytes);
// The user opened for a change, and the change saved, as every changing command does it
// (CliRecordCommands.cpp).
int openUserForChange(const CliOptions& Opt, const QString& Name);
int saveUserChange();

} // namespace cli
