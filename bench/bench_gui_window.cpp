// The desktop program as a user meets it: the real ArgentPasswordMngr, started on a real X
// display (run it under xvfb-run), asks for the last user's password at start; the password
// is typed and Return pressed through the X server's test extension (xdotool), and the time
// runs from just before that Return until the program has painted its tree with the user's
// rows and handed it to the display (the program's own probe, ARGENT_PAINT_PROBE, reports
// the moment on the same monotonic clock, with its peak resident memory at that moment).
// The user has N records in the shape of bench_gui_mainwindow (ten top folders of ten
// folders of twenty folders, N / 2,000 records in each of those).
//
//   xvfb-run -a -s "-screen 0 1280x800x24" build/bench/bench_gui_window [--runs K] [N ...]
//   (default 10000 100000, 5 runs; targets at 100,000: <= 300 ms and <= 110 MiB)

#include "app/DiagnosticsHookup.h"
#include "app/ProgConfig.h"
#include "app/modMain.h"
#include "bench/BenchUser.h"
#include "storage/Md5.h"
#include "storage/clsDatabase.h"
#include "users/UserAccounts.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QProcess>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QThread>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <vector>

namespace {

const QString kPasw = QStringLiteral("bench-password");

void makeUser(const QString& Name, int N) {
    QString p = kPasw;
    AddUser(UsDBFilePath(Name), Name, p);
    CurUsDB = std::make_shared<clsDatabase>();
    LoadUser(UsDBFilePath(Name), GetTruePasw(p));
    FillBenchUser(N / 2000);
    SaveUsDB(CurUsDB, GetTruePasw(p));
    CurUsDB = std::make_shared<clsDatabase>();
}

long long nowNs() {
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<long long>(ts.tv_sec) * 1000000000LL + ts.tv_nsec;
}

bool xdotool(const QStringList& Args) {
    return QProcess::execute(QStringLiteral("xdotool"), Args) == 0;
}

// Waits for a line of the program's probe that starts with Prefix.
QByteArray waitLine(QProcess& P, const QByteArray& Prefix, int Ms) {
    QElapsedTimer t;
    t.start();
    while (t.elapsed() < Ms) {
        while (P.canReadLine()) {
            const QByteArray line = P.readLine().trimmed();
            if (line.startsWith(Prefix))
                return line;
        }
        if (P.state() == QProcess::NotRunning)
            return {};
        P.waitForReadyRead(50);
    }
    return {};
}

// One opening: -1 when it did not come to the tree.
bool openOnce(const QProcessEnvironment& Env, double& Ms, double& PeakMiB) {
    QProcess p;
    p.setProcessEnvironment(Env);
    p.setReadChannel(QProcess::StandardError);
    p.start(QStringLiteral(ARGENT_BIN_DIR "/ArgentPasswordMngr"), {});
    bool ok = false;
    if (!waitLine(p, "shown frmPassword", 30000).isEmpty()) {
        // Let the dialog take the focus and settle, as a person would before typing.
        QThread::msleep(500);
        xdotool({QStringLiteral("type"), QStringLiteral("--delay"), QStringLiteral("1"), kPasw});
        QThread::msleep(200);
        const long long t0 = nowNs();
        xdotool({QStringLiteral("key"), QStringLiteral("Return")});
        const QList<QByteArray> v = waitLine(p, "paint ", 60000).split(' ');
        if (v.size() == 3) {
            Ms = static_cast<double>(v[1].toLongLong() - t0) / 1e6;
            PeakMiB = v[2].toDouble() / 1024.0;
            ok = true;
        }
    }
    p.terminate();
    if (!p.waitForFinished(20000))
        p.kill();
    p.waitForFinished(5000);
    return ok;
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    ConnectDiagnostics();
    QStringList args = QCoreApplication::arguments().mid(1);
    int runs = 5;
    if (args.size() >= 2 && args[0] == QLatin1String("--runs")) {
        runs = std::max(1, args[1].toInt());
        args = args.mid(2);
    }
    QList<int> sizes;
    for (const QString& a : args)
        sizes << a.toInt();
    if (sizes.isEmpty())
        sizes = {10000, 100000};
    if (qEnvironmentVariableIsEmpty("DISPLAY")) {
        std::fprintf(stderr, "needs an X display: xvfb-run -a %s\n", argv[0]);
        return 2;
    }
    SetAppPath(QStringLiteral(ARGENT_BIN_DIR));
    std::printf("the real window on X display %s; Return in the password dialog to the tree painted\n",
                qgetenv("DISPLAY").constData());
    for (int n : sizes) {
        QTemporaryDir home;
        const QString h = home.path();
        QDir().mkpath(h + "/run");
        QFile::setPermissions(h + "/run", QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        for (const char* v : {"HOME", "XDG_DATA_HOME", "XDG_CONFIG_HOME"})
            qputenv(v, QFile::encodeName(h));
        qputenv("XDG_RUNTIME_DIR", QFile::encodeName(h + "/run"));
        // The first run's settings, then the user, opened at start.
        ChooseConfiguration();
        CreateProgramObjects();
        makeUser(QStringLiteral("bench"), n);
        ProgConfig[kCfgLastUser] = QStringLiteral("bench");
        ProgConfig[kCfgLoadLastUser] = QStringLiteral("1");
        SaveConfig(Pt(UserFolderPath()) + QStringLiteral("config.dat"));
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("ARGENT_PAINT_PROBE"), QStringLiteral("1"));
        env.remove(QStringLiteral("QT_QPA_PLATFORM"));
        std::vector<double> times, peaks;
        for (int k = 0; k < runs; ++k) {
            double ms = 0, peak = 0;
            if (!openOnce(env, ms, peak)) {
                std::fprintf(stderr, "the window did not show the tree of %d records\n", n);
                return 1;
            }
            times.push_back(ms);
            peaks.push_back(peak);
        }
        std::printf(
            "%7d records: open %6.0f ms median (%.0f-%.0f), peak %5.1f MiB median   targets at 100,000: "
            "<= 300 ms, <= 110 MiB\n",
            n, BenchMedian(times), *std::min_element(times.begin(), times.end()),
            *std::max_element(times.begin(), times.end()), BenchMedian(peaks));
        std::fflush(stdout);
    }
    return 0;
}
