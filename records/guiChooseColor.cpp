#include "records/guiChooseColor.h"

#include "app/guiApplication.h"
#include "app/modLang.h"
#include "app/modMain.h"
#include "diagnostics/Trace.h"

#include <QColorDialog>
#include <QtEndian>

int ShowChooseColor(QWidget* hwnd, int InitCol) {
    TRACE_PROC("modMain.ShowChooseColor", InitCol);
    if (CustomColors.size() != 64)
        CustomColors = QByteArray(64, '\0');
    // The custom colours: sixteen little-endian 0x00BBGGRR values.
    for (int i = 0; i < 16; ++i)
        QColorDialog::setCustomColor(
            i, ColorFromRef(qFromLittleEndian<qint32>(CustomColors.constData() + 4 * i)));
    QColorDialog dlg(ColorFromRef(InitCol), hwnd);
    dlg.setObjectName(QStringLiteral("dlgChooseColor"));
    dlg.setWindowTitle(Texts(214));
    ApplyDialogOnTop(&dlg);
    if (ShowModal(dlg) != QDialog::Accepted)
        return -1;
    for (int i = 0; i < 16; ++i)
        qToLittleEndian<qint32>(ColorToRef(QColorDialog::customColor(i)), CustomColors.data() + 4 * i);
    return ColorToRef(dlg.selectedColor().isValid() ? dlg.selectedColor() : dlg.currentColor());
}
