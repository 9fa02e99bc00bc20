#include "app/modLang.h"
#include "records/RecordTree.h"
#include "tests/common/TestMain.h"
#include "tests/records/RecordsTestKit.h"

#include <QRandomGenerator>
#include <QTest>

namespace {

QStringList row(std::initializer_list<const char*> values) {
    QStringList r;
    for (const char* v : values)
        r << QString::fromUtf8(v);
    return r;
}

// Appends a row with the given identifier, parent, type and title (the tag follows).
void put(int id, int parent, int type, const QString& title) {
    clsDatabase& db = *CurUsDB;
    const int r = db.AddRecord(dataTable());
    db.SetTblRecord(dataTable(), r,
                    {QString::number(id), QString::number(parent), QString::number(type), title, "l", "p",
                     "d", type == 1 ? "2key" : "1key", "0|0"});
    db.SetTblTag(dataTable(), QString::number(std::max(id, CurUsDB->GetTblTag(dataTable()).toInt())));
}

QStringList titles(const QList<QStringList>& rows) {
    QStringList t;
    for (const QStringList& r : rows)
        t << r[3];
    return t;
}

// The deletion exactly as the step-by-step description reads: look for the first child
// from the top again after every deletion, then log and delete the row by the number it
// had on entry.
void referenceDelete(clsDatabase& db, int tbl, const QString& id, int curRec, QStringList& log) {
    for (;;) {
        const int child = db.GetRecNumFromVal(tbl, 2, id, 1);
        if (child == 0)
            break;
        referenceDelete(db, tbl, db.GetTblFldVal(tbl, child, 1), child, log);
    }
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
        QCOMPARE(CurUsDB->GetTblTag(dataTable()), QStringLiteral("0"));
        const QString f = GetNewIndNum(*CurUsDB);
        QCOMPARE(f, QStringLiteral("1"));
        AddFolderToDB(QStringLiteral("Mail"), 0, f);
        QCOMPARE(AddRecordToDB(*CurUsDB, "1", "Post", "anna@example.org", "s3cret", "two\r\nlines"),
                 QStringLiteral("2"));
        QCOMPARE(allRows()[0], row({"1", "0", "1", "Mail", "", "", "", "2key", "0|0"}));
        QCOMPARE(allRows()[1],
                 row({"2", "1", "2", "Post", "anna@example.org", "s3cret", "two\r\nlines", "1key", "0|0"}));

        // Deleting rows never lowers the tag: the next row gets 3, not 1 or 2.
        DelRecordTreeFromDataTable("IndNum", "1", "Parent");
        QVERIFY(allRows().isEmpty());
        QCOMPARE(AddRecordToDB(*CurUsDB, "0", "Bank", "", "", ""), QStringLiteral("3"));
        QCOMPARE(CurUsDB->GetTblTag(dataTable()), QStringLiteral("3"));

        // The last identifier there is: the error trap's overflow, the tag stays.
        CurUsDB->SetTblTag(dataTable(), "2147483647");
        try {
            GetNewIndNum(*CurUsDB);
            QFAIL("no overflow");
        } catch (const VbError& e) {
            QCOMPARE(e.number(), 6);
        }
        QCOMPARE(CurUsDB->GetTblTag(dataTable()), QStringLiteral("2147483647"));
        CurUsDB->SetTblTag(dataTable(), "x");
        QVERIFY_THROWS_EXCEPTION(VbError, GetNewIndNum(*CurUsDB));
        argent::diag::clearSnapshot();
    }

    void changingAFieldFindsTheRowByExactValue() {
        TestEnv env;
        useNewDatabase();
        put(1, 0, 1, "A");
        put(12, 0, 2, "B");
        put(2, 1, 2, "C");
        ChangeDataTableField("IndNum", "12", "Title", "Renamed");
        ChangeDataTableField("IndNum", "2", "Parent", "12");
        QCOMPARE(titles(allRows()), QStringList({"A", "Renamed", "C"}));
        QCOMPARE(allRows()[2][1], QStringLiteral("12"));
        // No row "1 " or "99": nothing changes, row 0 is not touched either.
        const QList<QStringList> before = allRows();
        ChangeDataTableField("IndNum", "1 ", "Title", "X");
        ChangeDataTableField("IndNum", "99", "Title", "X");
        ChangeDataTableField("NoSuchField", "1", "Title", "X");
        QCOMPARE(allRows(), before);
    }

    void subtreeDeletionGoesDeepestFirstWithOneLogLinePerRow() {
        TestEnv env;
        useNewDatabase();
        put(1, 0, 1, "A");
        put(2, 1, 1, "B");
        put(3, 2, 2, "r1");
        put(4, 0, 1, "C");
        put(5, 2, 1, "D");
        put(6, 5, 2, "r2");
        put(7, 1, 2, "r3");
        put(8, 4, 2, "r4");
        clearLog();
        QCOMPARE(DelRecordTreeFromDataTable("IndNum", "1", "Parent"), 6);
        QCOMPARE(logLinesStarting("-= DELETE"),
                 QStringList({"-= DELETE: r1", "-= DELETE: r2", "-= DELETE: D", "-= DELETE: B",
                              "-= DELETE: r3", "-= DELETE: A"}));
        QCOMPARE(titles(allRows()), QStringList({"C", "r4"}));

        // A record alone: one line.
        clearLog();
        QCOMPARE(DelRecordTreeFromDataTable("IndNum", "8", "Parent"), 1);
        QCOMPARE(logLinesStarting("-= DELETE"), QStringList({"-= DELETE: r4"}));
        // An identifier that is not there: its orphans go, and the line has no title.
        put(9, 77, 2, "orphan");
        clearLog();
        QCOMPARE(DelRecordTreeFromDataTable("IndNum", "77", "Parent"), 1);
        QCOMPARE(logLinesStarting("-= DELETE"), QStringList({"-= DELETE: orphan", "-= DELETE: "}));
        QCOMPARE(titles(allRows()), QStringList({"C"}));
    }

    // Random trees built by appending (children always behind their parents, as the
    // program makes them): the one-pass deletion must give exactly the rows and log
    // lines of the step-by-step one.
    void deletionMatchesTheStepByStepOrder() {
        TestEnv env;
        QRandomGenerator rng(4711);
        for (int round = 0; round < 30; ++round) {
            useNewDatabase();
            QList<int> folders{0};
            const int n = 20 + static_cast<int>(rng.bounded(150));
            for (int id = 1; id <= n; ++id) {
                const bool folder = rng.bounded(3) == 0;
                const int parent = folders[rng.bounded(folders.size())];
                put(id, parent, folder ? 1 : 2, QStringLiteral("t%1").arg(id));
                if (folder)
                    folders << id;
            }
            const QString victim = QString::number(folders[rng.bounded(folders.size())]);
            clsDatabase reference;
            reference.SetDB(CurUsDB->DB());
            QStringList expectedLog;
            const int tbl = dataTable();
            const int cur = reference.GetRecNumFromVal(tbl, 1, victim, 1);
            if (cur == 0)
                continue;
            referenceDelete(reference, tbl, victim, cur, expectedLog);
            clearLog();
            DelRecordTreeFromDataTable("IndNum", victim, "Parent");
            QCOMPARE(logLinesStarting("-= DELETE"), expectedLog);
            QCOMPARE(allRows(), allRows(reference));
        }
    }

    void deletionIsSafeWithRowsOutOfOrderLoopsAndDeepChains() {
        TestEnv env;
        useNewDatabase();
        // Folder 1 was moved into folder 2, made after it: the child lies before its
        // parent. Deleting 2 takes 1 and 2 and leaves the neighbour 3 alone.
        put(1, 2, 1, "moved");
        put(2, 0, 1, "parent");
        put(3, 0, 2, "neighbour");
        clearLog();
        QCOMPARE(DelRecordTreeFromDataTable("IndNum", "2", "Parent"), 2);
        QCOMPARE(titles(allRows()), QStringList({"neighbour"}));
        QCOMPARE(logLinesStarting("-= DELETE"), QStringList({"-= DELETE: moved", "-= DELETE: parent"}));

        // A damaged file whose parent links go round: each row is deleted once.
        useNewDatabase();
        put(1, 2, 1, "x");
        put(2, 1, 1, "y");
        put(3, 3, 1, "self");
        put(4, 0, 2, "kept");
        QCOMPARE(DelRecordTreeFromDataTable("IndNum", "1", "Parent"), 2);
        QCOMPARE(DelRecordTreeFromDataTable("IndNum", "3", "Parent"), 1);
        QCOMPARE(titles(allRows()), QStringList({"kept"}));

        // Identifiers that are not plain numbers are still compared as texts.
        useNewDatabase();
        CurUsDB->SetTblRecord(dataTable(), CurUsDB->AddRecord(dataTable()),
                              row({"007", "0", "1", "odd", "", "", "", "2key", "0|0"}));
        CurUsDB->SetTblRecord(dataTable(), CurUsDB->AddRecord(dataTable()),
                              row({"8", "007", "2", "in odd", "", "", "", "1key", "0|0"}));
        CurUsDB->SetTblRecord(dataTable(), CurUsDB->AddRecord(dataTable()),
                              row({"9", "7", "2", "in seven", "", "", "", "1key", "0|0"}));
        QCOMPARE(DelRecordTreeFromDataTable("IndNum", "007", "Parent"), 2);
        QCOMPARE(titles(allRows()), QStringList({"in seven"}));

        // 20,000 folders nested in one another: no recursion to run out of stack.
        useNewDatabase();
        for (int id = 1; id <= 20000; ++id)
            put(id, id - 1, 1, QString::number(id));
        clearLog();
        QCOMPARE(DelRecordTreeFromDataTable("IndNum", "1", "Parent"), 20000);
        const QStringList log = logLinesStarting("-= DELETE");
        QCOMPARE(log.first(), QStringLiteral("-= DELETE: 20000"));
        QCOMPARE(log.last(), QStringLiteral("-= DELETE: 1"));
        QVERIFY(allRows().isEmpty());
    }

    void childCountsOfARowOnly() {
        TestEnv env;
        useNewDatabase();
        put(1, 0, 1, "A");
        put(2, 1, 2, "r");
        put(3, 1, 1, "B");
        put(4, 3, 2, "deep");
        put(5, 0, 2, "top record");
        CurUsDB->SetTblFldValNm(dataTable(), 2, "Type", " 2");
        CurUsDB->SetTblFldValNm(dataTable(), 3, "Type", "x");
        int folds = 0, recs = 0;
        GetStatBarData(*CurUsDB, "0", folds, recs);
        QCOMPARE(folds, 1);
        QCOMPARE(recs, 1);
        folds = recs = 0;
        GetStatBarData(*CurUsDB, "1", folds, recs);
        QCOMPARE(folds, 1); // "x" is not 2: a folder
        QCOMPARE(recs, 1);  // " 2" reads as 2
        // The counters are added to; an empty folder leaves them as they were.
        folds = 5, recs = 7;
        GetStatBarData(*CurUsDB, "4", folds, recs);
        QCOMPARE(folds, 5);
        QCOMPARE(recs, 7);
    }

    void flagsSplitAndBoldKeepsTheOtherBits() {
        int col = -1, bits = -1;
        GetSepatRecOptns("255|1", col, bits);
        QCOMPARE(col, 255);
        QCOMPARE(bits, 1);
        GetSepatRecOptns("0|0", col, bits);
        QCOMPARE(col, 0);
        QCOMPARE(bits, 0);
        GetSepatRecOptns("12|x", col, bits);
        QCOMPARE(col, 12);
        QCOMPARE(bits, 0);
        GetSepatRecOptns("-16777216|3.5", col, bits);
        QCOMPARE(col, -16777216);
        QCOMPARE(bits, 4);
        GetSepatRecOptns("7|2.5", col, bits);
        QCOMPARE(bits, 2);
        GetSepatRecOptns("", col, bits);
        QCOMPARE(col, 0);
        QCOMPARE(bits, 0);
        GetSepatRecOptns("42", col, bits);
        QCOMPARE(col, 42);
        QCOMPARE(bits, 0);
        // The colour is converted strictly.
        for (const char* bad : {"abc|1", "|1", "1e99|0"}) {
            try {
                GetSepatRecOptns(QString::fromLatin1(bad), col, bits);
                QFAIL(bad);
            } catch (const VbError& e) {
                QVERIFY2(e.number() == 13 || e.number() == 6, bad);
            }
            argent::diag::clearSnapshot();
        }
        QCOMPARE(SetRecBold("255|6", true), QStringLiteral("255|7"));
        QCOMPARE(SetRecBold("255|7", false), QStringLiteral("255|6"));
        QCOMPARE(SetRecBold("0|0", false), QStringLiteral("0|0"));
        QCOMPARE(SetRecColor("255|5", 65280), QStringLiteral("65280|5"));
        QCOMPARE(MakeRecOptns(-1, 1), QStringLiteral("-1|1"));
    }

    void captionsComeFromTheLanguage() {
        TestEnv env;
        LoadLang(env.progDir() + "/Languages/Russian.lng");
        const QString title = Texts(13);
        QVERIFY(!title.isEmpty() && title != QStringLiteral("Title"));
        QCOMPARE(GetTblTrueCapText("Title"), title);
        QCOMPARE(GetTblTrueCapText("Description"), Texts(16));
        QCOMPARE(GetTblTrueCapText("Image"), QStringLiteral("Image"));
        QCOMPARE(GetTblTrueCapText("title"), QStringLiteral("title"));
        // A language file without text 13.
        writeFileText(env.root() + "/Short.lng", "20\r\n14=Anmeldung\r\n");
        LoadLang(env.root() + "/Short.lng");
        QCOMPARE(GetTblTrueCapText("Title"), QStringLiteral("Title"));
        QCOMPARE(GetTblTrueCapText("Login"), QStringLiteral("Anmeldung"));
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
        int start = -5;
        QCOMPARE(GetTextTillSepar("x::y", tok, "::", start), 4);
        QCOMPARE(start, 1);
        QCOMPARE(tok, QStringLiteral("x"));
    }

    void ancestryForMoves() {
        TestEnv env;
        useNewDatabase();
        put(1, 0, 1, "A");
        put(2, 1, 1, "B");
        put(3, 2, 2, "r");
        put(4, 0, 1, "C");
        QVERIFY(IsInRecordTree(*CurUsDB, "1", "3"));
        QVERIFY(IsInRecordTree(*CurUsDB, "1", "1"));
        QVERIFY(!IsInRecordTree(*CurUsDB, "2", "1"));
        QVERIFY(!IsInRecordTree(*CurUsDB, "1", "4"));
        QVERIFY(IsInRecordTree(*CurUsDB, "0", "3"));
        QCOMPARE(FindDataRow(*CurUsDB, "4"), 4);
        QCOMPARE(FindDataRow(*CurUsDB, "5"), 0);
        // A loop in a damaged file ends the walk.
        ChangeDataTableField("IndNum", "1", "Parent", "3");
        QVERIFY(!IsInRecordTree(*CurUsDB, "4", "2"));
    }
};
ARGENT_TEST(RecordTreeTest)

#include "tst_recordtree.moc"
