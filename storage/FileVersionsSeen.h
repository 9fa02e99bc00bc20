#pragma once

// What this computer remembers of each user file: the highest save count (the file's
// SaveNum) it has read or written. A file whose count is lower than that is an older copy
// put back (by a sync tool, an old backup, or someone who wants a revoked password to
// work again): the window and argentpm say so instead of taking it in without a word.
//
// The counts live in one small file beside the settings file, "FileVersions.dat", one
// line per user file: the count, a tab, the absolute path of the user file. It is written
// with the checked write; without a settings file (no settings path yet) nothing is kept.
// The file is rewritten only when a count changes.

#include <QString>

#include <optional>

// The name of the file of the counts, in the folder of the settings file.
inline constexpr char kFileVersionsName[] = "FileVersions.dat";

// The highest count seen of the user file at Path; none when nothing is remembered of it.
// After a restore it is 0: whatever the restored copy holds is taken as it is.
std::optional<quint64> SeenSaveNum(const QString& Path);
// Raises the remembered count of Path to SaveNum; a lower one changes nothing. False when
// the counts could not be written (a full disk): the old ones stay.
bool NoteSaveNum(const QString& Path, quint64 SaveNum);
// Sets the remembered count of Path to SaveNum exactly: an older file the user chose to
// keep, or (with 0) a backup copy the user put back, whatever its count.
bool ResetSaveNum(const QString& Path, quint64 SaveNum);
