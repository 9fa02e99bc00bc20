#pragma once

// Time stamps in nanoseconds, as the program compares and keeps them: a file's times from
// stat() and the clocks of clock_gettime() alike.

#include <QtGlobal>

#include <ctime>
#include <sys/stat.h>

inline qint64 TimeSpecNs(const timespec& Ts) {
    return static_cast<qint64>(Ts.tv_sec) * 1000000000LL + Ts.tv_nsec;
}

// The last change of the file's bytes.
inline qint64 FileMTimeNs(const struct stat& St) {
    return TimeSpecNs(St.st_mtim);
}

// The last change of the file's bytes or its entry (a rename included); no program can set it.
inline qint64 FileCTimeNs(const struct stat& St) {
    return TimeSpecNs(St.st_ctim);
}
