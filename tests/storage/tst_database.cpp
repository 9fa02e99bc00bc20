#include "diagnostics/ErrorTrap.h"
#include "storage/TableFile.h"
#include "storage/clsDatabase.h"
#include "tests/common/TestEnv.h"
#include "tests/common/TestMain.h"
#include "users/UserAccounts.h"

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
