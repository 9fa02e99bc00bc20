#pragma once

#include <QDialog>

class QPlainTextEdit;
class QPushButton;

// The report text, read-only, so that the user sees what would be sent.
class frmErrorReport : public QDialog {
    Q_OBJECT
public:
    explicit frmErrorReport(QWidget* parent = nullptr);
    QPlainTextEdit* txtReport = nullptr;
    QPushButton* cmdBack = nullptr;
};
