#include "options/frmOptions.h"

#include "app/ClipDelay.h"
#include "app/MsgBox.h"
#include "app/ProgConfig.h"
#include "app/VbConv.h"
#include "app/guiApplication.h"
#include "app/modLang.h"
#include "app/modMain.h"
#include "browser/guiBrowserPage.h"
#include "diagnostics/Trace.h"
#include "options/AutorunManagement.h"
#include "options/guiFolderChooser.h"
#include "options/guiPanePasswordBox.h"
#include "records/RecordExtras.h"
#include "secrets/guiSecretsPage.h"
#include "tray/guiModTray.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDir>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QIntValidator>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSignalBlocker>
#include <QTabWidget>
#include <QVBoxLayout>

namespace {
QString boxValue(const QCheckBox* b) {
    return b->isChecked() ? QStringLiteral("1") : QStringLiteral("0");
}
} // namespace

frmOptions::frmOptions(QWidget* parent) : QDialog(parent) {
    TRACE_PROC("frmOptions.Form_Load");
    setObjectName(QStringLiteral("frmOptions"));
    auto named = [](auto* w, const char* name) {
        w->setObjectName(QString::fromLatin1(name));
        return w;
    };
    chkStartWithWin = named(new QCheckBox, "chkStartWithWin");
    chkLoadLUser = named(new QCheckBox, "chkLoadLUser");
    chkTrayMode = named(new QCheckBox, "chkTrayMode");
    chkPaswProtect = named(new QCheckBox, "chkPaswProtect");
    chkDBBackup = named(new QCheckBox, "chkDBBackup");
    chkSaveAfterChange = named(new QCheckBox, "chkSaveAfterChange");
    txtDBPath = named(new QLineEdit, "txtDBPath");
    txtDBPath->setReadOnly(true);
    txtInactMin = named(new QLineEdit, "txtInactMin");
    txtBackCopies = named(new QLineEdit, "txtBackCopies");
    txtClipClear = named(new QLineEdit, "txtClipClear");
    txtClipClear->setValidator(new QIntValidator(0, kClipDelayMax, txtClipClear));
    txtPaswHistory = named(new QLineEdit, "txtPaswHistory");
    txtPaswHistory->setValidator(new QIntValidator(0, 100, txtPaswHistory));
    for (QLineEdit* e : {txtInactMin, txtBackCopies, txtClipClear, txtPaswHistory})
        e->setMaximumWidth(80);
    lblPaswHistoryCap = new QLabel;
    lblPaswHistoryCap->setBuddy(txtPaswHistory);
    lblClipClearCap = new QLabel;
    lblClipClearCap->setWordWrap(true);
    lblClipClearCap->setBuddy(txtClipClear);
    lblDBPathCap = new QLabel;
    lblInactMinCap = new QLabel;
    lblBackCopiesCap = new QLabel;
    lblLangCap = new QLabel;
    lblLangHint = new QLabel;
    lblLangHint->setWordWrap(true);
    lblLangHint->setVisible(false);
    cboLanguage = named(new QComboBox, "cboLanguage");
    lblDBPathCap->setBuddy(txtDBPath);
    lblInactMinCap->setBuddy(txtInactMin);
    lblBackCopiesCap->setBuddy(txtBackCopies);
    lblLangCap->setBuddy(cboLanguage);
    cmdChangeDBPath = named(new QPushButton, "cmdChangeDBPath");
    cmdOk = named(new QPushButton, "cmdOk");
    cmdOk->setDefault(true);
    cmdCancel = named(new QPushButton, "cmdCancel");

    auto* grid = new QGridLayout;
    int row = 0;
    TRACE_LOCAL(row);
    grid->addWidget(chkStartWithWin, row++, 0, 1, 3);
    grid->addWidget(chkLoadLUser, row++, 0, 1, 3);
    grid->addWidget(chkTrayMode, row++, 0, 1, 3);
    grid->addWidget(chkPaswProtect, row++, 0, 1, 3);
    grid->addWidget(lblInactMinCap, row, 1);
    grid->addWidget(txtInactMin, row++, 2);
    grid->addWidget(chkDBBackup, row++, 0, 1, 3);
    grid->addWidget(lblBackCopiesCap, row, 1);
    grid->addWidget(txtBackCopies, row++, 2);
    grid->addWidget(chkSaveAfterChange, row++, 0, 1, 3);
    grid->addWidget(lblClipClearCap, row, 0, 1, 2);
    grid->addWidget(txtClipClear, row++, 2);
    grid->addWidget(lblPaswHistoryCap, row, 0, 1, 2);
    grid->addWidget(txtPaswHistory, row++, 2);
    grid->setColumnMinimumWidth(0, 20);
    grid->setColumnStretch(1, 1);
    auto* pathRow = new QHBoxLayout;
    pathRow->addWidget(txtDBPath, 1);
    pathRow->addWidget(cmdChangeDBPath);
    auto* langRow = new QHBoxLayout;
    langRow->addWidget(lblLangCap);
    langRow->addWidget(cboLanguage, 1);
    auto* buttons = DialogButtonRow({cmdOk, cmdCancel});
    // The settings of the program itself are the first page; features with settings of
    // their own add a page each (AddPage).
    auto* general = new QWidget;
    general->setObjectName(QStringLiteral("pageGeneral"));
    auto* generalLay = new QVBoxLayout(general);
    generalLay->addLayout(grid);
    generalLay->addWidget(NewPanePasswordBox(general));
    generalLay->addWidget(lblDBPathCap);
    generalLay->addLayout(pathRow);
    generalLay->addLayout(langRow);
    generalLay->addWidget(lblLangHint);
    generalLay->addStretch(1);
    tabPages = named(new QTabWidget, "tabPages");
    tabPages->addTab(general, QString());
    AddPage(new guiSecretsPage, Texts(470));
    auto* lay = new QVBoxLayout(this);
    lay->addWidget(tabPages, 1);
    lay->addLayout(buttons);
    setMinimumWidth(460);

    // The boxes act on every change of their state (mouse, keyboard, a screen reader), so
    // they are filled before they are connected.
    DoConfig();
    connect(chkStartWithWin, &QCheckBox::toggled, this, &frmOptions::chkStartWithWin_Click);
    connect(chkLoadLUser, &QCheckBox::toggled, this, &frmOptions::chkLoadLUser_Click);
    connect(chkTrayMode, &QCheckBox::toggled, this, &frmOptions::chkTrayMode_Click);
    connect(chkPaswProtect, &QCheckBox::toggled, this, &frmOptions::chkPaswProtect_Click);
    connect(chkDBBackup, &QCheckBox::toggled, this, &frmOptions::chkDBBackup_Click);
    connect(chkSaveAfterChange, &QCheckBox::toggled, this, &frmOptions::chkSaveAfterChange_Change);
    connect(txtInactMin, &QLineEdit::textEdited, this, &frmOptions::txtInactMin_Change);
    connect(txtBackCopies, &QLineEdit::textEdited, this, &frmOptions::txtBackCopies_Change);
    connect(txtClipClear, &QLineEdit::textEdited, this, &frmOptions::txtClipClear_Change);
    connect(txtPaswHistory, &QLineEdit::textEdited, this, &frmOptions::txtPaswHistory_Change);
    connect(cboLanguage, &QComboBox::activated, this, &frmOptions::cboLanguage_Click);
    connect(cmdChangeDBPath, &QPushButton::clicked, this, &frmOptions::cmdChangeDBPath_Click);
    connect(cmdOk, &QPushButton::clicked, this, &frmOptions::cmdOk_Click);
    connect(cmdCancel, &QPushButton::clicked, this, &frmOptions::cmdCancel_Click);
    // Escape closes the dialog like Cancel (QDialog's reject).

    ShowFormLang();
    AddPage(new guiBrowserPage, Texts(509));
    ApplyDialogOnTop(this);
}

void frmOptions::DoConfig() {
    TRACE_PROC("frmOptions.DoConfig");
    chkStartWithWin->setChecked(CInt(Val(ProgConfig[kCfgAutostart])) != 0);
    chkLoadLUser->setChecked(CInt(Val(ProgConfig[kCfgLoadLastUser])) != 0);
    chkTrayMode->setChecked(CInt(Val(ProgConfig[kCfgTrayMode])) != 0);
    txtDBPath->setText(ProgConfig[kCfgDBPath]);
    const auto load = [](QCheckBox* box, QLineEdit* field, const QString& value) {
        const bool on = CfgSwitchOn(value);
        box->setChecked(on);
        field->setEnabled(on);
        field->setText(CStr(Val(on ? value : value.mid(1))));
    };
    load(chkPaswProtect, txtInactMin, ProgConfig[kCfgInactivityLock]);
    load(chkDBBackup, txtBackCopies, ProgConfig[kCfgAutoBackup]);
    {
        const QSignalBlocker quiet(chkSaveAfterChange);
        chkSaveAfterChange->setChecked(CfgExtra(kCfgSaveOnChange, QStringLiteral("1")) !=
                                       QStringLiteral("0"));
    }
    txtClipClear->setText(QString::number(ClipClearDelay()));
    txtPaswHistory->setText(QString::number(PaswHistoryMax()));
    const QStringList langs = QDir(Pt(AppPath()) + QStringLiteral("Languages"))
                                  .entryList({QStringLiteral("*.lng")}, QDir::Files, QDir::Name);
    QSignalBlocker block(cboLanguage);
    cboLanguage->clear();
    for (const QString& f : langs)
        cboLanguage->addItem(f.chopped(4));
    cboLanguage->setCurrentText(ProgConfig[kCfgLanguage]);
}

void frmOptions::ShowFormLang() {
    TRACE_PROC("frmOptions.ShowFormLang");
    chkStartWithWin->setText(Texts(78));
    chkPaswProtect->setText(Texts(79));
    chkLoadLUser->setText(Texts(80));
    chkTrayMode->setText(Texts(81));
    chkDBBackup->setText(Texts(82));
    chkSaveAfterChange->setText(Texts(262));
    lblDBPathCap->setText(Texts(83));
    lblInactMinCap->setText(Texts(84));
    lblBackCopiesCap->setText(Texts(85));
    lblClipClearCap->setText(Texts(285));
    lblPaswHistoryCap->setText(Texts(420));
    cmdChangeDBPath->setText(Texts(86));
    lblLangCap->setText(Texts(87));
    cmdOk->setText(Texts(69));
    cmdCancel->setText(Texts(24));
    setWindowTitle(Texts(107));
    tabPages->setTabText(0, Texts(437));
    cboLanguage->setAccessibleName(Texts(227));
    lblLangHint->setText(Texts(228));
}

void frmOptions::AddPage(QWidget* page, const QString& title) {
    tabPages->addTab(page, title);
}

void frmOptions::chkStartWithWin_Click() {
    TRACE_PROC("frmOptions.chkStartWithWin_Click");
    ProgConfig[kCfgAutostart] = boxValue(chkStartWithWin);
    // Takes effect now, whether the dialog ends with OK or Cancel.
    AutorunManagement(CBool(ProgConfig[kCfgAutostart]));
}

void frmOptions::chkLoadLUser_Click() {
    TRACE_PROC("frmOptions.chkLoadLUser_Click");
    ProgConfig[kCfgLoadLastUser] = boxValue(chkLoadLUser);
}

void frmOptions::chkTrayMode_Click() {
    TRACE_PROC("frmOptions.chkTrayMode_Click");
    ProgConfig[kCfgTrayMode] = boxValue(chkTrayMode);
}

void frmOptions::chkSaveAfterChange_Change() {
    TRACE_PROC("frmOptions.chkSaveAfterChange_Change");
    SetCfgExtra(kCfgSaveOnChange, boxValue(chkSaveAfterChange));
}

void frmOptions::SwitchWithNumber(QCheckBox* Box, QLineEdit* Field, int Entry) {
    TRACE_PROC("frmOptions.SwitchWithNumber", Entry);
    if (!Box->isChecked()) {
        ProgConfig[Entry] = QStringLiteral("n") + Field->text();
        Field->setEnabled(false);
    } else {
        if (ProgConfig[Entry].startsWith(u'n'))
            ProgConfig[Entry] = ProgConfig[Entry].mid(1);
        Field->setText(ProgConfig[Entry]);
        Field->setEnabled(true);
    }
}

void frmOptions::chkPaswProtect_Click() {
    TRACE_PROC("frmOptions.chkPaswProtect_Click");
    SwitchWithNumber(chkPaswProtect, txtInactMin, kCfgInactivityLock);
}

void frmOptions::chkDBBackup_Click() {
    TRACE_PROC("frmOptions.chkDBBackup_Click");
    SwitchWithNumber(chkDBBackup, txtBackCopies, kCfgAutoBackup);
}

void frmOptions::txtInactMin_Change() {
    TRACE_PROC("frmOptions.txtInactMin_Change");
    ProgConfig[kCfgInactivityLock] = txtInactMin->text();
}

void frmOptions::txtClipClear_Change() {
    TRACE_PROC("frmOptions.txtClipClear_Change");
    // An emptied field means the default, which the file then holds.
    SetClipClearDelay(txtClipClear->text().isEmpty() ? QString::number(kClipDelayDefault)
                                                     : txtClipClear->text());
}

void frmOptions::txtPaswHistory_Change() {
    TRACE_PROC("frmOptions.txtPaswHistory_Change");
    SetPaswHistoryMax(txtPaswHistory->text().isEmpty() ? 10 : txtPaswHistory->text().toInt());
}

void frmOptions::txtBackCopies_Change() {
    TRACE_PROC("frmOptions.txtBackCopies_Change");
    ProgConfig[kCfgAutoBackup] = txtBackCopies->text();
}

void frmOptions::cboLanguage_Click() {
    TRACE_PROC("frmOptions.cboLanguage_Click");
    if (cboLanguage->currentText().isEmpty() || cboLanguage->currentText() == ProgConfig[kCfgLanguage])
        return;
    ProgConfig[kCfgLanguage] = cboLanguage->currentText();
    lblLangHint->setVisible(true);
}

void frmOptions::cmdChangeDBPath_Click() {
    TRACE_PROC("frmOptions.cmdChangeDBPath_Click");
    if (MsgBox(Texts(19), vbYesNo | vbInformation) != vbYes)
        return;
    setEnabled(false);
    ChaneDBPath(parentWidget());
    txtDBPath->setText(ProgConfig[kCfgDBPath]);
    setEnabled(true);
}

void frmOptions::cmdOk_Click() {
    TRACE_PROC("frmOptions.cmdOk_Click");
    if (ProgConfig[kCfgTrayMode] == QStringLiteral("1") && !DoUnloadTIcon)
        TrayIconManagement(1);
    else if (ProgConfig[kCfgTrayMode] == QStringLiteral("0") && DoUnloadTIcon)
        TrayIconManagement(2);
    SaveConfig(ProgCfgPath);
    accept();
}

void frmOptions::cmdCancel_Click() {
    TRACE_PROC("frmOptions.cmdCancel_Click");
    reject();
}
