#include "app/MsgBox.h"
#include "app/ProgConfig.h"
#include "app/modLang.h"
#include "app/modMain.h"
#include "options/AutorunManagement.h"
#include "options/frmOptions.h"
#include "options/guiFolderChooser.h"
#include "tests/common/TestEnv.h"
#include "tests/common/TestMain.h"
#include "tray/guiModTray.h"

#include <QAccessible>
#include <QAccessibleActionInterface>
#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QProcess>
#include <QPushButton>
#include <QStandardPaths>
#include <QTest>

namespace {
void start(const TestEnv& env) {
    ChooseConfiguration();
    LoadLang(env.progDir() + "/Languages/English.lng");
    ProgCfgPath = env.root() + "/config.dat";
}
// What a screen reader does with a check box: its Toggle action, no click at all.
void screenReaderToggle(QCheckBox* box) {
    QAccessibleInterface* a = QAccessible::queryAccessibleInterface(box);
    QVERIFY(a && a->actionInterface());
    a->actionInterface()->doAction(QAccessibleActionInterface::toggleAction());
}
} // namespace

namespace {
// The arguments of an Exec value as a desktop launcher reads them.
QStringList decodeExec(const QString& Value) {
    QString v;
    for (qsizetype i = 0; i < Value.size(); ++i) {
        if (Value[i] == u'\\' && i + 1 < Value.size()) {
            const QChar c = Value[++i];
            v += c == u's'   ? QChar(u' ')
                 : c == u'n' ? QChar(u'\n')
                 : c == u't' ? QChar(u'\t')
                 : c == u'r' ? QChar(u'\r')
                             : c;
        } else {
            v += Value[i];
        }
    }
    v.replace(QStringLiteral("%%"), QStringLiteral("%"));
    QStringList args;
    qsizetype i = 0;
    while (i < v.size()) {
        if (v[i] == u' ') {
            ++i;
            continue;
        }
        QString arg;
        if (v[i] == u'"') {
            for (++i; i < v.size() && v[i] != u'"'; ++i) {
                if (v[i] == u'\\' && i + 1 < v.size())
                    ++i;
                arg += v[i];
            }
            ++i;
        } else {
            while (i < v.size() && v[i] != u' ')
                arg += v[i++];
        }
        args << arg;
    }
    return args;
}
} // namespace

class OptionsTest : public QObject {
    Q_OBJECT
private slots:
    void numberSwitchesKeepTheirNumber() {
        TestEnv env;
        start(env);
        ProgConfig[11] = "n15";
        ProgConfig[13] = "5";
        {
            frmOptions f;
            QVERIFY(!f.chkPaswProtect->isChecked());
            QCOMPARE(f.txtInactMin->text(), QStringLiteral("15"));
            QVERIFY(!f.txtInactMin->isEnabled());
            QVERIFY(f.chkDBBackup->isChecked());
            screenReaderToggle(f.chkDBBackup);
            QVERIFY(!f.chkDBBackup->isChecked());
            QCOMPARE(ProgConfig[13], QStringLiteral("n5"));
            QVERIFY(!f.txtBackCopies->isEnabled());
            f.chkDBBackup->click();
            QCOMPARE(ProgConfig[13], QStringLiteral("5"));
            QVERIFY(f.txtBackCopies->isEnabled());
            f.chkPaswProtect->click();
            QCOMPARE(ProgConfig[11], QStringLiteral("15"));
            // Whatever is typed is stored; readers take its numeric value.
            f.txtInactMin->clear();
            QTest::keyClicks(f.txtInactMin, "abc");
            QCOMPARE(ProgConfig[11], QStringLiteral("abc"));
            // Cancel keeps what the controls stored, but writes no file.
            f.cmdCancel->click();
        }
        QCOMPARE(ProgConfig[11], QStringLiteral("abc"));
        QVERIFY(!QFile::exists(ProgCfgPath));
        frmOptions again;
        QVERIFY(again.chkPaswProtect->isChecked());
        QCOMPARE(again.txtInactMin->text(), QStringLiteral("0"));
    }

    void autostartEntryFollowsTheBoxAtOnce() {
        TestEnv env;
        start(env);
        ProgConfig[3] = "0";
        const QString entry = env.root() + "/config/autostart/ArgentPasswordMngr.desktop";
        QCOMPARE(AutorunEntryPath(), entry);
        {
            frmOptions f;
            screenReaderToggle(f.chkStartWithWin);
            QCOMPARE(ProgConfig[3], QStringLiteral("1"));
            f.cmdCancel->click();
        }
        const QString text = QString::fromUtf8(readAllOf(entry));
        QVERIFY2(text.contains("\nName=Argent Password Manager\n"), qPrintable(text));
        QVERIFY(text.contains("\nX-Argent-Run-Name=Quillon Lockholt\n"));
        QVERIFY(text.contains("\nExec=" + env.progDir() + "/ArgentPasswordMngr\n"));
        QVERIFY(text.startsWith("[Desktop Entry]\nType=Application\n"));
        frmOptions f;
        QVERIFY(f.chkStartWithWin->isChecked());
        f.chkStartWithWin->click();
        QVERIFY(!QFile::exists(entry));
        QCOMPARE(ProgConfig[3], QStringLiteral("0"));
    }

    // Program folders that need quoting: the Exec line, read back as the desktop-entry
    // format says (string escapes, then %%, then the quoting), names the program, and
    // desktop-file-validate (when installed) accepts the file.
    void autostartExecQuoting_data() {
        QTest::addColumn<QString>("folder");
        QTest::newRow("plain") << "prog";
        QTest::newRow("blank") << "my prog";
        QTest::newRow("double quote") << "say \"hi\"";
        QTest::newRow("single quote") << "Bob's tools";
        QTest::newRow("backslash") << "back\\slash";
        QTest::newRow("shell specials") << "$HOME `x` (a)#b;c&d|e*?~<>";
        QTest::newRow("percent") << "100% sure";
        QTest::newRow("non-ASCII") << "Программы";
    }
    void autostartExecQuoting() {
        QFETCH(QString, folder);
        TestEnv env;
        const QString exe = env.root() + u'/' + folder + "/ArgentPasswordMngr";
        SetExeFolderPath(env.root() + u'/' + folder);
        AutorunManagement(true);
        const QString text = QString::fromUtf8(readAllOf(AutorunEntryPath()));
        const QString exec = text.section("\nExec=", 1).section(u'\n', 0, 0);
        QCOMPARE(decodeExec(exec), QStringList{exe});
        if (!QStandardPaths::findExecutable("desktop-file-validate").isEmpty()) {
            QProcess v;
            v.start("desktop-file-validate", {AutorunEntryPath()});
            QVERIFY(v.waitForFinished());
            QVERIFY2(v.exitCode() == 0, v.readAllStandardOutput().constData());
        }
    }

    void databasesFolderChange() {
        TestEnv env;
        start(env);
        const QString before = ProgConfig[5];
        QList<int> answers;
        const MsgBoxHandler prevBox = SetMsgBoxHandler([&](const QString&, int style, const QString&) {
            if (style != (vbYesNo | vbInformation))
                return int(vbOK);
            return answers.takeFirst();
        });
        QString offered;
        bool confirm = true;
        SetFolderChooser([&](QWidget*, QString& path, const QString&) {
            offered = path;
            path = env.root() + "/elsewhere";
            return confirm;
        });
        frmOptions f;
        answers = {vbNo};
        f.cmdChangeDBPath->click();
        QCOMPARE(ProgConfig[5], before);
        QVERIFY(offered.isEmpty());

        answers = {vbYes};
        confirm = false; // the chooser is cancelled
        f.cmdChangeDBPath->click();
        QCOMPARE(offered, before);
        QCOMPARE(ProgConfig[5], before);
        QCOMPARE(BrowsePath, before);

        answers = {vbYes};
        confirm = true;
        f.cmdChangeDBPath->click();
        QCOMPARE(ProgConfig[5], env.root() + "/elsewhere/");
        QCOMPARE(f.txtDBPath->text(), ProgConfig[5]);
        QVERIFY(f.isEnabled());
        StrMass saved;
        LoadConfig(ProgCfgPath, saved);
        QCOMPARE(saved[5], env.root() + "/elsewhere/");
        SetFolderChooser({});
        SetMsgBoxHandler(prevBox);
    }

    void okAppliesTrayModeAndSaves() {
        TestEnv env;
        start(env);
        SetTrayAvailableOverride(1);
        ProgConfig[12] = "0";
        {
            frmOptions f;
            f.chkTrayMode->click();
            f.cmdOk->click();
        }
        QVERIFY(DoUnloadTIcon);
        QVERIFY(TrayObject());
        StrMass saved;
        LoadConfig(ProgCfgPath, saved);
        QCOMPARE(saved[12], QStringLiteral("1"));
        {
            frmOptions f;
            f.chkTrayMode->click();
            f.cmdOk->click();
        }
        QVERIFY(!DoUnloadTIcon);
        QVERIFY(!TrayObject());
        SetTrayAvailableOverride(-1);
    }

    void languageChoice() {
        TestEnv env;
        start(env);
        frmOptions f;
        QCOMPARE(f.cboLanguage->count(), 2);
        QCOMPARE(f.cboLanguage->currentText(), QStringLiteral("English"));
        f.cboLanguage->setCurrentText("Russian");
        emit f.cboLanguage->activated(f.cboLanguage->currentIndex());
        QCOMPARE(ProgConfig[14], QStringLiteral("Russian"));
        QVERIFY(!f.lblLangHint->isHidden());
    }
};

ARGENT_TEST(OptionsTest)
#include "tst_options.moc"
