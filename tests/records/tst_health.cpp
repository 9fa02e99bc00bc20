#include "app/modLang.h"
#include "records/PasswordHealth.h"
#include "records/frmPasswordHealth.h"
#include "storage/FieldTable.h"
#include "storage/Md5.h"
#include "tests/common/TestMain.h"
#include "tests/records/CliRunner.h"
#include "tests/records/RecordsTestKit.h"
#include "users/PaswStrength.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRandomGenerator>
#include <QSpinBox>
#include <QTest>
#include <QTreeWidget>

namespace {

const QString kPw = QStringLiteral("anna password");
const QString kStrong = QStringLiteral("S3cure-Horse!Battery#92x");
const QString kShared = QStringLiteral("Zq8#Lr2!vW0@pT6x");
const QString kDigits = QStringLiteral("123456");
const QString kWord = QStringLiteral("password1");

void addRow(int Id, int Parent, bool Folder, const QString& Title, const QString& Pasw = QString()) {
    clsDatabase& db = *CurUsDB;
    const int tbl = dataTable();
    db.SetTblRecord(tbl, db.AddRecord(tbl),
                    {QString::number(Id), QString::number(Parent), Folder ? "1" : "2", Title, QString(), Pasw,
                     QString(), Folder ? "2key" : "1key", "0|0"});
    db.SetTblTag(tbl, QString::number(Id));
}

QDateTime monthsAgo(int Months) {
    return QDateTime::currentDateTimeUtc().addMonths(-Months);
}

// Into the open user: folders Mail (Work inside) and Bank; one password shared by a record
// in Mail/Work and one at the top; weak ones and an empty one in Bank; ages from history
// (Shop's newest entry is 14 months old, its oldest 30) or none.
void fillSmallUser() {
    addRow(1, 0, true, "Mail");
    addRow(2, 1, true, "Work");
    addRow(3, 0, true, "Bank");
    addRow(4, 1, false, "Home mail", kStrong);
    addRow(5, 2, false, "Office", kShared);
    addRow(6, 3, false, "Card", kDigits);
    addRow(7, 3, false, "Savings");
    addRow(8, 0, false, "Forum", kShared);
    addRow(9, 3, false, "Shop", kWord);
    AddPaswHistory(*CurUsDB, "4", "old home", monthsAgo(24), 10);
    AddPaswHistory(*CurUsDB, "8", "old forum", monthsAgo(1), 10);
    AddPaswHistory(*CurUsDB, "9", "older shop", monthsAgo(30), 10);
    AddPaswHistory(*CurUsDB, "9", "old shop", monthsAgo(14), 10);
}

QStringList ids(const QList<HealthItem>& Items) {
    QStringList out;
    for (const HealthItem& it : Items)
        out << it.IndNum;
    return out;
}

QTreeWidgetItem* lineOf(QTreeWidget* Tree, const QString& IndNum) {
    for (QTreeWidgetItemIterator it(Tree); *it; ++it)
        if ((*it)->data(0, Qt::UserRole).toString() == IndNum)
            return *it;
    return nullptr;
}

} // namespace

class HealthTest : public QObject {
    Q_OBJECT
private slots:
    void groupsOfASmallUser() {
        TestEnv env;
        useNewDatabase();
        fillSmallUser();
        const HealthReport rep = MakeHealthReport(*CurUsDB);
        QVERIFY(!rep.Cancelled);
        QCOMPARE(rep.Records, 6);
        // Weak as the meter rates them, in the tree's order, with their folders.
        QCOMPARE(ids(rep.Weak), QStringList({"6", "9"}));
        QCOMPARE(rep.Weak[0].Path, QStringLiteral("Bank / Card"));
        QCOMPARE(rep.Weak[0].Level, static_cast<int>(EstimatePaswStrength(kDigits).Level));
        QVERIFY(!IsWeakHealthLevel(EstimatePaswStrength(kStrong).Level));
        // One password across two folders.
        QCOMPARE(rep.Reused.size(), 1);
        QCOMPARE(ids(rep.Reused[0]), QStringList({"5", "8"}));
        QCOMPARE(rep.Reused[0][0].Path, QStringLiteral("Mail / Work / Office"));
        QCOMPARE(ids(rep.Empty), QStringList({"7"}));
        // The age is the newest history entry; records without one are counted, not listed.
        QCOMPARE(rep.UnknownAge, 2);
        QCOMPARE(ids(HealthOlderThan(rep, monthsAgo(12))), QStringList({"4", "9"}));
        QCOMPARE(ids(HealthOlderThan(rep, monthsAgo(18))), QStringList({"4"}));
        QCOMPARE(ids(HealthOlderThan(rep, monthsAgo(36))), QStringList());
        // The settings keep the age; nonsense reads as the default.
        SetHealthAgeMonths(18);
        QCOMPARE(HealthAgeMonths(), 18);
        SetCfgExtra(kCfgHealthAge, QStringLiteral("soon"));
        QCOMPARE(HealthAgeMonths(), 12);
    }

    // Many distinct passwords go over every core: the verdicts are those of the meter on
    // the first characters, and a progress callback that answers false stops it all.
    void manyPasswordsAndCancelling() {
        TestEnv env;
        useNewDatabase();
        QRandomGenerator rng(5);
        const char* alpha = "abcdefgh0123456789!@#$";
        QHash<QString, bool> weak;
        for (int i = 1; i <= 1500; ++i) {
            QString p;
            const int len = 4 + static_cast<int>(rng.bounded(i % 50 == 0 ? 60 : 12));
            for (int k = 0; k < len; ++k)
                p += QLatin1Char(alpha[rng.bounded(22)]);
            addRow(i, 0, false, QStringLiteral("r%1").arg(i), p);
            weak[QString::number(i)] =
                IsWeakHealthLevel(EstimatePaswStrength(p.left(kHealthPaswChars)).Level);
        }
        int calls = 0;
        const HealthReport rep = MakeHealthReport(*CurUsDB, [&](int Done, int Total) {
            ++calls;
            return Done <= Total;
        });
        QCOMPARE(rep.Records, 1500);
        QStringList expected;
        for (int i = 1; i <= 1500; ++i)
            if (weak[QString::number(i)])
                expected << QString::number(i);
        QVERIFY(expected.size() > 50 && expected.size() < 1450);
        QCOMPARE(ids(rep.Weak), expected);

        const HealthReport stopped = MakeHealthReport(
            *CurUsDB, [](int, int) { return false; }, 0);
        QVERIFY(stopped.Cancelled);
        QVERIFY(stopped.Weak.isEmpty() && stopped.Empty.isEmpty() && stopped.Records == 0);
    }

    // The window's jump is checked with the main window (tst_healthwindow); here the
    // lines and the age.
    void dialogLinesAndAge() {
        TestEnv env;
        useNewDatabase();
        fillSmallUser();
        SetHealthAgeMonths(12);
        LoadLang(env.progDir() + "/Languages/English.lng");
        frmPasswordHealth dlg(nullptr, MakeHealthReport(*CurUsDB));
        QCOMPARE(dlg.trvHealth->topLevelItem(0)->text(0), QStringLiteral("Weak passwords (2)"));
        QCOMPARE(lineOf(dlg.trvHealth, "6")->text(0), QStringLiteral("Bank / Card  (very weak)"));
        // A longer age takes Shop out of the old group (it stays among the weak ones) and
        // is kept in the settings.
        QTreeWidgetItem* old = dlg.trvHealth->topLevelItem(2);
        QCOMPARE(old->childCount(), 2);
        dlg.spnAge->setValue(18);
        QCOMPARE(old->childCount(), 1);
        QCOMPARE(old->child(0)->data(0, Qt::UserRole).toString(), QStringLiteral("4"));
        QCOMPARE(HealthAgeMonths(), 18);
        UnloadLang();
    }

    void cliReportsWithoutPasswords() {
        TestEnv env;
        CliRunner cli(env);
        QCOMPARE(cli({"add-user", "anna", "--password-stdin"}, kPw.toUtf8() + '\n').code, 0);
        ProgConfig.Reset();
        for (int i = 1; i <= 20; ++i)
            AddElemToStrMass(ProgConfig, QString());
        ProgConfig[kCfgDBPath] = cli.dbs();
        CreateProgramObjects();
        const QString key = GetTruePasw(HashString(kPw));
        QCOMPARE(LoadUser(cli.dbs() + "/anna.bdb", key), 2);
        fillSmallUser();
        QCOMPARE(SaveUsDB(CurUsDB, key), 1);

        const CliRun plain = cli.as(kPw, {"health", "anna"});
        QCOMPARE(plain.code, 0);
        const QStringList lines = plain.out.split(u'\n');
        auto after = [&](const QString& Heading) { return lines.mid(lines.indexOf(Heading) + 1, 2); };
        QCOMPARE(after("Weak passwords: 2"),
                 QStringList({"  6  Bank / Card  (very weak)", "  9  Bank / Shop  (very weak)"}));
        QCOMPARE(after("Passwords used by more than one record: 1"),
                 QStringList({"  one password, 2 records:", "    5  Mail / Work / Office"}));
        QVERIFY(plain.out.contains("Passwords older than 12 month(s): 2\n  4  Mail / Home mail  (set "));
        QVERIFY(plain.out.contains("2 record(s) keep no earlier password"));
        QCOMPARE(after("Records with an empty password: 1"), QStringList({"  7  Bank / Savings", ""}));

        const CliRun json = cli.as(kPw, {"health", "anna", "--json", "--older-than", "500"});
        QCOMPARE(json.code, 0);
        const QJsonObject o = QJsonDocument::fromJson(json.out.toUtf8()).object();
        QCOMPARE(o["records"].toInt(), 6);
        QCOMPARE(o["weak"].toArray()[1].toObject()["id"].toInt(), 9);
        QCOMPARE(o["reused"].toArray()[0].toArray()[1].toObject()["id"].toInt(), 8);
        QCOMPARE(o["old"].toArray().size(), 1);
        QCOMPARE(o["old"].toArray()[0].toObject()["id"].toInt(), 4);
        QCOMPARE(o["unknown_age"].toInt(), 2);
        QCOMPARE(o["empty"].toArray()[0].toObject()["path"].toString(), QStringLiteral("Bank / Savings"));
        for (const QString& secret : {kStrong, kShared, kDigits, kWord, QStringLiteral("old shop")}) {
            QVERIFY(!plain.out.contains(secret));
            QVERIFY(!json.out.contains(secret));
        }

        QCOMPARE(cli.as(kPw, {"health", "anna", "--older-than", "soon"}).code, 2);
        QCOMPARE(cli.as("wrong", {"health", "anna"}).code, 3);
        QCOMPARE(cli.as(kPw, {"health", "bob"}).code, 4);
    }
};

ARGENT_TEST(HealthTest)
#include "tst_health.moc"
