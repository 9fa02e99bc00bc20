#pragma once

// Where a version of a user file comes from, and the versions this computer keeps of it,
// so that a conflict copy made by a sync engine (storage/ConflictCopies.h) merges three
// ways with the version both sides started from.
//
// Lineage. Every save of a user file adds a token "<save count>-<12 hex digits>" (random)
// to the database line (DatabaseRecord::Lineage, blank-separated, oldest first, the
// newest kLineageMax kept); a merge keeps the tokens of both sides. The last token names
// the version itself; a version descends from every version whose token it holds. The
// tokens travel inside the sealed file, so two machines that never talked agree on them.
//
// Kept versions. Each machine keeps the last kKeptVersionsMax versions of each user file
// it read or wrote, byte for byte as the file was (sealed and enciphered as the file is,
// mode 0600), named by their last token, in its per-user data folder
// ($XDG_DATA_HOME/ArgentPM/Versions/<user>-<digest of the folder>/; beside the settings in
// a portable copy), never in the databases folder: the sync engine would carry them. A
// version without a lineage (a file from before it) is not kept: nothing could name it as
// an ancestor. When the count is exceeded the versions with the lowest save counts go.
//
// The base of a merge of two versions is their best common ancestor: a kept version whose
// token both lineages hold, the one with the highest save count first. A save counts one
// past every version it descends from (a merge takes the higher count of its sides), so no
// common ancestor with a lower count can descend from that one. None: two-way.

#include <QByteArray>
#include <QString>
#include <QStringList>

inline constexpr int kLineageMax = 64;
inline constexpr int kKeptVersionsMax = 20;

// The lineage of a new save of a version with lineage Lineage: a fresh token added.
QString ExtendLineage(const QString& Lineage, quint64 SaveNum);
// The tokens of both, each once, ordered by save count, the newest kLineageMax.
QString JoinLineages(const QString& A, const QString& B);
// The token of the version itself (the last one); empty for none.
QString LineageHead(const QString& Lineage);

// The folder of the kept versions of the user file at UserPath; empty when there is no
// per-user folder to keep them in.
QString KeptVersionsFolder(const QString& UserPath);
// Keeps Sealed, the bytes of a version of the user file at UserPath with lineage Lineage,
// unless it is kept already; drops the oldest beyond kKeptVersionsMax. False when it
// could not be written (nothing else changes).
// From, when given, is the file Sealed was read from or written to, with inode Inode: it is
// linked rather than written again when it is still that file (a checked write or a sync
// engine replaces a file, never changes it in place); a kept version whose last token is
// not its name is never used as a base (MergeBase.cpp reads it to know). A reading gives
// no bytes (Sealed empty): holding a second copy of a large file for the rare case of a
// file replaced between the reading and the link is not worth it, and such a version is
// then not kept (a merge takes an older common ancestor, or merges two-way).
bool KeepVersion(const QString& UserPath, const QString& Lineage, const QByteArray& Sealed,
                 const QString& From = {}, quint64 Inode = 0);
// The tokens of the kept versions of UserPath.
QStringList KeptVersions(const QString& UserPath);
QString KeptVersionPath(const QString& UserPath, const QString& Token);
// The kept versions that are common ancestors of both lineages, best first.
QStringList CommonAncestors(const QString& UserPath, const QString& Ours, const QString& Theirs);
