// Secret Service benchmark: a user whose folder "Secret Service" holds ROWS items (default
// 100,000), each with three attributes, and on it
//  - the first search, which builds the attribute index in one pass,
//  - a search by one attribute of a single item, and by two attributes of 100 items,
//  - the same searches after the window changed a record (the index notices and is built
//    again), and after the provider stored an item (the index is updated in place).
// Each figure is the median of several runs.
//
//   bench_secrets [ROWS [ITEMS]]    (ITEMS of the ROWS records are in the folder; all by default)

#include "app/DiagnosticsHookup.h"
#include "app/ProgConfig.h"
#include "app/modMain.h"
#include "bench/BenchUser.h"
#include "diagnostics/ErrorTrap.h"
#include "records/RecordTree.h"
#include "secrets/SecretItems.h"
#include "storage/FieldTable.h"
#include "storage/Md5.h"
#include "storage/clsDatabase.h"
#include "users/UserAccounts.h"
#include "users/UserSession.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>

#include <cstdio>
#include <functional>

namespace {

double Median(int Runs, const std::function<void()>& Fn) {
    std::vector<double> t;
    for (int i = 0; i < Runs; ++i) {
        QElapsedTimer e;
        e.start();
        Fn();
        t.push_back(BenchMs(e));
    }
    return BenchMedian(t);
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    ConnectDiagnostics();
    int rc = 1;
    argent::diag::trapped([&] {
        const QStringList args = QCoreApplication::arguments();
        const int n = args.size() > 1 && args[1].toInt() > 0 ? args[1].toInt() : 100000;
        const int inFolder = args.size() > 2 && args[2].toInt() > 0 ? std::min(n, args[2].toInt()) : n;
        QTemporaryDir dir;
        BenchProgramAllIn(dir.path());
        QString pasw = QStringLiteral("bench-password-1");
        AddUser(UsDBFilePath(QStringLiteral("Bench")), QStringLiteral("Bench"), pasw);
        if (UsSession().Open(QStringLiteral("Bench"), HashString(QStringLiteral("bench-password-1"))) != 0)
            return;
        clsDatabase& db = *CurUsDB;
        const QString folder = GetNewIndNum(db);
        AddFolderToDB(SecretFolderName(), 0, folder);
        for (int i = 0; i < n; ++i) {
            const QString id = AddRecordToDB(db, i < inFolder ? folder : QStringLiteral("0"),
                                             QStringLiteral("item %1").arg(i), QString(),
                                             QStringLiteral("secret %1").arg(i), QString());
            RecExtras ex;
            ex.Custom = {{QStringLiteral("service"), QStringLiteral("svc%1").arg(i), false, {}},
                         {QStringLiteral("user"), QStringLiteral("u%1").arg(i % 1000), false, {}},
                         {QStringLiteral("xdg:schema"), QStringLiteral("org.example.Password"), false, {}},
                         {QStringLiteral("argent:program"), QStringLiteral("/usr/bin/example"), false, {}}};
            AppendNewRecExtras(db, id, ex);
        }
        std::printf("records: %d, items: %d\n", n, inFolder);
        SecretItems items;
        const SecretAttrs one{{QStringLiteral("service"), QStringLiteral("svc%1").arg(inFolder / 2)}};
        const SecretAttrs two{{QStringLiteral("user"), QStringLiteral("u7")},
                              {QStringLiteral("xdg:schema"), QStringLiteral("org.example.Password")}};
        QElapsedTimer e;
        e.start();
        const int found = static_cast<int>(items.Search(one).size());
        std::printf("first search (index built): %.1f ms, %d found\n", BenchMs(e), found);
        int hits = 0;
        const double byOne = Median(21, [&] { hits = static_cast<int>(items.Search(one).size()); });
        std::printf("search by one attribute: %.4f ms (%d found)\n", byOne, hits);
        const double byTwo = Median(21, [&] { hits = static_cast<int>(items.Search(two).size()); });
        std::printf("search by two attributes: %.4f ms (%d found)\n", byTwo, hits);
        const int tbl = db.FindTable(QStringLiteral("DataTable"));
        std::printf("search after a record changed elsewhere: %.1f ms\n", Median(5, [&] {
                        db.SetTblFldValNm(tbl, 2, QStringLiteral("Title"), QStringLiteral("renamed"));
                        items.Search(one);
                    }));
        std::printf("store an item, then search: %.1f ms\n", Median(5, [&] {
                        SecretItem it;
                        it.Label = QStringLiteral("new");
                        it.Secret = "x";
                        it.Attrs = one;
                        items.Create(it);
                        items.Search(one);
                    }));
        rc = 0;
    });
    return rc;
}
