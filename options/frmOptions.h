#pragma once

// The options dialog: every control writes its setting at once, in memory; OK applies
// the tray mode and saves the settings file; Cancel keeps what the controls stored.

#include <QDialog>

class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QTabWidget;

class frmOptions : public QDialog {
    Q_OBJECT
public:
    explicit frmOptions(QWidget* parent = nullptr);
    void DoConfig();
    void ShowFormLang();
    // Adds a page after the general one; the page keeps its own settings and texts.
    void AddPage(QWidget* page, const QString& title);

    QCheckBox *chkStartWithWin, *chkLoadLUser, *chkTrayMode, *chkPaswProtect, *chkDBBackup;
    // Settings entry 22: the main window saves after every change it makes.
    QCheckBox* chkSaveAfterChange;
    QLineEdit *txtDBPath, *txtInactMin, *txtBackCopies, *txtClipClear;
    QLabel *lblDBPathCap, *lblInactMinCap, *lblBackCopiesCap, *lblLangCap, *lblLangHint, *lblClipClearCap;
    // Settings entry 25: earlier passwords kept per record.
    QLineEdit* txtPaswHistory;
    QLabel* lblPaswHistoryCap;
    QComboBox* cboLanguage;
    QPushButton *cmdChangeDBPath, *cmdOk, *cmdCancel;
    QTabWidget* tabPages;

public slots:
    void chkStartWithWin_Click();
    void chkLoadLUser_Click();
    void chkTrayMode_Click();
    void chkPaswProtect_Click();
    void chkDBBackup_Click();
    void chkSaveAfterChange_Change();
    void txtInactMin_Change();
    void txtBackCopies_Change();
    // Seconds a copied password stays on the clipboard (settings entry 23; 0 never clears).
    void txtClipClear_Change();
    void txtPaswHistory_Change();
    void cboLanguage_Click();
    void cmdChangeDBPath_Click();
    void cmdOk_Click();
    void cmdCancel_Click();

private:
    void SwitchWithNumber(QCheckBox* Box, QLineEdit* Field, int Entry);
};
