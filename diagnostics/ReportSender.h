#pragma once

// The error report's way to the report server: one HTTP/1.0 POST whose body is
// "Submit=1&msg=" followed by the report text as it stands.

#include <QByteArray>
#include <QString>

// The request bytes; Content-Length counts the bytes of the body as sent (UTF-8).
QByteArray BuildReportRequest(const QString& Host, const QString& Report);

// The report server from settings entry 21 ("host" or "host:port", port 80 by default).
// False when none is set.
bool GetReportServer(QString& Host, quint16& Port);

// Seconds the sender waits for the connection before it gives up and the program ends.
constexpr double kReportConnectWait = 10.0;
