#pragma once

// The browsers' native-messaging manifests, which tell a browser to start argentpm-browser
// for the KeePassXC-Browser extension. They are written under the user's home only:
//   Firefox    ~/.mozilla/native-messaging-hosts/
//   LibreWolf  ~/.librewolf/native-messaging-hosts/
//   Chromium, Google Chrome, Brave, Vivaldi, Microsoft Edge: their folder in ~/.config,
//              NativeMessagingHosts/
// The host name is the extension's own, org.keepassxc.keepassxc_browser, which KeePassXC
// uses too. A manifest of KeePassXC found there is left alone unless the user asks to
// take it over; then its bytes are kept beside it (".keepassxc" added to the name) and
// put back when this program's manifest is removed.

#include <QList>
#include <QString>
#include <QStringList>

inline constexpr char kBrHostName[] = "org.keepassxc.keepassxc_browser";

struct BrBrowser {
    QString Key;  // "firefox", "chromium", ...
    QString Name; // as people know it
    bool Mozilla;
};
const QList<BrBrowser>& BrBrowsers();
// The browsers of a comma-separated list of keys (unknown keys are skipped).
QList<BrBrowser> BrBrowsersOf(const QString& Keys);

enum BrManifestState {
    brmNone,    // no manifest
    brmOurs,    // ours, the bridge it names is there
    brmOther,   // someone else's (KeePassXC's): left alone
    brmOursKept // ours, with KeePassXC's kept to put back
};
struct BrManifestStatus {
    BrBrowser Browser;
    QString Path;
    BrManifestState State = brmNone;
    QString OtherPath; // the program another manifest names
};

QString BrManifestPath(const BrBrowser& B);
// The bridge beside the running program.
QString BrBridgePath();
BrManifestStatus BrManifestStatusOf(const BrBrowser& B);
// Writes ours. Another's manifest is kept aside and replaced only with TakeOver; without
// it the result is brmOther and nothing is written. Why is empty on success.
BrManifestState BrInstallManifest(const BrBrowser& B, bool TakeOver, QString& Why);
// Removes ours and puts a kept one back. False with Why when a write failed.
bool BrRemoveManifest(const BrBrowser& B, QString& Why);
