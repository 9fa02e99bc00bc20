#pragma once

#include <QDialog>

class QPushButton;
class RecordFields;
class RecordExtrasPanel;

// A new record inside a folder.
class frmAddRecord : public QDialog {
    Q_OBJECT
public:
    frmAddRecord(QWidget* Parent, const QString& ParentID);
    void ShowFormLang();

    QString ParentID;
    RecordFields* Fields;
    RecordExtrasPanel* Extras;
    QPushButton *cmdOk, *cmdCancel;

public slots:
    void cmdOk_Click();
};
