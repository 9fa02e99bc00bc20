// The window's tree model against a plain recursive reading of the tree's rules, on
// generated tables: the order, the children that stay hidden, the status counts, and the
// same after rows are added, deleted and moved with the model kept in step.

#include "tests/common/TestMain.h"

#include "app/VbConv.h"
#include "app/modMain.h"
#include "mainwindow/guiTreeModel.h"
#include "records/RecordTree.h"
#include "storage/clsDatabase.h"
#include "tests/common/TestEnv.h"
#include "users/UserAccounts.h"

#include <QAbstractItemModelTester>
#include <QRandomGenerator>
#include <QSet>
#include <QTest>

namespace {

struct Row {
    QString ind, par, type;
};

QList<Row> rowsOf(clsDatabase& db) {
    QList<Row> out;
    const int tbl = db.FindTable("DataTable");
    for (int r = 1; r <= db.GetTblRecNum(tbl); ++r)
        out.append({db.GetTblFldValNm(tbl, r, "IndNum"), db.GetTblFldValNm(tbl, r, "Parent"),
                    db.GetTblFldValNm(tbl, r, "Type")});
    return out;
}

bool numericOne(const QString& type) {
    bool ok = false;
    return type.trimmed().toDouble(&ok) == 1.0 && ok;
}

// The tree as the rules say, step by step: the rows under a node are found from the top
// of the table; a folder goes on top of what is already there, anything else at the end;
// a row's children are looked for from the row itself on and, when there is one, all of
// them are loaded under it (a row already on the way down is not opened again).
struct LiteralNode {
    int row = -1;
    QList<LiteralNode> kids;
};

void loadNode(const QList<Row>& rows, LiteralNode& node, int nodeId, QSet<int>& path) {
    const QString parent = QString::number(nodeId);
    for (int r = 0; r < rows.size(); ++r) {
        if (rows[r].par != parent)
            continue;
        LiteralNode child{r, {}};
        bool childFound = false;
        for (int k = r; k < rows.size() && !childFound; ++k)
            childFound = rows[k].par == rows[r].ind;
        bool ok = false;
        const int id = rows[r].ind.trimmed().toInt(&ok);
        if (childFound && ok && !path.contains(id)) {
            path.insert(id);
            loadNode(rows, child, id, path);
            path.remove(id);
        }
        // A folder becomes the child of a node without children, or else the first sibling
        // of its first child; anything else is the last child.
        if (numericOne(rows[r].type))
            node.kids.prepend(child);
        else
            node.kids.append(child);
    }
}

void flatten(const LiteralNode& n, int depth, QStringList& out) {
    for (const LiteralNode& k : n.kids) {
        out << QString::number(depth) + ":" + QString::number(k.row);
        flatten(k, depth + 1, out);
    }
}

QStringList literalTree(clsDatabase& db) {
    const QList<Row> rows = rowsOf(db);
    LiteralNode root;
    QSet<int> path{0};
    loadNode(rows, root, 0, path);
    QStringList out;
    flatten(root, 1, out);
    return out;
}

void walk(UsTreeModel& m, const QModelIndex& parent, int depth, QStringList& out) {
    for (int i = 0; i < m.rowCount(parent); ++i) {
        const QModelIndex c = m.index(i, 0, parent);
        out << QString::number(depth) + ":" + QString::number(m.RowOf(c));
        walk(m, c, depth + 1, out);
    }
}

QStringList modelTree(UsTreeModel& m) {
    QStringList out;
    walk(m, m.RootIndex(), 1, out);
    return out;
}

// A table of folders and records: mostly rows under an earlier folder, some under a later
// one (moved there), some under nothing, odd types, a few loops.
void generate(clsDatabase& db, QRandomGenerator& rng, int n) {
    const int tbl = db.FindTable("DataTable");
    for (int i = 1; i <= n; ++i) {
        int parent = 0;
        const int pick = static_cast<int>(rng.bounded(100));
        if (pick < 70 && i > 1)
            parent = static_cast<int>(rng.bounded(i)); // an earlier row, or the root
        else if (pick < 85)
            parent = static_cast<int>(rng.bounded(n + 3)); // anything, later rows too
        else if (pick < 88)
            parent = i; // its own folder
        const int t = static_cast<int>(rng.bounded(10));
        const QString type = t < 4 ? "1" : t < 9 ? "2" : (rng.bounded(2) ? "7" : " 1");
        const int r = db.AddRecord(tbl);
        db.SetTblRecord(tbl, r,
                        {QString::number(i), QString::number(parent), type, "t" + QString::number(i), "", "",
                         "", "1key", rng.bounded(5) ? "0|0" : "255|1"});
    }
    db.SetTblTag(tbl, QString::number(n));
}

} // namespace

class TreeModelTest : public QObject {
    Q_OBJECT
private slots:
    void modelFollowsTheRules_data() {
        QTest::addColumn<int>("seed");
        for (int seed = 1; seed <= 300; ++seed)
            QTest::newRow(qPrintable(QString::number(seed))) << seed;
    }

    void modelFollowsTheRules() {
        QFETCH(int, seed);
        static TestEnv env;
        static const QString path = [] {
            const QString p = env.root() + "/t.bdb";
            writeFileText(p, NewUserTemplate());
            return p;
        }();
        CurUsDB = std::make_shared<clsDatabase>();
        clsDatabase& db = *CurUsDB;
        QCOMPARE(db.LoadDB(path, QString()), 1);
        QRandomGenerator rng(seed);
        const int n = 5 + static_cast<int>(rng.bounded(60));
        generate(db, rng, n);

        UsTreeModel m;
        std::unique_ptr<QAbstractItemModelTester> tester;
        if (seed % 4 == 0)
            tester = std::make_unique<QAbstractItemModelTester>(
                &m, QAbstractItemModelTester::FailureReportingMode::QtTest);
        m.Reset(db, "user");
        // Nothing is made until it is asked for (the tester asks for everything).
        if (!tester)
            QCOMPARE(m.NodeCount(), 1);
        QCOMPARE(modelTree(m), literalTree(db));

        // Status counts of every row and the root: the rows whose Parent is the identifier,
        // those of Type 2 as records, all others as folders.
        const QList<Row> rows = rowsOf(db);
        for (int id = 0; id <= n + 1; ++id) {
            int folds = 0, recs = 0, wantFolds = 0, wantRecs = 0;
            m.TreeIndex().ChildCounts(id, folds, recs);
            for (const Row& r : rows)
                if (r.par == QString::number(id))
                    ++(Val(r.type) == 2 ? wantRecs : wantFolds);
            QCOMPARE(QPair(folds, recs), QPair(wantFolds, wantRecs));
        }

        // Commands change the table; the model follows without being built again. Some
        // folders are opened first, so some are made and some not.
        UsTreeModel live;
        live.Reset(db, "user");
        for (int k = 0; k < 4; ++k)
            live.IndexOfId(1 + static_cast<int>(rng.bounded(n)));
        for (int step = 0; step < 6; ++step) {
            const int tbl = db.FindTable("DataTable");
            const int rows = db.GetTblRecNum(tbl);
            const int kind = static_cast<int>(rng.bounded(4));
            const QString someId =
                rows ? db.GetTblFldValNm(tbl, 1 + static_cast<int>(rng.bounded(rows)), "IndNum") : "0";
            if (kind == 0) {
                AddRecordToDB(db, someId, "new", "", "", "");
                live.TableChanged();
            } else if (kind == 1) {
                const QString id = GetNewIndNum(db);
                AddFolderToDB("folder", someId.toInt(), id);
                live.TableChanged();
            } else if (kind == 2 && rows) {
                DelRecordTreeFromDataTable("IndNum", someId, "Parent");
                live.TableChanged();
            } else if (rows) {
                const QString target =
                    rng.bounded(3) ? db.GetTblFldValNm(tbl, 1 + static_cast<int>(rng.bounded(rows)), "IndNum")
                                   : "0";
                const QModelIndex node = live.IndexOfId(someId.toInt());
                const QModelIndex to = live.IndexOfId(target.toInt());
                if (MoveRecordTree(db, someId, target) == 1 && node.isValid() && to.isValid())
                    live.MoveNode(node, to);
                else
                    live.TableChanged();
            }
        }
        const QStringList expected = literalTree(db);
        QCOMPARE(modelTree(live), expected);
        UsTreeModel fresh;
        fresh.Reset(db, "user");
        QCOMPARE(modelTree(fresh), expected);
    }
};

ARGENT_TEST(TreeModelTest)
#include "tst_treemodel.moc"
