#include "app/MsgBox.h"
#include "app/ProgConfig.h"
#include "app/guiApplication.h"
#include "app/modLang.h"
#include "app/modMain.h"
#include "diagnostics/ErrorTrap.h"
#include "diagnostics/ReportSender.h"
#include "diagnostics/frmError.h"
#include "mainwindow/frmAbout.h"
#include "tests/common/TestEnv.h"
#include "tests/common/TestMain.h"

#include <QElapsedTimer>
#include <QProcess>
#include <QPushButton>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTest>
#include <QTimer>

#include <arpa/inet.h>
#include <cstdio>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

frmError* visibleErrorDialog() {
    for (QWidget* w : QApplication::topLevelWidgets())
        if (auto* e = qobject_cast<frmError*>(w); e && e->isVisible())
            return e;
    return nullptr;
}

// The program in a child process: the About box's test button fails for real, and the
// error dialog that follows is answered by "Send"; message boxes are printed.
int childAbout(int& argc, char** argv) {
    ArgentApplication app(argc, argv);
    SetAppPath(qEnvironmentVariable("ARGENT_TEST_PROGDIR"));
    SetExeFolderPath(qEnvironmentVariable("ARGENT_TEST_PROGDIR"));
    SetMsgBoxHandler([](const QString& prompt, int style, const QString&) {
        std::printf("MSGBOX %d %s\n", style, prompt.toUtf8().constData());
        std::fflush(stdout);
        // After a failure message the user gives up.
        QTimer::singleShot(0, [] {
            if (frmError* e = visibleErrorDialog())
                e->cmdDontSend->click();
        });
        return static_cast<int>(vbOK);
    });
    InstallGuiErrorTrap();
    QTimer clicker;
    QObject::connect(&clicker, &QTimer::timeout, [&clicker] {
        if (frmError* e = visibleErrorDialog()) {
            clicker.stop();
            e->cmdSend->click();
        }
    });
    clicker.start(20);
    const QStringList args = QCoreApplication::arguments();
    if (args.size() >= 3 && args[1] == QLatin1String("--error-report"))
        return RunReportOnlyMode(args[2]);
    ChooseConfiguration();
    LoadLang(Pt(AppPath()) + "Languages/" + ProgConfig[14] + ".lng");
    frmAbout about;
    about.show();
    QPushButton* trigger = qEnvironmentVariable("ARGENT_TEST_TRIGGER") == QLatin1String("exception")
                               ? about.cmdTestException
                               : about.cmdTestError;
    QTimer::singleShot(0, trigger, [trigger] { QTest::mouseClick(trigger, Qt::LeftButton); });
    return app.exec();
}
ARGENT_CHILD("about", childAbout)

// A portable settings file whose entry 21 names the report server.
void writeSettings(const TestEnv& env, const QString& server) {
    StrMass defaults;
    LoadConfig(env.progDir() + "/start.dat", defaults);
    QByteArray out;
    for (int i = 1; i <= 20; ++i)
        out += defaults[i].toUtf8() + "\r\n";
    out += server.toUtf8() + "\r\n";
    writeFileText(env.progDir() + "/config.dat", out);
}

QProcess* startChild(const TestEnv& env, const QString& trigger) {
    auto* p = new QProcess;
    QStringList e = env.childEnv("about");
    e << "ARGENT_TEST_TRIGGER=" + trigger;
    p->setEnvironment(e);
    p->start(QCoreApplication::applicationFilePath(), {});
    return p;
}

// Reads one HTTP request (headers and Content-Length bytes of body).
QByteArray readRequest(QTcpSocket* s) {
    QByteArray in;
    QElapsedTimer t;
    t.start();
    while (t.elapsed() < 15000) {
        const int end = in.indexOf("\r\n\r\n");
        if (end >= 0) {
            const int at = in.indexOf("Content-Length: ");
            const int len = at >= 0 ? in.mid(at + 16, in.indexOf("\r\n", at) - at - 16).toInt() : 0;
            if (in.size() >= end + 4 + len)
                break;
        }
        if (s->bytesAvailable() || s->waitForReadyRead(200))
            in += s->readAll();
    }
    return in;
}

} // namespace

class ErrorDialogTest : public QObject {
    Q_OBJECT
private slots:
    void requestAndSettings() {
        const QString report = QStringLiteral("Error Number: 11\r\nDescription: Пример & <x>");
        const QByteArray body = "Submit=1&msg=" + report.toUtf8();
        QCOMPARE(BuildReportRequest("reports.example.org", report),
                 "POST /reports/argentpm/autoreport.php HTTP/1.0\r\nHost: reports.example.org\r\n"
                 "Content-Type: application/x-www-form-urlencoded\r\nContent-Length: " +
                     QByteArray::number(body.size()) + "\r\n\r\n" + body);
        QCOMPARE(frmError::URLEncode("a b-Я9"), QStringLiteral("a%20b%2D%42F9"));

        TestEnv env;
        ProgConfig.Reset();
        for (int i = 1; i <= 20; ++i)
            AddElemToStrMass(ProgConfig, "x");
        QString host;
        quint16 port = 0;
        QVERIFY(!GetReportServer(host, port)); // settings of 20 lines: no server
        AddElemToStrMass(ProgConfig, "");
        QVERIFY(!GetReportServer(host, port));
        ProgConfig[21] = "reports.example.org";
        QVERIFY(GetReportServer(host, port));
        QCOMPARE(host, QStringLiteral("reports.example.org"));
        QCOMPARE(port, quint16(80));
        ProgConfig[21] = "127.0.0.1:8080";
        QVERIFY(GetReportServer(host, port));
        QCOMPARE(host, QStringLiteral("127.0.0.1"));
        QCOMPARE(port, quint16(8080));
        ProgConfig[21] = "host:http";
        QVERIFY(!GetReportServer(host, port));
    }

    void reportIsSentAndThanked_data() {
        QTest::addColumn<QString>("trigger");
        QTest::addColumn<QString>("head");
        QTest::newRow("error")
            << "error"
            << "Error Number: 11\r\nComponent Name: ArgentPasswordMngr\r\n"
               "Module Name: frmAbout\r\nBlock Name: cmdTestError_Click\r\nDescription: Division by zero\r\n";
        QTest::newRow("exception") << "exception"
                                   << "Error Number: 10005\r\nComponent Name: ArgentPasswordMngr\r\n"
                                      "Module Name: frmAbout\r\nBlock Name: cmdTestException_Click\r\n"
                                      "Description: Access Violation\r\n";
    }
    void reportIsSentAndThanked() {
        QFETCH(QString, trigger);
        QFETCH(QString, head);
        TestEnv env;
        QTcpServer server;
        QVERIFY(server.listen(QHostAddress::LocalHost));
        writeSettings(env, "127.0.0.1:" + QString::number(server.serverPort()));
        std::unique_ptr<QProcess> child(startChild(env, trigger));
        QVERIFY(server.waitForNewConnection(20000));
        QTcpSocket* s = server.nextPendingConnection();
        const QByteArray request = readRequest(s);
        s->write("HTTP/1.0 200 OK\r\n\r\nstored");
        s->waitForBytesWritten(2000);
        s->disconnectFromHost();
        QVERIFY(child->waitForFinished(20000));
        QCOMPARE(child->exitCode(), argent::diag::kTrappedExitCode);
        QCOMPARE(QString::fromUtf8(child->readAllStandardOutput()),
                 QStringLiteral("MSGBOX 64 Thank you for your help!\n"));
        // Exactly the report the program kept, sent as it stands.
        const QString report = QString::fromUtf8(readAllOf(env.progDir() + "/ErrorReport.txt"));
        QVERIFY2(report.startsWith(head), qPrintable(report));
        if (trigger == QStringLiteral("error")) {
            // The failing procedure's variables, and the error globals in the global dump.
            QVERIFY2(report.contains(
                         QStringLiteral("<LocalVariables><Dividend>1</Dividend>\r\n<Divisor>0</Divisor>\r\n"
                                        "<Quotient>0</Quotient>\r\n</LocalVariables>")),
                     qPrintable(report));
            QVERIFY(report.contains(QStringLiteral("<vbcsErrorNumber>11</vbcsErrorNumber>")));
            QVERIFY(report.contains(QStringLiteral(
                "Name: frmAbout.cmdTestError_Click, Type: 1, Parameters: ;-->\r\n\r\nVersion: ")));
        }
        QCOMPARE(request, BuildReportRequest("127.0.0.1", report));
    }

    void serverThatNeverAcceptsEndsTheProgramAfterTenSeconds() {
        TestEnv env;
        // A listening socket whose queue is full: further connections are never accepted.
        const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in addr{};
        addr.sin_family = AF_INET;
        addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        QCOMPARE(::bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr), 0);
        QCOMPARE(::listen(fd, 0), 0);
        socklen_t len = sizeof addr;
        ::getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &len);
        const quint16 port = ntohs(addr.sin_port);
        std::vector<std::unique_ptr<QTcpSocket>> fillers;
        for (int i = 0; i < 3; ++i) {
            fillers.push_back(std::make_unique<QTcpSocket>());
            fillers.back()->connectToHost(QHostAddress::LocalHost, port);
        }
        fillers.front()->waitForConnected(2000);
        writeSettings(env, "127.0.0.1:" + QString::number(port));
        QElapsedTimer t;
        t.start();
        std::unique_ptr<QProcess> child(startChild(env, "error"));
        QVERIFY(child->waitForFinished(30000));
        const qint64 ms = t.elapsed();
        ::close(fd);
        QCOMPARE(child->exitCode(), argent::diag::kTrappedExitCode);
        QVERIFY2(ms >= 10000 && ms < 20000, qPrintable(QString::number(ms)));
        QCOMPARE(child->readAllStandardOutput(), QByteArray()); // no message at all
    }

    void refusedOrMissingServerSaysSendingFailed_data() {
        QTest::addColumn<bool>("configured");
        QTest::newRow("nothing listens") << true;
        QTest::newRow("no server set") << false;
    }
    void refusedOrMissingServerSaysSendingFailed() {
        QFETCH(bool, configured);
        TestEnv env;
        QTcpServer probe;
        probe.listen(QHostAddress::LocalHost);
        const quint16 port = probe.serverPort();
        probe.close();
        writeSettings(env, configured ? "127.0.0.1:" + QString::number(port) : QString());
        std::unique_ptr<QProcess> child(startChild(env, "error"));
        QVERIFY(child->waitForFinished(20000));
        QCOMPARE(child->exitCode(), argent::diag::kTrappedExitCode);
        QCOMPARE(QString::fromUtf8(child->readAllStandardOutput()),
                 QStringLiteral("MSGBOX 16 Information sending failed\n"));
    }
};

ARGENT_TEST(ErrorDialogTest)
#include "tst_errordialog.moc"
