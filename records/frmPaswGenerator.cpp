#include "records/frmPaswGenerator.h"

#include "app/ProgConfig.h"
#include "app/guiApplication.h"
#include "app/guiSecretClipboard.h"
#include "app/modLang.h"
#include "diagnostics/Trace.h"
#include "records/PaswGenerator.h"

#include <QCheckBox>
#include <QGridLayout>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

frmPaswGenerator::frmPaswGenerator(QWidget* parent) : QDialog(parent) {
    TRACE_PROC("frmPaswGenerator.Form_Load");
    setObjectName(QStringLiteral("frmPaswGenerator"));
    lblLengthCap = new QLabel;
    lblPaswCap = new QLabel;
    lblNote = new QLabel;
    lblNote->setWordWrap(true);
    txtPaswLenght = new QLineEdit;
    txtPaswLenght->setObjectName(QStringLiteral("txtPaswLenght"));
    txtPaswLenght->setMaximumWidth(90);
    txtPaswLenght->installEventFilter(this);
    txtPasw = new QLineEdit;
    txtPasw->setObjectName(QStringLiteral("txtPasw"));
    QFont mono(QStringLiteral("monospace"));
    mono.setStyleHint(QFont::TypeWriter);
    txtPasw->setFont(mono);
    lblLengthCap->setBuddy(txtPaswLenght);
    lblPaswCap->setBuddy(txtPasw);
    chkClipCopy = new QCheckBox;
    chkClipCopy->setObjectName(QStringLiteral("chkClipCopy"));
    cmdGenerate = new QPushButton;
    cmdGenerate->setObjectName(QStringLiteral("cmdGenerate"));
    cmdGenerate->setDefault(true);
    cmdOk = new QPushButton;
    cmdOk->setObjectName(QStringLiteral("cmdOk"));
    cmdCancel = new QPushButton;
    cmdCancel->setObjectName(QStringLiteral("cmdCancel"));

    auto* grid = new QGridLayout;
    grid->addWidget(lblLengthCap, 0, 0);
    grid->addWidget(txtPaswLenght, 0, 1, Qt::AlignLeft);
    grid->addWidget(cmdGenerate, 0, 2);
    grid->addWidget(lblPaswCap, 1, 0);
    grid->addWidget(txtPasw, 1, 1, 1, 2);
    grid->addWidget(chkClipCopy, 2, 1, 1, 2);
    grid->setColumnStretch(1, 1);
    auto* buttons = DialogButtonRow({cmdOk, cmdCancel});
    auto* lay = new QVBoxLayout(this);
    lay->addLayout(grid);
    lay->addWidget(lblNote);
    lay->addLayout(buttons);
    setMinimumWidth(440);

    connect(cmdGenerate, &QPushButton::clicked, this, &frmPaswGenerator::cmdGenerate_Click);
    connect(cmdOk, &QPushButton::clicked, this, &frmPaswGenerator::cmdOk_Click);
    connect(cmdCancel, &QPushButton::clicked, this, &QDialog::reject);
    connect(chkClipCopy, &QCheckBox::toggled, this, &frmPaswGenerator::chkClipCopy_Click);
    connect(txtPaswLenght, &QLineEdit::textChanged, this, &frmPaswGenerator::txtPaswLenght_Change);
    DoConfig();
    ShowFormLang();
    ApplyDialogOnTop(this);
}

void frmPaswGenerator::DoConfig() {
    TRACE_PROC("frmPaswGenerator.DoConfig");
    txtPaswLenght->setText(ProgConfig[kCfgGenPasswordLength]);
    chkClipCopy->setChecked(ProgConfig[kCfgGenClipCopy] == QStringLiteral("1"));
}

void frmPaswGenerator::ShowFormLang() {
    TRACE_PROC("frmPaswGenerator.ShowFormLang");
    setWindowTitle(Texts(109));
    lblLengthCap->setText(Texts(89));
    lblNote->setText(Texts(90));
    chkClipCopy->setText(Texts(91));
    cmdGenerate->setText(Texts(92));
    lblPaswCap->setText(Texts(93));
    cmdCancel->setText(Texts(24));
    cmdOk->setText(Texts(25));
}

bool frmPaswGenerator::eventFilter(QObject* watched, QEvent* event) {
    // The length field takes digits only (and the few codes that always passed). Only
    // typed characters are filtered: Tab, Escape, Enter and the other keys that move
    // the focus or act on the dialog always pass.
    if (watched == txtPaswLenght && event->type() == QEvent::KeyPress) {
        const QString t = static_cast<QKeyEvent*>(event)->text();
        if (t.size() == 1 && t[0].isPrint() && !PaswLengthKeyAllowed(t[0].unicode()))
            return true;
    }
    return QDialog::eventFilter(watched, event);
}

void frmPaswGenerator::txtPaswLenght_Change() {
    TRACE_PROC("frmPaswGenerator.txtPaswLenght_Change");
    ProgConfig[kCfgGenPasswordLength] = txtPaswLenght->text();
}

void frmPaswGenerator::chkClipCopy_Click() {
    TRACE_PROC("frmPaswGenerator.chkClipCopy_Click");
    ProgConfig[kCfgGenClipCopy] = chkClipCopy->isChecked() ? QStringLiteral("1") : QStringLiteral("0");
}

void frmPaswGenerator::cmdGenerate_Click() {
    TRACE_PROC("frmPaswGenerator.cmdGenerate_Click");
    const int length = PaswLengthFromText(txtPaswLenght->text());
    if (length < 1)
        return;
    txtPasw->setText(GeneratePassword(length));
    LastGenPasw = txtPasw->text();
    if (!txtPasw->text().isEmpty() && chkClipCopy->isChecked()) {
        SecretClipboard::Instance().CopySecret(txtPasw->text());
    }
}

void frmPaswGenerator::cmdOk_Click() {
    TRACE_PROC("frmPaswGenerator.cmdOk_Click");
    if (!txtPasw->text().isEmpty() && chkClipCopy->isChecked()) {
        SecretClipboard::Instance().CopySecret(txtPasw->text());
    }
    accept();
}

QString RunPaswGenerator(QWidget* Owner) {
    TRACE_PROC("frmPaswGenerator.RunPaswGenerator");
    LastGenPasw.clear();
    frmPaswGenerator dlg(Owner);
    ShowModal(dlg);
    return LastGenPasw;
}
