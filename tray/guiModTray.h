#pragma once

// Creating and removing the tray icon with its menu.

#include <functional>

class frmSysTray;

// The tray icon is shown (and must be removed on exit).
extern bool DoUnloadTIcon;
// The tray object while the icon exists, else nullptr.
frmSysTray* TrayObject();

// Creates the icon with its menu: Show (default), GenPassword, SaveDB, SelectUser,
// UnloadUser, a separator, Exit; tip "Argent Password Manager".
frmSysTray* CreateTrayIcon();
void DeleteIcon();
// 1 shows the icon, 2 removes it. Where the desktop has no notification area the icon
// cannot be shown: the user is told once and the program keeps its window.
void TrayIconManagement(int Action);
// The main window connects itself to every tray icon that is created.
void SetTrayCreatedHandler(std::function<void(frmSysTray*)> Handler);
// Whether a tray host is there; tests may pretend either way.
bool TrayAvailable();
void SetTrayAvailableOverride(int Available); // -1 ask the desktop, 0 no, 1 yes
