#pragma once

#include <QDialog>

class QCheckBox;
class QGroupBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QRadioButton;

// Steps through the rows that hold a text, selecting each in the main window's tree.
class frmFind : public QDialog {
    Q_OBJECT
public:
    explicit frmFind(QWidget* Parent);
    void DoConfig();
    void ShowFormLang();

    QLabel* lblFindTextCap;
    QLineEdit* txtFindText;
    QGroupBox* framCanvas2;
    QRadioButton *optSearchTitles, *optSearchEverywhere;
    QCheckBox* chkCaseSens;
    QPushButton *cmdFind, *cmdCancel;

public slots:
    void cmdFind_Click();
    void chkCaseSens_Click();
    void optSearch_Click();
    void txtFindText_Change();
};
