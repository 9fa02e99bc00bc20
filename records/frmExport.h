#pragma once

#include <QDialog>

class QLabel;
class QPushButton;
class QRadioButton;

// Export of the whole user, or of the folder selected in the tree with everything in it,
// to KeePass 2 XML or KeePassXC CSV. The file holds the passwords in plain text: the user
// is warned before it is written, and it is created readable by its owner only.
class frmExport : public QDialog {
    Q_OBJECT
public:
    // FolderID "0" (or a record's) leaves only the whole user to choose.
    frmExport(QWidget* Parent, const QString& FolderID, const QString& FolderTitle);
    void ShowFormLang();
    // Warns, writes the file and says how it went; true when it was written.
    bool ExportTo(const QString& Path);

    QString FolderID;
    QRadioButton *optAll, *optFolder, *optXml, *optCsv;
    QLabel* lblFormat;
    QPushButton *cmdOk, *cmdCancel;

public slots:
    void cmdOk_Click();

private:
    QString m_folderTitle;
};
