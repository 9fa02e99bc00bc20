#include "storage/FileLineage.h"

#include "app/CheckedWrite.h"
#include "app/ProgConfig.h"
#include "app/modMain.h"
#include "diagnostics/DbgPrint.h"
#include "diagnostics/Trace.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QRandomGenerator>
#include <QSet>

#include <algorithm>

#include <sys/stat.h>
#include <unistd.h>

namespace {

const QString kKeptEnding = QStringLiteral(".kept");

quint64 countOf(const QString& Token) {
    return Token.section(u'-', 0, 0).toULongLong();
}

// A token as the program writes it: digits, a dash, 12 hex digits.
bool validToken(const QString& T) {
    const qsizetype dash = T.indexOf(u'-');
    if (dash < 1 || T.size() - dash - 1 != 12)
        return false;
    for (qsizetype i = 0; i < T.size(); ++i) {
        const QChar c = T[i];
        const bool ok = i < dash ? c.isDigit() : i == dash || (c.isDigit() || (c >= u'a' && c <= u'f'));
        if (!ok)
            return false;
    }
    return true;
}

QStringList tokensOf(const QString& Lineage) {
    QStringList out;
    for (const QString& t : Lineage.split(u' ', Qt::SkipEmptyParts))
        if (validToken(t))
            out.append(t);
    return out;
}

bool byCount(const QString& A, const QString& B) {
    const quint64 a = countOf(A), b = countOf(B);
    return a != b ? a < b : A < B;
}

// The per-user folder: the settings' folder of a portable copy, else $XDG_DATA_HOME/ArgentPM.
QString perUserFolder() {
    const QString cfgFolder = QFileInfo(ProgCfgPath).absolutePath();
    const bool portable = !ProgCfgPath.isEmpty() && cfgFolder == QDir(AppPath()).absolutePath();
    return portable ? cfgFolder : UserFolderPath();
}

bool makePrivateFolder(const QString& Path) {
    if (QFileInfo(Path).isDir())
        return true;
    return MakeFolderNoFollow(Path, kPrivateFilePerms | QFileDevice::ExeOwner | QFileDevice::ExeUser) ||
           QFileInfo(Path).isDir();
}

} // namespace

QString ExtendLineage(const QString& Lineage, quint64 SaveNum) {
    const quint64 r = QRandomGenerator::system()->generate64() & 0xffffffffffffULL;
    const QString token = QString::number(SaveNum) + u'-' + QStringLiteral("%1").arg(r, 12, 16, QChar(u'0'));
    QStringList t = tokensOf(Lineage);
    t.append(token);
    if (t.size() > kLineageMax)
        t = t.mid(t.size() - kLineageMax);
    return t.join(u' ');
}

QString JoinLineages(const QString& A, const QString& B) {
    if (A == B || B.isEmpty())
        return A;
    if (A.isEmpty())
        return B;
    QStringList all = tokensOf(A);
    QSet<QString> seen(all.cbegin(), all.cend());
    for (const QString& t : tokensOf(B))
        if (!seen.contains(t)) {
            seen.insert(t);
            all.append(t);
        }
    std::stable_sort(all.begin(), all.end(), byCount);
    if (all.size() > kLineageMax)
        all = all.mid(all.size() - kLineageMax);
    return all.join(u' ');
}

QString LineageHead(const QString& Lineage) {
    const QStringList t = tokensOf(Lineage);
    return t.isEmpty() ? QString() : t.last();
}

QString KeptVersionsFolder(const QString& UserPath) {
    const QString own = perUserFolder();
    if (own.isEmpty())
        return {};
    const QFileInfo fi(UserPath);
    const QByteArray where = QFileInfo(fi.absolutePath()).absoluteFilePath().toUtf8();
    const QString tag =
        QString::fromLatin1(QCryptographicHash::hash(where, QCryptographicHash::Sha256).toHex().left(8));
    return Pt(own) + QStringLiteral("Versions/") + fi.completeBaseName() + u'-' + tag;
}

QString KeptVersionPath(const QString& UserPath, const QString& Token) {
    return KeptVersionsFolder(UserPath) + u'/' + Token + kKeptEnding;
}

QStringList KeptVersions(const QString& UserPath) {
    const QString folder = KeptVersionsFolder(UserPath);
    if (folder.isEmpty())
        return {};
    QStringList out;
    for (const QString& n : QDir(folder).entryList({QStringLiteral("*") + kKeptEnding}, QDir::Files)) {
        const QString t = n.left(n.size() - kKeptEnding.size());
        if (validToken(t))
            out.append(t);
    }
    std::sort(out.begin(), out.end(), byCount);
    return out;
}

namespace {

// A second name for From at Path, when From is still the file of inode Inode.
bool linkIfSame(const QString& From, quint64 Inode, const QString& Path) {
    if (From.isEmpty() || Inode == 0)
        return false;
    const QByteArray to = QFile::encodeName(Path);
    if (::link(QFile::encodeName(From).constData(), to.constData()) != 0)
        return false;
    struct stat st;
    if (::stat(to.constData(), &st) == 0 && static_cast<quint64>(st.st_ino) == Inode)
        return true;
    ::unlink(to.constData());
    return false;
}

} // namespace

bool KeepVersion(const QString& UserPath, const QString& Lineage, const QByteArray& Sealed,
                 const QString& From, quint64 Inode) {
    TRACE_PROC("modLineage.KeepVersion", UserPath);
    const QString head = LineageHead(Lineage);
    const QString folder = KeptVersionsFolder(UserPath);
    if (head.isEmpty() || folder.isEmpty())
        return true;
    const QString path = KeptVersionPath(UserPath, head);
    if (QFileInfo::exists(path))
        return true;
    const QString own = perUserFolder();
    // $XDG_DATA_HOME itself may not be there yet on a fresh account.
    QDir().mkpath(QFileInfo(own).absolutePath());
    if (!makePrivateFolder(own) || !makePrivateFolder(Pt(own) + QStringLiteral("Versions")) ||
        !makePrivateFolder(folder) ||
        (!linkIfSame(From, Inode, path) &&
         (Sealed.isEmpty() || !WriteFileChecked(path, Sealed, kPrivateFilePerms)))) {
        DbgPrint(QStringLiteral("Version of the user file not kept: ") + path);
        return false;
    }
    QStringList kept = KeptVersions(UserPath);
    while (kept.size() > kKeptVersionsMax)
        QFile::remove(KeptVersionPath(UserPath, kept.takeFirst()));
    return true;
}

QStringList CommonAncestors(const QString& UserPath, const QString& Ours, const QString& Theirs) {
    TRACE_PROC("modLineage.CommonAncestors", UserPath);
    const QStringList a = tokensOf(Ours), b = tokensOf(Theirs);
    const QSet<QString> inA(a.cbegin(), a.cend()), inB(b.cbegin(), b.cend());
    QStringList out;
    for (const QString& t : KeptVersions(UserPath))
        if (inA.contains(t) && inB.contains(t))
            out.prepend(t); // highest save count first
    return out;
}
