#include "mainwindow/guiValueExtras.h"

#include "app/MsgBox.h"
#include "app/guiSecretClipboard.h"
#include "app/modLang.h"
#include "diagnostics/Trace.h"
#include "records/Totp.h"
#include "storage/FieldTable.h"
#include "storage/clsDatabase.h"
#include "users/UserAccounts.h"

#include <QDateTime>
#include <QDesktopServices>
#include <QMenu>
#include <QTextCursor>
#include <QTextEdit>
#include <QTimer>
#include <QUrl>

namespace {

RecExtras extrasOf(const QString& IndNum) {
    if (!CurUsDB || IndNum.isEmpty() || IndNum == QLatin1String("0"))
        return {};
    return ReadRecExtras(CurUsDB->DBView(), IndNum);
}

QString codeText(const TotpParams& P) {
    const qint64 now = QDateTime::currentSecsSinceEpoch();
    return TotpCode(P, now) + QStringLiteral("  (") + QString::number(TotpSecondsLeft(P, now)) + u' ' +
           Texts(402) + u')';
}

void append(QTextEdit* Pane, const QString& Text, bool Caption) {
    QTextCursor c(Pane->document());
    c.movePosition(QTextCursor::End);
    QTextCharFormat f;
    f.setForeground(Caption ? QColor(0x00, 0x64, 0xFF) : QColor(Qt::black));
    f.setFontWeight(Caption ? QFont::Bold : QFont::Normal);
    c.insertText(Text, f);
}

} // namespace

ValueExtras::ValueExtras(QObject* Owner, QTextEdit* Pane, QMenu* ValueMenu, QMenu* TreeMenu,
                         std::function<int()> ValueRecord, std::function<int()> TreeRecord)
    : QObject(Owner), m_pane(Pane), m_valueRecord(std::move(ValueRecord)),
      m_treeRecord(std::move(TreeRecord)) {
    auto item = [](QMenu* Menu, const char* Name) {
        QAction* a = Menu->addAction(QString());
        a->setObjectName(QString::fromLatin1(Name));
        return a;
    };
    ValueMenu->addSeparator();
    mnuValCopyUrl = item(ValueMenu, "mnuContextValCopyUrl");
    mnuValOpenUrl = item(ValueMenu, "mnuContextValOpenUrl");
    mnuValCopyOtp = item(ValueMenu, "mnuContextValCopyOtp");
    mnuValCopyField = ValueMenu->addMenu(QString());
    mnuValCopyField->setObjectName(QStringLiteral("mnuContextValCopyField"));
    TreeMenu->addSeparator();
    mnuTrvCopyUrl = item(TreeMenu, "mnuContextTrvCopyUrl");
    mnuTrvOpenUrl = item(TreeMenu, "mnuContextTrvOpenUrl");
    mnuTrvCopyOtp = item(TreeMenu, "mnuContextTrvCopyOtp");
    connect(mnuValCopyUrl, &QAction::triggered, this, [this] { CopyUrl(false); });
    connect(mnuValOpenUrl, &QAction::triggered, this, [this] { OpenUrl(false); });
    connect(mnuValCopyOtp, &QAction::triggered, this, [this] { CopyOtp(false); });
    connect(mnuTrvCopyUrl, &QAction::triggered, this, [this] { CopyUrl(true); });
    connect(mnuTrvOpenUrl, &QAction::triggered, this, [this] { OpenUrl(true); });
    connect(mnuTrvCopyOtp, &QAction::triggered, this, [this] { CopyOtp(true); });
    connect(ValueMenu, &QMenu::aboutToShow, this, [this] { updateStates(false); });
    connect(TreeMenu, &QMenu::aboutToShow, this, [this] { updateStates(true); });
    m_timer = new QTimer(this);
    m_timer->setInterval(1000);
    connect(m_timer, &QTimer::timeout, this, &ValueExtras::tick);
}

void ValueExtras::ShowFormLang() {
    mnuValCopyUrl->setText(Texts(412));
    mnuTrvCopyUrl->setText(Texts(412));
    mnuValOpenUrl->setText(Texts(413));
    mnuTrvOpenUrl->setText(Texts(413));
    mnuValCopyOtp->setText(Texts(414));
    mnuTrvCopyOtp->setText(Texts(414));
    mnuValCopyField->setTitle(Texts(421));
}

void ValueExtras::Show(clsDatabase& Db, const QString& IndNum) {
    TRACE_PROC("frmMain.ShowRecordExtras", IndNum);
    Clear();
    const RecExtras ex = ReadRecExtras(Db.DBView(), IndNum);
    if (!ex.Url.isEmpty()) {
        append(m_pane, Texts(400) + QStringLiteral(":\n"), true);
        append(m_pane, ex.Url + QStringLiteral("\n\n"), false);
    }
    TotpParams p;
    if (!ex.Otp.isEmpty() && ParseTotp(ex.Otp, p)) {
        append(m_pane, Texts(419) + QStringLiteral(":\n"), true);
        QTextCursor c(m_pane->document());
        c.movePosition(QTextCursor::End);
        m_codeAt = c.position();
        const QString code = codeText(p);
        m_codeLen = static_cast<int>(code.size());
        m_code = code;
        append(m_pane, code + QStringLiteral("\n\n"), false);
        m_otp = ex.Otp;
        m_timer->start();
    }
    for (const RecCustomField& f : ex.Custom) {
        append(m_pane, f.Name + QStringLiteral(":\n"), true);
        append(m_pane, (f.Hidden ? QString(8, QChar(0x2022)) : f.Value) + QStringLiteral("\n\n"), false);
    }
    m_pane->moveCursor(QTextCursor::Start);
}

void ValueExtras::Clear() {
    m_timer->stop();
    m_otp.clear();
    m_codeAt = -1;
}

// The code line of the pane follows the clock.
void ValueExtras::tick() {
    TotpParams p;
    if (m_codeAt < 0 || !ParseTotp(m_otp, p) || m_codeAt + m_codeLen > m_pane->document()->characterCount()) {
        Clear();
        return;
    }
    QTextCursor c(m_pane->document());
    c.setPosition(m_codeAt);
    c.setPosition(m_codeAt + m_codeLen, QTextCursor::KeepAnchor);
    if (c.selectedText() != m_code) { // the pane shows something else now
        Clear();
        return;
    }
    m_code = codeText(p);
    c.insertText(m_code);
    m_codeLen = static_cast<int>(m_code.size());
}

QString ValueExtras::recordOf(bool Tree) const {
    const int id = Tree && m_treeRecord ? m_treeRecord() : m_valueRecord ? m_valueRecord() : 0;
    return id > 0 ? QString::number(id) : QString();
}

void ValueExtras::updateStates(bool Tree) {
    const RecExtras ex = extrasOf(recordOf(Tree));
    TotpParams p;
    const bool otp = !ex.Otp.isEmpty() && ParseTotp(ex.Otp, p);
    for (QAction* a :
         Tree ? QList<QAction*>{mnuTrvCopyUrl, mnuTrvOpenUrl} : QList<QAction*>{mnuValCopyUrl, mnuValOpenUrl})
        a->setEnabled(!ex.Url.isEmpty());
    (Tree ? mnuTrvCopyOtp : mnuValCopyOtp)->setEnabled(otp);
    if (!Tree)
        fillFieldMenu();
}

void ValueExtras::fillFieldMenu() {
    mnuValCopyField->clear();
    const RecExtras ex = extrasOf(recordOf(false));
    for (const RecCustomField& f : ex.Custom) {
        QAction* a = mnuValCopyField->addAction(QString(f.Name).replace(u'&', QLatin1String("&&")));
        const QString name = f.Name;
        connect(a, &QAction::triggered, this, [this, name] { CopyField(name); });
    }
    mnuValCopyField->menuAction()->setEnabled(!ex.Custom.isEmpty());
}

void ValueExtras::CopyUrl(bool Tree) {
    TRACE_PROC("frmMain.mnuContextCopyUrl", Tree);
    const RecExtras ex = extrasOf(recordOf(Tree));
    if (!ex.Url.isEmpty())
        SecretClipboard::Instance().CopyPlain(ex.Url);
}

void ValueExtras::OpenUrl(bool Tree) {
    TRACE_PROC("frmMain.mnuContextOpenUrl", Tree);
    const RecExtras ex = extrasOf(recordOf(Tree));
    if (ex.Url.isEmpty())
        return;
    // An address typed without a scheme ("example.org/login") is a web address.
    QUrl url = QUrl::fromUserInput(ex.Url);
    if (!url.isValid() || !QDesktopServices::openUrl(url))
        MsgBox(Texts(422), vbExclamation);
}

void ValueExtras::CopyOtp(bool Tree) {
    TRACE_PROC("frmMain.mnuContextCopyOtp", Tree);
    const RecExtras ex = extrasOf(recordOf(Tree));
    TotpParams p;
    if (!ex.Otp.isEmpty() && ParseTotp(ex.Otp, p))
        SecretClipboard::Instance().CopySecret(TotpCode(p, QDateTime::currentSecsSinceEpoch()));
}

void ValueExtras::CopyField(const QString& Name) {
    TRACE_PROC("frmMain.mnuContextCopyField", Name);
    const RecExtras ex = extrasOf(recordOf(false));
    if (const RecCustomField* f = ex.Field(Name)) {
        if (f->Hidden)
            SecretClipboard::Instance().CopySecret(f->Value);
        else
            SecretClipboard::Instance().CopyPlain(f->Value);
    }
}
