#pragma once

// A user's name is the name of its file in the databases folder (name + ".bdb"), so it
// must be one plain file name there: not empty (after trimming blanks), no "/", no NUL,
// and not "." or "..". No control characters either (a line break would split the line
// of the settings that keeps the last user), and short enough that every file named after
// the user still fits a file name: the longest is a backup copy, "<name>_<k>.bdb.BACKUP".
// The window, argentpm and every place that takes a name from a file refuse other names alike.

#include <QString>

enum UserNameProblem {
    unpNone = 0,
    unpNotAFileName, // empty, blanks only, ".", "..", or holds "/" or NUL
    unpControlChar,  // a line break, a tab or another control character
    unpTooLong,      // the files named after the user would not fit a file name
};

// The most bytes (UTF-8) a user name can have.
int MaxUserNameBytes();
UserNameProblem CheckUserName(const QString& Name);
bool IsValidUserName(const QString& Name);
// The message (from the language file) for a name CheckUserName refused.
QString UserNameProblemText(UserNameProblem Problem);
