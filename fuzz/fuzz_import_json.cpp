// libFuzzer target for the Bitwarden JSON import: any bytes as an export.
//
// Build: see fuzz_loader.cpp. Run: build-fuzz/bin/fuzz_import_json fuzz/corpus-import-json

#include "fuzz/FuzzImport.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* Data, std::size_t Size) {
    fuzzInit();
    const QByteArray bytes(reinterpret_cast<const char*>(Data), static_cast<qsizetype>(Size));
    ImpData d;
    ImpError e;
    const bool ok = ParseImport(bytes, ImpFormat::BitwardenJson, CsvMapping(), d, e);
    checkImport(ok, d, e);
    for (int n : d.Dropped)
        if (n < 0)
            __builtin_trap();
    return 0;
}
