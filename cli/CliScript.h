#pragma once

// argentpm for scripts: one field alone (show --field, clip), JSON output (--json on
// users, ls, show, find, backups) and the record fields of 'edit'
// (CliScriptCommands.cpp, CliClip.cpp).
//
// JSON shapes (UTF-8, one document on standard output; identifiers are numbers):
//   users    {"databases": DIR, "users": [NAME, ...]}
//   ls       {"user": NAME, "root": ROOT_TEXT,
//             "items": [{"id": N, "parent": N, "type": "folder"|"record", "depth": N,
//                        "title": TEXT}, ...]}           (in the order of the tree)
//   show     {"id": N, "parent": N, "type": "folder"|"record", "title": TEXT,
//             "login": TEXT, "password": TEXT, "description": TEXT}
//   find     {"user": NAME, "text": TEXT, "matches": [{"id": N, "title": TEXT}, ...]}
//   backups  {"folder": DIR, "backups": [{"file": FILE, "user": NAME,
//             "written": "YYYY-MM-DDTHH:MM:SS"}, ...]}   (local time)

#include "cli/CliShared.h"
#include "records/RecordSearch.h"

#include <QStringList>

namespace cli {

bool wantJson(const CliOptions& Opt);
// --field NAME given with a known name, or not given (cliOk); else a usage error.
int checkFieldOption(const CliOptions& Opt);
// The column of a --field name (title, login, password, description).
QString fieldColumn(const QString& Field);

int printUsersJson(const QStringList& Users);
int printLsJson(int Tbl);
int printShowJson(int Tbl, int Rec, bool ShowProtected = false);
int printField(int Tbl, int Rec, const QString& Field);
int printFindJson(const QString& Text, const QList<FoundRow>& Found);
int printBackupsJson(const QStringList& Items);

// The strength estimate of a new master password on standard error, with a warning when
// it is weak (see users/PaswStrength.h).
void reportStrength(const QString& Pasw, const QString& UserName);

// The record fields of 'add' and 'edit': --title, --login, --desc, --generate,
// --ask-password. checkFieldEdits: a usage error for a bad --generate length or both ways
// of setting the password.
bool editsFields(const CliOptions& Opt);
int checkFieldEdits(const CliOptions& Opt);
// Changes the fields asked for on row Rec of identifier Id (the password is asked here).
int applyFieldEdits(const CliOptions& Opt, const QString& Id, int Rec);

} // namespace cli
