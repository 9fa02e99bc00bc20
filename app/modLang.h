#pragma once

// Interface texts by number, loaded from Languages/<name>.lng:
//   line 1: the highest identifier N
//   "#..."  a comment
//   "ID=text" the text of identifier ID (everything after the first "=")

#include <QString>

void LoadLang(const QString& LangFile);
// The text of an identifier; "#Error in language module#" (and a log line) when there
// is no table yet or the identifier is outside 1..N.
QString Texts(int TxtIdent);
// Forgets the loaded table (tests).
void UnloadLang();
