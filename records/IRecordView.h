#pragma once

// What the record dialogs need from whatever shows the current user's tree (the main
// window; tests may supply their own): after an editor, an import or a search, the view
// brings its tree in line with the database and selects what the user is to see. The
// dialogs reach it through RecordView(); with no view set they change the database only.

#include <QString>

class IRecordView {
public:
    virtual ~IRecordView() = default;
    // A row an editor added: its node goes under its folder (folders on top, records at
    // the end) and is selected.
    virtual void ShowAddedRow(const QString& IndNum) = 0;
    // A row an editor changed: its node takes the row's text, image, colour and bold.
    virtual void RefreshRowNode(const QString& IndNum) = 0;
    // The rows from FirstRec to the end of the table, added by an import: the first one
    // is a new folder, the others lie below it. The folder is selected.
    virtual void InsertImportedRows(int FirstRec) = 0;
    // A row the search found: selected, scrolled into sight and shown as a click on it
    // shows it. Nothing happens when the tree does not show the row.
    virtual void ShowFoundRow(const QString& IndNum) = 0;
    // Saves the open user through the user session and presents the outcome as every
    // save of the view does (a merge with a version changed elsewhere redraws the tree).
    virtual int SaveCurUser() = 0;
};

// The view the record dialogs report to; null for none. Returns the previous one.
IRecordView* SetRecordView(IRecordView* View);
IRecordView* RecordView();
