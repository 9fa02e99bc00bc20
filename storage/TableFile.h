#pragma once

// The database file, inner layer. A file starts with the signature line "wqpdhxMeM"
// (plain) or "wqpdhxMeM.ENC" (protected: FileSeal.h). The body that follows is text,
// UTF-8, lines ending in CR LF (LF alone is read too), values in a line separated by the
// single byte 0x87:
//
//   Name 87 flags 87 Version [87 Tag [87 SaveNum]]   database line (missing values read
//                                            empty; SaveNum counts the saves, 0 is left out)
//   [TableName]                             one block per table
//   flags 87 record count                   table attribute line
//   table tag                               (the last IndNum handed out, for DataTable)
//   Name Type 87 Name Type ...               field line, also the table's caption
//   value 87 value ...                       one line per record, values in field order
//   [End TableName]
//   {HelpName}                              one block per help table
//   count
//   code 87 text                             one line per entry
//   {End HelpName}
//
// Every name, tag and value is escaped at the byte level, so that any text survives:
// "\" becomes "\\", the byte 0x87 "\s" (UTF-8 text holds it: "Ї" is D0 87), CR "\r" and
// LF "\n". A backslash before any other byte stands for itself.

#include "storage/FileSeal.h"
#include "storage/TableEngine.h"

#include <QByteArray>
#include <QSet>
#include <QString>

inline constexpr char kSignature[] = "wqpdhxMeM";
inline constexpr char kSignatureEnc[] = "wqpdhxMeM.ENC";

// Appends the escaped UTF-8 form of Text.
void AppendEscaped(QByteArray& Out, const QString& Text);
// Text in the form a value is stored in (RecordStore.h): equal texts, equal bytes.
QByteArray StoredForm(const QString& Text);
// The text of an escaped value.
QString UnescapeValue(const char* Data, qsizetype Len);
// The same escaping for texts that stay texts (TablesToString): on characters, with
// kFldSep standing for the separator byte.
void AppendEscapedText(QString& Out, const QString& Text);

// Appends the body of db (everything after the signature line).
void WriteBody(QByteArray& Out, const DatabaseRecord& db);
// One table in its file form, as bytes or (TablesToString) as text.
void WriteTable(QByteArray& Out, const TableEntry& t, const TblsFilter* Filter);
void WriteTablesText(QString& Out, const TableEntry& t, const TblsFilter* Filter);

// Parses the body that starts at From in Bytes into db; the tables keep their values as
// places in Bytes (RecordStore.h), which share it. DataTable (the records) is split into
// rows at once; the rows of other tables are checked now and split on first use. Only
// tables whose name (case-folded) is in Only are kept when Only is given; the others are
// still checked. Result 1, or -3
// when the structure is damaged (db is then left as it was).
int ParseBody(const QByteArray& Bytes, qsizetype From, DatabaseRecord& db, const QSet<QString>* Only);

// Splits the Count lines of Nf values each that are the Len bytes from Off in Bytes,
// appending them to Into when given (the rows of a table read later: RecordStore.h).
// False when a line is missing, left over or holds another number of values.
bool SplitRows(const QByteArray& Bytes, qsizetype Off, qsizetype Len, long long Count, qsizetype Nf,
               RecordStore* Into);

// The size the body of db takes in its file form, or a little more (for reserving).
qsizetype EstimateBodySize(const DatabaseRecord& db);

// What the first line of Data is: the signature of a sealed image, of a plain one, or
// neither. A line end (LF or CR LF) must follow the signature.
enum ImageKindResult { kImageNone = 0, kImagePlain = 1, kImageSealed = 2 };
int ImageKind(const QByteArray& Data);

// Reads a whole file image: signature, protection, body. Data is consumed: the tables
// read hold its bytes, and it is wiped when nothing could be read from it.
int ParseFileImage(QByteArray& Data, const QString& Pasw, DatabaseRecord& db, const QSet<QString>* Only,
                   const BytesReady& Ready = {});
// The complete file image of db; empty when the key could not be made.
QByteArray BuildFileImage(const DatabaseRecord& db, const QString& Pasw, bool Compress);
