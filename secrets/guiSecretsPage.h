#pragma once

// The options page "Secret Service": the switch (settings entry 28), what the provider is
// doing (serving, or who owns the name and why this program leaves it alone), and the
// programs the user always lets read, with a way to withdraw that.

#include <QWidget>

class QCheckBox;
class QLabel;
class QListWidget;
class QPushButton;

class guiSecretsPage : public QWidget {
    Q_OBJECT
public:
    explicit guiSecretsPage(QWidget* parent = nullptr);

    QCheckBox* chkServe = nullptr;
    QLabel* lblState = nullptr;
    QLabel* lblAlwaysCap = nullptr;
    QListWidget* lstAlways = nullptr;
    QPushButton* cmdWithdraw = nullptr;

public slots:
    void chkServe_Click();
    void cmdWithdraw_Click();
    void ShowState();

private:
    QString m_user;
};
