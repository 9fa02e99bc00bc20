#pragma once

// Which merge two versions of one user file get (FileLineage.h has the lineage and the
// kept versions it relies on):
//
//  1. Theirs descends from Known, the version this program last read or wrote of the
//     file (its last token is in their lineage), or is an ancestor of it (an older file
//     put back), or either has no lineage (a file from before it): three-way with Known,
//     as every save and refresh has always merged.
//  2. Theirs is an ancestor of ours (its last token is in our lineage): nothing to take.
//  3. A kept version is a common ancestor of both: three-way with the best one that opens
//     with Key and holds a records table.
//  4. Otherwise two-way (MergeTwoWay): nothing is dropped; a row changed on both sides is
//     kept twice, theirs titled "<title> (conflict copy DATE)" (language text 440).
//
// A sync engine that puts another machine's version in place of the file (case 3 or 4
// instead of 1) is thus merged with the version both started from, never with ours as if
// theirs had undone our changes.

#include "storage/TableEngine.h"
#include "storage/UserFileMerge.h"

#include <QDate>
#include <QString>

enum MergeKind { mkThreeWay = 1, mkNothing = 0, mkAncestor = 2, mkTwoWay = 3 };

// True when Theirs descends from Known (case 1 above).
bool DescendsFrom(const DatabaseRecord& Theirs, const DatabaseRecord& Known);
// True when Theirs is another machine's version beside Known: it has a lineage, and
// neither descends from the other. Such a file is never "older than one seen here": its
// save count says nothing about ours, and it merges (case 3 or 4).
bool IsSibling(const DatabaseRecord& Theirs, const DatabaseRecord& Known);
// The title of a row kept twice by a two-way merge, for a copy of date When.
QString ConflictCopyTitleFormat(const QDate& When);
// Merges Theirs into Ours (in place) as above; Known may be null (no version known).
// Kind receives the case taken, Base the token of the kept base in case 3.
clsMergeCounts MergeVersions(const QString& UserPath, const QString& Key, DatabaseRecord& Ours,
                             const DatabaseRecord* Known, const DatabaseRecord& Theirs,
                             const QDate& TheirDate, MergeKind* Kind = nullptr, QString* Base = nullptr);
