#include "app/MsgBox.h"
#include "app/modLang.h"
#include "records/RecordSearch.h"
#include "tests/common/TestMain.h"
#include "tests/records/RecordsTestKit.h"

#include <QRandomGenerator>
#include <QTest>

namespace {

// Appends a record with the given title, login, password and description.
void rec(int id, const QString& title, const QString& login = {}, const QString& pasw = {},
         const QString& desc = {}) {
    CurUsDB->SetTblRecord(dataTable(), CurUsDB->AddRecord(dataTable()),
                          {QString::number(id), "0", "2", title, login, pasw, desc, "1key", "0|0"});
}

QString find(const QString& text, int& start, bool all, bool cs = false) {
    return FindRecordInDB(text, dataTable(), CurUsDB->FindField(dataTable(), "Title"), start, *CurUsDB, all,
                          cs);
}

} // namespace

class SearchTest : public QObject {
    Q_OBJECT
private slots:
    void oneMatchIsFoundAgainAfterTheWrapRound() {
        TestEnv env;
        useNewDatabase();
        for (int i = 1; i <= 10; ++i)
            rec(i,
                i == 5 ? QStringLiteral("the Needle here") : QStringLiteral("title %1").arg(QChar(u'a' + i)));
        for (bool all : {false, true}) {
            int start = 0;
            QCOMPARE(find("needle", start, all), QStringLiteral("5"));
            QCOMPARE(start, 6);
            QCOMPARE(find("needle", start, all), QStringLiteral("5"));
            QCOMPARE(start, 6);
            // A new text goes on from the row after the last match, then wraps.
            QCOMPARE(find("title", start, all), QStringLiteral("6"));
            QCOMPARE(find("title b", start, all), QStringLiteral("1"));
            QCOMPARE(start, 2);
            // Beyond the end: wraps to row 1.
            start = 40;
            QCOMPARE(find("title", start, all), QStringLiteral("1"));
            // Nothing anywhere: "-2", and the next search starts at row 1.
            start = 7;
            QCOMPARE(find("absent", start, all), QStringLiteral("-2"));
            QCOMPARE(start, 1);
            QCOMPARE(find("absent", start, all), QStringLiteral("-2"));
            QCOMPARE(start, 1);
        }
    }

    void columnsSearchedDependOnTheMode() {
        TestEnv env;
        useNewDatabase();
        rec(1, "Bank", "anna");
        rec(2, "Mail", "login-only");
        rec(3, "Shop", "", "pw-needle");
        rec(4, "Wiki", "", "", "line one\r\nDESC-needle");
        rec(17, "Forum");
        int start = 1;
        QCOMPARE(find("login-only", start, false), QStringLiteral("-2"));
        QCOMPARE(find("login-only", start, true), QStringLiteral("2"));
        QCOMPARE(FindAllRecords(*CurUsDB, "login-only", true, false).size(), 1);
        QVERIFY(FindAllRecords(*CurUsDB, "login-only", false, false).isEmpty());
        start = 1;
        QCOMPARE(find("pw-needle", start, true), QStringLiteral("3"));
        QCOMPARE(find("desc-NEEDLE", start, true), QStringLiteral("4"));
        // Image ("1key"), Flags ("0|0"), Type, Parent and IndNum are never searched.
        for (const char* hidden : {"key", "0|0", "17", "1k"}) {
            start = 1;
            QCOMPARE(find(QString::fromLatin1(hidden), start, true), QStringLiteral("-2"));
            QVERIFY(FindAllRecords(*CurUsDB, QString::fromLatin1(hidden), true, false).isEmpty());
        }
    }

    // The engine's prepared matcher against QString's own search, on texts full of
    // characters whose case folding is special (ß is not "ss", but its capital is).
    void matchingAgreesWithQString() {
        TestEnv env;
        useNewDatabase();
        const QStringList pieces{"a", "K", "\u212A",     "ß",          "ẞ", "ss", "σ", "ς",
                                 "Σ", "İ", "i",          "ı",          "I", "ǅ",  "ﬀ", "ff",
                                 "Ж", "ж", "\U00010400", "\U00010428", "é", "É"};
        QRandomGenerator rng(99);
        auto text = [&](int maxPieces) {
            QString t;
            for (int i = 0, n = int(rng.bounded(maxPieces + 1)); i < n; ++i)
                t += pieces[rng.bounded(pieces.size())];
            return t;
        };
        QStringList values;
        for (int i = 0; i < 300; ++i) {
            values << text(12);
            rec(i + 1, values.last());
        }
        const int title = CurUsDB->FindField(dataTable(), "Title");
        for (int q = 0; q < 400; ++q) {
            const QString needle = text(4);
            const bool cs = q % 2;
            for (int start : {1, 150}) {
                int expected = 0;
                for (int i = start - 1; i < values.size() && !expected; ++i)
                    if (values[i].contains(needle, cs ? Qt::CaseSensitive : Qt::CaseInsensitive))
                        expected = i + 1;
                QCOMPARE(CurUsDB->FindRecord(dataTable(), title, needle, start, cs), expected);
            }
        }
    }

    void findButtonMessagesAndEveryMatch() {
        TestEnv env;
        LoadLang(env.progDir() + "/Languages/English.lng");
        useNewDatabase();
        rec(10, "alpha");
        rec(20, "beta", "alpha-login");
        rec(30, "ALPHA");
        QStringList shown;
        const MsgBoxHandler old = SetMsgBoxHandler([&](const QString& p, int style, const QString&) {
            shown << QStringLiteral("%1:%2").arg(style).arg(p);
            return int(vbOK);
        });
        FindIndNum = 0;
        QCOMPARE(FindNextRecord("", true, false), QString());
        QCOMPARE(shown, QStringList{QStringLiteral("16:") + Texts(20)});
        QCOMPARE(FindNextRecord("alpha", true, false), QStringLiteral("10"));
        QCOMPARE(FindNextRecord("alpha", true, false), QStringLiteral("20"));
        QCOMPARE(FindNextRecord("alpha", false, true), QStringLiteral("10"));
        QCOMPARE(FindNextRecord("gamma", true, false), QString());
        QCOMPARE(shown.last(), QStringLiteral("48:") + Texts(18));
        QCOMPARE(FindIndNum, 1);
        SetMsgBoxHandler(old);
        FindIndNum = 0;

        const QList<FoundRow> all = FindAllRecords(*CurUsDB, "Alpha", true, false);
        QCOMPARE(all.size(), 3);
        QCOMPARE(all[1].IndNum, QStringLiteral("20"));
        QCOMPARE(all[1].Title, QStringLiteral("beta"));
        QCOMPARE(all[2].RecNum, 3);
        QCOMPARE(FindAllRecords(*CurUsDB, "ALPHA", true, true).size(), 1);
    }
};
ARGENT_TEST(SearchTest)

#include "tst_search.moc"
