#pragma once

// The text fields the record editors share: title, login, password with its show/hide
// toggle and generate button, and description, laid out in a grid.

#include <QObject>

class QGridLayout;
class QLabel;
class QLineEdit;
class QPlainTextEdit;
class QPushButton;
class QToolButton;
class QWidget;
class clsDatabase;

class RecordFields : public QObject {
    Q_OBJECT
public:
    explicit RecordFields(QWidget* Owner);
    // Puts the fields into rows Row.. of Grid (three columns); returns the next free row.
    int AddTo(QGridLayout* Grid, int Row);
    void ShowFormLang();
    void LoadFromRow(clsDatabase& Db, int TblNum, int RecNum);
    void WriteToRow(clsDatabase& Db, int TblNum, int RecNum);

    QLabel *lblTitleCap, *lblLoginCap, *lblPaswCap, *lblDescCap;
    QLineEdit *txtTitle, *txtLogin, *txtPasw;
    QPlainTextEdit* txtDesc;
    QPushButton* cmdGenerate;
    // Shows or hides the password (hidden when the editor opens).
    QToolButton* cmdShowPasw;

public slots:
    // The generator's last password, even one left by Cancel, goes into the field.
    void cmdGenerate_Click();
    void cmdShowPasw_Toggled(bool Shown);

private:
    QWidget* m_owner;
};

// The DataTable row of the record or folder an editor was opened for (RecordID is its
// identifier as text); 0 when it is gone. TblNum receives the table.
int EditorRow(const QString& RecordID, int& TblNum);
