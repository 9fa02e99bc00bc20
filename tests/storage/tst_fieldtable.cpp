// The field table beside DataTable, through the user-file layer: two programs keep one
// user file open, change records' fields and save; what the file holds afterwards.

#include "storage/FieldTable.h"
#include "storage/TableFile.h"
#include "storage/UserFile.h"
#include "storage/clsDatabase.h"
#include "tests/common/FullDisk.h"
#include "tests/common/TestEnv.h"
#include "tests/common/TestMain.h"

#include <QFile>
#include <QTest>

namespace {

const QByteArray kFile("wqpdhxMeM\r\nanna\x87"
                       "0\x87"
                       "1.1a\r\n[DataTable]\r\n0\x87"
                       "3\r\n3\r\nIndNum 69\x87Parent 5\x87Type 5\x87Title 66\x87Login 2\x87Password 2\x87"
                       "Description 2\x87Image 5\x87"
                       "Flags 5\r\n"
                       "1\x87"
                       "0\x87"
                       "1\x87Mail\x87\x87\x87\x87"
                       "2key\x87"
                       "0\r\n"
                       "2\x87"
                       "1\x87"
                       "2\x87Post\x87"
                       "anna\x87pw2\x87\x87"
                       "1key\x87"
                       "0\r\n"
                       "3\x87"
                       "1\x87"
                       "2\x87"
                       "Bank\x87"
                       "a.b\x87pw3\x87note\x87"
                       "1key\x87"
                       "0\r\n"
                       "[End DataTable]\r\n");
const QString kKey(64, 'k');

struct Program {
    clsDatabase Db;
    std::unique_ptr<clsUserFile> File;
    void Open(const QString& Path) {
        File = std::make_unique<clsUserFile>(Path, kKey);
        QCOMPARE(File->Open(Db), 1);
    }
    int Save() { return File->Save(Db); }
    RecExtras Get(const QString& Id) const { return ReadRecExtras(Db.DBView(), Id); }
    int Row(const QString& Id) { return Db.GetRecNumFromVal(1, 1, Id, 1); }
    void SetPasw(const QString& Id, const QString& Pasw) {
        const int rec = Row(Id);
        AddPaswHistory(Db, Id, Db.GetTblFldValNm(1, rec, "Password"), QDateTime::currentDateTimeUtc(), 10);
        Db.SetTblFldValNm(1, rec, "Password", Pasw);
    }
};

DatabaseRecord readFile(const QString& Path) {
    DatabaseRecord rec;
    clsFileIdentity id;
    const int r = clsUserFile::Read(Path, kKey, rec, id);
    if (r != 1)
        qWarning("read %d", r);
    return rec;
}

QStringList customNames(const RecExtras& Ex) {
    QStringList n;
    for (const RecCustomField& f : Ex.Custom)
        n << f.Name + '=' + f.Value + (f.Hidden ? "*" : "");
    return n;
}

RecExtras sample() {
    RecExtras ex;
    ex.Url = "https://post.example";
    ex.Otp = "otpauth://totp/x?secret=JBSWY3DPEHPK3PXP";
    ex.Custom = {{"PIN", "1234", true, {}}, {"Question", "first pet", false, {}}};
    return ex;
}

} // namespace

class tst_FieldTable : public QObject {
    Q_OBJECT

    TestEnv m_env;
    QString m_path;

    void freshFile() {
        m_path = m_env.root() + "/anna.bdb";
        QFile::remove(m_path);
        QByteArray image = kFile;
        DatabaseRecord start;
        QCOMPARE(ParseFileImage(image, QString(), start, nullptr), 1);
        clsFileIdentity written;
        QVERIFY(clsUserFile::Write(m_path, start, kKey, written));
    }

private slots:
    // A file without the table stays one; with the table, DataTable is what it was.
    void oldFileOpensAndSavesUnchanged() {
        freshFile();
        const DatabaseRecord before = readFile(m_path);
        Program p;
        p.Open(m_path);
        QVERIFY(p.Get("2").IsEmpty());
        WriteRecExtras(p.Db, "2", RecExtras());
        AddPaswHistory(p.Db, "2", QString(), QDateTime::currentDateTimeUtc(), 10);
        AddPaswHistory(p.Db, "2", "kept nowhere", QDateTime::currentDateTimeUtc(), 0);
        QCOMPARE(p.Db.TabNum(), 1);
        p.Db.SetTblFldValNm(1, 2, "Title", "Post office");
        QCOMPARE(p.Save(), int(usSaved));
        DatabaseRecord after = readFile(m_path);
        QCOMPARE(after.TabNum(), 1);

        WriteRecExtras(p.Db, "2", sample());
        p.SetPasw("2", "new");
        QCOMPARE(p.Save(), int(usSaved));
        after = readFile(m_path);
        QCOMPARE(after.TabNum(), 2);
        QCOMPARE(after.Tables[0].Caption, before.Tables[0].Caption);
        QCOMPARE(after.Tables[0].Tag, before.Tables[0].Tag);
        QCOMPARE(after.Tables[0].RecNum(), 3);
        QCOMPARE(after.Tables[0].Records.value(1, 5), QString("new"));
        const RecExtras got = ReadRecExtras(after, "2");
        QCOMPARE(got.Url, sample().Url);
        QCOMPARE(got.Otp, sample().Otp);
        QCOMPARE(customNames(got), QStringList({"PIN=1234*", "Question=first pet"}));
        QCOMPARE(got.History.size(), 1);
        QCOMPARE(got.History[0].Pasw, QString("pw2"));
        QVERIFY(ReadRecExtras(after, "3").IsEmpty());
    }

    // Rewriting a set changes only the rows that differ; renames keep the row's key.
    void rewriteKeepsRowsAndHistoryIsCapped() {
        freshFile();
        Program p;
        p.Open(m_path);
        WriteRecExtras(p.Db, "3", sample());
        RecExtras ex = p.Get("3");
        const QString pinKey = ex.Custom[0].Key;
        ex.Custom[0].Name = "Card PIN";
        ex.Custom.removeAt(1);
        ex.Custom.append({"Account", "99", false, {}});
        ex.Url.clear();
        WriteRecExtras(p.Db, "3", ex);
        const RecExtras got = p.Get("3");
        QCOMPARE(customNames(got), QStringList({"Card PIN=1234*", "Account=99"}));
        QCOMPARE(got.Custom[0].Key, pinKey);
        QVERIFY(got.Url.isEmpty());
        QCOMPARE(got.Otp, sample().Otp);

        for (int i = 0; i < 5; ++i)
            AddPaswHistory(p.Db, "3", QString("old%1").arg(i),
                           QDateTime(QDate(2024, 1, 1 + i), QTime(8, 0), Qt::UTC), 3);
        QStringList kept;
        for (const RecOldPasw& h : p.Get("3").History)
            kept << h.Pasw;
        QCOMPARE(kept, QStringList({"old4", "old3", "old2"})); // newest first, the oldest gone
        QCOMPARE(DropRecExtras(p.Db, {"3"}), 6);               // seed, two fields, three earlier passwords
        QVERIFY(p.Get("3").IsEmpty());
    }

    // Two programs change fields of one file; each change survives the other's save.
    void mergeKeepsBothSidesChanges() {
        freshFile();
        Program a, b;
        a.Open(m_path);
        WriteRecExtras(a.Db, "2", sample());
        QCOMPARE(a.Save(), int(usSaved));
        b.Open(m_path);

        RecExtras ea = a.Get("2"), eb = b.Get("2");
        ea.Url = "https://a.example";          // one side only
        ea.Custom[1].Value = "second pet (a)"; // both sides, different values
        eb.Custom[1].Value = "second pet (b)";
        eb.Custom[0].Hidden = false;                     // the other side only
        eb.Custom.append({"Extra", "from b", true, {}}); // added on one side
        WriteRecExtras(a.Db, "2", ea);
        WriteRecExtras(b.Db, "2", eb);
        a.SetPasw("2", "pw-a");
        b.SetPasw("2", "pw-b");
        WriteRecExtras(b.Db, "3", {"https://bank.example", {}, {}, {}});
        QCOMPARE(a.Save(), int(usSaved));
        QCOMPARE(b.Save(), int(usMerged));

        const DatabaseRecord file = readFile(m_path);
        const RecExtras got = ReadRecExtras(file, "2");
        QCOMPARE(got.Url, QString("https://a.example"));
        QCOMPARE(customNames(got), QStringList({"PIN=1234", "Question=second pet (b)", "Extra=from b*"}));
        QCOMPARE(file.Tables[0].Records.value(1, 5), QString("pw-b")); // ours wins the password...
        QStringList history;
        for (const RecOldPasw& h : got.History)
            history << h.Pasw;
        history.sort();
        // ... and the history is the union of both sides plus the password that lost.
        QCOMPARE(history, QStringList({"pw-a", "pw2"}));
        QCOMPARE(ReadRecExtras(file, "3").Url, QString("https://bank.example"));
    }

    // Opening a user does not split the field table into rows: a save that did not touch
    // it writes its lines as they were read, and a merge with a file changed elsewhere
    // still takes in the other side's fields.
    void untouchedFieldsAreSavedAsRead() {
        freshFile();
        Program a, b;
        a.Open(m_path);
        WriteRecExtras(a.Db, "2", sample());
        WriteRecExtras(a.Db, "3", {"https://bank.example", {}, {}, {}});
        QCOMPARE(a.Save(), int(usSaved));
        const QByteArray lines = readFile(m_path).Tables[1].Records.unreadLines(6).toByteArray();
        QVERIFY(lines.contains("https://bank.example"));

        b.Open(m_path);
        QVERIFY(b.Db.DBView().Tables[1].Records.isUnread());
        b.Db.SetTblFldValNm(1, 1, "Title", "Letters");
        QCOMPARE(b.Save(), int(usSaved));
        QVERIFY(b.Db.DBView().Tables[1].Records.isUnread());
        QCOMPARE(readFile(m_path).Tables[1].Records.unreadLines(6).toByteArray(), lines);

        RecExtras ea = a.Get("3");
        ea.Url = "https://bank.example/new";
        WriteRecExtras(a.Db, "3", ea);
        QCOMPARE(a.Save(), int(usMerged));
        b.Db.SetTblFldValNm(1, 3, "Title", "Savings");
        QCOMPARE(b.Save(), int(usMerged));
        const DatabaseRecord file = readFile(m_path);
        QCOMPARE(file.Tables[0].Records.value(0, 3), QString("Letters"));
        QCOMPARE(file.Tables[0].Records.value(2, 3), QString("Savings"));
        QCOMPARE(ReadRecExtras(file, "3").Url, QString("https://bank.example/new"));
        QCOMPARE(ReadRecExtras(file, "2").Url, sample().Url);
    }

    // A delete on one side against a change of the record's fields on the other keeps the
    // record with its fields; against no change, the fields go with the record.
    void deleteAgainstEdit() {
        freshFile();
        Program a, b;
        a.Open(m_path);
        WriteRecExtras(a.Db, "2", sample());
        WriteRecExtras(a.Db, "3", sample());
        QCOMPARE(a.Save(), int(usSaved));
        b.Open(m_path);
        RecExtras e = b.Get("2");
        e.Custom[0].Value = "4321";
        WriteRecExtras(b.Db, "2", e);
        for (const QString id : {"2", "3"}) {
            DropRecExtras(a.Db, {id});
            a.Db.DeleteRec(1, a.Row(id));
        }
        QCOMPARE(a.Save(), int(usSaved));
        QCOMPARE(b.Save(), int(usMerged));
        const DatabaseRecord file = readFile(m_path);
        QCOMPARE(file.Tables[0].RecNum(), 2); // the folder and record 2
        QCOMPARE(customNames(ReadRecExtras(file, "2")), QStringList({"PIN=4321*", "Question=first pet"}));
        QVERIFY(ReadRecExtras(file, "3").IsEmpty());
        QCOMPARE(file.Tables[1].RecNum(), 4);

        // The same the other way round: the editing side saves first.
        freshFile();
        Program c, d;
        c.Open(m_path);
        WriteRecExtras(c.Db, "3", sample());
        QCOMPARE(c.Save(), int(usSaved));
        d.Open(m_path);
        e = c.Get("3");
        e.Url = "https://changed.example";
        WriteRecExtras(c.Db, "3", e);
        QCOMPARE(c.Save(), int(usSaved));
        DropRecExtras(d.Db, {"3"});
        d.Db.DeleteRec(1, d.Row("3"));
        QCOMPARE(d.Save(), int(usMerged));
        QCOMPARE(ReadRecExtras(readFile(m_path), "3").Url, QString("https://changed.example"));
    }

    // Our new record renumbered by the merge takes its fields along.
    void renumberedRecordKeepsItsFields() {
        freshFile();
        Program a, b;
        a.Open(m_path);
        b.Open(m_path);
        for (Program* p : {&a, &b}) {
            const int rec = p->Db.AddRecord(1);
            p->Db.SetTblTag(1, "4");
            p->Db.SetTblRecord(1, rec, {"4", "1", "2", p == &a ? "A" : "B", "", "", "", "1key", "0"});
            WriteRecExtras(p->Db, "4", {p == &a ? "https://a" : "https://b", {}, {}, {}});
        }
        QCOMPARE(a.Save(), int(usSaved));
        QCOMPARE(b.Save(), int(usMerged));
        const DatabaseRecord file = readFile(m_path);
        QCOMPARE(file.Tables[0].RecNum(), 5);
        QCOMPARE(file.Tables[0].Records.value(4, 3), QString("B"));
        const QString bId = file.Tables[0].Records.value(4, 0);
        QCOMPARE(ReadRecExtras(file, "4").Url, QString("https://a"));
        QCOMPARE(ReadRecExtras(file, bId).Url, QString("https://b"));
    }

    // A write that fails on a full disk leaves the old file, fields and all.
    void fullDiskKeepsTheOldFile() {
        const QString dir = m_env.root() + "/full";
        FullDisk disk(dir, 256 * 1024);
        if (!disk.Mounted())
            QSKIP("no tmpfs here");
        m_path = dir + "/anna.bdb";
        QByteArray image = kFile;
        DatabaseRecord start;
        QCOMPARE(ParseFileImage(image, QString(), start, nullptr), 1);
        clsFileIdentity written;
        QVERIFY(clsUserFile::Write(m_path, start, kKey, written));
        Program p;
        p.Open(m_path);
        WriteRecExtras(p.Db, "2", sample());
        QCOMPARE(p.Save(), int(usSaved));
        QFile f(m_path);
        QVERIFY(f.open(QIODevice::ReadOnly));
        const QByteArray before = f.readAll();
        f.close();
        disk.Fill();
        RecExtras big = sample();
        big.Custom.append({"Big", QString(300 * 1024, 'x'), false, {}});
        WriteRecExtras(p.Db, "2", big);
        QCOMPARE(p.Save(), int(usWriteFailed));
        QVERIFY(f.open(QIODevice::ReadOnly));
        QCOMPARE(f.readAll(), before);
        QCOMPARE(customNames(ReadRecExtras(readFile(m_path), "2")), customNames(sample()));
    }
};

ARGENT_TEST(tst_FieldTable)
#include "tst_fieldtable.moc"
