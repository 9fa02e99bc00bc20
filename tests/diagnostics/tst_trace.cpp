#include "diagnostics/ErrorTrap.h"
#include "diagnostics/FormatVariable.h"
#include "diagnostics/Globals.h"
#include "diagnostics/Trace.h"
#include "tests/common/TestMain.h"

#include <QTest>

#include <functional>

namespace {

QString g_moduleText = QStringLiteral("module state");
int g_counter = 41;

int innerProc(int pCount, const QString& pName) {
    TRACE_PROC("modTest.Inner", pCount, pName);
    return FStackCount();
}

int outerProc(bool pFlag) {
    TRACE_PROP("modTest.Outer", pFlag);
    return innerProc(7, QStringLiteral("x")) * 10 + FStackCount();
}

void failingProc(int pIndex, const QString& pPasw) {
    TRACE_PROC("modTest.Failing", pIndex, HIDDEN(pPasw));
    QString localText = QStringLiteral("local");
    TRACE_LOCAL(localText);
    for (int i = 0; i < 2; ++i) {
        TRACE_LOCAL(i); // its scope ends before the failure: not in the report
    }
    const qsizetype localCount = 3;
    TRACE_LOCAL(localCount);
    const QString key = QStringLiteral("k-secret");
    TRACE_LOCAL_HIDDEN(key);
    RaiseError(vbErrSubscript);
}

// An object whose procedures show its own variables.
struct TestObj {
    QString Name;
    int Count = 0;
    TestObj(QString n, int c) : Name(std::move(n)), Count(c) {
        argent::diag::registerMember("clsTestObj", "Name", this, &Name);
        argent::diag::registerMember("clsTestObj", "Count", this, &Count);
    }
    void Fail() const {
        TRACE_PROC("clsTestObj.Fail");
        TRACE_SELF();
        RaiseError(vbErrInvalidCall);
    }
};

QString reportOf(const std::function<void()>& fn) {
    try {
        fn();
    } catch (...) {
        return argent::diag::ReportForCurrentException();
    }
    return {};
}

QString section(const QString& report, const QString& tag) {
    const qsizetype a = report.indexOf("<" + tag + ">");
    const qsizetype b = report.indexOf("</" + tag + ">");
    return a < 0 || b < 0 ? QStringLiteral("?") : report.mid(a + tag.size() + 2, b - a - tag.size() - 2);
}

void throwsForeign() {
    TRACE_PROC("modTest.Foreign");
    throw std::runtime_error("foreign failure");
}

VbValue arr1(std::vector<VbValue> v, int lb = 0) {
    auto a = std::make_shared<VbArray>();
    a->Dims = {{lb, lb + static_cast<int>(v.size()) - 1, true}};
    a->Elems = std::move(v);
    return a;
}

} // namespace

class TraceTest : public QObject {
    Q_OBJECT
private slots:
    void framesPushAndPopInStep() {
        QCOMPARE(FStackCount(), 0);
        QCOMPARE(GetStackTrace(), QStringLiteral("Empty Stack"));
        QCOMPARE(outerProc(true), 21);
        QCOMPARE(FStackCount(), 0);
        {
            TRACE_PROC("modTest.Text", g_counter, g_moduleText);
            QCOMPARE(FStackText(1),
                     QStringLiteral("Name: modTest.Text, Type: 1, Parameters: <g_counter>41</g_counter>\r\n"
                                    "<g_moduleText>module state</g_moduleText>\r\n;-->"));
            EnterFrame(QStringLiteral("frmX.Y"), 2, QStringLiteral("<a>1</a>\r\n"));
            QCOMPARE(FStackText(2), QStringLiteral("Name: frmX.Y, Type: 2, Parameters: <a>1</a>\r\n;-->"));
            QCOMPARE(GetStackTrace(), FStackText(1) + "\r\n" + FStackText(2) + "\r\n");
            LeaveFrame();
            QCOMPARE(FStackCount(), 1);
        }
        LeaveFrame(); // on an empty stack: nothing happens
        QCOMPARE(FStackCount(), 0);
        {
            TRACE_PROC("modTest.NoParams");
            QCOMPARE(FStackText(1), QStringLiteral("Name: modTest.NoParams, Type: 1, Parameters: ;-->"));
        }
    }

    void parametersAreShownAsCapturedAndSecretsHidden() {
        QString s = QStringLiteral("a");
        s += QChar(0);
        s += QStringLiteral("b");
        const QString pasw = QStringLiteral("hunter2");
        double d = 2.5;
        struct Udt {
        } u;
        TRACE_PROC("modTest.Params", s, HIDDEN(pasw), d, u);
        const QString t = FStackText(1);
        QVERIFY2(t.contains(QStringLiteral("<s>a{Null}b</s>")), qPrintable(t));
        QVERIFY(t.contains(QStringLiteral("<pasw>{Hidden}</pasw>")));
        QVERIFY(!t.contains(QStringLiteral("hunter2")));
        QVERIFY(t.contains(QStringLiteral("<d>2.5</d>")));
        QVERIFY(t.contains(QStringLiteral("<u>{Can't dump UDT parameters}</u>")));
    }

    void unwindingPopsFrames() {
        try {
            outerProcThatThrows();
        } catch (const VbError& e) {
            QCOMPARE(e.number(), 9);
            QCOMPARE(e.description(), QStringLiteral("Subscript out of range"));
            QCOMPARE(e.source(), QStringLiteral("modTest.Failing"));
        }
        QCOMPARE(FStackCount(), 0);
        argent::diag::clearSnapshot();
    }

    void formatterEdgeCases() {
        QString nul = QStringLiteral("x");
        nul += QChar(0);
        QCOMPARE(FormatVariable("v", nul), QStringLiteral("<v>x{Null}</v>\r\n"));
        QCOMPARE(FormatVariable("v", VbValue()), QStringLiteral("<v>{Empty}</v>\r\n"));
        QCOMPARE(FormatVariable("v", VbNull{}), QStringLiteral("<v>{Null}</v>\r\n"));
        QCOMPARE(FormatVariable("v", VbUdt{"POINTAPI"}), QStringLiteral("<v>{UDT - POINTAPI}</v>\r\n"));
        QCOMPARE(FormatVariable("v", VbObject{"clsDatabase", true, false, {}}),
                 QStringLiteral("<v>{Nothing}</v>\r\n"));
        QCOMPARE(FormatVariable("v", VbObject{"clsDatabase", false, false, {}}),
                 QStringLiteral("<v>{clsDatabase}</v>\r\n"));
        QCOMPARE(FormatVariable("v", 1e20), QStringLiteral("<v>1E+20</v>\r\n"));
        QCOMPARE(FormatVariable("v", 0.1 + 0.2), QStringLiteral("<v>0.3</v>\r\n"));
        QCOMPARE(FormatVariable("v", true, 99, 4), QStringLiteral("    <v>True</v>\r\n"));
        // A name with attributes closes with its first word only.
        QCOMPARE(FormatVariable("v Index=\"1\"", 5), QStringLiteral("<v Index=\"1\">5</v>\r\n"));

        QCOMPARE(FormatVariable("a", arr1({1, "two"}, 1)),
                 QStringLiteral("<a>\r\n  <a Index=\"1\">1</a>\r\n  <a Index=\"2\">two</a>\r\n</a>\r\n"));
        auto never = std::make_shared<VbArray>();
        never->Initialised = false;
        QCOMPARE(FormatVariable("a", never), QStringLiteral("<a>{UnInitialised Array}</a>\r\n"));
        QVERIFY(IsArrayUninitialised(*never, 1));
        auto four = std::make_shared<VbArray>();
        four->Dims.resize(4);
        QCOMPARE(FormatVariable("a", four), QStringLiteral("<a>{Dump truncated at 4 dimensions}</a>\r\n"));
        auto two = std::make_shared<VbArray>();
        two->Dims = {{0, 1, true}, {1, 2, true}};
        two->Elems = {1, 2, 3, 4};
        QCOMPARE(FormatVariable("m", two),
                 QStringLiteral("<m>\r\n  <m Index=\"0,1\">1</m>\r\n  <m Index=\"0,2\">2</m>\r\n"
                                "  <m Index=\"1,1\">3</m>\r\n  <m Index=\"1,2\">4</m>\r\n</m>\r\n"));
        two->Dims[1].Readable = false;
        QCOMPARE(FormatVariable("m", two), QStringLiteral("<m>{UnInitialised Array Dimension 2}</m>\r\n"));
        QVERIFY(IsArrayUninitialised(*two, 2));
        auto three = std::make_shared<VbArray>();
        three->Dims = {{0, 0, true}, {0, 0, true}, {0, 0, false}};
        QCOMPARE(FormatVariable("m", three), QStringLiteral("<m>{UnInitialised Array Dimension 3}</m>\r\n"));
        // A collection lists its items from 1, nested arrays indent further.
        VbObject col{"Collection", false, true, {"a", arr1({7})}};
        QCOMPARE(FormatVariable("c", col),
                 QStringLiteral("<c>\r\n  <[1]>a</[1]>\r\n  <[2]>\r\n    <[2] Index=\"0\">7</[2]>\r\n"
                                "</[2]>\r\n</c>\r\n"));
    }

    void reportLayoutIsExact() {
        static QString modVar = QStringLiteral("m1");
        argent::diag::registerModuleVar("modTest", "modVar", &modVar);
        argent::diag::registerModuleHidden("modTest", "modPasw");
        InstallErrorTrap();
        vbcsErrorNumber = 0;
        QString report;
        try {
            int pLevel = 1;
            TRACE_PROC("modTest.Outer", pLevel);
            failingProc(12, QStringLiteral("secret"));
        } catch (...) {
            report = argent::diag::ReportForCurrentException();
        }
        // The error globals were set before the report was built, so it shows them.
        const QString globals = section(report, QStringLiteral("GlobalVariables"));
        QVERIFY2(
            globals.contains(QStringLiteral("<vbcsErrorNumber>9</vbcsErrorNumber>\r\n"
                                            "<vbcsErrorDescription>Subscript out of range</"
                                            "vbcsErrorDescription>\r\n<vbcsErrorLine>%1</vbcsErrorLine>\r\n"
                                            "<vbcsErrorSource>modTest.Failing</vbcsErrorSource>\r\n")
                                 .arg(vbcsErrorLine)),
            qPrintable(globals));
        const QString expected =
            QStringLiteral(
                "Error Number: 9\r\nComponent Name: ArgentPasswordMngr\r\nModule Name: modTest\r\n"
                "Block Name: Failing\r\nDescription: Subscript out of range\r\nLine Number: %1\r\n"
                "<Variables>\r\n<LocalVariables><localText>local</localText>\r\n<localCount>3</"
                "localCount>\r\n<key>{Hidden}</key>\r\n"
                "</LocalVariables>\r\n<ModuleVariables><modVar>m1</modVar>\r\n<modPasw>{Hidden}</modPasw>\r\n"
                "</ModuleVariables>\r\n"
                "<GlobalVariables>%2</GlobalVariables>\r\n</Variables>\r\n"
                "<Parameters><pIndex>12</pIndex>\r\n<pPasw>{Hidden}</pPasw>\r\n</Parameters>\r\n"
                "Stack Trace: Name: modTest.Outer, Type: 1, Parameters: <pLevel>1</pLevel>\r\n;-->\r\n"
                "Name: modTest.Failing, Type: 1, Parameters: "
                "<pIndex>12</pIndex>\r\n<pPasw>{Hidden}</pPasw>\r\n;-->\r\n"
                "\r\nVersion: 1.0.0")
                .arg(vbcsErrorLine)
                .arg(globals);
        for (int i = 0; i < std::min(report.size(), expected.size()); ++i)
            if (report[i] != expected[i]) {
                qWarning() << "differs at" << i << report.mid(i - 20, 60) << "|" << expected.mid(i - 20, 60);
                break;
            }
        QCOMPARE(report, expected);
        QVERIFY(vbcsErrorLine > 0);
        QCOMPARE(ErrorMessage, report);
        QVERIFY(!report.contains(QStringLiteral("secret")));
    }

    void objectVariablesFollowTheFailingObject() {
        const TestObj a(QStringLiteral("first"), 1), b(QStringLiteral("second"), 2);
        QCOMPARE(section(reportOf([&] { b.Fail(); }), QStringLiteral("ModuleVariables")),
                 QStringLiteral("<Name>second</Name>\r\n<Count>2</Count>\r\n"));
        QCOMPARE(section(reportOf([&] { a.Fail(); }), QStringLiteral("ModuleVariables")),
                 QStringLiteral("<Name>first</Name>\r\n<Count>1</Count>\r\n"));
        // A form's variables go with the form; a collection lists its items.
        static const int owner = 0;
        static const QStringList keys{QStringLiteral("a.bdb"), QStringLiteral("b.bdb")};
        static bool flag = true;
        argent::diag::registerOwned(&owner, "modOwned", "Flag", &flag);
        argent::diag::registerOwnedItems(
            &owner, "modOwned", "Keys", &keys,
            [](const void* p) -> long long { return static_cast<const QStringList*>(p)->size(); },
            [](const void* p, long long i) { return &(*static_cast<const QStringList*>(p))[i]; });
        auto fail = [] {
            TRACE_PROC("modOwned.Fail");
            RaiseError(vbErrInvalidCall);
        };
        QCOMPARE(
            section(reportOf(fail), QStringLiteral("ModuleVariables")),
            QStringLiteral(
                "<Flag>True</Flag>\r\n<Keys>\r\n  <[1]>a.bdb</[1]>\r\n  <[2]>b.bdb</[2]>\r\n</Keys>\r\n"));
        argent::diag::dropVars(&owner);
        QCOMPARE(section(reportOf(fail), QStringLiteral("ModuleVariables")), QString());
    }

    void foreignExceptionsAndEmptyStack() {
        QString report;
        try {
            throwsForeign();
        } catch (...) {
            report = argent::diag::ReportForCurrentException();
        }
        QVERIFY(report.startsWith(QStringLiteral("Error Number: 5\r\n")));
        QVERIFY(report.contains(QStringLiteral("Block Name: Foreign\r\nDescription: foreign failure\r\n")));
        // No frame at all when the error was raised.
        try {
            RaiseError(vbErrDivByZero);
        } catch (...) {
            report = argent::diag::ReportForCurrentException();
        }
        QVERIFY(report.contains(QStringLiteral("Description: Division by zero\r\n")));
        QVERIFY(report.contains(QStringLiteral("\r\nStack Trace: Empty Stack\r\nVersion: ")));
        QVERIFY(BuildErrorReport(6, "modA", "B", "Overflow", 0, "", "", "")
                    .startsWith(QStringLiteral(
                        "Error Number: 6\r\nComponent Name: ArgentPasswordMngr\r\nModule Name: modA\r\n"
                        "Block Name: B\r\nDescription: Overflow\r\nLine Number: 0\r\n")));
    }

    void exceptionNames() {
        QCOMPARE(ExceptionName(0xC0000005), QStringLiteral("Access Violation"));
        QCOMPARE(ExceptionErrorNumber(0xC0000005), 10005);
        QCOMPARE(ExceptionName(0xC0000094), QStringLiteral("Integer Divide By Zero"));
        QCOMPARE(ExceptionName(0xC000013A), QStringLiteral("Control-C Exit"));
        QCOMPARE(ExceptionName(0x1234ABCD), QStringLiteral("Unknown (&H1234ABCD)"));
        QCOMPARE(ExceptionName(0x5), QStringLiteral("Unknown (&H00000005)"));
    }

private:
    static void outerProcThatThrows() {
        TRACE_PROC("modTest.OuterThrow");
        failingProc(1, QStringLiteral("p"));
    }
};

ARGENT_TEST(TraceTest)
#include "tst_trace.moc"
