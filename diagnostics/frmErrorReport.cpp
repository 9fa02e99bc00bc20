#include "diagnostics/frmErrorReport.h"

#include "diagnostics/ErrorTrap.h"
#include "diagnostics/Trace.h"

#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QVBoxLayout>

frmErrorReport::frmErrorReport(QWidget* parent) : QDialog(parent) {
    TRACE_PROC("frmErrorReport.Form_Load");
    setObjectName(QStringLiteral("frmErrorReport"));
    // These texts stay as they are in every language.
    setWindowTitle(QStringLiteral("Отчет об ошибке"));
    auto* lblCaption = new QLabel(QStringLiteral("Данные отчета об ошибке:"));
    auto* lblExplain = new QLabel(QStringLiteral(
        "Мы намеренно не собираем данные о Вашем адресе, имени, паролях, адресах эллектронной почты и другие "
        "подобные данные. Но они могут попасть в отчёт об ошибке. Здесь Вы можете увидеть все данные, "
        "которые "
        "будут отосланы и решить, посылать нам их или нет."));
    lblExplain->setWordWrap(true);
    txtReport = new QPlainTextEdit;
    txtReport->setObjectName(QStringLiteral("txtReport"));
    txtReport->setReadOnly(true);
    txtReport->setLineWrapMode(QPlainTextEdit::NoWrap);
    txtReport->setPlainText(ErrorMessage);
    txtReport->setAccessibleName(lblCaption->text());
    lblCaption->setBuddy(txtReport);
    cmdBack = new QPushButton(QStringLiteral("Назад"));
    cmdBack->setObjectName(QStringLiteral("cmdBack"));
    cmdBack->setDefault(true);
    connect(cmdBack, &QPushButton::clicked, this, &QDialog::accept);
    auto* lay = new QVBoxLayout(this);
    lay->addWidget(lblCaption);
    lay->addWidget(txtReport, 1);
    lay->addWidget(lblExplain);
    auto* row = new QHBoxLayout;
    row->addStretch(1);
    row->addWidget(cmdBack);
    lay->addLayout(row);
    resize(640, 480);
}
