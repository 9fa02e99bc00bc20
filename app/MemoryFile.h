#pragma once

// Scratch copies that never touch a disk: anonymous files in memory (memfd_create), open
// for the life of the copy and reachable by every file routine through the path
// "/proc/self/fd/<n>". Such a file has no name in any folder, so a crash leaves nothing
// behind, and writing it needs no sync. Only copies made here count as memory files.

#include <QString>

// A new empty memory file; an empty text when the system offers none.
QString CreateMemoryFile(const char* Name);
// True for a path that CreateMemoryFile handed out and that is still open.
bool IsMemoryFile(const QString& Path);
// Drops the copy's bytes and releases it. False when Path is no memory file.
bool CloseMemoryFile(const QString& Path);
