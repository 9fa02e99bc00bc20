#include "browser/guiBrowserAsk.h"

#include "app/MsgBox.h"
#include "app/guiApplication.h"
#include "app/modLang.h"
#include "diagnostics/Trace.h"

#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QVBoxLayout>

frmBrowserConnect::frmBrowserConnect(QWidget* Parent, const QString& Name) : QDialog(Parent) {
    setObjectName(QStringLiteral("frmBrowserConnect"));
    setWindowTitle(Texts(519));
    lblAsk = new QLabel(Texts(500));
    lblAsk->setWordWrap(true);
    txtName = new QLineEdit(Name);
    txtName->setObjectName(QStringLiteral("txtName"));
    auto* nameCap = new QLabel(Texts(501));
    nameCap->setBuddy(txtName);
    cmdConnect = new QPushButton(Texts(502));
    cmdConnect->setObjectName(QStringLiteral("cmdConnect"));
    cmdCancel = new QPushButton(Texts(24));
    cmdCancel->setObjectName(QStringLiteral("cmdCancel"));
    cmdCancel->setDefault(true);
    auto* form = new QFormLayout;
    form->addRow(nameCap, txtName);
    auto* lay = new QVBoxLayout(this);
    lay->addWidget(lblAsk);
    lay->addLayout(form);
    lay->addLayout(DialogButtonRow({cmdConnect, cmdCancel}));
    connect(cmdConnect, &QPushButton::clicked, this, &QDialog::accept);
    connect(cmdCancel, &QPushButton::clicked, this, &QDialog::reject);
    ApplyDialogOnTop(this);
}

frmBrowserSite::frmBrowserSite(QWidget* Parent, const QString& Site, const QStringList& Titles)
    : QDialog(Parent) {
    setObjectName(QStringLiteral("frmBrowserSite"));
    setWindowTitle(Texts(519));
    lblAsk = new QLabel(Texts(503).replace(QStringLiteral("%1"), Site));
    lblAsk->setWordWrap(true);
    lstRecords = new QListWidget;
    lstRecords->setObjectName(QStringLiteral("lstRecords"));
    lstRecords->addItems(Titles);
    lstRecords->setAccessibleName(Texts(503).replace(QStringLiteral("%1"), Site));
    lblAsk->setBuddy(lstRecords);
    cmdOnce = new QPushButton(Texts(504));
    cmdOnce->setObjectName(QStringLiteral("cmdOnce"));
    cmdAlways = new QPushButton(Texts(505));
    cmdAlways->setObjectName(QStringLiteral("cmdAlways"));
    cmdDeny = new QPushButton(Texts(506));
    cmdDeny->setObjectName(QStringLiteral("cmdDeny"));
    cmdDeny->setDefault(true);
    cmdDeny->setFocus();
    auto* lay = new QVBoxLayout(this);
    lay->addWidget(lblAsk);
    lay->addWidget(lstRecords, 1);
    lay->addLayout(DialogButtonRow({cmdOnce, cmdAlways, cmdDeny}));
    connect(cmdOnce, &QPushButton::clicked, this, [this] { done(1 + brAllowOnce); });
    connect(cmdAlways, &QPushButton::clicked, this, [this] { done(1 + brAllowAlways); });
    connect(cmdDeny, &QPushButton::clicked, this, &QDialog::reject);
    ApplyDialogOnTop(this);
}

bool BrAskConnect(QWidget* Parent, QString& Name) {
    TRACE_PROC("modBrowser.AskConnect");
    frmBrowserConnect d(Parent, Name);
    if (ShowModal(d) != QDialog::Accepted)
        return false;
    Name = d.txtName->text().trimmed();
    return !Name.isEmpty();
}

BrSiteAnswer BrAskSite(QWidget* Parent, const QString& Site, const QStringList& Titles) {
    TRACE_PROC("modBrowser.AskSite", Site);
    frmBrowserSite d(Parent, Site, Titles);
    const int r = ShowModal(d);
    if (r == 1 + brAllowOnce)
        return brAllowOnce;
    if (r == 1 + brAllowAlways)
        return brAllowAlways;
    return brDeny;
}

bool BrAskOverwrite(const QString& Site, const QString& Title, const QString& Login) {
    const QString text = Texts(508)
                             .replace(QStringLiteral("%1"), Title)
                             .replace(QStringLiteral("%2"), Login)
                             .replace(QStringLiteral("%3"), Site);
    return MsgBox(text, vbYesNo | vbQuestion) == vbYes;
}
