#pragma once

// Asks for the password of one user; the result goes to FrmPaswResult (1 right,
// 2 wrong or no file, 3 cancelled) and FrmPaswEnetered (the password's MD5 text).

#include <QDialog>

class QLabel;
class QLineEdit;
class QPushButton;

extern bool FrmPaswShown;

class frmPassword : public QDialog {
    Q_OBJECT
public:
    explicit frmPassword(QWidget* parent = nullptr);
    ~frmPassword() override;
    void ShowFormLang();

    QLabel* lblPrompt = nullptr;
    QLabel* lblUserName = nullptr;
    QLabel* lblPasswordCap = nullptr;
    QLineEdit* txtPassword = nullptr;
    QLabel* lblSamplePassword = nullptr;
    QPushButton* cmdOk = nullptr;
    QPushButton* cmdCancel = nullptr;

public slots:
    void cmdOk_Click();
    void cmdCancel_Click();
    void txtPassword_Change();

protected:
    void showEvent(QShowEvent* e) override;
    void closeEvent(QCloseEvent* e) override;
    void reject() override;
};

// Shows the prompt for user UsName (modal). Returns FrmPaswResult.
int AskUserPassword(QWidget* Owner, const QString& UsName);
