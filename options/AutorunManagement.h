#pragma once

#include <QString>

// Starting with the desktop session: an XDG autostart entry
// $XDG_CONFIG_HOME/autostart/ArgentPasswordMngr.desktop that runs this program.
// true writes it, false deletes it. Failures pass silently, like the settings they
// stand for (the box in the options dialog keeps its state either way).
void AutorunManagement(bool Autorun);

// Where the entry lives.
QString AutorunEntryPath();
