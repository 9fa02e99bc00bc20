#pragma once

// The window's side of the sealed copy of unsaved changes (users/UnsavedCopy.h): when a
// user opens and such a copy is there, the window offers it back.

#include <QString>

class QWidget;

// With UsName open: asks whether to take its copy back, asks for the password the copy
// was sealed with when the open one does not open it, merges it in and saves. A copy
// declined is deleted or kept for the next opening, as the user says.
void OfferUnsavedCopy(QWidget* Owner, const QString& UsName);
