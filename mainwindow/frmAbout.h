#pragma once

#include <QDialog>

class QLabel;
class QPushButton;

// The About box: version, build date, and two buttons that provoke an error and a
// processor exception to try the error report.
class frmAbout : public QDialog {
    Q_OBJECT
public:
    explicit frmAbout(QWidget* parent = nullptr);
    void ShowFormLang();

    QLabel* lblProduct = nullptr;
    QLabel* lblDescription = nullptr;
    QLabel* lblVersion = nullptr;
    QLabel* lblBuildDate = nullptr;
    QPushButton* cmdTestError = nullptr;
    QPushButton* cmdTestException = nullptr;
    QPushButton* cmdOk = nullptr;

public slots:
    void cmdTestError_Click();
    void cmdTestException_Click();
};
