#include "app/modLang.h"
#include "diagnostics/ErrorTrap.h"
#include "tests/common/TestEnv.h"
#include "tests/common/TestMain.h"

#include <QDirIterator>
#include <QTest>

namespace {
int loadError(const TestEnv& env, const QByteArray& content) {
    const QString path = env.root() + "/t.lng";
    writeFileText(path, content);
    try {
        LoadLang(path);
    } catch (const VbError& e) {
        argent::diag::clearSnapshot();
        return e.number();
    }
    return 0;
}
} // namespace

class LangTest : public QObject {
    Q_OBJECT
private slots:
    void acceptedLines() {
        TestEnv env;
        QCOMPARE(
            loadError(env,
                      "6\r\n# comment = 1\r\n5=a=b\r\n1= padded \r\n2=first\n2=second\r\n#3=no\r\n4=\r\n"),
            0);
        QCOMPARE(Texts(5), QStringLiteral("a=b"));
        QCOMPARE(Texts(1), QStringLiteral(" padded "));
        QCOMPARE(Texts(2), QStringLiteral("second"));
        QCOMPARE(Texts(3), QString());
        QCOMPARE(Texts(4), QString());
        QCOMPARE(Texts(6), QString());
    }

    void rejectedFiles_data() {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<int>("error");
        QTest::newRow("first line not a number") << QByteArray("many\r\n1=a\r\n") << 13;
        QTest::newRow("line without =") << QByteArray("3\r\n1=a\r\nplain text\r\n") << 5;
        QTest::newRow("identifier not a number") << QByteArray("3\r\nx=a\r\n") << 13;
        QTest::newRow("empty line") << QByteArray("3\r\n1=a\r\n\r\n2=b\r\n") << 5;
        QTest::newRow("identifier above N") << QByteArray("3\r\n4=a\r\n") << 9;
        QTest::newRow("identifier 0") << QByteArray("3\r\n0=a\r\n") << 9;
        QTest::newRow("absurd count") << QByteArray("2000000000\r\n") << 6;
        QTest::newRow("empty file") << QByteArray("") << 13;
    }
    void rejectedFiles() {
        QFETCH(QByteArray, content);
        QFETCH(int, error);
        TestEnv env;
        QCOMPARE(loadError(env, content), error);
    }

    void missingFile() {
        TestEnv env;
        QVERIFY_THROWS_EXCEPTION(VbError, LoadLang(env.root() + "/none.lng"));
        argent::diag::clearSnapshot();
    }

    void lookupFailuresAreLogged() {
        TestEnv env;
        QCOMPARE(Texts(1), QStringLiteral("#Error in language module#")); // nothing loaded yet
        QCOMPARE(loadError(env, "3\r\n1=a\r\n"), 0);
        QCOMPARE(Texts(0), QStringLiteral("#Error in language module#"));
        QCOMPARE(Texts(4), QStringLiteral("#Error in language module#"));
        const QList<QByteArray> lines = readAllOf(env.progDir() + "/DbgFile.dat").split('\n');
        QCOMPARE(lines.size(), 4);
        QVERIFY(lines[0].endsWith("): Error #0001. TxtIdent = 1.\r"));
        QVERIFY(lines[1].endsWith("): Error #0001. TxtIdent = 0.\r"));
        QVERIFY(lines[2].endsWith("): Error #0001. TxtIdent = 4.\r"));
    }

    // Every shipped language loads and has a text for every identifier, the same set
    // in each, and the same prefixes ending in a blank.
    void shippedLanguagesAreComplete() {
        TestEnv env;
        QMap<QString, QStringList> all;
        QDirIterator it(env.progDir() + "/Languages", {"*.lng"});
        while (it.hasNext()) {
            const QString path = it.next();
            LoadLang(path);
            QStringList texts;
            for (int i = 1; Texts(i) != QStringLiteral("#Error in language module#"); ++i)
                texts << Texts(i);
            all[it.fileName()] = texts;
        }
        QVERIFY(all.contains("English.lng"));
        QVERIFY(all.contains("Russian.lng"));
        const QStringList& en = all["English.lng"];
        QVERIFY(en.size() >= 147);
        for (auto i = all.cbegin(); i != all.cend(); ++i) {
            QCOMPARE(i.value().size(), en.size());
            for (int k = 0; k < en.size(); ++k) {
                // An identifier that no language file uses: kept for a feature to come.
                if (en[k].trimmed().isEmpty() && i.value()[k].trimmed().isEmpty())
                    continue;
                QVERIFY2(!i.value()[k].trimmed().isEmpty(),
                         qPrintable(i.key() + " " + QString::number(k + 1)));
                QCOMPARE(i.value()[k].endsWith(' '), en[k].endsWith(' '));
            }
        }
    }
};

ARGENT_TEST(LangTest)
#include "tst_lang.moc"
