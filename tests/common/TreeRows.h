#pragma once

// DataTable rows written short, for tests of the tree and of the merge: a row is
// "id:parent:title[:login]", and a title starting with "F" is a folder.

#include <QList>
#include <QString>
#include <QStringList>

inline QStringList treeRow(const QString& Text) {
    const QStringList p = Text.split(u':');
    const QString title = p.value(2);
    return {p.value(0), p.value(1), title.startsWith(u'F') ? "1" : "2", title, p.value(3), "pw", "",
            "1key",     "0|0"};
}

inline QString treeRowsText(const QList<QStringList>& Rows) {
    QStringList out;
    for (const QStringList& r : Rows)
        out << r[0] + ":" + r[1] + ":" + r[3] + (r[4].isEmpty() ? QString() : ":" + r[4]);
    return out.join(u' ');
}
