#pragma once

#include <QDialog>

class QLabel;
class QLineEdit;
class QPlainTextEdit;
class QPushButton;
class LookControls;
class frmMain;

// A record's texts, icon, colour and bold mark.
class frmEditRecord : public QDialog {
    Q_OBJECT
public:
    frmEditRecord(frmMain* Main, const QString& RecordID);
    void DoConfig();
    void ShowFormLang();

    QString RecordID;
    QLabel *lblTitleCap, *lblLoginCap, *lblPaswCap, *lblDescCap;
    QLineEdit *txtTitle, *txtLogin, *txtPasw;
    QPlainTextEdit* txtDesc;
    LookControls* Look;
    QPushButton *cmdGenerate, *cmdSaveChanges, *cmdCancel;

public slots:
    void cmdGenerate_Click();
    void cmdSaveChanges_Click();

private:
    frmMain* m_main;
};
