#pragma once

// A user's name is the name of its file in the databases folder (name + ".bdb"), so it
// must be one plain file name there: not empty (after trimming blanks), no "/", no NUL,
// and not "." or "..". The window and argentpm refuse other names alike.

#include <QString>

bool IsValidUserName(const QString& Name);
