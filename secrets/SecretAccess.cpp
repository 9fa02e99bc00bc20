#include "secrets/SecretAccess.h"

#include "app/ProgConfig.h"

#include <QFile>
#include <QUrl>

#include <algorithm>

namespace {

// Entry 29: "user:program" pairs joined by ";", both parts percent-encoded.
QList<QPair<QString, QString>> ReadPairs() {
    QList<QPair<QString, QString>> out;
    const QString all = CfgExtra(kCfgSecretAlways, QString());
    for (const QString& pair : all.split(QLatin1Char(';'), Qt::SkipEmptyParts)) {
        const qsizetype colon = pair.indexOf(QLatin1Char(':'));
        if (colon <= 0)
            continue;
        out.append({QUrl::fromPercentEncoding(pair.left(colon).toUtf8()),
                    QUrl::fromPercentEncoding(pair.mid(colon + 1).toUtf8())});
    }
    return out;
}

void WritePairs(const QList<QPair<QString, QString>>& Pairs) {
    QStringList parts;
    for (const auto& p : Pairs)
        parts.append(QString::fromLatin1(QUrl::toPercentEncoding(p.first)) + QLatin1Char(':') +
                     QString::fromLatin1(QUrl::toPercentEncoding(p.second)));
    SetCfgExtra(kCfgSecretAlways, parts.join(QLatin1Char(';')));
    if (!ProgCfgPath.isEmpty())
        TrySaveConfig(ProgCfgPath);
}

} // namespace

bool SecretServiceOn() {
    return CfgExtra(kCfgSecretService, QStringLiteral("1")) != QLatin1String("0");
}

void SetSecretServiceOn(bool On) {
    SetCfgExtra(kCfgSecretService, On ? QStringLiteral("1") : QStringLiteral("0"));
}

QStringList AlwaysAllowed(const QString& User) {
    QStringList out;
    for (const auto& p : ReadPairs())
        if (p.first == User && !out.contains(p.second))
            out.append(p.second);
    std::sort(out.begin(), out.end());
    return out;
}

void SetAlwaysAllowed(const QString& User, const QString& Program, bool Allowed) {
    if (User.isEmpty() || Program.isEmpty())
        return;
    QList<QPair<QString, QString>> pairs = ReadPairs();
    pairs.removeAll(qMakePair(User, Program));
    if (Allowed)
        pairs.append({User, Program});
    WritePairs(pairs);
}

bool ReadNeedsQuestion(const QString& User, const QString& Reader, const QString& Owner) {
    if (!Reader.isEmpty() && Reader == Owner)
        return false;
    return Reader.isEmpty() || !AlwaysAllowed(User).contains(Reader);
}

QString ProgramOfPid(quint32 Pid) {
    if (Pid == 0)
        return {};
    QString exe = QFile::symLinkTarget(QStringLiteral("/proc/%1/exe").arg(Pid));
    // A program replaced on disk while it runs (an upgrade) is still that program.
    if (exe.endsWith(QLatin1String(" (deleted)")))
        exe.chop(10);
    return exe;
}
