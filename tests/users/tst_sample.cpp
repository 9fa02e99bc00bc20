#include "tests/common/TestMain.h"
#include "tests/users/UsersTestKit.h"

#include "app/modLang.h"
#include "users/UsDBTree.h"

#include <QRegularExpression>
#include <QTest>

class SampleUserTest : public QObject {
    Q_OBJECT
private slots:
    void firstRunGreetsWithTheDemonstrationUser() {
        TestEnv env;
        startFirstRun();
        QCOMPARE(ProgConfig[4], QString("SampleUser"));
        const QString path = UsDBFilePath("SampleUser");
        QVERIFY(QFile::exists(path));
        // The password the dialog's hint gives, in every language, opens it.
        for (const QString& lng : QDir(env.progDir() + "/Languages").entryList({"*.lng"})) {
            LoadLang(env.progDir() + "/Languages/" + lng);
            const QString hint = Texts(189);
            const QString pasw = QRegularExpression("\\d{8}").match(hint).captured();
            QCOMPARE(pasw, QString("12345678"));
            QCOMPARE(TestUsPasw(path, HashString(pasw)), 1);
        }
        QCOMPARE(FullUserLoad("SampleUser", HashString("12345678")), 0);
        QCOMPARE(CurUsDB->Tag(), QString("SampleUser"));
    }

    void itShowsFoldersColoursAndBold() {
        TestEnv env;
        startFirstRun();
        QCOMPARE(FullUserLoad("SampleUser", HashString("12345678")), 0);
        clsDatabase& db = *CurUsDB;
        const int tbl = db.FindTable("DataTable");
        QStringList tree;
        int bold = 0, coloured = 0, withPassword = 0;
        for (const UsTreeNode& n : UsDBTreeOrder(db)) {
            const QString flags = db.GetTblFldValNm(tbl, n.RecNum, "Flags");
            bold += flags.section(u'|', 1).toInt() & 1;
            coloured += flags.section(u'|', 0, 0).toInt() != 0;
            withPassword += !n.Folder && !db.GetTblFldValNm(tbl, n.RecNum, "Password").isEmpty();
            if (n.Depth == 1)
                tree << db.GetTblFldValNm(tbl, n.RecNum, "Title") + (n.Folder ? "/" : "");
        }
        // Shown in the order of its source, every row reachable.
        QCOMPARE(tree, QStringList({"Internet/", "Finance/", "Work/", "Read me first", "Wi-Fi at home"}));
        QCOMPARE(UsDBTreeOrder(db).size(), db.GetTblRecNum(tbl));
        QVERIFY(bold >= 2);
        QVERIFY(coloured >= 4);
        QVERIFY(withPassword >= 8);
        // Identifiers were handed out through the table tag.
        QCOMPARE(db.GetTblTag(tbl), QString::number(db.GetTblRecNum(tbl)));
    }
};

ARGENT_TEST(SampleUserTest)
#include "tst_sample.moc"
