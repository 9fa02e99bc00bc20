#include "app/StrMass.h"

#include "diagnostics/ErrorTrap.h"
#include "diagnostics/Trace.h"

QString& StrMass::operator[](int i) {
    if (i < LBound || i > UBound())
        RaiseError(vbErrSubscript);
    return Items[i - LBound];
}

const QString& StrMass::operator[](int i) const {
    if (i < LBound || i > UBound())
        RaiseError(vbErrSubscript);
    return Items[i - LBound];
}

void AddElemToStrMass(StrMass& pMass, const QString& Elem) {
    TRACE_PROC("modMain.AddElemToStrMass", pMass.Items, Elem);
    if (pMass.UBound() != 0) {
        pMass.Items.append(Elem);
    } else {
        pMass.LBound = 1;
        pMass.Items = QStringList{Elem};
    }
}
