#pragma once

#include <QString>

#include <functional>

class QWidget;

// The folder the chooser opens on.
extern QString BrowsePath;

// Shows the folder chooser opening at Path; true and the chosen folder in Path when
// the user confirms. AllowExtStyle and AllowManualEnter are kept for the callers; the
// chooser always offers a new-folder button and a path field.
bool dlgBrowseFolder(QWidget* OwnerForm, QString& Path, const QString& Title, bool AllowExtStyle,
                     bool AllowManualEnter);
// Lets the user pick a new databases folder: entry 5 and the settings file change at once.
// An open user is saved into the old folder and closed first.
void ChaneDBPath(QWidget* Owner);

// Tests answer the chooser themselves.
using FolderChooser = std::function<bool(QWidget* Owner, QString& Path, const QString& Title)>;
void SetFolderChooser(FolderChooser Chooser);
