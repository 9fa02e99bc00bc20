#pragma once

#include <QDialog>

class QLabel;
class QListWidget;
class QPushButton;

// The users of the databases folder: open one, create, delete, or change the folder.
class frmSelectUser : public QDialog {
    Q_OBJECT
public:
    explicit frmSelectUser(QWidget* parent = nullptr);
    void ShowFormLang();
    void LoadUsers();

    QLabel* lblUsersCap;
    QListWidget* lstUsers;
    QPushButton *cmdChooseUser, *cmdAddUser, *cmdDelUser, *cmdChangePath, *cmdExit;

public slots:
    void cmdChooseUser_Click();
    void cmdAddUser_Click();
    void cmdDelUser_Click();
    void cmdChangePath_Click();

protected:
    // Closed by anything (the lock included): a question still open is no longer asked.
    void done(int r) override;

private:
    bool m_closed = false;
};
