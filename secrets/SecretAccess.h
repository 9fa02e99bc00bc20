#pragma once

// Who may read what, for the Secret Service provider. A program is the executable behind
// a bus connection (/proc/<pid>/exe of the connection's process). A program reading an
// item that it stored itself is not asked about; any other read asks the user, unless
// the user answered "always" for that program before. Those answers are kept per user in
// settings entry 29 and can be withdrawn in the options.

#include <QString>
#include <QStringList>

// Settings entry 28: serve the desktop's secret storage ("1"/"0"; 1).
bool SecretServiceOn();
void SetSecretServiceOn(bool On);

// The programs User always lets read (settings entry 29), sorted.
QStringList AlwaysAllowed(const QString& User);
// Adds or withdraws one; the settings file is written at once (a failed write keeps the
// answer in memory until the next save of the settings).
void SetAlwaysAllowed(const QString& User, const QString& Program, bool Allowed);

// True when Reader must be asked before reading an item stored by Owner (an empty owner:
// an item the user made by hand, or moved into the folder).
bool ReadNeedsQuestion(const QString& User, const QString& Reader, const QString& Owner);

// The executable of process Pid ("" when it cannot be known: the process is gone).
QString ProgramOfPid(quint32 Pid);

// The answers of the question before a read.
enum SecretAnswer { saDeny = 0, saAllowOnce = 1, saAllowAlways = 2 };
