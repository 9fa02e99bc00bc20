#pragma once

// The fields of a record beyond the four in its editors: web address, TOTP seed with the
// current code, custom fields (add, rename in place, remove, hide) and, in the editor of
// an existing record, its earlier passwords, each put back into the password field with
// one click.

#include "storage/FieldTable.h"

#include <QObject>

class QGridLayout;
class QLabel;
class QLineEdit;
class QPushButton;
class QTabWidget;
class QTableWidget;
class QTimer;
class QWidget;
class clsDatabase;

class RecordExtrasPanel : public QObject {
    Q_OBJECT
public:
    // PaswField: the editor's password field, which an earlier password goes back into.
    RecordExtrasPanel(QWidget* Owner, QLineEdit* PaswField, bool WithHistory);
    // Rows Row.. of Grid (three columns); returns the next free row.
    int AddTo(QGridLayout* Grid, int Row);
    void ShowFormLang();
    void Load(const RecExtras& Ex);
    // What the editor shows now (history as loaded). False, after saying so, when the
    // seed gives no codes.
    bool Collect(RecExtras& Out);

    QLabel *lblUrlCap, *lblOtpCap, *lblOtpNow;
    QLineEdit *txtUrl, *txtOtp;
    QTabWidget* tabMore;
    QTableWidget *tblFields, *tblHistory;
    QPushButton *cmdAddField, *cmdRemoveField;

public slots:
    void cmdAddField_Click();
    void cmdRemoveField_Click();
    void RestorePasw(int Row);
    void ShowOtpNow();

private:
    void addFieldRow(const RecCustomField& F);
    void fieldHiddenToggled(int Row);

    QWidget* m_owner;
    QLineEdit* m_pasw;
    bool m_withHistory;
    QTimer* m_timer;
    RecExtras m_loaded;
};
