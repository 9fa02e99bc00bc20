#include "tests/common/TestMain.h"
#include "tests/users/UsersTestKit.h"

#include "users/UsDBTree.h"

#include <QTest>

namespace {

// The titles in tree order, indented by depth.
QStringList shown(clsDatabase& db) {
    QStringList out;
    const int tbl = db.FindTable("DataTable");
    for (const UsTreeNode& n : UsDBTreeOrder(db))
        out << QString(n.Depth - 1, u'.') + db.GetTblFldValNm(tbl, n.RecNum, "Title") + (n.Folder ? "/" : "");
    return out;
}

clsDatabasePtr emptyUserDb(TestEnv& env) {
    writeFileText(env.root() + "/t.bdb", NewUserTemplate());
    auto db = std::make_shared<clsDatabase>();
    db->LoadDB(env.root() + "/t.bdb", QString());
    return db;
}

} // namespace

class UsDBTreeTest : public QObject {
    Q_OBJECT
private slots:
    void foldersFirstInReverseThenRecords() {
        TestEnv env;
        clsDatabasePtr db = emptyUserDb(env);
        QCOMPARE(shown(*db), QStringList());
        addRow(*db, 1, 0, "1", "F1");
        addRow(*db, 2, 0, "2", "R1");
        addRow(*db, 3, 0, "1", "F2");
        addRow(*db, 4, 0, "2", "R2");
        addRow(*db, 5, 3, "2", "in F2");
        addRow(*db, 6, 1, "1", "G1");
        addRow(*db, 7, 1, "1", "G2");
        addRow(*db, 8, 6, "2", "deep");
        addRow(*db, 9, 0, " 1", "F3 spaced type");
        addRow(*db, 10, 0, "7", "odd type");
        QCOMPARE(shown(*db), QStringList({"F3 spaced type/", "F2/", ".in F2", "F1/", ".G2/", ".G1/", "..deep",
                                          "R1", "R2", "odd type"}));
    }

    void childrenStoredBeforeTheirFolderAreNotShown() {
        TestEnv env;
        clsDatabasePtr db = emptyUserDb(env);
        addRow(*db, 2, 1, "2", "early child");
        addRow(*db, 1, 0, "1", "folder");
        QCOMPARE(shown(*db), QStringList({"folder/"}));
        // Once one child lies behind the folder, all of them show, the early one too.
        addRow(*db, 3, 1, "2", "late child");
        QCOMPARE(shown(*db), QStringList({"folder/", ".early child", ".late child"}));
    }

    void damagedTreesEnd() {
        TestEnv env;
        clsDatabasePtr db = emptyUserDb(env);
        // A row that is its own parent, and two rows sharing one identifier in a loop.
        addRow(*db, 1, 0, "1", "A");
        addRow(*db, 1, 1, "1", "A again");
        addRow(*db, 2, 2, "1", "self");
        addRow(*db, 3, 4, "1", "cycle 3");
        addRow(*db, 4, 3, "1", "cycle 4");
        QCOMPARE(shown(*db), QStringList({"A/", ".A again/"}));
        // A long chain does not need a deep call stack.
        clsDatabasePtr chain = emptyUserDb(env);
        for (int i = 1; i <= 20000; ++i)
            addRow(*chain, i, i - 1, "1", "c");
        const QList<UsTreeNode> nodes = UsDBTreeOrder(*chain);
        QCOMPARE(nodes.size(), 20000);
        QCOMPARE(nodes.last().Depth, 20000);
    }
};

ARGENT_TEST(UsDBTreeTest)
#include "tst_usdbtree.moc"
