#pragma once

// The rows of a user's DataTable in the order in which the main window's tree shows
// them, fully expanded: every node followed by its children. Under a node come first its
// sub-folders in reverse table order (each new folder goes to the top), then all other
// rows in table order. A row's children are shown only when one of them is stored at or
// after the row itself; a row whose identifier is already on the way down from the root
// is not opened again, so a damaged file with a cycle cannot loop.
//
// One pass to index the rows by parent, one walk: no rescans per node.

#include <QList>

class clsDatabase;

struct UsTreeNode {
    int RecNum = 0;      // row of DataTable, from 1
    int Depth = 1;       // 1 for the rows directly under the root
    bool Folder = false; // Type 1
};

QList<UsTreeNode> UsDBTreeOrder(const clsDatabase& UsDB);
