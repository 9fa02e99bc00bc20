#pragma once

#include <QDialog>

class QPushButton;
class LookControls;
class RecordFields;
class frmMain;

// A record's texts, icon, colour and bold mark.
class frmEditRecord : public QDialog {
    Q_OBJECT
public:
    frmEditRecord(frmMain* Main, const QString& RecordID);
    void DoConfig();
    void ShowFormLang();

    QString RecordID;
    RecordFields* Fields;
    LookControls* Look;
    QPushButton *cmdSaveChanges, *cmdCancel;

public slots:
    void cmdSaveChanges_Click();

private:
    frmMain* m_main;
};
