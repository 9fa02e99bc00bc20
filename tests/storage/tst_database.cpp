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
    if (db->LoadDB(path, QString()) != 1)
        return nullptr;
    const QStringList titles = {"Mail", "Bank", "mail box", "Їжак", "Post"};
    for (int i = 0; i < titles.size(); ++i) {
        const int r = db->AddRecord(1);
        db->SetTblRecord(1, r,
                         {QString::number(i + 1), "0", i % 2 ? "1" : "2", titles[i],
                          "login" + QString::number(i), "pw", QString(), "1key", "0|0"});
    }
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
    void guardedMembersAnswerEmpty() {
        TestEnv env;
        clsDatabasePtr db = sampleDb(env);
        QVERIFY(db);
        QCOMPARE(db->GetTblName(0), QString());
        QCOMPARE(db->GetTblName(db->TabNum() + 1), QString());
        QCOMPARE(db->GetTblName(1), QString("DataTable"));
        QCOMPARE(db->GetTblRecord(1, 0), QStringList());
        QCOMPARE(db->GetTblRecord(1, 6), QStringList());
        QCOMPARE(db->GetTblRecord(1, 2).value(3), QString("Bank"));
        QCOMPARE(db->GetTblRecNum(2), 0);
        QCOMPARE(db->GetTblCaption(0), QString());
        db->SetTblTag(2, "x");
        db->SetTblName(0, "x");
        db->SetTblFlags(-1, 3);
        QCOMPARE(db->GetTblTag(1), QString("0"));
        QCOMPARE(db->GetTblFlags(1), 0);
        // The engine's own operations never raise either.
        QCOMPARE(db->GetTblFldValNm(1, 99, "Title"), QString());
        QCOMPARE(db->FindRecord(7, 1, "x", 1, true), 0);
        QCOMPARE(db->DeleteRec(1, 0), 0);
        QCOMPARE(db->AddRecord(3), 0);
    }

    void directMembersRaiseSubscriptOutOfRange() {
        TestEnv env;
        clsDatabasePtr db = sampleDb(env);
        QCOMPARE(errorNumber([&] { db->GetTblFldVal(1, 0, 1); }), 9);
        QCOMPARE(errorNumber([&] { db->GetTblFldVal(1, 1, 10); }), 9);
        QCOMPARE(errorNumber([&] { db->GetTblFldVal(2, 1, 1); }), 9);
        QCOMPARE(errorNumber([&] { db->SetTblFldVal(1, 6, 1, "x"); }), 9);
        QCOMPARE(errorNumber([&] { db->SetTblRecord(1, 6, {}); }), 9);
        int n = -1;
        QCOMPARE(errorNumber([&] { db->SetFldAllRecsVal(1, 10, "x", n); }), 9);
        TableEntry t;
        HelpTable h;
        QCOMPARE(errorNumber([&] { db->GetTable(2, t); }), 9);
        QCOMPARE(errorNumber([&] { db->GetHTable(2, h); }), 9);
        QCOMPARE(errorNumber([&] { db->SetFlags(40000); }), 6);
        QCOMPARE(errorNumber([&] { db->SetTblFlags(1, -40000); }), 6);
        // Nothing was changed by the failed calls.
        QCOMPARE(db->GetTblFldVal(1, 5, 4), QString("Post"));
        db->SetFldAllRecsVal(1, 8, "3key", n);
        QCOMPARE(n, 5);
        QCOMPARE(db->GetTblFldValNm(1, 3, "image"), QString("3key"));
    }

    void accessTimeIsNotedByRecordReads() {
        TestEnv env;
        clsDatabasePtr db = sampleDb(env);
        db->SetDBLastAccess(-5);
        db->GetTblName(1);
        db->Name();
        db->GetTblTag(1);
        QCOMPARE(db->DBLastAccess(), -5);
        db->GetTblFldVal(1, 1, 1);
        QVERIFY(db->DBLastAccess() >= 0);
        db->SetDBLastAccess(-5);
        db->GetTblRecNum(1);
        QVERIFY(db->DBLastAccess() >= 0);
    }

    void searching() {
        TestEnv env;
        clsDatabasePtr db = sampleDb(env);
        const int title = db->FindField(1, "TITLE");
        QCOMPARE(title, 4);
        QCOMPARE(db->FindTable("datatable"), 1);
        QCOMPARE(db->FindField(1, "Nope"), 0);
        // FindRecord: part of the value, from Start on (inclusive), 0 when none.
        QCOMPARE(db->FindRecord(1, title, "ail", 0, true), 1);
        QCOMPARE(db->FindRecord(1, title, "ail", 1, true), 1);
        QCOMPARE(db->FindRecord(1, title, "ail", 2, true), 3);
        QCOMPARE(db->FindRecord(1, title, "ail", 4, true), 0);
        QCOMPARE(db->FindRecord(1, title, "MAIL", 1, true), 0);
        QCOMPARE(db->FindRecord(1, title, "MAIL", 2, false), 3);
        QCOMPARE(db->FindRecord(1, title, QStringLiteral("ЇЖ"), 1, false), 4);
        QCOMPARE(db->FindRecord(1, title, QStringLiteral("ЇЖ"), 1, true), 0);
        QCOMPARE(db->FindRecord(1, 99, "a", 1, false), 0);
        // GetRecNumFromVal: the whole value, exactly.
        QCOMPARE(db->GetRecNumFromVal(1, title, "mail", 1), 0);
        QCOMPARE(db->GetRecNumFromVal(1, title, "mail box", 1), 3);
        QCOMPARE(db->GetRecNumFromVal(1, 1, "2", 3), 0);
        QCOMPARE(db->GetRecNumFromVal(1, 1, "4", -7), 4);
    }

    void addingAndDeletingRecords() {
        TestEnv env;
        clsDatabasePtr db = sampleDb(env);
        QCOMPARE(db->AddRecord(1), 6);
        QCOMPARE(db->GetTblRecord(1, 6), QStringList(9, QString()));
        // A missing row (0) changes nothing.
        db->SetTblFldValNm(1, 0, "Title", "lost");
        QCOMPARE(db->FindRecord(1, 4, "lost", 1, true), 0);
        QCOMPARE(db->DeleteRec(1, 2), 1);
        QCOMPARE(db->GetTblRecNum(1), 5);
        QCOMPARE(db->GetTblFldVal(1, 2, 4), QString("mail box"));
        // Many at once, repeats and bad numbers ignored.
        QCOMPARE(db->DeleteRecs(1, {5, 1, 1, 0, 42, 3}), 3);
        QCOMPARE(db->GetTblRecNum(1), 2);
        QCOMPARE(db->GetTblFldVal(1, 1, 4), QString("mail box"));
        QCOMPARE(db->GetTblFldVal(1, 2, 4), QString("Post"));
    }

    void helpTables() {
        TestEnv env;
        clsDatabasePtr db = sampleDb(env);
        QCOMPARE(db->HTabNum(), 1);
        QCOMPARE(db->FindHTable("TYPE"), 1);
        QCOMPARE(db->GetHelpVal(1, "Type", 1), QString("Record"));
        QCOMPARE(db->GetHelpVal(1, "Title", 1), QString());
        QCOMPARE(db->FindHelpVal(1, 3, "1"), QString("Folder"));
        QCOMPARE(db->FindHelpVal(1, 3, "7"), QString());
        QCOMPARE(db->GetHelpValNum(1, "Record"), 2);
        QCOMPARE(db->GetHelpValNum(1, "None"), 0);
        QCOMPARE(db->GetHelpValNum(2, "Record"), 0);
        QCOMPARE(db->GetComplexFldVal(1, 2, 3), QString("Folder"));
        QCOMPARE(db->GetComplexFldVal(1, 2, 4), QString("Bank"));
    }

    void tablesToStringAndReadTables() {
        TestEnv env;
        clsDatabasePtr db = sampleDb(env);
        QString buf;
        QCOMPARE(db->TblsToString({"DataTable"}, buf, TblsFilter{}), 1);
        QVERIFY(buf.startsWith("[DataTable]\r\n0" + QString(QChar(kFldSep)) + "5\r\n0\r\nIndNum 69"));
        QVERIFY(buf.endsWith("[End DataTable]\r\n"));
        QCOMPARE(buf.count("\r\n"), 4 + 5 + 1);
        QCOMPARE(db->TblsToString({"Missing", "DataTable"}, buf, TblsFilter{}), 1);
        // A filter keeps the matching records and counts only them.
        QCOMPARE(db->TblsToString({"DataTable"}, buf, TblsFilter{3, "1", true}), 1);
        QVERIFY(buf.contains(QString(QChar(kFldSep)) + "2\r\n"));
        QVERIFY(buf.contains("Bank") && !buf.contains("Mail"));
        // ReadTables keeps only the tables asked for, of a file without a password.
        DatabaseRecord rec = db->DB();
        TableEntry other = rec.Tables[0];
        other.Name = "Other";
        rec.Tables.append(other);
        db->SetDB(rec);
        db->SaveDB(env.root() + "/two.bdb", QString(), false);
        TableEngine e;
        DatabaseRecord part;
        QCOMPARE(e.ReadTables(part, env.root() + "/two.bdb", {"other", "nothing"}), 1);
        QCOMPARE(part.Tables[0].Name, QString("Other"));
        QCOMPARE(part.Tables[0].RecNum(), 5);
        QCOMPARE(part.HTabNum(), 1);
        db->SaveDB(env.root() + "/two.bdb", "pw", false);
        QCOMPARE(e.ReadTables(part, env.root() + "/two.bdb", {"Other"}), -4);
        QCOMPARE(part.TabNum(), 0);
    }
};

ARGENT_TEST(DatabaseTest)
#include "tst_database.moc"
