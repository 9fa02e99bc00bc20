#include "app/ClipDelay.h"

#include "app/ProgConfig.h"
#include "diagnostics/Trace.h"

namespace {
// Entries this program added after the twentieth, with their defaults, so that a short
// file grows to entry 23 with sensible values in between.
QString defaultOf(int Entry) {
    switch (Entry) {
    case kCfgSaveOnChange:
        return QStringLiteral("1");
    case kCfgClipDelay:
        return QString::number(kClipDelayDefault);
    default:
        return QString();
    }
}
} // namespace

int ClipClearDelay() {
    TRACE_PROC("modMain.ClipClearDelay");
    if (ProgConfig.UBound() < kCfgClipDelay)
        return kClipDelayDefault;
    bool ok = false;
    const int v = ProgConfig[kCfgClipDelay].trimmed().toInt(&ok);
    if (!ok || v < 0)
        return kClipDelayDefault;
    return std::min(v, kClipDelayMax);
}

QString ClipClearDelayText() {
    return ProgConfig.UBound() >= kCfgClipDelay ? ProgConfig[kCfgClipDelay]
                                                : QString::number(kClipDelayDefault);
}

void SetClipClearDelay(const QString& Text) {
    TRACE_PROC("modMain.SetClipClearDelay", Text);
    while (ProgConfig.UBound() < kCfgClipDelay) {
        const int next = ProgConfig.UBound() + 1;
        AddElemToStrMass(ProgConfig, defaultOf(next));
    }
    ProgConfig[kCfgClipDelay] = Text;
}
