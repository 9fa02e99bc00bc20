#include "storage/FileVersionsSeen.h"

#include "app/CheckedWrite.h"
#include "app/ProgConfig.h"
#include "app/ReadWholeFile.h"
#include "diagnostics/DbgPrint.h"
#include "diagnostics/Trace.h"

#include <QFileInfo>
#include <QMap>

namespace {

QString countsPath() {
    if (ProgCfgPath.isEmpty())
        return QString();
    return QFileInfo(ProgCfgPath).absolutePath() + u'/' + QLatin1String(kFileVersionsName);
}

QString keyOf(const QString& Path) {
    return QFileInfo(Path).absoluteFilePath();
}

// The counts as the file holds them; lines that do not read are dropped.
QMap<QString, quint64> readCounts(const QString& File) {
    QMap<QString, quint64> out;
    QByteArray bytes;
    if (File.isEmpty() || !QFileInfo(File).isFile() || !ReadWholeFile(File, bytes))
        return out;
    for (const QByteArray& line : bytes.split('\n')) {
        const qsizetype tab = line.indexOf('\t');
        bool ok = false;
        const quint64 n = tab > 0 ? line.left(tab).toULongLong(&ok) : 0;
        if (ok && tab + 1 < line.size())
            out.insert(QString::fromUtf8(line.mid(tab + 1)), n);
    }
    return out;
}

bool writeCounts(const QString& File, const QMap<QString, quint64>& Counts) {
    QByteArray bytes;
    for (auto it = Counts.cbegin(); it != Counts.cend(); ++it) {
        // A path with a line break cannot be a line of its own: it is not remembered.
        if (it.key().contains(u'\n'))
            continue;
        bytes += QByteArray::number(it.value()) + '\t' + it.key().toUtf8() + '\n';
    }
    if (WriteFileChecked(File, bytes))
        return true;
    DbgPrint(QStringLiteral("File versions not written: ") + File);
    return false;
}

bool setCount(const QString& Path, quint64 SaveNum, bool Exact) {
    const QString file = countsPath();
    if (file.isEmpty())
        return true;
    QMap<QString, quint64> counts = readCounts(file);
    const QString key = keyOf(Path);
    const auto was = counts.constFind(key);
    if (was != counts.cend() && (*was == SaveNum || (!Exact && SaveNum < *was)))
        return true;
    counts.insert(key, SaveNum);
    return writeCounts(file, counts);
}

} // namespace

std::optional<quint64> SeenSaveNum(const QString& Path) {
    TRACE_PROC("modVersions.SeenSaveNum", Path);
    const QMap<QString, quint64> counts = readCounts(countsPath());
    const auto it = counts.constFind(keyOf(Path));
    if (it == counts.cend())
        return std::nullopt;
    return *it;
}

bool NoteSaveNum(const QString& Path, quint64 SaveNum) {
    TRACE_PROC("modVersions.NoteSaveNum", Path, static_cast<long long>(SaveNum));
    return setCount(Path, SaveNum, false);
}

bool ResetSaveNum(const QString& Path, quint64 SaveNum) {
    TRACE_PROC("modVersions.ResetSaveNum", Path, static_cast<long long>(SaveNum));
    return setCount(Path, SaveNum, true);
}
