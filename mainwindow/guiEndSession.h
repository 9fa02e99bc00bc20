#pragma once

// The termination signals (SIGTERM, SIGHUP, SIGINT) as events of the main window: the
// handler only writes the signal's number into a socket pair, whose other end the event
// loop reads, so the window can save as Exit does before the program ends. One watch
// at a time; the signals go back to their former handling when it is destroyed.

#include <QObject>

class QSocketNotifier;

class EndSessionWatch : public QObject {
    Q_OBJECT
public:
    explicit EndSessionWatch(QObject* parent = nullptr);
    ~EndSessionWatch() override;

signals:
    void terminateRequested(int Signal);

private slots:
    void readSignal();

private:
    QSocketNotifier* m_notifier = nullptr;
};
