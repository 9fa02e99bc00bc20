// Password health benchmark: the report (records/PasswordHealth.h) of 100,000 records in
// 2,210 folders, with the passwords of bench/BenchHealthUser.h. Median of the runs of wall
// time and of processor time (all threads); then the same with one password for all, which
// leaves out the estimator.
//
//   bench_health [RECORDS_PER_FOLDER] [RUNS]      (default 50 and 5: 100,000 records)

#include "app/DiagnosticsHookup.h"
#include "bench/BenchHealthUser.h"
#include "diagnostics/ErrorTrap.h"
#include "records/PasswordHealth.h"

#include <QCoreApplication>
#include <QFile>
#include <QTemporaryDir>

#include <cstdio>
#include <ctime>
#include <thread>

namespace {

double cpuMs() {
    timespec t{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) * 1e3 + static_cast<double>(t.tv_nsec) / 1e6;
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    ConnectDiagnostics();
    int rc = 1;
    argent::diag::trapped([&] {
        const QStringList args = QCoreApplication::arguments();
        const int perFolder = args.size() > 1 ? std::max(1, args[1].toInt()) : 50;
        const int runs = args.size() > 2 ? std::max(1, args[2].toInt()) : 5;
        QTemporaryDir dir;
        BenchProgramAllIn(dir.path());
        QString pasw = QStringLiteral("bench-password-1");
        AddUser(UsDBFilePath(QStringLiteral("Bench")), QStringLiteral("Bench"), pasw);
        if (LoadUser(UsDBFilePath(QStringLiteral("Bench")), GetTruePasw(pasw)) != 2)
            return;
        FillBenchUser(perFolder);
        ShapeHealthPasswords();

        std::vector<double> wall, cpu;
        HealthReport rep;
        for (int k = 0; k < runs; ++k) {
            QElapsedTimer t;
            const double c0 = cpuMs();
            t.start();
            rep = MakeHealthReport(*CurUsDB);
            wall.push_back(BenchMs(t));
            cpu.push_back(cpuMs() - c0);
        }
        qsizetype shared = 0;
        for (const auto& g : rep.Reused)
            shared += g.size();
        std::printf("records: %d, cores: %u\n", rep.Records, std::thread::hardware_concurrency());
        std::printf(
            "weak %lld, shared passwords %lld (%lld records), older than 12 months %lld, unknown age %d, "
            "empty %lld\n",
            static_cast<long long>(rep.Weak.size()), static_cast<long long>(rep.Reused.size()),
            static_cast<long long>(shared),
            static_cast<long long>(HealthOlderThan(rep, HealthCutoffMonths(12)).size()), rep.UnknownAge,
            static_cast<long long>(rep.Empty.size()));
        std::printf("report: median %.0f ms wall, %.0f ms processor (%d runs)\n", BenchMedian(wall),
                    BenchMedian(cpu), runs);
        // The same walk with one password everywhere: what the report costs besides the
        // estimator.
        clsDatabase& db = *CurUsDB;
        const int tbl = db.FindTable(QStringLiteral("DataTable"));
        const int fType = db.FindField(tbl, QStringLiteral("Type"));
        const int fPasw = db.FindField(tbl, QStringLiteral("Password"));
        for (int r = 1; r <= db.GetTblRecNum(tbl); ++r)
            if (db.GetTblFldVal(tbl, r, fType) == QLatin1String("2"))
                db.SetTblFldVal(tbl, r, fPasw, QStringLiteral("one for all"));
        wall.clear();
        cpu.clear();
        for (int k = 0; k < runs; ++k) {
            QElapsedTimer t;
            const double c0 = cpuMs();
            t.start();
            MakeHealthReport(db);
            wall.push_back(BenchMs(t));
            cpu.push_back(cpuMs() - c0);
        }
        std::printf("without the estimator: median %.0f ms wall, %.0f ms processor\n", BenchMedian(wall),
                    BenchMedian(cpu));
        rc = 0;
    });
    return rc;
}
