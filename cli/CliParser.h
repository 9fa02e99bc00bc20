#pragma once

// argentpm's command line: argentpm [COMMON OPTIONS] COMMAND [ARGUMENTS] [OPTIONS].
//
// The command is the first word that is no option (or the word after "--"). Its own
// options (CliCommands.h) and the common ones below may stand anywhere, before or after
// the command, and are read by one QCommandLineParser made for that command; an option
// of another command is unknown. "--" ends the options. The common options:
//   --databases DIR   the user files in DIR instead of the settings' folder
//   --password-stdin  passwords from standard input, one a line
//   -y, --yes         the command's question answered with yes
//   -h, --help        the help of argentpm, or of the command
//   --version         the version
// 'argentpm help COMMAND' is 'argentpm COMMAND --help'.

#include "cli/CliCommands.h"

#include <QStringList>

struct CliCall {
    const CliCommand* Command = nullptr;
    CliOptions Opt;
    QStringList Args; // the words after the command's name
};

// Reads Argv (the program's name first). Returns -1 when Call is to be run; otherwise
// the exit status, after printing the help or the version, or why the line is wrong.
int ReadCliCommandLine(const QStringList& Argv, CliCall& Call);

// Prepares the settings, checks the number of arguments and runs the command.
int RunCliCall(const CliCall& Call);
