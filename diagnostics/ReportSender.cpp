#include "diagnostics/ReportSender.h"

#include "diagnostics/Hookup.h"
#include "diagnostics/Trace.h"

QByteArray BuildReportRequest(const QString& Host, const QString& Report) {
    TRACE_PROC("frmError.BuildReportRequest", Host);
    const QByteArray body = QByteArrayLiteral("Submit=1&msg=") + Report.toUtf8();
    QByteArray req;
    req += "POST /reports/argentpm/autoreport.php HTTP/1.0\r\n";
    req += "Host: " + Host.toUtf8() + "\r\n";
    req += "Content-Type: application/x-www-form-urlencoded\r\n";
    req += "Content-Length: " + QByteArray::number(body.size()) + "\r\n";
    req += "\r\n";
    req += body;
    return req;
}

bool GetReportServer(QString& Host, quint16& Port) {
    TRACE_PROC("frmError.GetReportServer");
    const auto& server = argent::diag::hookup().ReportServer;
    const QString value = server ? server().trimmed() : QString();
    if (value.isEmpty())
        return false;
    Host = value;
    Port = 80;
    const qsizetype colon = value.lastIndexOf(u':');
    if (colon > 0 && !value.contains(u']')) {
        bool ok = false;
        const uint p = value.mid(colon + 1).toUInt(&ok);
        if (!ok || p == 0 || p > 65535)
            return false;
        Host = value.left(colon);
        Port = static_cast<quint16>(p);
    }
    return !Host.isEmpty();
}
