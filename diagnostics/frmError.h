#pragma once

// The error dialog: the program has failed and will end; the user may look at the
// report and send it to the report server first.

#include <QDialog>

class QLabel;
class QPushButton;
class QTcpSocket;

class frmError : public QDialog {
    Q_OBJECT
public:
    explicit frmError(QWidget* parent = nullptr);
    void ShowFormLang();
    // Keeps the characters 0-9, A-Z, a-z; every other character becomes "%" and its
    // code in hexadecimal.
    static QString URLEncode(const QString& str);

    QLabel* lblMessage = nullptr;
    QLabel* lblRequest = nullptr;
    QLabel* lblClickHere = nullptr;
    QLabel* lblStatus = nullptr;
    QPushButton* cmdSend = nullptr;
    QPushButton* cmdDontSend = nullptr;
    QTcpSocket* wskErrorReport = nullptr;
    bool IsConnected = false;

public slots:
    void cmdSend_Click();
    void cmdDontSend_Click();
    void lblClickHere_Click();
    void wskErrorReport_Connect();
    void wskErrorReport_DataArrival();
    void wskErrorReport_Error();

private:
    bool m_ended = false;
};

// Shows the dialog for ErrorMessage, modally. Returns when the program is to end.
void ShowErrorDialog();
// The GUI's error trap: reports are kept in ErrorReport.txt and shown in the dialog; a
// crash signal starts the program again in report mode to show its report.
void InstallGuiErrorTrap();
// Report mode: shows the dialog for the report in ReportPath and returns the exit status.
int RunReportOnlyMode(const QString& ReportPath);
