// The Secret Service provider with real clients on a private session bus (ctest runs this
// under dbus-run-session): secret-tool (libsecret, which opens an encrypted session) and
// /usr/bin/python3 with python3-secretstorage and jeepney.

#include "diagnostics/DbgPrint.h"
#include "records/RecordTree.h"
#include "secrets/SecretAccess.h"
#include "secrets/SecretService.h"
#include "secrets/guiSecretQuestion.h"
#include "storage/FieldTable.h"
#include "tests/common/TestMain.h"
#include "tests/mainwindow/MainTestKit.h"
#include "users/UserSession.h"
#include "users/guiOpenUser.h"

#include <QApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDialog>
#include <QFile>
#include <QLabel>
#include <QProcess>
#include <QPushButton>
#include <QRegularExpression>
#include <QTest>
#include <QTimer>

#include <memory>

namespace {

const QString kPy = QStringLiteral("/usr/bin/python3");
const QString kClient = QStringLiteral(ARGENT_SOURCE_DIR "/tests/secrets/client.py");

struct Run {
    int Code = -1;
    QString Out, Err;
};

// Runs a client while the event loop keeps serving the bus.
Run run(const QString& Prog, const QStringList& Args, const QByteArray& In = {}, int Ms = 30000) {
    QProcess p;
    p.start(Prog, Args);
    if (!In.isEmpty())
        p.write(In);
    p.closeWriteChannel();
    QDeadlineTimer end(Ms);
    while (p.state() != QProcess::NotRunning && !end.hasExpired())
        QTest::qWait(5);
    if (p.state() != QProcess::NotRunning) {
        p.kill();
        p.waitForFinished(2000);
    }
    Run r;
    r.Code = p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1;
    r.Out = QString::fromUtf8(p.readAllStandardOutput()).trimmed();
    const QByteArray err = p.readAllStandardError();
    r.Err = QString::fromUtf8(err);
    if (r.Code != 0)
        qWarning().noquote() << Prog << Args.join(' ') << "failed:" << err;
    return r;
}

Run py(const QStringList& Args, int Ms = 30000) {
    return run(kPy, QStringList{kClient} + Args, {}, Ms);
}

// The question before a read, when it shows.
QDialog* question() {
    for (QWidget* w : QApplication::topLevelWidgets())
        if (w->objectName() == QLatin1String("frmSecretQuestion") && w->isVisible())
            return qobject_cast<QDialog*>(w);
    return nullptr;
}

int recordsIn(const QString& Folder) {
    int n = 0;
    const int tbl = CurUsDB->FindTable("DataTable");
    for (int r = 1; r <= CurUsDB->GetTblRecNum(tbl); ++r)
        n += CurUsDB->GetTblFldValNm(tbl, r, "Parent") == Folder;
    return n;
}

} // namespace

class tst_SecretService : public QObject {
    Q_OBJECT
    std::unique_ptr<TestEnv> m_env;
    std::unique_ptr<Script> m_script;
    std::unique_ptr<SecretService> m_svc;
    bool m_autoUnlock = true;
    std::function<void(bool)> m_unlockDone;
    int m_saves = 0;

    void startService() {
        SecretHooks h;
        h.Unlock = [this](std::function<void(bool)> Done) {
            QTimer::singleShot(0, this, [this, Done] {
                if (!m_autoUnlock) {
                    m_unlockDone = Done;
                    return;
                }
                bool ok = false;
                if (AskUserPassword(nullptr, "anna") == 1) {
                    const QString pasw = FrmPaswEnetered;
                    ok = UsSession().TakeBackKept() || OpenUser(nullptr, "anna", pasw) == 0;
                }
                Done(ok);
            });
        };
        h.Lock = [] { UsSession().Lock(); };
        h.Changed = [this] {
            ++m_saves;
            UsSession().Save();
        };
        h.AskRead = [](const SecretReadAsk& Ask, std::function<void(int)> Done) {
            return AskSecretRead(nullptr, Ask, std::move(Done));
        };
        m_svc = std::make_unique<SecretService>(QDBusConnection::sessionBus(), h);
        QVERIFY2(m_svc->Start(), qPrintable(m_svc->Reason()));
    }

private slots:
    void initTestCase() {
        if (qEnvironmentVariableIsEmpty("DBUS_SESSION_BUS_ADDRESS") || !QFile::exists("/usr/bin/secret-tool"))
            QSKIP("needs dbus-run-session and secret-tool (libsecret-tools)");
        m_env = std::make_unique<TestEnv>();
        makeUser(*m_env);
        m_script = std::make_unique<Script>();
        openUser();
        startService();
    }

    void cleanupTestCase() {
        m_svc.reset();
        m_script.reset();
        UnloadUser();
        m_env.reset();
    }

    // secret-tool stores, looks up, searches and clears; the item is a record of the folder,
    // its attributes custom fields, and it is there again after the user is read anew.
    void secretToolRoundTrip() {
        const QString tool = QStringLiteral("/usr/bin/secret-tool");
        QCOMPARE(run(tool, {"store", "--label=Mail box", "app", "mail", "user", "max"}, "s3cret-ü").Code, 0);
        QCOMPARE(run(tool, {"lookup", "app", "mail"}).Out, QStringLiteral("s3cret-ü"));
        // Stored again with the same attributes: replaced, not doubled.
        QCOMPARE(run(tool, {"store", "--label=Mail box", "app", "mail", "user", "max"}, "s3cret-2").Code, 0);
        const Run found = run(tool, {"search", "--all", "app", "mail"});
        QVERIFY2(found.Out.contains("label = Mail box") && found.Err.contains("attribute.user = max") &&
                     found.Out.contains("secret = s3cret-2"),
                 qPrintable(found.Out));
        QCOMPARE(found.Out.count("label = "), 1);
        QCOMPARE(run(tool, {"store", "--label=Git", "app", "git"}, "tok").Code, 0);
        QTRY_VERIFY(m_saves > 0);

        // In the file: a record of the folder "Secret Service".
        m_svc->FlushChanges();
        UnloadUser();
        openUser();
        const int tbl = CurUsDB->FindTable("DataTable");
        const int folderRow = CurUsDB->GetRecNumFromVal(tbl, 4, "Secret Service", 1);
        QVERIFY(folderRow > 0);
        const QString folder = CurUsDB->GetTblFldValNm(tbl, folderRow, "IndNum");
        QCOMPARE(recordsIn(folder), 2);
        const int mailRow = CurUsDB->GetRecNumFromVal(tbl, 4, "Mail box", 1);
        QCOMPARE(CurUsDB->GetTblFldValNm(tbl, mailRow, "Password"), QStringLiteral("s3cret-2"));
        const RecExtras ex =
            ReadRecExtras(CurUsDB->DBView(), CurUsDB->GetTblFldValNm(tbl, mailRow, "IndNum"));
        QVERIFY(ex.Field("app") && ex.Field("app")->Value == "mail");
        QVERIFY(ex.Field("user") && ex.Field("user")->Value == "max");
        QVERIFY(ex.Field("argent:program") && ex.Field("argent:program")->Value.endsWith("secret-tool"));
        // The earlier secret went into the record's history, as any password change does.
        QCOMPARE(
            ReadRecExtras(CurUsDB->DBView(), CurUsDB->GetTblFldValNm(tbl, mailRow, "IndNum")).History.size(),
            1);

        // A record the user makes in the folder by hand is an item too.
        const QString hand = AddRecordToDB(*CurUsDB, folder, "Router", "admin", "hand-made", "");
        RecExtras hx;
        hx.Custom.append({"device", "router", false, {}});
        WriteRecExtras(*CurUsDB, hand, hx);
        QCOMPARE(py({"search", "device=router"}).Out, QStringLiteral("Router [('device', 'router')]"));

        QCOMPARE(run(tool, {"clear", "app", "git"}).Code, 0);
        QCOMPARE(run(tool, {"lookup", "app", "git"}).Out, QString());
        QCOMPARE(CurUsDB->GetRecNumFromVal(tbl, 4, "Git", 1), 0);
    }

    // A program reading what another stored is asked about; its own items it reads freely.
    void questionBeforeRead() {
        QFile::remove(DbgFilePath());
        // Python's own item: no question.
        QVERIFY(py({"create", "Py own", "py-secret", "owner=py"}).Out.contains("encrypted=True"));
        QCOMPARE(py({"read", "owner=py"}).Out, QStringLiteral("secret=py-secret"));
        QVERIFY(!question());

        // secret-tool's item: Allow once, then Escape (denied), then Always.
        const auto answer = [](const std::function<void(QDialog*)>& Act, QString& Out) {
            QProcess p;
            p.start(kPy, {kClient, "read", "app=mail"});
            QTRY_VERIFY_WITH_TIMEOUT(question() != nullptr, 20000);
            QDialog* q = question();
            const QString text = q->findChild<QLabel*>("lblQuestion")->text();
            QVERIFY(text.contains("secret-tool") && text.contains("python3") && text.contains("Mail box"));
            Act(q);
            QTRY_VERIFY_WITH_TIMEOUT(p.state() == QProcess::NotRunning, 20000);
            Out = QString::fromUtf8(p.readAllStandardOutput()).trimmed();
        };
        QString out;
        answer([](QDialog* q) { q->findChild<QPushButton*>("cmdAllowOnce")->click(); }, out);
        QCOMPARE(out, QStringLiteral("secret=s3cret-2"));
        answer([](QDialog* q) { QTest::keyClick(q, Qt::Key_Escape); }, out);
        QCOMPARE(out, QStringLiteral("error=org.freedesktop.DBus.Error.AccessDenied"));
        // Enter takes the default button: Deny.
        answer([](QDialog* q) { QTest::keyClick(q->findChild<QPushButton*>("cmdDeny"), Qt::Key_Return); },
               out);
        QCOMPARE(out, QStringLiteral("error=org.freedesktop.DBus.Error.AccessDenied"));
        answer([](QDialog* q) { q->findChild<QPushButton*>("cmdAllowAlways")->click(); }, out);
        QCOMPARE(out, QStringLiteral("secret=s3cret-2"));
        QCOMPARE(AlwaysAllowed("anna").size(), 1);
        QCOMPARE(py({"read", "app=mail"}).Out, QStringLiteral("secret=s3cret-2"));
        QVERIFY(!question());
        // Withdrawn: asked again.
        SetAlwaysAllowed("anna", AlwaysAllowed("anna").value(0), false);
        answer([](QDialog* q) { q->reject(); }, out);
        QCOMPARE(out, QStringLiteral("error=org.freedesktop.DBus.Error.AccessDenied"));

        // Deleting what another program stored is asked about too.
        {
            QProcess p;
            p.start(kPy, {kClient, "delete", "app=mail"});
            QTRY_VERIFY_WITH_TIMEOUT(question() != nullptr, 20000);
            QVERIFY2(question()->findChild<QLabel*>("lblQuestion")->text().contains("change or delete"),
                     qPrintable(question()->findChild<QLabel*>("lblQuestion")->text()));
            QTest::keyClick(question(), Qt::Key_Escape);
            QTRY_VERIFY_WITH_TIMEOUT(p.state() == QProcess::NotRunning, 20000);
            QCOMPARE(p.readAllStandardOutput().trimmed(),
                     QByteArray("error=org.freedesktop.DBus.Error.AccessDenied"));
            QCOMPARE(run("/usr/bin/secret-tool", {"lookup", "app", "mail"}).Out, QStringLiteral("s3cret-2"));
        }

        // Every read is in the debug log, the secret never.
        const QString log = QString::fromUtf8(readAllOf(DbgFilePath()));
        QVERIFY2(log.contains("reads \"Mail box\": allowed once") &&
                     log.contains("reads \"Mail box\": denied") &&
                     log.contains("reads \"Py own\": its own item"),
                 qPrintable(log));
        QVERIFY(!log.contains("s3cret") && !log.contains("py-secret"));
    }

    // A locked user: the collection says so, and the prompt is the password question.
    void lockedUserThroughPrompt() {
        UsSession().Lock();
        QVERIFY(!SecretItems::Available());
        // A lookup while locked asks for the password first; declined, it finds nothing.
        m_script->passwords = {""};
        QCOMPARE(run("/usr/bin/secret-tool", {"lookup", "owner", "py"}).Out, QString());
        QVERIFY(!SecretItems::Available());
        // Declined: the prompt is dismissed and the collection stays locked.
        m_script->passwords = {"wrong", ""};
        Run r = py({"unlock"});
        QCOMPARE(r.Out, QStringLiteral("locked=True\ndismissed=True\nlocked=True"));
        m_script->passwords = {kUserPasw};
        r = py({"unlock"});
        QCOMPARE(r.Out, QStringLiteral("locked=True\ndismissed=False\nlocked=False"));
        QCOMPARE(py({"read", "owner=py"}).Out, QStringLiteral("secret=py-secret"));
        // A store into a locked collection unlocks through the prompt first.
        UsSession().Lock();
        m_script->passwords = {kUserPasw};
        QCOMPARE(run("/usr/bin/secret-tool", {"store", "--label=While locked", "n", "2"}, "wl").Code, 0);
        QCOMPARE(run("/usr/bin/secret-tool", {"lookup", "n", "2"}).Out, QStringLiteral("wl"));
        // Answered, the lookup gets its secret.
        UsSession().Lock();
        m_script->passwords = {kUserPasw};
        QCOMPARE(run("/usr/bin/secret-tool", {"lookup", "n", "2"}).Out, QStringLiteral("wl"));
    }

    // Clients that go away in the middle: the provider forgets them and keeps serving.
    void clientsThatLeave() {
        UsSession().Lock();
        m_autoUnlock = false;
        QVERIFY(py({"prompt-and-exit"}).Out.contains("prompted"));
        QTRY_VERIFY(m_unlockDone != nullptr);
        QVERIFY(UsSession().TakeBackKept() || FullUserLoad("anna", HashString(kUserPasw)) == 0);
        std::exchange(m_unlockDone, nullptr)(true); // its prompt is gone: nobody is told
        m_autoUnlock = true;

        QProcess p;
        p.start(kPy, {kClient, "read-and-hang", "app=mail"});
        QTRY_VERIFY_WITH_TIMEOUT(question() != nullptr, 20000);
        p.kill();
        p.waitForFinished(5000);
        QTRY_VERIFY_WITH_TIMEOUT(question() == nullptr, 10000);
        QCOMPARE(py({"read", "owner=py"}).Out, QStringLiteral("secret=py-secret"));
    }

    // Calls no client should send get D-Bus errors, and a flood of items is served.
    void hostileCalls() {
        const Run r = py({"hostile"});
        QCOMPARE(r.Code, 0);
        const QStringList want = {"unknown path: org.freedesktop.DBus.Error.UnknownObject",
                                  "unknown item: org.freedesktop.Secret.Error.NoSuchObject",
                                  "path outside: org.freedesktop.DBus.Error.UnknownObject",
                                  "wrong signature: org.freedesktop.DBus.Error.UnknownMethod",
                                  "wrong types: org.freedesktop.DBus.Error.UnknownMethod",
                                  "unknown method: org.freedesktop.DBus.Error.UnknownMethod",
                                  "unknown algorithm: org.freedesktop.DBus.Error.NotSupported",
                                  "bad dh key: org.freedesktop.DBus.Error.NotSupported",
                                  "foreign session: org.freedesktop.Secret.Error.NoSession",
                                  "reserved attribute: org.freedesktop.DBus.Error.InvalidArgs",
                                  "set read-only: org.freedesktop.DBus.Error.PropertyReadOnly",
                                  "delete collection: org.freedesktop.DBus.Error.NotSupported",
                                  "alive: 0"};
        for (const QString& w : want)
            QVERIFY2(r.Out.contains(w), qPrintable(w + "\n" + r.Out));
        // The bus itself may refuse 10 MB; either way it is an error and nothing was stored.
        QVERIFY2(r.Out.contains(QRegularExpression("10 MB secret: org\\.freedesktop\\.DBus\\.Error\\.\\w+")),
                 qPrintable(r.Out));
        QCOMPARE(CurUsDB->GetRecNumFromVal(CurUsDB->FindTable("DataTable"), 4, "big", 1), 0);

        const int before = m_saves;
        const Run f = py({"flood", "10000"}, 60000);
        QVERIFY2(f.Out.startsWith("created: 10000 ") && f.Out.endsWith("one: 1"), qPrintable(f.Out));
        qInfo().noquote() << f.Out;
        QTRY_VERIFY(m_saves > before);
        // A burst makes a handful of saves, not one per item.
        QVERIFY2(m_saves - before < 100, qPrintable(QString::number(m_saves - before)));
        QCOMPARE(UsSession().Save() >= 0, true);
    }

    // Another provider owns the name: it keeps it; when it leaves, the name is ours.
    void nameNeverTaken() {
        m_svc->Stop();
        QDBusConnection other = QDBusConnection::connectToBus(QDBusConnection::SessionBus, "keyring");
        QVERIFY(other.interface()->registerService(SecretService::ServiceName()).isValid());
        QVERIFY(!m_svc->Start());
        QCOMPARE(m_svc->Owner(), QFile::symLinkTarget("/proc/self/exe"));
        QCOMPARE(
            QDBusConnection::sessionBus().interface()->serviceOwner(SecretService::ServiceName()).value(),
            other.baseService());
        other.interface()->unregisterService(SecretService::ServiceName());
        QTRY_VERIFY(m_svc->Running());
        QDBusConnection::disconnectFromBus("keyring");
        QCOMPARE(run("/usr/bin/secret-tool", {"lookup", "app", "mail"}).Out, QStringLiteral("s3cret-2"));
    }
};

ARGENT_TEST(tst_SecretService)
#include "tst_secretservice.moc"
