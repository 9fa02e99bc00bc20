#include "storage/ConflictCopies.h"

#include "diagnostics/Trace.h"

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>

#include <algorithm>

namespace {

// Each pattern holds the user's name in its first group.
const QRegularExpression& syncthingCopy() {
    static const QRegularExpression re(
        QStringLiteral(R"(^(.+?)(?:\.sync-conflict-\d{8}-\d{6}-[A-Z0-9]{7})+\.bdb$)"));
    return re;
}

// Nextcloud, ownCloud 10 and Dropbox: " (... conflicted copy ...)" with a date, then a
// number Dropbox adds when the name is taken.
const QRegularExpression& bracketCopy() {
    static const QRegularExpression re(
        QStringLiteral(R"(^(.+?) \((?:[^()]*['’]s )?conflicted copy(?: [^()]*?)? \d{4}-\d{2}-\d{2})"
                       R"((?: \d{6})?(?: \(\d+\))?\)(?: \(\d+\))*\.bdb$)"));
    return re;
}

const QRegularExpression& ownCloudCopy() {
    static const QRegularExpression re(QStringLiteral(R"(^(.+?)_conflict-\d{8}-\d{6}\.bdb$)"));
    return re;
}

const QRegularExpression& tempFile() {
    static const QRegularExpression re(
        QStringLiteral(R"(^(?:\.syncthing\..*\.tmp|~syncthing~.*\.tmp|~.*\.tmp)"
                       R"(|\.~lock.*|\..+\.~[0-9A-Fa-f]+|.+\.part)$)"));
    return re;
}

} // namespace

QString ConflictCopyUser(const QString& FileName) {
    if (!FileName.endsWith(QLatin1String(".bdb")))
        return {};
    for (const QRegularExpression* re : {&syncthingCopy(), &bracketCopy(), &ownCloudCopy()}) {
        const QRegularExpressionMatch m = re->match(FileName);
        if (m.hasMatch())
            return m.captured(1);
    }
    return {};
}

bool IsSyncTempName(const QString& FileName) {
    return tempFile().match(FileName).hasMatch();
}

QStringList FindConflictCopies(const QString& Folder, const QString& UsName) {
    TRACE_PROC("modSync.FindConflictCopies", Folder, UsName);
    QStringList out;
    const QDir dir(Folder);
    for (const QString& name : dir.entryList({QStringLiteral("*.bdb")}, QDir::Files | QDir::Hidden))
        if (ConflictCopyUser(name) == UsName)
            out.append(dir.filePath(name));
    std::sort(out.begin(), out.end());
    return out;
}
