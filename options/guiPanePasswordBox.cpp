#include "options/guiPanePasswordBox.h"

#include "app/modLang.h"
#include "options/PanePassword.h"

#include <QCheckBox>

QCheckBox* NewPanePasswordBox(QWidget* Parent) {
    auto* box = new QCheckBox(Texts(549), Parent);
    box->setObjectName(QStringLiteral("chkHidePanePasw"));
    box->setChecked(PaneHidesPassword());
    // Like the other boxes of the page, it acts on every change of its state.
    QObject::connect(box, &QCheckBox::toggled, box, [](bool On) { SetPaneHidesPassword(On); });
    return box;
}
