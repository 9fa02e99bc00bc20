#pragma once

#include <QDialog>

class QLabel;
class QLineEdit;
class QPlainTextEdit;
class QPushButton;
class frmMain;

// A new record inside a folder.
class frmAddRecord : public QDialog {
    Q_OBJECT
public:
    frmAddRecord(frmMain* Main, const QString& ParentID);
    void ShowFormLang();

    QString ParentID;
    QLabel *lblTitleCap, *lblLoginCap, *lblPaswCap, *lblDescCap;
    QLineEdit *txtTitle, *txtLogin, *txtPasw;
    QPlainTextEdit* txtDesc;
    QPushButton *cmdGenerate, *cmdOk, *cmdCancel;

public slots:
    void cmdGenerate_Click();
    void cmdOk_Click();

private:
    frmMain* m_main;
};
