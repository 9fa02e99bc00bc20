// The user-file layer against a plain model. Two programs keep one user file open (each
// its own clsUserFile and database, as the window and argentpm would), and random runs of
// changes, saves, refreshes, a change of key by one of them, a deleted file and a full
// disk are checked step by step against maps of what the file and each program's memory
// must hold. Rows are told apart by their Login, which is never changed, so that rows the
// merge renumbers are still recognised.

#include "storage/TableFile.h"
#include "storage/UserFile.h"
#include "storage/clsDatabase.h"
#include "tests/common/FullDisk.h"
#include "tests/common/TestEnv.h"
#include "tests/common/TestMain.h"

#include <QDir>
#include <QFile>
#include <QMap>
#include <QRandomGenerator>
#include <QTest>

namespace {

using Rows = QMap<QString, QString>; // Login -> Title

const QByteArray kTemplate("wqpdhxMeM\r\nanna\x87"
                           "0\x87"
                           "1.1a\r\n[DataTable]\r\n0\x87"
                           "0\r\n0\r\nIndNum 69\x87Parent 5\x87Type 5\x87Title 66\x87Login 2\x87Password "
                           "2\x87"
                           "Description 2\x87Image 5\x87"
                           "Flags 5\r\n[End DataTable]\r\n");

// The three-way merge as a user sees it, on rows told apart by Login: a side's change is
// kept, ours where both changed a title, a delete wins only over a row left unchanged.
Rows mergeModel(const Rows& Base, const Rows& Ours, const Rows& Theirs) {
    Rows out;
    QSet<QString> keys;
    for (const Rows* m : {&Base, &Ours, &Theirs})
        for (auto it = m->begin(); it != m->end(); ++it)
            keys.insert(it.key());
    for (const QString& k : keys) {
        const bool b = Base.contains(k), o = Ours.contains(k), t = Theirs.contains(k);
        if (o && t)
            out[k] = Ours[k] != Base.value(k) || !b ? Ours[k] : Theirs[k];
        else if (o && (!b || Ours[k] != Base[k]))
            out[k] = Ours[k];
        else if (t && (!b || Theirs[k] != Base[k]))
            out[k] = Theirs[k];
    }
    return out;
}

Rows rowsOf(clsDatabase& Db) {
    Rows r;
    for (int i = 1; i <= Db.GetTblRecNum(1); ++i)
        r[Db.GetTblFldValNm(1, i, "Login")] = Db.GetTblFldValNm(1, i, "Title");
    return r;
}

// One program that keeps the user open, and what its memory and base must hold.
struct Program {
    clsDatabase Db;
    std::unique_ptr<clsUserFile> File;
    Rows Mem, Base;

    void Open(const QString& Path, const QString& Key) {
        File = std::make_unique<clsUserFile>(Path, Key);
        QCOMPARE(File->Open(Db), 1);
        Mem = Base = rowsOf(Db);
    }
    void Change(QRandomGenerator& Rng, int& Counter) {
        const int n = Db.GetTblRecNum(1);
        const int what = n == 0 ? 0 : Rng.bounded(3);
        if (what == 0) {
            const int rec = Db.AddRecord(1);
            const int id = Db.GetTblTag(1).toInt() + 1;
            Db.SetTblTag(1, QString::number(id));
            const QStringList row{QString::number(id),
                                  "0",
                                  "1",
                                  QString("title %1").arg(Counter),
                                  QString("row %1").arg(Counter),
                                  "pw",
                                  "",
                                  "1",
                                  "0"};
            Db.SetTblRecord(1, rec, row);
            Mem[row[4]] = row[3];
        } else if (what == 1) {
            const int rec = 1 + Rng.bounded(n);
            const QString title = QString("edit %1").arg(Counter);
            Db.SetTblFldValNm(1, rec, "Title", title);
            Mem[Db.GetTblFldValNm(1, rec, "Login")] = title;
        } else {
            const int rec = 1 + Rng.bounded(n);
            Mem.remove(Db.GetTblFldValNm(1, rec, "Login"));
            Db.DeleteRec(1, rec);
        }
        ++Counter;
    }
};

// The file and what it must hold; Key is the key it was last written with.
struct FileModel {
    QString Path, Key;
    bool Exists = true;
    Rows Held;

    void Check() const {
        DatabaseRecord rec;
        clsFileIdentity id;
        const int r = clsUserFile::Read(Path, Key, rec, id);
        if (!Exists) {
            QCOMPARE(r, int(tbeNoFile));
            return;
        }
        QCOMPARE(r, 1);
        clsDatabase db;
        db.SetDB(rec);
        QCOMPARE(rowsOf(db), Held);
    }
};

// A save of P, with the outcome the model gives. Full: the disk has no room left.
void save(Program& P, FileModel& F, bool Full, int Mode) {
    const bool keyOk = P.File->HasKey(F.Key);
    int r;
    if (Mode == 1)
        r = P.File->SaveRecreate(P.Db);
    else if (Mode == 2)
        r = P.File->SaveWithFileKey(P.Db, F.Key);
    else
        r = P.File->Save(P.Db);
    if (!F.Exists && Mode != 1) {
        QCOMPARE(r, int(usFileDeleted));
        return;
    }
    if (F.Exists && !keyOk && Mode != 2) {
        QCOMPARE(r, int(usKeyChanged));
        return;
    }
    if (F.Exists) {
        P.Mem = mergeModel(P.Base, P.Mem, F.Held);
        P.Base = F.Held;
    }
    if (Full) {
        QCOMPARE(r, int(usWriteFailed));
    } else {
        QVERIFY2(r == usSaved || r == usMerged, qPrintable(QString::number(r)));
        F.Held = P.Base = P.Mem;
        F.Exists = true;
    }
    QCOMPARE(rowsOf(P.Db), P.Mem);
}

void refresh(Program& P, FileModel& F) {
    const int r = P.File->Refresh(P.Db);
    if (!F.Exists) {
        QCOMPARE(r, int(usFileDeleted));
        return;
    }
    if (!P.File->HasKey(F.Key)) {
        QCOMPARE(r, int(usKeyChanged));
        return;
    }
    QVERIFY(r == usUnchanged || r == usTakenIn);
    P.Mem = mergeModel(P.Base, P.Mem, F.Held);
    P.Base = F.Held;
    QCOMPARE(rowsOf(P.Db), P.Mem);
}

} // namespace

class tst_UserFileModel : public QObject {
    Q_OBJECT
private slots:
    void randomRunsAgainstTheModel() {
        TestEnv env;
        const QString dir = env.root() + "/dbs";
        FullDisk disk(dir, 2 * 1024 * 1024);
        const QString keys[] = {QString(64, 'k'), QString(64, 'n')};
        for (quint32 seed = 1; seed <= 8; ++seed) {
            QRandomGenerator rng(seed);
            FileModel f{dir + "/anna.bdb", keys[0], true, {}};
            QByteArray tpl = kTemplate;
            DatabaseRecord start;
            QCOMPARE(ParseFileImage(tpl, QString(), start, nullptr), 1);
            clsFileIdentity written;
            QVERIFY(clsUserFile::Write(f.Path, start, f.Key, written));
            Program progs[2];
            progs[0].Open(f.Path, f.Key);
            progs[1].Open(f.Path, f.Key);
            bool full = false;
            int counter = 0;
            for (int step = 0; step < 40; ++step) {
                Program& p = progs[rng.bounded(2)];
                const int op = rng.bounded(100);
                const QByteArray before = readAllOf(f.Path);
                if (op < 40) {
                    p.Change(rng, counter);
                } else if (op < 70) {
                    disk.Run([&] { save(p, f, full, p.File->HasKey(f.Key) ? 0 : 2); });
                } else if (op < 80) {
                    refresh(p, f);
                } else if (op < 85 && f.Exists && !full && p.File->HasKey(f.Key)) {
                    // The other program changes the password: it writes what it holds
                    // merged with the file, under the new key.
                    save(p, f, false, 0);
                    if (QTest::currentTestFailed())
                        return;
                    const QString next = keys[f.Key == keys[0] ? 1 : 0];
                    QVERIFY(p.File->SaveRekeyed(p.Db, next) == usSaved);
                    f.Key = next;
                } else if (op < 89 && f.Exists) {
                    QVERIFY(QFile::remove(f.Path));
                    f.Exists = false;
                } else if (op < 93 && !f.Exists && !full) {
                    if (p.File->HasKey(f.Key)) {
                        QCOMPARE(p.File->SaveRecreate(p.Db), int(usSaved));
                        f.Held = p.Base = p.Mem;
                        f.Exists = true;
                    }
                } else if (disk.Mounted()) {
                    full = !full;
                    if (full)
                        disk.Fill();
                    else
                        QFile::remove(dir + "/filler");
                }
                if (QTest::currentTestFailed())
                    return;
                // A failed write leaves the old file byte for byte.
                if (full && f.Exists)
                    QCOMPARE(readAllOf(f.Path), before);
                f.Check();
                // Nothing is left behind: no half-written file, no deciphered copy.
                QStringList left = QDir(dir).entryList(QDir::Files | QDir::Hidden);
                left.removeAll("anna.bdb");
                left.removeAll(".anna.bdb.lock");
                left.removeAll("filler");
                QCOMPARE(left, QStringList());
                if (QTest::currentTestFailed()) {
                    qWarning("seed %u step %d op %d", seed, step, op);
                    return;
                }
            }
            if (full)
                QFile::remove(dir + "/filler");
            QFile::remove(f.Path);
        }
    }
};

ARGENT_TEST(tst_UserFileModel)
#include "tst_userfile.moc"
