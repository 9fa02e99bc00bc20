#include "diagnostics/Hookup.h"

#include <time.h>

namespace argent::diag {

namespace {
// Made on first use, so that a static initialiser of any other file may hand it over.
Hookup& links() {
    static Hookup h;
    return h;
}
} // namespace

void SetHookup(Hookup Links) {
    links() = std::move(Links);
}

const Hookup& hookup() {
    return links();
}

double MonotonicSeconds() {
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) / 1e9;
}

} // namespace argent::diag
