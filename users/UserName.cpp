#include "users/UserName.h"

bool IsValidUserName(const QString& Name) {
    const QString t = Name.trimmed();
    return !t.isEmpty() && !Name.contains(u'/') && !Name.contains(QChar(0)) && t != QLatin1String(".") &&
           t != QLatin1String("..");
}
