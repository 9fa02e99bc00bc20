#include "users/guiStrengthMeter.h"

#include "app/modLang.h"
#include "users/PaswStrength.h"

#include <QLabel>
#include <QLineEdit>
#include <QProgressBar>
#include <QVBoxLayout>

namespace {
// Bar colours from red to green, one per level.
const char* const kLevelColors[] = {"#c62828", "#ef6c00", "#f9a825", "#7cb342", "#2e7d32"};
} // namespace

QString GuessTimeText(const PaswStrength& S) {
    const QString span =
        S.Unit == gtuInstant || S.Unit == gtuAges ? Texts(293 + S.Unit) : Texts(293 + S.Unit).arg(S.Amount);
    return Texts(292).arg(span);
}

StrengthMeter::StrengthMeter(QLineEdit* Password, QWidget* parent) : QWidget(parent), m_pasw(Password) {
    setObjectName(QStringLiteral("ctlStrengthMeter"));
    prgStrength = new QProgressBar;
    prgStrength->setObjectName(QStringLiteral("prgStrength"));
    prgStrength->setRange(0, 100);
    prgStrength->setTextVisible(false);
    prgStrength->setMaximumHeight(8);
    lblStrength = new QLabel;
    lblStrength->setObjectName(QStringLiteral("lblStrength"));
    lblStrength->setWordWrap(true);
    lblWarning = new QLabel;
    lblWarning->setObjectName(QStringLiteral("lblWarning"));
    lblWarning->setWordWrap(true);
    lblWarning->setStyleSheet(QStringLiteral("color: #c62828"));
    // The room of the texts is kept from the start, so that the form does not jump or
    // cut them while the user types.
    const int line = lblStrength->fontMetrics().lineSpacing();
    lblStrength->setMinimumHeight(2 * line);
    lblWarning->setMinimumHeight(3 * line);
    QSizePolicy keep = lblWarning->sizePolicy();
    keep.setRetainSizeWhenHidden(true);
    lblWarning->setSizePolicy(keep);
    auto* lay = new QVBoxLayout(this);
    lay->setContentsMargins(0, 0, 0, 0);
    lay->setSpacing(2);
    lay->addWidget(prgStrength);
    lay->addWidget(lblStrength);
    lay->addWidget(lblWarning);
    connect(m_pasw, &QLineEdit::textChanged, this, &StrengthMeter::Update);
    ShowFormLang();
}

void StrengthMeter::SetUserWords(const QStringList& Words) {
    m_words = Words;
    Update();
}

void StrengthMeter::ShowFormLang() {
    prgStrength->setAccessibleName(Texts(286));
    Update();
}

void StrengthMeter::Update() {
    const QString text = m_pasw->text();
    if (text.isEmpty()) {
        prgStrength->setValue(0);
        lblStrength->clear();
        lblWarning->hide();
        return;
    }
    const PaswStrength s = EstimatePaswStrength(text, m_words);
    prgStrength->setValue(static_cast<int>(std::clamp(s.Bits, 2.0, 100.0)));
    prgStrength->setStyleSheet(
        QStringLiteral("QProgressBar::chunk { background: %1; }").arg(QLatin1String(kLevelColors[s.Level])));
    lblStrength->setText(Texts(286) + u' ' + Texts(287 + s.Level) + QStringLiteral(". ") + GuessTimeText(s));
    lblWarning->setText(Texts(300));
    lblWarning->setVisible(s.Weak);
}
