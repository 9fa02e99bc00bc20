#include "options/PanePassword.h"

#include "app/ProgConfig.h"

bool PaneHidesPassword() {
    return CfgExtra(kCfgHidePanePasw, QStringLiteral("0")) == QStringLiteral("1");
}

void SetPaneHidesPassword(bool On) {
    SetCfgExtra(kCfgHidePanePasw, On ? QStringLiteral("1") : QStringLiteral("0"));
}
