#include "records/guiRecordExtras.h"

#include "app/MsgBox.h"
#include "app/modLang.h"
#include "records/Totp.h"

#include <QCheckBox>
#include <QDateTime>
#include <QGridLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QStyledItemDelegate>
#include <QTabWidget>
#include <QTableWidget>
#include <QTimer>
#include <QVBoxLayout>

namespace {

enum { colName, colValue, colHidden };
constexpr int kKeyRole = Qt::UserRole + 1;

// Values of hidden fields show as dots and are edited unseen.
class HiddenValueDelegate : public QStyledItemDelegate {
public:
    using QStyledItemDelegate::QStyledItemDelegate;
    void initStyleOption(QStyleOptionViewItem* Option, const QModelIndex& Index) const override {
        QStyledItemDelegate::initStyleOption(Option, Index);
        if (hidden(Index))
            Option->text = QString(std::min<qsizetype>(Option->text.size(), 12), QChar(0x2022));
    }
    QWidget* createEditor(QWidget* Parent, const QStyleOptionViewItem& Option,
                          const QModelIndex& Index) const override {
        QWidget* w = QStyledItemDelegate::createEditor(Parent, Option, Index);
        if (auto* e = qobject_cast<QLineEdit*>(w); e && hidden(Index))
            e->setEchoMode(QLineEdit::Password);
        return w;
    }

private:
    static bool hidden(const QModelIndex& Index) {
        return Index.siblingAtColumn(colHidden).data(Qt::CheckStateRole).toInt() == Qt::Checked;
    }
};

} // namespace

RecordExtrasPanel::RecordExtrasPanel(QWidget* Owner, QLineEdit* PaswField, bool WithHistory)
    : QObject(Owner), m_owner(Owner), m_pasw(PaswField), m_withHistory(WithHistory) {
    lblUrlCap = new QLabel;
    lblOtpCap = new QLabel;
    lblOtpNow = new QLabel;
    lblOtpNow->setObjectName(QStringLiteral("lblOtpNow"));
    lblOtpNow->setTextInteractionFlags(Qt::TextSelectableByMouse);
    txtUrl = new QLineEdit;
    txtUrl->setObjectName(QStringLiteral("txtUrl"));
    txtOtp = new QLineEdit;
    txtOtp->setObjectName(QStringLiteral("txtOtp"));
    txtOtp->setEchoMode(QLineEdit::Password);
    lblUrlCap->setBuddy(txtUrl);
    lblOtpCap->setBuddy(txtOtp);
    tblFields = new QTableWidget(0, 3);
    tblFields->setObjectName(QStringLiteral("tblFields"));
    tblFields->setItemDelegateForColumn(colValue, new HiddenValueDelegate(tblFields));
    tblFields->horizontalHeader()->setSectionResizeMode(colValue, QHeaderView::Stretch);
    tblFields->verticalHeader()->hide();
    tblHistory = new QTableWidget(0, 2);
    tblHistory->setObjectName(QStringLiteral("tblHistory"));
    tblHistory->setEditTriggers(QAbstractItemView::NoEditTriggers);
    tblHistory->horizontalHeader()->setSectionResizeMode(0, QHeaderView::Stretch);
    tblHistory->verticalHeader()->hide();
    cmdAddField = new QPushButton;
    cmdAddField->setObjectName(QStringLiteral("cmdAddField"));
    cmdAddField->setAutoDefault(false);
    cmdRemoveField = new QPushButton;
    cmdRemoveField->setObjectName(QStringLiteral("cmdRemoveField"));
    cmdRemoveField->setAutoDefault(false);
    tabMore = new QTabWidget;
    tabMore->setObjectName(QStringLiteral("tabMore"));
    auto* fieldsPage = new QWidget;
    auto* fl = new QGridLayout(fieldsPage);
    fl->addWidget(tblFields, 0, 0, 3, 1);
    fl->addWidget(cmdAddField, 0, 1);
    fl->addWidget(cmdRemoveField, 1, 1);
    tabMore->addTab(fieldsPage, QString());
    if (m_withHistory)
        tabMore->addTab(tblHistory, QString());
    m_timer = new QTimer(this);
    m_timer->setInterval(1000);
    connect(m_timer, &QTimer::timeout, this, &RecordExtrasPanel::ShowOtpNow);
    connect(txtOtp, &QLineEdit::textChanged, this, &RecordExtrasPanel::ShowOtpNow);
    connect(cmdAddField, &QPushButton::clicked, this, &RecordExtrasPanel::cmdAddField_Click);
    connect(cmdRemoveField, &QPushButton::clicked, this, &RecordExtrasPanel::cmdRemoveField_Click);
    connect(tblFields, &QTableWidget::itemChanged, this, [this](QTableWidgetItem* I) {
        if (I->column() == colHidden)
            fieldHiddenToggled(I->row());
    });
}

int RecordExtrasPanel::AddTo(QGridLayout* Grid, int Row) {
    Grid->addWidget(lblUrlCap, Row, 0);
    Grid->addWidget(txtUrl, Row, 1, 1, 2);
    Grid->addWidget(lblOtpCap, Row + 1, 0);
    Grid->addWidget(txtOtp, Row + 1, 1);
    Grid->addWidget(lblOtpNow, Row + 1, 2);
    Grid->addWidget(tabMore, Row + 2, 0, 1, 3);
    return Row + 3;
}

void RecordExtrasPanel::ShowFormLang() {
    lblUrlCap->setText(Texts(551));
    lblOtpCap->setText(Texts(552));
    txtOtp->setPlaceholderText(Texts(415));
    tblFields->setHorizontalHeaderLabels({Texts(404), Texts(405), Texts(406)});
    tblHistory->setHorizontalHeaderLabels({Texts(410), QString()});
    cmdAddField->setText(Texts(407));
    cmdRemoveField->setText(Texts(408));
    tabMore->setTabText(0, Texts(403));
    tblFields->setAccessibleName(Texts(403));
    tblHistory->setAccessibleName(Texts(409));
    if (m_withHistory)
        tabMore->setTabText(1, Texts(409));
    for (int r = 0; r < tblHistory->rowCount(); ++r)
        if (auto* b = qobject_cast<QPushButton*>(tblHistory->cellWidget(r, 1)))
            b->setText(Texts(411));
    ShowOtpNow();
}

void RecordExtrasPanel::Load(const RecExtras& Ex) {
    m_loaded = Ex;
    txtUrl->setText(Ex.Url);
    txtOtp->setText(Ex.Otp);
    tblFields->setRowCount(0);
    for (const RecCustomField& f : Ex.Custom)
        addFieldRow(f);
    tblHistory->setRowCount(0);
    for (int r = 0; r < Ex.History.size(); ++r) {
        tblHistory->insertRow(r);
        const QDateTime when = Ex.History[r].When;
        tblHistory->setItem(
            r, 0,
            new QTableWidgetItem(when.isValid() ? QLocale().toString(when.toLocalTime(), QLocale::ShortFormat)
                                                : QStringLiteral("?")));
        auto* b = new QPushButton(Texts(411));
        b->setAutoDefault(false);
        b->setObjectName(QStringLiteral("cmdRestorePasw%1").arg(r));
        connect(b, &QPushButton::clicked, this, [this, r] { RestorePasw(r); });
        tblHistory->setCellWidget(r, 1, b);
    }
    ShowOtpNow();
}

bool RecordExtrasPanel::Collect(RecExtras& Out) {
    Out = m_loaded;
    Out.Url = txtUrl->text().trimmed();
    Out.Otp = txtOtp->text().trimmed();
    if (!Out.Otp.isEmpty()) {
        TotpParams p;
        if (!ParseTotp(Out.Otp, p)) {
            MsgBox(Texts(416), vbExclamation);
            txtOtp->setFocus();
            return false;
        }
        if (!Out.Otp.startsWith(QLatin1String("otpauth://"), Qt::CaseInsensitive))
            Out.Otp = TotpUri(p); // a bare secret is kept as a URI
    }
    Out.Custom.clear();
    for (int r = 0; r < tblFields->rowCount(); ++r) {
        const QTableWidgetItem* name = tblFields->item(r, colName);
        const QTableWidgetItem* value = tblFields->item(r, colValue);
        const QTableWidgetItem* hidden = tblFields->item(r, colHidden);
        const QString n = name ? name->text().trimmed() : QString();
        if (n.isEmpty() || Out.Field(n)) { // a field needs a name of its own
            MsgBox(Texts(423) + u'"' + n + u'"', vbExclamation);
            tblFields->setCurrentCell(r, colName);
            return false;
        }
        Out.Custom.append({n, value ? value->text() : QString(),
                           hidden && hidden->checkState() == Qt::Checked, name->data(kKeyRole).toString()});
    }
    return true;
}

void RecordExtrasPanel::addFieldRow(const RecCustomField& F) {
    const QSignalBlocker block(tblFields);
    const int r = tblFields->rowCount();
    tblFields->insertRow(r);
    auto* name = new QTableWidgetItem(F.Name);
    name->setData(kKeyRole, F.Key);
    tblFields->setItem(r, colName, name);
    tblFields->setItem(r, colValue, new QTableWidgetItem(F.Value));
    auto* hidden = new QTableWidgetItem;
    hidden->setFlags(Qt::ItemIsUserCheckable | Qt::ItemIsEnabled | Qt::ItemIsSelectable);
    hidden->setCheckState(F.Hidden ? Qt::Checked : Qt::Unchecked);
    tblFields->setItem(r, colHidden, hidden);
}

void RecordExtrasPanel::fieldHiddenToggled(int Row) {
    tblFields->viewport()->update(tblFields->visualItemRect(tblFields->item(Row, colValue)));
}

void RecordExtrasPanel::cmdAddField_Click() {
    QString name = Texts(418);
    for (int n = 2; [&] {
             for (int r = 0; r < tblFields->rowCount(); ++r)
                 if (tblFields->item(r, colName) && tblFields->item(r, colName)->text() == name)
                     return true;
             return false;
         }();
         ++n)
        name = Texts(418) + u' ' + QString::number(n);
    addFieldRow({name, QString(), false, {}});
    const int r = tblFields->rowCount() - 1;
    tblFields->setCurrentCell(r, colName);
    tblFields->editItem(tblFields->item(r, colName));
}

void RecordExtrasPanel::cmdRemoveField_Click() {
    const int r = tblFields->currentRow();
    if (r >= 0)
        tblFields->removeRow(r);
}

void RecordExtrasPanel::RestorePasw(int Row) {
    if (Row < 0 || Row >= m_loaded.History.size() || !m_pasw)
        return;
    m_pasw->setText(m_loaded.History[Row].Pasw);
}

void RecordExtrasPanel::ShowOtpNow() {
    TotpParams p;
    const QString seed = txtOtp->text().trimmed();
    if (seed.isEmpty() || !ParseTotp(seed, p)) {
        lblOtpNow->setText(seed.isEmpty() ? QString() : Texts(417));
        m_timer->stop();
        return;
    }
    const qint64 now = QDateTime::currentSecsSinceEpoch();
    lblOtpNow->setText(TotpCode(p, now) + QStringLiteral("  (") + QString::number(TotpSecondsLeft(p, now)) +
                       u' ' + Texts(402) + u')');
    if (!m_timer->isActive())
        m_timer->start();
}
