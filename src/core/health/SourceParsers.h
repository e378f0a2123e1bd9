#pragma once

#include "core/health/StatsSources.h"
#include "platform/HealthSources.h"

#include <QByteArrayView>
#include <QList>
#include <QMap>
#include <QVariantMap>
#include <optional>

// What the system's raw answers mean. Pure functions, so both systems' rules are tested on
// captured text and dictionaries wherever the tests run. nullopt means the input was not
// understood and the sampler keeps its previous figure.
namespace SourceParsers {

// /proc/stat (its first line is enough): the aggregate "cpu" line's ticks, with irq, softirq
// and steal counted as system time and iowait as idle. Guest time is already inside user and
// nice, so it is not added again. Four to ten columns are understood; later ones are ignored.
std::optional<CpuTicks> procStatCpu(QByteArrayView text);

// /proc/meminfo: MemTotal − MemAvailable, in bytes.
std::optional<qint64> meminfoUsed(QByteArrayView text);

// /proc/pressure/memory mapped onto the kernel levels 1 (normal), 2 (warning), 4 (critical).
std::optional<int> psiLevel(QByteArrayView text);

// The sysctl's value when it is one of the kernel levels 1, 2 or 4.
std::optional<int> kernelPressureLevel(int level);

// (active + wired + compressor pages) × page size. Free, inactive, speculative and
// purgeable pages are memory the system can hand out at once, so they are not "used".
std::optional<qint64> machMemoryUsed(quint64 activePages, quint64 wiredPages,
                                     quint64 compressorPages, quint64 pageSize);

// The first description whose "Type" is "InternalBattery", in list order; present false
// when there is none, nullopt when the list is empty.
std::optional<BatteryReading> batteryFromDescriptions(const QList<QVariantMap> &descriptions);

// The first internal battery in the given (name) order: type Battery and a scope other than
// Device. On AC when a system Mains or USB supply is online. nullopt when the list is empty.
std::optional<BatteryReading> batteryFromSupplies(const QList<QMap<QString, QString>> &supplies);

// Link-level entries: only Ethernet, Wi-Fi and Thunderbolt bridge ("en*", "bridge*") count.
QList<InterfaceCounters> linkInterfaces(const QList<Platform::RawInterface> &entries);

// sysfs statistics: every entry counts (the reader lists hardware interfaces only); one
// whose counters are not plain numbers is left out.
QList<InterfaceCounters> sysfsInterfaces(const QList<Platform::RawInterface> &entries);

// The raw readers' answers, each through the parser its format names.
std::optional<CpuTicks> cpuTicks(const Platform::RawCpuTicks &raw);
std::optional<qint64> memoryUsed(const Platform::RawMemory &raw);
// No PSI on the machine reads as normal: such a kernel has no pressure figure to report.
std::optional<int> memoryPressure(const Platform::RawPressure &raw);
std::optional<BatteryReading> battery(const Platform::RawPowerSources &raw);
QList<InterfaceCounters> interfaces(const Platform::RawInterfaces &raw);

} // namespace SourceParsers
