#pragma once

// The window's questions for the browser connection. Both open through ShowModal, so the
// inactivity lock and the end of the session close them (a closed question denies).

#include "browser/BrowserHost.h"

#include <QDialog>

class QLabel;
class QLineEdit;
class QListWidget;
class QPushButton;

// "A browser extension asks to connect to ArgentPasswordMngr", with the connection's name.
class frmBrowserConnect : public QDialog {
    Q_OBJECT
public:
    frmBrowserConnect(QWidget* Parent, const QString& Name);
    QLabel* lblAsk;
    QLineEdit* txtName;
    QPushButton *cmdConnect, *cmdCancel;
};

// A site asks for records it was not allowed yet: Allow once, Always allow this site, or
// Deny (the default; Escape and closing deny too).
class frmBrowserSite : public QDialog {
    Q_OBJECT
public:
    frmBrowserSite(QWidget* Parent, const QString& Site, const QStringList& Titles);
    QLabel* lblAsk;
    QListWidget* lstRecords;
    QPushButton *cmdOnce, *cmdAlways, *cmdDeny;
};

bool BrAskConnect(QWidget* Parent, QString& Name);
BrSiteAnswer BrAskSite(QWidget* Parent, const QString& Site, const QStringList& Titles);
bool BrAskOverwrite(const QString& Site, const QString& Title, const QString& Login);
