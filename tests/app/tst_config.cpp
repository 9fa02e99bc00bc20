#include "app/ProgConfig.h"
#include "app/modMain.h"
#include "diagnostics/ErrorTrap.h"
#include "tests/common/TestEnv.h"
#include "tests/common/TestMain.h"

#include <QDir>
#include <QFileInfo>
#include <QTest>

class ConfigTest : public QObject {
    Q_OBJECT
private slots:
    void roundTripKeepsEveryLineAndNoElementZero() {
        TestEnv env;
        const QString path = env.root() + "/c.dat";
        // LF alone, CR LF, an empty entry and text with "=" and non-ASCII all survive.
        writeFileText(path, "True\r\nFalse\nx=y\r\n\r\nПароль\r\n");
        QCOMPARE(LoadConfig(path, ProgConfig), 0);
        QCOMPARE(ProgConfig.LBound, 1);
        QCOMPARE(ProgConfig.UBound(), 5);
        QCOMPARE(ProgConfig[1], QStringLiteral("True"));
        QCOMPARE(ProgConfig[2], QStringLiteral("False"));
        QCOMPARE(ProgConfig[3], QStringLiteral("x=y"));
        QCOMPARE(ProgConfig[4], QString());
        QCOMPARE(ProgConfig[5], QStringLiteral("Пароль"));
        QVERIFY_THROWS_EXCEPTION(VbError, ProgConfig[0]);
        QVERIFY_THROWS_EXCEPTION(VbError, ProgConfig[6]);
        const QString out = env.root() + "/out.dat";
        QCOMPARE(SaveConfig(out), 0);
        QCOMPARE(readAllOf(out),
                 QByteArray("True\r\nFalse\r\nx=y\r\n\r\n") + QString("Пароль").toUtf8() + "\r\n");
        QCOMPARE(posixMode(out), 0600);
        // Loading appends to whatever the array holds.
        StrMass again;
        QCOMPARE(LoadConfig(out, again), 0);
        QCOMPARE(LoadConfig(out, again), 0);
        QCOMPARE(again.UBound(), 10);
        QCOMPARE(again[10], QStringLiteral("Пароль"));
    }

    void missingFileAndWriteFailure() {
        TestEnv env;
        StrMass m;
        QCOMPARE(LoadConfig(env.root() + "/none.dat", m), -2);
        QCOMPARE(m.UBound(), 0);
        QVERIFY(readAllOf(env.progDir() + "/DbgFile.dat").contains("): LoadConfig = -2\r\n"));
        // A folder where the file should go: the save fails loudly, nothing is half written.
        ProgConfig.Reset();
        AddElemToStrMass(ProgConfig, "a");
        writeFileText(env.root() + "/plain", "x");
        QVERIFY_THROWS_EXCEPTION(VbError, SaveConfig(env.root() + "/plain/config.dat"));
        QCOMPARE(readAllOf(env.root() + "/plain"), QByteArray("x"));
    }

    void firstRunCreatesThePerUserFolder() {
        TestEnv env;
        writeFileText(env.progDir() + "/SampleUser.bdb", "sample bytes");
        ChooseConfiguration();
        const QString us = env.userFolder();
        QVERIFY(QFileInfo(us).isDir());
        QCOMPARE(posixMode(us), 0700);
        QCOMPARE(posixMode(us + "/config.dat"), 0600);
        QVERIFY(QFileInfo(us + "/DataBases").isDir());
        QCOMPARE(readAllOf(us + "/DataBases/SampleUser.bdb"), QByteArray("sample bytes"));
        // The defaults of start.dat, with the databases folder pointing into the user folder.
        StrMass saved;
        QCOMPARE(LoadConfig(us + "/config.dat", saved), 0);
        StrMass defaults;
        QCOMPARE(LoadConfig(env.progDir() + "/start.dat", defaults), 0);
        QCOMPARE(saved.UBound(), defaults.UBound());
        QVERIFY(saved.UBound() >= 20);
        for (int i = 1; i <= saved.UBound(); ++i)
            QCOMPARE(saved[i], i == 5 ? us + "/DataBases" : defaults[i]);
        // Settings of this first run go to DataBases/config.dat; the next start reads config.dat.
        QCOMPARE(ProgCfgPath, us + "/DataBases/config.dat");
        ProgConfig[14] = "Russian";
        SaveConfig(ProgCfgPath);
        ChooseConfiguration();
        QCOMPARE(ProgCfgPath, us + "/config.dat");
        QCOMPARE(ProgConfig[14], defaults[14]);
    }

    // The drive fix: a portable copy's own DataBases (entry 5 = <entry 24>/DataBases)
    // follows the copy to where it runs now; nothing else in entry 5 changes.
    void portableConfigWinsAndFollowsTheProgram_data() {
        QTest::addColumn<QString>("folder");
        QTest::addColumn<QString>("origin");   // entry 24; "-" = settings of 20 entries
        QTest::addColumn<QString>("expected"); // "@" stands for the program folder
        const QString old = "/media/bob/STICK/Argent";
        QTest::newRow("moved copy") << old + "/DataBases" << old << "@/DataBases";
        QTest::newRow("trailing slash kept") << old + "/DataBases/" << old + "/"
                                             << "@/DataBases/";
        QTest::newRow("unclean path") << "/media/bob//STICK/Argent/./DataBases" << old << "@/DataBases";
        QTest::newRow("copy made into a drive's root") << "/media/bob/STICK/DataBases"
                                                       << "/media/bob/STICK"
                                                       << "@/DataBases";
        QTest::newRow("folder elsewhere") << "/srv/shared/DataBases" << old << "/srv/shared/DataBases";
        QTest::newRow("folder inside the own one")
            << old + "/DataBases/Team" << old << old + "/DataBases/Team";
        QTest::newRow("similar name") << old + "/DataBases2" << old << old + "/DataBases2";
        QTest::newRow("no origin recorded") << old + "/DataBases"
                                            << "-" << old + "/DataBases";
        QTest::newRow("empty origin") << old + "/DataBases"
                                      << "" << old + "/DataBases";
        QTest::newRow("not moved") << "@/DataBases"
                                   << "@"
                                   << "@/DataBases";
    }
    void portableConfigWinsAndFollowsTheProgram() {
        QFETCH(QString, folder);
        QFETCH(QString, origin);
        QFETCH(QString, expected);
        TestEnv env;
        const QString prog = env.progDir();
        QDir().mkpath(env.userFolder());
        writeFileText(env.userFolder() + "/config.dat", "user\r\n");
        QStringList lines(origin == "-" ? 20 : 24, QStringLiteral("x"));
        lines[4] = QString(folder).replace("@", prog);
        if (origin != "-")
            lines[23] = QString(origin).replace("@", prog);
        writeFileText(prog + "/config.dat", (lines.join("\r\n") + "\r\n").toUtf8());
        ChooseConfiguration();
        QCOMPARE(ProgCfgPath, prog + "/config.dat");
        QCOMPARE(ProgConfig[5], QString(expected).replace("@", prog));
        // Settings saved now name the folder the copy runs from, ready for the next move.
        if (origin != "-" && !origin.isEmpty())
            QCOMPARE(ProgConfig[kCfgPortableOrigin], prog);
        // The same settings read from the per-user folder are never re-based.
        if (expected.startsWith("@") && !folder.startsWith("@")) {
            QFile::remove(env.userFolder() + "/config.dat");
            QVERIFY(QFile::rename(prog + "/config.dat", env.userFolder() + "/config.dat"));
            ChooseConfiguration();
            QCOMPARE(ProgConfig[5], lines[4]);
        }
    }

    void existingUserFolderWithoutConfigLoadsNothing() {
        TestEnv env;
        QDir().mkpath(env.userFolder());
        ChooseConfiguration();
        QCOMPARE(ProgConfig.UBound(), 0);
        QVERIFY(ProgCfgPath.isEmpty());
        QVERIFY_THROWS_EXCEPTION(VbError, ProgConfig[14]);
    }

    void switchEntries() {
        QVERIFY(!CfgSwitchOn("n15"));
        QCOMPARE(CfgSwitchNumber("n15"), 15);
        QVERIFY(CfgSwitchOn("15"));
        QCOMPARE(CfgSwitchNumber("15"), 15);
        QVERIFY(CfgSwitchOn("abc"));
        QCOMPARE(CfgSwitchNumber("abc"), 0);
        QCOMPARE(CfgSwitchNumber("n"), 0);
    }
};

ARGENT_TEST(ConfigTest)
#include "tst_config.moc"
