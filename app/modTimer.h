#pragma once

// Seconds of a monotonic clock (the program's high-resolution performance counter).
double GetQueryPerf();
