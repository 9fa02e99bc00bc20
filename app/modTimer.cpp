#include "app/modTimer.h"

#include "diagnostics/Trace.h"

#include <time.h>

double GetQueryPerf() {
    TRACE_PROC("modTimer.GetQueryPerf");
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) / 1e9;
}
