#include "app/MsgBox.h"
#include "app/ProgConfig.h"
#include "app/modLang.h"
#include "app/modMain.h"
#include "diagnostics/ErrorTrap.h"
#include "tests/common/TestEnv.h"
#include "tests/common/TestMain.h"

#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QTest>

#include <cstdio>

namespace {

// Start-up in a child process; message boxes are printed to standard output.
int childMain(int& argc, char** argv) {
    QCoreApplication app(argc, argv);
    SetAppPath(qEnvironmentVariable("ARGENT_TEST_PROGDIR"));
    SetExeFolderPath(qEnvironmentVariable("ARGENT_TEST_PROGDIR"));
    SetMsgBoxHandler([](const QString& prompt, int style, const QString&) {
        std::printf("MSGBOX %d %s\n", style, prompt.toUtf8().constData());
        return static_cast<int>(vbOK);
    });
    bool started = false;
    argent::diag::trapped([&] { started = Main(); });
    return started ? 0 : 3;
}
ARGENT_CHILD("main", childMain)

struct Run {
    int code;
    QString out;
};

Run runMain(const TestEnv& env) {
    QProcess p;
    p.setEnvironment(env.childEnv(QStringLiteral("main")));
    p.start(QCoreApplication::applicationFilePath(), {});
    p.waitForFinished(20000);
    return {p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1,
            QString::fromUtf8(p.readAllStandardOutput())};
}

QStringList logTexts(const TestEnv& env) {
    QStringList texts;
    for (const QByteArray& line : readAllOf(env.progDir() + "/DbgFile.dat").split('\n')) {
        const int at = line.indexOf("): ");
        if (at >= 0)
            texts << QString::fromUtf8(line.mid(at + 3)).remove('\r');
    }
    return texts;
}

} // namespace

class StartupTest : public QObject {
    Q_OBJECT
private slots:
    // Where the program folder is: beside the executable when start.dat is there, else
    // the first data folder that holds it, else the executable's folder.
    void programFolderLookup_data() {
        QTest::addColumn<QStringList>("withStart"); // folders that hold start.dat
        QTest::addColumn<QString>("expected");
        QTest::newRow("build tree or portable copy") << QStringList{"bin", "share"} << "bin";
        QTest::newRow("installed, relative data folder") << QStringList{"share"} << "share";
        QTest::newRow("installed, built-for prefix") << QStringList{"prefix"} << "prefix";
        QTest::newRow("relative before prefix") << QStringList{"share", "prefix"} << "share";
        QTest::newRow("nothing anywhere") << QStringList{} << "bin";
    }
    void programFolderLookup() {
        QFETCH(QStringList, withStart);
        QFETCH(QString, expected);
        TestEnv env;
        const QString r = env.root() + "/t";
        for (const char* d : {"bin", "share", "prefix"})
            QDir().mkpath(r + u'/' + QLatin1String(d));
        for (const QString& d : withStart)
            writeFileText(r + u'/' + d + "/start.dat", "True\r\n");
        // The data folder relative to bin/ comes in unclean, as the build makes it.
        QCOMPARE(FindProgramFolder(r + "/bin", {r + "/bin/../share", r + "/prefix"}), r + u'/' + expected);
    }

    // The first start of an installed copy: the data folder is not the executable's, the
    // per-user folder does not exist yet. The settings are made from start.dat and the
    // log, held until that folder exists, lands there whole.
    void installedFirstStartLogsIntoTheNewUserFolder() {
        TestEnv env;
        SetExeFolderPath(env.root() + "/bin");
        QVERIFY(Main());
        QVERIFY(!ProgramBesideExe());
        QCOMPARE(ProgCfgPath, env.userFolder() + "/DataBases/config.dat");
        QVERIFY(QFileInfo(env.userFolder() + "/DataBases/SampleUser.bdb").isFile());
        QVERIFY(!QFile::exists(env.progDir() + "/DbgFile.dat"));
        const QByteArray log = readAllOf(env.userFolder() + "/DbgFile.dat");
        QVERIFY2(log.indexOf("========== Start Logging") < log.indexOf("Configuration Loading... Ok") &&
                     log.indexOf("========== Start Logging") >= 0 && log.contains("Language Loading... Ok"),
                 log.constData());
    }

    void startsAndLogsInOrder() {
        TestEnv env;
        QVERIFY(Main());
        QCOMPARE(logTexts(env),
                 QStringList(
                     {"========== Start Logging ==========", "===Version 1.0.0===", "Registering controls...",
                      "Registering controls... Ok", "Common controls initialization...",
                      "Common controls initialization... Ok", "Colors initializing...",
                      "Colors initializing...Ok", "Configuration Loading...", "Configuration Loading... Ok",
                      "Language Loading...", "Language Loading... Ok"}));
        QCOMPARE(Texts(26), QStringLiteral("&File"));
        QCOMPARE(CustomColors, QByteArray(64, '\0'));

        // A second instance: one message box with the failed lookup, nothing else touched.
        const QByteArray cfgBefore = readAllOf(env.userFolder() + "/config.dat");
        const Run second = runMain(env);
        QCOMPARE(second.code, 3);
        QCOMPARE(second.out, QStringLiteral("MSGBOX 64 #Error in language module#\n"));
        const QStringList log = logTexts(env);
        QCOMPARE(log.mid(log.size() - 4),
                 QStringList({"========== Start Logging ==========", "===Version 1.0.0===",
                              "PrevInstance detected", "Error #0001. TxtIdent = 2."}));
        QCOMPARE(readAllOf(env.userFolder() + "/config.dat"), cfgBefore);

        // Once the first instance ends, the next start goes ahead.
        ReleaseInstanceLock();
        QCOMPARE(runMain(env).code, 0);
    }

    void damagedSettingsEndInTheReport_data() {
        QTest::addColumn<QByteArray>("config");
        QTest::addColumn<QByteArray>("language");
        QTest::addColumn<QString>("expected");
        QTest::addColumn<QString>("variables");
        QTest::newRow("too few lines")
            << QByteArray("True\r\nTrue\r\n") << QByteArray() << "Error Number: 9\r\n"
            << QString();
        QTest::newRow("binary junk") << QByteArray("\x01\xff\x00zz\r\n\x87\x87", 9) << QByteArray()
                                     << "Error Number: 9\r\n"
                                     << QString();
        QTest::newRow("unknown language")
            << QByteArray("1\r\n2\r\n3\r\n4\r\n5\r\n6\r\n7\r\n8\r\n9\r\n10\r\n11\r\n"
                          "12\r\n13\r\nKlingon\r\n")
            << QByteArray() << "Error Number: 53\r\n"
            << QString();
        // The report shows where in the file reading stopped, and the language module's state.
        QTest::newRow("damaged language")
            << QByteArray() << QByteArray("300\r\n1=a\r\nthis is not a text line\r\n")
            << "Error Number: 5\r\n"
            << "<LocalVariables><LineCount>3</LineCount>\r\n<header>300</header>\r\n<n>300</n>\r\n<i>2</"
               "i>\r\n"
               "<line>this is not a text "
               "line</line>\r\n</LocalVariables>\r\n<ModuleVariables><LangFile></LangFile>\r\n"
               "<LangTextCount>0</LangTextCount>\r\n</ModuleVariables>";
        QTest::newRow("identifier not a number")
            << QByteArray() << QByteArray("300\r\nx=a\r\n")
            << "Error Number: 13\r\nComponent Name: ArgentPasswordMngr\r\n"
               "Module Name: modLang\r\nBlock Name: LoadLang\r\nDescription: Type mismatch\r\n"
            << "<i>1</i>\r\n<line>x=a</line>\r\n</LocalVariables>";
    }
    void damagedSettingsEndInTheReport() {
        QFETCH(QByteArray, config);
        QFETCH(QByteArray, language);
        QFETCH(QString, expected);
        QFETCH(QString, variables);
        TestEnv env;
        if (!config.isEmpty())
            writeFileText(env.progDir() + "/config.dat", config);
        if (!language.isEmpty())
            writeFileText(env.progDir() + "/Languages/English.lng", language);
        const Run r = runMain(env);
        QCOMPARE(r.code, argent::diag::kTrappedExitCode);
        const QString report = QString::fromUtf8(readAllOf(env.progDir() + "/ErrorReport.txt"));
        QVERIFY2(report.startsWith(expected), qPrintable(report));
        QVERIFY2(report.contains(variables), qPrintable(report));
        QVERIFY(report.contains("Name: modMain.Main, Type: 1"));
    }
};

ARGENT_TEST(StartupTest)
#include "tst_startup.moc"
