#pragma once

// Whether the main window's value pane hides the record's password (shown as dots, with a
// toggle to show it), so that a screen reader or someone looking over a shoulder does not
// get it. Off unless the options turned it on.

bool PaneHidesPassword();
void SetPaneHidesPassword(bool On);
