#pragma once

#include <QString>

// Starting with the desktop session: an XDG autostart entry
// $XDG_CONFIG_HOME/autostart/ArgentPasswordMngr.desktop that runs this program. Its Name
// is the program as users see it in their session settings; the name the value had in
// the Windows Run key stays in the key X-Argent-Run-Name ("Quillon Lockholt").
// true writes it (checked, replacing the old entry only when the new one is whole), false
// deletes it. Returns false when that failed (written to the debug log); the box in the
// options dialog keeps its state either way.
bool AutorunManagement(bool Autorun);

// Where the entry lives.
QString AutorunEntryPath();

// One argument of an Exec line of a desktop entry: quoted in double quotes when it holds
// a blank or another reserved character, with ", `, $ and \ escaped inside the quotes,
// then written as a desktop-file string (every \ doubled) with % doubled for the field
// codes.
QString DesktopExecArg(const QString& Arg);
