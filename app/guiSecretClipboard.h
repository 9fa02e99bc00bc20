#pragma once

// The desktop clipboard for secrets. A password put there carries the hint that
// clipboard managers read to leave it out of their history
// ("x-kde-passwordManagerHint" = "secret"), and is taken off again after the delay of
// settings entry 23, at a lock, when the user is closed and at exit - but only while
// the clipboard still holds it: a text the user copied meanwhile stays.
//
// Only a keyed digest of the secret is kept, never the secret itself.

#include <QByteArray>
#include <QObject>
#include <QString>

class QClipboard;
class QTimer;

class SecretClipboard : public QObject {
    Q_OBJECT
public:
    // The program-wide instance (the main window, the generator, the keeper process).
    static SecretClipboard& Instance();

    explicit SecretClipboard(QObject* parent = nullptr);

    // Puts a secret on the clipboard, marked, and starts the countdown (Seconds < 0:
    // the delay of the settings; 0: no countdown).
    void CopySecret(const QString& Text, int Seconds = -1);
    // Puts a text that is no secret (a login, a title) on the clipboard.
    void CopyPlain(const QString& Text);
    // Takes our secret off the clipboard if it is still there; ends the countdown.
    // True when something was cleared.
    bool ClearIfOurs();
    // The clipboard still holds the secret copied last.
    bool HoldsOurSecret() const;
    // Seconds until the secret is cleared; 0 when no countdown runs.
    int SecondsLeft() const { return m_left; }

signals:
    // Every second of the countdown, and 0 when it ends (cleared, or overwritten).
    void countdownChanged(int SecondsLeft);
    // The countdown ran out (Cleared: the secret was still there and was taken off).
    void expired(bool Cleared);
    // The clipboard moved on to something else while the countdown ran.
    void lost();

private:
    void tick();
    void clipboardChanged();
    QByteArray digest(const QString& Text) const;
    void stop();

    QClipboard* m_clip;
    QTimer* m_timer;
    QByteArray m_key;
    QByteArray m_digest;
    int m_left = 0;
    bool m_setting = false;
};
