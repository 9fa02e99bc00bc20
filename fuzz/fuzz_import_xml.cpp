// libFuzzer target for the KeePass 2 XML import: any bytes as an export, read both from
// memory and as a file in small pieces; the two readings must agree.
//
// Build: see fuzz_loader.cpp. Run: build-fuzz/bin/fuzz_import_xml fuzz/corpus-import-xml

#include "fuzz/FuzzImport.h"

#include <QBuffer>

namespace {

// A device that hands out at most a few bytes a read, as a slow file would.
class Trickle : public QBuffer {
public:
    using QBuffer::QBuffer;

protected:
    qint64 readData(char* Data, qint64 Max) override {
        return QBuffer::readData(Data, std::min<qint64>(Max, 7));
    }
};

bool sameRows(const ImpData& A, const ImpData& B) {
    if (A.Rows.size() != B.Rows.size() || A.Notes != B.Notes)
        return false;
    for (qsizetype i = 0; i < A.Rows.size(); ++i) {
        const ImpRow &x = A.Rows[i], &y = B.Rows[i];
        if (x.Parent != y.Parent || x.Folder != y.Folder || x.Title != y.Title || x.Login != y.Login ||
            x.Password != y.Password || x.Desc != y.Desc || x.Flags != y.Flags || x.Image != y.Image)
            return false;
    }
    return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* Data, std::size_t Size) {
    fuzzInit();
    const QByteArray bytes(reinterpret_cast<const char*>(Data), static_cast<qsizetype>(Size));
    ImpData a, b;
    ImpError ea, eb;
    const bool okA = ParseImport(bytes, ImpFormat::KeePassXml, CsvMapping(), a, ea);
    checkImport(okA, a, ea);
    QByteArray copy = bytes;
    Trickle dev(&copy);
    dev.open(QIODevice::ReadOnly);
    const bool okB = ParseKeePassXmlFile(dev, b, eb, {});
    if (okA != okB || (okA && !sameRows(a, b)))
        __builtin_trap();
    return 0;
}
