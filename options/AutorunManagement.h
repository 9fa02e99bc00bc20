#pragma once

#include <QString>

// Starting with the desktop session: an XDG autostart entry
// $XDG_CONFIG_HOME/autostart/ArgentPasswordMngr.desktop that runs this program.
// true writes it (checked, replacing the old entry only when the new one is whole), false
// deletes it. Returns false when that failed (written to the debug log); the box in the
// options dialog keeps its state either way.
bool AutorunManagement(bool Autorun);

// Where the entry lives.
QString AutorunEntryPath();
