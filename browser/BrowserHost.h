#pragma once

// What the browser protocol needs of the program around it: the window answers these (its
// questions are real dialogs); tests give their own. The open user is CurUsDB.

#include <QString>
#include <QStringList>

enum BrSiteAnswer { brDeny = 0, brAllowOnce = 1, brAllowAlways = 2 };

class IBrowserHost {
public:
    virtual ~IBrowserHost() = default;
    // A user is open and not locked.
    virtual bool DatabaseOpen() const = 0;
    // Brings the window up with the password question (a request waits for it).
    virtual void RequestUnlock() = 0;
    virtual void LockDatabase() = 0;
    // "A browser extension asks to connect": true to connect; Name is the connection's
    // name (proposed in, as the user left it out).
    virtual bool AskConnect(QString& Name) = 0;
    // The site Site asks for the records Titles, none of them allowed there yet.
    virtual BrSiteAnswer AskSite(const QString& Site, const QStringList& Titles) = 0;
    // set-login would change the login or password of record Title for Site.
    virtual bool AskOverwrite(const QString& Site, const QString& Title, const QString& Login) = 0;
    // A folder or record the browser added, one it changed (the tree follows).
    virtual void RowAdded(const QString& IndNum) = 0;
    virtual void RowChanged(const QString& IndNum) = 0;
    // Saves the open user (the window's save path); negative on a failure.
    virtual int Save() = 0;
};
