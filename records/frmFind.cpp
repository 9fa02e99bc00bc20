#include "records/frmFind.h"

#include "app/ProgConfig.h"
#include "app/VbConv.h"
#include "app/guiApplication.h"
#include "app/modLang.h"
#include "diagnostics/Trace.h"
#include "records/IRecordView.h"
#include "records/RecordSearch.h"

#include <QCheckBox>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QVBoxLayout>

frmFind::frmFind(QWidget* Parent) : QDialog(Parent) {
    TRACE_PROC("frmFind.Form_Load");
    setObjectName(QStringLiteral("frmFind"));
    lblFindTextCap = new QLabel;
    txtFindText = new QLineEdit;
    txtFindText->setObjectName(QStringLiteral("txtFindText"));
    lblFindTextCap->setBuddy(txtFindText);
    framCanvas2 = new QGroupBox;
    optSearchTitles = new QRadioButton;
    optSearchTitles->setObjectName(QStringLiteral("optSearchTitles"));
    optSearchEverywhere = new QRadioButton;
    optSearchEverywhere->setObjectName(QStringLiteral("optSearchEverywhere"));
    chkCaseSens = new QCheckBox;
    chkCaseSens->setObjectName(QStringLiteral("chkCaseSens"));
    cmdFind = new QPushButton;
    cmdFind->setObjectName(QStringLiteral("cmdFind"));
    cmdFind->setDefault(true);
    cmdCancel = new QPushButton;
    cmdCancel->setObjectName(QStringLiteral("cmdCancel"));

    auto* opts = new QVBoxLayout(framCanvas2);
    opts->addWidget(optSearchTitles);
    opts->addWidget(optSearchEverywhere);
    auto* textRow = new QHBoxLayout;
    textRow->addWidget(lblFindTextCap);
    textRow->addWidget(txtFindText, 1);
    auto* left = new QVBoxLayout;
    left->addLayout(textRow);
    left->addWidget(framCanvas2);
    left->addWidget(chkCaseSens);
    auto* right = new QVBoxLayout;
    right->addWidget(cmdFind);
    right->addWidget(cmdCancel);
    right->addStretch(1);
    auto* lay = new QHBoxLayout(this);
    lay->addLayout(left, 1);
    lay->addLayout(right);
    setMinimumWidth(420);

    DoConfig();
    connect(cmdFind, &QPushButton::clicked, this, &frmFind::cmdFind_Click);
    connect(cmdCancel, &QPushButton::clicked, this, &QDialog::reject);
    connect(chkCaseSens, &QCheckBox::toggled, this, &frmFind::chkCaseSens_Click);
    connect(optSearchTitles, &QRadioButton::toggled, this, &frmFind::optSearch_Click);
    connect(optSearchEverywhere, &QRadioButton::toggled, this, &frmFind::optSearch_Click);
    connect(txtFindText, &QLineEdit::textChanged, this, &frmFind::txtFindText_Change);
    ShowFormLang();
    ApplyDialogOnTop(this);
}

void frmFind::DoConfig() {
    TRACE_PROC("frmFind.DoConfig");
    chkCaseSens->setChecked(CInt(Val(ProgConfig[kCfgFindCase])) != 0);
    if (Val(ProgConfig[kCfgFindTitles]) != 0)
        optSearchTitles->setChecked(true);
    else
        optSearchEverywhere->setChecked(true);
    txtFindText->setText(LastFindText);
    txtFindText->selectAll();
}

void frmFind::ShowFormLang() {
    TRACE_PROC("frmFind.ShowFormLang");
    lblFindTextCap->setText(Texts(72));
    framCanvas2->setTitle(Texts(73));
    chkCaseSens->setText(Texts(74));
    optSearchTitles->setText(Texts(75));
    optSearchEverywhere->setText(Texts(76));
    cmdFind->setText(Texts(77));
    cmdCancel->setText(Texts(24));
    setWindowTitle(Texts(106));
}

void frmFind::txtFindText_Change() {
    TRACE_PROC("frmFind.txtFindText_Change");
    LastFindText = txtFindText->text();
}

void frmFind::chkCaseSens_Click() {
    TRACE_PROC("frmFind.chkCaseSens_Click");
    ProgConfig[kCfgFindCase] = chkCaseSens->isChecked() ? QStringLiteral("1") : QStringLiteral("0");
}

void frmFind::optSearch_Click() {
    TRACE_PROC("frmFind.optSearch_Click");
    ProgConfig[kCfgFindTitles] = optSearchTitles->isChecked() ? QStringLiteral("1") : QStringLiteral("0");
}

void frmFind::cmdFind_Click() {
    TRACE_PROC("frmFind.cmdFind_Click");
    const QString id =
        FindNextRecord(txtFindText->text(), optSearchEverywhere->isChecked(), chkCaseSens->isChecked());
    if (id.isEmpty())
        return;
    if (IRecordView* view = RecordView())
        view->ShowFoundRow(id);
}
