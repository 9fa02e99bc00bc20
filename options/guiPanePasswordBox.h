#pragma once

// The options' check box for hiding the password in the main window's value pane.

class QCheckBox;
class QWidget;

QCheckBox* NewPanePasswordBox(QWidget* Parent);
