#include "storage/FileSeal.h"
#include "storage/TableEngine.h"
#include "storage/TableFile.h"
#include "tests/common/TestEnv.h"
#include "tests/common/TestMain.h"
#include "users/UserAccounts.h"

#include <QRandomGenerator>
#include <QTest>
#include <QThreadPool>

namespace {

const QChar kSep(kFldSep);

// A database of one table in the user layout, with the given records.
DatabaseRecord userDb(const QList<QStringList>& records) {
    DatabaseRecord db;
    db.Name = db.Tag = "Alice";
    db.Version = "1.1a";
    db.Ready = true;
    TableEntry t;
    t.Name = "DataTable";
    t.FldNames = {"IndNum", "Parent", "Type", "Title", "Login", "Password", "Description", "Image", "Flags"};
    t.FldTypes = {69, 5, 5, 66, 2, 2, 2, 5, 5};
    t.Tag = QString::number(records.size());
    t.Records = RecordStore::fromRows(records);
    db.Tables.append(t);
    return db;
}

// userDb with a second table, Extras (key, value), that holds the given values.
DatabaseRecord withExtras(const QStringList& values) {
    DatabaseRecord db = userDb({{"1", "0", "2", "Bank", "anna", "pw", "", "1key", "0|0"}});
    TableEntry t;
    t.Name = "Extras";
    t.FldNames = {"Key", "Value"};
    t.FldTypes = {69, 2};
    t.Tag = "0";
    QList<QStringList> rows;
    for (const QString& v : values)
        rows.append({QString::number(rows.size() + 1), v});
    t.Records = RecordStore::fromRows(rows);
    db.Tables.append(t);
    return db;
}

QStringList record(int id, const QString& title, const QString& password = "pw",
                   const QString& desc = QString()) {
    return {QString::number(id), "0", "2", title, "login", password, desc, "1key", "0|0"};
}

int loadBytes(TestEnv& env, const QByteArray& bytes, const QString& pasw, DatabaseRecord& db) {
    const QString path = env.root() + "/probe.bdb";
    writeFileText(path, bytes);
    TableEngine e;
    e.ResetDatabase(db);
    return e.LoadDatabase(db, path, pasw);
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
        // The separator is the single byte 0x87, never the UTF-8 form of the character
        // it shows as in the old code page.
        const QByteArray tpl = NewUserTemplate();
        QCOMPARE(tpl.count('\x87'), 2 + 1 + 8);
        QVERIFY(!tpl.contains("\xE2\x80\xA1") && !tpl.contains("\xC2\x87"));
        DatabaseRecord db;
        QCOMPARE(loadBytes(env, tpl, QString(), db), 1);
        QCOMPARE(db.TabNum(), 1);
        QCOMPARE(db.Tables[0].RecNum(), 0);
        // Written back without a password it is the very same bytes.
        QCOMPARE(save(env, db, QString()), tpl);
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
            QString(),
        };
        QList<QStringList> recs;
        for (int i = 0; i < values.size(); ++i)
            recs.append(
                record(i + 1, values[i], values[(i + 1) % values.size()], values[(i + 2) % values.size()]));
        DatabaseRecord db = userDb(recs);
        db.Name = QString("na") + kSep + "me\n";
        for (const QString& pasw : {QString(), QStringLiteral("secret")}) {
            DatabaseRecord back;
            const QByteArray bytes = save(env, db, pasw);
            QCOMPARE(loadBytes(env, bytes, pasw, back), 1);
            QCOMPARE(back.Name, db.Name);
            QCOMPARE(back.Tables[0].Records, db.Tables[0].Records);
            // Plain: one record a line, escaped values never break a line.
            if (pasw.isEmpty())
                QCOMPARE(bytes.count("\r\n"), 2 + 5 + values.size());
        }
    }

    void protectedFileLayout() {
        TestEnv env;
        DatabaseRecord db = userDb({record(1, "Mail", "hunter2")});
        db.Key = std::make_shared<KeyCache>();
        const QByteArray a = save(env, db, "key one");
        const QByteArray b = save(env, db, "key one");
        QVERIFY(a.startsWith("wqpdhxMeM.ENC\r\n"));
        QVERIFY(!a.contains("hunter2") && !a.contains("Mail"));
        // Same password: the kept salt is used again, but every save takes a new nonce.
        QCOMPARE(a.mid(15 + 12, 16), b.mid(15 + 12, 16));
        QVERIFY(a.mid(15 + 28, 24) != b.mid(15 + 28, 24));
        // Packed before sealing: smaller for repetitive text, same content.
        DatabaseRecord big = userDb(QList<QStringList>(500, record(7, "same title", "same password")));
        const QByteArray packed = save(env, big, "k", true);
        QVERIFY(packed.size() * 4 < save(env, big, "k").size());
        DatabaseRecord back;
        QCOMPARE(loadBytes(env, packed, "k", back), 1);
        QCOMPARE(back.Tables[0].Records, big.Tables[0].Records);
        TableEngine e;
        QCOMPARE(e.LoadDatabase(back, env.root() + "/missing.bdb", "k"), -2);
    }

    // A program that will look at the other tables splits them in a thread of the pool
    // right after the reading; the owner meanwhile reads, changes and copies the table, and
    // each sees the rows the file holds with its own changes.
    void tablesSplitBehindWhileInUse() {
        TestEnv env;
        QStringList values;
        for (int i = 0; i < 20000; ++i)
            values.append(QStringLiteral("value %1 \u0407").arg(i));
        const DatabaseRecord db = withExtras(values);
        const QByteArray bytes = save(env, db, QString());
        for (int round = 0; round < 12; ++round) {
            DatabaseRecord back;
            QCOMPARE(loadBytes(env, bytes, QString(), back), 1);
            QVERIFY(back.Tables[1].Records.isUnread());
            SplitTablesBehind(back);
            RecordStore& rows = back.Tables[1].Records;
            const RecordStore before = rows;
            if (round % 3 == 0)
                rows.setValue(5, 1, "mine");
            else if (round % 3 == 1)
                QCOMPARE(rows.value(19999, 1), values[19999]);
            else
                rows.removeAt(0);
            QThreadPool::globalInstance()->waitForDone();
            QVERIFY(!rows.isUnread());
            QCOMPARE(before, db.Tables[1].Records);
            RecordStore expected = db.Tables[1].Records;
            if (round % 3 == 0)
                expected.setValue(5, 1, "mine");
            else if (round % 3 == 2)
                expected.removeAt(0);
            QCOMPARE(rows, expected);
        }
    }

    // The records are split into rows when a file is read; the rows of other tables only when
    // they are first used, and a save before that writes their lines as they were read.
    void otherTablesAreSplitWhenUsed() {
        TestEnv env;
        const QStringList values = {
            "https://example.org", QStringLiteral("Її"), "a\\b", "C:\\q", QString(kSep), "", "line\r\nbreak"};
        const DatabaseRecord db = withExtras(values);
        const QByteArray bytes = save(env, db, QString());
        DatabaseRecord back;
        QCOMPARE(loadBytes(env, bytes, QString(), back), 1);
        QVERIFY(!back.Tables[0].Records.isUnread());
        const RecordStore& extras = back.Tables[1].Records;
        QVERIFY(extras.isUnread());
        QCOMPARE(back.Tables[1].RecNum(), values.size()); // counted without splitting
        QCOMPARE(save(env, back, QString()), bytes);
        QVERIFY(extras.isUnread());
        // A copy taken before the split shares it; a change after it is the copy's own.
        RecordStore copy = extras;
        QCOMPARE(extras.value(3, 1), "C:\\q");
        QVERIFY(!copy.isUnread());
        copy.setValue(0, 1, "changed");
        QCOMPARE(extras, db.Tables[1].Records);
        QCOMPARE(copy.value(0, 1), "changed");
        QCOMPARE(save(env, back, QString()), bytes);
        // A value spelt as a save would not write it (a stray backslash) is copied as it is
        // while unsplit and reads as its text; split, it takes the form a save writes.
        QByteArray odd = bytes;
        odd.replace("C:\\\\q", "C:\\q");
        QVERIFY(odd != bytes);
        QCOMPARE(loadBytes(env, odd, QString(), back), 1);
        QCOMPARE(save(env, back, QString()), odd);
        QCOMPARE(back.Tables[1].Records.value(3, 1), "C:\\q");
        QCOMPARE(save(env, back, QString()), bytes);
        // Lines that end in LF alone are split at once, and written with CR LF.
        QByteArray lf = bytes;
        lf.replace("\r\n", "\n");
        QCOMPARE(loadBytes(env, lf, QString(), back), 1);
        QVERIFY(!back.Tables[1].Records.isUnread());
        QCOMPARE(back.Tables[1].Records, db.Tables[1].Records);
        QCOMPARE(save(env, back, QString()), bytes);
        // Sealed, the same.
        const QByteArray sealed = save(env, db, "key");
        QCOMPARE(loadBytes(env, sealed, "key", back), 1);
        QVERIFY(back.Tables[1].Records.isUnread());
        QCOMPARE(back.Tables[1].Records, db.Tables[1].Records);
    }

    // Rows split later are checked all the same when the file is read: a damaged table
    // refuses the whole file, whichever table it is.
    void damagedOtherTableLoadsNothing_data() {
        QTest::addColumn<QByteArray>("bytes");
        TestEnv env;
        const QByteArray good = save(env, withExtras({"one", "two"}), QString());
        QTest::newRow("fewer than counted") << QByteArray(good).replace("\x87"
                                                                        "2\r\n0\r\nKey",
                                                                        "\x87"
                                                                        "3\r\n0\r\nKey");
        QTest::newRow("more than counted") << QByteArray(good).replace("\x87"
                                                                       "2\r\n0\r\nKey",
                                                                       "\x87"
                                                                       "1\r\n0\r\nKey");
        QTest::newRow("a value too many") << QByteArray(good).replace("two", "tw\x87o");
        QTest::newRow("a value too few") << QByteArray(good).replace("2\x87two", "2two");
        QTest::newRow("no end") << QByteArray(good).replace("[End Extras]", "[End Extra]");
    }
    void damagedOtherTableLoadsNothing() {
        QFETCH(QByteArray, bytes);
        TestEnv env;
        DatabaseRecord back;
        QCOMPARE(loadBytes(env, bytes, QString(), back), -3);
        QCOMPARE(back.TabNum(), 0);
    }

    void damagedOrWrongKeyLoadsNothing_data() {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QString>("pasw");
        QTest::addColumn<int>("result");
        TestEnv env;
        const QByteArray good = save(env, userDb({record(1, "Bank", "0000"), record(2, "Mail")}), "right");
        auto flip = [&](qsizetype pos) {
            QByteArray b = good;
            b[pos] = static_cast<char>(b[pos] ^ 0x01);
            return b;
        };
        QByteArray noise(4096, Qt::Uninitialized);
        for (char& ch : noise)
            ch = static_cast<char>(QRandomGenerator::global()->bounded(256));
        QTest::newRow("good") << good << "right" << 1;
        QTest::newRow("wrong password") << good << "wrong" << -4;
        // One changed byte in the signature, header, salt, nonce, body and tag.
        for (qsizetype pos : {qsizetype(0), qsizetype(16), qsizetype(27), qsizetype(50), good.size() - 1})
            QTest::addRow("byte %d flipped", int(pos)) << flip(pos) << "right" << -4;
        QTest::newRow("truncated") << good.left(60) << "right" << -4;
        QTest::newRow("grown") << good + QByteArray("x") << QString("right") << -4;
        QTest::newRow("empty") << QByteArray() << "right" << -4;
        QTest::newRow("random") << noise << "right" << -4;
        // Plain files whose structure is broken.
        const QByteArray tpl = NewUserTemplate();
        auto sep = [](const char* text) { return QByteArray(text).replace('_', '\x87'); };
        const QByteArray oneRec = sep("1_0_2_t_l_p_d_1key_0|0\r\n");
        auto withRecords = [&](const QByteArray& count, const QByteArray& lines) {
            return QByteArray(tpl)
                .replace(sep("0_0\r\n0\r\n"), sep("0_") + count + "\r\n0\r\n")
                .replace("Flags 5\r\n", "Flags 5\r\n" + lines);
        };
        QTest::newRow("plain record") << withRecords("1", oneRec) << "" << 1;
        QTest::newRow("LF alone") << withRecords("1", oneRec).replace("\r\n", "\n") << "" << 1;
        QTest::newRow("fewer than counted") << withRecords("2", oneRec) << "" << -3;
        QTest::newRow("more than counted") << withRecords("0", oneRec) << "" << -3;
        QTest::newRow("a value too many")
            << withRecords("1", QByteArray(oneRec).replace("0|0", sep("0|0_x"))) << "" << -3;
        QTest::newRow("wrong end") << QByteArray(tpl).replace("[End DataTable]", "[End Other]") << "" << -3;
        QTest::newRow("bad signature") << QByteArray(tpl).replace("wqpdhxMeM", "WQPDHXMEM") << "" << -4;
    }
    void damagedOrWrongKeyLoadsNothing() {
        QFETCH(QByteArray, bytes);
        QFETCH(QString, pasw);
        QFETCH(int, result);
        TestEnv env;
        DatabaseRecord back;
        QCOMPARE(loadBytes(env, bytes, pasw, back), result);
        QCOMPARE(back.TabNum(), result == 1 ? 1 : 0);
    }
};

ARGENT_TEST(TableFileTest)
#include "tst_tablefile.moc"
