#pragma once

// Bringing folders and records in from other password managers, and taking them out.
//
// Import reads a whole file first (ReadImportFile) into rows held apart from the user's
// database; nothing reaches DataTable unless the whole file was understood. Only then
// ImportIntoDB adds them, through AddFolderToDB and AddRecordToDB, to a new folder under
// a folder the user chose: the source's tree of folders below it, every entry a record.
// Title, user name, password and notes map onto Title, Login, Password and Description;
// the web address, the TOTP seed, custom fields (with their hidden flag) and earlier
// passwords with their dates go into the record's fields (ImpRow::Extras, see
// records/ImportFields.h); whatever else an entry carries (tags, expiry, card and identity
// fields, names of attachments) follows the notes in the description as "Name: value"
// lines. What cannot be taken in at all (passkeys, earlier passwords beyond the number the
// options keep, files, a re-prompt setting) is counted in ImpData::Dropped, and the import
// says so. The notes of a KeePass group go into the Description of its folder row, those
// of the top group into the new folder's (our XML export writes them back as the groups'
// notes). Times, icons of the source and the recycle bin are not brought in.
//
// Formats (the names are those argentpm takes):
//   keepass-xml     KeePass 2 XML, as KeePass and `keepassxc-cli export -f xml` write it
//   keepassxc-csv   KeePassXC CSV: "Group","Title","Username","Password","URL","Notes",...
//   bitwarden-json  Bitwarden's unencrypted JSON export (folders, logins, notes, cards,
//                   identities, SSH keys)
//   browser-csv     the password CSV of Chrome, Chromium, Edge, Firefox and Safari, and the
//                   older "hostname,username,password" one
//   lastpass-csv    url,username,password,totp,extra,name,grouping,fav
//   keepass1-csv    "Account","Login Name","Password","Web Site","Comments"
//   csv             any CSV with a header row; the columns are chosen (CsvMapping)
//
// Limits a real export never reaches keep a hostile file from taking the memory: a file
// of more than kImpMaxFile bytes, or one value of more than kImpMaxValue characters, is
// refused, as is one of more than kImpMaxRows folders and records (JSON: more than
// kImpMaxRows * 16 values and lists). Encrypted databases (.kdbx, .kdb) and other programs' archives (.1pux)
// are recognised by their first bytes and refused with what to do instead.
//
// Export writes the whole user, or one folder with everything below it, as KeePass 2 XML
// (which KeePassXC imports into the same tree: the web address as URL, the seed as the
// string "otp", custom fields as strings, hidden ones ProtectInMemory, earlier passwords
// as the entry's <History>) or as KeePassXC CSV (URL and TOTP columns). The colour, bold
// state and icon of a row travel in the XML as custom data of the entry or group
// ("ArgentPM.Flags", "ArgentPM.Image"), the colour also as the entry's text colour, so
// a round trip through our own import keeps them. CSV has no place for them, nor for
// empty folders.

#include "storage/FieldTable.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QList>
#include <QString>
#include <QStringList>

#include <functional>

class QIODevice;
class clsDatabase;

enum class ImpFormat {
    Detect,
    KeePassXml,
    KeePassXcCsv,
    BitwardenJson,
    BrowserCsv,
    GenericCsv,
    LastPassCsv,
    KeePass1Csv
};

constexpr qint64 kImpMaxFile = 256LL << 20; // bytes of a file
constexpr qsizetype kImpMaxValue = 1 << 20; // characters of one value
constexpr qsizetype kImpMaxRows = 1000000;  // folders and records of a file

// "keepass-xml" ...; ImpFormatFromName answers Detect for an unknown name (Ok false).
QString ImpFormatName(ImpFormat Format);
ImpFormat ImpFormatFromName(const QString& Name, bool* Ok = nullptr);

// Why a file could not be imported. Line is the line of the file (0 when none applies);
// Detail names the element, the column or the parser's own words.
enum ImpErrCode {
    impOk = 0,
    impCantRead,      // the file cannot be opened or read (Detail: the system's reason)
    impNotUtf8,       // bytes that are not UTF-8 on Line
    impUnknownFormat, // nothing in the contents says what the file is
    impCsvQuote,      // a quoted field opened on Line is never closed
    impCsvAfterQuote, // something other than a separator after a closing quote
    impCsvNoHeader,   // no header row
    impCsvNoColumn,   // a column the format needs is missing (Detail: its name)
    impXmlBad,        // XML that is not well-formed, or a value that cannot be read
    impXmlNotKeePass, // XML whose top element (Detail) is not KeePassFile
    impJsonBad,       // JSON that does not parse
    impJsonEncrypted, // a Bitwarden export protected with a password
    impJsonNotBitwarden,
    impTooMany,       // more rows than identifiers left in the user's database
    impCsvNoMapping,  // a generic CSV whose title and password columns are unknown
    impTooLarge,      // the file is larger than kImpMaxFile (Detail: its size in bytes)
    impValueTooLarge, // a value on Line is longer than kImpMaxValue
    impKeePassDb,     // an encrypted KeePass database (.kdbx or .kdb), not an export
    impArchive,       // a ZIP archive such as a .1pux export (Detail: the file's extension)
    impJsonOther,     // JSON of another program (Detail: its name)
    impTooManyRows,   // more than kImpMaxRows folders and records
};

struct ImpError {
    ImpErrCode Code = impOk;
    int Line = 0;
    QString Detail;
    // The error in English, for argentpm and the debug log.
    QString Text() const;
    // The error in the language of the interface.
    QString LangText() const;
};

// One folder or record read from a file. Rows come in an order where every folder stands
// before what it holds.
struct ImpRow {
    int Parent = -1; // index of the folder row holding it; -1 for the new folder itself
    bool Folder = false;
    QString Title, Login, Password, Desc; // Desc of a folder: the notes of a KeePass group
    QString Flags, Image;                 // empty for the defaults of a new row
    RecExtras Extras;                     // a record's web address, seed, custom fields, history
};

// What a source held that could not be taken in, counted by kind.
enum ImpDrop {
    dropPasskey,    // a passkey (its private key only works in the program that made it)
    dropHistory,    // an earlier password beyond the number the options keep
    dropAttachment, // a file attached to an entry
    dropReprompt,   // "ask for the master password again" on an item
    dropUnknown,    // an item of a kind that is not known: its name and notes only
    dropCount
};

struct ImpData {
    ImpFormat Format = ImpFormat::Detect;
    int Dropped[dropCount] = {};
    QList<ImpRow> Rows;
    QString Notes; // the notes of the source itself (a KeePass file's top group)
    int Folders = 0, Records = 0;
    QStringList Header; // CSV: the names of the columns
};

// Columns of a generic CSV (index from 0, -1 for none). Unmapped columns with a value go
// into the description.
struct CsvMapping {
    int Title = -1, Login = -1, Password = -1, Notes = -1, Group = -1;
    bool IsEmpty() const { return Title < 0 && Login < 0 && Password < 0 && Notes < 0 && Group < 0; }
};

// What was not taken in, one line per kind, in English ("2 passkeys: ..."); empty when
// nothing was left out.
QStringList ImpDroppedText(const ImpData& Data);
// The same in the language of the interface.
QStringList ImpDroppedLangText(const ImpData& Data);

// Called with the work done and the whole, now and then while a large file is read.
using ImpProgress = std::function<void(qint64 Done, qint64 Total)>;

// What the contents look like: XML, JSON or one of the CSV kinds by the names in the
// header row. Detect when nothing fits.
ImpFormat DetectImportFormat(const QByteArray& Bytes);
// An encrypted database or an archive, told by the first bytes of a file: impKeePassDb,
// impArchive (Detail: its kind), or impOk for anything else.
ImpErrCode ForeignFileCode(QByteArrayView Head, QString* Detail = nullptr);
// A mapping from the names of a header row ("name", "username", "login_password", ...).
CsvMapping GuessCsvMapping(const QStringList& Header);
// Reads the columns of a mapping given as "title=Name,login=3,...": a column by its name
// in the header (letter case aside) or its number from 1. False for a field or column
// that does not exist (Bad names it).
bool ParseCsvMapping(const QString& Mapping, const QStringList& Header, CsvMapping& Out, QString& Bad);

// Reads a file whole. Format Detect detects it; a generic CSV without a mapping uses
// GuessCsvMapping. False with Err filled when it cannot be read; Out is then empty. XML is
// read from the file as it goes, the other formats from its bytes.
bool ReadImportFile(const QString& Path, ImpFormat Format, const CsvMapping& Map, ImpData& Out, ImpError& Err,
                    const ImpProgress& Progress = {});
bool ParseImport(const QByteArray& Bytes, ImpFormat Format, const CsvMapping& Map, ImpData& Out,
                 ImpError& Err, const ImpProgress& Progress = {});
// The header row of a CSV file (for choosing the columns); empty when there is none.
QStringList ReadCsvHeader(const QByteArray& Bytes);

// The parsers, one per format (Bytes without any checks of what they hold).
bool ParseKeePassXml(const QByteArray& Bytes, ImpData& Out, ImpError& Err, const ImpProgress& Progress);
bool ParseKeePassXmlFile(QIODevice& Device, ImpData& Out, ImpError& Err, const ImpProgress& Progress);
bool ParseBitwardenJson(const QByteArray& Bytes, ImpData& Out, ImpError& Err);
bool ParseCsvImport(const QByteArray& Bytes, ImpFormat Format, const CsvMapping& Map, ImpData& Out,
                    ImpError& Err, const ImpProgress& Progress);

// The name of the new folder for a file: its name without the last extension.
QString ImportFolderName(const QString& Path);
// Adds the rows to the current user's DataTable: a folder FolderName under the folder
// ParentID ("0" for the top), the rows below it. Returns the new folder's identifier, or
// an empty text with Err impTooMany when the identifiers would run out (nothing added).
// FirstRec receives the row number of the new folder; every row after it is new.
QString ImportIntoDB(const ImpData& Data, const QString& ParentID, const QString& FolderName, int* FirstRec,
                     ImpError& Err, const ImpProgress& Progress = {});
// Adds a "Name: value" line for a value that has no column of its own.
void AppendDescLine(QString& Desc, const QString& Name, const QString& Value);

enum class ExpFormat { KeePassXml, KeePassXcCsv };

struct ExpCounts {
    int Folders = 0, Records = 0;
};

// The folder RootID ("0" for the whole user) of pDB with everything below it, in the
// format's bytes (UTF-8). The top group is named after the folder, or after the user for
// the whole user. Empty with Counts zero when RootID is no folder of pDB.
QByteArray ExportRecordTree(const clsDatabase& pDB, const QString& RootID, ExpFormat Format,
                            ExpCounts* Counts = nullptr);
// Writes an export file as every file of the program is written (app/CheckedWrite.h):
// created 0600 beside its place, every write checked, synced, then renamed over it, so an
// existing file stays whole when anything fails. False with the system's reason in Err.
bool WriteExportFile(const QString& Path, const QByteArray& Bytes, QString& Err);
