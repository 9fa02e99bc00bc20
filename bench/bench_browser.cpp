// The browser's get-logins at scale: a user of 100,000 records (half of them with a web
// address, on 20,000 hosts), answered through the protocol as the window answers it
// (opening and sealing included). The first request builds the host index; the later ones
// use it. A change to the database makes the next request build it again.
// Usage: bench_browser [RECORDS]

#include "BenchUser.h"

#include "app/DiagnosticsHookup.h"
#include "browser/BrowserHost.h"
#include "browser/BrowserProtocol.h"
#include "browser/BrowserStore.h"
#include "browser/SiteIndex.h"
#include "diagnostics/ErrorTrap.h"
#include "storage/FieldTable.h"

#include <QCoreApplication>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>

#include <sodium.h>

#include <cstdio>

namespace {

struct OpenHost : IBrowserHost {
    bool DatabaseOpen() const override { return true; }
    void RequestUnlock() override {}
    void LockDatabase() override {}
    bool AskConnect(QString&) override { return false; }
    BrSiteAnswer AskSite(const QString&, const QStringList&) override { return brAllowOnce; }
    bool AskOverwrite(const QString&, const QString&, const QString&) override { return false; }
    void RowAdded(const QString&) override {}
    void RowChanged(const QString&) override {}
    int Save() override { return 0; }
};

struct Extension {
    BrKeyPair Keys = BrKeyPair::Generate();
    QByteArray Server;
    QString IdKey = QString::fromLatin1(BrKeyPair::Generate().Public.toBase64());

    QByteArray request(const QString& Url) const {
        const QByteArray nonce = BrRandomNonce();
        const QJsonObject msg{
            {QStringLiteral("action"), QStringLiteral("get-logins")},
            {QStringLiteral("id"), QStringLiteral("bench")},
            {QStringLiteral("url"), Url},
            {QStringLiteral("keys"), QJsonArray{QJsonObject{{QStringLiteral("id"), QStringLiteral("bench")},
                                                            {QStringLiteral("key"), IdKey}}}}};
        const QByteArray box =
            BrSeal(QJsonDocument(msg).toJson(QJsonDocument::Compact), nonce, Server, Keys.Secret);
        return QJsonDocument(QJsonObject{{QStringLiteral("action"), QStringLiteral("get-logins")},
                                         {QStringLiteral("message"), QString::fromLatin1(box.toBase64())},
                                         {QStringLiteral("nonce"), QString::fromLatin1(nonce.toBase64())}})
            .toJson(QJsonDocument::Compact);
    }
};

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    ConnectDiagnostics();
    int rc = 1;
    argent::diag::trapped([&] {
        int n = 100000;
        for (const QString& a : QCoreApplication::arguments().mid(1))
            if (a.toInt() > 0)
                n = a.toInt();
        QTemporaryDir dir;
        BenchProgramAllIn(dir.path());
        QString pasw = QStringLiteral("bench-password-1");
        AddUser(UsDBFilePath(QStringLiteral("Bench")), QStringLiteral("Bench"), pasw);
        if (LoadUser(UsDBFilePath(QStringLiteral("Bench")), GetTruePasw(pasw)) != 2)
            return;
        CurUser = QStringLiteral("Bench");
        FillBenchUser(std::max(1, n / 2000));
        clsDatabase& db = *CurUsDB;
        const int tbl = db.FindTable(QStringLiteral("DataTable"));
        const int rows = db.GetTblRecNum(tbl);
        int withUrl = 0;
        for (int r = 1; r <= rows; ++r) {
            if (db.GetTblFldValNm(tbl, r, QStringLiteral("Type")) != QLatin1String("2") || r % 2)
                continue;
            RecExtras ex;
            ex.Url = QStringLiteral("https://") + (r % 3 ? QStringLiteral("login.") : QString()) +
                     QStringLiteral("host") + QString::number(r % 20000) + QStringLiteral(".example/path") +
                     QString::number(r % 7);
            AppendNewRecExtras(db, db.GetTblFldValNm(tbl, r, QStringLiteral("IndNum")), ex);
            ++withUrl;
        }
        Extension ext;
        BrAddAssociation(db, QStringLiteral("bench"), ext.IdKey);
        OpenHost host;
        clsSiteIndex index;
        clsBrowserClient client(host, index);
        QByteArray reply;
        const QByteArray nonce = BrRandomNonce();
        client.Handle(
            QJsonDocument(
                QJsonObject{{QStringLiteral("action"), QStringLiteral("change-public-keys")},
                            {QStringLiteral("publicKey"), QString::fromLatin1(ext.Keys.Public.toBase64())},
                            {QStringLiteral("nonce"), QString::fromLatin1(nonce.toBase64())}})
                .toJson(QJsonDocument::Compact),
            reply);
        ext.Server = QByteArray::fromBase64(
            QJsonDocument::fromJson(reply).object().value("publicKey").toString().toLatin1());
        std::printf("rows: %d (2,110 of them folders), records with a web address: %d\n", rows, withUrl);

        QElapsedTimer t;
        t.start();
        client.Handle(ext.request(QStringLiteral("https://login.host42.example/path1/x")), reply);
        std::printf("get-logins, first (builds the host index of %d hosts): %.1f ms\n", index.Hosts(),
                    BenchMs(t));
        std::vector<double> times;
        int entries = 0;
        for (int i = 0; i < 200; ++i) {
            const QByteArray req =
                ext.request(QStringLiteral("https://login.host") + QString::number(i * 97 % 20000) +
                            QStringLiteral(".example/path3/login"));
            t.restart();
            client.Handle(req, reply);
            times.push_back(BenchMs(t));
            entries += reply.contains("\"message\"") ? 1 : 0;
        }
        std::printf("get-logins with the index (median of 200, %d answered): %.2f ms\n", entries,
                    BenchMedian(times));
        db.SetTblFldValNm(tbl, 3, QStringLiteral("Title"), QStringLiteral("changed"));
        t.restart();
        client.Handle(ext.request(QStringLiteral("https://login.host43.example/")), reply);
        std::printf("get-logins after a change (index built again): %.1f ms\n", BenchMs(t));
        db.SetTblFldValNm(tbl, 3, QStringLiteral("Title"), QStringLiteral("changed again"));
        t.restart();
        index.Refresh(db);
        std::printf("the index made current between requests (the server does it while idle): %.1f ms\n",
                    BenchMs(t));
        rc = 0;
    });
    return rc;
}
