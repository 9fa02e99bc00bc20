#pragma once

// Utilities shared by every module, and the start-up sequence.

#include <QByteArray>
#include <QString>

#include <functional>

// A folder path with exactly one trailing "/"; "" becomes "/".
QString Pt(const QString& Path);
// True when the length of the named file or folder can be read; never raises.
bool FileExist(const QString& FileName);
// The private temporary folder of this user (mode 0700), ending in "/".
QString GetWindowsTemp();
// Cuts the text at its first NUL character, in place and in the result.
QString StripNulls(QString& OriginalStr);
void RemoveNullChar(QString& Text);

// The program folder: where the executable (and start.dat, Languages/, ...) lives.
QString AppPath();
// The help file of the program folder Folder for a language: "readme.<Language>.txt" when
// it exists, else "readme.txt".
QString ReadmePath(const QString& Folder, const QString& Language);
// Points the program folder elsewhere (tests, and the portable-copy check).
void SetAppPath(const QString& Path);
// The per-user data folder of an installed copy: $XDG_DATA_HOME/ArgentPM.
QString UserFolderPath();
// The folder that holds the per-user folder ($XDG_DATA_HOME, default ~/.local/share).
QString AppDataFolder();

// Colour-picker memory: 16 colours of 4 bytes, kept for the run.
extern QByteArray CustomColors;

// Start-up up to the main window: log, second-instance check, settings, language, and
// then the program-wide objects, which the caller creates (they belong to the storage
// layer). Returns false when the program must end without a window (another instance
// runs). Errors are raised to the caller's trap.
bool Main(const std::function<void()>& CreateProgramObjects = {});

// The user's runtime folder where the single-instance lock and socket live, ending in "/".
QString InstanceRuntimeFolder();

// Releases the single-instance lock (at exit, and for tests).
void ReleaseInstanceLock();
