#pragma once

// The open user's records as Secret Service items. An item is a record (Type 2) below the
// root folder named by language text 470 ("Secret Service"), made on the first store:
// label is the record's title, the secret its password, and each attribute a custom field
// of the record (storage/FieldTable.h). Records that the user moves into that folder are
// items too. A few custom fields are this program's own and never attributes:
//   argent:program       the executable of the program that stored the item
//   argent:created       seconds since 1970 (UTC), argent:modified likewise
//   argent:content-type  the secret's content type when it is not text/plain
//   argent:encoding      "base64" when the secret is not UTF-8 text (the password then
//                        holds it in Base64)
//
// Searches answer from an index of attribute pairs, built in one pass and kept while the
// tables are untouched (a cheap row-by-row identity check notices every change the window
// or a merge makes); this object's own changes update it in place.
//
// Nothing here saves: the caller saves through the user session.

#include <QByteArray>
#include <QHash>
#include <QMap>
#include <QString>
#include <QStringList>

#include <memory>

using SecretAttrs = QMap<QString, QString>;

struct SecretItem {
    QString Id; // the record's IndNum
    QString Label;
    QByteArray Secret;
    QString ContentType = QStringLiteral("text/plain");
    SecretAttrs Attrs;
    QString Program; // empty: not stored through the Secret Service
    qint64 Created = 0, Modified = 0;
};

class SecretItems {
public:
    SecretItems();
    ~SecretItems();

    // A user is open (not locked): items can be served.
    static bool Available();
    // The item ids, in table order.
    QStringList All();
    // Items whose attributes include every pair of Query (all items for an empty one).
    QStringList Search(const SecretAttrs& Query);
    bool Has(const QString& Id);
    // Everything of item Id; the secret only when WithSecret. False when it is no item.
    bool Read(const QString& Id, SecretItem& Out, bool WithSecret);
    // A new item (In.Id ignored): its id. Makes the folder on the first store.
    QString Create(const SecretItem& In);
    // Changes of item Id; false when it is no item.
    // A Program given becomes the item's (whoever overwrites a secret owns the new one).
    bool SetSecret(const QString& Id, const QByteArray& Secret, const QString& ContentType,
                   const QString& Program);
    bool SetLabel(const QString& Id, const QString& Label);
    bool SetAttrs(const QString& Id, const SecretAttrs& Attrs);
    bool Delete(const QString& Id);
    // The latest modification of any item (seconds), 0 with none.
    qint64 LastModified();
    // The folder's identifier, empty when it is not there yet.
    QString FolderId();

    static bool IsOwnField(const QString& Name) { return Name.startsWith(QLatin1String("argent:")); }

private:
    struct Index;
    void Ensure();
    void Touch(const QString& Id, qint64 Now);
    std::unique_ptr<Index> m_ix;
};

// The folder's name (language text 470, "Secret Service" without a language).
QString SecretFolderName();
