// argentpm browser setup|status|remove: the browsers' manifests for the KeePassXC-Browser
// extension (browser/BrowserManifests.h) and settings entries 30 and 31, as the window's
// options page "Browser" sets them.

#include "cli/CliCommands.h"

#include "app/ProgConfig.h"
#include "app/modMain.h"
#include "browser/BrowserChannel.h"
#include "browser/BrowserManifests.h"
#include "browser/BrowserServer.h"
#include "diagnostics/Trace.h"

#include <QFileInfo>
#include <QLocalSocket>

using namespace cli;

namespace {

QString stateName(const BrManifestStatus& S) {
    switch (S.State) {
    case brmOurs:
        return QStringLiteral("set up");
    case brmOursKept:
        return QStringLiteral("set up (KeePassXC's manifest kept to put back)");
    case brmOther:
        return QStringLiteral("KeePassXC's manifest (") + S.OtherPath + QStringLiteral("), left alone");
    default:
        return QStringLiteral("not set up");
    }
}

// Into the settings the next start reads: on a first run the program keeps writing to
// DataBases/config.dat, which nothing reads afterwards.
bool saveSettings() {
    const QString portable = Pt(AppPath()) + QStringLiteral("config.dat");
    const QString path =
        ProgCfgPath == portable ? portable : Pt(UserFolderPath()) + QStringLiteral("config.dat");
    if (TrySaveConfig(path))
        return true;
    say(QStringLiteral("the settings could not be written to %1").arg(path));
    return false;
}

int setup(const CliOptions& Opt) {
    QString keys = Opt.value("browser", CfgExtra(kCfgBrowserList, QStringLiteral("firefox")));
    const QList<BrBrowser> chosen = BrBrowsersOf(keys);
    if (chosen.isEmpty() || chosen.size() != keys.split(u',', Qt::SkipEmptyParts).size())
        return usage(Opt, QStringLiteral("--browser takes firefox, librewolf, chromium, chrome, brave, "
                                         "vivaldi or edge, comma-separated"));
    if (!QFileInfo(BrBridgePath()).isExecutable()) {
        say(QStringLiteral("the bridge %1 is missing").arg(BrBridgePath()));
        return cliFailed;
    }
    int rc = cliOk;
    for (const BrBrowser& b : chosen) {
        QString why;
        const BrManifestState s = BrInstallManifest(b, Opt.has("take-over"), why);
        if (!why.isEmpty()) {
            say(b.Name + QStringLiteral(": ") + why);
            rc = cliFailed;
        } else if (s == brmOther) {
            say(b.Name + QStringLiteral(": KeePassXC's manifest is there and was left alone; "
                                        "--take-over replaces it (it is kept to put back)"));
            rc = cliRefused;
        } else {
            writeOut((b.Name + QStringLiteral(": ") + BrManifestPath(b) + u'\n').toUtf8());
        }
    }
    keys.clear();
    for (const BrBrowser& b : chosen)
        keys += (keys.isEmpty() ? QString() : QStringLiteral(",")) + b.Key;
    SetCfgExtra(kCfgBrowserList, keys);
    SetCfgExtra(kCfgBrowserOn, QStringLiteral("1"));
    return saveSettings() ? rc : cliFailed;
}

int status() {
    QByteArray out;
    const bool on = CfgExtra(kCfgBrowserOn, QStringLiteral("0")) == QLatin1String("1");
    out += "serving the browser: " + QByteArray(on ? "on" : "off") + '\n';
    QLocalSocket s;
    s.connectToServer(BrChannelPath());
    const bool window = s.waitForConnected(1000);
    out += "window listening: " + QByteArray(window ? "yes" : "no") + " (" + BrChannelPath().toUtf8() + ")\n";
    out += "bridge: " + BrBridgePath().toUtf8() +
           (QFileInfo(BrBridgePath()).isExecutable() ? QByteArray() : QByteArray(" (missing)")) + '\n';
    const QStringList chosen = CfgExtra(kCfgBrowserList, QStringLiteral("firefox")).split(u',');
    for (const BrBrowser& b : BrBrowsers()) {
        const BrManifestStatus st = BrManifestStatusOf(b);
        if (st.State == brmNone && !chosen.contains(b.Key))
            continue;
        out += (b.Name + QStringLiteral(": ") + stateName(st) + u'\n').toUtf8();
    }
    writeOut(out);
    return cliOk;
}

int remove() {
    int rc = cliOk;
    for (const BrBrowser& b : BrBrowsers()) {
        const BrManifestState was = BrManifestStatusOf(b).State;
        QString why;
        if (!BrRemoveManifest(b, why)) {
            say(b.Name + QStringLiteral(": ") + why);
            rc = cliFailed;
        } else if (was == brmOurs || was == brmOursKept) {
            writeOut(
                (b.Name + (was == brmOursKept ? QStringLiteral(": removed, KeePassXC's manifest put back\n")
                                              : QStringLiteral(": removed\n")))
                    .toUtf8());
        }
    }
    SetCfgExtra(kCfgBrowserOn, QStringLiteral("0"));
    return saveSettings() ? rc : cliFailed;
}

} // namespace

int CmdBrowser(const CliOptions& Opt, const QStringList& Args) {
    TRACE_PROC("modCli.CmdBrowser", Args);
    const QString what = Args.value(0);
    if (what == QLatin1String("setup"))
        return setup(Opt);
    if (what == QLatin1String("status"))
        return status();
    if (what == QLatin1String("remove"))
        return remove();
    return usage(Opt, QStringLiteral("'browser' takes setup, status or remove"));
}
