// Conflict copies a sync engine leaves beside a user's file, merged into the user: with the
// version both sides started from (kept on this computer) and without one, records added,
// edited, moved and deleted on either side, a folder deleted on one side while the other
// adds into it, a copy under another password, a damaged one, several at once, a copy
// arriving over unsaved changes, and another machine's version put in place of the file.

#include "records/RecordTree.h"
#include "storage/FileLineage.h"
#include "storage/UserFile.h"
#include "storage/clsDatabase.h"
#include "tests/common/TestMain.h"
#include "tests/users/UsersTestKit.h"
#include "users/ConflictMerge.h"
#include "users/UserSession.h"

#include <QDir>
#include <QFile>
#include <QTest>

#include <functional>

namespace {

const QString kTyped = QStringLiteral("pat password 1");
using Change = std::function<void(clsDatabase&)>;

int tbl(clsDatabase& Db) {
    return Db.FindTable("DataTable");
}
QString add(clsDatabase& Db, const QString& Parent, const QString& Title, bool Folder = false) {
    const QString id = GetNewIndNum(Db);
    addRow(Db, id.toInt(), Parent.toInt(), Folder ? "1" : "2", Title);
    return id;
}
void set(clsDatabase& Db, const QString& Id, const QString& Field, const QString& Value) {
    Db.SetTblFldValNm(tbl(Db), FindDataRow(Db, Id), Field, Value);
}
void del(clsDatabase& Db, const QString& Id) {
    Db.DeleteRec(tbl(Db), FindDataRow(Db, Id));
}
// "title@parent-title" of every row, sorted: what the user sees, whatever the identifiers.
QStringList tree(clsDatabase& Db) {
    QStringList out;
    const int t = tbl(Db);
    for (int r = 1; r <= Db.GetTblRecNum(t); ++r) {
        const QString parent = Db.GetTblFldValNm(t, r, "Parent");
        const int p = parent == "0" ? 0 : FindDataRow(Db, parent);
        out << Db.GetTblFldValNm(t, r, "Title") + "/" + Db.GetTblFldValNm(t, r, "Login") + "@" +
                   (p ? Db.GetTblFldValNm(t, p, "Title") : QString("root"));
    }
    out.sort();
    return out;
}
QByteArray bytesOf(const QString& Path) {
    QFile f(Path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}
QString folderOfUsers() {
    return QFileInfo(UsDBFilePath("pat")).absolutePath() + "/";
}

// pat, open, saved: folder Mail with records Inbox and Spam, folder Bank with Card, Old at
// the root. Returns the identifiers by title.
QHash<QString, QString> openPat() {
    startFirstRun();
    const QString md5 = makeUser("pat", kTyped);
    [&] { QCOMPARE(FullUserLoad("pat", md5), 0); }();
    QHash<QString, QString> ids;
    ids["Mail"] = add(*CurUsDB, "0", "Mail", true);
    ids["Inbox"] = add(*CurUsDB, ids["Mail"], "Inbox");
    ids["Spam"] = add(*CurUsDB, ids["Mail"], "Spam");
    ids["Bank"] = add(*CurUsDB, "0", "Bank", true);
    ids["Card"] = add(*CurUsDB, ids["Bank"], "Card");
    ids["Old"] = add(*CurUsDB, "0", "Old");
    [&] { QVERIFY(UsSession().Save() >= 0); }();
    return ids;
}

// Another machine: the user's file as it is now, changed there and saved (with Key),
// arriving as CopyName beside the user's file. Returns the copy's path.
QString otherMachine(const Change& Do, const QString& CopyName, const QString& Key = {}) {
    const QString dir = QFileInfo(folderOfUsers() + "../machine-" + CopyName.left(12)).absoluteFilePath();
    QDir().mkpath(dir);
    const QString there = dir + "/pat.bdb";
    QFile::remove(there);
    QFile::copy(UsDBFilePath("pat"), there);
    clsUserFile file(there, GetTruePasw(CurUsPasw));
    clsDatabase db;
    if (file.Open(db) != tbeOk)
        return {};
    Do(db);
    if (!Key.isEmpty() ? file.SaveRekeyed(db, Key) < 0 : file.Save(db) < 0)
        return {};
    const QString copy = folderOfUsers() + CopyName;
    QFile::copy(there, copy);
    return copy;
}

const QString kCopy1 = QStringLiteral("pat.sync-conflict-20261124-211129-EEACIID.bdb");
const QString kCopy2 = QStringLiteral("pat (conflicted copy 2026-11-24 211129).bdb");
const QString kCopy3 = QStringLiteral("pat (laptop's conflicted copy 2026-11-24) (1).bdb");

// Both sides change pat. Theirs adds Shop into Mail, retitles Inbox, moves Spam into Bank,
// deletes Card and sets Old's login; ours adds Tax at the root (the same new identifier),
// sets Inbox's login and Old's, and deletes Spam.
struct TwoSides {
    QHash<QString, QString> ids;
    QString copy;
};
TwoSides changeOnBothSides() {
    TwoSides s;
    s.ids = openPat();
    const QHash<QString, QString>& ids = s.ids;
    s.copy = otherMachine(
        [&](clsDatabase& db) {
            add(db, ids["Mail"], "Shop");
            set(db, ids["Inbox"], "Title", "Inbox B");
            MoveRecordTree(db, ids["Spam"], ids["Bank"]);
            del(db, ids["Card"]);
            set(db, ids["Old"], "Login", "theirs");
        },
        kCopy1);
    add(*CurUsDB, "0", "Tax");
    set(*CurUsDB, ids["Inbox"], "Login", "ours");
    set(*CurUsDB, ids["Old"], "Login", "mine");
    del(*CurUsDB, ids["Spam"]); // deleted here, moved there: kept, moved
    [&] { QVERIFY(UsSession().Save() >= 0); }();
    return s;
}

} // namespace

class ConflictMergeTest : public QObject {
    Q_OBJECT
private slots:
    void init() { SetUserView(nullptr); }
    // No key of these tests stays locked in memory for the tests after them.
    void cleanup() {
        UnloadUser();
        CurUsDB = std::make_shared<clsDatabase>();
    }

    // With the version both started from: every change of both sides, deletions included;
    // the copy becomes a backup copy that opens as the other machine saved it.
    void threeWayWithTheKeptBase() {
        TestEnv env;
        const TwoSides s = changeOnBothSides();
        QVERIFY(!s.copy.isEmpty());
        const QByteArray theirs = bytesOf(s.copy);
        StrMass users;
        FindUsers(folderOfUsers(), users);
        for (int i = 1; i <= users.UBound(); ++i)
            QVERIFY(users[i] == "pat" || users[i] == "SampleUser");
        int save = 0;
        const QList<clsCopyMerge> done = MergeCopiesOfOpenUser({}, save);
        QCOMPARE(done.size(), 1);
        QCOMPARE(done[0].Result, int(ccMerged));
        QCOMPARE(done[0].Kind, mkAncestor);
        QVERIFY(save > 0);
        QStringList want{"Bank/@root", "Inbox B/ours@Mail", "Mail/@root", "Old/mine@root",
                         "Shop/@Mail", "Spam/@Bank",        "Tax/@root"};
        want.sort();
        QCOMPARE(tree(*CurUsDB), want);
        QVERIFY(!QFile::exists(s.copy));
        QVERIFY(UserConflictCopies("pat").isEmpty());
        QVERIFY(done[0].MovedTo.startsWith(folderOfUsers() + "Backup/pat_merged-"));
        QCOMPARE(bytesOf(done[0].MovedTo), theirs);
        // What was saved is what the file holds now.
        QVERIFY(UsSession().Refresh() >= 0);
        QCOMPARE(tree(*CurUsDB).size(), 7);
    }

    // Without it: nothing is dropped. Rows both sides hold differently stay as ours are, and
    // theirs come beside them as "(conflict copy DATE)"; deletions come back.
    void twoWayWithoutABase() {
        TestEnv env;
        const TwoSides s = changeOnBothSides();
        QVERIFY(QDir(KeptVersionsFolder(UsDBFilePath("pat"))).removeRecursively());
        int save = 0;
        const QList<clsCopyMerge> done = MergeCopiesOfOpenUser({}, save);
        QCOMPARE(done.value(0).Result, int(ccMerged));
        QCOMPARE(done[0].Kind, mkTwoWay);
        const QString date = QFileInfo(done[0].MovedTo).lastModified().date().toString(Qt::ISODate);
        const QString cc = " (conflict copy " + date + ")";
        // Shop and Tax were both new under one identifier: without a base that is a row
        // both sides hold differently, so Shop comes as a copy too.
        QStringList want{"Bank/@root",      "Card/@Bank",
                         "Inbox/ours@Mail", "Inbox B" + cc + "/@Mail",
                         "Mail/@root",      "Old" + cc + "/theirs@root",
                         "Old/mine@root",   "Shop" + cc + "/@Mail",
                         "Spam/@Bank",      "Tax/@root"};
        want.sort();
        QCOMPARE(tree(*CurUsDB), want);
        QVERIFY(!QFile::exists(s.copy));
    }

    // A folder deleted here while the other machine added into it: with a base the record
    // stays, under the root; without one the folder comes back with it.
    void folderDeletedWhileTheOtherAddsInto_data() {
        QTest::addColumn<bool>("base");
        QTest::newRow("with base") << true;
        QTest::newRow("without") << false;
    }
    void folderDeletedWhileTheOtherAddsInto() {
        QFETCH(bool, base);
        TestEnv env;
        const QHash<QString, QString> ids = openPat();
        const QString copy = otherMachine([&](clsDatabase& db) { add(db, ids["Bank"], "Loan"); }, kCopy2);
        QCOMPARE(DelRecordTreeFromDataTable("IndNum", ids["Bank"], "Parent"), 2);
        QVERIFY(UsSession().Save() >= 0);
        if (!base)
            QDir(KeptVersionsFolder(UsDBFilePath("pat"))).removeRecursively();
        int save = 0;
        QCOMPARE(MergeCopiesOfOpenUser({}, save).value(0).Result, int(ccMerged));
        const QStringList t = tree(*CurUsDB);
        QCOMPARE(t.contains("Loan/@root"), base);
        QCOMPARE(t.contains("Loan/@Bank") && t.contains("Card/@Bank"), !base);
        QVERIFY(!QFile::exists(copy));
    }

    // Another password: left, reported, nothing changed, until that password is given. A
    // damaged copy: left, reported, nothing changed.
    void otherPasswordAndDamagedCopiesAreLeftAlone() {
        TestEnv env;
        const QHash<QString, QString> ids = openPat();
        const QString theirKey = GetTruePasw(HashString("changed over there"));
        const QString locked = otherMachine([&](clsDatabase& db) { add(db, "0", "Far"); }, kCopy1, theirKey);
        QByteArray damagedBytes;
        const QString damaged = otherMachine([&](clsDatabase& db) { add(db, "0", "Near"); }, kCopy2);
        damagedBytes = bytesOf(damaged);
        damagedBytes[damagedBytes.size() / 2] = char(damagedBytes[damagedBytes.size() / 2] ^ 0x20);
        QFile f(damaged);
        QVERIFY(f.open(QIODevice::WriteOnly) && f.write(damagedBytes) == damagedBytes.size());
        f.close();
        const QByteArray before = bytesOf(UsDBFilePath("pat"));
        int save = 0;
        QList<clsCopyMerge> done = MergeCopiesOfOpenUser({}, save);
        QCOMPARE(done.size(), 2);
        QSet<int> results{done[0].Result, done[1].Result};
        QCOMPARE(results, (QSet<int>{ccWrongKey, ccDamaged}));
        QCOMPARE(save, int(usUnchanged));
        QCOMPARE(bytesOf(UsDBFilePath("pat")), before);
        QCOMPARE(bytesOf(damaged), damagedBytes);
        QVERIFY(QFile::exists(locked));
        QVERIFY(!DescribeCopyMerge(done[0]).isEmpty());
        // With the other machine's password it merges.
        done = MergeCopiesOfOpenUser({locked}, save, theirKey);
        QCOMPARE(done.value(0).Result, int(ccMerged));
        QVERIFY(tree(*CurUsDB).contains("Far/@root"));
        QVERIFY(!QFile::exists(locked));
        QVERIFY(QFile::exists(damaged));
    }

    // Three copies at once, one save, each copy a backup copy; merging a copy that holds
    // nothing new writes nothing (two machines merging one copy make no new conflict).
    void threeCopiesAtOnceAndNothingTwice() {
        TestEnv env;
        const QHash<QString, QString> ids = openPat();
        otherMachine([&](clsDatabase& db) { add(db, "0", "One"); }, kCopy1);
        otherMachine([&](clsDatabase& db) { set(db, ids["Inbox"], "Login", "two"); }, kCopy2);
        otherMachine([&](clsDatabase& db) { del(db, ids["Old"]); }, kCopy3);
        const quint64 count = CurUsDB->DBView().SaveNum;
        int save = 0;
        const QList<clsCopyMerge> done = MergeCopiesOfOpenUser({}, save);
        QCOMPARE(done.size(), 3);
        for (const clsCopyMerge& m : done) {
            QCOMPARE(m.Result, int(ccMerged));
            QVERIFY(QFile::exists(m.MovedTo));
        }
        // One save, counting one past the copies (each one past the base).
        QCOMPARE(CurUsDB->DBView().SaveNum, count + 2);
        const QStringList t = tree(*CurUsDB);
        QVERIFY(t.contains("One/@root") && t.contains("Inbox/two@Mail") && !t.join(",").contains("Old"));
        // The other machine merged the same and saved: its version arrives as a copy.
        const QString same = otherMachine([](clsDatabase&) {}, kCopy1);
        const QByteArray file = bytesOf(UsDBFilePath("pat"));
        const QList<clsCopyMerge> again = MergeCopiesOfOpenUser({}, save);
        QCOMPARE(again.value(0).Result, int(ccNothingNew));
        QCOMPARE(bytesOf(UsDBFilePath("pat")), file);
        QVERIFY(!QFile::exists(same));
    }

    // Unsaved changes in memory: the copy joins them, nothing is lost, and it stays beside
    // the file until the save; then it moves.
    void copyOverUnsavedChanges() {
        TestEnv env;
        const QHash<QString, QString> ids = openPat();
        const QString copy = otherMachine([&](clsDatabase& db) { add(db, ids["Mail"], "Theirs"); }, kCopy1);
        add(*CurUsDB, "0", "Unsaved");
        const QByteArray file = bytesOf(UsDBFilePath("pat"));
        int save = 0;
        QCOMPARE(MergeCopiesOfOpenUser({}, save, {}, false).value(0).Result, int(ccMerged));
        QVERIFY(tree(*CurUsDB).contains("Unsaved/@root") && tree(*CurUsDB).contains("Theirs/@Mail"));
        QCOMPARE(bytesOf(UsDBFilePath("pat")), file);
        QVERIFY(QFile::exists(copy));
        QVERIFY(UsSession().Save() >= 0);
        QCOMPARE(MergeCopiesOfOpenUser({}, save, {}, false).value(0).Result, int(ccNothingNew));
        QVERIFY(!QFile::exists(copy));
    }

    // A sync engine puts the other machine's version in place of the file while it is open
    // here: it merges with the version both started from, and no change of ours goes.
    void anotherMachinesVersionInPlaceOfTheFile() {
        TestEnv env;
        const QHash<QString, QString> ids = openPat();
        const QString copy = otherMachine(
            [&](clsDatabase& db) {
                add(db, "0", "There");
                del(db, ids["Card"]);
            },
            kCopy1);
        add(*CurUsDB, "0", "Here");
        del(*CurUsDB, ids["Old"]);
        QVERIFY(UsSession().Save() >= 0);
        // The engine renames its version over the file, with a lower save count than ours.
        QVERIFY(std::rename(QFile::encodeName(copy).constData(),
                            QFile::encodeName(UsDBFilePath("pat")).constData()) == 0);
        QCOMPARE(UsSession().Refresh(), int(usTakenIn));
        QStringList want{"Bank/@root", "Here/@root", "Inbox/@Mail",
                         "Mail/@root", "Spam/@Mail", "There/@root"};
        want.sort();
        QCOMPARE(tree(*CurUsDB), want);
        QVERIFY(CurUsDB->HasUnsavedChanges());
        QVERIFY(UsSession().Save() >= 0);
    }
};

ARGENT_TEST(ConflictMergeTest)
#include "tst_conflictmerge.moc"
