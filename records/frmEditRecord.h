#pragma once

#include <QDialog>

class QPushButton;
class LookControls;
class RecordFields;
class RecordExtrasPanel;

// A record's texts, icon, colour and bold mark.
class frmEditRecord : public QDialog {
    Q_OBJECT
public:
    frmEditRecord(QWidget* Parent, const QString& RecordID);
    void DoConfig();
    void ShowFormLang();

    QString RecordID;
    RecordFields* Fields;
    RecordExtrasPanel* Extras;
    LookControls* Look;
    QPushButton *cmdSaveChanges, *cmdCancel;

public slots:
    void cmdSaveChanges_Click();
};
