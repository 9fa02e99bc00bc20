#include "app/guiSecretClipboard.h"

#include "app/ClipDelay.h"
#include "diagnostics/Trace.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QMimeData>
#include <QTimer>

#include <sodium.h>

namespace {
const char kHintType[] = "x-kde-passwordManagerHint";
} // namespace

SecretClipboard& SecretClipboard::Instance() {
    static SecretClipboard* one = new SecretClipboard(QCoreApplication::instance());
    return *one;
}

SecretClipboard::SecretClipboard(QObject* parent)
    : QObject(parent), m_clip(QGuiApplication::clipboard()), m_timer(new QTimer(this)),
      m_key(crypto_generichash_KEYBYTES, '\0') {
    randombytes_buf(m_key.data(), static_cast<std::size_t>(m_key.size()));
    m_timer->setInterval(1000);
    connect(m_timer, &QTimer::timeout, this, &SecretClipboard::tick);
    connect(m_clip, &QClipboard::dataChanged, this, &SecretClipboard::clipboardChanged);
}

QByteArray SecretClipboard::digest(const QString& Text) const {
    QByteArray utf8 = Text.toUtf8();
    QByteArray out(crypto_generichash_BYTES, '\0');
    crypto_generichash(reinterpret_cast<unsigned char*>(out.data()), static_cast<std::size_t>(out.size()),
                       reinterpret_cast<const unsigned char*>(utf8.constData()),
                       static_cast<unsigned long long>(utf8.size()),
                       reinterpret_cast<const unsigned char*>(m_key.constData()),
                       static_cast<std::size_t>(m_key.size()));
    sodium_memzero(utf8.data(), static_cast<std::size_t>(utf8.size()));
    return out;
}

void SecretClipboard::CopySecret(const QString& Text, int Seconds) {
    TRACE_PROC("modMain.CopySecret", Seconds);
    auto* mime = new QMimeData;
    mime->setText(Text);
    mime->setData(QString::fromLatin1(kHintType), QByteArrayLiteral("secret"));
    m_setting = true;
    m_clip->clear();
    m_clip->setMimeData(mime);
    m_setting = false;
    m_digest = digest(Text);
    m_left = Seconds < 0 ? ClipClearDelay() : std::min(Seconds, kClipDelayMax);
    if (m_left > 0)
        m_timer->start();
    else
        m_timer->stop();
    emit countdownChanged(m_left);
}

void SecretClipboard::CopyPlain(const QString& Text) {
    TRACE_PROC("modMain.CopyPlain");
    m_clip->clear();
    m_clip->setText(Text);
}

bool SecretClipboard::HoldsOurSecret() const {
    if (m_digest.isEmpty())
        return false;
    const QMimeData* mime = m_clip->mimeData();
    if (!mime || !mime->hasText() || mime->data(QString::fromLatin1(kHintType)) != "secret")
        return false;
    return sodium_memcmp(digest(mime->text()).constData(), m_digest.constData(),
                         static_cast<std::size_t>(m_digest.size())) == 0;
}

bool SecretClipboard::ClearIfOurs() {
    TRACE_PROC("modMain.ClearClipIfOurs");
    const bool ours = HoldsOurSecret();
    if (ours) {
        m_setting = true;
        m_clip->clear();
        m_setting = false;
    }
    stop();
    return ours;
}

void SecretClipboard::stop() {
    const bool running = m_timer->isActive() || m_left != 0;
    m_timer->stop();
    m_digest.clear();
    m_left = 0;
    if (running)
        emit countdownChanged(0);
}

void SecretClipboard::tick() {
    TRACE_PROC("modMain.ClipCountdownTick", m_left);
    if (m_left <= 0)
        return;
    --m_left;
    if (m_left > 0) {
        emit countdownChanged(m_left);
        return;
    }
    emit expired(ClearIfOurs());
}

void SecretClipboard::clipboardChanged() {
    if (m_setting || m_digest.isEmpty())
        return;
    // Someone else's text: our secret is gone already, nothing left to clear.
    if (!HoldsOurSecret()) {
        stop();
        emit lost();
    }
}
