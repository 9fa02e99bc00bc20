#include "app/modMain.h"
#include "diagnostics/ErrorTrap.h"
#include "diagnostics/Globals.h"
#include "diagnostics/Trace.h"
#include "tests/common/TestEnv.h"
#include "tests/common/TestMain.h"

#include <QProcess>
#include <QTest>

#include <csignal>

namespace {

QString g_childState = QStringLiteral("child state");

// The child processes: each sets up the trap, enters two frames and fails for real.
void prepareChild() {
    SetAppPath(qEnvironmentVariable("ARGENT_TEST_PROGDIR"));
    SetExeFolderPath(qEnvironmentVariable("ARGENT_TEST_PROGDIR"));
    InstallErrorTrap();
    argent::diag::registerGlobal("g_childState", &g_childState);
    argent::diag::registerGlobalHidden("CurUsPasw");
}

[[gnu::noinline]] int crashSegv(int pDepth, const QString& pWhat) {
    TRACE_PROC("modCrash.Crasher", pDepth, pWhat);
    volatile int* p = nullptr;
    *p = pDepth;
    return *p;
}

[[gnu::noinline]] int crashDiv(int pDivisor) {
    TRACE_PROC("modCrash.Divider", pDivisor);
    volatile int a = 10;
    return a / pDivisor;
}

int childSegv(int& argc, char** argv) {
    QCoreApplication app(argc, argv);
    prepareChild();
    TRACE_PROC("modCrash.Main");
    return crashSegv(7, QStringLiteral("segv"));
}

int childFpe(int& argc, char** argv) {
    QCoreApplication app(argc, argv);
    prepareChild();
    TRACE_PROC("modCrash.Main");
    volatile int zero = 0;
    return crashDiv(zero);
}

int childRaise(int& argc, char** argv) {
    QCoreApplication app(argc, argv);
    prepareChild();
    argent::diag::trapped([] {
        TRACE_PROC("modCrash.Main");
        RaiseError(vbErrPathNotFound);
    });
    return 0;
}

ARGENT_CHILD("segv", childSegv)
ARGENT_CHILD("fpe", childFpe)
ARGENT_CHILD("raise", childRaise)

struct ChildResult {
    int exitCode;
    QString stderrText;
    QString reportFile;
};

ChildResult runChild(const TestEnv& env, const QString& action) {
    QProcess p;
    p.setEnvironment(env.childEnv(action));
    p.start(QCoreApplication::applicationFilePath(), {});
    p.waitForFinished(20000);
    return {p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1,
            QString::fromUtf8(p.readAllStandardError()),
            QString::fromUtf8(readAllOf(env.progDir() + QStringLiteral("/ErrorReport.txt")))};
}

} // namespace

class CrashTest : public QObject {
    Q_OBJECT
private slots:
    void accessViolationBecomesReport() {
        TestEnv env;
        const ChildResult r = runChild(env, QStringLiteral("segv"));
        QCOMPARE(r.exitCode, argent::diag::kTrappedExitCode);
        QVERIFY2(r.reportFile.startsWith(
                     QStringLiteral("Error Number: 10005\r\nComponent Name: ArgentPasswordMngr\r\n"
                                    "Module Name: modCrash\r\nBlock Name: Crasher\r\n"
                                    "Description: Access Violation\r\nLine Number: 0\r\n")),
                 qPrintable(r.reportFile));
        QVERIFY(r.reportFile.contains(
            QStringLiteral("<Parameters><pDepth>7</pDepth>\r\n<pWhat>segv</pWhat>\r\n</Parameters>")));
        QVERIFY(r.reportFile.contains(QStringLiteral("<g_childState>child state</g_childState>")));
        QVERIFY(r.reportFile.contains(QStringLiteral("<CurUsPasw>{Hidden}</CurUsPasw>")));
        // The error globals are filled before the globals are written.
        QVERIFY(r.reportFile.contains(QStringLiteral(
            "<vbcsErrorNumber>10005</vbcsErrorNumber>\r\n<vbcsErrorDescription>Access Violation</"
            "vbcsErrorDescription>\r\n<vbcsErrorLine>0</"
            "vbcsErrorLine>\r\n<vbcsErrorSource>vbcsExceptionFilter</"
            "vbcsErrorSource>\r\n")));
        QVERIFY(r.reportFile.contains(
            QStringLiteral("Stack Trace: Name: modCrash.Main, Type: 1, Parameters: ;-->\r\n"
                           "Name: modCrash.Crasher, Type: 1")));
        QVERIFY(r.reportFile.endsWith(QStringLiteral("Version: 1.0.0")));
        // The same report goes to standard error.
        QVERIFY(r.stderrText.contains(r.reportFile));
    }

    void integerDivisionByZero() {
        TestEnv env;
        const ChildResult r = runChild(env, QStringLiteral("fpe"));
        QCOMPARE(r.exitCode, argent::diag::kTrappedExitCode);
        QVERIFY2(r.reportFile.startsWith(QStringLiteral("Error Number: 10132\r\n")),
                 qPrintable(r.reportFile));
        QVERIFY(r.reportFile.contains(
            QStringLiteral("Block Name: Divider\r\nDescription: Integer Divide By Zero\r\n")));
    }

    void raisedErrorEndsTheProgram() {
        TestEnv env;
        const ChildResult r = runChild(env, QStringLiteral("raise"));
        QCOMPARE(r.exitCode, argent::diag::kTrappedExitCode);
        QVERIFY2(r.reportFile.startsWith(QStringLiteral("Error Number: 76\r\n")), qPrintable(r.reportFile));
        QVERIFY(r.reportFile.contains(QStringLiteral("Description: Path not found\r\n")));
    }
};

ARGENT_TEST(CrashTest)
#include "tst_crash.moc"
