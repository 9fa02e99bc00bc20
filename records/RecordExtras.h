#pragma once

// What the window, argentpm and the import do with a record's fields beyond the four
// (storage/FieldTable.h): the password change that keeps the earlier password, the number
// of earlier passwords kept (settings entry 25), and moving "URL: …" and "TOTP: …" lines
// that older records carry in their description into the fields.

#include "storage/FieldTable.h"

#include <QList>
#include <QString>

class clsDatabase;

// Earlier passwords kept per record: settings entry 25, 10 when unset, 0 to 100.
int PaswHistoryMax();
void SetPaswHistoryMax(int Max);

// Sets the Password of DataTable row RecNum (from 1); a different password than the one
// there keeps that one as the record's latest earlier password.
void SetRecordPasw(clsDatabase& Db, int TblNum, int RecNum, const QString& NewPasw);

struct MovedNoteLine {
    QString IndNum, Title;
    QString Field; // "URL" or "TOTP"
    QString Value;
};
// Every record whose description has a line "URL: …" (or "TOTP: …", "OTP: …" with a seed
// that reads) while that field is empty: the value goes into the field, the line out of
// the description. A second such line, or one for a field already set, stays. Answers
// what moved, in table order.
QList<MovedNoteLine> MoveNoteLinesToFields(clsDatabase& Db);
