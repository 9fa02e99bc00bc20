#pragma once

#include "records/ImportExport.h"

#include <QDialog>

class QComboBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QWidget;

// Import of another password manager's file into a new folder inside the folder chosen
// in the tree. The file is read as soon as it is chosen, and the dialog says what it
// found (format, folders, records) or why it cannot be read, before anything changes.
// The import itself is one change: rows added, the tree updated, one save.
class frmImport : public QDialog {
    Q_OBJECT
public:
    frmImport(QWidget* Parent, const QString& ParentID, const QString& ParentTitle);
    void ShowFormLang();

    // Reads and parses the file (with a progress window when it takes a while).
    void LoadFile(const QString& Path);
    bool FileUnderstood() const { return m_ok; }
    const ImpData& Data() const { return m_data; }

    QString ParentID;
    QString NewFolderID; // after a successful import
    QLabel *lblFile, *lblFormat, *lblSummary;
    QLineEdit* txtFile;
    QPushButton *cmdBrowse, *cmdOk, *cmdCancel;
    QComboBox* cboFormat;
    // The columns of a generic CSV: title, login, password, description, folder path.
    QWidget* fraColumns;
    QLabel* lblColumn[5];
    QComboBox* cboColumn[5];

public slots:
    void cmdBrowse_Click();
    void cmdOk_Click();

protected:
    // Enter in the file field reads the file; it does not press Import before the user
    // has seen what was found.
    bool eventFilter(QObject* Watched, QEvent* Event) override;

private:
    void Parse();
    void ShowSummary();
    ImpFormat ChosenFormat() const;

    QString m_parentTitle;
    QString m_path;
    QByteArray m_start; // the first bytes of the file
    ImpData m_data;
    ImpError m_err;
    bool m_ok = false;
    bool m_filling = false; // the column lists are being filled: no parsing yet
};
