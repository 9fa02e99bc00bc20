#pragma once

#include <QDialog>

class QLabel;
class QListWidget;
class QPushButton;

// The backup copies of every user: put one back as its user's database, or delete it.
class frmRestore : public QDialog {
    Q_OBJECT
public:
    explicit frmRestore(QWidget* parent = nullptr);
    void ShowFormLang();
    void ListDBs();

    QLabel* lblListCap;
    QListWidget* lstRestorDBs;
    QPushButton *cmdRestore, *cmdDelete, *cmdRefresh, *cmdBack;

public slots:
    void cmdRestore_Click();
    void cmdDelete_Click();

private:
    QString SelectedItem();
};
