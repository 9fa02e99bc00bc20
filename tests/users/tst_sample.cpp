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
        // The password the dialog's hint gives, in every language, opens it.
        for (const QString& lng : QDir(env.progDir() + "/Languages").entryList({"*.lng"})) {
            LoadLang(env.progDir() + "/Languages/" + lng);
            const QString pasw = QRegularExpression("\\d{8}").match(Texts(189)).captured();
            QCOMPARE(pasw, QString("12345678"));
            QCOMPARE(TestUsPasw(path, HashString(pasw)), 1);
        }
        QCOMPARE(FullUserLoad("SampleUser", HashString("12345678")), 0);
        // It shows folders, colours and bold; every row is reachable.
        clsDatabase& db = *CurUsDB;
        int bold = 0, coloured = 0;
        for (const UsTreeNode& n : UsDBTreeOrder(db)) {
            const QString flags = db.GetTblFldValNm(1, n.RecNum, "Flags");
            bold += flags.section(u'|', 1).toInt() & 1;
            coloured += flags.section(u'|', 0, 0).toInt() != 0;
        }
        QCOMPARE(UsDBTreeOrder(db).size(), db.GetTblRecNum(1));
        QVERIFY(bold >= 2);
        QVERIFY(coloured >= 4);
        // Identifiers were handed out through the table tag.
        QCOMPARE(db.GetTblTag(1), QString::number(db.GetTblRecNum(1)));
    }
};

ARGENT_TEST(SampleUserTest)
#include "tst_sample.moc"
