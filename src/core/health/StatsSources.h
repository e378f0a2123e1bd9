#pragma once

#include "core/types/DiskUsage.h"

#include <QList>
#include <QString>
#include <functional>
#include <optional>

// What the sampler reads each pass, already parsed. The system's own sources come from
// the platform layer through the parsers in core; tests inject exact numbers instead.
struct CpuTicks
{
    quint64 user = 0;
    quint64 system = 0;
    quint64 idle = 0;
    quint64 nice = 0;
    // 32-bit kernel counters (macOS) wrap modulo 2^32; 64-bit ones (Linux) never wrap,
    // but a field may step backwards (iowait), which counts as no change.
    bool wraps32 = false;
};

struct BatteryReading
{
    bool present = false; // an internal battery was found
    int percent = 0;
    bool charging = false;
    bool onAC = false;
};

struct InterfaceCounters
{
    QString name;
    quint64 rx = 0;
    quint64 tx = 0;
};

struct StatsSources
{
    std::function<std::optional<CpuTicks>()> cpuTicks;
    // The kernel's level: 1 normal, 2 warning, 4 critical; anything else is no level.
    std::function<std::optional<int>()> memoryPressure;
    std::function<std::optional<qint64>()> memoryUsed;
    std::function<qint64()> memoryTotal;
    std::function<DiskUsage(const QString &path)> diskUsage;
    // nullopt when the power source list cannot be read or is empty.
    std::function<std::optional<BatteryReading>()> battery;
    // The counted interfaces only (Ethernet/Wi-Fi class); nullopt when listing fails.
    std::function<std::optional<QList<InterfaceCounters>>()> interfaces;
    // Monotonic clock in seconds, for the network rates.
    std::function<double()> now;

    // The running system's sources.
    static StatsSources system();
};
