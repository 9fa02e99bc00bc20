// The user-file layer against an older copy put back: told apart by its save count, which
// the object remembers and this computer remembers beside the settings file (written with
// the checked write). Forged and damaged files are driven through argentpm and the window.

#include "app/ProgConfig.h"
#include "storage/FileVersionsSeen.h"
#include "storage/TableFile.h"
#include "storage/UserFile.h"
#include "storage/clsDatabase.h"
#include "tests/common/FullDisk.h"
#include "tests/common/TestEnv.h"
#include "tests/common/TestMain.h"

#include <QTest>

namespace {

const QString kKey = QStringLiteral("the file key");

const QByteArray kBody("anna\x87"
                       "0\x87"
                       "1.1a\r\n[DataTable]\r\n0\x87"
                       "1\r\n1\r\nIndNum 69\x87Parent 5\x87Type 5\x87Title 66\x87Login 2\x87Password 2\x87"
                       "Description 2\x87Image 5\x87"
                       "Flags 5\r\n"
                       "1\x87"
                       "0\x87"
                       "1\x87Mail\x87\x87\x87\x87"
                       "2key\x87"
                       "0|0\r\n[End DataTable]\r\n");

DatabaseRecord recordOf(const QByteArray& Body) {
    DatabaseRecord rec;
    ParseBody(Body, 0, rec, nullptr);
    return rec;
}

QString titleIn(const clsDatabase& Db) {
    clsDatabase copy;
    copy.SetDB(Db.DBView());
    return copy.GetTblFldValNm(1, 1, "Title");
}

struct OpenUser {
    clsDatabase Db;
    clsUserFile File;
    explicit OpenUser(const QString& Path) : File(Path, kKey) {}
};

} // namespace

class tst_OlderFile : public QObject {
    Q_OBJECT
private slots:
    // Every save counts one up; a file whose count is lower than one seen is refused by
    // saves and refreshes until the user keeps one side. Without settings the object's
    // own memory serves; with them, this computer's.
    void olderFileIsToldApartBySaveCount_data() {
        QTest::addColumn<bool>("remembered");
        QTest::newRow("by the object") << false;
        QTest::newRow("by this computer") << true;
    }
    void olderFileIsToldApartBySaveCount() {
        QFETCH(bool, remembered);
        TestEnv env;
        const QString saved = ProgCfgPath;
        ProgCfgPath = remembered ? env.root() + "/cfg/config.dat" : QString();
        QDir().mkpath(env.root() + "/cfg");
        const QString path = env.root() + "/anna.bdb";
        OpenUser a(path);
        a.Db.SetDB(recordOf(kBody));
        QCOMPARE(a.File.Save(a.Db), int(usSaved));
        const QByteArray old = readAllOf(path);
        a.Db.SetTblFldValNm(1, 1, "Title", "newer");
        QCOMPARE(a.File.Save(a.Db), int(usSaved));
        QCOMPARE(a.Db.DBView().SaveNum, quint64(2));
        QCOMPARE(SeenSaveNum(path).value_or(0), quint64(remembered ? 2 : 0));

        writeFileText(path, old);
        QCOMPARE(a.File.Refresh(a.Db), int(usOlderFile));
        QCOMPARE(a.File.Save(a.Db), int(usOlderFile));
        QVERIFY(a.File.OlderThanSeen());
        QCOMPARE(a.File.OlderNum(), quint64(1));
        QCOMPARE(readAllOf(path), old);
        QCOMPARE(titleIn(a.Db), QString("newer"));
        // Keep the newer: written over the older one, counted past both.
        QCOMPARE(a.File.SaveOver(a.Db), int(usSaved));
        QCOMPARE(a.Db.DBView().SaveNum, quint64(3));
        QVERIFY(!a.File.OlderThanSeen());

        // Another program on this computer opens an older copy: it is said at once.
        writeFileText(path, old);
        OpenUser b(path);
        QCOMPARE(b.File.Open(b.Db), 1);
        QCOMPARE(b.File.OlderThanSeen(), remembered);
        if (remembered) {
            QCOMPARE(b.File.Save(b.Db), int(usOlderFile));
            b.File.AcceptOlder();
            QCOMPARE(b.File.Save(b.Db), int(usSaved));
            QCOMPARE(SeenSaveNum(path).value_or(0), quint64(2));
        }
        // Accepting the older in the first program takes it in and saves on from it.
        QCOMPARE(a.File.Refresh(a.Db), remembered ? int(usTakenIn) : int(usOlderFile));
        if (!remembered) {
            a.File.AcceptOlder();
            QCOMPARE(a.File.Refresh(a.Db), int(usTakenIn));
        }
        QCOMPARE(titleIn(a.Db), QString("Mail"));
        // A restore resets what is remembered: whatever the copy counts is taken.
        if (remembered) {
            writeFileText(path, old);
            QVERIFY(ResetSaveNum(path, 0));
            OpenUser c(path);
            QCOMPARE(c.File.Open(c.Db), 1);
            QVERIFY(!c.File.OlderThanSeen());
        }
        ProgCfgPath = saved;
    }

    // The remembered counts are written with the checked write: a full disk keeps the
    // old ones whole, and the user file's own save is not held up by it.
    void rememberedCountsSurviveAFullDisk() {
        TestEnv env;
        const QString saved = ProgCfgPath;
        const QString cfg = env.root() + "/cfg";
        FullDisk full(cfg, 64 * 1024);
        ProgCfgPath = cfg + "/config.dat";
        const QString path = env.root() + "/anna.bdb";
        OpenUser a(path);
        a.Db.SetDB(recordOf(kBody));
        QCOMPARE(a.File.Save(a.Db), int(usSaved));
        const QByteArray before = readAllOf(cfg + "/" + kFileVersionsName);
        QVERIFY(!before.isEmpty());
        full.Fill();
        const int r = full.Run([&] { return a.File.Save(a.Db); });
        if (full.Mounted())
            QCOMPARE(r, int(usSaved));
        QCOMPARE(readAllOf(cfg + "/" + kFileVersionsName), before);
        QCOMPARE(SeenSaveNum(path).value_or(0), quint64(1));
        ProgCfgPath = saved;
    }
};

ARGENT_TEST(tst_OlderFile)
#include "tst_olderfile.moc"
