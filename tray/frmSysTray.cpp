#include "tray/frmSysTray.h"

#include "diagnostics/Globals.h"
#include "diagnostics/Trace.h"

#include <QAction>
#include <QCursor>
#include <QMenu>
#include <QTimer>

frmSysTray::frmSysTray(QObject* parent) : QObject(parent) {
    TRACE_PROC("frmSysTray.Form_Load");
    argent::diag::registerOwned(this, "frmSysTray", "m_bSupportsNewVersion", &m_bSupportsNewVersion);
    argent::diag::registerOwned(this, "frmSysTray", "m_iDefaultIndex", &m_iDefaultIndex);
    argent::diag::registerOwned(this, "frmSysTray", "m_bAddedMenuItem", &m_bAddedMenuItem);
    argent::diag::registerOwnedItems(
        this, "frmSysTray", "MenuKeys", &m_keys,
        [](const void* p) -> long long { return static_cast<const QStringList*>(p)->size(); },
        [](const void* p, long long i) { return &(*static_cast<const QStringList*>(p))[i]; });
    m_tray = new QSystemTrayIcon(this);
    m_menu = new QMenu;
    m_menu->setObjectName(QStringLiteral("mnuSysTray"));
    m_tray->setContextMenu(m_menu);
    m_bSupportsNewVersion = QSystemTrayIcon::supportsMessages();
    m_balloonTimer = new QTimer(this);
    m_balloonTimer->setSingleShot(true);
    connect(m_balloonTimer, &QTimer::timeout, this, [this] { Notify(1028); });
    connect(m_tray, &QSystemTrayIcon::messageClicked, this, [this] { Notify(1029); });
    connect(m_tray, &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason r) {
        switch (r) {
        case QSystemTrayIcon::Trigger:
            Notify(514);
            break;
        case QSystemTrayIcon::DoubleClick:
            Notify(515);
            Notify(514);
            break;
        case QSystemTrayIcon::Context:
            Notify(516);
            Notify(517);
            break;
        default:
            break;
        }
    });
}

frmSysTray::~frmSysTray() {
    TRACE_PROC("frmSysTray.Form_Unload");
    argent::diag::dropVars(this);
    m_tray->hide();
    delete m_menu;
}

void frmSysTray::Notify(int code) {
    TRACE_PROC("frmSysTray.Form_MouseMove", code);
    switch (code) {
    case 512:
        emit SysTrayMouseMove();
        break;
    case 514:
        emit SysTrayMouseDown(vbLeftButton);
        break;
    case 515:
        emit SysTrayDoubleClick(vbLeftButton);
        break;
    case 516:
        emit SysTrayMouseDown(vbRightButton);
        break;
    case 517:
        emit SysTrayMouseUp(vbRightButton);
        break;
    case 518:
        emit SysTrayDoubleClick(vbRightButton);
        break;
    case 1026:
        emit BalloonShow();
        break;
    case 1027:
        emit BalloonHide();
        break;
    case 1028:
        emit BalloonTimeOut();
        break;
    case 1029:
        m_balloonTimer->stop();
        emit BalloonClicked();
        break;
    default:
        break;
    }
}

void frmSysTray::AddMenuItem(const QString& sCaption, const QString& sKey, bool bDefault) {
    TRACE_PROC("frmSysTray.AddMenuItem", sCaption, sKey, bDefault);
    QAction* a = sCaption == QLatin1String("-") ? m_menu->addSeparator() : m_menu->addAction(sCaption);
    a->setObjectName(sKey);
    const int index = static_cast<int>(m_items.size());
    m_items.append(a);
    m_keys.append(sKey);
    connect(a, &QAction::triggered, this,
            [this, a] { mnuSysTray_Click(static_cast<int>(m_items.indexOf(a))); });
    m_bAddedMenuItem = true;
    if (bDefault)
        SetDefaultMenuIndex(index);
}

void frmSysTray::SetDefaultMenuIndex(int lIndex) {
    TRACE_PROP("frmSysTray.DefaultMenuIndex", lIndex);
    if (!ValidIndex(lIndex))
        return;
    m_iDefaultIndex = lIndex;
    m_menu->setDefaultAction(m_items[lIndex]);
}

bool frmSysTray::ValidIndex(int lIndex) const {
    return lIndex >= 0 && lIndex < m_items.size();
}

void frmSysTray::EnableMenuItem(int lIndex, bool bState) {
    TRACE_PROC("frmSysTray.EnableMenuItem", lIndex, bState);
    if (ValidIndex(lIndex))
        m_items[lIndex]->setEnabled(bState);
}

void frmSysTray::RemoveMenuItem(int iIndex) {
    TRACE_PROC("frmSysTray.RemoveMenuItem", iIndex);
    if (!ValidIndex(iIndex))
        return;
    QAction* a = m_items.takeAt(iIndex);
    m_keys.removeAt(iIndex);
    m_menu->removeAction(a);
    a->deleteLater();
    if (m_iDefaultIndex == iIndex)
        m_iDefaultIndex = -1;
    else if (m_iDefaultIndex > iIndex)
        --m_iDefaultIndex;
}

QString frmSysTray::MenuKey(int lIndex) const {
    return ValidIndex(lIndex) ? m_keys[lIndex] : QString();
}
QString frmSysTray::MenuCaption(int lIndex) const {
    return ValidIndex(lIndex)
               ? (m_items[lIndex]->isSeparator() ? QStringLiteral("-") : m_items[lIndex]->text())
               : QString();
}

void frmSysTray::ShowMenu() {
    TRACE_PROC("frmSysTray.ShowMenu");
    m_menu->popup(QCursor::pos());
}

void frmSysTray::mnuSysTray_Click(int Index) {
    TRACE_PROC("frmSysTray.mnuSysTray_Click", Index);
    emit MenuClick(Index, MenuKey(Index));
}

void frmSysTray::ShowBalloonTip(const QString& sMessage, const QString& sTitle, int eIcon, int lTimeOutMs) {
    TRACE_PROC("frmSysTray.ShowBalloonTip", sMessage, sTitle, eIcon, lTimeOutMs);
    if (!m_bSupportsNewVersion)
        return;
    const QSystemTrayIcon::MessageIcon icon = eIcon == NIIF_WARNING ? QSystemTrayIcon::Warning
                                              : eIcon == NIIF_ERROR ? QSystemTrayIcon::Critical
                                              : eIcon == NIIF_NONE  ? QSystemTrayIcon::NoIcon
                                                                    : QSystemTrayIcon::Information;
    m_tray->showMessage(sTitle, sMessage, icon, lTimeOutMs);
    Notify(1026);
    m_balloonTimer->start(lTimeOutMs);
}

QString frmSysTray::ToolTip() const {
    return m_tray->toolTip();
}
void frmSysTray::SetToolTip(const QString& sTip) {
    TRACE_PROP("frmSysTray.ToolTip", sTip);
    m_tray->setToolTip(sTip);
}
QIcon frmSysTray::IconHandle() const {
    return m_tray->icon();
}
void frmSysTray::SetIconHandle(const QIcon& hIcon) {
    TRACE_PROP("frmSysTray.IconHandle");
    m_tray->setIcon(hIcon);
}
void frmSysTray::Show() {
    TRACE_PROC("frmSysTray.Show");
    m_tray->show();
}
void frmSysTray::Hide() {
    TRACE_PROC("frmSysTray.Hide");
    m_tray->hide();
}
