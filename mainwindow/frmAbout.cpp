#include "mainwindow/frmAbout.h"

#include "Version.h"
#include "app/VbConv.h"
#include "app/guiApplication.h"
#include "app/modLang.h"
#include "app/modMain.h"
#include "diagnostics/Trace.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

frmAbout::frmAbout(QWidget* parent) : QDialog(parent) {
    TRACE_PROC("frmAbout.Form_Load");
    setObjectName(QStringLiteral("frmAbout"));
    auto* icon = new QLabel;
    icon->setPixmap(QPixmap(Pt(AppPath()) + QStringLiteral("mainicon.png"))
                        .scaled(64, 64, Qt::KeepAspectRatio, Qt::SmoothTransformation));
    lblProduct = new QLabel;
    QFont f = lblProduct->font();
    f.setBold(true);
    f.setPointSizeF(f.pointSizeF() * 1.4);
    lblProduct->setFont(f);
    lblDescription = new QLabel;
    lblDescription->setWordWrap(true);
    lblVersion = new QLabel;
    lblBuildDate = new QLabel;
    cmdTestError = new QPushButton;
    cmdTestError->setObjectName(QStringLiteral("cmdTestError"));
    cmdTestException = new QPushButton;
    cmdTestException->setObjectName(QStringLiteral("cmdTestException"));
    cmdOk = new QPushButton;
    cmdOk->setObjectName(QStringLiteral("cmdOk"));
    cmdOk->setDefault(true);

    auto* texts = new QVBoxLayout;
    texts->addWidget(lblProduct);
    texts->addWidget(lblDescription);
    texts->addWidget(lblVersion);
    texts->addWidget(lblBuildDate);
    auto* top = new QHBoxLayout;
    top->addWidget(icon, 0, Qt::AlignTop);
    top->addLayout(texts, 1);
    auto* buttons = new QHBoxLayout;
    buttons->addWidget(cmdTestError);
    buttons->addWidget(cmdTestException);
    buttons->addStretch(1);
    buttons->addWidget(cmdOk);
    auto* lay = new QVBoxLayout(this);
    lay->addLayout(top);
    lay->addLayout(buttons);
    setMinimumWidth(440);

    connect(cmdOk, &QPushButton::clicked, this, &QDialog::accept);
    connect(cmdTestError, &QPushButton::clicked, this, &frmAbout::cmdTestError_Click);
    connect(cmdTestException, &QPushButton::clicked, this, &frmAbout::cmdTestException_Click);
    ShowFormLang();
    ApplyDialogOnTop(this);
}

void frmAbout::ShowFormLang() {
    TRACE_PROC("frmAbout.ShowFormLang");
    setWindowTitle(Texts(229));
    lblProduct->setText(Texts(230));
    lblDescription->setText(Texts(231));
    lblVersion->setText(Texts(232) + QStringLiteral(ARGENT_VERSION_TEXT));
    lblBuildDate->setText(Texts(233) + QStringLiteral(ARGENT_BUILD_DATE));
    cmdTestError->setText(Texts(235));
    cmdTestException->setText(Texts(236));
    cmdTestError->setToolTip(Texts(237));
    cmdTestException->setToolTip(Texts(237));
    cmdOk->setText(Texts(238));
}

void frmAbout::cmdTestError_Click() {
    TRACE_PROC("frmAbout.cmdTestError_Click");
    // A floating-point division by zero, made here so that the report names this
    // procedure with its variables.
    double Dividend = 1.0;
    TRACE_LOCAL(Dividend);
    double Divisor = 0.0;
    TRACE_LOCAL(Divisor);
    double Quotient = 0.0;
    TRACE_LOCAL(Quotient);
    Quotient = VbDiv(Dividend, Divisor);
}

void frmAbout::cmdTestException_Click() {
    TRACE_PROC("frmAbout.cmdTestException_Click");
    // A real access violation: a write through a null pointer.
    volatile int* p = nullptr;
    *p = 1;
}
