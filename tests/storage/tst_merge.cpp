// The three-way merge of a user file's tables, as data tables. DataTable rows are written
// short (tests/common/TreeRows.h).

#include "storage/UserFileMerge.h"
#include "tests/common/TestMain.h"
#include "tests/common/TreeRows.h"

#include <QRandomGenerator>
#include <QSet>
#include <QTest>

namespace {

TableEntry table(const QString& Rows, const QString& Tag) {
    TableEntry t;
    t.Name = "DataTable";
    t.FldNames = {"IndNum", "Parent", "Type", "Title", "Login", "Password", "Description", "Image", "Flags"};
    t.Tag = Tag;
    QList<QStringList> rows;
    for (const QString& r : Rows.split(u' ', Qt::SkipEmptyParts))
        rows.append(treeRow(r));
    t.Records = RecordStore::fromRows(rows);
    return t;
}

// T with every row that equals a row of Base made that very row (as memory shares the
// rows it never changed with the table it was read as).
TableEntry sharing(const TableEntry& Base, TableEntry T) {
    RecordStore s = Base.Records;
    std::vector<int> order;
    for (int i = 0; i < T.RecNum(); ++i) {
        int k = 0;
        while (k < Base.RecNum() && !Base.Records.sameRow(k, T.Records, i))
            ++k;
        if (k == Base.RecNum()) {
            s.appendFrom(T.Records, i);
            k = s.size() - 1;
        }
        order.push_back(k);
    }
    s.reorder(order);
    T.Records = s;
    return T;
}

// A database written short: tables separated by "; ", each "Name[/Tag]=rows". DataTable
// rows are tree rows (its tag: the highest identifier); rows of the other tables are their
// values joined by ':'. A table whose name starts with "Fields" names records
// (Key:IndNum:Value), others do not (Key:Text).
DatabaseRecord database(const QString& Text) {
    DatabaseRecord db;
    db.Tag = "anna";
    for (const QString& part : Text.split(QStringLiteral("; "), Qt::SkipEmptyParts)) {
        const QString head = part.section(u'=', 0, 0);
        const QString rows = part.section(u'=', 1);
        const QString name = head.section(u'/', 0, 0);
        if (name == "DataTable") {
            int top = 0;
            for (const QString& r : rows.split(u' ', Qt::SkipEmptyParts))
                top = std::max(top, r.section(u':', 0, 0).toInt());
            db.Tables.append(table(rows, QString::number(top)));
            continue;
        }
        TableEntry t;
        t.Name = name;
        t.Tag = head.section(u'/', 1);
        t.FldNames =
            name.startsWith("Fields") ? QStringList{"Key", "IndNum", "Value"} : QStringList{"Key", "Text"};
        QList<QStringList> values;
        for (const QString& r : rows.split(u' ', Qt::SkipEmptyParts))
            values.append(r.split(u':'));
        t.Records = RecordStore::fromRows(values);
        db.Tables.append(t);
    }
    return db;
}

QString databaseText(const DatabaseRecord& Db) {
    QStringList parts;
    for (const TableEntry& t : Db.Tables) {
        QStringList rows;
        for (const QStringList& r : t.Records.rows())
            rows << r.join(u':');
        const bool tree = t.Name == "DataTable";
        parts << t.Name + (tree || t.Tag.isEmpty() ? QString() : "/" + t.Tag) + "=" +
                     (tree ? treeRowsText(t.Records.rows()) : rows.join(u' '));
    }
    return parts.join(QStringLiteral("; "));
}

// Ours as memory holds it: every table the base has shares the rows nobody changed.
DatabaseRecord sharingBase(const DatabaseRecord& Base, DatabaseRecord Ours) {
    for (TableEntry& t : Ours.Tables)
        for (const TableEntry& b : Base.Tables)
            if (b.Name == t.Name)
                t = sharing(b, t);
    return Ours;
}

// A user's tables as a random run of edits makes them: folders and records (a new row's
// title names its side and identifier), and rows of Fields that name records.
struct clsRandomUser {
    QList<QStringList> Tree, Fields;
    int Tag = 0, FieldTag = 0;

    void edit(QRandomGenerator& Rng, const QString& Side) {
        const int count = Tree.size();
        const int pick = count ? static_cast<int>(Rng.bounded(count)) : -1;
        switch (Rng.bounded(7)) {
        case 0:
            if (pick >= 0)
                Tree[pick][3] = Tree[pick][3] + Side;
            break;
        case 1:
            if (pick >= 0)
                Tree[pick][4] = Side + QString::number(Rng.bounded(9));
            break;
        case 2:
            if (pick >= 0 && Tree[pick][2] == "2")
                Tree[pick][1] = randomFolder(Rng);
            break;
        case 3:
            if (pick >= 0)
                remove(Tree[pick][0]);
            break;
        case 4: {
            const QString id = QString::number(++Tag);
            Tree.append(
                treeRow(id + ":" + randomFolder(Rng) + ":" + (Rng.bounded(3) ? "" : "F") + Side + id));
            Tree.last()[6] = Side + id; // never edited: names the row on every side
            break;
        }
        case 5:
            if (pick >= 0)
                Fields.append({Side + QString::number(++FieldTag), Tree[pick][0], Side});
            break;
        default:
            if (!Fields.isEmpty())
                Fields[Rng.bounded(Fields.size())][2] += Side;
        }
    }
    QString randomFolder(QRandomGenerator& Rng) const {
        QStringList folders{"0"};
        for (const QStringList& r : Tree)
            if (r[2] == "1")
                folders << r[0];
        return folders[Rng.bounded(folders.size())];
    }
    // A row, its subtree and their Fields rows.
    void remove(const QString Id) {
        for (qsizetype i = Tree.size() - 1; i >= 0; --i)
            if (i < Tree.size() && Tree[i][1] == Id)
                remove(Tree[i][0]);
        Tree.removeIf([&](const QStringList& r) { return r[0] == Id; });
        Fields.removeIf([&](const QStringList& r) { return r[1] == Id; });
    }
    DatabaseRecord database() const {
        TableEntry tree = table(QString(), QString::number(Tag));
        tree.Records = RecordStore::fromRows(Tree);
        TableEntry fields;
        fields.Name = "Fields";
        fields.FldNames = {"Key", "IndNum", "Value"};
        fields.Records = RecordStore::fromRows(Fields);
        DatabaseRecord db;
        db.Tables = {tree, fields};
        return db;
    }
};

QHash<QString, QStringList> byKey(const QList<QStringList>& Rows) {
    QHash<QString, QStringList> out;
    for (const QStringList& r : Rows)
        out.insert(r[0], r);
    return out;
}

// The row without its Parent, which the merge may set to the root.
QStringList withoutParent(QStringList Row) {
    if (Row.size() > 1)
        Row.removeAt(1);
    return Row;
}

} // namespace

class MergeTest : public QObject {
    Q_OBJECT
private slots:
    void merge_data() {
        QTest::addColumn<QString>("base");
        QTest::addColumn<QString>("ours");
        QTest::addColumn<QString>("theirs");
        QTest::addColumn<QString>("tags"); // base ours theirs
        QTest::addColumn<QString>("merged");
        QTest::addColumn<QString>("tag");
        const QString b = "1:0:F1 2:1:a 3:0:b";
        QTest::newRow("nothing changed") << b << b << b << "3 3 3" << b << "3";
        QTest::newRow("changed on their side only") << b << b << "1:0:F1 2:1:A 3:0:b"
                                                    << "3 3 3"
                                                    << "1:0:F1 2:1:A 3:0:b"
                                                    << "3";
        QTest::newRow("changed on our side only") << b << "1:0:F1 2:1:a 3:0:B" << b << "3 3 3"
                                                  << "1:0:F1 2:1:a 3:0:B"
                                                  << "3";
        QTest::newRow("both sides, other fields") << b << "1:0:F1 2:1:a:login 3:0:b"
                                                  << "1:0:F1 2:0:x 3:0:b"
                                                  << "3 3 3"
                                                  << "1:0:F1 2:0:x:login 3:0:b"
                                                  << "3";
        QTest::newRow("both sides, same field: ours") << b << "1:0:F1 2:1:ours 3:0:b"
                                                      << "1:0:F1 2:1:theirs 3:0:b"
                                                      << "3 3 3"
                                                      << "1:0:F1 2:1:ours 3:0:b"
                                                      << "3";
        QTest::newRow("deleted by us, unchanged by them") << b << "1:0:F1 3:0:b" << b << "3 3 3"
                                                          << "1:0:F1 3:0:b"
                                                          << "3";
        QTest::newRow("deleted by us, changed by them") << b << "1:0:F1 3:0:b"
                                                        << "1:0:F1 2:1:A 3:0:b"
                                                        << "3 3 3"
                                                        << "1:0:F1 2:1:A 3:0:b"
                                                        << "3";
        QTest::newRow("deleted by them, changed by us: kept at the end") << b << "1:0:F1 2:1:A 3:0:b"
                                                                         << "1:0:F1 3:0:b"
                                                                         << "3 3 3"
                                                                         << "1:0:F1 3:0:b 2:1:A"
                                                                         << "3";
        QTest::newRow("deleted by them, unchanged by us") << b << b << "1:0:F1 2:1:a"
                                                          << "3 3 3"
                                                          << "1:0:F1 2:1:a"
                                                          << "3";
        QTest::newRow("added by us only: identifiers kept")
            << b << b + " 4:1:new" << b << "3 4 3" << b + " 4:1:new"
            << "4";
        QTest::newRow("added on both sides: ours renumbered above both, children follow")
            << b << b + " 4:0:F4 5:4:r5" << b + " 4:1:t4 5:0:t5 6:0:t6"
            << "3 5 6" << b + " 4:1:t4 5:0:t5 6:0:t6 7:0:F4 8:7:r5"
            << "8";
        QTest::newRow("their handed-out identifier deleted again is not reused")
            << b << b + " 4:1:new" << b << "3 4 5" << b + " 6:1:new"
            << "6";
        QTest::newRow("record added into a folder they deleted: under the root") << b << b + " 4:1:new"
                                                                                 << "3:0:b"
                                                                                 << "3 4 3"
                                                                                 << "3:0:b 4:0:new"
                                                                                 << "4";
        QTest::newRow("our row moved into our renumbered new folder stays behind it")
            << b << "1:0:F1 2:4:a 3:0:b 4:0:F4" << b + " 4:0:t4"
            << "3 4 4"
            << "1:0:F1 3:0:b 4:0:t4 5:0:F4 2:5:a"
            << "5";
        QTest::newRow("moves on both sides into each other: one goes under the root") << "1:0:F1 2:0:F2"
                                                                                      << "1:2:F1 2:0:F2"
                                                                                      << "1:0:F1 2:1:F2"
                                                                                      << "2 2 2"
                                                                                      << "1:0:F1 2:1:F2"
                                                                                      << "2";
    }
    void merge() {
        QFETCH(QString, base);
        QFETCH(QString, ours);
        QFETCH(QString, theirs);
        QFETCH(QString, tags);
        QFETCH(QString, merged);
        QFETCH(QString, tag);
        const QStringList t = tags.split(u' ');
        const TableEntry b = table(base, t[0]);
        for (const TableEntry& o : {table(ours, t[1]), sharing(b, table(ours, t[1]))}) {
            const clsMergeResult r = MergeDataTable(b, o, table(theirs, t[2]));
            QCOMPARE(treeRowsText(r.Records.rows()), merged);
            QCOMPARE(r.Tag, tag);
            // Identifiers stay unique.
            QSet<QString> ids;
            for (const QStringList& row : r.Records.rows())
                ids.insert(row[0]);
            QCOMPARE(ids.size(), r.Records.size());
        }
    }
};

ARGENT_TEST(MergeTest)

// Every table of the file, not only DataTable: rows keyed by their first field.
class MergeTablesTest : public QObject {
    Q_OBJECT
private slots:
    void mergeDatabases_data() {
        QTest::addColumn<QString>("base");
        QTest::addColumn<QString>("ours");
        QTest::addColumn<QString>("theirs");
        QTest::addColumn<QString>("merged");
        QTest::addColumn<int>("dropped"); // rows that went with their record
        const QString tree = "DataTable=1:0:F1 2:1:a 3:0:b";
        const QString b = tree + "; Fields=k1:2:x k2:3:y";
        auto rows = [&](const QString& Fields) { return tree + "; Fields=" + Fields; };
        QTest::newRow("nothing changed") << b << b << b << b << 0;
        QTest::newRow("changed on their side only")
            << b << b << rows("k1:2:X k2:3:y") << rows("k1:2:X k2:3:y") << 0;
        QTest::newRow("changed on our side only")
            << b << rows("k1:2:x k2:3:Y") << b << rows("k1:2:x k2:3:Y") << 0;
        QTest::newRow("changed on both sides, other fields")
            << b << rows("k1:3:x k2:3:y") << rows("k1:2:X k2:3:y") << rows("k1:3:X k2:3:y") << 0;
        QTest::newRow("changed on both sides, same field: ours")
            << b << rows("k1:2:ours k2:3:y") << rows("k1:2:theirs k2:3:y") << rows("k1:2:ours k2:3:y") << 0;
        QTest::newRow("deleted by us, unchanged by them") << b << rows("k2:3:y") << b << rows("k2:3:y") << 0;
        QTest::newRow("deleted by us, changed by them: kept")
            << b << rows("k2:3:y") << rows("k1:2:X k2:3:y") << rows("k1:2:X k2:3:y") << 0;
        QTest::newRow("deleted by them, changed by us: kept at the end")
            << b << rows("k1:2:X k2:3:y") << rows("k2:3:y") << rows("k2:3:y k1:2:X") << 0;
        QTest::newRow("added on both sides under one key: against an empty row, ours winning")
            << b << rows("k1:2:x k2:3:y k3:2:") << rows("k1:2:x k3:3:t k2:3:y")
            << rows("k1:2:x k3:2:t k2:3:y") << 0;
        QTest::newRow("their order, then our new rows in our order")
            << b << rows("k4:2:o k1:2:x k2:3:y k5:3:p") << rows("k1:2:x k3:3:t k2:3:y")
            << rows("k1:2:x k3:3:t k2:3:y k4:2:o k5:3:p") << 0;
        QTest::newRow("IndNum follows our renumbered record")
            << "DataTable=1:0:F1; Fields="
            << "DataTable=1:0:F1 2:1:mine; Fields=k1:2:m"
            << "DataTable=1:0:F1 2:1:theirs; Fields=k2:2:t"
            << "DataTable=1:0:F1 2:1:theirs 3:1:mine; Fields=k2:2:t k1:3:m" << 0;
        QTest::newRow("a record deleted by them takes our new rows along")
            << b << rows("k1:2:x k2:3:y k3:2:z") << "DataTable=1:0:F1 3:0:b; Fields=k2:3:y"
            << "DataTable=1:0:F1 3:0:b; Fields=k2:3:y" << 1;
        QTest::newRow("a record deleted with its folder takes their changed rows along")
            << b << "DataTable=3:0:b; Fields=k2:3:y" << rows("k1:2:X k2:3:y")
            << "DataTable=3:0:b; Fields=k2:3:y" << 1;
        QTest::newRow("a record kept against their delete keeps its rows")
            << b << "DataTable=1:0:F1 2:1:A 3:0:b; Fields=k1:2:x k2:3:y"
            << "DataTable=1:0:F1 3:0:b; Fields=k2:3:y"
            << "DataTable=1:0:F1 3:0:b 2:1:A; Fields=k2:3:y k1:2:x" << 0;
        QTest::newRow("a record kept against our delete keeps its rows")
            << b << "DataTable=1:0:F1 3:0:b; Fields=k2:3:y"
            << "DataTable=1:0:F1 2:1:A 3:0:b; Fields=k1:2:x k2:3:y"
            << "DataTable=1:0:F1 2:1:A 3:0:b; Fields=k1:2:x k2:3:y" << 0;
        QTest::newRow("a table new on their side is taken, after ours")
            << b << b << b + "; Notes=n1:hello" << b + "; Notes=n1:hello" << 0;
        QTest::newRow("a table new on their side loses the rows of records we deleted")
            << b << "DataTable=1:0:F1 2:1:a; Fields=k1:2:x" << b + "; Fields2=m1:3:z m2:2:w"
            << "DataTable=1:0:F1 2:1:a; Fields=k1:2:x; Fields2=m2:2:w" << 1;
        QTest::newRow("a table they deleted and we left alone is dropped")
            << b + "; Notes=n1:x" << b + "; Notes=n1:x" << b << b << 0;
        QTest::newRow("a table they deleted and we changed is kept")
            << b + "; Notes=n1:x" << b + "; Notes=n1:y" << b << b + "; Notes=n1:y" << 0;
        QTest::newRow("a table we deleted and they left alone stays deleted")
            << b + "; Notes=n1:x" << b << b + "; Notes=n1:x" << b << 0;
        QTest::newRow("a table we deleted and they changed is taken")
            << b + "; Notes=n1:x" << b << b + "; Notes=n1:y" << b + "; Notes=n1:y" << 0;
        QTest::newRow("a table added on both sides: merged against an empty one, higher tag")
            << tree << tree + "; Notes/2=n1:o n2:p" << tree + "; Notes/3=n1:t n3:q"
            << tree + "; Notes/3=n1:o n3:q n2:p" << 0;
        QTest::newRow("a key repeated in a damaged table pairs its rows in order")
            << tree + "; Notes=n1:a n1:b" << tree + "; Notes=n1:a n1:B" << tree + "; Notes=n1:A n1:b"
            << tree + "; Notes=n1:A n1:B" << 0;
    }
    void mergeDatabases() {
        QFETCH(QString, base);
        QFETCH(QString, ours);
        QFETCH(QString, theirs);
        QFETCH(QString, merged);
        QFETCH(int, dropped);
        const DatabaseRecord b = database(base);
        for (DatabaseRecord o : {database(ours), sharingBase(b, database(ours))}) {
            const DatabaseRecord t = database(theirs);
            QVERIFY(CanMerge(o, t));
            const clsMergeCounts c = MergeDatabases(o, b, t);
            QCOMPARE(databaseText(o), merged);
            QCOMPARE(c.DroppedWithRecord, dropped);
            QVERIFY(!c.NoDataTable);
        }
    }

    // A file without DataTable is damaged, not a user who deleted every record.
    void sideWithoutDataTable() {
        const DatabaseRecord b = database("DataTable=1:0:F1 2:1:a; Notes=n1:x");
        const DatabaseRecord noTree = database("Notes=n1:x");
        DatabaseRecord ours = b;
        QVERIFY(!CanMerge(ours, noTree));
        clsMergeCounts c = MergeDatabases(ours, b, noTree);
        QVERIFY(c.NoDataTable);
        QCOMPARE(databaseText(ours), "DataTable=1:0:F1 2:1:a; Notes=n1:x");
        ours = noTree;
        QVERIFY(!CanMerge(ours, b));
        c = MergeDatabases(ours, b, b);
        QVERIFY(c.NoDataTable);
        QCOMPARE(databaseText(ours), "Notes=n1:x; DataTable=1:0:F1 2:1:a");
    }
};
ARGENT_TEST(MergeTablesTest)

// Random edits on both sides of a random user: what every merge must keep.
class MergePropertiesTest : public QObject {
    Q_OBJECT
private slots:
    void randomEditsOnBothSides() {
        QRandomGenerator rng(20);
        for (int run = 0; run < 2000; ++run) {
            clsRandomUser base;
            for (int k = rng.bounded(40); k > 0; --k)
                base.edit(rng, "b");
            clsRandomUser ours = base, theirs = base;
            for (int k = rng.bounded(10); k > 0; --k)
                ours.edit(rng, "o");
            for (int k = rng.bounded(10); k > 0; --k)
                theirs.edit(rng, "t");
            const DatabaseRecord b = base.database();
            DatabaseRecord merged = sharingBase(b, ours.database());
            MergeDatabases(merged, b, theirs.database());
            checkTree(merged.Tables[0], base, ours, theirs);
            checkFields(merged, base, ours, theirs);
            if (QTest::currentTestFailed()) {
                qWarning() << "random run" << run;
                return;
            }
        }
    }

private:
    void checkTree(const TableEntry& Tree, const clsRandomUser& Base, const clsRandomUser& Ours,
                   const clsRandomUser& Theirs) {
        QSet<QString> seen;
        for (const QStringList& r : Tree.Records.rows()) {
            QVERIFY2(r[1] == "0" || seen.contains(r[1]), "every row behind its folder");
            QVERIFY2(!seen.contains(r[0]), "identifiers stay unique");
            seen.insert(r[0]);
            QVERIFY(r[0].toInt() <= Tree.Tag.toInt());
        }
        QVERIFY(Tree.Tag.toInt() >= std::max({Base.Tag, Ours.Tag, Theirs.Tag}));
        const auto result = byKey(Tree.Records.rows());
        const auto base = byKey(Base.Tree), ours = byKey(Ours.Tree), theirs = byKey(Theirs.Tree);
        for (const QStringList& row : Base.Tree) {
            const QString& id = row[0];
            const bool oursChanged = ours.value(id) != row, theirsChanged = theirs.value(id) != row;
            if (oursChanged != theirsChanged) {
                const QStringList& changed = oursChanged ? ours[id] : theirs[id];
                QCOMPARE(result.contains(id), !changed.isEmpty());
                QCOMPARE(withoutParent(result.value(id)), withoutParent(changed));
            }
        }
        // Every row added on either side is kept, in its folder or under the root.
        QHash<QString, QString> nameOf; // identifier -> the name in Description
        for (const QStringList& r : Tree.Records.rows())
            nameOf.insert(r[0], r[6]);
        QHash<QString, QString> folderOf; // name -> the name of its folder
        for (const QStringList& r : Tree.Records.rows())
            folderOf.insert(r[6], nameOf.value(r[1]));
        for (const auto* side : {&ours, &theirs})
            for (const QStringList& r : *side)
                if (!base.contains(r[0])) {
                    QVERIFY2(folderOf.contains(r[6]), qPrintable(r[6]));
                    const QString folder = folderOf[r[6]];
                    QVERIFY(folder.isEmpty() || folder == side->value(r[1]).value(6));
                }
    }

    void checkFields(const DatabaseRecord& Merged, const clsRandomUser& Base, const clsRandomUser& Ours,
                     const clsRandomUser& Theirs) {
        QSet<QString> records, keys;
        for (const QStringList& r : Merged.Tables[0].Records.rows())
            records.insert(r[0]);
        const QList<QStringList> rows = Merged.Tables[1].Records.rows();
        for (const QStringList& r : rows) {
            QVERIFY2(records.contains(r[1]), "a record's fields go with it");
            QVERIFY(!keys.contains(r[0]));
            keys.insert(r[0]);
        }
        const auto result = byKey(rows), ours = byKey(Ours.Fields), theirs = byKey(Theirs.Fields);
        for (const QStringList& row : Base.Fields) {
            const QStringList o = ours.value(row[0]), t = theirs.value(row[0]);
            if (o == row && !t.isEmpty() && t != row && records.contains(t[1]))
                QCOMPARE(result.value(row[0]), t);
            if (t == row && !o.isEmpty() && o != row && records.contains(o[1]))
                QCOMPARE(result.value(row[0]), o);
        }
    }
};
ARGENT_TEST(MergePropertiesTest)
#include "tst_merge.moc"
