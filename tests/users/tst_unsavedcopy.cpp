// The sealed copy of changes that could not be saved when the program ended: it comes
// back whole into a file that was changed and given a new password elsewhere, only with
// the password it was sealed with, and goes elsewhere when its first place cannot be
// written. The keys of an open user stay out of swap.

#include "records/RecordTree.h"
#include "storage/UserFile.h"
#include "storage/clsDatabase.h"
#include "tests/common/TestMain.h"
#include "tests/users/UsersTestKit.h"
#include "users/UnsavedCopy.h"
#include "users/UserSession.h"

#include "app/SecureMemory.h"
#include "tests/common/TestEnv.h"
#include <QDir>

#include <QFile>
#include <QFileInfo>
#include <QTest>

namespace {

const QString kOld = QStringLiteral("old password 1");
const QString kNew = QStringLiteral("new password 2");

// Titles of DataTable by identifier, as the user's file holds them with Typed.
QMap<QString, QString> titlesOnDisk(const QString& Typed) {
    DatabaseRecord rec;
    clsFileIdentity id;
    QMap<QString, QString> out;
    if (clsUserFile::Read(UsDBFilePath("anna"), GetTruePasw(HashString(Typed)), rec, id) != tbeOk)
        return out;
    for (const TableEntry& t : rec.Tables)
        if (t.Name == QLatin1String("DataTable"))
            for (const QStringList& row : t.Records.rows())
                out.insert(row.value(0), row.value(3));
    return out;
}

// anna with folders 1 "Mail", 2 "Work" and record 3 "Bank", saved with kOld and open.
void openAnna() {
    startFirstRun();
    const QString md5 = makeUser("anna", kOld);
    QCOMPARE(FullUserLoad("anna", md5), 0);
    AddFolderToDB("Mail", 0, GetNewIndNum(*CurUsDB));
    AddFolderToDB("Work", 0, GetNewIndNum(*CurUsDB));
    AddRecordToDB(*CurUsDB, "0", "Bank", "b", "secret", "");
    QVERIFY(UsSession().Save() >= 0);
}

} // namespace

class UnsavedCopyTest : public QObject {
    Q_OBJECT
private slots:
    void init() { SetUserView(nullptr); }

    // Changes open in one window, the file changed and given a new password by another
    // program: the copy holds the window's changes, and merged into the file they join
    // the other program's, each once.
    void copyMergesIntoAFileChangedElsewhere() {
        TestEnv env;
        openAnna();
        const QString oldMd5 = CurUsPasw;
        const clsDatabasePtr mine = CurUsDB;
        AddFolderToDB("Unsaved", 0, GetNewIndNum(*CurUsDB));
        ChangeDataTableField("IndNum", "1", "Title", "Mail (mine)");

        // The other program: deletes Work, renames Bank, changes the password.
        CurUsDB = std::make_shared<clsDatabase>();
        QCOMPARE(LoadUser(UsDBFilePath("anna"), GetTruePasw(oldMd5)), kUserLoaded);
        DelRecordTreeFromDataTable("IndNum", "2", "Parent");
        ChangeDataTableField("IndNum", "3", "Title", "Bank (theirs)");
        QVERIFY(UsSession().ChangeKey(kNew) >= 0);

        CurUsDB = mine;
        CurUsPasw = oldMd5;
        QCOMPARE(UsSession().Save(), int(usKeyChanged));
        bool unsaved = false;
        const QString copy = UsSession().KeepUnsavedCopy(&unsaved);
        QVERIFY(unsaved);
        QCOMPARE(copy, UsDBFilePath("anna") + ".unsaved");
        QCOMPARE(FindUnsavedCopy("anna"), copy);
        // Sealed: no title of the copy is readable in its bytes.
        QFile raw(copy);
        QVERIFY(raw.open(QIODevice::ReadOnly));
        QVERIFY(!raw.readAll().contains("Unsaved"));

        // The next start opens the file with its new password.
        UnloadUser();
        QCOMPARE(FullUserLoad("anna", HashString(kNew)), 0);
        QCOMPARE(MergeUnsavedCopy(copy, GetTruePasw(CurUsPasw), *CurUsDB), int(ucWrongKey));
        QCOMPARE(MergeUnsavedCopy(copy, GetTruePasw(HashString("not it either")), *CurUsDB), int(ucWrongKey));
        QCOMPARE(MergeUnsavedCopy(copy, GetTruePasw(HashString(kOld)), *CurUsDB), int(ucTaken));
        QVERIFY(CurUsDB->HasUnsavedChanges());
        QVERIFY(UsSession().Save() >= 0);
        const QMap<QString, QString> t = titlesOnDisk(kNew);
        QCOMPARE(t.value("1"), QStringLiteral("Mail (mine)"));
        QVERIFY(!t.contains("2"));
        QCOMPARE(t.value("3"), QStringLiteral("Bank (theirs)"));
        QCOMPARE(t.values().count("Unsaved"), 1);
        QCOMPARE(t.size(), 3);
        DropUnsavedCopy(copy);
        QVERIFY(FindUnsavedCopy("anna").isEmpty());
        QVERIFY(!QFile::exists(copy + "-base"));
        UnloadUser();
    }

    // A copy whose base is gone or cut is damaged, never merged as if everything in it
    // were new; nothing unsaved writes no copy.
    void damagedOrNeedlessCopies() {
        TestEnv env;
        openAnna();
        bool unsaved = true;
        QVERIFY(UsSession().KeepUnsavedCopy(&unsaved).isEmpty());
        QVERIFY(!unsaved);
        QVERIFY(FindUnsavedCopy("anna").isEmpty());

        AddFolderToDB("Unsaved", 0, GetNewIndNum(*CurUsDB));
        const QString copy = UsSession().KeepUnsavedCopy();
        QVERIFY(!copy.isEmpty());
        const QString base = UsDBFilePath("anna") + ".unsaved-base";
        QFile f(base);
        QVERIFY(f.open(QIODevice::ReadWrite));
        QVERIFY(f.resize(f.size() / 2));
        f.close();
        const int rows = CurUsDB->GetTblRecNum(CurUsDB->FindTable("DataTable"));
        QCOMPARE(MergeUnsavedCopy(copy, GetTruePasw(CurUsPasw), *CurUsDB), int(ucDamaged));
        QVERIFY(QFile::remove(base));
        QCOMPARE(MergeUnsavedCopy(copy, GetTruePasw(CurUsPasw), *CurUsDB), int(ucDamaged));
        QCOMPARE(CurUsDB->GetTblRecNum(CurUsDB->FindTable("DataTable")), rows);
        UnloadUser();
    }

    // Beside the user's file first, then in the per-user folder; with neither writable,
    // no copy and no half of one.
    void copyGoesWhereItCanBeWritten() {
        TestEnv env;
        openAnna();
        AddFolderToDB("Unsaved", 0, GetNewIndNum(*CurUsDB));
        const QStringList places = UnsavedCopyPlaces("anna");
        QCOMPARE(places.size(), 2);
        QVERIFY(QFileInfo(places[1]).absolutePath() != QFileInfo(places[0]).absolutePath());
        // A folder in the way of the first place: it cannot be written there.
        QVERIFY(QDir().mkpath(places[0]));
        QCOMPARE(UsSession().KeepUnsavedCopy(), places[1]);
        QCOMPARE(FindUnsavedCopy("anna"), places[1]);
        QCOMPARE(MergeUnsavedCopy(places[1], GetTruePasw(CurUsPasw), *CurUsDB), int(ucTaken));
        DropUnsavedCopy(places[1]);

        QVERIFY(QDir().mkpath(places[1]));
        QVERIFY(UsSession().KeepUnsavedCopy().isEmpty());
        QVERIFY(FindUnsavedCopy("anna").isEmpty());
        QVERIFY(!QFile::exists(UsDBFilePath("anna") + ".unsaved-base"));
        UnloadUser();
    }

    // The key and the password's MD5 text of an open user are locked in memory, and let go
    // with the user. (Pages are shared: the process's locked total need not grow for them.)
    void openUserIsLockedInMemory() {
        TestEnv env;
        openAnna();
        const void* key = CurUsDB->DBView().Key.get();
        const void* pasw = CurUsPasw.constData();
        QVERIFY(key && SecretIsLocked(key));
        QVERIFY(SecretIsLocked(pasw));
        QVERIFY2(vmLckKiB() > 0, qPrintable(QString::number(vmLckKiB())));
        UnloadUser();
        CurUsDB = std::make_shared<clsDatabase>();
        QVERIFY(!SecretIsLocked(key));
    }
};
ARGENT_TEST(UnsavedCopyTest)

#include "tst_unsavedcopy.moc"
