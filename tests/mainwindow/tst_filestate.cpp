// The window with a user open while the file is replaced under it: by a forged (not
// sealed) one, or by an older copy. Either is said once, nothing in memory changes until
// the user answers, and the answer decides which version the file holds.

#include "mainwindow/frmMain.h"
#include "storage/FileIdentity.h"
#include "storage/Rc4.h"
#include "storage/TableFile.h"
#include "tests/common/TestMain.h"
#include "tests/mainwindow/MainTestKit.h"

#include <QTest>

namespace {

QString annaKey() {
    return GetTruePasw(HashString(kUserPasw));
}

// The title of row 1 as the file holds it; "<damaged>" when it does not read.
QString fileTitle() {
    DatabaseRecord rec;
    clsFileIdentity id;
    if (ReadUserFile(UsDBFilePath("anna"), annaKey(), rec, id) != 1)
        return QStringLiteral("<damaged>");
    for (const QStringList& row : rec.Tables.value(0).Records.rows())
        if (row.value(0) == "1")
            return row.value(3);
    return QString();
}

// anna's file as a plain image under its outer layer: a forgery anyone with a copy can make.
QByteArray forgedAnna() {
    DatabaseRecord rec;
    clsFileIdentity id;
    ReadUserFile(UsDBFilePath("anna"), annaKey(), rec, id);
    QByteArray f = QByteArray(kSignature) + "\r\n";
    WriteBody(f, rec);
    Rc4 rc4(annaKey().toUtf8());
    rc4.Apply(f.data(), f.size());
    return f;
}

} // namespace

class FileStateTest : public QObject {
    Q_OBJECT
private slots:
    void forgedFileKeepsWhatIsOpen() {
        TestEnv env;
        makeUser(env);
        SetCfgExtra(22, "0");
        Script s;
        frmMain w;
        w.Form_Load();
        openUser();
        ChangeDataTableField("IndNum", "1", "Title", "Unsaved");
        const QByteArray forged = forgedAnna();
        writeFileText(UsDBFilePath("anna"), forged);
        s.answers = {vbNo};
        QTRY_COMPARE_WITH_TIMEOUT(s.boxes.size(), 1, 3000);
        QVERIFY(s.boxes[0].startsWith(Texts(260) + " \"anna\""));
        QVERIFY(s.boxes[0].endsWith(Texts(278)));
        QCOMPARE(rowValue("1", "Title"), QString("Unsaved"));
        QVERIFY(w.NodeByKey("1key").isValid());
        QCOMPARE(readAllOf(UsDBFilePath("anna")), forged);
        // Asked once; a save asks again, and Yes writes what is open over it.
        QTest::qWait(500);
        QCOMPARE(s.boxes.size(), 1);
        QCOMPARE(w.SaveCurUser(), int(usSaved));
        QCOMPARE(s.boxes.size(), 2);
        QCOMPARE(fileTitle(), QString("Unsaved"));
    }

    void olderCopyUnderTheWindow() {
        TestEnv env;
        makeUser(env);
        Script s;
        frmMain w;
        w.Form_Load();
        openUser();
        const QByteArray old = readAllOf(UsDBFilePath("anna"));
        ChangeDataTableField("IndNum", "1", "Title", "Newer");
        QCOMPARE(w.SaveCurUser(), int(usSaved));

        // Yes keeps the newer version that is open, written over the older copy.
        writeFileText(UsDBFilePath("anna"), old);
        s.answers = {vbYes};
        QTRY_COMPARE_WITH_TIMEOUT(s.boxes.size(), 1, 3000);
        QVERIFY(s.boxes[0].startsWith(Texts(279).section("%1", 0, 0)));
        QTRY_COMPARE_WITH_TIMEOUT(fileTitle(), QString("Newer"), 3000);
        QCOMPARE(rowValue("1", "Title"), QString("Newer"));

        // No takes the older copy in.
        writeFileText(UsDBFilePath("anna"), old);
        s.answers = {vbNo};
        QTRY_COMPARE_WITH_TIMEOUT(s.boxes.size(), 2, 3000);
        QTRY_COMPARE_WITH_TIMEOUT(rowValue("1", "Title"), QString("Mail"), 3000);
        QCOMPARE(readAllOf(UsDBFilePath("anna")), old);
        QTest::qWait(500);
        QCOMPARE(s.boxes.size(), 2);

        // Opening an older copy asks whether to keep it; No closes it.
        ChangeDataTableField("IndNum", "1", "Title", "Newest");
        QCOMPARE(w.SaveCurUser(), int(usSaved));
        UnloadUser();
        writeFileText(UsDBFilePath("anna"), old);
        s.answers = {vbNo};
        s.on = [](QDialog& d) { d.reject(); };
        s.pickUser = "anna";
        s.passwords = {kUserPasw};
        w.mnuFileSelectUser_Click();
        QCOMPARE(s.boxes.size(), 3);
        QVERIFY(s.boxes[2].startsWith(Texts(277).section("%1", 0, 0)));
        QVERIFY(CurUser.isEmpty());
        QCOMPARE(readAllOf(UsDBFilePath("anna")), old);
    }
};

ARGENT_TEST(FileStateTest)
#include "tst_filestate.moc"
