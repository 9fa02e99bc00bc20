#pragma once

// What a user file's tables must hold for the program to work on them: checked on every
// reading of a user file (UserFile.h), so that a body that passes can be changed and
// written, and one that does not is refused as damaged rather than half taken in.
//
//  - a DataTable with every field a new row gets (IndNum, Parent, Type, Title, Login,
//    Password, Description, Image, Flags);
//  - its tag, the last identifier handed out, a whole number from 0 to a billion (new
//    rows need more), and no row's IndNum above it (a new row would share an identifier
//    with an old one) or below 1 (0 is the root's).
//
// Rows the tree cannot place (a parent that is gone, parents in a cycle) are left as they
// are: the tree and the merge already put up with them, and refusing the whole file for
// them would lock the user out of every other row.

#include "storage/TableEngine.h"

bool UserTablesCheckOut(const DatabaseRecord& Db);
