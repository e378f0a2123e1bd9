#include "core/health/SystemStats.h"

#include "platform/Volume.h"

#include <QTimer>
#include <algorithm>
#include <cmath>

using namespace Qt::StringLiterals;

namespace {

bool operator!=(const DiskUsage &a, const DiskUsage &b)
{
    return a.total != b.total || a.free != b.free;
}

// Never zero (a pass on every turn of the event loop) and never past QTimer's range.
int timerMilliseconds(double seconds)
{
    if (!(seconds * 1000 >= 1)) // NaN too
        return 1;
    return int(std::lround(std::min(seconds * 1000, 2e9)));
}

} // namespace

SystemStats &SystemStats::shared()
{
    static SystemStats *instance = new SystemStats; // lives as long as the process
    return *instance;
}

SystemStats::SystemStats(StatsSources sources, QObject *parent)
    : QObject(parent), m_sources(std::move(sources))
{
    if (m_sources.memoryTotal)
        m_memoryTotal = m_sources.memoryTotal();
}

template <class T> void SystemStats::set(T &field, const T &value)
{
    if (field != value) {
        field = value;
        m_dirty = true;
    }
}

HealthGrade SystemStats::grade() const
{
    return gradeFor(m_cpuLoad, m_memoryPressure, m_disk);
}

void SystemStats::start(double intervalSeconds)
{
    if (m_timer)
        return;
    // Set before the first pass, so a start from inside a changed() handler is ignored too.
    m_timer = new QTimer(this);
    samplePass();
    m_timer->setInterval(timerMilliseconds(intervalSeconds));
    connect(m_timer, &QTimer::timeout, this, &SystemStats::samplePass);
    m_timer->start();
}

void SystemStats::samplePass()
{
    m_dirty = false;
    set(m_cpuLoad, cpuSample());
    memorySample();
    if (m_sources.diskUsage)
        set(m_disk, m_sources.diskUsage(u"/"_s));
    batterySample();
    networkSample();
    if (m_dirty)
        Q_EMIT changed();
}

quint64 SystemStats::tickDifference(quint64 now, quint64 before, bool wraps32)
{
    if (wraps32)
        return quint32(now - before);
    return now >= before ? now - before : 0;
}

double SystemStats::cpuSample()
{
    const std::optional<CpuTicks> ticks = m_sources.cpuTicks ? m_sources.cpuTicks() : std::nullopt;
    if (!ticks)
        return m_cpuLoad;
    if (!m_lastCPU) {
        m_lastCPU = ticks;
        return 0;
    }
    const auto delta = [&](quint64 CpuTicks::*field) {
        return tickDifference((*ticks).*field, (*m_lastCPU).*field, ticks->wraps32);
    };
    const quint64 busy = delta(&CpuTicks::user) + delta(&CpuTicks::system) + delta(&CpuTicks::nice);
    const quint64 total = busy + delta(&CpuTicks::idle);
    m_lastCPU = ticks;
    if (total == 0)
        return m_cpuLoad;
    return double(busy) / double(total) * 100.0;
}

void SystemStats::memorySample()
{
    if (m_sources.memoryPressure) {
        if (const auto raw = m_sources.memoryPressure()) {
            if (const auto level = memoryPressureLevelFromRaw(*raw))
                set(m_memoryPressure, *level);
        }
    }
    if (m_sources.memoryUsed) {
        if (const auto used = m_sources.memoryUsed())
            set(m_memoryUsed, *used);
    }
}

void SystemStats::batterySample()
{
    const std::optional<BatteryReading> reading =
        m_sources.battery ? m_sources.battery() : std::nullopt;
    // No list, or a list without an internal battery (a UPS alone): the other figures keep
    // their last values.
    if (!reading || !reading->present) {
        set(m_batteryPresent, false);
        return;
    }
    set(m_batteryPresent, true);
    set(m_batteryPercent, reading->percent);
    set(m_batteryCharging, reading->charging);
    set(m_batteryOnAC, reading->onAC);
}

void SystemStats::networkSample()
{
    const auto list = m_sources.interfaces ? m_sources.interfaces() : std::nullopt;
    if (!list || list->isEmpty())
        return;
    quint64 rx = 0;
    quint64 tx = 0;
    quint64 best = 0;
    QString primary;
    for (const InterfaceCounters &counters : *list) {
        rx += counters.rx;
        tx += counters.tx;
        if (const quint64 both = counters.rx + counters.tx; both > best) {
            best = both;
            primary = counters.name;
        }
    }
    const double now = m_sources.now ? m_sources.now() : 0;
    // A total that went down (a wrapped counter, an interface gone) measures nothing this
    // time; the stored sample below lets the next pass measure again.
    if (m_lastNet && rx >= m_lastNet->rx && tx >= m_lastNet->tx) {
        const double dt = now - m_lastNet->t;
        if (dt > 0) {
            set(m_netDown, double(rx - m_lastNet->rx) / dt);
            set(m_netUp, double(tx - m_lastNet->tx) / dt);
        }
    }
    m_lastNet = NetSample{rx, tx, now};
    if (!primary.isEmpty())
        set(m_primaryInterface, primary);
}

HealthGrade SystemStats::gradeFor(double cpuLoad, MemoryPressureLevel pressure, DiskUsage disk)
{
    const double ratio = disk.total >= 1 ? double(disk.free) / double(disk.total) : 0;
    if (ratio < 0.05 || pressure == MemoryPressureLevel::critical)
        return HealthGrade::poor;
    if (ratio < 0.15 || pressure == MemoryPressureLevel::warning || cpuLoad > 85)
        return HealthGrade::fair;
    return HealthGrade::good;
}
