// The cost of the health sampler on the running system, so bench/stats.sh can set it
// beside vmstat's cost per report. Plain "key value" lines; nothing here is for people.
#include "core/health/SystemStats.h"

#include <algorithm>
#include <cstdio>
#include <sys/resource.h>
#include <unistd.h>
#include <vector>
#if defined(__GLIBC__)
#include <malloc.h>
#endif

namespace {

constexpr int kWarmUp = 200;
constexpr int kBatches = 20;
constexpr int kPassesPerBatch = 500;
constexpr int kMemoryPasses = 10'000;

// User plus system time of this process in microseconds. Linux derives it from the
// scheduler's exact run time, so a batch of a few milliseconds measures well.
long long cpuMicros()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return (usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) * 1'000'000LL + usage.ru_utime.tv_usec +
           usage.ru_stime.tv_usec;
}

// Resident size now (not the peak), in KiB; -1 where /proc is missing.
long long residentKiB()
{
    std::FILE *file = std::fopen("/proc/self/statm", "r");
    if (!file)
        return -1;
    long long size = 0;
    long long resident = -1;
    if (std::fscanf(file, "%lld %lld", &size, &resident) != 2)
        resident = -1;
    std::fclose(file);
    return resident < 0 ? -1 : resident * (sysconf(_SC_PAGESIZE) / 1024);
}

// Bytes the allocator has handed out and not taken back: exact, where the resident size
// moves in steps of the kernel's per-CPU counter batches. -1 outside glibc.
long long heapInUse()
{
#if defined(__GLIBC__)
    return (long long)mallinfo2().uordblks;
#else
    return -1;
#endif
}

void line(const char *key, double value)
{
    std::printf("%s %.3f\n", key, value);
}

} // namespace

int main(int argc, char **)
{
    if (argc != 1) {
        std::fputs("usage: quorvel-statsbench\n"
                   "Times sampling passes on this machine's own sources and prints\n"
                   "\"key value\" lines: CPU microseconds per pass (median and spread of\n"
                   "20 batches of 500), resident KiB and heap bytes in use around 10,000\n"
                   "more passes.\n",
                   stderr);
        return 2;
    }
    SystemStats stats(StatsSources::system());
    // Every source has to answer, or the passes would be cheap for the wrong reason.
    stats.samplePass();
    if (stats.memoryTotal() <= 0 || stats.disk().total <= 0) {
        std::fputs("quorvel-statsbench: the system's sources did not answer\n", stderr);
        return 1;
    }
    for (int i = 0; i < kWarmUp; ++i)
        stats.samplePass();

    std::vector<double> perPass;
    for (int b = 0; b < kBatches; ++b) {
        const long long start = cpuMicros();
        for (int i = 0; i < kPassesPerBatch; ++i)
            stats.samplePass();
        perPass.push_back(double(cpuMicros() - start) / kPassesPerBatch);
    }
    std::sort(perPass.begin(), perPass.end());
    line("pass_us_median", (perPass[kBatches / 2 - 1] + perPass[kBatches / 2]) / 2);
    line("pass_us_min", perPass.front());
    line("pass_us_max", perPass.back());

    const long long before = residentKiB();
    const long long heapBefore = heapInUse();
    for (int i = 0; i < kMemoryPasses; ++i)
        stats.samplePass();
    const long long heapAfter = heapInUse();
    const long long after = residentKiB();
    std::printf("rss_kib_before %lld\nrss_kib_after %lld\nheap_bytes_before %lld\n"
                "heap_bytes_after %lld\nmemory_passes %d\n",
                before, after, heapBefore, heapAfter, kMemoryPasses);
    return 0;
}
