#include "app/DiagnosticsHookup.h"
#include "diagnostics/DbgPrint.h"
#include "diagnostics/ErrorTrap.h"
#include "diagnostics/Hookup.h"
#include "diagnostics/ReportSender.h"
#include "diagnostics/frmError.h"
#include "tests/common/TestEnv.h"
#include "tests/common/TestMain.h"

#include <QDir>
#include <QFile>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>

using argent::diag::Hookup;

// Diagnostics knows of the program only what it is handed: the log goes where the
// hookup says, the dialog speaks the texts it is given, and a program that hands over
// nothing gets no log files anywhere (not in the working folder) and an English dialog.
class HookupTest : public QObject {
    Q_OBJECT
private slots:
    void cleanup() { ConnectDiagnostics(); }

    void theLogGoesWhereTheHookupSays() {
        TestEnv env;
        QTemporaryDir a, b;
        QString folder = a.path() + '/';
        Hookup h;
        h.LogFolder = [&folder] { return folder; };
        argent::diag::SetHookup(h);
        DbgPrint(QStringLiteral("first"));
        folder = b.path() + '/';
        DbgPrint(QStringLiteral("second"));
        QCOMPARE(DbgFilePath(), b.path() + QStringLiteral("/DbgFile.dat"));
        QVERIFY(readAllOf(a.path() + "/DbgFile.dat").endsWith("): first\r\n"));
        QVERIFY(readAllOf(b.path() + "/DbgFile.dat").endsWith("): second\r\n"));
    }

    // A link planted at the log's or the report's name (a shared program folder) is never
    // written through: the file it points to keeps its bytes and its rights.
    void plantedLinksAreNotFollowed() {
        TestEnv env;
        QTemporaryDir dir;
        const QString victim = dir.path() + "/victim";
        writeFileText(victim, "keep me");
        QFile::setPermissions(victim, QFile::ReadOwner | QFile::WriteOwner | QFile::ReadOther);
        QVERIFY(QFile::link(victim, dir.path() + "/DbgFile.dat"));
        QVERIFY(QFile::link(victim, dir.path() + "/ErrorReport.txt"));
        const QString folder = dir.path() + '/';
        Hookup h;
        h.LogFolder = [&folder] { return folder; };
        argent::diag::SetHookup(h);
        QVERIFY_THROWS_EXCEPTION(VbError, DbgPrint(QStringLiteral("through the link")));
        argent::diag::clearSnapshot();
        argent::diag::SetErrorReportPath(dir.path() + "/ErrorReport.txt");
        argent::diag::WriteReportFile(QStringLiteral("a report"));
        QCOMPARE(readAllOf(victim), QByteArray("keep me"));
        QVERIFY(QFile::permissions(victim) & QFile::ReadOther);
    }

    void nothingHandedOverWritesNothing() {
        TestEnv env;
        QTemporaryDir work;
        const QString was = QDir::currentPath();
        QDir::setCurrent(work.path());
        argent::diag::SetHookup({});
        DbgPrint(QStringLiteral("nowhere"));
        QCOMPARE(DbgFilePath(), QString());
        QString host;
        quint16 port = 0;
        QVERIFY(!GetReportServer(host, port));
        frmError dlg;
        QCOMPARE(dlg.cmdSend->text(), QStringLiteral("&Send report"));
        QDir::setCurrent(was);
        QCOMPARE(QDir(work.path()).entryList(QDir::NoDotAndDotDot | QDir::AllEntries), QStringList());
    }

    void theDialogSpeaksTheTextsItIsGiven() {
        TestEnv env;
        Hookup h;
        h.Text = [](int Id) { return QStringLiteral("text %1").arg(Id); };
        h.ReportServer = [] { return QStringLiteral(" reports.example:8080 "); };
        argent::diag::SetHookup(h);
        frmError dlg;
        QCOMPARE(dlg.windowTitle(), QStringLiteral("text 239"));
        QCOMPARE(dlg.cmdDontSend->text(), QStringLiteral("text 244"));
        QString host;
        quint16 port = 0;
        QVERIFY(GetReportServer(host, port));
        QCOMPARE(host, QStringLiteral("reports.example"));
        QCOMPARE(port, quint16(8080));
    }
};

ARGENT_TEST(HookupTest)
#include "tst_hookup.moc"
