#pragma once

// The window's side of opening users: the open user is saved before another one takes
// its place, and a user file that the right password opens but whose contents fail their
// check is reported as damaged, with the restore dialog offered for that user's copies.

#include <QString>

#include <functional>

class QWidget;

// Saves the open user before it is closed for another one. True when nothing was open
// or it was saved; false when it could not be (the saver has said why), and then the
// caller keeps the user open.
bool SaveCurrentUserFirst();
// The main window installs its own saver, which also deals with changes made elsewhere;
// without one the database is saved directly. Returns the previous one.
using SaveFirstHandler = std::function<bool()>;
SaveFirstHandler SetSaveFirstHandler(SaveFirstHandler Handler);

// Opens user UsName with the MD5 text UsPasw, which the password prompt accepted, as the
// current user (FullUserLoad), saying what went wrong when it fails. Returns
// FullUserLoad's result.
int OpenUser(QWidget* Owner, const QString& UsName, const QString& UsPasw);
