// mksample: builds the demonstration user from its readable source (resources/
// SampleUser.txt) with the program's own routines, so that the file is exactly what the
// program itself would write.
//
//   mksample SOURCE OUTPUT.bdb
//
// The user's name is the output's file name without ".bdb"; the password is 12345678.

#include "app/DiagnosticsHookup.h"
#include "app/ProgConfig.h"
#include "app/StrMass.h"
#include "diagnostics/ErrorTrap.h"
#include "storage/Md5.h"
#include "users/UserAccounts.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QStringList>

#include <cstdio>
#include <functional>
#include <vector>

namespace {

const char kSamplePassword[] = "12345678";

struct Entry {
    bool folder = false;
    QString title, login, password;
    QStringList description;
    long long colour = 0; // 0x00BBGGRR
    int bits = 0;
    int icon = 0;
    int depth = 0;
    int parent = -1; // index of the entry above, -1 for the root
};

[[noreturn]] void fail(const QString& file, int line, const QString& what) {
    std::fprintf(stderr, "%s:%d: %s\n", file.toLocal8Bit().constData(), line, what.toLocal8Bit().constData());
    std::exit(1);
}

std::vector<Entry> parse(const QString& path) {
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly))
        fail(path, 0, QStringLiteral("cannot be read"));
    std::vector<Entry> out;
    std::vector<int> open; // the entry at each depth
    int lineNo = 0;
    for (const QByteArray& raw : f.readAll().split('\n')) {
        ++lineNo;
        QString line = QString::fromUtf8(raw);
        if (line.endsWith(u'\r'))
            line.chop(1);
        const QString body = line.trimmed();
        if (body.isEmpty() || body.startsWith(u'#'))
            continue;
        int indent = 0;
        while (indent < line.size() && line[indent] == u' ')
            ++indent;
        if (indent % 2)
            fail(path, lineNo, QStringLiteral("indentation must be a multiple of two spaces"));
        const int depth = indent / 2;
        const qsizetype colon = body.indexOf(u':');
        if (colon < 0)
            fail(path, lineNo, QStringLiteral("expected \"key: value\""));
        const QString key = body.left(colon).trimmed();
        const QString value = body.mid(colon + 1).trimmed();
        if (key == QLatin1String("folder") || key == QLatin1String("record")) {
            if (depth > static_cast<int>(open.size()))
                fail(path, lineNo, QStringLiteral("entry indented too far"));
            open.resize(static_cast<std::size_t>(depth));
            Entry e;
            e.folder = key == QLatin1String("folder");
            e.title = value;
            e.depth = depth;
            e.parent = depth ? open.back() : -1;
            if (e.parent >= 0 && !out[static_cast<std::size_t>(e.parent)].folder)
                fail(path, lineNo, QStringLiteral("only folders hold entries"));
            out.push_back(e);
            open.push_back(static_cast<int>(out.size() - 1));
            continue;
        }
        // A field belongs to the entry one level up.
        if (depth == 0 || depth > static_cast<int>(open.size()))
            fail(path, lineNo, QStringLiteral("a field must be indented under its entry"));
        Entry& e = out[static_cast<std::size_t>(open[static_cast<std::size_t>(depth - 1)])];
        open.resize(static_cast<std::size_t>(depth));
        if (key == QLatin1String("login")) {
            e.login = value;
        } else if (key == QLatin1String("password")) {
            e.password = value;
        } else if (key == QLatin1String("description")) {
            e.description += value;
        } else if (key == QLatin1String("color")) {
            bool ok = false;
            const uint rgb = value.startsWith(u'#') ? value.mid(1).toUInt(&ok, 16) : 0;
            if (!ok || value.size() != 7)
                fail(path, lineNo, QStringLiteral("a colour is written #RRGGBB"));
            e.colour = ((rgb & 0xFF) << 16) | (rgb & 0xFF00) | ((rgb >> 16) & 0xFF);
        } else if (key == QLatin1String("bold")) {
            e.bits = value == QLatin1String("yes") ? (e.bits | 1) : (e.bits & ~1);
        } else if (key == QLatin1String("icon")) {
            bool ok = false;
            e.icon = value.toInt(&ok);
            if (!ok || e.icon < 1)
                fail(path, lineNo, QStringLiteral("an icon is a number from 1"));
        } else {
            fail(path, lineNo, QStringLiteral("unknown key \"%1\"").arg(key));
        }
    }
    return out;
}

int build(const QString& source, const QString& output) {
    const std::vector<Entry> entries = parse(source);
    const QFileInfo out(output);
    const QString name = out.completeBaseName();
    while (ProgConfig.UBound() < kCfgDBPath)
        AddElemToStrMass(ProgConfig, QString());
    ProgConfig[kCfgDBPath] = out.absolutePath();
    CreateProgramObjects();

    QString pasw = QString::fromLatin1(kSamplePassword);
    AddUser(UsDBFilePath(name), name, pasw);
    const QString key = GetTruePasw(pasw);
    if (LoadUser(UsDBFilePath(name), key) != 2)
        fail(output, 0, QStringLiteral("the new user does not open"));

    clsDatabase& db = *CurUsDB;
    const int tbl = db.FindTable(QStringLiteral("DataTable"));
    auto addRow = [&](const Entry& e, int parentId) {
        const int id = db.GetTblTag(tbl).toInt() + 1;
        db.SetTblTag(tbl, QString::number(id));
        const int row = db.AddRecord(tbl);
        auto set = [&](const char* field, const QString& v) {
            db.SetTblFldValNm(tbl, row, QLatin1String(field), v);
        };
        set("IndNum", QString::number(id));
        set("Parent", QString::number(parentId));
        set("Type", e.folder ? QStringLiteral("1") : QStringLiteral("2"));
        set("Title", e.title);
        set("Login", e.login);
        set("Password", e.password);
        set("Description", e.description.join(QLatin1String("\r\n")));
        set("Image", QString::number(e.icon ? e.icon : (e.folder ? 2 : 1)) + QStringLiteral("key"));
        set("Flags", QString::number(static_cast<int>(e.colour)) + u'|' + QString::number(e.bits));
        return id;
    };
    // The tree shows sub-folders in reverse table order and records in table order; rows
    // are written so that it shows them in the order of the source.
    std::function<void(int, int)> writeRows = [&](int parent, int parentId) {
        std::vector<int> kids;
        for (std::size_t i = 0; i < entries.size(); ++i)
            if (entries[i].parent == parent)
                kids.push_back(static_cast<int>(i));
        for (auto k = kids.rbegin(); k != kids.rend(); ++k)
            if (entries[static_cast<std::size_t>(*k)].folder)
                writeRows(*k, addRow(entries[static_cast<std::size_t>(*k)], parentId));
        for (int k : kids)
            if (!entries[static_cast<std::size_t>(k)].folder)
                addRow(entries[static_cast<std::size_t>(k)], parentId);
    };
    writeRows(-1, 0);
    if (SaveUsDB(CurUsDB, key) < 0)
        fail(output, 0, QStringLiteral("cannot be written"));
    std::printf("%s: %zu folders and records, password %s\n", output.toLocal8Bit().constData(),
                entries.size(), kSamplePassword);
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    ConnectDiagnostics();
    const QStringList args = QCoreApplication::arguments();
    if (args.size() != 3 || !args[2].endsWith(QLatin1String(".bdb"))) {
        std::fputs("Usage: mksample SOURCE OUTPUT.bdb\n", stderr);
        return 2;
    }
    int rc = 1;
    argent::diag::trapped([&] { rc = build(args[1], args[2]); });
    return rc;
}
