#include "app/VbConv.h"
#include "app/modMain.h"
#include "diagnostics/ErrorTrap.h"
#include "tests/common/TestMain.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

namespace {
int errorOf(const std::function<void()>& f) {
    try {
        f();
    } catch (const VbError& e) {
        argent::diag::clearSnapshot();
        return e.number();
    }
    return 0;
}
} // namespace

class ConvTest : public QObject {
    Q_OBJECT
private slots:
    void valReadsTheLeadingNumber() {
        QCOMPARE(Val("  12abc"), 12.0);
        QCOMPARE(Val("1 2 3"), 123.0);
        QCOMPARE(Val("-3.5e2x"), -350.0);
        QCOMPARE(Val("3key"), 3.0);
        QCOMPARE(Val("&H1F"), 31.0);
        QCOMPARE(Val("&HFFFFFFFF"), -1.0);
        QCOMPARE(Val("&O17"), 15.0);
        QCOMPARE(Val(".5"), 0.5);
        QCOMPARE(Val("1e"), 1.0);
        QCOMPARE(Val(""), 0.0);
        QCOMPARE(Val("abc"), 0.0);
        QCOMPARE(Val("--1"), 0.0);
    }

    void integerConversionsRoundHalfToEven() {
        QCOMPARE(CLng("2.5"), 2);
        QCOMPARE(CLng("3.5"), 4);
        QCOMPARE(CLng(" -2.5 "), -2);
        QCOMPARE(CLng(2147483647.4), 2147483647);
        QCOMPARE(CLng("True"), -1);
        QCOMPARE(CInt(32767.0), short(32767));
        QCOMPARE(errorOf([] { CLng("2147483648"); }), 6);
        QCOMPARE(errorOf([] { CInt("40000"); }), 6);
        QCOMPARE(errorOf([] { CLng("12abc"); }), 13);
        QCOMPARE(errorOf([] { CLng(""); }), 13);
        QCOMPARE(errorOf([] { CLng(std::nan("")); }), 6);
    }

    void booleans() {
        QVERIFY(CBool("True"));
        QVERIFY(!CBool("false"));
        QVERIFY(!CBool("0"));
        QVERIFY(CBool("-2"));
        QCOMPARE(errorOf([] { CBool("yes"); }), 13);
        QCOMPARE(CStr(1.5), QStringLiteral("1.5"));
        QCOMPARE(CStr(-1e-5), QStringLiteral("-1E-05"));
    }

    void pathHelpers() {
        QCOMPARE(Pt("/"), QStringLiteral("/"));
        QCOMPARE(Pt("/data"), QStringLiteral("/data/"));
        QCOMPARE(Pt("/data/"), QStringLiteral("/data/"));
        QCOMPARE(Pt(""), QStringLiteral("/"));
        QVERIFY(FileExist("/"));
        QVERIFY(!FileExist(""));
        QVERIFY(!FileExist("/no/such/file"));
        QString s = QStringLiteral("ab");
        s += QChar(0);
        s += QStringLiteral("cd");
        QCOMPARE(StripNulls(s), QStringLiteral("ab"));
        QCOMPARE(s, QStringLiteral("ab"));
        QString t = QStringLiteral("plain");
        RemoveNullChar(t);
        QCOMPARE(t, QStringLiteral("plain"));
        // The help file of the language when there is one, else the general one.
        QTemporaryDir dir;
        QFile(dir.path() + "/readme.Russian.txt").open(QIODevice::WriteOnly);
        for (const auto& [lang, file] : {std::pair{"Russian", "readme.Russian.txt"},
                                         {"English", "readme.txt"},
                                         {"", "readme.txt"},
                                         {"../x", "readme.txt"}})
            QCOMPARE(ReadmePath(dir.path(), lang), dir.path() + "/" + file);
    }
};

ARGENT_TEST(ConvTest)
#include "tst_conv.moc"
