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
