#include "app/guiApplication.h"

#include "app/MsgBox.h"
#include "app/ProgConfig.h"
#include "app/VbConv.h"
#include "diagnostics/ErrorTrap.h"

#include <QDialog>
#include <QHBoxLayout>
#include <QList>
#include <QMessageBox>
#include <QPointer>
#include <QPushButton>
#include <QThread>
#include <QTimer>

namespace {
QList<QPointer<QDialog>>& openModals() {
    static QList<QPointer<QDialog>> stack;
    return stack;
}
bool g_refuseUntilUnwound = false;
bool g_refuseForever = false;

// Runs Dialog's event loop with it on the stack of open modals.
int runModal(QDialog& Dialog) {
    if (ModalsRefused())
        return QDialog::Rejected;
    openModals().append(QPointer<QDialog>(&Dialog));
    const int r = Dialog.exec();
    openModals().removeAll(QPointer<QDialog>(&Dialog));
    openModals().removeAll(QPointer<QDialog>());
    // The code behind the closed dialogs runs on until it is back in the main event loop;
    // questions are refused until then.
    if (openModals().isEmpty() && g_refuseUntilUnwound)
        QTimer::singleShot(0, qApp, [] {
            if (openModals().isEmpty())
                g_refuseUntilUnwound = false;
        });
    return r;
}
} // namespace

void CloseModals(bool Forever) {
    if (Forever)
        g_refuseForever = true;
    if (!openModals().isEmpty())
        g_refuseUntilUnwound = true;
    const QList<QPointer<QDialog>> open = openModals();
    for (auto it = open.crbegin(); it != open.crend(); ++it)
        if (QDialog* d = it->data())
            d->done(QDialog::Rejected);
    // Dialogs shown without the stack (none should be) close as well.
    for (QWidget* w : QApplication::topLevelWidgets())
        if (auto* d = qobject_cast<QDialog*>(w); d && d->isVisible())
            d->done(QDialog::Rejected);
}

bool ModalsRefused() {
    // Outside every event loop (before the program's own starts) nothing is unwinding.
    if (g_refuseUntilUnwound && openModals().isEmpty() && QThread::currentThread()->loopLevel() == 0)
        g_refuseUntilUnwound = false;
    return g_refuseForever || g_refuseUntilUnwound;
}

void ReopenModals() {
    g_refuseForever = false;
    g_refuseUntilUnwound = false;
}

ArgentApplication::ArgentApplication(int& argc, char** argv) : QApplication(argc, argv) {
    setApplicationName(QStringLiteral("ArgentPasswordMngr"));
    // The menu entry's name: a Wayland compositor matches the window to it (icon, name).
    setDesktopFileName(QStringLiteral("org.argentpm.ArgentPasswordMngr"));
    SetMsgBoxHandler(GuiMsgBox);
}

bool ArgentApplication::notify(QObject* receiver, QEvent* event) {
    try {
        return QApplication::notify(receiver, event);
    } catch (...) {
        argent::diag::TrapCurrentException();
    }
}

int GuiMsgBox(const QString& Prompt, int Style, const QString& Title) {
    QMessageBox box;
    box.setText(Prompt);
    box.setWindowTitle(Title.isEmpty() ? QString::fromUtf8(kProgramTitle) : Title);
    switch (Style & 0x70) {
    case vbCritical:
        box.setIcon(QMessageBox::Critical);
        break;
    case vbQuestion:
        box.setIcon(QMessageBox::Question);
        break;
    case vbExclamation:
        box.setIcon(QMessageBox::Warning);
        break;
    case vbInformation:
        box.setIcon(QMessageBox::Information);
        break;
    default:
        break;
    }
    switch (Style & 7) {
    case vbOKCancel:
        box.setStandardButtons(QMessageBox::Ok | QMessageBox::Cancel);
        break;
    case vbYesNo:
        box.setStandardButtons(QMessageBox::Yes | QMessageBox::No);
        break;
    default:
        box.setStandardButtons(QMessageBox::Ok);
        break;
    }
    runModal(box);
    // A box closed without an answer (by the inactivity lock, say) declines: No or
    // Cancel, never Yes or OK to a question.
    switch (box.standardButton(box.clickedButton())) {
    case QMessageBox::Yes:
        return vbYes;
    case QMessageBox::No:
        return vbNo;
    case QMessageBox::Ok:
        return vbOK;
    case QMessageBox::Cancel:
        return vbCancel;
    default:
        switch (Style & 7) {
        case vbYesNo:
            return vbNo;
        case vbOKCancel:
            return vbCancel;
        default:
            return vbOK;
        }
    }
}

void ApplyDialogOnTop(QWidget* Dialog) {
    bool onTop = false;
    try {
        onTop = ProgConfig.UBound() >= kCfgOnTop && CBool(ProgConfig[kCfgOnTop]);
    } catch (const VbError&) {
        argent::diag::clearSnapshot();
    }
    Dialog->setWindowFlag(Qt::WindowStaysOnTopHint, onTop);
}

namespace {
ModalHandler& modalHandler() {
    static ModalHandler h;
    return h;
}
} // namespace

int ShowModal(QDialog& Dialog) {
    if (ModalsRefused())
        return QDialog::Rejected;
    if (modalHandler())
        return modalHandler()(Dialog);
    return runModal(Dialog);
}

ModalHandler SetModalHandler(ModalHandler Handler) {
    ModalHandler old = std::move(modalHandler());
    modalHandler() = std::move(Handler);
    return old;
}

QHBoxLayout* DialogButtonRow(std::initializer_list<QPushButton*> Buttons) {
    auto* row = new QHBoxLayout;
    row->addStretch(1);
    for (QPushButton* b : Buttons)
        row->addWidget(b);
    return row;
}
