#pragma once

// What the user-account routines need from whatever shows the current user's database
// (the main window; the command-line tool and the tests supply their own). Opening a
// user clears the view and shows the new database; unloading clears it. With no view
// set these calls do nothing.

class clsDatabase;

class IUserView {
public:
    virtual ~IUserView() = default;
    // Removes every node of the tree.
    virtual void ClearUsTree() = 0;
    // Empties the value pane.
    virtual void ClearUsValue() = 0;
    // Fills the empty tree with the database, selects the root node ("0key") and sets
    // the tool bar buttons btnDelFolder and btnDelRec for that selection.
    virtual void ShowUsDB(clsDatabase& UsDB) = 0;
};

// The view the routines report to; null for none. Returns the previous one.
IUserView* SetUserView(IUserView* View);
IUserView* UserView();
