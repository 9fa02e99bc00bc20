#include "records/frmPasswordHealth.h"

#include "app/ProgConfig.h"
#include "app/guiApplication.h"
#include "app/modLang.h"
#include "diagnostics/Trace.h"
#include "records/IRecordView.h"
#include "users/UserAccounts.h"

#include <QApplication>
#include <QFont>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QProgressDialog>
#include <QPushButton>
#include <QSpinBox>
#include <QTreeWidget>
#include <QVBoxLayout>

#include <functional>
#include <memory>

namespace {

QString dayOf(const QDateTime& When) {
    return When.toLocalTime().date().toString(Qt::ISODate);
}

// A line of a record: its path, a note after it, and its identifier to jump to.
void addRecordLines(QTreeWidgetItem* Parent, const QList<HealthItem>& Items,
                    const std::function<QString(const HealthItem&)>& Note = {}) {
    for (const HealthItem& it : Items) {
        auto* line = new QTreeWidgetItem(Parent);
        line->setText(0, Note ? it.Path + QStringLiteral("  (") + Note(it) + u')' : it.Path);
        line->setData(0, Qt::UserRole, it.IndNum);
    }
}

} // namespace

frmPasswordHealth::frmPasswordHealth(QWidget* Parent, HealthReport Report)
    : QDialog(Parent), m_rep(std::move(Report)) {
    TRACE_PROC("frmPasswordHealth.Form_Load");
    setObjectName(QStringLiteral("frmPasswordHealth"));
    lblAgeCap = new QLabel;
    spnAge = new QSpinBox;
    spnAge->setObjectName(QStringLiteral("spnAge"));
    spnAge->setRange(1, kHealthMaxMonths);
    spnAge->setValue(HealthAgeMonths());
    lblAgeCap->setBuddy(spnAge);
    trvHealth = new QTreeWidget;
    trvHealth->setObjectName(QStringLiteral("trvHealth"));
    trvHealth->setHeaderHidden(true);
    trvHealth->setColumnCount(1);
    trvHealth->setUniformRowHeights(true);
    lblUnknownAge = new QLabel;
    lblUnknownAge->setObjectName(QStringLiteral("lblUnknownAge"));
    lblUnknownAge->setWordWrap(true);
    lblHint = new QLabel;
    lblHint->setWordWrap(true);
    cmdClose = new QPushButton;
    cmdClose->setObjectName(QStringLiteral("cmdClose"));

    auto* ageRow = new QHBoxLayout;
    ageRow->addWidget(lblAgeCap);
    ageRow->addWidget(spnAge);
    ageRow->addStretch(1);
    auto* buttons = new QHBoxLayout;
    buttons->addWidget(lblHint, 1);
    buttons->addWidget(cmdClose);
    auto* lay = new QVBoxLayout(this);
    lay->addLayout(ageRow);
    lay->addWidget(trvHealth, 1);
    lay->addWidget(lblUnknownAge);
    lay->addLayout(buttons);
    resize(560, 480);

    ShowFormLang();
    connect(spnAge, &QSpinBox::valueChanged, this, &frmPasswordHealth::spnAge_Change);
    connect(trvHealth, &QTreeWidget::itemActivated, this, &frmPasswordHealth::trvHealth_Activated);
    connect(cmdClose, &QPushButton::clicked, this, &QDialog::accept);
    ApplyDialogOnTop(this);
}

void frmPasswordHealth::ShowFormLang() {
    TRACE_PROC("frmPasswordHealth.ShowFormLang");
    setWindowTitle(Texts(425));
    trvHealth->setAccessibleName(Texts(425));
    lblAgeCap->setText(Texts(430));
    lblHint->setText(Texts(434));
    cmdClose->setText(Texts(433));
    lblUnknownAge->setText(Texts(431).arg(m_rep.UnknownAge));
    lblUnknownAge->setVisible(m_rep.UnknownAge > 0);
    Fill();
}

void frmPasswordHealth::Fill() {
    TRACE_PROC("frmPasswordHealth.Fill");
    trvHealth->setUpdatesEnabled(false);
    trvHealth->clear();
    auto group = [this](const QString& Text) {
        auto* g = new QTreeWidgetItem(trvHealth, {Text});
        QFont f = g->font(0);
        f.setBold(true);
        g->setFont(0, f);
        return g;
    };
    addRecordLines(group(Texts(426).arg(m_rep.Weak.size())), m_rep.Weak,
                   [](const HealthItem& It) { return Texts(287 + It.Level); });
    QTreeWidgetItem* shared = group(Texts(427).arg(m_rep.Reused.size()));
    for (const QList<HealthItem>& g : m_rep.Reused)
        addRecordLines(new QTreeWidgetItem(shared, {Texts(435).arg(g.size())}), g);
    m_old = group(QString());
    addRecordLines(group(Texts(429).arg(m_rep.Empty.size())), m_rep.Empty);
    FillOld();
    trvHealth->expandAll();
    trvHealth->setUpdatesEnabled(true);
}

void frmPasswordHealth::FillOld() {
    TRACE_PROC("frmPasswordHealth.FillOld", spnAge->value());
    qDeleteAll(m_old->takeChildren());
    const QList<HealthItem> old = HealthOlderThan(m_rep, HealthCutoffMonths(spnAge->value()));
    m_old->setText(0, Texts(428).arg(old.size()));
    addRecordLines(m_old, old, [](const HealthItem& It) { return Texts(436).arg(dayOf(It.Set)); });
    m_old->setExpanded(true);
}

void frmPasswordHealth::spnAge_Change() {
    TRACE_PROC("frmPasswordHealth.spnAge_Change", spnAge->value());
    SetHealthAgeMonths(spnAge->value());
    TrySaveConfig(ProgCfgPath);
    FillOld();
}

void frmPasswordHealth::trvHealth_Activated(QTreeWidgetItem* Item) {
    TRACE_PROC("frmPasswordHealth.trvHealth_Activated");
    const QString id = Item ? Item->data(0, Qt::UserRole).toString() : QString();
    if (id.isEmpty())
        return;
    if (IRecordView* view = RecordView())
        view->ShowFoundRow(id);
}

void RunPasswordHealth(QWidget* Parent) {
    TRACE_PROC("modHealth.RunPasswordHealth");
    if (!CurUsDB)
        return;
    std::unique_ptr<QProgressDialog> prg;
    QApplication::setOverrideCursor(Qt::WaitCursor);
    HealthReport rep = MakeHealthReport(*CurUsDB, [&](int Done, int Total) {
        if (!prg) {
            prg = std::make_unique<QProgressDialog>(Texts(432), Texts(24), 0, Total, Parent);
            prg->setObjectName(QStringLiteral("prgHealth"));
            prg->setWindowTitle(Texts(425));
            prg->setWindowModality(Qt::WindowModal);
            prg->setMinimumDuration(0);
            prg->setAutoReset(false);
        }
        prg->setValue(Done);
        QCoreApplication::processEvents();
        return !prg->wasCanceled();
    });
    prg.reset();
    QApplication::restoreOverrideCursor();
    if (rep.Cancelled)
        return;
    frmPasswordHealth dlg(Parent, std::move(rep));
    ShowModal(dlg);
}
