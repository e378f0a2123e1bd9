#pragma once

#include "core/health/HealthTypes.h"
#include "core/health/StatsSources.h"
#include "core/types/DiskUsage.h"

#include <QObject>
#include <QString>
#include <optional>

class QTimer;

// The machine's health figures, sampled at a fixed interval for the menu-bar panel.
// Every published field is written on the main thread; one `changed()` follows a pass
// that changed anything. A source that fails leaves its figures as they were.
class SystemStats final : public QObject
{
    Q_OBJECT

public:
    // The application's instance, created at first use on the system's sources.
    static SystemStats &shared();

    // Reads the memory total once, here; nothing else is read before the first pass.
    explicit SystemStats(StatsSources sources = StatsSources::system(), QObject *parent = nullptr);

    double cpuLoad() const { return m_cpuLoad; } // percent, 0–100, over the last interval
    qint64 memoryUsed() const { return m_memoryUsed; }
    MemoryPressureLevel memoryPressure() const { return m_memoryPressure; }
    qint64 memoryTotal() const { return m_memoryTotal; }
    DiskUsage disk() const { return m_disk; } // the startup volume
    bool batteryPresent() const { return m_batteryPresent; }
    int batteryPercent() const { return m_batteryPercent; }
    bool batteryCharging() const { return m_batteryCharging; }
    bool batteryOnAC() const { return m_batteryOnAC; }
    double netUp() const { return m_netUp; } // bytes per second
    double netDown() const { return m_netDown; }
    const QString &primaryInterface() const { return m_primaryInterface; }
    HealthGrade grade() const;

    // Main thread only. Takes one pass at once, then one per interval for as long as the
    // object lives. Once started, later calls change nothing, not even the interval.
    void start(double intervalSeconds);
    bool started() const { return m_timer != nullptr; }

    // One sampling pass: CPU, memory, disk, battery, network, in that order. The timer's
    // action; public so that the command line and tests can drive passes themselves.
    void samplePass();

    // First matching rule: under 5 % free disk or critical pressure is poor; under 15 %
    // free, warning pressure or a load above 85 is fair. An unknown disk is poor.
    static HealthGrade gradeFor(double cpuLoad, MemoryPressureLevel pressure, DiskUsage disk);

    // Ticks counted between two samples of one counter. 32-bit counters wrap, so the
    // difference is taken modulo 2^32; a 64-bit counter that stepped back counts none.
    static quint64 tickDifference(quint64 now, quint64 before, bool wraps32);

Q_SIGNALS:
    void changed();

private:
    struct NetSample
    {
        quint64 rx = 0;
        quint64 tx = 0;
        double t = 0;
    };

    double cpuSample();
    void memorySample();
    void batterySample();
    void networkSample();
    template <class T> void set(T &field, const T &value);

    StatsSources m_sources;
    QTimer *m_timer = nullptr;
    std::optional<CpuTicks> m_lastCPU;
    std::optional<NetSample> m_lastNet;
    bool m_dirty = false;

    double m_cpuLoad = 0;
    qint64 m_memoryUsed = 0;
    MemoryPressureLevel m_memoryPressure = MemoryPressureLevel::normal;
    qint64 m_memoryTotal = 0;
    DiskUsage m_disk;
    bool m_batteryPresent = false;
    int m_batteryPercent = 0;
    bool m_batteryCharging = false;
    bool m_batteryOnAC = false;
    double m_netUp = 0;
    double m_netDown = 0;
    QString m_primaryInterface;
};
