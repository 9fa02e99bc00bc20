#pragma once

// The password health report of a user: records whose password is weak (the strength
// meter's level "weak" or "very weak"), passwords shared by more than one record,
// passwords older than a chosen age, and records without a password. The report names
// records (their identifier and the path of folders down to the title), never a password.
//
// The age of a password is the date it was set: the newest entry of the record's history
// of earlier passwords (FieldTable), which is when the one before it was replaced. A
// record without history has an unknown age; it is counted, not listed as old.
//
// The estimator is the costly part: each distinct password is estimated once, on its
// first kHealthPaswChars characters, on every core. Only records the tree shows are
// looked at, in the tree's order.

#include <QDateTime>
#include <QList>
#include <QString>

#include <functional>

class clsDatabase;

// Characters of a password the estimator sees: the first 32 of a longer one give the
// same verdict for all but contrived passwords, at a bounded cost.
constexpr int kHealthPaswChars = 32;

struct HealthItem {
    QString IndNum;
    QString Path;  // "Folder / Sub-folder / Title"
    int Level = 0; // the meter's level (PaswStrengthLevel) of its password; 0 when empty
    QDateTime Set; // when its password was set (UTC); invalid when unknown
};

struct HealthReport {
    QList<HealthItem> Weak;          // in the tree's order
    QList<QList<HealthItem>> Reused; // one list per shared password, largest first
    QList<HealthItem> Empty;         // in the tree's order
    QList<HealthItem> Dated;         // every record with a password and a known age
    int Records = 0;                 // records looked at
    int UnknownAge = 0;              // records with a password and no history
    bool Cancelled = false;          // the progress callback stopped it: the lists are empty
};

// Called now and then while the report is made, once it has taken more than QuietMs
// (half a second unless told), on the calling thread: how many of Total distinct passwords are done.
// Answering false stops the work.
using HealthProgress = std::function<bool(int Done, int Total)>;

// Whether a password of that meter level counts as weak.
bool IsWeakHealthLevel(int Level);

// The report of the user in Db.
HealthReport MakeHealthReport(const clsDatabase& Db, const HealthProgress& Progress = {}, int QuietMs = 500);

// The records of Report whose password was set before Cutoff, oldest first.
QList<HealthItem> HealthOlderThan(const HealthReport& Report, const QDateTime& Cutoff);
// The age the settings keep (kCfgHealthAge), in months from 1 to kHealthMaxMonths; 12
// when unset or unreadable.
constexpr int kHealthMaxMonths = 600;
int HealthAgeMonths();
void SetHealthAgeMonths(int Months);
// The cut-off of "older than Months months" as of Now.
QDateTime HealthCutoffMonths(int Months, const QDateTime& Now = QDateTime::currentDateTimeUtc());
