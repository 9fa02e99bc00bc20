#include "app/modTimer.h"

#include "diagnostics/Hookup.h"
#include "diagnostics/Trace.h"

double GetQueryPerf() {
    TRACE_PROC("modTimer.GetQueryPerf");
    return argent::diag::MonotonicSeconds();
}
