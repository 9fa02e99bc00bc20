// The end of the session over an open question, on a real X server: the window with an
// unsaved folder is sent SIGTERM while a message box, an editor, a tool dialog or the
// password prompt of a file whose password was changed elsewhere is open. It ends within
// 5 s every time, and the folder is in the file, or in the sealed copy that the next
// opening offers and takes back. The inactivity lock closes such a question too.

#include "app/modMain.h"
#include "mainwindow/frmMain.h"
#include "tests/common/TestMain.h"
#include "tests/mainwindow/MainTestKit.h"
#include "users/UnsavedCopy.h"
#include "users/guiOpenUser.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QInputDialog>
#include <QMessageBox>
#include <QPointer>
#include <QProcess>
#include <QTimer>

#include <csignal>
#include <cstdio>
#include <unistd.h>

namespace {

const QString kNewPasw = QStringLiteral("changed elsewhere 9");

// How often a title is in the user's file, read with Typed (-1: it does not open).
int titleCount(const QString& Typed, const QString& Title) {
    DatabaseRecord rec;
    clsFileIdentity id;
    if (ReadUserFile(UsDBFilePath("anna"), GetTruePasw(HashString(Typed)), rec, id) != 1)
        return -1;
    int n = 0;
    for (const QStringList& row : rec.Tables.value(0).Records.rows())
        n += row.value(3) == Title;
    return n;
}

void say(const QByteArray& Line) {
    std::printf("%s\n", Line.constData());
    std::fflush(stdout);
}

// Opens the question of Kind over the window.
void openQuestion(frmMain& W, const QString& Kind, const QString& FolderId) {
    if (Kind == "box") {
        MsgBox(Texts(1), vbYesNo | vbQuestion);
    } else if (Kind == "editor") {
        W.trvDatabase->setCurrentIndex(W.NodeByKey(FolderId + "key"));
        W.mnuContextTrvEdit_Click();
    } else if (Kind == "options") {
        W.mnuToolsOptions_Click();
    } else if (Kind == "find") {
        W.mnuToolsFind_Click();
    } else if (Kind == "generator") {
        W.mnuToolsGenerator_Click();
    } else if (Kind == "restore") {
        W.mnuFileBackup_Click();
    }
}

// The window with anna open and the folder "Unsaved" not saved. It says each change of
// the active modal widget ("modal <serial> <class>"); the question named by
// ARGENT_TEST_QUESTION opens over it. With "filekey-prompt" and "lock" the box saying the
// password changed elsewhere is answered, so that the password prompt follows; "lock"
// then locks the window as inactivity would.
int questionWindowChild(int& argc, char** argv) {
    ArgentApplication app(argc, argv);
    SetAppPath(qEnvironmentVariable("ARGENT_TEST_PROGDIR"));
    ChooseConfiguration();
    LoadLang(Pt(AppPath()) + "Languages/English.lng");
    CreateProgramObjects();
    ProgConfig[4] = "";
    SetCfgExtra(22, "0");
    frmMain w;
    w.Form_Load();
    if (FullUserLoad("anna", HashString(kUserPasw)) != 0)
        return 2;
    const QString id = GetNewIndNum(*CurUsDB);
    AddFolderToDB("Unsaved", 0, id);
    w.ShowAddedRow(id);
    const QString kind = qEnvironmentVariable("ARGENT_TEST_QUESTION");
    QPointer<QWidget> last;
    bool seen = false;
    int serial = 0;
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, &w, [&] {
        QWidget* m = QApplication::activeModalWidget();
        if (m == last && (m || !seen))
            return;
        seen = true;
        last = m;
        say("modal " + QByteArray::number(++serial) + ' ' + (m ? m->metaObject()->className() : "none"));
        auto* box = qobject_cast<QMessageBox*>(m);
        if (box && (kind == "filekey-prompt" || kind == "lock") && box->text() == Texts(265))
            QTimer::singleShot(200, box, [box] { box->button(QMessageBox::Ok)->click(); });
        if (m && kind == "lock" && QByteArray(m->metaObject()->className()) == "frmPassword")
            QTimer::singleShot(300, &w, [&w] {
                w.LockNow();
                say("locked");
            });
    });
    poll.start(50);
    QTimer::singleShot(300, &w, [&] { openQuestion(w, kind, id); });
    say("ready");
    return app.exec();
}
ARGENT_CHILD("question-window", questionWindowChild)

// The next line of Child that Match accepts, within Ms; empty when none came.
QByteArray nextLine(QProcess& Child, const std::function<bool(const QByteArray&)>& Match, int Ms) {
    QElapsedTimer t;
    t.start();
    while (t.elapsed() < Ms) {
        while (Child.canReadLine()) {
            const QByteArray line = Child.readLine().trimmed();
            if (Match(line))
                return line;
        }
        Child.waitForReadyRead(100);
    }
    return {};
}

// argentpm changes anna's password, as another program on the desktop would.
bool changePasswordElsewhere(const TestEnv& Env) {
    const QString exe = Env.progDir() + "/argentpm";
    if (!QFile::exists(exe))
        QFile::copy(QStringLiteral(ARGENT_BIN_DIR "/argentpm"), exe);
    QProcess p;
    p.setChildProcessModifier([] { setsid(); });
    p.start(exe, {"--databases", ProgConfig[5], "passwd", "anna", "--password-stdin"});
    p.write((kUserPasw + '\n' + kNewPasw + '\n').toUtf8());
    p.closeWriteChannel();
    return p.waitForFinished(30000) && p.exitCode() == 0;
}

void startChild(QProcess& Child, const TestEnv& Env, const QString& Kind) {
    Child.setEnvironment(Env.childEnv("question-window") + QStringList{"ARGENT_TEST_QUESTION=" + Kind});
    Child.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    Child.start(QCoreApplication::applicationFilePath(), {});
}

// SIGTERM: the child is gone within 5 s, ended normally.
void terminateWithin5s(QProcess& Child) {
    QElapsedTimer t;
    t.start();
    ::kill(Child.processId(), SIGTERM);
    const bool ended = Child.waitForFinished(5000);
    if (!ended)
        Child.kill();
    QVERIFY2(ended, "still running 5 s after SIGTERM");
    QCOMPARE(Child.exitStatus(), QProcess::NormalExit);
    QCOMPARE(Child.exitCode(), 0);
    QVERIFY(t.elapsed() < 5000);
}

// The next opening of anna (with the file's new password) offers the copy; Yes, then the
// password the copy was sealed with, takes the folder back into the file.
void copyComesBackAtTheNextOpening() {
    QCOMPARE(titleCount(kNewPasw, "Unsaved"), 0);
    const QString copy = FindUnsavedCopy("anna");
    QVERIFY(!copy.isEmpty());
    Script s;
    int asked = 0;
    s.on = [&](QDialog& d) {
        if (auto* ask = qobject_cast<QInputDialog*>(&d)) {
            // A wrong one first: it is said, and asked again.
            ask->setTextValue(asked++ == 0 ? QStringLiteral("wrong guess 1") : kUserPasw);
            ask->accept();
        }
    };
    QCOMPARE(OpenUser(nullptr, "anna", HashString(kNewPasw)), 0);
    QCOMPARE(s.boxes.value(0), Texts(310));
    QCOMPARE(asked, 2);
    QVERIFY(s.boxes.contains(Texts(312)));
    QCOMPARE(s.boxes.last(), Texts(314));
    QCOMPARE(titleCount(kNewPasw, "Unsaved"), 1);
    QVERIFY(FindUnsavedCopy("anna").isEmpty());
    UnloadUser();
}

} // namespace

class EndOverQuestionX11Test : public QObject {
    Q_OBJECT
private slots:
    void sigtermOverEachQuestion_data() {
        QTest::addColumn<QString>("kind");
        QTest::addColumn<QByteArray>("question");
        QTest::addColumn<bool>("keyChanged");
        QTest::newRow("message box") << "box" << QByteArray("QMessageBox") << false;
        QTest::newRow("folder editor") << "editor" << QByteArray("frmEditFolder") << false;
        QTest::newRow("options") << "options" << QByteArray("frmOptions") << false;
        QTest::newRow("find") << "find" << QByteArray("frmFind") << false;
        QTest::newRow("generator") << "generator" << QByteArray("frmPaswGenerator") << false;
        QTest::newRow("restore") << "restore" << QByteArray("frmRestore") << false;
        QTest::newRow("password changed: box") << "filekey-box" << QByteArray("QMessageBox") << true;
        QTest::newRow("password changed: prompt") << "filekey-prompt" << QByteArray("frmPassword") << true;
    }
    void sigtermOverEachQuestion() {
        QFETCH(QString, kind);
        QFETCH(QByteArray, question);
        QFETCH(bool, keyChanged);
        TestEnv env;
        makeUser(env);
        QProcess child;
        startChild(child, env, kind);
        QVERIFY(!nextLine(
                     child, [](const QByteArray& l) { return l == "ready"; }, 30000)
                     .isEmpty());
        if (keyChanged)
            QVERIFY(changePasswordElsewhere(env));
        const QByteArray open = nextLine(
            child, [&](const QByteArray& l) { return l.startsWith("modal ") && l.endsWith(question); },
            20000);
        QVERIFY2(!open.isEmpty(), question.constData());
        QTest::qWait(300);
        terminateWithin5s(child);
        if (QTest::currentTestFailed())
            return;
        if (!keyChanged) {
            QCOMPARE(titleCount(kUserPasw, "Unsaved"), 1);
            QVERIFY(FindUnsavedCopy("anna").isEmpty());
        } else {
            QCOMPARE(titleCount(kUserPasw, "Unsaved"), -1);
            copyComesBackAtTheNextOpening();
        }
    }

    // The inactivity lock over the password prompt: the prompt closes at once and no
    // question takes its place; the end that follows keeps the folder in a sealed copy.
    void lockOverAQuestionThenSigterm() {
        TestEnv env;
        makeUser(env);
        QProcess child;
        startChild(child, env, "lock");
        QVERIFY(!nextLine(
                     child, [](const QByteArray& l) { return l == "ready"; }, 30000)
                     .isEmpty());
        QVERIFY(changePasswordElsewhere(env));
        const QByteArray prompt = nextLine(
            child, [](const QByteArray& l) { return l.endsWith(" frmPassword"); }, 20000);
        QVERIFY(!prompt.isEmpty());
        const int serial = prompt.split(' ').value(1).toInt();
        QVERIFY(!nextLine(
                     child, [](const QByteArray& l) { return l == "locked"; }, 5000)
                     .isEmpty());
        const QByteArray after = nextLine(
            child,
            [&](const QByteArray& l) {
                return l.startsWith("modal ") && l.split(' ').value(1).toInt() > serial;
            },
            5000);
        QVERIFY2(!after.isEmpty(), "the prompt stayed open over the lock");
        QTest::qWait(500);
        QCOMPARE(child.state(), QProcess::Running);
        terminateWithin5s(child);
        if (QTest::currentTestFailed())
            return;
        copyComesBackAtTheNextOpening();
    }
};
ARGENT_TEST(EndOverQuestionX11Test)

#include "tst_endquestion.moc"
