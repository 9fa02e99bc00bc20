// libFuzzer target for the CSV imports: the first byte chooses the dialect (detected,
// KeePassXC, browser, LastPass, KeePass 1, or generic with a mapping from the second
// byte), the rest is the file.
//
// Build: see fuzz_loader.cpp. Run: build-fuzz/bin/fuzz_import_csv fuzz/corpus-import-csv

#include "fuzz/FuzzImport.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* Data, std::size_t Size) {
    fuzzInit();
    if (Size < 2)
        return 0;
    static const ImpFormat kFormats[] = {ImpFormat::Detect,      ImpFormat::KeePassXcCsv,
                                         ImpFormat::BrowserCsv,  ImpFormat::LastPassCsv,
                                         ImpFormat::KeePass1Csv, ImpFormat::GenericCsv};
    const ImpFormat format = kFormats[Data[0] % std::size(kFormats)];
    CsvMapping map;
    if (format == ImpFormat::GenericCsv && (Data[1] & 0x80)) {
        // Columns from the second byte, some of them beyond the header.
        map.Title = Data[1] & 3;
        map.Password = (Data[1] >> 2) & 7;
        map.Group = (Data[1] & 0x40) ? 1 : -1;
    }
    const QByteArray bytes(reinterpret_cast<const char*>(Data + 2), static_cast<qsizetype>(Size - 2));
    ImpData d;
    ImpError e;
    const bool ok = ParseImport(bytes, format, map, d, e);
    checkImport(ok, d, e);
    // The header the window offers for the mapping never fails on the same bytes.
    (void)ReadCsvHeader(bytes);
    return 0;
}
