#pragma once

// What the browser connection keeps in the user's file, so that it is sealed, merged and
// backed up with everything else:
//   - the connected extensions, in a table BrowserKeys of their own, one row each:
//       BrKey    a random key of the row (the merge pairs rows by it)
//       Id       the connection's name, as the user gave it when it connected
//       IdKey    the extension's identity key (base64), which it shows again on every request
//       Date     when it connected (ISO 8601, UTC)
//   - the sites a record may be filled into without asking: rows of FieldTable with the
//     flag rffSiteAllowed, which go with their record through every merge and delete.
// A file without the table is an ordinary one; the first connection makes it.

#include <QDateTime>
#include <QList>
#include <QString>

class clsDatabase;
struct DatabaseRecord;

struct BrAssociation {
    QString Id, IdKey;
    QDateTime When;
};

QList<BrAssociation> BrAssociations(const DatabaseRecord& Db);
// True when Id is connected with the identity key IdKey.
bool BrIsAssociated(const DatabaseRecord& Db, const QString& Id, const QString& IdKey);
// Adds (or renews) connection Id.
void BrAddAssociation(clsDatabase& Db, const QString& Id, const QString& IdKey);
// Removes connection Id; false when there was none.
bool BrRemoveAssociation(clsDatabase& Db, const QString& Id);

// The site as the questions and the kept permissions name it: the host, with the port
// when it is not the scheme's own ("example.com", "example.com:8443").
QString BrSiteOf(const QString& Url);
bool BrSiteAllowed(const DatabaseRecord& Db, const QString& IndNum, const QString& Site);
void BrAllowSite(clsDatabase& Db, const QString& IndNum, const QString& Site);

// What the extension knows the open user by: a digest of the user's name (hex).
QString BrDatabaseHash(const QString& UserName);
