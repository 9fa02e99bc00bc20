#pragma once

// The GUI application object: every event handler runs under the error trap, and
// message boxes from logic code become real boxes.

#include <QApplication>

class ArgentApplication : public QApplication {
public:
    ArgentApplication(int& argc, char** argv);
    bool notify(QObject* receiver, QEvent* event) override;
};

// Shows a logic-level message box as a QMessageBox; answers with the classic codes.
int GuiMsgBox(const QString& Prompt, int Style, const QString& Title);

class QWidget;
// Every dialog calls this when it opens: with settings entry 6 on, it stays on top.
void ApplyDialogOnTop(QWidget* Dialog);

class QDialog;
#include <functional>
// Every form opens its modal dialogs through this. Tests install a handler that fills
// in and answers the dialog instead of running its event loop.
int ShowModal(QDialog& Dialog);
using ModalHandler = std::function<int(QDialog& Dialog)>;
ModalHandler SetModalHandler(ModalHandler Handler);

// Every modal dialog and message box of the program, while it runs, is on one stack, so
// that the end of the session and the inactivity lock can close them all at once.
// CloseModals rejects each, the innermost first (a message box answers No or Cancel),
// and refuses new ones until the stack has unwound: the code behind a closed question
// goes on without asking another. With Forever (the program is ending) the refusal lasts.
void CloseModals(bool Forever);
// True while a new dialog would be refused (it then returns Rejected at once).
bool ModalsRefused();
// Lifts the refusal (an end that could not be completed).
void ReopenModals();

class QHBoxLayout;
class QPushButton;
// The row of buttons at the foot of a dialog, to the right.
QHBoxLayout* DialogButtonRow(std::initializer_list<QPushButton*> Buttons);
