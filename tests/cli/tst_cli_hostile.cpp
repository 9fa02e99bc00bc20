// argentpm in a world it cannot trust: links and folders another user prepared, several
// first runs at the same moment, names that no file may have. The other user is uid 65534,
// acting through setpriv; the test itself runs as root, so every refusal checked here is
// the program's own (root could write anywhere).

#include "tests/common/TestEnv.h"
#include "tests/common/TestMain.h"
#include "users/UserName.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTest>

#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr uid_t kOther = 65534;
const QByteArray kPw = "a long password 1\n";

struct Run {
    int code = -1;
    QString out, err;
};

class Argentpm {
public:
    explicit Argentpm(const TestEnv& env) : m_exe(env.progDir() + "/argentpm") {
        QFile::copy(QStringLiteral(ARGENT_BIN_DIR "/argentpm"), m_exe);
        QFile::copy(QStringLiteral(ARGENT_BIN_DIR "/ArgentPasswordMngr"),
                    env.progDir() + "/ArgentPasswordMngr");
    }
    QProcess* start(const QStringList& args, const QByteArray& input = {}) const {
        auto* p = new QProcess;
        p->setChildProcessModifier([] { setsid(); });
        p->start(m_exe, args);
        p->write(input);
        p->closeWriteChannel();
        return p;
    }
    static Run finish(QProcess* p) {
        Run r;
        if (p->waitForFinished(30000) && p->exitStatus() == QProcess::NormalExit)
            r = {p->exitCode(), QString::fromUtf8(p->readAllStandardOutput()),
                 QString::fromUtf8(p->readAllStandardError())};
        delete p;
        return r;
    }
    Run operator()(const QString& dbs, const QStringList& args, const QByteArray& input = {}) const {
        return finish(start(QStringList{"--databases", dbs} + args, input));
    }

private:
    QString m_exe;
};

// A command run as the other user.
int asOther(const QStringList& cmd) {
    return QProcess::execute("setpriv",
                             QStringList{"--reuid=65534", "--regid=65534", "--clear-groups"} + cmd);
}

QString ownerAndMode(const QString& path) {
    struct stat st {};
    if (lstat(QFile::encodeName(path).constData(), &st) != 0)
        return "missing";
    return QString("%1:%2:%3")
        .arg(st.st_uid)
        .arg(S_ISLNK(st.st_mode) ? "link" : "file")
        .arg(st.st_mode & 07777, 0, 8);
}

// A folder of the test's tree; the tree is open to the other user (they need to reach
// their folders in it), each folder as given.
QString folder(const TestEnv& env, const QString& name, int mode, uid_t owner = 0, gid_t group = 0) {
    chmod(QFile::encodeName(env.root()).constData(), 0755);
    const QString path = env.root() + "/" + name;
    QDir().mkpath(path);
    chmod(QFile::encodeName(path).constData(), mode);
    chown(QFile::encodeName(path).constData(), owner, owner ? owner : group);
    return path;
}

} // namespace

class HostileWorldTest : public QObject {
    Q_OBJECT
private slots:
    // A shared databases folder (root's, sticky, open to all) where the other user has left
    // links at the names argentpm is about to write.
    void linksPlantedInASharedFolderAreNeverFollowed() {
        TestEnv env;
        Argentpm cli(env);
        const QString shared = folder(env, "shared", 01777);
        const QString theirs = folder(env, "theirs", 0755, kOther);
        QVERIFY(asOther({"sh", "-c", "echo their file > " + theirs + "/rc && chmod 644 " + theirs + "/rc"}) ==
                0);
        const QString rcBefore = ownerAndMode(theirs + "/rc");

        // A dangling link at the new user's file is a name taken, not a way out.
        QCOMPARE(asOther({"ln", "-s", theirs + "/carol-made-here", shared + "/carol.bdb"}), 0);
        Run r = cli(shared, {"add-user", "carol", "--password-stdin"}, kPw);
        QCOMPARE(r.code, 7);
        QVERIFY(r.err.contains("exists"));
        QVERIFY(!QFileInfo::exists(theirs + "/carol-made-here"));

        // An export over a link replaces the link; what it led to keeps its bytes and mode.
        QCOMPARE(cli(shared, {"add-user", "anna", "--password-stdin"}, kPw).code, 0);
        QCOMPARE(asOther({"ln", "-s", theirs + "/rc", shared + "/out.xml"}), 0);
        r = cli(shared, {"export", "anna", "-o", shared + "/out.xml", "--password-stdin"}, kPw);
        QCOMPARE(r.code, 0);
        QCOMPARE(readAllOf(theirs + "/rc"), QByteArray("their file\n"));
        QCOMPARE(ownerAndMode(theirs + "/rc"), rcBefore);
        QCOMPARE(ownerAndMode(shared + "/out.xml"), QString("0:file:600"));
        QVERIFY(readAllOf(shared + "/out.xml").contains("<KeePassFile>"));

        // A Backup link into their folder: no copy made, moved or deleted there.
        QVERIFY(asOther({"sh", "-c", "echo theirs > " + theirs + "/anna_1.bdb.BACKUP"}) == 0);
        QCOMPARE(asOther({"ln", "-s", theirs, shared + "/Backup"}), 0);
        const QStringList before = QDir(theirs).entryList(QDir::Files);
        r = cli(shared, {"backup", "anna", "--password-stdin"}, kPw);
        QCOMPARE(r.code, 1);
        QVERIFY2(r.err.contains(shared + "/Backup"), qPrintable(r.err));
        for (const QStringList& cmd : {QStringList{"restore", "anna_1.bdb.BACKUP", "--yes"},
                                       QStringList{"delete-backup", "anna_1.bdb.BACKUP", "--yes"}}) {
            r = cli(shared, cmd);
            QCOMPARE(r.code, 7);
            QVERIFY(r.err.contains("another user"));
        }
        QCOMPARE(QDir(theirs).entryList(QDir::Files), before);
        QCOMPARE(readAllOf(theirs + "/anna_1.bdb.BACKUP"), QByteArray("theirs\n"));
    }

    // Folders that are not the user's own are refused before anything is written, and the
    // message names them.
    void foldersOthersControlAreRefused_data() {
        QTest::addColumn<int>("mode");
        QTest::addColumn<int>("owner");
        QTest::addColumn<int>("group");
        QTest::newRow("another user's") << 0755 << int(kOther) << int(kOther);
        QTest::newRow("open to all, not sticky") << 0777 << 0 << 0;
        QTest::newRow("open to a group of others") << 0775 << 0 << int(kOther);
    }
    void foldersOthersControlAreRefused() {
        QFETCH(int, mode);
        QFETCH(int, owner);
        QFETCH(int, group);
        TestEnv env;
        Argentpm cli(env);
        const QString dbs = folder(env, "dbs", mode, owner, group);
        Run r = cli(dbs, {"add-user", "anna", "--password-stdin"}, kPw);
        QCOMPARE(r.code, 7);
        QVERIFY2(r.err.contains("the folder " + dbs), qPrintable(r.err));
        QVERIFY(QDir(dbs).isEmpty(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot));

        // The same folder as the target of a portable copy (made from a folder of our own).
        const QString own = folder(env, "own", 0700);
        QCOMPARE(cli(own, {"add-user", "anna", "--password-stdin"}, kPw).code, 0);
        r = cli(own, {"install-portable", dbs});
        QCOMPARE(r.code, 1);
        QVERIFY2(r.err.contains(dbs), qPrintable(r.err));
        QVERIFY(QDir(dbs).isEmpty(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot));
    }

    // A portable-copy target that is the other user's link into their folder: the programs
    // there are not replaced, the user's files not copied in.
    void portableCopyThroughTheirLinkIsRefused() {
        TestEnv env;
        Argentpm cli(env);
        const QString own = folder(env, "own", 0700);
        const QString theirs = folder(env, "theirs", 0755, kOther);
        folder(env, "stick", 01777);
        QCOMPARE(asOther({"sh", "-c", "echo their program > " + theirs + "/argentpm"}), 0);
        QCOMPARE(asOther({"ln", "-s", theirs, env.root() + "/stick/copy"}), 0);
        QCOMPARE(cli(own, {"add-user", "anna", "--password-stdin"}, kPw).code, 0);
        const Run r = cli(own, {"install-portable", env.root() + "/stick/copy"});
        QCOMPARE(r.code, 1);
        QVERIFY2(r.err.contains("link that belongs to another user"), qPrintable(r.err));
        QCOMPARE(QDir(theirs).entryList(QDir::AllEntries | QDir::NoDotAndDotDot), QStringList{"argentpm"});
        QCOMPARE(readAllOf(theirs + "/argentpm"), QByteArray("their program\n"));
    }

    // Many first runs at once: each finds the per-user folder and its settings whole.
    void firstRunsSideBySide() {
        for (int round = 0; round < 4; ++round) {
            TestEnv env;
            Argentpm cli(env);
            QList<QProcess*> runs;
            for (int i = 0; i < 8; ++i)
                runs.append(cli.start({"users"}));
            for (QProcess* p : runs) {
                const Run r = Argentpm::finish(p);
                QVERIFY2(r.code == 0,
                         qPrintable(QString("round %1: exit %2: %3").arg(round).arg(r.code).arg(r.err)));
                QCOMPARE(r.out, QString("SampleUser\n"));
            }
            QCOMPARE(posixMode(env.userFolder()), 0700);
        }
    }

    // A settings folder without its settings file is named in the message.
    void missingSettingsAreNamed() {
        TestEnv env;
        Argentpm cli(env);
        QDir().mkpath(env.userFolder());
        const Run r = Argentpm::finish(cli.start({"users"}));
        QCOMPARE(r.code, 9);
        QVERIFY2(r.err.contains(env.userFolder() + "/config.dat"), qPrintable(r.err));
    }

    // Names that would break a line of the settings or not fit a file name.
    void namesNoFileCanHave() {
        TestEnv env;
        Argentpm cli(env);
        const QString dbs = folder(env, "dbs", 0700);
        const int most = MaxUserNameBytes();
        const QString cyr(most / 2, QChar(0x0436)); // two bytes each
        const QList<std::pair<QString, int>> names = {
            {"line\nbreak", 7},
            {"tab\there", 7},
            {QString("nel") + QChar(0x85), 7},
            {QString(most + 1, 'x'), 7},
            {cyr + QChar(0x0436), 7},
            {QString(most, 'x'), 0},
            {cyr, 0},
        };
        for (const auto& [name, code] : names) {
            const Run r = cli(dbs, {"add-user", name, "--password-stdin"}, kPw);
            QVERIFY2(r.code == code, qPrintable(QString("%1: %2").arg(name.left(20)).arg(r.err)));
        }
        // The longest name still gets its backup copies.
        const Run r = cli(dbs, {"backup", QString(most, 'x'), "--password-stdin"}, kPw);
        QCOMPARE(r.code, 0);
        QVERIFY(QFileInfo(r.out.trimmed()).isFile());
        // A file with a line break in its name, brought in with a copied folder, is no user.
        writeFileText(dbs + "/evil\nname.bdb", "x");
        QCOMPARE(cli(dbs, {"users"}).out.count('\n'), 2);
    }
};
ARGENT_TEST(HostileWorldTest)

#include "tst_cli_hostile.moc"
