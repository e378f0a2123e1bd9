#include "core/health/SourceParsers.h"

#include <QtNumeric>
#include <algorithm>
#include <cmath>
#include <limits>

using namespace Qt::StringLiterals;

namespace SourceParsers {

namespace {

bool isBlank(char c)
{
    return c == ' ' || c == '\t' || c == '\r';
}

// The next line of `rest`, consuming it and its newline.
QByteArrayView takeLine(QByteArrayView &rest)
{
    const qsizetype end = rest.indexOf('\n');
    const QByteArrayView line = end < 0 ? rest : rest.first(end);
    rest = end < 0 ? QByteArrayView() : rest.sliced(end + 1);
    return line;
}

// The next blank-separated word of `rest`, consuming it; empty at the end.
QByteArrayView takeWord(QByteArrayView &rest)
{
    qsizetype start = 0;
    while (start < rest.size() && isBlank(rest.at(start)))
        ++start;
    qsizetype end = start;
    while (end < rest.size() && !isBlank(rest.at(end)))
        ++end;
    const QByteArrayView word = rest.sliced(start, end - start);
    rest = rest.sliced(end);
    return word;
}

// Digits only: the kernel never writes a sign, spaces or another base in these counters.
std::optional<quint64> decimal(QByteArrayView word)
{
    if (word.isEmpty() ||
        !std::all_of(word.begin(), word.end(), [](char c) { return c >= '0' && c <= '9'; }))
        return std::nullopt;
    bool ok = false;
    const quint64 value = word.toULongLong(&ok);
    return ok ? std::optional<quint64>(value) : std::nullopt;
}

// Numbers only: the platform hands integers over as qlonglong and other numbers as double.
// Text and Booleans are a source describing itself wrongly, not a count.
std::optional<qint64> integerValue(const QVariant &value)
{
    const int type = value.typeId();
    if (type == QMetaType::LongLong || type == QMetaType::Int)
        return value.toLongLong();
    if (type != QMetaType::Double)
        return std::nullopt;
    const double number = value.toDouble();
    if (!std::isfinite(number) || number != std::trunc(number) || std::abs(number) > 1e15)
        return std::nullopt;
    return qint64(number);
}

int percentFrom(std::optional<qint64> value)
{
    return value ? int(std::clamp<qint64>(*value, 0, 100)) : 0;
}

bool isText(const QVariant &value, QStringView expected)
{
    return value.typeId() == QMetaType::QString && value.toString() == expected;
}

} // namespace

std::optional<CpuTicks> procStatCpu(QByteArrayView text)
{
    QByteArrayView line = takeLine(text);
    if (takeWord(line) != "cpu")
        return std::nullopt;
    // user nice system idle iowait irq softirq steal guest guest_nice
    quint64 column[10] = {};
    int count = 0;
    for (QByteArrayView word = takeWord(line); !word.isEmpty() && count < 10;
         word = takeWord(line)) {
        const std::optional<quint64> value = decimal(word);
        if (!value)
            return std::nullopt;
        column[count++] = *value;
    }
    if (count < 4)
        return std::nullopt;
    CpuTicks ticks;
    ticks.user = column[0];
    ticks.nice = column[1];
    ticks.system = column[2] + column[5] + column[6] + column[7];
    ticks.idle = column[3] + column[4];
    ticks.wraps32 = false;
    return ticks;
}

std::optional<qint64> meminfoUsed(QByteArrayView text)
{
    std::optional<quint64> totalKiB;
    std::optional<quint64> availableKiB;
    while (!text.isEmpty() && !(totalKiB && availableKiB)) {
        QByteArrayView line = takeLine(text);
        const QByteArrayView key = takeWord(line);
        std::optional<quint64> *target = key == "MemTotal:"       ? &totalKiB
                                         : key == "MemAvailable:" ? &availableKiB
                                                                  : nullptr;
        if (target == nullptr)
            continue;
        const std::optional<quint64> value = decimal(takeWord(line));
        if (!value || takeWord(line) != "kB")
            return std::nullopt;
        *target = value;
    }
    if (!totalKiB || !availableKiB || *availableKiB > *totalKiB ||
        *totalKiB > quint64(std::numeric_limits<qint64>::max() / 1024))
        return std::nullopt;
    return qint64(*totalKiB - *availableKiB) * 1024;
}

std::optional<int> psiLevel(QByteArrayView text)
{
    // avg10: the share of the last ten seconds, so a level follows the machine within a few
    // passes and falls back once the pressure is over. "some" is time in which at least one
    // task waited on memory (reclaim, refaults, swap-in); "full", time in which every
    // non-idle task did, i.e. the machine got nothing done.
    //  - warning at some ≥ 10 %: a tenth of the time lost to memory is where stutter shows.
    //    Below it lies ordinary reclaim: an idle desktop reads 0.00, and filling the page
    //    cache with a big copy gives brief single-digit bursts that are not a problem.
    //  - critical at full ≥ 10 %: the whole machine stalling that often is thrashing, the
    //    stage before the out-of-memory killers act (systemd-oomd: 60 % for 30 s).
    // full can never exceed some, so the levels only rise together.
    constexpr double kWarningSome = 10.0;
    constexpr double kCriticalFull = 10.0;

    std::optional<double> some;
    std::optional<double> full;
    while (!text.isEmpty()) {
        QByteArrayView line = takeLine(text);
        const QByteArrayView kind = takeWord(line);
        std::optional<double> *target = kind == "some" ? &some : kind == "full" ? &full : nullptr;
        if (target == nullptr)
            continue;
        for (QByteArrayView word = takeWord(line); !word.isEmpty(); word = takeWord(line)) {
            if (!word.startsWith("avg10="))
                continue;
            bool ok = false;
            const double value = word.sliced(6).toDouble(&ok);
            if (ok && std::isfinite(value) && value >= 0)
                *target = value;
            break;
        }
        if (!*target)
            return std::nullopt;
    }
    if (!some)
        return std::nullopt;
    if (full.value_or(0) >= kCriticalFull)
        return 4;
    if (*some >= kWarningSome)
        return 2;
    return 1;
}

std::optional<int> kernelPressureLevel(int level)
{
    if (level == 1 || level == 2 || level == 4)
        return level;
    return std::nullopt;
}

std::optional<qint64> machMemoryUsed(quint64 activePages, quint64 wiredPages,
                                     quint64 compressorPages, quint64 pageSize)
{
    quint64 pages = 0;
    quint64 bytes = 0;
    if (pageSize == 0 || qAddOverflow(activePages, wiredPages, &pages) ||
        qAddOverflow(pages, compressorPages, &pages) || qMulOverflow(pages, pageSize, &bytes) ||
        bytes > quint64(std::numeric_limits<qint64>::max()))
        return std::nullopt;
    return qint64(bytes);
}

std::optional<BatteryReading> batteryFromDescriptions(const QList<QVariantMap> &descriptions)
{
    if (descriptions.isEmpty())
        return std::nullopt;
    for (const QVariantMap &description : descriptions) {
        if (!isText(description.value(u"Type"_s), u"InternalBattery"))
            continue;
        BatteryReading reading;
        reading.present = true;
        reading.percent = percentFrom(integerValue(description.value(u"Current Capacity"_s)));
        const QVariant charging = description.value(u"Is Charging"_s);
        reading.charging = charging.typeId() == QMetaType::Bool && charging.toBool();
        reading.onAC = isText(description.value(u"Power Source State"_s), u"AC Power");
        return reading;
    }
    return BatteryReading{};
}

std::optional<BatteryReading> batteryFromSupplies(const QList<QMap<QString, QString>> &supplies)
{
    if (supplies.isEmpty())
        return std::nullopt;
    // A Device-scoped supply powers a peripheral (a mouse, a headset), not this machine. No
    // scope at all means System.
    const auto powersMachine = [](const QMap<QString, QString> &supply) {
        return supply.value(u"scope"_s) != u"Device";
    };
    BatteryReading reading;
    for (const QMap<QString, QString> &supply : supplies) {
        if (supply.value(u"type"_s) == u"Battery" && powersMachine(supply)) {
            reading.present = true;
            bool ok = false;
            const qint64 capacity = supply.value(u"capacity"_s).toLongLong(&ok);
            reading.percent = percentFrom(ok ? std::optional<qint64>(capacity) : std::nullopt);
            reading.charging = supply.value(u"status"_s) == u"Charging";
            break;
        }
    }
    if (!reading.present)
        return reading;
    // online is 1 for a fixed supply and 2 for a programmable one (USB PD); older kernels
    // name USB chargers by kind ("USB_C", "USB_PD", "USB_DCP").
    for (const QMap<QString, QString> &supply : supplies) {
        const QString type = supply.value(u"type"_s);
        bool ok = false;
        const int online = supply.value(u"online"_s).toInt(&ok);
        if ((type == u"Mains" || type.startsWith(u"USB")) && powersMachine(supply) && ok &&
            online > 0)
            reading.onAC = true;
    }
    return reading;
}

QList<InterfaceCounters> linkInterfaces(const QList<Platform::RawInterface> &entries)
{
    QList<InterfaceCounters> counted;
    for (const Platform::RawInterface &entry : entries) {
        if (entry.name.startsWith(u"en") || entry.name.startsWith(u"bridge"))
            counted.append({entry.name, entry.rxBytes, entry.txBytes});
    }
    return counted;
}

QList<InterfaceCounters> sysfsInterfaces(const QList<Platform::RawInterface> &entries)
{
    QList<InterfaceCounters> counted;
    for (const Platform::RawInterface &entry : entries) {
        const std::optional<quint64> rx = decimal(QByteArrayView(entry.rxText).trimmed());
        const std::optional<quint64> tx = decimal(QByteArrayView(entry.txText).trimmed());
        if (rx && tx && !entry.name.isEmpty())
            counted.append({entry.name, *rx, *tx});
    }
    return counted;
}

std::optional<CpuTicks> cpuTicks(const Platform::RawCpuTicks &raw)
{
    if (raw.format == Platform::RawCpuTicks::Format::machCounters)
        return CpuTicks{raw.user, raw.system, raw.idle, raw.nice, true};
    return procStatCpu(raw.line);
}

std::optional<qint64> memoryUsed(const Platform::RawMemory &raw)
{
    if (raw.format == Platform::RawMemory::Format::machPages)
        return machMemoryUsed(raw.activePages, raw.wiredPages, raw.compressorPages, raw.pageSize);
    return meminfoUsed(raw.text);
}

std::optional<int> memoryPressure(const Platform::RawPressure &raw)
{
    if (raw.format == Platform::RawPressure::Format::kernelLevel)
        return kernelPressureLevel(raw.level);
    return raw.text ? psiLevel(*raw.text) : std::optional<int>(1);
}

std::optional<BatteryReading> battery(const Platform::RawPowerSources &raw)
{
    if (raw.format == Platform::RawPowerSources::Format::ioKitDescriptions)
        return batteryFromDescriptions(raw.descriptions);
    return batteryFromSupplies(raw.supplies);
}

QList<InterfaceCounters> interfaces(const Platform::RawInterfaces &raw)
{
    if (raw.format == Platform::RawInterfaces::Format::machLink)
        return linkInterfaces(raw.interfaces);
    return sysfsInterfaces(raw.interfaces);
}

} // namespace SourceParsers
