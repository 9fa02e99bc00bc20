#include "diagnostics/frmError.h"

#include "diagnostics/ErrorTrap.h"
#include "diagnostics/Hookup.h"
#include "diagnostics/ReportSender.h"
#include "diagnostics/Trace.h"
#include "diagnostics/frmErrorReport.h"

#include <QCoreApplication>
#include <QFile>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QStyle>
#include <QTcpSocket>
#include <QTimer>
#include <QVBoxLayout>

#include <csignal>
#include <unistd.h>

namespace {

// The dialog must speak even when the failure was a broken language file.
QString TextOr(int id, const char* fallback) {
    const auto& text = argent::diag::hookup().Text;
    if (!text)
        return QString::fromUtf8(fallback);
    const QString t = text(id);
    return t.startsWith(QStringLiteral("#Error in language module#")) ? QString::fromUtf8(fallback) : t;
}

// Async-signal-safe: runs in the crash handler after the report file is written.
void RestartInReportMode(const char* reportPath) {
    static char self[] = "/proc/self/exe";
    static char flag[] = "--error-report";
    char* argv[] = {self, flag, const_cast<char*>(reportPath), nullptr};
    sigset_t all;
    sigfillset(&all);
    sigprocmask(SIG_UNBLOCK, &all, nullptr);
    execv(self, argv);
}

void Message(const QString& Prompt, bool Critical) {
    if (const auto& message = argent::diag::hookup().Message)
        message(Prompt, Critical);
}

} // namespace

frmError::frmError(QWidget* parent) : QDialog(parent) {
    TRACE_PROC("frmError.Form_Load");
    setObjectName(QStringLiteral("frmError"));
    lblMessage = new QLabel;
    lblMessage->setWordWrap(true);
    lblRequest = new QLabel;
    lblRequest->setWordWrap(true);
    lblClickHere = new QLabel;
    lblClickHere->setObjectName(QStringLiteral("lblClickHere"));
    lblClickHere->setTextFormat(Qt::RichText);
    lblClickHere->setTextInteractionFlags(Qt::LinksAccessibleByMouse | Qt::LinksAccessibleByKeyboard);
    lblStatus = new QLabel;
    cmdSend = new QPushButton;
    cmdSend->setObjectName(QStringLiteral("cmdSend"));
    cmdSend->setDefault(true);
    cmdDontSend = new QPushButton;
    cmdDontSend->setObjectName(QStringLiteral("cmdDontSend"));
    wskErrorReport = new QTcpSocket(this);

    auto* icon = new QLabel;
    icon->setPixmap(style()->standardIcon(QStyle::SP_MessageBoxCritical).pixmap(48, 48));
    auto* top = new QHBoxLayout;
    top->addWidget(icon, 0, Qt::AlignTop);
    auto* texts = new QVBoxLayout;
    texts->addWidget(lblMessage);
    texts->addWidget(lblRequest);
    texts->addWidget(lblClickHere);
    top->addLayout(texts, 1);
    auto* buttons = new QHBoxLayout;
    buttons->addWidget(lblStatus, 1);
    buttons->addWidget(cmdSend);
    buttons->addWidget(cmdDontSend);
    auto* lay = new QVBoxLayout(this);
    lay->addLayout(top);
    lay->addLayout(buttons);
    setMinimumWidth(480);

    connect(cmdSend, &QPushButton::clicked, this, &frmError::cmdSend_Click);
    connect(cmdDontSend, &QPushButton::clicked, this, &frmError::cmdDontSend_Click);
    connect(lblClickHere, &QLabel::linkActivated, this, &frmError::lblClickHere_Click);
    connect(wskErrorReport, &QTcpSocket::connected, this, &frmError::wskErrorReport_Connect);
    connect(wskErrorReport, &QTcpSocket::readyRead, this, &frmError::wskErrorReport_DataArrival);
    connect(wskErrorReport, &QTcpSocket::errorOccurred, this, &frmError::wskErrorReport_Error);
    ShowFormLang();
}

void frmError::ShowFormLang() {
    TRACE_PROC("frmError.ShowFormLang");
    setWindowTitle(TextOr(239, "Program error"));
    lblMessage->setText(TextOr(240, "An unexpected error has occurred, and the program has to close."));
    lblRequest->setText(TextOr(241, "Please send the error report to the developers."));
    lblClickHere->setText(QStringLiteral("<a href=\"#report\">%1</a>")
                              .arg(TextOr(242, "Click here to see the data in the report").toHtmlEscaped()));
    cmdSend->setText(TextOr(243, "&Send report"));
    cmdDontSend->setText(TextOr(244, "&Don't send"));
}

QString frmError::URLEncode(const QString& str) {
    TRACE_PROC("frmError.URLEncode", str);
    QString out;
    for (QChar c : str) {
        const char16_t u = c.unicode();
        if ((u >= u'0' && u <= u'9') || (u >= u'A' && u <= u'Z') || (u >= u'a' && u <= u'z'))
            out += c;
        else
            out += u'%' + QString::number(u, 16).toUpper();
    }
    return out;
}

void frmError::cmdSend_Click() {
    TRACE_PROC("frmError.cmdSend_Click");
    QString host;
    quint16 port = 80;
    if (!GetReportServer(host, port)) {
        Message(QStringLiteral("Information sending failed"), true);
        return;
    }
    const QByteArray request = BuildReportRequest(host, ErrorMessage);
    cmdSend->setEnabled(false);
    lblStatus->setText(TextOr(245, "Sending the report..."));
    IsConnected = false;
    bool failed = false;
    auto conn = connect(wskErrorReport, &QTcpSocket::errorOccurred, this, [&failed] { failed = true; });
    wskErrorReport->connectToHost(host, port);
    // Wake the loop below regularly, so that the time limit holds without any events.
    QTimer tick;
    tick.start(50);
    const double start = argent::diag::MonotonicSeconds();
    for (;;) {
        if (IsConnected) {
            wskErrorReport->write(request);
            break;
        }
        if (failed)
            break;
        QCoreApplication::processEvents(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents);
        // No connection in time: the program ends at once, without a message.
        if (argent::diag::MonotonicSeconds() - start > kReportConnectWait) {
            m_ended = true;
            done(QDialog::Rejected);
            break;
        }
    }
    disconnect(conn);
}

void frmError::cmdDontSend_Click() {
    TRACE_PROC("frmError.cmdDontSend_Click");
    done(QDialog::Rejected);
}

void frmError::lblClickHere_Click() {
    TRACE_PROC("frmError.lblClickHere_Click");
    frmErrorReport report(this);
    report.exec();
}

void frmError::wskErrorReport_Connect() {
    TRACE_PROC("frmError.wskErrorReport_Connect");
    IsConnected = true;
}

void frmError::wskErrorReport_DataArrival() {
    TRACE_PROC("frmError.wskErrorReport_DataArrival");
    if (m_ended)
        return;
    wskErrorReport->readAll();
    m_ended = true;
    Message(QStringLiteral("Thank you for your help!"), false);
    done(QDialog::Accepted);
}

void frmError::wskErrorReport_Error() {
    TRACE_PROC("frmError.wskErrorReport_Error");
    // The server closing the connection after its answer is not a failure.
    if (m_ended || wskErrorReport->error() == QAbstractSocket::RemoteHostClosedError)
        return;
    lblStatus->clear();
    Message(QStringLiteral("Information sending failed"), true);
}

void ShowErrorDialog() {
    TRACE_PROC("frmError.ShowErrorDialog");
    frmError dlg;
    dlg.exec();
}

void InstallGuiErrorTrap() {
    TRACE_PROC("frmError.InstallGuiErrorTrap");
    InstallErrorTrap();
    argent::diag::SetReportHandler([](const QString& report) {
        argent::diag::WriteReportFile(report);
        ShowErrorDialog();
    });
    argent::diag::SetCrashContinuation(RestartInReportMode);
}

int RunReportOnlyMode(const QString& ReportPath) {
    TRACE_PROC("frmError.RunReportOnlyMode", ReportPath);
    // Settings and language as far as they load; the dialog copes without them.
    try {
        if (const auto& load = argent::diag::hookup().LoadForReport)
            load();
    } catch (...) {
        argent::diag::clearSnapshot();
    }
    QFile f(ReportPath);
    if (f.open(QIODevice::ReadOnly))
        ErrorMessage = QString::fromUtf8(f.readAll());
    ShowErrorDialog();
    return argent::diag::kTrappedExitCode;
}
