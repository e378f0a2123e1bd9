#include "core/health/StatsSources.h"

#include "core/health/SourceParsers.h"
#include "core/health/SystemStats.h"
#include "platform/HealthSources.h"

#include <chrono>

StatsSources StatsSources::system()
{
    StatsSources sources;
    sources.cpuTicks = []() -> std::optional<CpuTicks> {
        const auto raw = Platform::readCpuTicks();
        return raw ? SourceParsers::cpuTicks(*raw) : std::nullopt;
    };
    sources.memoryPressure = []() -> std::optional<int> {
        const auto raw = Platform::readMemoryPressure();
        return raw ? SourceParsers::memoryPressure(*raw) : std::nullopt;
    };
    sources.memoryUsed = []() -> std::optional<qint64> {
        const auto raw = Platform::readMemory();
        return raw ? SourceParsers::memoryUsed(*raw) : std::nullopt;
    };
    sources.memoryTotal = [] { return Platform::physicalMemory(); };
    sources.diskUsage = [](const QString &path) { return DiskUsage::of(path); };
    sources.battery = []() -> std::optional<BatteryReading> {
        const auto raw = Platform::readPowerSources();
        return raw ? SourceParsers::battery(*raw) : std::nullopt;
    };
    sources.interfaces = []() -> std::optional<QList<InterfaceCounters>> {
        const auto raw = Platform::readInterfaces();
        if (!raw)
            return std::nullopt;
        return SourceParsers::interfaces(*raw);
    };
    // Only differences matter, and they must not jump when the wall clock is set.
    sources.now = [] {
        const auto since = std::chrono::steady_clock::now().time_since_epoch();
        return std::chrono::duration<double>(since).count();
    };
    return sources;
}
