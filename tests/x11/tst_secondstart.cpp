#include "tests/common/TestEnv.h"
#include "tests/common/TestMain.h"

#include <QFile>
#include <QProcess>
#include <QTest>

namespace {
QString run(const QString& prog, const QStringList& args) {
    QProcess p;
    p.start(prog, args);
    p.waitForFinished(5000);
    return QString::fromUtf8(p.readAllStandardOutput()).trimmed();
}
} // namespace

// Two real starts of the program on one desktop: the second says so, then brings the
// running window up and ends.
class SecondStartX11Test : public QObject {
    Q_OBJECT
private slots:
    void secondStartRaisesTheFirst() {
        TestEnv env;
        const QString exe = env.progDir() + "/ArgentPasswordMngr";
        QVERIFY(QFile::copy(ARGENT_BIN_DIR "/ArgentPasswordMngr", exe));
        const QString log = env.progDir() + "/DbgFile.dat";
        QProcess first;
        first.start(exe, {});
        QVERIFY(QTest::qWaitFor([&] { return readAllOf(log).contains("TESTPOINT 4"); }, 15000));

        QProcess second;
        second.start(exe, {});
        // Its message box, under the pointer, answered with Return.
        QString box;
        QVERIFY(QTest::qWaitFor(
            [&] {
                box =
                    run("xdotool", {"search", "--onlyvisible", "--pid", QString::number(second.processId())})
                        .section('\n', 0, 0);
                return !box.isEmpty();
            },
            15000));
        QTest::qWait(300);
        run("xdotool", {"mousemove", "--window", box, "20", "20"});
        run("xdotool", {"key", "Return"});
        QVERIFY(second.waitForFinished(10000));
        QCOMPARE(second.exitCode(), 0);
        const QByteArray text = readAllOf(log);
        QVERIFY(text.contains("PrevInstance detected"));
        QVERIFY(QTest::qWaitFor([&] { return readAllOf(log).contains("Second start: showing the window"); },
                                5000));
        QCOMPARE(first.state(), QProcess::Running);
        first.kill();
        first.waitForFinished();
    }
};
ARGENT_TEST(SecondStartX11Test)

#include "tst_secondstart.moc"
