// The window with a user open while a sync engine drops conflict copies beside the file:
// written as a temporary file and renamed in a burst of events, merged once settled into
// what is open (unsaved changes included, nothing lost), moved to Backup/ once saved; a
// copy saved with another password asks for it once.

#include "mainwindow/frmMain.h"
#include "storage/UserFile.h"
#include "tests/common/TestMain.h"
#include "tests/mainwindow/MainTestKit.h"
#include "users/ConflictMerge.h"

#include <QDir>
#include <QFile>
#include <QInputDialog>
#include <QStatusBar>
#include <QTest>

#include <cstdio>

namespace {

// Another machine: anna's file as it is now, given a record Id, Title there (and the key Key
// when given), arriving as Name the way Syncthing writes: a temporary file renamed.
void arrive(const QString& Name, const QString& Id, const QString& Title, const QString& Key = {}) {
    const QString dir = QFileInfo(UsDBFilePath("anna")).absolutePath();
    const QString there = dir + "/../other-" + Title + ".bdb";
    QFile::remove(there);
    QVERIFY(QFile::copy(UsDBFilePath("anna"), there));
    clsUserFile file(there, GetTruePasw(HashString(kUserPasw)));
    clsDatabase db;
    QCOMPARE(file.Open(db), int(tbeOk));
    const int t = db.FindTable("DataTable");
    const int r = db.AddRecord(t);
    db.SetTblRecord(t, r, {Id, "0", "2", Title, "", "", "", "1key", "0|0"});
    db.SetTblTag(t, Id);
    QVERIFY(Key.isEmpty() ? file.Save(db) > 0 : file.SaveRekeyed(db, Key) > 0);
    const QString tmp = dir + "/.syncthing." + Name + ".tmp";
    QVERIFY(QFile::copy(there, tmp));
    for (int i = 0; i < 5; ++i) { // a burst of other events in the folder
        QFile f(dir + "/.syncthing.noise" + QString::number(i) + ".tmp");
        QVERIFY(f.open(QIODevice::WriteOnly));
    }
    QVERIFY(std::rename(QFile::encodeName(tmp).constData(),
                        QFile::encodeName(dir + "/" + Name).constData()) == 0);
}

bool hasTitle(const QString& Title) {
    const int t = CurUsDB->FindTable("DataTable");
    for (int r = 1; r <= CurUsDB->GetTblRecNum(t); ++r)
        if (CurUsDB->GetTblFldValNm(t, r, "Title") == Title)
            return true;
    return false;
}

} // namespace

class SyncWindowTest : public QObject {
    Q_OBJECT
private slots:
    void copiesMergeIntoTheOpenWindow() {
        TestEnv env;
        makeUser(env);
        SetCfgExtra(22, "0"); // the user saves by hand
        Script s;
        frmMain w;
        w.Form_Load();
        openUser();
        ChangeDataTableField("IndNum", "1", "Title", "Unsaved");
        const QString copy = QFileInfo(UsDBFilePath("anna")).absolutePath() +
                             "/anna.sync-conflict-20261124-211129-EEACIID.bdb";
        arrive(QFileInfo(copy).fileName(), "77", "Phone");
        QTRY_VERIFY_WITH_TIMEOUT(hasTitle("Phone"), 10000);
        QVERIFY(hasTitle("Unsaved"));
        QVERIFY(w.sbStatusBar->currentMessage().contains("anna.sync-conflict"));
        // Saved by the user: the copy then moves to the backup folder.
        QVERIFY(QFile::exists(copy));
        QVERIFY(w.SaveCurUser() >= 0);
        QTRY_VERIFY_WITH_TIMEOUT(!QFile::exists(copy), 10000);
        QCOMPARE(
            QDir(QFileInfo(copy).absolutePath() + "/Backup").entryList({"anna_merged-*.bdb.BACKUP"}).size(),
            1);

        // Saved elsewhere with another password: asked once; the right one merges it.
        int asked = 0;
        s.on = [&](QDialog& d) {
            if (auto* ask = qobject_cast<QInputDialog*>(&d)) {
                ++asked;
                ask->setTextValue("their password 2");
                ask->accept();
            }
        };
        const QString locked =
            QFileInfo(copy).absolutePath() + "/anna (conflicted copy 2026-11-24 211129).bdb";
        arrive(QFileInfo(locked).fileName(), "78", "Laptop", GetTruePasw(HashString("their password 2")));
        QTRY_VERIFY_WITH_TIMEOUT(hasTitle("Laptop"), 10000);
        QCOMPARE(asked, 1);
        QVERIFY(hasTitle("Phone") && hasTitle("Unsaved"));
        QTRY_VERIFY_WITH_TIMEOUT(!QFile::exists(locked), 10000);

        // A damaged copy: said in the status bar, left as it is, nothing changes.
        QFile user(UsDBFilePath("anna"));
        QVERIFY(user.open(QIODevice::ReadOnly));
        QByteArray bytes = user.readAll();
        user.close();
        bytes[bytes.size() / 2] = char(bytes[bytes.size() / 2] ^ 0x04);
        const QString broken = QFileInfo(copy).absolutePath() + "/anna_conflict-20261124-211129.bdb";
        writeFileText(broken, bytes);
        QTRY_VERIFY_WITH_TIMEOUT(w.sbStatusBar->currentMessage().contains("damaged"), 10000);
        QVERIFY(QFile::exists(broken));
        QVERIFY(hasTitle("Laptop") && !w.windowTitle().endsWith('*'));

        // Saving on every change: a copy with nothing new does not wait for the next save
        // when something not saved yet is in memory; both go to disk, and the copy moves.
        SetCfgExtra(22, "1");
        QVERIFY(QFile::remove(broken));
        QVERIFY(w.SaveCurUser() >= 0);
        const QString same =
            QFileInfo(copy).absolutePath() + "/anna.sync-conflict-20261125-060836-WSTPODK.bdb";
        QVERIFY(QFile::copy(UsDBFilePath("anna"), same));
        ChangeDataTableField("IndNum", "1", "Title", "Pending");
        QTRY_VERIFY_WITH_TIMEOUT(!QFile::exists(same), 10000);
        QVERIFY(!CurUsDB->HasUnsavedChanges());
        UnloadUser();
    }
};

ARGENT_TEST(SyncWindowTest)
#include "tst_syncwindow.moc"
