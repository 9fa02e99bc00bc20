#include "storage/RecordStore.h"
#include "storage/TableFile.h"
#include "tests/common/TestMain.h"

#include <QRandomGenerator>
#include <QTest>

// The store against the plain list of rows it replaces: random runs of every operation,
// with copies taken along the way (a copy must never see the changes of the other) and
// the rows read back now and then as lines not split yet, and the values that have more
// than one file form.
class RecordStoreTest : public QObject {
    Q_OBJECT

    static QString text(QRandomGenerator& rng) {
        static const QStringList kinds = {"",  "mail", "Ї",  "a\\b", "line\r\nbreak",   QString(QChar(0x87)),
                                          "ß", "日本", "\\", "x\\s", QString(300, 'p'), "😀"};
        QString s = kinds[static_cast<int>(rng.bounded(kinds.size()))];
        if (rng.bounded(3) == 0)
            s += QString::number(rng.bounded(100000));
        return s;
    }
    static QStringList row(QRandomGenerator& rng, int n) {
        QStringList r;
        for (int f = 0; f < n; ++f)
            r << text(rng);
        return r;
    }

private slots:
    void behavesAsAListOfRows_data() {
        QTest::addColumn<quint32>("seed");
        QTest::addColumn<int>("steps");
        for (quint32 seed = 1; seed <= 40; ++seed)
            QTest::addRow("seed %u", seed) << seed << 400;
        // Long runs: the append area and the value list are compacted on the way.
        for (quint32 seed = 100; seed <= 102; ++seed)
            QTest::addRow("long run %u", seed) << seed << 20000;
    }

    void behavesAsAListOfRows() {
        QFETCH(quint32, seed);
        QFETCH(int, steps);
        QRandomGenerator rng(seed);
        QList<QStringList> model;
        for (int i = 0; i < 30; ++i)
            model << row(rng, 9);
        RecordStore s = RecordStore::fromRows(model);
        QList<std::pair<RecordStore, QList<QStringList>>> copies;
        for (int step = 0; step < steps; ++step) {
            const int n = static_cast<int>(model.size());
            const int r = n ? static_cast<int>(rng.bounded(n)) : 0;
            switch (rng.bounded(11)) {
            case 0:
            case 1:
            case 2: // the most common change: one value
                if (n) {
                    const int f = static_cast<int>(rng.bounded(model[r].size() + 1));
                    const QString v = text(rng);
                    s.setValue(r, f, v);
                    if (f < model[r].size())
                        model[r][f] = v;
                }
                break;
            case 3: {
                const QStringList v = row(rng, static_cast<int>(rng.bounded(11)));
                s.append(v);
                model << v;
                break;
            }
            case 4:
                if (n) {
                    s.appendFrom(s, r);
                    model << model[r];
                }
                break;
            case 5:
                if (n) {
                    const QStringList v = row(rng, static_cast<int>(rng.bounded(11)));
                    s.setRow(r, v);
                    model[r] = v;
                }
                break;
            case 6:
                if (n) {
                    s.removeAt(r);
                    model.removeAt(r);
                }
                break;
            case 7: { // a move: some rows to the end, others dropped or taken twice
                std::vector<int> order;
                QList<QStringList> next;
                for (int i = 0; i < n; ++i) {
                    const int k = static_cast<int>(rng.bounded(n));
                    if (rng.bounded(4)) {
                        order.push_back(k);
                        next << model[k];
                    }
                }
                s.reorder(order);
                model = next;
                break;
            }
            case 8:
                if (n > 1) {
                    const int o = static_cast<int>(rng.bounded(n));
                    const int f = static_cast<int>(rng.bounded(model[r].size() + 1));
                    const int g = static_cast<int>(rng.bounded(model[o].size() + 1));
                    s.setValueFrom(r, f, s, o, g);
                    if (f < model[r].size() && g < model[o].size())
                        model[r][f] = model[o][g];
                }
                break;
            case 9:
                copies.append({s, model});
                break;
            case 10: // read back as a file gives it: lines of as many values each, unsplit
                if (n) {
                    qsizetype width = 1;
                    for (const QStringList& m : model)
                        width = std::max(width, m.size());
                    QByteArray lines = "head\r\n";
                    for (QStringList& m : model) {
                        while (m.size() < width)
                            m << QString();
                        for (qsizetype f = 0; f < width; ++f) {
                            if (f)
                                lines.append('\x87');
                            AppendEscaped(lines, m[f]);
                        }
                        lines.append("\r\n");
                    }
                    s.attachUnread(lines + "tail", 6, lines.size() - 6, n, static_cast<int>(width));
                    QVERIFY(s.isUnread());
                    QCOMPARE(s.unreadLines(static_cast<int>(width)).toByteArray(), lines.mid(6));
                    if (rng.bounded(2))
                        copies.append({s, model}); // split by the copy or by the store, for both
                }
                break;
            }
            QCOMPARE(s.size(), static_cast<int>(model.size()));
        }
        QCOMPARE(s.rows(), model);
        for (const auto& c : copies)
            QCOMPARE(c.first.rows(), c.second);
        // Written and read back, the rows are the same, as texts and as bytes.
        QByteArray body;
        for (int i = 0; i < s.size(); ++i) {
            s.writeRow(body, i);
            body.append('\n');
        }
        QCOMPARE(RecordStore::fromRows(model), s);
        for (int i = 0; i < s.size(); ++i) {
            QCOMPARE(s.fieldCount(i), static_cast<int>(model[i].size()));
            for (int f = 0; f < model[i].size(); ++f)
                QVERIFY(s.valueIs(i, f, model[i][f]));
        }
    }

    // A file may spell a value in a form a save would not write (a stray backslash, bytes
    // that are not UTF-8): the store keeps the text, so equal texts stay equal bytes.
    void oddFileFormsReadAsTheirText_data() {
        QTest::addColumn<QByteArray>("file");
        QTest::addColumn<QString>("text");
        QTest::newRow("plain") << QByteArray("mail") << "mail";
        QTest::newRow("escapes") << QByteArray("a\\\\b\\r\\n") << "a\\b\r\n";
        QTest::newRow("separator inside a letter") << QByteArray("\xD0\\s") << QString::fromUtf8("Ї");
        QTest::newRow("stray backslash") << QByteArray("a\\qb") << "a\\qb";
        QTest::newRow("trailing backslash") << QByteArray("ab\\") << "ab\\";
        QTest::newRow("not UTF-8") << QByteArray("a\xFF") << QString("a") + QChar(0xFFFD);
    }

    void oddFileFormsReadAsTheirText() {
        QFETCH(QByteArray, file);
        QFETCH(QString, text);
        RecordStore s;
        const QByteArray bytes = "x" + file;
        s.attach(bytes);
        // The reader marks values with a backslash or a byte above ASCII (the top bit).
        const std::uint32_t off = 1, len = static_cast<std::uint32_t>(file.size()) | 0x80000000u;
        s.appendParsed(1, &off, &len);
        QCOMPARE(s.value(0, 0), text);
        QVERIFY(s.valueIs(0, 0, text));
        QCOMPARE(s, RecordStore::fromRows({{text}}));
        QByteArray again;
        AppendEscaped(again, text);
        QCOMPARE(s.escaped(0, 0).toByteArray(), again);
    }

    void numbersAreReadWithoutText_data() {
        QTest::addColumn<QString>("value");
        QTest::addColumn<bool>("ok");
        QTest::addColumn<qlonglong>("number");
        QTest::newRow("id") << "17" << true << 17LL;
        QTest::newRow("negative") << "-4" << true << -4LL;
        QTest::newRow("empty") << "" << false << 0LL;
        QTest::newRow("blank") << " 1" << false << 0LL;
        QTest::newRow("word") << "1key" << false << 0LL;
        QTest::newRow("too long") << "1234567890123456789" << false << 0LL;
    }

    void numbersAreReadWithoutText() {
        QFETCH(QString, value);
        QFETCH(bool, ok);
        QFETCH(qlonglong, number);
        const RecordStore s = RecordStore::fromRows({{value}});
        long long got = -1;
        QCOMPARE(s.intValue(0, 0, got), ok);
        QCOMPARE(got, number);
    }
};

ARGENT_TEST(RecordStoreTest)
#include "tst_recordstore.moc"
