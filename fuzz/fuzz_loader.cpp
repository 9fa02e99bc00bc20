// libFuzzer target for the database file loader: any bytes as a whole file (signature,
// protection header, body) and as a plain body. A body that is accepted must come back
// unchanged through the writer: parse(write(parse(x))) == parse(x).
//
// Build with clang 15 or later (Debian 12: apt-get install clang-16 libclang-rt-16-dev):
//                    cmake -S . -B build-fuzz -G Ninja -DCMAKE_CXX_COMPILER=clang++-16 -DARGENT_FUZZ=ON
//                    cmake --build build-fuzz --target fuzz_loader
// Run:               build-fuzz/bin/fuzz_loader -max_total_time=300 fuzz/corpus

#include "storage/TableEngine.h"
#include "storage/TableFile.h"

#include <cstddef>
#include <cstdint>

namespace {

bool sameTables(const DatabaseRecord& a, const DatabaseRecord& b) {
    if (a.Name != b.Name || a.flags != b.flags || a.Version != b.Version || a.Tag != b.Tag ||
        a.TabNum() != b.TabNum() || a.HTabNum() != b.HTabNum())
        return false;
    for (int i = 0; i < a.TabNum(); ++i) {
        const TableEntry &x = a.Tables[i], &y = b.Tables[i];
        if (x.Name != y.Name || x.Flags != y.Flags || x.Tag != y.Tag || x.FldNames != y.FldNames ||
            x.FldTypes != y.FldTypes || x.Records != y.Records || x.Caption != y.Caption)
            return false;
    }
    for (int i = 0; i < a.HTabNum(); ++i) {
        const HelpTable &x = a.HTables[i], &y = b.HTables[i];
        if (x.Name != y.Name || x.Codes != y.Codes || x.Texts != y.Texts)
            return false;
    }
    return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* Data, std::size_t Size) {
    QByteArray file(reinterpret_cast<const char*>(Data), static_cast<qsizetype>(Size));
    DatabaseRecord whole;
    // No password: a protected file must be refused before any key is derived.
    const int r = ParseFileImage(file, QString(), whole, nullptr);
    if (r > 0 && !whole.Ready)
        __builtin_trap();

    DatabaseRecord body;
    if (ParseBody(QByteArray(reinterpret_cast<const char*>(Data), static_cast<qsizetype>(Size)), 0, body,
                  nullptr) > 0) {
        QByteArray again;
        WriteBody(again, body);
        DatabaseRecord back;
        if (ParseBody(again, 0, back, nullptr) <= 0 || !sameTables(body, back))
            __builtin_trap();
    }
    return 0;
}
