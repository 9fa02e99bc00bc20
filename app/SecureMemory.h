#pragma once

// Key material kept out of swap. A locked range holds its pages in memory; ranges may
// share pages (two secrets on one heap page), so each page counts the ranges on it and
// is unlocked when the last of them is released. Locking is best effort: a kernel that
// refuses (RLIMIT_MEMLOCK) leaves the secret usable, only swappable.

#include <QString>

#include <cstddef>

// Locks [Data, Data + Size); true when its pages are locked. Locking a range again (the
// same start) takes its new size.
bool LockSecret(const void* Data, std::size_t Size);
// Releases a range locked by LockSecret (its start); nothing for any other address.
void UnlockSecret(const void* Data);
// The buffer of Text, made its own first, locked as a range.
bool LockSecretText(QString& Text);
// Bytes of this process locked by these functions (pages), for the tests.
std::size_t LockedSecretBytes();
// Whether a range starting at Data is locked now, for the tests.
bool SecretIsLocked(const void* Data);
