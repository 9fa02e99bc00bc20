#pragma once

// File operations shared by backup, restore and the portable copy. Every replacement of
// a file is atomic: the bytes go to a temporary file beside the target, are flushed to
// disk and renamed over it, so the target holds its whole old or its whole new content.
// Failures are raised as numbered errors for the error trap: 53 a source that is not
// there, 75 anything that cannot be read or written (a full disk, a parent that is a
// file, a folder that cannot be made).

#include "app/CheckedWrite.h"

#include <QFileDevice>
#include <QString>

#include <optional>

// Mode 0600 for files (kPrivateFilePerms, app/CheckedWrite.h) and 0700 for folders that
// hold user data.
inline constexpr QFileDevice::Permissions kPrivateDirPerms =
    QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner;

// Copies From over To (replacing it if it exists), byte for byte, checked (CheckedWrite.h).
// Perms: the new file's permissions; without them the source's.
// False when the copy could not be made: To is then as it was.
bool TryCopyFileOver(const QString& From, const QString& To,
                     std::optional<QFileDevice::Permissions> Perms = std::nullopt);
// The same, raising 53 for a missing source and 75 for a copy that failed.
void CopyFileOver(const QString& From, const QString& To,
                  std::optional<QFileDevice::Permissions> Perms = std::nullopt);
// Creates one folder (its parent must exist); error 75 when it exists already or cannot
// be made.
void MakeFolder(const QString& Path, QFileDevice::Permissions Perms);
