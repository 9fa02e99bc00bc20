#include "app/guiSecretClipboard.h"
#include "tests/common/TestEnv.h"
#include "tests/common/TestMain.h"
#include "tests/records/CliRunner.h"

#include <QProcess>
#include <QRegularExpression>
#include <QTest>

namespace {
// Reads the X clipboard with xclip while this process keeps serving it.
QString xclipRead(const QString& target = QString()) {
    QProcess p;
    QStringList args{"-o", "-selection", "clipboard"};
    if (!target.isEmpty())
        args << "-t" << target;
    p.start("xclip", args);
    if (!QTest::qWaitFor([&p] { return p.state() == QProcess::NotRunning; }, 5000))
        return "<timeout>";
    return p.exitCode() == 0 ? QString::fromUtf8(p.readAllStandardOutput()) : QString();
}
} // namespace

// The secret clipboard on a real X server, read back as another program would.
class ClipboardX11Test : public QObject {
    Q_OBJECT
private slots:
    void markedAndClearedOnlyWhileOurs() {
        SecretClipboard clip;
        clip.CopySecret("s3cret Ї", 2);
        QCOMPARE(xclipRead(), QStringLiteral("s3cret Ї"));
        QVERIFY(xclipRead("TARGETS").contains("x-kde-passwordManagerHint"));
        QCOMPARE(xclipRead("x-kde-passwordManagerHint"), QStringLiteral("secret"));
        QCOMPARE(clip.SecondsLeft(), 2);
        QTest::qWait(2600);
        QCOMPARE(xclipRead(), QString());
        QCOMPARE(clip.SecondsLeft(), 0);

        // Another program copies meanwhile: its text stays.
        clip.CopySecret("s3cret", 2);
        QProcess mine;
        mine.start("xclip", {"-quiet", "-i", "-selection", "clipboard"});
        mine.write("mine");
        mine.closeWriteChannel();
        QVERIFY(QTest::qWaitFor([&clip] { return clip.SecondsLeft() == 0; }, 2000)); // seen as lost
        QTest::qWait(2600);
        QCOMPARE(xclipRead(), QStringLiteral("mine"));
        QVERIFY(!clip.ClearIfOurs());
        QCOMPARE(xclipRead(), QStringLiteral("mine"));
        mine.kill();
        mine.waitForFinished();
    }

    // argentpm clip: the keeper takes the clipboard, marks it and clears it in time.
    void cliClipCopiesAndClears() {
        TestEnv env;
        CliRunner cli(env);
        QFile::copy(ARGENT_BIN_DIR "/argentpm-clipkeeper", env.progDir() + "/argentpm-clipkeeper");
        const QString pw = "anna password";
        QCOMPARE(cli({"add-user", "anna", "--password-stdin"}, pw.toUtf8() + '\n').code, 0);
        QCOMPARE(cli.as(pw, {"add", "anna", "0", "--title", "Bank", "--login", "ann", "--ask-password"},
                        "bank secret\n")
                     .code,
                 0);
        // Two seconds instead of ten, in the settings the first run made.
        const QString cfg = env.userFolder() + "/config.dat";
        QList<QByteArray> lines = readAllOf(cfg).split('\n');
        QVERIFY(lines.size() >= 23);
        lines[22] = "2\r";
        writeFileText(cfg, lines.join('\n'));

        const CliRun r = cli.as(pw, {"clip", "anna", "1"});
        QCOMPARE(r.code, 0);
        QCOMPARE(xclipRead(), QStringLiteral("bank secret"));
        QCOMPARE(xclipRead("x-kde-passwordManagerHint"), QStringLiteral("secret"));
        QTest::qWait(3000);
        QCOMPARE(xclipRead(), QString());

        QCOMPARE(cli.as(pw, {"clip", "anna", "1", "--field", "login"}).code, 0);
        QCOMPARE(xclipRead(), QStringLiteral("ann"));
        QCOMPARE(cli.as(pw, {"clip", "anna", "7"}).code, 6);
        // Fields beyond the four: a custom one by its name, and the one-time code (not its seed).
        QCOMPARE(cli.as(pw, {"edit", "anna", "1", "--field", "PIN=2468", "--hidden-field", "PIN", "--totp",
                             "JBSWY3DPEHPK3PXP"})
                     .code,
                 0);
        QCOMPARE(cli.as(pw, {"clip", "anna", "1", "--field", "PIN"}).code, 0);
        QCOMPARE(xclipRead(), QStringLiteral("2468"));
        QCOMPARE(cli.as(pw, {"clip", "anna", "1", "--field", "totp"}).code, 0);
        QVERIFY2(QRegularExpression("^[0-9]{6}$").match(xclipRead()).hasMatch(), qPrintable(xclipRead()));
        QCOMPARE(cli.as(pw, {"clip", "anna", "1", "--field", "Nope"}).code, 6);
        // Without a display there is no clipboard to copy to.
        const QByteArray display = qgetenv("DISPLAY");
        qunsetenv("DISPLAY");
        const int noDisplay = cli.as(pw, {"clip", "anna", "1"}).code;
        qputenv("DISPLAY", display);
        QCOMPARE(noDisplay, 11);
    }
};
ARGENT_TEST(ClipboardX11Test)

#include "tst_clipboard.moc"
