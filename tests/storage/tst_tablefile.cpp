#include "storage/FileSeal.h"
#include "storage/TableEngine.h"
#include "storage/TableFile.h"
#include "tests/common/TestEnv.h"
#include "tests/common/TestMain.h"
#include "users/UserAccounts.h"

#include <QRandomGenerator>
#include <QTest>

namespace {

const QChar kSep(kFldSep);

// A database of one table in the user layout, with the given records.
DatabaseRecord userDb(const QList<QStringList>& records) {
    DatabaseRecord db;
    db.Name = "Alice";
    db.Version = "1.1a";
    db.Tag = "Alice";
    db.Ready = true;
    TableEntry t;
    t.Name = "DataTable";
    t.FldNames = {"IndNum", "Parent", "Type", "Title", "Login", "Password", "Description", "Image", "Flags"};
    t.FldTypes = {69, 5, 5, 66, 2, 2, 2, 5, 5};
    t.Tag = QString::number(records.size());
    t.Records = records;
    db.Tables.append(t);
    return db;
}

QStringList record(int id, const QString& title, const QString& password = "pw",
                   const QString& desc = QString()) {
    return {QString::number(id), "0", "2", title, "login", password, desc, "1key", "0|0"};
}

int load(const QString& path, const QString& pasw, DatabaseRecord& db) {
    TableEngine e;
    e.ResetDatabase(db);
    return e.LoadDatabase(db, path, pasw);
}

int loadBytes(TestEnv& env, const QByteArray& bytes, const QString& pasw, DatabaseRecord& db) {
    const QString path = env.root() + "/probe.bdb";
    writeFileText(path, bytes);
    return load(path, pasw, db);
}

QByteArray save(TestEnv& env, const DatabaseRecord& db, const QString& pasw, bool compress = false) {
    const QString path = env.root() + "/saved.bdb";
    TableEngine e;
    if (e.SaveDatabase(db, path, pasw, compress) != 1)
        return QByteArray();
    return readAllOf(path);
}

} // namespace

class TableFileTest : public QObject {
    Q_OBJECT
private slots:
    void templateReadsAsAnEmptyUserDatabase() {
        TestEnv env;
        // Seven lines ending in CR LF; the separator is the single byte 0x87, never the
        // UTF-8 form of the character it shows as in the old code page.
        const QByteArray tpl = NewUserTemplate();
        QCOMPARE(tpl.count("\r\n"), 7);
        QVERIFY(tpl.endsWith("[End DataTable]\r\n"));
        QCOMPARE(tpl.count('\x87'), 2 + 1 + 8);
        QVERIFY(!tpl.contains("\xE2\x80\xA1") && !tpl.contains("\xC2\x87"));
        DatabaseRecord db;
        QCOMPARE(loadBytes(env, tpl, QString(), db), 1);
        QCOMPARE(db.Name, QString("UserDataBase"));
        QCOMPARE(db.flags, 0);
        QCOMPARE(db.Version, QString("1.1a"));
        QCOMPARE(db.Tag, QString());
        QCOMPARE(db.TabNum(), 1);
        const TableEntry& t = db.Tables[0];
        QCOMPARE(t.Name, QString("DataTable"));
        QCOMPARE(t.Tag, QString("0"));
        QCOMPARE(t.RecNum(), 0);
        QCOMPARE(t.FldTypes, (QList<int>{69, 5, 5, 66, 2, 2, 2, 5, 5}));
        QCOMPARE(t.Caption, QStringList({"IndNum 69", "Parent 5", "Type 5", "Title 66", "Login 2",
                                         "Password 2", "Description 2", "Image 5", "Flags 5"})
                                .join(kSep));
        // Written back without a password it is the very same bytes.
        QCOMPARE(save(env, db, QString()), NewUserTemplate());
    }

    void anyTextSurvivesSaveAndLoad() {
        TestEnv env;
        const QStringList values = {
            QString(kSep) + "in" + kSep,     // the separator itself
            QStringLiteral("Її Ї"),          // UTF-8 holds the byte 0x87 (D0 87)
            "line 1\r\nline 2\nline 3\rend", // line ends of every kind
            "C:\\path\\s\\n\\\\",            // the escape character and escape-like text
            "trailing\\",
            "[End DataTable]", // looks like the end of the table
            QStringLiteral("emoji \U0001F511 and \u00A0 no-break"),
            QString(),
            "   spaced   ",
        };
        QList<QStringList> recs;
        for (int i = 0; i < values.size(); ++i)
            recs.append(
                record(i + 1, values[i], values[(i + 1) % values.size()], values[(i + 2) % values.size()]));
        DatabaseRecord db = userDb(recs);
        db.Name = QString("na") + kSep + "me\n";
        db.Tag = "tag\\" + QString(kSep);
        db.Tables[0].Tag = "t\r\n";
        db.Tables[0].FldNames[3] = "Ti tle";
        HelpTable h;
        h.Name = "Ty[pe]";
        h.Codes = {1, -2};
        h.Texts = {"Folder\r\n", QString(kSep)};
        db.HTables.append(h);
        for (const QString& pasw : {QString(), QStringLiteral("secret")}) {
            DatabaseRecord back;
            const QByteArray bytes = save(env, db, pasw);
            QVERIFY(!bytes.isEmpty());
            QCOMPARE(loadBytes(env, bytes, pasw, back), 1);
            QCOMPARE(back.Name, db.Name);
            QCOMPARE(back.Tag, db.Tag);
            QCOMPARE(back.Tables[0].Tag, db.Tables[0].Tag);
            QCOMPARE(back.Tables[0].FldNames, db.Tables[0].FldNames);
            QCOMPARE(back.Tables[0].Records, db.Tables[0].Records);
            QCOMPARE(back.HTables[0].Name, h.Name);
            QCOMPARE(back.HTables[0].Codes, h.Codes);
            QCOMPARE(back.HTables[0].Texts, h.Texts);
            if (pasw.isEmpty()) {
                // One record a line: escaped values never break a line. Signature, database
                // line, four table lines and its end, the records, five help table lines.
                QCOMPARE(bytes.count("\r\n"), 2 + 5 + values.size() + 5);
                QVERIFY(bytes.contains("\xD0\\s")); // Ї with its 0x87 byte escaped
            }
        }
        // A lone surrogate has no UTF-8 form: it becomes the replacement character.
        DatabaseRecord odd = userDb({record(1, QString(QChar(0xD800)))});
        DatabaseRecord back;
        QCOMPARE(loadBytes(env, save(env, odd, QString()), QString(), back), 1);
        QCOMPARE(back.Tables[0].Records[0][3], QString(QChar(0xFFFD)));
    }

    void protectedFileLayout() {
        TestEnv env;
        DatabaseRecord db = userDb({record(1, "Mail", "hunter2")});
        db.Key = std::make_shared<KeyCache>();
        const QByteArray a = save(env, db, "key one");
        const QByteArray b = save(env, db, "key one");
        QVERIFY(a.startsWith("wqpdhxMeM.ENC\r\n"));
        QVERIFY(!a.contains("hunter2") && !a.contains("Mail"));
        // Same password: the kept key and salt are used again, but every save takes a new nonce.
        QCOMPARE(a.mid(15 + 12, 16), b.mid(15 + 12, 16));
        QVERIFY(a.mid(15 + 28, 24) != b.mid(15 + 28, 24));
        QVERIFY(a.mid(15 + 52) != b.mid(15 + 52));
        // Another password: a new salt.
        const QByteArray c = save(env, db, "key two");
        QVERIFY(a.mid(15 + 12, 16) != c.mid(15 + 12, 16));
        DatabaseRecord back;
        QCOMPARE(loadBytes(env, c, "key two", back), 1);
        QCOMPARE(back.Tables[0].Records[0][5], QString("hunter2"));
        // Packed before sealing: smaller for repetitive text, same content.
        DatabaseRecord big = userDb(QList<QStringList>(500, record(7, "same title", "same password")));
        const QByteArray packed = save(env, big, "k", true);
        QVERIFY(packed.size() * 4 < save(env, big, "k").size());
        QCOMPARE(loadBytes(env, packed, "k", back), 1);
        QCOMPARE(back.Tables[0].Records, big.Tables[0].Records);
    }

    void wrongPasswordOrAnyChangedByteLoadsNothing() {
        TestEnv env;
        DatabaseRecord db = userDb({record(1, "Bank", "0000"), record(2, "Mail", "1111")});
        const QByteArray good = save(env, db, "right");
        DatabaseRecord back;
        QCOMPARE(loadBytes(env, good, "wrong", back), -4);
        QCOMPARE(back.TabNum(), 0);
        QCOMPARE(loadBytes(env, good, QString(), back), -4);
        // One changed byte in every part of the file: signature, header fields, salt,
        // nonce, body, tag.
        for (qsizetype pos : {0, 12, 15, 16, 17, 18, 19, 23, 27, 40, 50, 70, 100}) {
            QByteArray bad = good;
            bad[pos] = static_cast<char>(bad[pos] ^ 0x01);
            QCOMPARE(loadBytes(env, bad, "right", back), -4);
            QCOMPARE(back.TabNum(), 0);
        }
        QByteArray bad = good;
        bad[bad.size() - 1] = static_cast<char>(bad[bad.size() - 1] ^ 0x80);
        QCOMPARE(loadBytes(env, bad, "right", back), -4);
        // Cut short anywhere, grown, empty, random.
        for (qsizetype len : {qsizetype(0), qsizetype(13), qsizetype(15), qsizetype(60), good.size() - 1})
            QCOMPARE(loadBytes(env, good.left(len), "right", back), -4);
        QCOMPARE(loadBytes(env, good + "x", "right", back), -4);
        QByteArray noise(4096, Qt::Uninitialized);
        for (char& ch : noise)
            ch = static_cast<char>(QRandomGenerator::global()->bounded(256));
        QCOMPARE(loadBytes(env, noise, "right", back), -4);
        QCOMPARE(load(env.root() + "/missing.bdb", "right", back), -2);
        QCOMPARE(loadBytes(env, good, "right", back), 1);
    }

    void damagedPlainStructureIsRefused() {
        TestEnv env;
        const QByteArray tpl = NewUserTemplate();
        const QByteArray oneRec = QByteArray("1\x87") + "0\x87"
                                                        "2\x87t\x87l\x87p\x87"
                                                        "d\x87"
                                                        "1key\x87"
                                                        "0|0\r\n";
        auto withRecords = [&](const QByteArray& count, const QByteArray& lines) {
            QByteArray b = tpl;
            b.replace("0\x87"
                      "0\r\n0\r\n",
                      "0\x87" + count + "\r\n0\r\n");
            b.replace("Flags 5\r\n", "Flags 5\r\n" + lines);
            return b;
        };
        DatabaseRecord back;
        QCOMPARE(loadBytes(env, withRecords("1", oneRec), QString(), back), 1);
        QCOMPARE(back.Tables[0].RecNum(), 1);
        // LF alone is read too.
        QCOMPARE(loadBytes(env, QByteArray(withRecords("1", oneRec)).replace("\r\n", "\n"), QString(), back),
                 1);
        const QByteArray broken[] = {
            withRecords("2", oneRec),                                        // fewer records than counted
            withRecords("0", oneRec),                                        // more lines than counted
            withRecords("1", QByteArray(oneRec).replace("0|0", "0|0\x87x")), // a value too many
            withRecords("1", QByteArray(oneRec).replace("1key\x87", "")),    // a value short
            withRecords("-1", QByteArray()),
            withRecords("x", QByteArray()),
            QByteArray(tpl).replace("[End DataTable]", "[End Other]"),
            QByteArray(tpl).replace("Image 5", "Image"),
            QByteArray(tpl).replace("UserDataBase\x87"
                                    "0",
                                    "UserDataBase\x87"
                                    "99999"),
            QByteArray(tpl).append("stray line\r\n"),
            QByteArray(tpl).left(tpl.size() - 20),
            QByteArray("wqpdhxMeM\r\n"),
        };
        for (const QByteArray& b : broken) {
            QCOMPARE(loadBytes(env, b, QString(), back), -3);
            QCOMPARE(back.TabNum(), 0);
        }
        QCOMPARE(loadBytes(env, QByteArray(tpl).replace("wqpdhxMeM", "wqpdhxMeX"), QString(), back), -4);
        QCOMPARE(loadBytes(env, QByteArray(tpl).replace("wqpdhxMeM", "WQPDHXMEM"), QString(), back), -4);
    }

    void failedSaveKeepsTheOldFile() {
        TestEnv env;
        writeFileText(env.root() + "/plain", "x");
        TableEngine e;
        QCOMPARE(e.SaveDatabase(userDb({}), env.root() + "/plain/db.bdb", "k", false), -1);
        QCOMPARE(readAllOf(env.root() + "/plain"), QByteArray("x"));
        QCOMPARE(e.SaveDatabase(userDb({}), env.root() + "/ok.bdb", "k", false), 1);
        QCOMPARE(posixMode(env.root() + "/ok.bdb"), 0600);
    }
};

ARGENT_TEST(TableFileTest)
#include "tst_tablefile.moc"
