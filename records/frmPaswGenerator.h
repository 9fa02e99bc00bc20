#pragma once

#include <QDialog>

class QCheckBox;
class QLabel;
class QLineEdit;
class QPushButton;

// Random passwords of a chosen length; the last one generated goes to LastGenPasw.
class frmPaswGenerator : public QDialog {
    Q_OBJECT
public:
    explicit frmPaswGenerator(QWidget* parent = nullptr);
    void DoConfig();
    void ShowFormLang();

    QLabel *lblLengthCap, *lblPaswCap, *lblNote;
    QLineEdit *txtPaswLenght, *txtPasw;
    QCheckBox* chkClipCopy;
    QPushButton *cmdGenerate, *cmdOk, *cmdCancel;

public slots:
    void cmdGenerate_Click();
    void cmdOk_Click();
    void chkClipCopy_Click();
    void txtPaswLenght_Change();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;
};

// Clears LastGenPasw, shows the generator and returns what it left there.
QString RunPaswGenerator(QWidget* Owner);
