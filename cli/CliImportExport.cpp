// argentpm import and export: files of other password managers in, KeePass XML or
// KeePassXC CSV out. The work is done by the same routines as the window's File menu.

#include "cli/CliCommands.h"
#include "cli/CliShared.h"

#include "app/VbConv.h"
#include "diagnostics/Trace.h"
#include "records/ImportExport.h"
#include "records/RecordTree.h"
#include "storage/clsDatabase.h"
#include "users/UserAccounts.h"

#include <QFile>
#include <QFileInfo>

#include <sodium.h>

#include <cstdio>

using namespace cli;

namespace {

QString plural(int N, const char* One, const char* Many) {
    return QString::number(N) + u' ' + QLatin1String(N == 1 ? One : Many);
}

} // namespace

int CmdImport(const CliOptions& Opt, const QStringList& Args) {
    TRACE_PROC("modCli.CmdImport", Args);
    bool known = true;
    const ImpFormat format = ImpFormatFromName(Opt.value("format", QStringLiteral("detect")), &known);
    if (!known)
        return usage(Opt, QStringLiteral("unknown format %1").arg(quoted(Opt.value("format"))));
    QString into = QStringLiteral("0");
    if (Opt.has("into") && !ParseIndNum(Opt.value("into"), into))
        return usage(Opt, QStringLiteral("--into takes a folder identifier"));

    // The file is read and understood before the user is even opened. Its size is
    // checked before it is read (ReadImportFile), and only its start is needed here.
    const QString path = Args[1];
    QFile f(path);
    if (!QFileInfo(path).isFile() || !f.open(QIODevice::ReadOnly)) {
        say(QStringLiteral("%1 cannot be read; nothing was imported").arg(path));
        return cliFailed;
    }
    CsvMapping map;
    if (Opt.has("map")) {
        QString bad;
        if (!ParseCsvMapping(Opt.value("map"), ReadCsvHeader(f.read(1 << 16)), map, bad))
            return usage(
                Opt, QStringLiteral("--map: %1 names no field or no column of the header").arg(quoted(bad)));
    }
    f.close();
    ImpData data;
    ImpError err;
    if (!ReadImportFile(path, format, map, data, err)) {
        say(QStringLiteral("%1: %2; nothing was imported").arg(path, err.Text()));
        return cliFailed;
    }

    if (int rc = openUserForChange(Opt, Args[0]))
        return rc;
    if (int rc = existingFolder(into))
        return rc;
    const QString id = ImportIntoDB(data, into, ImportFolderName(path), nullptr, err);
    if (id.isEmpty()) {
        say(err.Text() + QStringLiteral("; nothing was imported"));
        return cliRefused;
    }
    // The rows are in the database now: their copies go before the save needs its memory.
    data.Rows = QList<ImpRow>();
    if (int rc = saveUserChange())
        return rc;
    std::printf("%s\nImported %s and %s (%s) into folder %s.\n", id.toUtf8().constData(),
                plural(data.Folders, "folder", "folders").toUtf8().constData(),
                plural(data.Records, "record", "records").toUtf8().constData(),
                ImpFormatName(data.Format).toUtf8().constData(), id.toUtf8().constData());
    for (const QString& line : ImpDroppedText(data))
        std::printf("%s.\n", line.toUtf8().constData());
    return cliOk;
}

int CmdExport(const CliOptions& Opt, const QStringList& Args) {
    TRACE_PROC("modCli.CmdExport", Args);
    const QString fmt = Opt.value("format", QStringLiteral("xml")).toLower();
    if (fmt != QLatin1String("xml") && fmt != QLatin1String("csv"))
        return usage(Opt, QStringLiteral("--format takes xml or csv"));
    QString folder = QStringLiteral("0");
    if (Opt.has("folder") && !ParseIndNum(Opt.value("folder"), folder))
        return usage(Opt, QStringLiteral("--folder takes a folder identifier"));
    const QString out = Opt.value("output");
    if (Opt.has("output") && out.isEmpty())
        return usage(Opt, QStringLiteral("-o takes a file name"));

    if (int rc = openUser(Opt, Args[0]))
        return rc;
    int tbl;
    if (int rc = dataTable(tbl))
        return rc;
    if (int rc = existingFolder(folder))
        return rc;
    ExpCounts counts;
    QByteArray bytes = ExportRecordTree(
        *CurUsDB, folder, fmt == QLatin1String("csv") ? ExpFormat::KeePassXcCsv : ExpFormat::KeePassXml,
        &counts);
    // The bytes hold every password in plain text: wiped once written.
    struct Wipe {
        QByteArray& b;
        ~Wipe() { sodium_memzero(b.data(), static_cast<std::size_t>(b.size())); }
    } wipe{bytes};
    if (out.isEmpty()) {
        writeOut(bytes);
        return cliOk;
    }
    QString why;
    if (!WriteExportFile(out, bytes, why)) {
        say(QStringLiteral("%1 could not be written (%2); a file that was there is unchanged").arg(out, why));
        return cliFailed;
    }
    std::printf("Exported %s and %s to %s.\n",
                plural(counts.Folders, "folder", "folders").toUtf8().constData(),
                plural(counts.Records, "record", "records").toUtf8().constData(), out.toUtf8().constData());
    return cliOk;
}
