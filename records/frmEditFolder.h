#pragma once

#include <QDialog>

class QLabel;
class QLineEdit;
class QPushButton;
class LookControls;

// A folder's title, icon, colour and bold mark.
class frmEditFolder : public QDialog {
    Q_OBJECT
public:
    frmEditFolder(QWidget* Parent, const QString& RecordID);
    void DoConfig();
    void ShowFormLang();

    QString RecordID;
    QLabel* lblTitleCap;
    QLineEdit* txtTitle;
    LookControls* Look;
    QPushButton *cmdSaveChanges, *cmdCancel;

public slots:
    void cmdSaveChanges_Click();
};
