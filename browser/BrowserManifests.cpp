#include "browser/BrowserManifests.h"

#include "app/CheckedWrite.h"
#include "diagnostics/DbgPrint.h"
#include "diagnostics/Trace.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace {

const char kFirefoxId[] = "keepassxc-browser@keepassxc.org";
// The extension's store identities for Chrome and Edge.
const char* const kChromeOrigins[] = {"chrome-extension://oboonakemofpalcgghocfoadofidjkkk/",
                                      "chrome-extension://pdffhmhgngciaglkekfkphmobcbhjbc/"};

QString folderOf(const BrBrowser& B) {
    const QString home = QDir::homePath();
    static const QHash<QString, QString> chromeLike{
        {QStringLiteral("chromium"), QStringLiteral("chromium")},
        {QStringLiteral("chrome"), QStringLiteral("google-chrome")},
        {QStringLiteral("brave"), QStringLiteral("BraveSoftware/Brave-Browser")},
        {QStringLiteral("vivaldi"), QStringLiteral("vivaldi")},
        {QStringLiteral("edge"), QStringLiteral("microsoft-edge")}};
    if (B.Key == QLatin1String("firefox"))
        return home + QStringLiteral("/.mozilla/native-messaging-hosts");
    if (B.Key == QLatin1String("librewolf"))
        return home + QStringLiteral("/.librewolf/native-messaging-hosts");
    QString config = qEnvironmentVariable("XDG_CONFIG_HOME");
    if (config.isEmpty())
        config = home + QStringLiteral("/.config");
    return config + u'/' + chromeLike.value(B.Key) + QStringLiteral("/NativeMessagingHosts");
}

QByteArray manifestBytes(const BrBrowser& B) {
    QJsonObject o{{QStringLiteral("name"), QLatin1String(kBrHostName)},
                  {QStringLiteral("description"), QStringLiteral("ArgentPasswordMngr for KeePassXC-Browser")},
                  {QStringLiteral("path"), BrBridgePath()},
                  {QStringLiteral("type"), QStringLiteral("stdio")}};
    if (B.Mozilla) {
        o.insert(QStringLiteral("allowed_extensions"), QJsonArray{QLatin1String(kFirefoxId)});
    } else {
        QJsonArray origins;
        for (const char* s : kChromeOrigins)
            origins.append(QLatin1String(s));
        o.insert(QStringLiteral("allowed_origins"), origins);
    }
    return QJsonDocument(o).toJson(QJsonDocument::Indented);
}

QString pathNamed(const QString& File) {
    QFile f(File);
    if (!f.open(QIODevice::ReadOnly))
        return {};
    return QJsonDocument::fromJson(f.read(64 * 1024)).object().value(QStringLiteral("path")).toString();
}

QString keptPath(const QString& Manifest) {
    return Manifest + QStringLiteral(".keepassxc");
}

// Makes the folders down to Folder (each one new is the user's only).
bool makeFolders(const QString& Folder) {
    if (QFileInfo(Folder).isDir())
        return true;
    const QString parent = QFileInfo(Folder).path();
    if (parent != Folder && !makeFolders(parent))
        return false;
    return MakeFolderNoFollow(Folder, kPrivateFilePerms | QFileDevice::ExeOwner) || QFileInfo(Folder).isDir();
}

} // namespace

const QList<BrBrowser>& BrBrowsers() {
    static const QList<BrBrowser> all{{QStringLiteral("firefox"), QStringLiteral("Firefox"), true},
                                      {QStringLiteral("librewolf"), QStringLiteral("LibreWolf"), true},
                                      {QStringLiteral("chromium"), QStringLiteral("Chromium"), false},
                                      {QStringLiteral("chrome"), QStringLiteral("Google Chrome"), false},
                                      {QStringLiteral("brave"), QStringLiteral("Brave"), false},
                                      {QStringLiteral("vivaldi"), QStringLiteral("Vivaldi"), false},
                                      {QStringLiteral("edge"), QStringLiteral("Microsoft Edge"), false}};
    return all;
}

QList<BrBrowser> BrBrowsersOf(const QString& Keys) {
    QList<BrBrowser> out;
    const QStringList want = Keys.toLower().split(u',', Qt::SkipEmptyParts);
    for (const BrBrowser& b : BrBrowsers())
        if (want.contains(b.Key))
            out.append(b);
    return out;
}

QString BrManifestPath(const BrBrowser& B) {
    return folderOf(B) + u'/' + QLatin1String(kBrHostName) + QStringLiteral(".json");
}

QString BrBridgePath() {
    return QCoreApplication::applicationDirPath() + QStringLiteral("/argentpm-browser");
}

BrManifestStatus BrManifestStatusOf(const BrBrowser& B) {
    BrManifestStatus s{B, BrManifestPath(B), brmNone, {}};
    if (!QFileInfo::exists(s.Path))
        return s;
    const QString named = pathNamed(s.Path);
    if (QFileInfo(named).fileName() == QLatin1String("argentpm-browser")) {
        s.State = QFileInfo::exists(keptPath(s.Path)) ? brmOursKept : brmOurs;
        s.OtherPath = QFileInfo::exists(keptPath(s.Path)) ? pathNamed(keptPath(s.Path)) : QString();
    } else {
        s.State = brmOther;
        s.OtherPath = named;
    }
    return s;
}

BrManifestState BrInstallManifest(const BrBrowser& B, bool TakeOver, QString& Why) {
    TRACE_PROC("modBrowser.InstallManifest", B.Key, TakeOver);
    Why.clear();
    const BrManifestStatus now = BrManifestStatusOf(B);
    if (now.State == brmOther) {
        if (!TakeOver)
            return brmOther;
        QFile f(now.Path);
        if (!f.open(QIODevice::ReadOnly) || !WriteFileChecked(keptPath(now.Path), f.readAll())) {
            Why = QStringLiteral("cannot keep ") + now.Path;
            return brmOther;
        }
    }
    if (!makeFolders(folderOf(B))) {
        Why = QStringLiteral("cannot make ") + folderOf(B);
        return now.State;
    }
    if (!WriteFileChecked(now.Path, manifestBytes(B),
                          kPrivateFilePerms | QFileDevice::ReadGroup | QFileDevice::ReadOther)) {
        Why = QStringLiteral("cannot write ") + now.Path;
        return now.State;
    }
    DbgPrint(QStringLiteral("Browser: manifest written: ") + now.Path);
    return BrManifestStatusOf(B).State;
}

bool BrRemoveManifest(const BrBrowser& B, QString& Why) {
    TRACE_PROC("modBrowser.RemoveManifest", B.Key);
    Why.clear();
    const BrManifestStatus now = BrManifestStatusOf(B);
    if (now.State == brmOursKept) {
        QFile kept(keptPath(now.Path));
        if (!kept.open(QIODevice::ReadOnly) || !WriteFileChecked(now.Path, kept.readAll())) {
            Why = QStringLiteral("cannot put back ") + keptPath(now.Path);
            return false;
        }
        kept.close();
        QFile::remove(keptPath(now.Path));
        DbgPrint(QStringLiteral("Browser: KeePassXC's manifest put back: ") + now.Path);
    } else if (now.State == brmOurs && !QFile::remove(now.Path)) {
        Why = QStringLiteral("cannot remove ") + now.Path;
        return false;
    }
    return true;
}
