#pragma once

#include <QtGlobal>
#include <sys/resource.h>

// The most memory this process has held resident since it started, in MiB. A high-water
// mark: tests that bound it must run before anything that legitimately needs more.
inline qint64 peakResidentMiB()
{
    rusage usage{};
    if (::getrusage(RUSAGE_SELF, &usage) != 0)
        return -1;
#ifdef Q_OS_DARWIN
    return usage.ru_maxrss / (1024 * 1024); // bytes there
#else
    return usage.ru_maxrss / 1024; // KiB elsewhere
#endif
}
