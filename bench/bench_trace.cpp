// Cost of tracing: a million calls of a small procedure with two scalar and one string
// parameter, untraced, traced, and traced with two locals declared for the report.

#include "diagnostics/Trace.h"

#include <QElapsedTimer>
#include <QString>

#include <cstdio>

namespace {

volatile long long g_sink = 0;

[[gnu::noinline]] long long plain(int pCount, double pRate, const QString& pName) {
    return pCount + static_cast<long long>(pRate) + pName.size();
}

[[gnu::noinline]] long long traced(int pCount, double pRate, const QString& pName) {
    TRACE_PROC("modBench.Traced", pCount, pRate, pName);
    return pCount + static_cast<long long>(pRate) + pName.size();
}

[[gnu::noinline]] long long tracedLocals(int pCount, double pRate, const QString& pName) {
    TRACE_PROC("modBench.TracedLocals", pCount, pRate, pName);
    const long long whole = static_cast<long long>(pRate);
    TRACE_LOCAL(whole);
    const qsizetype length = pName.size();
    TRACE_LOCAL(length);
    return pCount + whole + length;
}

template <class F> double run(F f, int n, const QString& name) {
    QElapsedTimer t;
    t.start();
    for (int i = 0; i < n; ++i)
        g_sink = g_sink + f(i, 1.5, name);
    return static_cast<double>(t.nsecsElapsed()) / n;
}

} // namespace

int main() {
    const int n = 1000000;
    const QString name = QStringLiteral("a record title of moderate length");
    double best_plain = 1e9, best_traced = 1e9, best_locals = 1e9;
    for (int round = 0; round < 5; ++round) {
        best_plain = std::min(best_plain, run(plain, n, name));
        best_traced = std::min(best_traced, run(traced, n, name));
        best_locals = std::min(best_locals, run(tracedLocals, n, name));
    }
    std::printf("calls: %d (best of 5 rounds)\n", n);
    std::printf("untraced: %.1f ns/call\n", best_plain);
    std::printf("traced:   %.1f ns/call\n", best_traced);
    std::printf("traced with 2 locals: %.1f ns/call\n", best_locals);
    std::printf("overhead: %.1f ns/call, ratio %.1fx; per declared local %.1f ns\n", best_traced - best_plain,
                best_traced / best_plain, (best_locals - best_traced) / 2);
    return 0;
}
