#pragma once

// The running program listens on a local socket in the user's runtime folder; a second
// start that finds it running says "show" there, and the first one brings its window
// to the front.

#include <QString>

#include <functional>

// The socket's path (beside the single-instance lock).
QString InstanceSocketPath();
// The first instance: calls OnShow on the event loop whenever a second start asks.
bool ListenForSecondStart(std::function<void()> OnShow);
void StopListening();
// A second start: asks the running instance to show its window. True when it answered.
bool AskFirstInstanceToShow(int TimeoutMs = 2000);
