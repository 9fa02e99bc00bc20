// What an error report may hold: every value cut after 1 KiB with a mark, lists after
// 256 elements, and nothing of what the user searched for.

#include "diagnostics/ErrorTrap.h"
#include "diagnostics/FormatVariable.h"
#include "diagnostics/Globals.h"
#include "diagnostics/Trace.h"
#include "records/RecordSearch.h"
#include "tests/common/TestMain.h"

#include <QTest>

#include <new>

namespace {

QString g_bigGlobal;
QStringList g_bigList;
int g_listLBound = 0;
QByteArray g_bigBytes;

QString section(const QString& report, const QString& tag) {
    const qsizetype a = report.indexOf("<" + tag + ">");
    const qsizetype b = report.indexOf("</" + tag + ">", a);
    return a < 0 || b < 0 ? QStringLiteral("?") : report.mid(a + tag.size() + 2, b - a - tag.size() - 2);
}

// An import running out of memory while it holds a huge value in a parameter.
void runsOutOfMemory(const QString& pValue) {
    TRACE_PROC("modTest.Import", pValue);
    throw std::bad_alloc();
}

} // namespace

class ReportLimitsTest : public QObject {
    Q_OBJECT
private slots:
    void everyValueIsCutWithAMark() {
        InstallErrorTrap();
        const QString huge = QString(3 << 20, u'v');
        g_bigGlobal = QString(1024, u'g'); // exactly the limit: shown whole
        argent::diag::registerGlobal("g_bigGlobal", &g_bigGlobal);
        g_bigList = QStringList(3000, QString(2000, u'l'));
        argent::diag::registerGlobalMass("g_bigList", &g_listLBound, &g_bigList);
        g_bigBytes = QByteArray(5000, 'b');
        argent::diag::registerGlobalBytes("g_bigBytes", &g_bigBytes);
        QString report;
        try {
            runsOutOfMemory(huge);
        } catch (...) {
            report = argent::diag::ReportForCurrentException();
        }
        QVERIFY(report.startsWith("Error Number: 7\r\n"));
        const QString cutValue = QString(1024, u'v') + "{Cut: 3145728 characters in all}";
        QCOMPARE(section(report, "pValue"), cutValue);
        QCOMPARE(section(report, "g_bigGlobal"), g_bigGlobal);
        const QString list = section(report, "GlobalVariables");
        QCOMPARE(list.count("<g_bigList Index="), 256);
        QVERIFY(list.contains(QString(1024, u'l') + "{Cut: 2000 characters in all}</g_bigList>"));
        QVERIFY(list.contains("{Cut: 3000 elements in all}"));
        QCOMPARE(list.count("<g_bigBytes Index="), 256);
        QVERIFY(list.contains("{Cut: 5000 elements in all}"));
        // The stack shows the parameter cut the same way.
        QVERIFY(report.section("Stack Trace: ", 1).contains(cutValue));
        // The whole report, that of the previous failure (ErrorMessage) included, stays small.
        QVERIFY2(report.size() < 400 * 1024, qPrintable(QString::number(report.size())));
        g_bigList.clear();
        g_bigBytes.clear();
    }

    void cutsKeepWholeCharacters() {
        // A character of two UTF-16 units across the limit is left out whole.
        const QString pairs = QString(1023, u'a') + QString::fromUtf8("\xF0\x9F\x94\x91") + QString(10, u'z');
        const QString t = FormatVariable("v", pairs);
        QCOMPARE(t, "<v>" + QString(1023, u'a') + "{Cut: 1035 characters in all}</v>\r\n");
        // A long description is cut as its bytes are.
        const QString report =
            BuildErrorReport(5, "modA", "B", QString(600, u'Ї'), 0, QString(), QString(), QString());
        const QString desc = report.section("Description: ", 1).section("\r\n", 0, 0);
        QCOMPARE(desc, QString(512, u'Ї') + "{Cut: 1200 bytes in all}");
    }

    void searchTextsNeverReachAReport() {
        LastFindText = QStringLiteral("hunter2-searched");
        const QString report = BuildErrorReport(5, "modA", "B", "x", 0, QString(), QString(), QString());
        QVERIFY(report.contains("<LastFindText>{Hidden}</LastFindText>"));
        QVERIFY(!report.contains("hunter2"));
        LastFindText.clear();
    }
};

ARGENT_TEST(ReportLimitsTest)
#include "tst_reportlimits.moc"
