#include "browser/guiBrowserPage.h"

#include "app/MsgBox.h"
#include "app/ProgConfig.h"
#include "app/modLang.h"
#include "browser/BrowserManifests.h"
#include "browser/BrowserServer.h"
#include "browser/BrowserStore.h"
#include "diagnostics/Trace.h"
#include "records/IRecordView.h"
#include "users/UserAccounts.h"

#include <QCheckBox>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLocale>
#include <QPushButton>
#include <QTreeWidget>
#include <QVBoxLayout>

namespace {

QString chosenKeys() {
    return CfgExtra(kCfgBrowserList, QStringLiteral("firefox"));
}

QString stateText(const BrManifestStatus& S) {
    switch (S.State) {
    case brmOurs:
        return Texts(520);
    case brmOursKept:
        return Texts(521);
    case brmOther:
        return Texts(514);
    default:
        return QString();
    }
}

} // namespace

guiBrowserPage::guiBrowserPage(QWidget* Parent) : QWidget(Parent) {
    setObjectName(QStringLiteral("pageBrowser"));
    chkServe = new QCheckBox(Texts(510));
    chkServe->setObjectName(QStringLiteral("chkServe"));
    auto* box = new QGroupBox(Texts(511));
    auto* grid = new QGridLayout(box);
    const QStringList keys = chosenKeys().split(u',');
    for (const BrBrowser& b : BrBrowsers()) {
        auto* c = new QCheckBox(b.Name);
        c->setObjectName(QStringLiteral("chk_") + b.Key);
        c->setChecked(keys.contains(b.Key));
        auto* l = new QLabel;
        l->setObjectName(QStringLiteral("lbl_") + b.Key);
        grid->addWidget(c, static_cast<int>(chkBrowsers.size()), 0);
        grid->addWidget(l, static_cast<int>(chkBrowsers.size()), 1);
        chkBrowsers.append(c);
        lblStates.append(l);
        connect(c, &QCheckBox::toggled, this, &guiBrowserPage::browsersChanged);
    }
    grid->setColumnStretch(1, 1);
    cmdTakeOver = new QPushButton(Texts(515));
    cmdTakeOver->setObjectName(QStringLiteral("cmdTakeOver"));
    auto* connCap = new QLabel(Texts(512));
    lstConnected = new QTreeWidget;
    lstConnected->setObjectName(QStringLiteral("lstConnected"));
    lstConnected->setHeaderLabels({Texts(516), Texts(517)});
    lstConnected->setRootIsDecorated(false);
    lstConnected->setAccessibleName(Texts(512).remove(u'&'));
    connCap->setBuddy(lstConnected);
    cmdRemove = new QPushButton(Texts(513));
    cmdRemove->setObjectName(QStringLiteral("cmdRemove"));
    lblNote = new QLabel;
    lblNote->setWordWrap(true);
    auto* row = new QHBoxLayout;
    row->addWidget(cmdTakeOver);
    row->addStretch(1);
    row->addWidget(cmdRemove);
    auto* lay = new QVBoxLayout(this);
    lay->addWidget(chkServe);
    lay->addWidget(box);
    lay->addWidget(connCap);
    lay->addWidget(lstConnected, 1);
    lay->addLayout(row);
    lay->addWidget(lblNote);

    chkServe->setChecked(CfgExtra(kCfgBrowserOn, QStringLiteral("0")) == QLatin1String("1"));
    connect(chkServe, &QCheckBox::toggled, this, &guiBrowserPage::serveToggled);
    connect(cmdTakeOver, &QPushButton::clicked, this, &guiBrowserPage::takeOver);
    connect(cmdRemove, &QPushButton::clicked, this, &guiBrowserPage::removeConnection);
    refresh();
}

void guiBrowserPage::refresh() {
    bool other = false;
    const QList<BrBrowser>& all = BrBrowsers();
    for (qsizetype i = 0; i < all.size(); ++i) {
        const BrManifestStatus s = BrManifestStatusOf(all[i]);
        lblStates[i]->setText(stateText(s));
        other = other || (s.State == brmOther && chkBrowsers[i]->isChecked());
    }
    cmdTakeOver->setEnabled(chkServe->isChecked() && other);
    lstConnected->clear();
    const bool open = CurUsDB && CurUsDB->TabNum() != 0 && !CurUser.isEmpty();
    if (open)
        for (const BrAssociation& a : BrAssociations(CurUsDB->DBView()))
            lstConnected->addTopLevelItem(
                new QTreeWidgetItem({a.Id, QLocale().toString(a.When.toLocalTime(), QLocale::ShortFormat)}));
    cmdRemove->setEnabled(open && lstConnected->topLevelItemCount() > 0);
    lblNote->setText(open ? QString() : Texts(518));
}

void guiBrowserPage::writeManifests(bool TakeOver) {
    QStringList failed;
    for (const BrBrowser& b : BrBrowsersOf(chosenKeys())) {
        QString why;
        BrInstallManifest(b, TakeOver, why);
        if (!why.isEmpty())
            failed.append(b.Name + QStringLiteral(": ") + why);
    }
    if (!failed.isEmpty())
        MsgBox(Texts(522) + QStringLiteral("\n") + failed.join(u'\n'), vbExclamation);
}

void guiBrowserPage::serveToggled(bool On) {
    TRACE_PROC("guiBrowserPage.serveToggled", On);
    SetCfgExtra(kCfgBrowserOn, On ? QStringLiteral("1") : QStringLiteral("0"));
    QStringList failed;
    if (On) {
        writeManifests(false);
    } else {
        for (const BrBrowser& b : BrBrowsers()) {
            QString why;
            if (!BrRemoveManifest(b, why))
                failed.append(b.Name + QStringLiteral(": ") + why);
        }
    }
    if (!failed.isEmpty())
        MsgBox(Texts(522) + QStringLiteral("\n") + failed.join(u'\n'), vbExclamation);
    BrowserServer().ApplySetting();
    refresh();
}

void guiBrowserPage::browsersChanged() {
    QStringList keys;
    const QList<BrBrowser>& all = BrBrowsers();
    for (qsizetype i = 0; i < all.size(); ++i) {
        if (chkBrowsers[i]->isChecked()) {
            keys.append(all[i].Key);
        } else if (chkServe->isChecked()) {
            QString why;
            BrRemoveManifest(all[i], why);
        }
    }
    SetCfgExtra(kCfgBrowserList, keys.join(u','));
    if (chkServe->isChecked())
        writeManifests(false);
    refresh();
}

void guiBrowserPage::takeOver() {
    writeManifests(true);
    refresh();
}

void guiBrowserPage::removeConnection() {
    QTreeWidgetItem* it = lstConnected->currentItem();
    if (!it || !CurUsDB)
        return;
    if (BrRemoveAssociation(*CurUsDB, it->text(0)) && RecordView())
        RecordView()->SaveCurUser();
    refresh();
}
