#pragma once

// Reading secrets for argentpm: from the terminal without echo, or line by line from
// standard input (--password-stdin).

#include <QString>

// Reads one line from the controlling terminal with echo off, showing Prompt there.
// False when there is no terminal.
bool ReadSecretFromTty(const char* Prompt, QString& Out);
// The next line of standard input without its line end; false at the end of input.
bool ReadStdinLine(QString& Out);
// Asks a yes/no question on the terminal; false when there is none or the answer is not yes.
bool AskYesOnTty(const QString& Question);
