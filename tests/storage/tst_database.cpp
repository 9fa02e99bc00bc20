#include "diagnostics/ErrorTrap.h"
#include "storage/TableFile.h"
#include "storage/clsDatabase.h"
#include "tests/common/TestEnv.h"
#include "tests/common/TestMain.h"
#include "users/UserAccounts.h"

#include <QRandomGenerator>
#include <QTest>

namespace {

// A user database with rows (IndNum, Parent, Type, Title, Login, ...) and a help table
// that makes the Type column coded.
clsDatabasePtr sampleDb(TestEnv& env) {
    const QString path = env.root() + "/t.bdb";
    writeFileText(path, NewUserTemplate());
    auto db = std::make_shared<clsDatabase>();
    db->LoadDB(path, QString());
    const QStringList titles = {"Mail", "Bank", "mail box", "Їжак", "Post"};
    for (int i = 0; i < titles.size(); ++i)
        db->SetTblRecord(1, db->AddRecord(1),
                         {QString::number(i + 1), "0", i % 2 ? "1" : "2", titles[i],
                          "login" + QString::number(i), "pw", QString(), "1key", "0|0"});
    DatabaseRecord rec = db->DB();
    HelpTable h;
    h.Name = "Type";
    h.Codes = {1, 2};
    h.Texts = {"Folder", "Record"};
    rec.HTables.append(h);
    db->SetDB(rec);
    return db;
}

int errorNumber(const std::function<void()>& fn) {
    try {
        fn();
    } catch (const VbError& e) {
        return e.number();
    }
    return 0;
}

// The first record from Start whose value in any of the fields contains the text, letters
// compared by case folding: the rule of the engine's search, spelled out over a folded copy
// of the table made anew for each round.
// Folded holds the values case-folded, or as they are for a search that minds case.
int referenceFind(const QList<QStringList>& Folded, const QList<int>& Flds, const QString& Text, int Start,
                  bool CaseSens = false) {
    const QString t = CaseSens ? Text : Text.toCaseFolded();
    for (int i = std::max(Start, 1); i <= Folded.size(); ++i)
        for (int f : Flds)
            if (f <= Folded[i - 1].size() && Folded[i - 1][f - 1].contains(t))
                return i;
    return 0;
}

} // namespace

class DatabaseTest : public QObject {
    Q_OBJECT
private slots:
    void readingAndSearching() {
        TestEnv env;
        clsDatabasePtr db = sampleDb(env);
        // Guarded members answer empty; direct ones raise error 9 (or 6 on overflow).
        QCOMPARE(db->GetTblRecord(1, 6), QStringList());
        QCOMPARE(db->GetTblFldValNm(1, 99, "Title"), QString());
        QCOMPARE(db->AddRecord(3), 0);
        QCOMPARE(errorNumber([&] { db->GetTblFldVal(1, 0, 1); }), 9);
        QCOMPARE(errorNumber([&] { db->SetTblFldVal(1, 6, 1, "x"); }), 9);
        QCOMPARE(errorNumber([&] { db->SetFlags(40000); }), 6);
        // Deleting many at once ignores repeats and bad numbers.
        QCOMPARE(db->DeleteRecs(1, {4, 1, 1, 0, 42, 3}), 3);
        QCOMPARE(db->GetTblFldVal(1, 2, 4), QString("Post"));
        // Record reads note the access time.
        db->SetDBLastAccess(-5);
        db->GetTblName(1);
        QCOMPARE(db->DBLastAccess(), -5);
        db->GetTblFldVal(1, 1, 1);
        QVERIFY(db->DBLastAccess() >= 0);
        db = sampleDb(env);
        const int title = db->FindField(1, "TITLE");
        QCOMPARE(title, 4);
        // FindRecord: part of the value, from Start on (inclusive), 0 when none.
        QCOMPARE(db->FindRecord(1, title, "ail", 1, true), 1);
        QCOMPARE(db->FindRecord(1, title, "ail", 2, true), 3);
        QCOMPARE(db->FindRecord(1, title, "ail", 4, true), 0);
        QCOMPARE(db->FindRecord(1, title, "MAIL", 1, true), 0);
        QCOMPARE(db->FindRecord(1, title, QStringLiteral("ЇЖ"), 1, false), 4);
        // GetRecNumFromVal: the whole value, exactly.
        QCOMPARE(db->GetRecNumFromVal(1, title, "mail", 1), 0);
        QCOMPARE(db->GetRecNumFromVal(1, title, "mail box", 1), 3);
        // Help tables decode coded columns.
        QCOMPARE(db->FindHelpVal(1, 3, "1"), QString("Folder"));
        QCOMPARE(db->GetComplexFldVal(1, 2, 3), QString("Folder"));
        QCOMPARE(db->GetComplexFldVal(1, 2, 4), QString("Bank"));
    }

    // A search without regard to case answers from a prepared folded copy of the columns;
    // it must find what the rule finds, across blocks of records and after every kind of
    // change made through the database object.
    void foldedSearchFollowsChanges_data() {
        QTest::addColumn<int>("seed");
        QTest::addColumn<int>("rows");
        for (int seed : {1, 2, 3})
            for (int rows : {5, 1500, 3100})
                QTest::addRow("seed %d, %d rows", seed, rows) << seed << rows;
    }
    void foldedSearchFollowsChanges() {
        QFETCH(int, seed);
        QFETCH(int, rows);
        TestEnv env;
        const QString path = env.root() + "/t.bdb";
        writeFileText(path, NewUserTemplate());
        clsDatabase db;
        QCOMPARE(db.LoadDB(path, QString()), 1);
        QRandomGenerator rng(static_cast<quint32>(seed));
        const QStringList words = {"Mail",   "MAIL",    "straße",  "STRASSE",  "Їжак",
                                   "їЖАК",   "ΣΊΣΥΦΟΣ", "σίσυφος", "İstanbul", "key",
                                   "Ǆungla", "ǆ",       "a\\b",    "😀x",       ""};
        auto value = [&] {
            QString v;
            for (int k = static_cast<int>(rng.bounded(3)); k >= 0; --k)
                v += words[rng.bounded(words.size())] + QChar(u' ');
            return v;
        };
        auto record = [&](int i) {
            return QStringList{
                QString::number(i), "0", "2", value(), value(), value(), value(), "1key", "0|0"};
        };
        for (int i = 1; i <= rows; ++i)
            db.SetTblRecord(1, db.AddRecord(1), record(i));
        const QStringList texts = {"mail", "Mail b", "STRASSE", "ЖАК", "ς", "σίσ",
                                   "i̇st",  "ǅ",      "key",     "a\\", "zz"};
        const QList<QList<int>> fieldSets = {{4}, {4, 5, 6, 7}, {7, 5}};
        for (int round = 0; round < 6; ++round) {
            const QList<QStringList> plain = db.DBView().Tables[0].Records.rows();
            QList<QStringList> folded;
            for (QStringList r : plain) {
                for (QString& v : r)
                    v = v.toCaseFolded();
                folded.append(r);
            }
            for (const QString& t : texts)
                for (const QList<int>& f : fieldSets)
                    for (int start : {0, 1, rows / 2, rows - 1, rows + 1}) {
                        QCOMPARE(db.FindRecordInFields(1, f, t, start, false),
                                 referenceFind(folded, f, t, start));
                        QCOMPARE(db.FindRecordInFields(1, f, t, start, true),
                                 referenceFind(plain, f, t, start, true));
                    }
            // Every kind of change: one value, one record, a new record, a deletion near
            // the top, several deletions, one column everywhere.
            const int n = db.GetTblRecNum(1);
            switch (round) {
            case 0:
                db.SetTblFldVal(1, n, 4, "MAIL b");
                break;
            case 1:
                db.SetTblRecord(1, 1 + static_cast<int>(rng.bounded(n)), record(0));
                break;
            case 2:
                db.SetTblRecord(1, db.AddRecord(1), {"9", "0", "2", "zz top", "", "", "", "1key", "0|0"});
                break;
            case 3:
                db.DeleteRec(1, 1);
                break;
            case 4:
                db.DeleteRecs(1, {2, n / 2, n - 1});
                break;
            default:
                break;
            }
        }
        int set = 0;
        db.SetFldAllRecsVal(1, 5, "ZZ", set);
        QCOMPARE(db.FindRecordInFields(1, {5}, "zz", 1, false), db.GetTblRecNum(1) > 0 ? 1 : 0);
    }

    void tablesToStringAndReadTables() {
        TestEnv env;
        clsDatabasePtr db = sampleDb(env);
        QString buf;
        // A filter keeps the matching records and counts only them.
        QCOMPARE(db->TblsToString({"Missing", "DataTable"}, buf, TblsFilter{3, "1", true}), 1);
        QVERIFY(buf.startsWith("[DataTable]\r\n0" + QString(QChar(kFldSep)) + "2\r\n"));
        QVERIFY(buf.contains("Bank") && !buf.contains("Mail"));
        // ReadTables keeps only the tables asked for, of a file without a password.
        DatabaseRecord rec = db->DB();
        rec.Tables.append(rec.Tables[0]);
        rec.Tables.last().Name = "Other";
        db->SetDB(rec);
        db->SaveDB(env.root() + "/two.bdb", QString(), false);
        TableEngine e;
        DatabaseRecord part;
        QCOMPARE(e.ReadTables(part, env.root() + "/two.bdb", {"other", "nothing"}), 1);
        QCOMPARE(part.TabNum(), 1);
        QCOMPARE(part.Tables[0].RecNum(), 5);
        db->SaveDB(env.root() + "/two.bdb", "pw", false);
        QCOMPARE(e.ReadTables(part, env.root() + "/two.bdb", {"Other"}), -4);
        QCOMPARE(part.TabNum(), 0);
    }
};

ARGENT_TEST(DatabaseTest)
#include "tst_database.moc"
