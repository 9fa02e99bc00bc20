#pragma once

// The portable copy: the program, its support files, the user databases and a settings
// file copied to a folder (a removable drive), so that the program runs from there in
// portable mode (a config.dat beside the executable).
//
// Layout under the target folder:
//   ArgentPasswordMngr, argentpm    the programs (required), from the executables' folder,
//   argentpm-clipkeeper             and the clipboard keeper of argentpm when it is there
//   start.dat                       settings template (required)
//   mainicon.ico, mainicon.png, readme.txt, readme.<language>.txt, SampleUser.bdb
//                                   when the program has them
//   lib/, plugins/, qt.conf         the libraries and Qt plugins a machine without Qt
//                                   lacks (see PortableRuntime.h)
//   DataBases/                      the whole databases folder, backups included (0700,
//                                   files 0600)
//   Languages/                      the language files
//   config.dat                      the running settings with entry 5 = <target>/DataBases
//                                   and entry 24 = <target> (0600); a copy that is later
//                                   mounted elsewhere re-bases entry 5 (see LoadConfig)
//
// The program files, libraries and plugins are written first, each replacing what is
// there; then DataBases is
// created, and a target that has one already (a second install into the same folder)
// stops there with error 75. Nothing is rolled back: what was copied stays. The running
// program's own settings are not changed.

#include <QString>
#include <QStringList>

#include <functional>

// Progress: work done so far and in all (an entry weighs one unit plus one per 64 KiB),
// and the entry just copied.
using InstallProgress = std::function<void(int Done, int Total, const QString& Item)>;

// The program's own files, in the order they are copied, and which of them must be there.
QStringList PortableProgramFiles();
QStringList PortableRequiredFiles();

// Copies the contents of from_dir into the existing folder to_dir, recursively: first
// the entries of a folder (files copied over, folders created), then the folders one by
// one. Returns the number of entries copied, at every level. With PrivateData files get
// mode 0600 and folders 0700, else they keep the source's. Links to folders are not
// followed, and the folder being copied into is never copied into itself.
int CopyDir(const QString& from_dir, const QString& to_dir, bool PrivateData = false,
            const std::function<void(const QString& Item)>& Copied = {});

// The whole portable copy (see above). Returns the number of entries copied.
int InstallToRemovableDevice(const QString& TargPath, const InstallProgress& Progress = {});
