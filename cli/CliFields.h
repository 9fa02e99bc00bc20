#pragma once

// A record's fields beyond the four in argentpm (CliFieldCommands.cpp): what 'show' and
// 'show --json' add, the options of 'edit' that set them, and the commands 'field',
// 'totp' and 'move-note-fields'.
//
//   edit --url TEXT            the web address (empty: none)
//        --totp SEED           an otpauth:// URI or a base32 secret (empty: none)
//        --field NAME=VALUE    sets custom field NAME (repeatable)
//        --hidden-field NAME   hides it (shown as dots, copied like a password)
//        --visible-field NAME  shows it again
//        --remove-field NAME   removes it
//
// JSON of 'show' gains: "url": TEXT, "totp": bool (the seed itself as "totp_uri" with
// --show-protected), "fields": [{"name": TEXT, "value": TEXT|null, "hidden": bool}, ...]
// (a hidden value is null without --show-protected), and "history": [{"password": TEXT,
// "replaced": DATE}, ...] with --show-protected, else "history_count": N.

#include "cli/CliShared.h"

#include <QByteArray>
#include <QCommandLineOption>
#include <QJsonObject>
#include <QList>

namespace cli {

bool editsExtras(const CliOptions& Opt);
// A usage error for a --totp that gives no codes or a --field without "=".
int checkExtraEdits(const CliOptions& Opt);
int applyExtraEdits(const CliOptions& Opt, const QString& Id);
// The lines 'show' prints after the four fields.
void appendExtrasText(QByteArray& Out, const QString& Id, bool ShowProtected);
void addExtrasJson(QJsonObject& Obj, const QString& Id, bool ShowProtected);
// The value of field Name of record Id (row Rec of DataTable): one of the four, "url",
// "totp" (the seed; AsCode: the current one-time code) or a custom field by its
// name. False, with the reason on standard error and the exit status in Rc, when there
// is none.
bool recordFieldValue(const QString& Id, int Rec, const QString& Name, bool AsCode, QString& Value, int& Rc);
// The options that set them, for 'add' and 'edit'.
QList<QCommandLineOption> extraFieldOptions();

} // namespace cli
