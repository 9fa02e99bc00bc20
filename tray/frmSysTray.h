#pragma once

// The notification-area icon: tip, icon, a pop-up menu of keyed items and balloon
// messages, raising its events to the main window in the order and meaning the main
// window expects (the left button acts on release).

#include <QIcon>
#include <QObject>
#include <QStringList>
#include <QSystemTrayIcon>

class QAction;
class QMenu;
class QTimer;

enum TrayButton { vbLeftButton = 1, vbRightButton = 2 };
enum TrayBalloonIcon { NIIF_NONE = 0, NIIF_INFO = 1, NIIF_WARNING = 2, NIIF_ERROR = 3 };

class frmSysTray : public QObject {
    Q_OBJECT
public:
    explicit frmSysTray(QObject* parent = nullptr);
    ~frmSysTray() override;

    void AddMenuItem(const QString& sCaption, const QString& sKey = {}, bool bDefault = false);
    void EnableMenuItem(int lIndex, bool bState);
    void RemoveMenuItem(int iIndex);
    int DefaultMenuIndex() const { return m_iDefaultIndex; }
    void SetDefaultMenuIndex(int lIndex);
    bool ValidIndex(int lIndex) const;
    void ShowMenu();
    void ShowBalloonTip(const QString& sMessage, const QString& sTitle = {}, int eIcon = NIIF_INFO,
                        int lTimeOutMs = 10000);
    QString ToolTip() const;
    void SetToolTip(const QString& sTip);
    QIcon IconHandle() const;
    void SetIconHandle(const QIcon& hIcon);
    void Show();
    void Hide();

    int MenuCount() const { return static_cast<int>(m_items.size()); }
    QString MenuKey(int lIndex) const;
    QString MenuCaption(int lIndex) const;
    QMenu* Menu() const { return m_menu; }
    QSystemTrayIcon* Icon() const { return m_tray; }
    // Balloons need a desktop that shows notification messages.
    bool m_bSupportsNewVersion = false;

    // Decodes a notification as the classic icon interface numbered them (512 move,
    // 514 left up, 515 left double click, 516 right down, 517 right up, 518 right double
    // click, 1026-1029 balloon shown, hidden, timed out, clicked).
    void Notify(int code);

signals:
    void SysTrayMouseDown(int Button);
    void SysTrayMouseUp(int Button);
    void SysTrayMouseMove();
    void SysTrayDoubleClick(int Button);
    void MenuClick(int lIndex, const QString& sKey);
    void BalloonShow();
    void BalloonHide();
    void BalloonTimeOut();
    void BalloonClicked();

private:
    void mnuSysTray_Click(int Index);
    QSystemTrayIcon* m_tray;
    QMenu* m_menu;
    QTimer* m_balloonTimer;
    QList<QAction*> m_items;
    QStringList m_keys;
    int m_iDefaultIndex = -1;
    bool m_bAddedMenuItem = false;
};
