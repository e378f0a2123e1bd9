#pragma once

#include "core/health/StatsSources.h"

#include <QStringList>
#include <optional>

constexpr qint64 GB = 1'000'000'000;

// The sources as plain values the test sets before each pass; every read is counted.
struct Fake
{
    std::optional<CpuTicks> ticks;
    std::optional<int> pressure;
    std::optional<qint64> used;
    qint64 total = 16 * GB;
    DiskUsage disk{1000 * GB, 500 * GB};
    std::optional<BatteryReading> battery;
    std::optional<QList<InterfaceCounters>> interfaces;
    double clock = 0;
    int cpuReads = 0;
    int totalReads = 0;
    QStringList diskPaths;

    StatsSources sources()
    {
        StatsSources s;
        s.cpuTicks = [this] { return ++cpuReads, ticks; };
        s.memoryPressure = [this] { return pressure; };
        s.memoryUsed = [this] { return used; };
        s.memoryTotal = [this] { return ++totalReads, total; };
        s.diskUsage = [this](const QString &path) { return diskPaths.append(path), disk; };
        s.battery = [this] { return battery; };
        s.interfaces = [this] { return interfaces; };
        s.now = [this] { return clock; };
        return s;
    }
};
