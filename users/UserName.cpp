#include "users/UserName.h"

#include "app/modLang.h"

#include <climits>

namespace {
// The longest ending a file named after a user gets: copy number as large as the
// settings can hold (maintenance/Autobackup names copies "<name>_<k>.bdb.BACKUP").
constexpr char kLongestEnding[] = "_2147483647.bdb.BACKUP";

bool isControl(QChar C) {
    return C.category() == QChar::Other_Control || C == QChar::LineSeparator ||
           C == QChar::ParagraphSeparator;
}
} // namespace

int MaxUserNameBytes() {
    return NAME_MAX - static_cast<int>(sizeof(kLongestEnding) - 1);
}

UserNameProblem CheckUserName(const QString& Name) {
    const QString t = Name.trimmed();
    if (t.isEmpty() || Name.contains(u'/') || Name.contains(QChar(0)) || t == QLatin1String(".") ||
        t == QLatin1String(".."))
        return unpNotAFileName;
    for (const QChar c : Name)
        if (isControl(c))
            return unpControlChar;
    if (Name.toUtf8().size() > MaxUserNameBytes())
        return unpTooLong;
    return unpNone;
}

bool IsValidUserName(const QString& Name) {
    return CheckUserName(Name) == unpNone;
}

QString UserNameProblemText(UserNameProblem Problem) {
    switch (Problem) {
    case unpNone:
        return QString();
    case unpControlChar:
        return Texts(305);
    case unpTooLong:
        return Texts(307).arg(MaxUserNameBytes());
    case unpNotAFileName:
        break;
    }
    return Texts(304);
}
