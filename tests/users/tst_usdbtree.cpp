#include "tests/common/TestMain.h"
#include "tests/users/UsersTestKit.h"

#include "users/UsDBTree.h"

#include <QTest>

class UsDBTreeTest : public QObject {
    Q_OBJECT
private slots:
    void foldersFirstInReverseThenRecords() {
        TestEnv env;
        writeFileText(env.root() + "/t.bdb", NewUserTemplate());
        clsDatabase db;
        QCOMPARE(db.LoadDB(env.root() + "/t.bdb", QString()), 1);
        addRow(db, 12, 11, "2", "early child"); // stored before its folder: shown once one follows it
        addRow(db, 1, 0, "1", "F1");
        addRow(db, 2, 0, "2", "R1");
        addRow(db, 3, 0, "1", "F2");
        addRow(db, 4, 0, "7", "odd type");
        addRow(db, 5, 3, "2", "in F2");
        addRow(db, 6, 1, "1", "G1");
        addRow(db, 7, 6, "2", "deep");
        addRow(db, 8, 8, "1", "self");   // its own parent
        addRow(db, 9, 10, "1", "cycle"); // two rows in a loop
        addRow(db, 10, 9, "1", "cycle");
        addRow(db, 11, 0, " 1", "F3");
        addRow(db, 13, 11, "2", "late child");
        QStringList shown;
        for (const UsTreeNode& n : UsDBTreeOrder(db))
            shown << QString(n.Depth - 1, u'.') + db.GetTblFldValNm(1, n.RecNum, "Title") +
                         (n.Folder ? "/" : "");
        QCOMPARE(shown, QStringList({"F3/", ".early child", ".late child", "F2/", ".in F2", "F1/", ".G1/",
                                     "..deep", "R1", "odd type"}));
        // A long chain does not need a deep call stack.
        clsDatabase chain;
        QCOMPARE(chain.LoadDB(env.root() + "/t.bdb", QString()), 1);
        for (int i = 1; i <= 20000; ++i)
            addRow(chain, i, i - 1, "1", "c");
        QCOMPARE(UsDBTreeOrder(chain).last().Depth, 20000);
    }
};

ARGENT_TEST(UsDBTreeTest)
#include "tst_usdbtree.moc"
