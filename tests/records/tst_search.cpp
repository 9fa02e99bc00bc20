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
    const int r = CurUsDB->AddRecord(dataTable());
    CurUsDB->SetTblRecord(dataTable(), r,
                          {QString::number(id), "0", "2", title, login, pasw, desc, "1key", "0|0"});
}

// Ten records; only row 5 holds "needle", in the column given.
void tenRows(int column) {
    for (int i = 1; i <= 10; ++i) {
        QStringList v{QString::number(i),
                      "0",
                      "2",
                      QStringLiteral("title %1").arg(QChar(u'a' + i)),
                      "login",
                      "pw",
                      "desc",
                      "1key",
                      "0|0"};
        if (i == 5)
            v[column - 1] = QStringLiteral("the Needle here");
        CurUsDB->SetTblRecord(dataTable(), CurUsDB->AddRecord(dataTable()), v);
    }
}

QString find(const QString& text, int& start, bool all, bool cs = false) {
    const int title = CurUsDB->FindField(dataTable(), "Title");
    return FindRecordInDB(text, dataTable(), title, start, *CurUsDB, all, cs);
}

// The search in every column as the description gives it, column by column.
QString referenceFind(const QString& text, int& start, clsDatabase& db, bool cs) {
    const int tbl = db.FindTable("DataTable");
    TableEntry t;
    db.GetTable(tbl, t);
    int best = t.RecNum() + 1;
    for (int i = 1; i <= t.FldTypes.size(); ++i) {
        if (t.FldTypes[i - 1] & 4)
            continue;
        const int r = db.FindRecord(tbl, i, text, start, cs);
        if (r >= start && r < best)
            best = r;
    }
    if (best == t.RecNum() + 1)
        best = 0;
    if (start != 1 && best == 0) {
        start = 1;
        return referenceFind(text, start, db, cs);
    }
    if (best == 0)
        return "-2";
    start = best + 1;
    return QString::number(best);
}

} // namespace

class SearchTest : public QObject {
    Q_OBJECT
private slots:
    void oneMatchIsFoundAgainAfterTheWrapRound() {
        TestEnv env;
        useNewDatabase();
        tenRows(4);
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
            // Nothing anywhere: "-2", and the next search starts at row 1.
            start = 7;
            QCOMPARE(find("absent", start, all), QStringLiteral("-2"));
            QCOMPARE(start, 1);
            QCOMPARE(find("absent", start, all), QStringLiteral("-2"));
            QCOMPARE(start, 1);
        }
        // An empty table.
        useNewDatabase();
        int start = 0;
        QCOMPARE(find("x", start, true), QStringLiteral("-2"));
        QCOMPARE(start, 1);
    }

    void columnsSearchedDependOnTheMode() {
        TestEnv env;
        useNewDatabase();
        rec(1, "Bank", "anna", "", "");
        rec(2, "Mail", "login-only", "", "");
        rec(3, "Shop", "", "pw-needle", "");
        rec(4, "Wiki", "", "", "line one\r\nDESC-needle");
        rec(17, "Forum", "", "", "");
        int start = 1;
        QCOMPARE(find("login-only", start, false), QStringLiteral("-2"));
        start = 1;
        QCOMPARE(find("login-only", start, true), QStringLiteral("2"));
        start = 1;
        QCOMPARE(find("pw-needle", start, true), QStringLiteral("3"));
        start = 1;
        QCOMPARE(find("desc-NEEDLE", start, true), QStringLiteral("4"));
        // Image ("1key"), Flags ("0|0"), Type, Parent and IndNum are never searched.
        for (const char* hidden : {"key", "0|0", "17", "1k"}) {
            start = 1;
            QCOMPARE(find(QString::fromLatin1(hidden), start, true), QStringLiteral("-2"));
        }
    }

    void caseRuleIsUnicodeFolding() {
        TestEnv env;
        useNewDatabase();
        rec(1, "Журнал ПОЧТЫ");
        rec(2, "Straße");
        int start = 1;
        QCOMPARE(find("почты", start, false, false), QStringLiteral("1"));
        QCOMPARE(find("почты", start, false, true), QStringLiteral("-2"));
        // One character for one: ß is not "ss", but its capital is.
        QCOMPARE(find("STRASSE", start, false, false), QStringLiteral("-2"));
        QCOMPARE(find("STRAẞE", start, false, false), QStringLiteral("2"));
        // An empty text is in every value.
        QCOMPARE(find("", start, true), QStringLiteral("1"));
    }

    // The engine's prepared matcher against QString's own search, on texts full of
    // characters whose case folding is special.
    void matchingAgreesWithQString() {
        TestEnv env;
        useNewDatabase();
        const QStringList pieces{"a", "A", "k",          "K",          "\u212A", "ß", "ẞ", "ss", "σ", "ς",
                                 "Σ", "İ", "i",          "ı",          "I",      "Ǆ", "ǅ", "ǆ",  "ﬀ", "ff",
                                 "Ж", "ж", "\U00010400", "\U00010428", "é",      "É", " ", "-",  "x", "y"};
        QRandomGenerator rng(99);
        auto text = [&](int maxPieces) {
            QString t;
            const int n = static_cast<int>(rng.bounded(maxPieces + 1));
            for (int i = 0; i < n; ++i)
                t += pieces[rng.bounded(pieces.size())];
            return t;
        };
        QStringList values;
        for (int i = 0; i < 400; ++i) {
            values << text(12);
            rec(i + 1, values.last());
        }
        const int title = CurUsDB->FindField(dataTable(), "Title");
        for (int q = 0; q < 600; ++q) {
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

    // The one-pass search over every column gives the result and the start row of the
    // column-by-column description, from any start row, 0 and beyond the end included.
    void allColumnsSearchMatchesTheDescription() {
        TestEnv env;
        useNewDatabase();
        QRandomGenerator rng(5);
        const QStringList words{"bank", "mail", "Key", "shop", "BANK", "post", "1key", "0|0", "alpha"};
        for (int i = 1; i <= 60; ++i)
            rec(i, words[rng.bounded(words.size())],
                rng.bounded(3) ? QString() : words[rng.bounded(words.size())],
                rng.bounded(4) ? QString() : words[rng.bounded(words.size())],
                rng.bounded(5) ? QString() : words[rng.bounded(words.size())]);
        for (const QString& text : {"bank", "key", "alpha", "post", "nothing", "0"}) {
            for (int start = 0; start <= 63; ++start) {
                for (bool cs : {false, true}) {
                    int mine = start, theirs = start;
                    const QString a = find(text, mine, true, cs);
                    const QString b = referenceFind(text, theirs, *CurUsDB, cs);
                    QCOMPARE(a, b);
                    QCOMPARE(mine, theirs);
                }
            }
        }
    }

    void findButtonMessagesAndPosition() {
        TestEnv env;
        LoadLang(env.progDir() + "/Languages/English.lng");
        useNewDatabase();
        rec(10, "alpha");
        rec(20, "beta", "alpha-login");
        QStringList shown;
        const MsgBoxHandler old = SetMsgBoxHandler([&](const QString& p, int style, const QString&) {
            shown << QStringLiteral("%1:%2").arg(style).arg(p);
            return int(vbOK);
        });
        FindIndNum = 0;
        QCOMPARE(FindNextRecord("", true, false), QString());
        QCOMPARE(shown, QStringList{QStringLiteral("16:") + Texts(20)});
        QCOMPARE(FindIndNum, 0);
        QCOMPARE(FindNextRecord("alpha", true, false), QStringLiteral("10"));
        QCOMPARE(FindNextRecord("alpha", true, false), QStringLiteral("20"));
        QCOMPARE(FindNextRecord("alpha", false, false), QStringLiteral("10"));
        QCOMPARE(FindNextRecord("gamma", true, false), QString());
        QCOMPARE(shown.last(), QStringLiteral("48:") + Texts(18));
        QCOMPARE(FindIndNum, 1);
        SetMsgBoxHandler(old);
        FindIndNum = 0;
    }

    void everyMatchInTableOrder() {
        TestEnv env;
        useNewDatabase();
        rec(1, "Bank one");
        rec(2, "Mail", "bank-login");
        rec(3, "Shop");
        rec(4, "bank two");
        const QList<FoundRow> all = FindAllRecords(*CurUsDB, "BANK", true, false);
        QCOMPARE(all.size(), 3);
        QCOMPARE(all[0].IndNum, QStringLiteral("1"));
        QCOMPARE(all[1].IndNum, QStringLiteral("2"));
        QCOMPARE(all[1].Title, QStringLiteral("Mail"));
        QCOMPARE(all[2].RecNum, 4);
        QCOMPARE(FindAllRecords(*CurUsDB, "bank", false, true).size(), 1);
        QVERIFY(FindAllRecords(*CurUsDB, "zzz", true, false).isEmpty());
    }
};
ARGENT_TEST(SearchTest)

#include "tst_search.moc"
