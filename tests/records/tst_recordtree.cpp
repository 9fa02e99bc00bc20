#include "app/modLang.h"
#include "records/RecordTree.h"
#include "tests/common/TestMain.h"
#include "tests/common/TreeRows.h"
#include "tests/records/RecordsTestKit.h"

#include <QRandomGenerator>
#include <QTest>

namespace {

// Appends a row with the given identifier (text), parent, type and title; the tag follows.
void put(const QString& id, const QString& parent, int type, const QString& title) {
    CurUsDB->SetTblRecord(
        dataTable(), CurUsDB->AddRecord(dataTable()),
        {id, parent, QString::number(type), title, "l", "p", "d", type == 1 ? "2key" : "1key", "0|0"});
    CurUsDB->SetTblTag(dataTable(),
                       QString::number(std::max(id.toInt(), CurUsDB->GetTblTag(dataTable()).toInt())));
}
void put(int id, int parent, int type, const QString& title) {
    put(QString::number(id), QString::number(parent), type, title);
}

QStringList titles() {
    QStringList t;
    for (const QStringList& r : allRows())
        t << r[3];
    return t;
}

// The deletion as the step-by-step rule reads: look for the first child from the top
// again after every deletion, then log and delete the row by the number it had on entry.
void referenceDelete(clsDatabase& db, int tbl, const QString& id, int curRec, QStringList& log) {
    while (const int child = db.GetRecNumFromVal(tbl, 2, id, 1))
        referenceDelete(db, tbl, db.GetTblFldVal(tbl, child, 1), child, log);
    log << QStringLiteral("-= DELETE: ") + db.GetTblFldValNm(tbl, curRec, QStringLiteral("Title"));
    db.DeleteRec(tbl, curRec);
}

} // namespace

class RecordTreeTest : public QObject {
    Q_OBJECT
private slots:
    void newRowsAndIdentifiersThatAreNeverReused() {
        TestEnv env;
        useNewDatabase();
        const QString f = GetNewIndNum(*CurUsDB);
        QCOMPARE(f, QStringLiteral("1"));
        AddFolderToDB(QStringLiteral("Mail"), 0, f);
        QCOMPARE(AddRecordToDB(*CurUsDB, "1", "Post", "anna@example.org", "s3cret", "two\r\nlines"),
                 QStringLiteral("2"));
        QCOMPARE(allRows(), QList<QStringList>({{"1", "0", "1", "Mail", "", "", "", "2key", "0|0"},
                                                {"2", "1", "2", "Post", "anna@example.org", "s3cret",
                                                 "two\r\nlines", "1key", "0|0"}}));
        // Deleting rows never lowers the tag: the next row gets 3, not 1.
        DelRecordTreeFromDataTable("IndNum", "1", "Parent");
        QVERIFY(allRows().isEmpty());
        QCOMPARE(AddRecordToDB(*CurUsDB, "0", "Bank", "", "", ""), QStringLiteral("3"));
        // The last identifier there is: overflow, and the tag stays.
        CurUsDB->SetTblTag(dataTable(), "2147483647");
        QVERIFY_THROWS_EXCEPTION(VbError, GetNewIndNum(*CurUsDB));
        QCOMPARE(CurUsDB->GetTblTag(dataTable()), QStringLiteral("2147483647"));
        argent::diag::clearSnapshot();
    }

    void changingAFieldFindsTheRowByExactValue() {
        TestEnv env;
        useNewDatabase();
        put(1, 0, 1, "A");
        put(12, 0, 2, "B");
        ChangeDataTableField("IndNum", "12", "Title", "Renamed");
        QCOMPARE(titles(), QStringList({"A", "Renamed"}));
        const QList<QStringList> before = allRows();
        ChangeDataTableField("IndNum", "1 ", "Title", "X");
        ChangeDataTableField("IndNum", "99", "Title", "X");
        QCOMPARE(allRows(), before);
    }

    void subtreeDeletionGoesDeepestFirstWithOneLogLinePerRow() {
        TestEnv env;
        useNewDatabase();
        for (auto [id, parent, type, title] : {std::tuple{1, 0, 1, "A"},
                                               {2, 1, 1, "B"},
                                               {3, 2, 2, "r1"},
                                               {4, 0, 1, "C"},
                                               {5, 2, 1, "D"},
                                               {6, 5, 2, "r2"},
                                               {7, 1, 2, "r3"},
                                               {8, 4, 2, "r4"}})
            put(id, parent, type, title);
        clearLog();
        QCOMPARE(DelRecordTreeFromDataTable("IndNum", "1", "Parent"), 6);
        QCOMPARE(logLines("-= DELETE"), QStringList({"-= DELETE: r1", "-= DELETE: r2", "-= DELETE: D",
                                                     "-= DELETE: B", "-= DELETE: r3", "-= DELETE: A"}));
        QCOMPARE(titles(), QStringList({"C", "r4"}));
        // An identifier that is not there: its orphans go, and the line has no title.
        put(9, 77, 2, "orphan");
        clearLog();
        QCOMPARE(DelRecordTreeFromDataTable("IndNum", "77", "Parent"), 1);
        QCOMPARE(logLines("-= DELETE"), QStringList({"-= DELETE: orphan", "-= DELETE: "}));
    }

    // Random trees built by appending: the one-pass deletion gives exactly the rows and
    // log lines of the step-by-step one.
    void deletionMatchesTheStepByStepOrder() {
        TestEnv env;
        QRandomGenerator rng(4711);
        for (int round = 0; round < 30; ++round) {
            useNewDatabase();
            QList<int> folders{0};
            for (int id = 1, n = 20 + int(rng.bounded(150)); id <= n; ++id) {
                const bool folder = rng.bounded(3) == 0;
                put(id, folders[rng.bounded(folders.size())], folder ? 1 : 2, QStringLiteral("t%1").arg(id));
                if (folder)
                    folders << id;
            }
            const QString victim = QString::number(folders[rng.bounded(folders.size())]);
            clsDatabase reference;
            reference.SetDB(CurUsDB->DB());
            const int cur = reference.GetRecNumFromVal(dataTable(), 1, victim, 1);
            if (cur == 0)
                continue;
            QStringList expectedLog;
            referenceDelete(reference, dataTable(), victim, cur, expectedLog);
            clearLog();
            DelRecordTreeFromDataTable("IndNum", victim, "Parent");
            QCOMPARE(logLines("-= DELETE"), expectedLog);
            QCOMPARE(allRows(), allRows(reference));
        }
    }

    void deletionIsSafeWithRowsOutOfOrderLoopsAndDeepChains() {
        TestEnv env;
        useNewDatabase();
        put(1, 2, 1, "moved"); // a child before its parent
        put(2, 0, 1, "parent");
        put(3, 4, 1, "x"); // parent links that go round
        put(4, 3, 1, "y");
        put("007", "0", 1, "odd"); // identifiers compared as texts
        put("8", "007", 2, "in odd");
        put("9", "7", 2, "kept");
        QCOMPARE(DelRecordTreeFromDataTable("IndNum", "2", "Parent"), 2);
        QCOMPARE(DelRecordTreeFromDataTable("IndNum", "3", "Parent"), 2);
        QCOMPARE(DelRecordTreeFromDataTable("IndNum", "007", "Parent"), 2);
        QCOMPARE(titles(), QStringList({"kept"}));
        // 20,000 folders nested in one another: no recursion to run out of stack.
        useNewDatabase();
        for (int id = 1; id <= 20000; ++id)
            put(id, id - 1, 1, QString::number(id));
        QCOMPARE(DelRecordTreeFromDataTable("IndNum", "1", "Parent"), 20000);
        QVERIFY(allRows().isEmpty());
    }

    void countsAndAncestry() {
        TestEnv env;
        useNewDatabase();
        put(1, 0, 1, "A");
        put(2, 1, 2, "r");
        put(3, 1, 1, "B");
        put(4, 3, 2, "deep");
        put(5, 0, 2, "top record");
        CurUsDB->SetTblFldValNm(dataTable(), 2, "Type", " 2");
        CurUsDB->SetTblFldValNm(dataTable(), 3, "Type", "x");
        int folds = 5, recs = 7; // added to
        GetStatBarData(*CurUsDB, "1", folds, recs);
        QCOMPARE(folds, 6); // "x" is not 2: a folder
        QCOMPARE(recs, 8);  // " 2" reads as 2
        QVERIFY(IsInRecordTree(*CurUsDB, "1", "4"));
        QVERIFY(IsInRecordTree(*CurUsDB, "1", "1"));
        QVERIFY(!IsInRecordTree(*CurUsDB, "3", "1"));
        QCOMPARE(FindDataRow(*CurUsDB, "4"), 4);
        // A loop in a damaged file ends the walk.
        ChangeDataTableField("IndNum", "1", "Parent", "4");
        QVERIFY(!IsInRecordTree(*CurUsDB, "5", "3"));
    }

    void flagsSplitAndBoldKeepsTheOtherBits_data() {
        QTest::addColumn<QString>("flags");
        QTest::addColumn<int>("colour");
        QTest::addColumn<int>("bits");
        QTest::newRow("plain") << "255|1" << 255 << 1;
        QTest::newRow("bad bits") << "12|x" << 12 << 0;
        QTest::newRow("rounded up") << "-16777216|3.5" << -16777216 << 4;
        QTest::newRow("rounded to even") << "7|2.5" << 7 << 2;
        QTest::newRow("empty") << "" << 0 << 0;
        QTest::newRow("no bits") << "42" << 42 << 0;
        QTest::newRow("bad colour") << "abc|1" << -1 << -1;
        QTest::newRow("colour too big") << "1e99|0" << -1 << -1;
    }
    void flagsSplitAndBoldKeepsTheOtherBits() {
        QFETCH(QString, flags);
        QFETCH(int, colour);
        QFETCH(int, bits);
        int col = -1, b = -1;
        if (colour == -1) {
            QVERIFY_THROWS_EXCEPTION(VbError, GetSepatRecOptns(flags, col, b));
            argent::diag::clearSnapshot();
            return;
        }
        GetSepatRecOptns(flags, col, b);
        QCOMPARE(col, colour);
        QCOMPARE(b, bits);
        QCOMPARE(SetRecBold("255|6", true), QStringLiteral("255|7"));
        QCOMPARE(SetRecBold("255|7", false), QStringLiteral("255|6"));
        QCOMPARE(SetRecColor("255|5", 65280), QStringLiteral("65280|5"));
    }

    void captionsComeFromTheLanguage() {
        TestEnv env;
        writeFileText(env.root() + "/Short.lng", "20\r\n14=Anmeldung\r\n");
        LoadLang(env.root() + "/Short.lng");
        QCOMPARE(GetTblTrueCapText("Title"), QStringLiteral("Title")); // no text 13
        QCOMPARE(GetTblTrueCapText("Login"), QStringLiteral("Anmeldung"));
        QCOMPARE(GetTblTrueCapText("Image"), QStringLiteral("Image"));
    }

    void typedIdentifiersAreWrittenBackPlainly() {
        QString id = QStringLiteral("kept");
        QVERIFY(ParseIndNum("007", id));
        QCOMPARE(id, QStringLiteral("7"));
        QVERIFY(ParseIndNum("0", id));
        QCOMPARE(id, QStringLiteral("0"));
        QVERIFY(ParseIndNum("2147483647", id));
        QCOMPARE(id, QStringLiteral("2147483647"));
        id = QStringLiteral("kept");
        for (const char* bad : {"", "-1", "1.5", "x2", "2147483648", "0x10"})
            QVERIFY2(!ParseIndNum(bad, id) && id == "kept", bad);
    }

    void tokenizerWalksSeparatedLists() {
        QString tok;
        QStringList parts;
        const QString list = QStringLiteral("a,bb,,c");
        for (int p = 1; p <= list.size();) {
            int s = p;
            p = GetTextTillSepar(list, tok, ",", s);
            parts << tok;
        }
        QCOMPARE(parts, QStringList({"a", "bb", "", "c"}));
    }
};
ARGENT_TEST(RecordTreeTest)

// Moving a subtree, with rows written short (tests/common/TreeRows.h).
class MoveTreeTest : public QObject {
    Q_OBJECT
private slots:
    void move_data() {
        QTest::addColumn<QString>("rows");
        QTest::addColumn<QString>("id");
        QTest::addColumn<QString>("parent");
        QTest::addColumn<int>("result");
        QTest::addColumn<QString>("after");
        const QString rows = "1:0:r1 2:0:F2 3:2:r3 4:2:F4 5:4:r5 6:0:F6";
        QTest::newRow("record into a later folder")
            << rows << "1"
            << "6" << 1 << "2:0:F2 3:2:r3 4:2:F4 5:4:r5 6:0:F6 1:6:r1";
        QTest::newRow("folder with contents, in tree order")
            << rows << "2"
            << "6" << 1 << "1:0:r1 6:0:F6 2:6:F2 3:2:r3 4:2:F4 5:4:r5";
        QTest::newRow("to the root") << rows << "4"
                                     << "0" << 1 << "1:0:r1 2:0:F2 3:2:r3 6:0:F6 4:0:F4 5:4:r5";
        QTest::newRow("into itself") << rows << "2"
                                     << "2" << -1 << rows;
        QTest::newRow("into its own descendant") << rows << "2"
                                                 << "4" << -1 << rows;
        QTest::newRow("onto a record") << rows << "6"
                                       << "3" << -2 << rows;
        QTest::newRow("no such row") << rows << "9"
                                     << "0" << 0 << rows;
    }
    void move() {
        QFETCH(QString, rows);
        QFETCH(QString, id);
        QFETCH(QString, parent);
        QFETCH(int, result);
        QFETCH(QString, after);
        TestEnv env;
        useNewDatabase();
        for (const QString& r : rows.split(u' '))
            CurUsDB->SetTblRecord(dataTable(), CurUsDB->AddRecord(dataTable()), treeRow(r));
        QCOMPARE(MoveRecordTree(*CurUsDB, id, parent), result);
        QCOMPARE(treeRowsText(allRows()), after);
    }
};
ARGENT_TEST(MoveTreeTest)

#include "tst_recordtree.moc"
