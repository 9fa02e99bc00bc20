// The password health dialog with the 100,000 records of bench/BenchHealthUser.h: the
// dialog made and filled from a report, and a change of the age (the old group again).
//
//   QT_QPA_PLATFORM=offscreen build/bench/bench_gui_health

#include "app/DiagnosticsHookup.h"
#include "app/modLang.h"
#include "bench/BenchHealthUser.h"
#include "diagnostics/ErrorTrap.h"
#include "records/frmPasswordHealth.h"

#include <QApplication>
#include <QFile>
#include <QSpinBox>
#include <QTemporaryDir>
#include <QTreeWidget>

#include <cstdio>

int main(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM",
            qgetenv("QT_QPA_PLATFORM").isEmpty() ? "offscreen" : qgetenv("QT_QPA_PLATFORM"));
    QApplication app(argc, argv);
    ConnectDiagnostics();
    int rc = 1;
    argent::diag::trapped([&] {
        QTemporaryDir dir;
        BenchProgramAllIn(dir.path());
        LoadLang(QStringLiteral(ARGENT_BIN_DIR "/Languages/English.lng"));
        QString pasw = QStringLiteral("bench-password-1");
        AddUser(UsDBFilePath(QStringLiteral("Bench")), QStringLiteral("Bench"), pasw);
        if (LoadUser(UsDBFilePath(QStringLiteral("Bench")), GetTruePasw(pasw)) != 2)
            return;
        FillBenchUser(50);
        ShapeHealthPasswords();
        const HealthReport rep = MakeHealthReport(*CurUsDB);
        std::vector<double> make, age;
        for (int k = 0; k < 5; ++k) {
            QElapsedTimer t;
            t.start();
            frmPasswordHealth dlg(nullptr, rep);
            dlg.show();
            QApplication::processEvents();
            make.push_back(BenchMs(t));
            t.restart();
            dlg.spnAge->setValue(dlg.spnAge->value() == 12 ? 24 : 12);
            QApplication::processEvents();
            age.push_back(BenchMs(t));
        }
        int lines = 0;
        {
            frmPasswordHealth dlg(nullptr, rep);
            for (QTreeWidgetItemIterator it(dlg.trvHealth); *it; ++it)
                ++lines;
        }
        std::printf("dialog of %d lines shown: median %.0f ms; another age: median %.0f ms\n", lines,
                    BenchMedian(make), BenchMedian(age));
        rc = 0;
    });
    return rc;
}
