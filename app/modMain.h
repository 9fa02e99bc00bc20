#pragma once

// Utilities shared by every module, and the start-up sequence.

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <functional>

// A folder path with exactly one trailing "/"; "" becomes "/".
QString Pt(const QString& Path);
// True when the length of the named file or folder can be read; never raises.
bool FileExist(const QString& FileName);
// The private temporary folder of this user (mode 0700), ending in "/".
QString GetWindowsTemp();
// Erases deciphered temporary copies ("psc*") left in the private temporary folder by a
// process that was killed: those of processes that no longer run, and unnamed old ones.
// Copies of running processes stay. Returns how many were erased.
int RemoveStaleTempCopies();
// Empty when the private temporary folder can be used; else why not (for a message).
QString TempFolderProblem();
// Cuts the text at its first NUL character, in place and in the result.
QString StripNulls(QString& OriginalStr);
void RemoveNullChar(QString& Text);

// The program folder: start.dat, SampleUser.bdb, Languages/, the icon and readme.txt.
// It is the executable's own folder when that holds start.dat (the build tree, a
// portable copy); otherwise the installed data folder <prefix>/share/argentpm, found
// relative to the executable first (a package moved as a whole) and then at the prefix
// the program was built for.
QString AppPath();
// The help file of the program folder Folder for a language: "readme.<Language>.txt" when
// it exists, else "readme.txt".
QString ReadmePath(const QString& Folder, const QString& Language);
// Points the program folder elsewhere (tests, and the portable-copy check).
void SetAppPath(const QString& Path);
// The folder of the running executables (ArgentPasswordMngr and argentpm).
QString ExeFolderPath();
void SetExeFolderPath(const QString& Path);
// True when the program folder is the executables' own folder (the build tree or a
// portable copy), false for an installed copy, whose data folder is shared and read-only.
bool ProgramBesideExe();
// The choice AppPath makes, for an executable folder: exeDir when it holds start.dat,
// else the first of DataFolders that does, else exeDir.
QString FindProgramFolder(const QString& exeDir, const QStringList& DataFolders);
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
