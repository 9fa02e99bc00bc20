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
    // Lists only the copies of one user (a damaged file offers them).
    void ShowUserCopies(const QString& UsName);

    QLabel* lblListCap;
    QListWidget* lstRestorDBs;
    QPushButton *cmdRestore, *cmdDelete, *cmdRefresh, *cmdBack;

public slots:
    void cmdRestore_Click();
    void cmdDelete_Click();

protected:
    // Closed by anything (the lock included): a question still open is no longer asked.
    void done(int r) override;

private:
    QString SelectedItem();
    QString m_onlyUser;
    bool m_closed = false;
};
