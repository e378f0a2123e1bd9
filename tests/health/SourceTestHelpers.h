#pragma once

#include "core/health/SourceParsers.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStringList>
#include <optional>

// Helpers both parser test executables use: readings as one comparable line, sysfs supply
// folders written as "key=value" text, and a Mac battery's description.
namespace SourceTest {

using namespace Qt::StringLiterals;

inline QString describe(const std::optional<CpuTicks> &ticks)
{
    if (!ticks)
        return u"none"_s;
    return u"%1 %2 %3 %4"_s.arg(ticks->user).arg(ticks->nice).arg(ticks->system).arg(ticks->idle) +
           (ticks->wraps32 ? u" wraps"_s : QString());
}

inline QString describe(const std::optional<BatteryReading> &reading)
{
    if (!reading)
        return u"none"_s;
    if (!reading->present)
        return u"absent"_s;
    return u"%1%"_s.arg(reading->percent) + (reading->charging ? u" charging"_s : QString()) +
           (reading->onAC ? u" AC"_s : QString());
}

inline QString describe(const QList<InterfaceCounters> &counters)
{
    QStringList parts;
    for (const InterfaceCounters &entry : counters)
        parts << u"%1 %2 %3"_s.arg(entry.name).arg(entry.rx).arg(entry.tx);
    return parts.join(u", ");
}

// "type=Battery scope=Device" → the map a sysfs supply folder reads as.
inline QMap<QString, QString> supply(const QString &line)
{
    QMap<QString, QString> map;
    for (const QString &pair : line.split(u' ', Qt::SkipEmptyParts))
        map.insert(pair.section(u'=', 0, 0), pair.section(u'=', 1));
    return map;
}

inline QList<QMap<QString, QString>> supplies(const QStringList &lines)
{
    QList<QMap<QString, QString>> list;
    for (const QString &line : lines)
        list << supply(line);
    return list;
}

inline bool writeFile(const QString &path, const QByteArray &bytes)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

inline const QVariantMap kMacBattery{{u"Type"_s, u"InternalBattery"_s},
                                     {u"Name"_s, u"InternalBattery-0"_s},
                                     {u"Transport Type"_s, u"Internal"_s},
                                     {u"Current Capacity"_s, qlonglong(73)},
                                     {u"Max Capacity"_s, qlonglong(100)},
                                     {u"Is Charging"_s, false},
                                     {u"Power Source State"_s, u"Battery Power"_s}};

} // namespace SourceTest
