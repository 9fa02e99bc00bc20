// What the browser connection keeps and finds: its rows in the user's file, the site
// index, the manifests in the browsers' folders, the nonce rule.

#include "app/ProgConfig.h"
#include "app/modMain.h"
#include "browser/BrowserCrypto.h"
#include "browser/BrowserManifests.h"
#include "browser/BrowserStore.h"
#include "browser/SiteIndex.h"
#include "records/RecordTree.h"
#include "storage/FieldTable.h"
#include "storage/UserFileMerge.h"
#include "storage/clsDatabase.h"
#include "tests/common/TestEnv.h"
#include "tests/common/TestMain.h"
#include "users/UserAccounts.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QTest>

namespace {

void newDatabase() {
    ChooseConfiguration();
    CreateProgramObjects();
    QTemporaryDir dir;
    const QString tmp = dir.path() + QStringLiteral("/new.bdb");
    writeFileText(tmp, NewUserTemplate());
    clsDatabasePtr db;
    MDFM->LoadDB(tmp, db, QString());
    MDFM->DeleteDBFromCol(tmp);
    CurUsDB = db;
}

QString site(const QString& Title, const QString& Url) {
    const QString id = AddRecordToDB(*CurUsDB, "0", Title, "l", "p", QString());
    RecExtras ex;
    ex.Url = Url;
    WriteRecExtras(*CurUsDB, id, ex);
    return id;
}

QStringList titles(clsSiteIndex& Index, const QString& Url) {
    QStringList t;
    const int tbl = CurUsDB->FindTable("DataTable");
    for (const BrMatch& m : Index.Find(*CurUsDB, Url))
        t << CurUsDB->GetTblFldValNm(tbl, m.Row, "Title");
    return t;
}

} // namespace

class BrowserUnitsTest : public QObject {
    Q_OBJECT
private slots:
    // A site allowed for a record is the program's own row: no custom field, kept when the
    // record's fields are written, not found by the search, gone with the record.
    void sitePermissionIsNoCustomField() {
        TestEnv env;
        newDatabase();
        const QString id = site("Mail", "https://mail.example/");
        BrAllowSite(*CurUsDB, id, "mail.example");
        BrAllowSite(*CurUsDB, id, "mail.example"); // once is enough
        QCOMPARE(ReadFlaggedRows(CurUsDB->DBView(), rffSiteAllowed).value(id).size(), 1);
        RecExtras ex = ReadRecExtras(CurUsDB->DBView(), id);
        QVERIFY(ex.Custom.isEmpty());
        QVERIFY(ReadAllRecExtras(CurUsDB->DBView()).value(id).Custom.isEmpty());
        ex.Custom.append({"PIN", "1234", true, {}});
        WriteRecExtras(*CurUsDB, id, ex);
        QVERIFY(BrSiteAllowed(CurUsDB->DBView(), id, "mail.example"));
        QVERIFY(!BrSiteAllowed(CurUsDB->DBView(), id, "other.example"));
        const QString other = site("Other", QString());
        BrAllowSite(*CurUsDB, other, "zzz.example");
        QVERIFY(RowsWithMatchingExtras(CurUsDB->DBView(), CurUsDB->FindTable("DataTable"), "zzz", false)
                    .isEmpty());
        DropRecExtras(*CurUsDB, {id});
        QVERIFY(!BrSiteAllowed(CurUsDB->DBView(), id, "mail.example"));
    }

    // Connections live in a table of the file: both sides' new ones survive a merge, and
    // one removed on a side stays removed.
    void associationsMerge() {
        TestEnv env;
        newDatabase();
        BrAddAssociation(*CurUsDB, "old", "k0");
        const DatabaseRecord base = CurUsDB->DB();
        BrAddAssociation(*CurUsDB, "ours", "k1");
        BrRemoveAssociation(*CurUsDB, "old");
        DatabaseRecord ours = CurUsDB->DB();
        clsDatabase theirs;
        theirs.SetDB(base);
        BrAddAssociation(theirs, "theirs", "k2");
        BrAddAssociation(theirs, "old", "k3"); // renewed there: a new row
        MergeDatabases(ours, base, theirs.DBView());
        QStringList ids;
        for (const BrAssociation& a : BrAssociations(ours))
            ids << a.Id + "=" + a.IdKey;
        ids.sort();
        QCOMPARE(ids, QStringList({"old=k3", "ours=k1", "theirs=k2"}));
        QVERIFY(BrIsAssociated(ours, "theirs", "k2"));
        QVERIFY(!BrIsAssociated(ours, "theirs", "k1"));
        QVERIFY(!BrIsAssociated(ours, "old", "k0"));
    }

    // The index follows every change of the database: an edited address, a merge that
    // replaces the tables, a deleted record.
    void indexFollowsChanges() {
        TestEnv env;
        newDatabase();
        const QString a = site("A", "https://a.example/");
        site("Deep", "https://x.a.example/");
        clsSiteIndex index;
        QCOMPARE(titles(index, "https://a.example/"), QStringList({"A"}));
        QCOMPARE(titles(index, "https://y.x.a.example/"), QStringList({"Deep", "A"}));
        RecExtras ex;
        ex.Url = "https://b.example/";
        WriteRecExtras(*CurUsDB, a, ex);
        QCOMPARE(titles(index, "https://a.example/"), QStringList());
        QCOMPARE(titles(index, "https://b.example/login"), QStringList({"A"}));
        DatabaseRecord other = CurUsDB->DB();
        CurUsDB->ReplaceDB(other);
        QCOMPARE(titles(index, "https://b.example/"), QStringList({"A"}));
        DelRecordTreeFromDataTable("IndNum", a, "Parent");
        DropRecExtras(*CurUsDB, {a});
        QCOMPARE(titles(index, "https://b.example/"), QStringList());
        // A page's address that is no address finds nothing, and harms nothing.
        QCOMPARE(titles(index, "not a url at all"), QStringList());
        QCOMPARE(titles(index, ""), QStringList());
    }

    void manifestsAndKeePassXC() {
        TestEnv env;
        const BrBrowser firefox = BrBrowsersOf("firefox").first();
        QString why;
        QCOMPARE(BrInstallManifest(firefox, false, why), brmOurs);
        const QString path = BrManifestPath(firefox);
        QVERIFY(path.startsWith(QDir::homePath() + "/.mozilla/native-messaging-hosts/"));
        const QJsonObject m = QJsonDocument::fromJson(readAllOf(path)).object();
        QCOMPARE(m.value("name").toString(), QStringLiteral("org.keepassxc.keepassxc_browser"));
        QCOMPARE(m.value("path").toString(), BrBridgePath());
        QVERIFY(BrRemoveManifest(firefox, why));
        QVERIFY(!QFile::exists(path));

        // KeePassXC's manifest: left alone, taken over only when asked, put back as it was.
        const QByteArray theirs =
            R"({"name":"org.keepassxc.keepassxc_browser","path":"/usr/bin/keepassxc-proxy"})";
        writeFileText(path, theirs);
        QCOMPARE(BrInstallManifest(firefox, false, why), brmOther);
        QCOMPARE(readAllOf(path), theirs);
        QCOMPARE(BrManifestStatusOf(firefox).OtherPath, QStringLiteral("/usr/bin/keepassxc-proxy"));
        QCOMPARE(BrInstallManifest(firefox, true, why), brmOursKept);
        QVERIFY(readAllOf(path) != theirs);
        QVERIFY(BrRemoveManifest(firefox, why));
        QCOMPARE(readAllOf(path), theirs);
        QCOMPARE(QDir(QFileInfo(path).path()).entryList(QDir::Files).size(), 1);

        // A folder that cannot be made (a file in its place): said, and nothing written.
        const BrBrowser chromium = BrBrowsersOf("chromium").first();
        const QString config = qEnvironmentVariable("XDG_CONFIG_HOME");
        QVERIFY(QDir().mkpath(config));
        writeFileText(config + "/chromium", "a file");
        QCOMPARE(BrInstallManifest(chromium, false, why), brmNone);
        QVERIFY(!why.isEmpty());
        QCOMPARE(readAllOf(config + "/chromium"), QByteArray("a file"));
    }

    // A reply's nonce is the request's plus one, little-endian, carried over every byte.
    void nonceIncrement() {
        QByteArray n(kBrNonceBytes, '\0');
        n[0] = char(0xff);
        n[1] = char(0xff);
        const QByteArray m = BrIncrementNonce(n);
        QCOMPARE(int(quint8(m[0])), 0);
        QCOMPARE(int(quint8(m[1])), 0);
        QCOMPARE(int(quint8(m[2])), 1);
        const BrKeyPair a = BrKeyPair::Generate(), b = BrKeyPair::Generate();
        const QByteArray box = BrSeal("hello", m, b.Public, a.Secret);
        QByteArray plain;
        QVERIFY(BrOpen(box, m, a.Public, b.Secret, plain));
        QCOMPARE(plain, QByteArray("hello"));
        QVERIFY(!BrOpen(box, n, a.Public, b.Secret, plain));
    }
};

ARGENT_TEST(BrowserUnitsTest)
#include "tst_browser_units.moc"
