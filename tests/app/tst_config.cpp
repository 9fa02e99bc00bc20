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

    void portableConfigWinsAndFollowsTheProgram() {
        TestEnv env;
        QDir().mkpath(env.userFolder());
        writeFileText(env.userFolder() + "/config.dat", "user\r\n");
        // Written when the program ran from another mount point.
        writeFileText(env.progDir() + "/config.dat",
                      "True\r\nTrue\r\n0\r\n\r\n/media/OLDSTICK/tools/prog/DataBases/\r\n");
        ChooseConfiguration();
        QCOMPARE(ProgCfgPath, env.progDir() + "/config.dat");
        QCOMPARE(ProgConfig[5], env.progDir() + "/DataBases/");
        // A folder already under the program, or elsewhere entirely, stays as it is.
        writeFileText(env.progDir() + "/config.dat", "a\r\nb\r\nc\r\nd\r\n/srv/shared/DataBases\r\n");
        ChooseConfiguration();
        QCOMPARE(ProgConfig[5], QStringLiteral("/srv/shared/DataBases"));
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
