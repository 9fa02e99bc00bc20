#pragma once

// How long a copied secret stays on the clipboard: settings entry 23, seconds as
// decimal text, 0 for "until something else is copied". A missing entry (settings of
// an older version) or one that is no whole number reads as the default.

#include <QString>

constexpr int kClipDelayDefault = 10;
// A day: longer than anyone means, short enough for the timers.
constexpr int kClipDelayMax = 86400;

int ClipClearDelay();
// Stores the text as typed (the options dialog); the file is written at OK.
void SetClipClearDelay(const QString& Text);
// The text the options dialog shows.
QString ClipClearDelayText();
