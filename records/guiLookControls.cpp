#include "records/guiLookControls.h"

#include "app/VbConv.h"
#include "app/modLang.h"
#include "diagnostics/Trace.h"
#include "records/RecordTree.h"
#include "records/guiChooseColor.h"
#include "storage/clsDatabase.h"

#include <QCheckBox>
#include <QEvent>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QPushButton>

namespace {
constexpr int kIconCount = 20;
constexpr int kIconNameText = 360; // texts 360-379 name the pictures 1-20
} // namespace

LookControls::LookControls(QWidget* Owner) : QObject(Owner), m_owner(Owner) {
    lblIconCap = new QLabel;
    lblColorCap = new QLabel;
    imcIcons = new QListWidget;
    imcIcons->setObjectName(QStringLiteral("imcIcons"));
    // A grid of pictures, each selected as a whole square.
    imcIcons->setViewMode(QListView::ListMode);
    imcIcons->setFlow(QListView::LeftToRight);
    imcIcons->setWrapping(true);
    imcIcons->setResizeMode(QListView::Adjust);
    imcIcons->setMovement(QListView::Static);
    imcIcons->setUniformItemSizes(true);
    imcIcons->setIconSize(QSize(24, 24));
    imcIcons->setMinimumWidth(10 * 36 + 8);
    imcIcons->setFixedHeight(2 * 36 + 8);
    for (int n = 1; n <= kIconCount; ++n) {
        auto* item = new QListWidgetItem(QIcon(QStringLiteral(":/icons/%1.png").arg(n)), QString());
        item->setData(Qt::UserRole, n);
        item->setSizeHint(QSize(36, 36));
        item->setTextAlignment(Qt::AlignCenter);
        imcIcons->addItem(item);
    }
    lblIconCap->setBuddy(imcIcons);
    chkBold = new QCheckBox;
    chkBold->setObjectName(QStringLiteral("chkBold"));
    picColor = new QLabel;
    picColor->setObjectName(QStringLiteral("picColor"));
    picColor->setFixedSize(48, 22);
    picColor->setFrameShape(QFrame::Box);
    picColor->setAutoFillBackground(true);
    picColor->installEventFilter(this);
    lblColorCap->setBuddy(picColor);
    cmdChangeCol = new QPushButton;
    cmdChangeCol->setObjectName(QStringLiteral("cmdChangeCol"));
    connect(cmdChangeCol, &QPushButton::clicked, this, &LookControls::cmdChangeCol_Click);
    ShowSwatch();
}

void LookControls::AddTo(QGridLayout* Grid, int Row, int Span) {
    Grid->addWidget(lblIconCap, Row, 0, Qt::AlignTop);
    Grid->addWidget(imcIcons, Row, 1, 1, Span);
    auto* colorRow = new QHBoxLayout;
    colorRow->addWidget(picColor);
    colorRow->addWidget(cmdChangeCol);
    colorRow->addSpacing(16);
    colorRow->addWidget(chkBold);
    colorRow->addStretch(1);
    Grid->addWidget(lblColorCap, Row + 1, 0);
    Grid->addLayout(colorRow, Row + 1, 1, 1, Span);
}

void LookControls::ShowFormLang() {
    lblIconCap->setText(Texts(207));
    imcIcons->setAccessibleName(Texts(208));
    // Each picture has a name of its own, for screen readers and as a tip.
    for (int n = 1; n <= imcIcons->count(); ++n) {
        QListWidgetItem* item = imcIcons->item(n - 1);
        item->setData(Qt::AccessibleTextRole, Texts(kIconNameText + n - 1));
        item->setToolTip(Texts(kIconNameText + n - 1));
    }
    chkBold->setText(Texts(209));
    lblColorCap->setText(Texts(210));
    picColor->setAccessibleName(Texts(211));
    picColor->setToolTip(Texts(212));
    cmdChangeCol->setText(Texts(213));
}

void LookControls::LoadFromRow(const QString& Image, const QString& Flags) {
    TRACE_PROC("frmEditRecord.LoadLook", Image, Flags);
    const int index = static_cast<int>(Val(Image));
    imcIcons->setCurrentRow(index >= 1 && index <= imcIcons->count() ? index - 1 : -1);
    GetSepatRecOptns(Flags, RecColor, RecFlags);
    chkBold->setChecked((RecFlags & 1) != 0);
    ShowSwatch();
}

QString LookControls::ImageValue() const {
    const int row = imcIcons->currentRow();
    return QString::number(row >= 0 ? row + 1 : 0) + QStringLiteral("key");
}

QString LookControls::FlagsValue() {
    RecFlags = (RecFlags & ~1) | (chkBold->isChecked() ? 1 : 0);
    return MakeRecOptns(RecColor, RecFlags);
}

void LookControls::ShowSwatch() {
    QPalette p = picColor->palette();
    p.setColor(QPalette::Window, ColorFromRef(RecColor));
    picColor->setPalette(p);
}

void LookControls::cmdChangeCol_Click() {
    TRACE_PROC("frmEditRecord.cmdChangeCol_Click");
    const int col = ShowChooseColor(m_owner, RecColor);
    if (col == -1)
        return;
    RecColor = col;
    ShowSwatch();
}

bool LookControls::eventFilter(QObject* watched, QEvent* event) {
    if (watched == picColor && event->type() == QEvent::MouseButtonDblClick) {
        cmdChangeCol_Click();
        return true;
    }
    return QObject::eventFilter(watched, event);
}

void LookControls::LoadFromDb(clsDatabase& Db, int TblNum, int RecNum) {
    LoadFromRow(Db.GetTblFldValNm(TblNum, RecNum, QStringLiteral("Image")),
                Db.GetTblFldValNm(TblNum, RecNum, QStringLiteral("Flags")));
}

void LookControls::WriteToRow(clsDatabase& Db, int TblNum, int RecNum) {
    TRACE_PROC("frmEditRecord.WriteLook", TblNum, RecNum);
    Db.SetTblFldValNm(TblNum, RecNum, QStringLiteral("Image"), ImageValue());
    Db.SetTblFldValNm(TblNum, RecNum, QStringLiteral("Flags"), FlagsValue());
}
