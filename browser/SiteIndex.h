#pragma once

// Records by the host of their web address, for the browser's get-logins. A record
// matches a page when:
//   - the page's host is the record's or lies below it (a record of example.com serves
//     login.example.com, never the other way round);
//   - the record's address gives a port, and the page has that one (no port: any);
//   - the schemes agree: an https record never goes to an http page; an http record may
//     go to https; an address without a scheme ("example.com/login") serves both.
// The most specific first: a record whose path the page's path starts with, the longer
// path first; then exact hosts before parent domains; then in table order.
//
// The index is made from the open database in one pass and made again whenever the
// database changed (clsDatabase::Generation: every edit, merge, import and refresh), so
// it never answers from an older state.

#include <QHash>
#include <QList>
#include <QSet>
#include <QString>
#include <QStringList>

class clsDatabase;

struct BrMatch {
    QString IndNum;
    int Row = 0;          // in DataTable, from 1
    bool Allowed = false; // the page's site is one the record may be filled into unasked
};

class clsSiteIndex {
public:
    // The records for the page at Url (and the form's SubmitUrl, which may add records of
    // its own host), most specific first.
    QList<BrMatch> Find(const clsDatabase& Db, const QString& Url, const QString& SubmitUrl = {});
    // Forgets everything (a user closed).
    void Clear();
    int Hosts() const { return static_cast<int>(m_byHost.size()); }
    // The title of folder IndNum ("" for the root or none), as of the last Find.
    QString FolderTitle(const QString& IndNum) const { return m_folders.value(IndNum); }
    // Makes the index current now (the server does so while it waits, so that a request
    // seldom pays for it).
    void Refresh(const clsDatabase& Db);

private:
    struct Entry {
        QString IndNum;
        int Row;
        QString Scheme; // empty: any
        int Port;       // -1: any
        QString Path;
        QStringList Allowed;
    };
    void rebuild(const clsDatabase& Db);
    void findFor(const QString& Url, QList<QPair<int, const Entry*>>& Out, QSet<const Entry*>& Seen) const;

    struct Parsed {
        QString Scheme, Host, Path;
        int Port = -1;
        bool Ok = false;
    };
    QHash<QString, QList<Entry>> m_byHost;
    QHash<QString, QString> m_folders;
    QHash<QString, Parsed> m_parsed; // stored addresses already read, kept across rebuilds
    const clsDatabase* m_db = nullptr;
    quint64 m_generation = 0;
};
