#pragma once

#include <QByteArray>
#include <QList>
#include <QMap>
#include <QString>
#include <QVariantMap>
#include <optional>

// The health sampler's raw inputs, exactly as the system hands them over. Every reader makes
// one cheap query per call and decides nothing: which lines, keys and interfaces count is
// for core's parsers, which pick the rules by each struct's format tag.
//
// `root` stands in for "/" in the readers that read files (Linux), so a test can point them
// at a fake tree; readers that query the kernel through calls (macOS) ignore it.
namespace Platform {

struct RawCpuTicks
{
    enum class Format { machCounters, procStat };
    Format format = Format::procStat;
    // machCounters: HOST_CPU_LOAD_INFO's 32-bit counters, summed over all processors.
    quint32 user = 0;
    quint32 system = 0;
    quint32 idle = 0;
    quint32 nice = 0;
    // procStat: the first line of /proc/stat, without its newline.
    QByteArray line;
};

struct RawMemory
{
    enum class Format { machPages, procMeminfo };
    Format format = Format::procMeminfo;
    // machPages: HOST_VM_INFO64's page counts and the kernel's page size in bytes.
    quint64 activePages = 0;
    quint64 wiredPages = 0;
    quint64 compressorPages = 0;
    quint64 pageSize = 0;
    // procMeminfo: the whole of /proc/meminfo.
    QByteArray text;
};

struct RawPressure
{
    enum class Format { kernelLevel, psi };
    Format format = Format::psi;
    // kernelLevel: kern.memorystatus_vm_pressure_level as the kernel gave it.
    int level = 0;
    // psi: /proc/pressure/memory; nullopt when the kernel keeps no pressure stall
    // information (built without it, or booted with psi=0).
    std::optional<QByteArray> text;
};

struct RawPowerSources
{
    enum class Format { ioKitDescriptions, sysfsSupplies };
    Format format = Format::sysfsSupplies;
    // ioKitDescriptions: one description per power source in the system's order; a source
    // without a description is an empty map. Text becomes QString, CFBoolean bool, integral
    // numbers qlonglong, other numbers double; nested values are left out.
    QList<QVariantMap> descriptions;
    // sysfsSupplies: one map per /sys/class/power_supply entry in name order, from each of
    // type, scope, capacity, status and online that exists to its trimmed text.
    QList<QMap<QString, QString>> supplies;
};

struct RawInterface
{
    QString name;
    // machLink: the interface's 64-bit byte counters (if_data64).
    quint64 rxBytes = 0;
    quint64 txBytes = 0;
    // sysfsStatistics: statistics/rx_bytes and tx_bytes as read.
    QByteArray rxText;
    QByteArray txText;
};

struct RawInterfaces
{
    enum class Format { machLink, sysfsStatistics };
    Format format = Format::sysfsStatistics;
    // machLink: every AF_LINK entry that carries interface data, in the system's order.
    // sysfsStatistics: every /sys/class/net entry with a `device` link, in name order; only
    // those are read, since software interfaces (loopback, bridges, veth, tunnels,
    // WireGuard) have none and never count.
    QList<RawInterface> interfaces;
};

// nullopt when the query fails or the file cannot be read.
std::optional<RawCpuTicks> readCpuTicks(const char *root = "");
std::optional<RawMemory> readMemory(const char *root = "");
// A missing PSI file is an answer (text nullopt), not a failure.
std::optional<RawPressure> readMemoryPressure(const char *root = "");
// nullopt when the list cannot be read or holds no power source at all.
std::optional<RawPowerSources> readPowerSources(const char *root = "");
// nullopt when the interfaces cannot be listed.
std::optional<RawInterfaces> readInterfaces(const char *root = "");

// Installed memory in bytes; 0 when unknown.
qint64 physicalMemory();

} // namespace Platform
