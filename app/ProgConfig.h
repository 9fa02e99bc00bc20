#pragma once

// Program settings: one value per line of config.dat, entry k on line k, no keys. The
// constants below name the entries by their line numbers; stored forms in quotes.

#include "app/StrMass.h"

#include <QString>

inline constexpr int kCfgToolbar = 1;            // tool bar shown ("True"/"False")
inline constexpr int kCfgStatusbar = 2;          // status bar shown ("True"/"False")
inline constexpr int kCfgAutostart = 3;          // start with the session ("1"/"0")
inline constexpr int kCfgLastUser = 4;           // last user
inline constexpr int kCfgDBPath = 5;             // databases folder
inline constexpr int kCfgOnTop = 6;              // always on top ("True"/"False")
inline constexpr int kCfgLoadLastUser = 7;       // open the last user at start ("1"/"0")
inline constexpr int kCfgFindCase = 8;           // find: case sensitive ("1"/"0")
inline constexpr int kCfgFindTitles = 9;         // find: titles only ("1"/"0")
inline constexpr int kCfgGenClipCopy = 10;       // generator copies to the clipboard ("1"/"0")
inline constexpr int kCfgInactivityLock = 11;    // inactivity lock minutes ("n" prefix: off)
inline constexpr int kCfgTrayMode = 12;          // tray mode ("1"/"0")
inline constexpr int kCfgAutoBackup = 13;        // backup copies ("n" prefix: off)
inline constexpr int kCfgLanguage = 14;          // language file name
inline constexpr int kCfgGenPasswordLength = 15; // generator password length
inline constexpr int kCfgMainWidth = 16;         // window width, height, left, top (twips)
inline constexpr int kCfgMainHeight = 17;
inline constexpr int kCfgMainLeft = 18;
inline constexpr int kCfgMainTop = 19;
inline constexpr int kCfgTreeWidth = 20; // tree pane width (twips)
// Entries after 20 are this program's own; a file may end before them, and then reads
// their defaults, given after the semicolon:
inline constexpr int kCfgReportServer = 21; // report server ("host[:port]"; none)
inline constexpr int kCfgSaveOnChange = 22; // save after every change ("1"/"0"; 1)
inline constexpr int kCfgClipDelay = 23;    // clipboard cleared after a secret (seconds, 0 never; 10)
// A portable copy's folder: where the copy was made, or last ran from (empty in other
// settings). Loading the settings beside the program re-bases entry 5 when it names
// <entry 24>/DataBases and the copy now runs from elsewhere (see LoadConfig).
inline constexpr int kCfgPortableOrigin = 24;
inline constexpr int kCfgPaswHistory = 25; // earlier passwords kept per record (0 none; 10)
inline constexpr int kCfgHealthAge = 26;   // password health: "old" from this many months (12)
// The value pane shows the password as dots until asked ("1"/"0"; 0).
inline constexpr int kCfgHidePanePasw = 32;
// The desktop's secret storage (secrets/SecretAccess.h): served ("1"/"0"; 1), and the
// programs each user always lets read ("user:program" pairs, percent-encoded, ";"-joined).
inline constexpr int kCfgSecretService = 28;
inline constexpr int kCfgSecretAlways = 29;

extern StrMass ProgConfig;
extern QString ProgCfgPath;

// Appends every line of the file to pOptions: 0 read, -2 no such file. Settings read from
// the program folder (a portable copy) get the drive fix of entry 5 described above.
int LoadConfig(const QString& FPath, StrMass& pOptions);
// Writes every element of ProgConfig, one line each, replacing the file. Returns 0.
int SaveConfig(const QString& FPath);
// SaveConfig that answers false instead of raising error 75 when the file cannot be
// written (the old file is kept either way): for writes that must not stop what is going
// on, such as remembering the last user.
bool TrySaveConfig(const QString& FPath);
// First run of an installed copy: defaults from start.dat, DataBases/ created, saved.
int CreateConfig(const QString& UsFoldPath, const QString& CfgPath);

// Start-up's choice of configuration: a config.dat beside the program (portable copy)
// wins; else the per-user folder, created with its settings on the first run.
void ChooseConfiguration();

// Entries 11 and 13: on unless the first character is "n"; the number follows.
bool CfgSwitchOn(const QString& Value);
int CfgSwitchNumber(const QString& Value);

// An entry after 20: its value, or Default when the file has no such line or it is empty.
QString CfgExtra(int Entry, const QString& Default);
// Sets an entry after 20, adding empty lines up to it when the file had fewer.
void SetCfgExtra(int Entry, const QString& Value);

// Twips stored in the settings, pixels on screen (96 dpi).
constexpr int kTwipsPerPixel = 15;
