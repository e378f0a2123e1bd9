#include "core/words/HealthTiles.h"

#include "core/health/SystemStats.h"
#include "core/text/Fmt.h"
#include "core/text/L10n.h"

#include <cstdio>

using namespace Qt::StringLiterals;

namespace HealthTiles {
namespace {

// printf's own rounding (37.5 gives "38", 36.5 gives "36"), which Qt's formatting does not
// follow. Without a fraction no locale can change the text.
QString wholePercent(double value)
{
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, "%.0f%%", value);
    return QString::fromLatin1(buffer);
}

// free / total, taken as 0 for an unknown volume.
double freeRatio(const DiskUsage &disk)
{
    return disk.total >= 1 ? double(disk.free) / double(disk.total) : 0;
}

} // namespace

Snapshot fromStats(const SystemStats &stats)
{
    Snapshot s;
    s.cpuLoad = stats.cpuLoad();
    s.memoryUsed = stats.memoryUsed();
    s.memoryTotal = stats.memoryTotal();
    s.memoryPressure = stats.memoryPressure();
    s.disk = stats.disk();
    s.batteryPresent = stats.batteryPresent();
    s.batteryPercent = stats.batteryPercent();
    s.batteryCharging = stats.batteryCharging();
    s.batteryOnAC = stats.batteryOnAC();
    s.netUp = stats.netUp();
    s.netDown = stats.netDown();
    s.primaryInterface = stats.primaryInterface();
    return s;
}

HealthGrade grade(const Snapshot &snapshot)
{
    return SystemStats::gradeFor(snapshot.cpuLoad, snapshot.memoryPressure, snapshot.disk);
}

QString headingLabel()
{
    return L10n::pick(u"Mac Health:"_s, u"Mac 健康："_s);
}

QString computerLabel(const QString &systemName)
{
    const QString name = systemName.trimmed();
    return name.isEmpty() ? u"Mac"_s : name; // the same word in both languages
}

QString gradeWord(HealthGrade grade)
{
    switch (grade) {
    case HealthGrade::good:
        break;
    case HealthGrade::fair:
        return L10n::pick(u"Fair"_s, u"一般"_s);
    case HealthGrade::poor:
        return L10n::pick(u"Poor"_s, u"需处理"_s);
    }
    return L10n::pick(u"Good"_s, u"良好"_s);
}

QString pressureWord(MemoryPressureLevel level)
{
    switch (level) {
    case MemoryPressureLevel::normal:
        break;
    case MemoryPressureLevel::warning:
        return L10n::pick(u"Warning"_s, u"偏高"_s);
    case MemoryPressureLevel::critical:
        return L10n::pick(u"Critical"_s, u"严重"_s);
    }
    return L10n::pick(u"Normal"_s, u"正常"_s);
}

StatCard cpu(const Snapshot &s)
{
    return {
        u"cpu"_s,        u"CPU"_s,      wholePercent(s.cpuLoad), L10n::pick(u"load"_s, u"负载"_s),
        s.cpuLoad / 100, s.cpuLoad > 85};
}

StatCard memory(const Snapshot &s)
{
    const double ratio = s.memoryTotal >= 1 ? double(s.memoryUsed) / double(s.memoryTotal) : 0;
    return {u"memorychip"_s,
            L10n::pick(u"Memory"_s, u"内存"_s),
            pressureWord(s.memoryPressure),
            Fmt::bytes(s.memoryUsed) + u" / "_s + Fmt::bytes(s.memoryTotal),
            ratio,
            s.memoryPressure != MemoryPressureLevel::normal};
}

StatCard disk(const Snapshot &s)
{
    const double free = freeRatio(s.disk);
    return {u"internaldrive"_s,
            L10n::pick(u"Macintosh HD"_s, u"磁盘"_s),
            Fmt::bytes(s.disk.free),
            L10n::pick(u"available of"_s, u"可用，共"_s) + u' ' + Fmt::bytes(s.disk.total),
            1 - free,
            s.disk.total < 1 || free < 0.15};
}

StatCard battery(const Snapshot &s)
{
    if (!s.batteryPresent) {
        return {u"powerplug"_s,
                L10n::pick(u"Power"_s, u"电源"_s),
                L10n::pick(u"Desktop"_s, u"台式机"_s),
                L10n::pick(u"No battery"_s, u"无电池"_s),
                0,
                false};
    }
    QString sub;
    if (s.batteryCharging)
        sub = L10n::pick(u"Charging"_s, u"充电中"_s);
    else if (s.batteryOnAC)
        sub = L10n::pick(u"On power"_s, u"已接电源"_s);
    else
        sub = L10n::pick(u"On battery"_s, u"电池供电"_s);
    return {s.batteryOnAC ? u"battery.100percent.bolt"_s : u"battery.75percent"_s,
            L10n::pick(u"Battery"_s, u"电池"_s),
            QString::number(s.batteryPercent) + u'%',
            sub,
            s.batteryPercent / 100.0,
            s.batteryPercent < 20 && !s.batteryOnAC};
}

std::array<StatCard, 4> tiles(const Snapshot &snapshot)
{
    return {cpu(snapshot), memory(snapshot), disk(snapshot), battery(snapshot)};
}

NetworkLine network(const Snapshot &s)
{
    QString label = L10n::pick(u"Network"_s, u"网络"_s);
    if (!s.primaryInterface.isEmpty())
        label += u" · "_s + s.primaryInterface;
    return {u"network"_s,       label,           u"arrow.up"_s,
            Fmt::rate(s.netUp), u"arrow.down"_s, Fmt::rate(s.netDown)};
}

} // namespace HealthTiles
