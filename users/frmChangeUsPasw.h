#pragma once

#include <QDialog>

class QLabel;
class QLineEdit;
class QPushButton;
class StrengthMeter;

// A new password for the current user, saved with the new key at once.
class frmChangeUsPasw : public QDialog {
    Q_OBJECT
public:
    explicit frmChangeUsPasw(QWidget* parent = nullptr);
    void ShowFormLang();

    QLabel *lblUserCap, *lblUserName, *lblPaswCap, *lblConfirmCap, *lblHint;
    QLineEdit *txtPassword, *txtConfirm;
    StrengthMeter* ctlStrength;
    QPushButton *cmdOk, *cmdCancel;

public slots:
    void cmdOk_Click();
};
