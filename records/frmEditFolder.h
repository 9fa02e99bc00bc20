#pragma once

#include <QDialog>

class QLabel;
class QLineEdit;
class QPlainTextEdit;
class QPushButton;
class LookControls;

// A folder's title, icon, colour, bold mark and description.
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
    QLabel* lblDescCap;
    QPlainTextEdit* txtDesc;
    QPushButton *cmdSaveChanges, *cmdCancel;

public slots:
    void cmdSaveChanges_Click();
};
