#pragma once

// For the window benchmark (bench/bench_gui_window.cpp): with ARGENT_PAINT_PROBE set in the
// environment, the program writes to standard error one line "shown <class>" for every
// window it shows, and "paint <monotonic ns> <peak resident KiB>" once a tree with rows
// has been painted and put on the screen for the first time. Nothing else changes.

void InstallPaintProbe();
