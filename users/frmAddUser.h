#pragma once

#include <QDialog>

class QCheckBox;
class QLabel;
class QLineEdit;
class QPushButton;
class StrengthMeter;

// A new user: name, password twice, optionally opened at once.
class frmAddUser : public QDialog {
    Q_OBJECT
public:
    explicit frmAddUser(QWidget* parent = nullptr);
    void ShowFormLang();

    QLabel *lblNameCap, *lblPaswCap, *lblConfirmCap, *lblHint;
    QLineEdit *txtNewUsName, *txtPasw, *txtConfirm;
    QCheckBox* chkLoadAfterAdd;
    StrengthMeter* ctlStrength;
    QPushButton *cmdAddUser, *cmdCancel;

public slots:
    void cmdAddUser_Click();
};
