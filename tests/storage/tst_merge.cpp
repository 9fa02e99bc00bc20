// The three-way merge of a user file's tables, as data tables. DataTable rows are written
// short (tests/common/TreeRows.h).

#include "storage/UserFileMerge.h"
#include "tests/common/TestMain.h"
#include "tests/common/TreeRows.h"

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
#include "tst_merge.moc"
