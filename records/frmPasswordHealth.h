#pragma once

#include "records/PasswordHealth.h"

#include <QDialog>

class QLabel;
class QPushButton;
class QSpinBox;
class QTreeWidget;
class QTreeWidgetItem;

// The password health report of the open user: weak, shared, old and empty passwords in
// four groups; a line of a record selects that record in the main window's tree.
class frmPasswordHealth : public QDialog {
    Q_OBJECT
public:
    frmPasswordHealth(QWidget* Parent, HealthReport Report);
    void ShowFormLang();

    QLabel *lblAgeCap, *lblUnknownAge, *lblHint;
    QSpinBox* spnAge;
    QTreeWidget* trvHealth;
    QPushButton* cmdClose;

public slots:
    void spnAge_Change();
    void trvHealth_Activated(QTreeWidgetItem* Item);

private:
    void Fill();
    // The group of old passwords again, for the age in spnAge.
    void FillOld();
    HealthReport m_rep;
    QTreeWidgetItem* m_old = nullptr;
};

// Makes the report of the open user, with a progress dialog that can stop it when it takes
// long, and shows it. Nothing happens without an open user.
void RunPasswordHealth(QWidget* Parent);
