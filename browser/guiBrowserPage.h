#pragma once

// The options page "Browser": serving the KeePassXC-Browser extension (settings entry 30,
// off until the user turns it on, since it writes into the browsers' folders), the
// browsers served (entry 31) with their manifests, KeePassXC's manifest taken over only
// when asked, and the extensions connected to the open user, which can be removed.
// Everything takes effect at once, as the autostart box does.

#include <QWidget>

class QCheckBox;
class QLabel;
class QPushButton;
class QTreeWidget;

class guiBrowserPage : public QWidget {
    Q_OBJECT
public:
    explicit guiBrowserPage(QWidget* Parent = nullptr);

    QCheckBox* chkServe;
    QList<QCheckBox*> chkBrowsers; // in the order of BrBrowsers()
    QList<QLabel*> lblStates;
    QPushButton* cmdTakeOver;
    QTreeWidget* lstConnected;
    QPushButton* cmdRemove;
    QLabel* lblNote;

private:
    void serveToggled(bool On);
    void browsersChanged();
    void takeOver();
    void removeConnection();
    void refresh();
    void writeManifests(bool TakeOver);
};
