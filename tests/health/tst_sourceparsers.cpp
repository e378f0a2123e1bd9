#include "common/TestHome.h"

#include "core/health/SourceParsers.h"
#include "core/health/StatsSources.h"
#include "platform/HealthSources.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>
#include <memory>

using namespace Qt::StringLiterals;

namespace {

QByteArray fixture(const char *name)
{
    QFile file(QFINDTESTDATA(u"fixtures/"_s + QLatin1String(name)));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QString describe(const std::optional<CpuTicks> &ticks)
{
    if (!ticks)
        return u"none"_s;
    return u"%1 %2 %3 %4"_s.arg(ticks->user).arg(ticks->nice).arg(ticks->system).arg(ticks->idle) +
           (ticks->wraps32 ? u" wraps"_s : QString());
}

QString describe(const std::optional<BatteryReading> &reading)
{
    if (!reading)
        return u"none"_s;
    if (!reading->present)
        return u"absent"_s;
    return u"%1%"_s.arg(reading->percent) + (reading->charging ? u" charging"_s : QString()) +
           (reading->onAC ? u" AC"_s : QString());
}

QString describe(const QList<InterfaceCounters> &counters)
{
    QStringList parts;
    for (const InterfaceCounters &entry : counters)
        parts << u"%1 %2 %3"_s.arg(entry.name).arg(entry.rx).arg(entry.tx);
    return parts.join(u", ");
}

// "type=Battery scope=Device" → the map a sysfs supply folder reads as.
QMap<QString, QString> supply(const QString &line)
{
    QMap<QString, QString> map;
    for (const QString &pair : line.split(u' ', Qt::SkipEmptyParts))
        map.insert(pair.section(u'=', 0, 0), pair.section(u'=', 1));
    return map;
}

QList<QMap<QString, QString>> supplies(const QStringList &lines)
{
    QList<QMap<QString, QString>> list;
    for (const QString &line : lines)
        list << supply(line);
    return list;
}

// "name rx tx" entries as the platform layer hands them over.
QList<Platform::RawInterface> rawInterfaces(const QStringList &lines)
{
    QList<Platform::RawInterface> list;
    for (const QString &line : lines) {
        const QStringList f = line.split(u' ');
        Platform::RawInterface entry;
        entry.name = f.value(0);
        entry.rxBytes = f.value(1).toULongLong();
        entry.txBytes = f.value(2).toULongLong();
        entry.rxText = f.value(1).toUtf8() + '\n';
        entry.txText = f.value(2).toUtf8() + '\n';
        list << entry;
    }
    return list;
}

bool writeFile(const QString &path, const QByteArray &bytes)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

const QByteArray kIdlePsi = "some avg10=0.00 avg60=0.00 avg300=0.00 total=0\n"
                            "full avg10=0.00 avg60=0.00 avg300=0.00 total=0\n";
const QByteArray kBusyPsi = "some avg10=23.45 avg60=12.10 avg300=3.02 total=912344871\n"
                            "full avg10=2.10 avg60=1.04 avg300=0.20 total=120938811\n";
const QByteArray kServerMeminfo = "MemTotal:       263842516 kB\nMemFree:         3120044 kB\n"
                                  "MemAvailable:   190133268 kB\nBuffers:         1022288 kB\n";

const QVariantMap kMacBattery{{u"Type"_s, u"InternalBattery"_s},
                              {u"Name"_s, u"InternalBattery-0"_s},
                              {u"Transport Type"_s, u"Internal"_s},
                              {u"Current Capacity"_s, qlonglong(73)},
                              {u"Max Capacity"_s, qlonglong(100)},
                              {u"Is Charging"_s, false},
                              {u"Power Source State"_s, u"Battery Power"_s}};
const QVariantMap kMacUps{{u"Type"_s, u"UPS"_s},
                          {u"Name"_s, u"Back-UPS ES 700"_s},
                          {u"Current Capacity"_s, qlonglong(100)},
                          {u"Is Charging"_s, false},
                          {u"Power Source State"_s, u"AC Power"_s}};

QVariantMap with(QVariantMap map, const QString &key, const QVariant &value)
{
    if (value.isValid())
        map.insert(key, value);
    else
        map.remove(key);
    return map;
}

} // namespace

class TestSourceParsers : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { m_home = std::make_unique<TestHome>(); }

    void procStat_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<QString>("expected"); // user nice system idle

        QTest::newRow("2-core file")
            << fixture("procstat-2core.txt") << u"1301476 2006 352509 30707393"_s;
        QTest::newRow("64-core file with steal and guest")
            << fixture("procstat-64core.txt") << u"35024000 155472 12555324 818852517"_s;
        QTest::newRow("ten columns: guest not added again")
            << QByteArray("cpu  10 20 30 40 50 60 70 80 90 100\n") << u"10 20 240 90"_s;
        QTest::newRow("four columns") << QByteArray("cpu 1 2 3 4") << u"1 2 3 4"_s;
        QTest::newRow("seven columns") << QByteArray("cpu 1 2 3 4 5 6 7") << u"1 2 16 9"_s;
        QTest::newRow("later columns ignored")
            << QByteArray("cpu 1 2 3 4 5 6 7 8 9 10 11 x") << u"1 2 24 9"_s;
        QTest::newRow("tabs and CRLF") << QByteArray("cpu\t5\t6\t7\t8\r\n") << u"5 6 7 8"_s;
        QTest::newRow("largest counter")
            << QByteArray("cpu 18446744073709551615 0 0 0") << u"18446744073709551615 0 0 0"_s;
        QTest::newRow("counter too large")
            << QByteArray("cpu 18446744073709551616 0 0 0") << u"none"_s;
        QTest::newRow("three columns") << QByteArray("cpu 1 2 3\n") << u"none"_s;
        QTest::newRow("per-processor line") << QByteArray("cpu0 1 2 3 4\n") << u"none"_s;
        QTest::newRow("not first") << QByteArray("intr 5\ncpu 1 2 3 4\n") << u"none"_s;
        QTest::newRow("text in a column") << QByteArray("cpu 1 2 x 4 5") << u"none"_s;
        QTest::newRow("negative") << QByteArray("cpu 1 -2 3 4") << u"none"_s;
        QTest::newRow("empty") << QByteArray() << u"none"_s;
    }
    void procStat()
    {
        QFETCH(QByteArray, text);
        QFETCH(QString, expected);
        QCOMPARE(describe(SourceParsers::procStatCpu(text)), expected);
    }

    void meminfo_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<qint64>("used"); // -1: not understood

        QTest::newRow("laptop") << fixture("meminfo-laptop.txt") << qint64(6376628224);
        QTest::newRow("server") << kServerMeminfo << qint64(73709248) * 1024;
        QTest::newRow("available listed first")
            << QByteArray("MemAvailable: 100 kB\nMemTotal: 300 kB\n") << qint64(200 * 1024);
        QTest::newRow("all available")
            << QByteArray("MemTotal: 8 kB\nMemAvailable: 8 kB") << qint64(0);
        QTest::newRow("kernel without MemAvailable")
            << QByteArray("MemTotal: 300 kB\nMemFree: 100 kB\n") << qint64(-1);
        QTest::newRow("available above total")
            << QByteArray("MemTotal: 100 kB\nMemAvailable: 300 kB\n") << qint64(-1);
        QTest::newRow("no unit") << QByteArray("MemTotal: 300\nMemAvailable: 100\n") << qint64(-1);
        QTest::newRow("not a number")
            << QByteArray("MemTotal: lots kB\nMemAvailable: 100 kB\n") << qint64(-1);
        QTest::newRow("bytes beyond 64 bits")
            << QByteArray("MemTotal: 18446744073709551615 kB\nMemAvailable: 0 kB\n") << qint64(-1);
        QTest::newRow("empty") << QByteArray() << qint64(-1);
    }
    void meminfo()
    {
        QFETCH(QByteArray, text);
        QFETCH(qint64, used);
        QCOMPARE(SourceParsers::meminfoUsed(text).value_or(-1), used);
    }

    void psi_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<int>("level"); // 0: not understood

        const auto file = [](const char *some, const char *full) {
            return "some avg10=" + QByteArray(some) + " avg60=0.00 avg300=0.00 total=10\n" +
                   "full avg10=" + QByteArray(full) + " avg60=0.00 avg300=0.00 total=5\n";
        };
        QTest::newRow("idle desktop") << kIdlePsi << 1;
        QTest::newRow("reclaim burst") << file("4.20", "0.80") << 1;
        QTest::newRow("just under warning") << file("9.99", "1.00") << 1;
        QTest::newRow("warning threshold") << file("10.00", "0.00") << 2;
        QTest::newRow("busy") << kBusyPsi << 2;
        QTest::newRow("just under critical") << file("60.00", "9.99") << 2;
        QTest::newRow("critical threshold") << file("40.00", "10.00") << 4;
        QTest::newRow("thrashing") << file("71.30", "38.90") << 4;
        QTest::newRow("recovered: only avg60 high")
            << QByteArray("some avg10=0.00 avg60=45.00 avg300=20.00 total=9\n") << 1;
        QTest::newRow("some line only") << QByteArray("some avg10=12.5 total=3") << 2;
        QTest::newRow("full line only") << QByteArray("full avg10=12.5 total=3") << 0;
        QTest::newRow("avg10 not a number") << file("n/a", "0.00") << 0;
        QTest::newRow("full without avg10") << QByteArray("some avg10=1.00\nfull total=4\n") << 0;
        QTest::newRow("garbage") << QByteArray("hello world\n") << 0;
        QTest::newRow("empty") << QByteArray() << 0;
    }
    void psi()
    {
        QFETCH(QByteArray, text);
        QFETCH(int, level);
        QCOMPARE(SourceParsers::psiLevel(text).value_or(0), level);
    }

    void kernelLevel_data()
    {
        QTest::addColumn<int>("raw");
        QTest::addColumn<int>("level");
        for (const auto &[raw, level] :
             {std::pair{-1, 0}, {0, 0}, {1, 1}, {2, 2}, {3, 0}, {4, 4}, {5, 0}, {8, 0}})
            QTest::addRow("value %d", raw) << raw << level;
    }
    void kernelLevel()
    {
        QFETCH(int, raw);
        QFETCH(int, level);
        QCOMPARE(SourceParsers::kernelPressureLevel(raw).value_or(0), level);
    }

    void machMemory_data()
    {
        QTest::addColumn<quint64>("active");
        QTest::addColumn<quint64>("wired");
        QTest::addColumn<quint64>("compressor");
        QTest::addColumn<quint64>("pageSize");
        QTest::addColumn<qint64>("used"); // -1: no figure

        QTest::newRow("16 KiB pages") << quint64(200000) << quint64(150000) << quint64(50000)
                                      << quint64(16384) << qint64(6553600000);
        QTest::newRow("4 KiB pages")
            << quint64(1000) << quint64(20) << quint64(3) << quint64(4096) << qint64(1023 * 4096);
        QTest::newRow("nothing used")
            << quint64(0) << quint64(0) << quint64(0) << quint64(16384) << qint64(0);
        QTest::newRow("no page size")
            << quint64(5) << quint64(5) << quint64(5) << quint64(0) << qint64(-1);
        QTest::newRow("bytes beyond 64 bits")
            << (quint64(1) << 62) << quint64(0) << quint64(0) << quint64(4) << qint64(-1);
        QTest::newRow("bytes beyond signed 64 bits")
            << (quint64(1) << 61) << quint64(0) << quint64(0) << quint64(4) << qint64(-1);
        QTest::newRow("page sum wraps")
            << ~quint64(0) << quint64(2) << quint64(0) << quint64(1) << qint64(-1);
    }
    void machMemory()
    {
        QFETCH(quint64, active);
        QFETCH(quint64, wired);
        QFETCH(quint64, compressor);
        QFETCH(quint64, pageSize);
        QFETCH(qint64, used);
        QCOMPARE(SourceParsers::machMemoryUsed(active, wired, compressor, pageSize).value_or(-1),
                 used);
    }

    void macPowerSources_data()
    {
        QTest::addColumn<QList<QVariantMap>>("descriptions");
        QTest::addColumn<QString>("expected");

        const QVariantMap charging =
            with(with(kMacBattery, u"Is Charging"_s, true), u"Power Source State"_s, u"AC Power"_s);
        QTest::newRow("on battery") << QList{kMacBattery} << u"73%"_s;
        QTest::newRow("charging on AC") << QList{charging} << u"73% charging AC"_s;
        QTest::newRow("UPS only") << QList{kMacUps} << u"absent"_s;
        QTest::newRow("UPS listed first") << QList{kMacUps, charging} << u"73% charging AC"_s;
        QTest::newRow("first battery wins")
            << QList{kMacBattery, with(charging, u"Current Capacity"_s, qlonglong(12))} << u"73%"_s;
        QTest::newRow("no description") << QList{QVariantMap()} << u"absent"_s;
        QTest::newRow("empty list") << QList<QVariantMap>() << u"none"_s;
        QTest::newRow("only the type")
            << QList{QVariantMap{{u"Type"_s, u"InternalBattery"_s}}} << u"0%"_s;
        QTest::newRow("type in other case")
            << QList{with(kMacBattery, u"Type"_s, u"internalbattery"_s)} << u"absent"_s;
        QTest::newRow("type not text")
            << QList{with(kMacBattery, u"Type"_s, qlonglong(1))} << u"absent"_s;
        QTest::newRow("wrong types")
            << QList{with(with(with(kMacBattery, u"Current Capacity"_s, u"80"_s), u"Is Charging"_s,
                               qlonglong(1)),
                          u"Power Source State"_s, true)}
            << u"0%"_s;
        QTest::newRow("whole double capacity")
            << QList{with(kMacBattery, u"Current Capacity"_s, 55.0)} << u"55%"_s;
        QTest::newRow("fractional capacity")
            << QList{with(kMacBattery, u"Current Capacity"_s, 55.5)} << u"0%"_s;
        QTest::newRow("capacity above 100")
            << QList{with(kMacBattery, u"Current Capacity"_s, qlonglong(104))} << u"100%"_s;
        QTest::newRow("negative capacity")
            << QList{with(kMacBattery, u"Current Capacity"_s, qlonglong(-3))} << u"0%"_s;
    }
    void macPowerSources()
    {
        QFETCH(QList<QVariantMap>, descriptions);
        QFETCH(QString, expected);
        QCOMPARE(describe(SourceParsers::batteryFromDescriptions(descriptions)), expected);
    }

    void linuxPowerSupplies_data()
    {
        QTest::addColumn<QStringList>("folders"); // in name order
        QTest::addColumn<QString>("expected");

        const QString mouse = u"type=Battery scope=Device capacity=55 status=Charging"_s;
        const QString bat0 = u"type=Battery capacity=64 status=Discharging"_s;
        QTest::newRow("laptop on battery")
            << QStringList{u"type=Mains online=0"_s, bat0} << u"64%"_s;
        QTest::newRow("laptop charging")
            << QStringList{u"type=Mains online=1"_s, u"type=Battery capacity=80 status=Charging"_s}
            << u"80% charging AC"_s;
        QTest::newRow("laptop full on AC")
            << QStringList{u"type=Mains online=1"_s, u"type=Battery capacity=100 status=Full"_s}
            << u"100% AC"_s;
        QTest::newRow("desktop") << QStringList() << u"none"_s;
        QTest::newRow("UPS") << QStringList{u"type=UPS scope=System capacity=100 online=1"_s}
                             << u"absent"_s;
        QTest::newRow("HID UPS as device battery")
            << QStringList{u"type=Battery scope=Device capacity=100 status=Full"_s} << u"absent"_s;
        QTest::newRow("wireless mouse only") << QStringList{mouse} << u"absent"_s;
        QTest::newRow("mouse before laptop battery")
            << QStringList{mouse, u"type=Battery scope=System capacity=90 status=Discharging"_s}
            << u"90%"_s;
        QTest::newRow("first of two batteries")
            << QStringList{bat0, u"type=Battery capacity=95 status=Charging"_s} << u"64%"_s;
        QTest::newRow("scope Unknown counts")
            << QStringList{u"type=Battery scope=Unknown capacity=33 status=Charging"_s}
            << u"33% charging"_s;
        QTest::newRow("USB-C power") << QStringList{bat0, u"type=USB online=1"_s} << u"64% AC"_s;
        QTest::newRow("USB-C programmable power")
            << QStringList{bat0, u"type=USB online=2"_s} << u"64% AC"_s;
        QTest::newRow("USB-C unplugged") << QStringList{bat0, u"type=USB online=0"_s} << u"64%"_s;
        QTest::newRow("older kernel USB type")
            << QStringList{bat0, u"type=USB_C online=1"_s} << u"64% AC"_s;
        QTest::newRow("a peripheral's charger")
            << QStringList{bat0, u"type=USB scope=Device online=1"_s} << u"64%"_s;
        QTest::newRow("wireless charger")
            << QStringList{bat0, u"type=Wireless online=1"_s} << u"64%"_s;
        QTest::newRow("capacity unreadable")
            << QStringList{u"type=Battery status=Charging"_s} << u"0% charging"_s;
        QTest::newRow("capacity not a number")
            << QStringList{u"type=Battery capacity=full"_s} << u"0%"_s;
        QTest::newRow("capacity above 100")
            << QStringList{u"type=Battery capacity=101"_s} << u"100%"_s;
    }
    void linuxPowerSupplies()
    {
        QFETCH(QStringList, folders);
        QFETCH(QString, expected);
        QCOMPARE(describe(SourceParsers::batteryFromSupplies(supplies(folders))), expected);
    }

    void interfaceCounters_data()
    {
        QTest::addColumn<bool>("link"); // macOS link entries, else sysfs statistics
        QTest::addColumn<QStringList>("entries");
        QTest::addColumn<QString>("expected");

        const QStringList mac{u"lo0 900000000 900000000"_s,
                              u"en0 700000000 300000000"_s,
                              u"utun0 8000000000 1"_s,
                              u"awdl0 5 5"_s,
                              u"en1 1500000000 500000000"_s,
                              u"bridge0 10 20"_s,
                              u"anpi0 3 3"_s};
        QTest::newRow("mac: en and bridge only")
            << true << mac << u"en0 700000000 300000000, en1 1500000000 500000000, bridge0 10 20"_s;
        QTest::newRow("mac: nothing counted")
            << true << QStringList{u"lo0 1 1"_s, u"gif0 2 2"_s} << QString();
        QTest::newRow("mac: 32-bit counters as given")
            << true << QStringList{u"en0 4294967295 0"_s} << u"en0 4294967295 0"_s;
        QTest::newRow("linux: hardware interfaces")
            << false << QStringList{u"enp0s31f6 123 456"_s, u"wlan0 18446744073709551615 0"_s}
            << u"enp0s31f6 123 456, wlan0 18446744073709551615 0"_s;
        QTest::newRow("linux: unreadable counters left out")
            << false << QStringList{u"eth0 12 34"_s, u"eth1"_s, u"eth2 -5 1"_s, u"eth3 1x 2"_s}
            << u"eth0 12 34"_s;
    }
    void interfaceCounters()
    {
        QFETCH(bool, link);
        QFETCH(QStringList, entries);
        QFETCH(QString, expected);
        Platform::RawInterfaces raw;
        raw.format = link ? Platform::RawInterfaces::Format::machLink
                          : Platform::RawInterfaces::Format::sysfsStatistics;
        raw.interfaces = rawInterfaces(entries);
        QCOMPARE(describe(SourceParsers::interfaces(raw)), expected);
    }

    void rawFormats()
    {
        // Each raw form goes to the parser its tag names, whatever system this is.
        Platform::RawCpuTicks mach;
        mach.format = Platform::RawCpuTicks::Format::machCounters;
        mach.user = 4294967295u;
        mach.system = 2;
        mach.idle = 3;
        mach.nice = 4;
        mach.line = "cpu 9 9 9 9";
        QCOMPARE(describe(SourceParsers::cpuTicks(mach)), u"4294967295 4 2 3 wraps"_s);
        Platform::RawCpuTicks stat;
        stat.line = "cpu 1 2 3 4 5 6 7 8";
        QCOMPARE(describe(SourceParsers::cpuTicks(stat)), u"1 2 24 9"_s);

        Platform::RawMemory pages;
        pages.format = Platform::RawMemory::Format::machPages;
        pages.activePages = 3;
        pages.wiredPages = 2;
        pages.compressorPages = 1;
        pages.pageSize = 16384;
        pages.text = "MemTotal: 1 kB\nMemAvailable: 0 kB\n";
        QCOMPARE(SourceParsers::memoryUsed(pages), std::optional<qint64>(6 * 16384));

        Platform::RawPressure level;
        level.format = Platform::RawPressure::Format::kernelLevel;
        level.level = 3;
        level.text = kIdlePsi;
        QCOMPARE(SourceParsers::memoryPressure(level), std::nullopt);
        level.level = 4;
        QCOMPARE(SourceParsers::memoryPressure(level), std::optional<int>(4));
        Platform::RawPressure noPsi;
        QCOMPARE(SourceParsers::memoryPressure(noPsi), std::optional<int>(1));
        noPsi.text = QByteArray("garbage");
        QCOMPARE(SourceParsers::memoryPressure(noPsi), std::nullopt);

        Platform::RawPowerSources ioKit;
        ioKit.format = Platform::RawPowerSources::Format::ioKitDescriptions;
        ioKit.descriptions = {kMacBattery};
        ioKit.supplies = supplies({u"type=Battery capacity=20"_s});
        QCOMPARE(describe(SourceParsers::battery(ioKit)), u"73%"_s);
        ioKit.format = Platform::RawPowerSources::Format::sysfsSupplies;
        QCOMPARE(describe(SourceParsers::battery(ioKit)), u"20%"_s);
    }

    void procReaders_data()
    {
        QTest::addColumn<QByteArray>("stat"); // null: no such file
        QTest::addColumn<QByteArray>("meminfo");
        QTest::addColumn<QByteArray>("psi"); // "<dir>": a folder in its place
        QTest::addColumn<QString>("cpu");
        QTest::addColumn<qint64>("used");
        QTest::addColumn<int>("level");

        const QByteArray stat2 = fixture("procstat-2core.txt");
        const QByteArray laptop = fixture("meminfo-laptop.txt");
        QTest::newRow("2-core laptop, idle")
            << stat2 << laptop << kIdlePsi << u"1301476 2006 352509 30707393"_s
            << qint64(6376628224) << 1;
        QTest::newRow("64-core server, busy")
            << fixture("procstat-64core.txt") << kServerMeminfo << kBusyPsi
            << u"35024000 155472 12555324 818852517"_s << qint64(73709248) * 1024 << 2;
        QTest::newRow("kernel without PSI")
            << stat2 << laptop << QByteArray() << u"1301476 2006 352509 30707393"_s
            << qint64(6376628224) << 1;
        QTest::newRow("PSI unreadable")
            << stat2 << laptop << QByteArray("<dir>") << u"1301476 2006 352509 30707393"_s
            << qint64(6376628224) << 0;
        QTest::newRow("nothing there")
            << QByteArray() << QByteArray() << QByteArray() << u"none"_s << qint64(-1) << 1;
        QTest::newRow("empty files")
            << QByteArray("") << QByteArray("") << QByteArray("") << u"none"_s << qint64(-1) << 0;
    }
    void procReaders()
    {
        QFETCH(QByteArray, stat);
        QFETCH(QByteArray, meminfo);
        QFETCH(QByteArray, psi);
        QFETCH(QString, cpu);
        QFETCH(qint64, used);
        QFETCH(int, level);

        QTemporaryDir dir;
        QVERIFY(dir.isValid());
        if (!stat.isNull())
            QVERIFY(writeFile(dir.filePath(u"proc/stat"_s), stat));
        if (!meminfo.isNull())
            QVERIFY(writeFile(dir.filePath(u"proc/meminfo"_s), meminfo));
        if (psi == "<dir>")
            QVERIFY(QDir().mkpath(dir.filePath(u"proc/pressure/memory"_s)));
        else if (!psi.isNull())
            QVERIFY(writeFile(dir.filePath(u"proc/pressure/memory"_s), psi));
        const QByteArray root = QFile::encodeName(dir.path());

        const auto ticks = Platform::readCpuTicks(root.constData());
        if (ticks && ticks->format != Platform::RawCpuTicks::Format::procStat)
            QSKIP("this system's readers query the kernel, not files");
        QCOMPARE(describe(ticks ? SourceParsers::cpuTicks(*ticks) : std::nullopt), cpu);
        if (ticks && !stat.isEmpty())
            QCOMPARE(ticks->line, stat.left(stat.indexOf('\n')));
        const auto memory = Platform::readMemory(root.constData());
        QCOMPARE(memory ? SourceParsers::memoryUsed(*memory).value_or(-1) : -1, used);
        const auto pressure = Platform::readMemoryPressure(root.constData());
        QCOMPARE(pressure ? SourceParsers::memoryPressure(*pressure).value_or(0) : 0, level);
    }

    void powerSupplyReader_data()
    {
        QTest::addColumn<bool>("folder");         // /sys/class/power_supply exists
        QTest::addColumn<QStringList>("entries"); // "NAME file=text ...", created in this order
        QTest::addColumn<QString>("raw");
        QTest::addColumn<QString>("battery");

        QTest::newRow("laptop with a mouse")
            << true
            << QStringList{u"hidpp_battery_0 type=Battery scope=Device capacity=55 model_name=MX"_s,
                           u"BAT1 type=Battery capacity=20 status=Discharging"_s,
                           u"BAT0 type=Battery capacity=64 status=Charging voltage_now=12000"_s,
                           u"AC type=Mains online=1"_s}
            << u"online=1 type=Mains | capacity=64 status=Charging type=Battery | capacity=20 "
               u"status=Discharging type=Battery | capacity=55 scope=Device type=Battery"_s
            << u"64% charging AC"_s;
        QTest::newRow("UPS") << true << QStringList{u"ups type=UPS scope=System online=1"_s}
                             << u"online=1 scope=System type=UPS"_s << u"absent"_s;
        QTest::newRow("desktop: empty folder") << true << QStringList() << u"none"_s << u"none"_s;
        QTest::newRow("no folder") << false << QStringList() << u"none"_s << u"none"_s;
    }
    void powerSupplyReader()
    {
        QFETCH(bool, folder);
        QFETCH(QStringList, entries);
        QFETCH(QString, raw);
        QFETCH(QString, battery);

        QTemporaryDir dir;
        QVERIFY(dir.isValid());
        const QString base = dir.filePath(u"sys/class/power_supply/"_s);
        if (folder)
            QVERIFY(QDir().mkpath(base));
        for (const QString &entry : entries) {
            const QStringList parts = entry.split(u' ');
            for (const QString &file : parts.mid(1))
                QVERIFY(writeFile(base + parts.first() + u'/' + file.section(u'=', 0, 0),
                                  file.section(u'=', 1).toUtf8() + '\n'));
        }
        const QByteArray root = QFile::encodeName(dir.path());
        const auto sources = Platform::readPowerSources(root.constData());
        if (sources && sources->format != Platform::RawPowerSources::Format::sysfsSupplies)
            QSKIP("this system's readers query the kernel, not files");

        QStringList seen;
        for (const QMap<QString, QString> &supply :
             sources ? sources->supplies : QList<QMap<QString, QString>>()) {
            QStringList pairs;
            for (auto it = supply.cbegin(); it != supply.cend(); ++it)
                pairs << it.key() + u'=' + it.value();
            seen << pairs.join(u' ');
        }
        QCOMPARE(sources ? seen.join(u" | ") : u"none"_s, raw);
        QCOMPARE(describe(sources ? SourceParsers::battery(*sources) : std::nullopt), battery);
    }

    void interfaceReader_data()
    {
        QTest::addColumn<bool>("folder");         // /sys/class/net exists
        QTest::addColumn<QStringList>("entries"); // "name device rx tx", device link|dir|none
        QTest::addColumn<QString>("expected");

        QTest::newRow("laptop with containers and a VPN")
            << true << QStringList{u"lo none 100 100"_s,        u"wlp2s0 link 5000 6000"_s,
                                   u"enp0s31f6 link 123 456"_s, u"docker0 none 1 1"_s,
                                   u"veth9a1b none 9 9"_s,      u"wg0 none 7 7"_s,
                                   u"br-0c1 none 3 3"_s,        u"tun0 none 2 2"_s}
            << u"enp0s31f6 123 456, wlp2s0 5000 6000"_s;
        QTest::newRow("virtual machine")
            << true << QStringList{u"lo none 1 1"_s, u"eth0 dir 10 20"_s} << u"eth0 10 20"_s;
        QTest::newRow("loopback only") << true << QStringList{u"lo none 1 1"_s} << QString();
        QTest::newRow("no folder") << false << QStringList() << u"none"_s;
    }
    void interfaceReader()
    {
        QFETCH(bool, folder);
        QFETCH(QStringList, entries);
        QFETCH(QString, expected);

        QTemporaryDir dir;
        QVERIFY(dir.isValid());
        const QString base = dir.filePath(u"sys/class/net/"_s);
        if (folder)
            QVERIFY(QDir().mkpath(base));
        for (const QString &entry : entries) {
            const QStringList f = entry.split(u' ');
            const QString folderPath = base + f[0];
            QVERIFY(writeFile(folderPath + u"/statistics/rx_bytes"_s, f[2].toUtf8() + '\n'));
            QVERIFY(writeFile(folderPath + u"/statistics/tx_bytes"_s, f[3].toUtf8() + '\n'));
            const QString device = dir.filePath(u"sys/devices/pci0000:00/"_s + f[0]);
            if (f[1] == u"link")
                QVERIFY(QDir().mkpath(device) && QFile::link(device, folderPath + u"/device"_s));
            else if (f[1] == u"dir")
                QVERIFY(QDir().mkpath(folderPath + u"/device"_s));
        }
        const QByteArray root = QFile::encodeName(dir.path());
        const auto raw = Platform::readInterfaces(root.constData());
        if (raw && raw->format != Platform::RawInterfaces::Format::sysfsStatistics)
            QSKIP("this system's readers query the kernel, not files");
        QCOMPARE(raw ? describe(SourceParsers::interfaces(*raw)) : u"none"_s, expected);
    }

    // The real sources on this machine: each answers, and answers something plausible.
    void thisMachine()
    {
        const StatsSources sources = StatsSources::system();
        const std::optional<CpuTicks> ticks = sources.cpuTicks();
        QVERIFY(ticks);
        QVERIFY(ticks->user + ticks->system + ticks->idle + ticks->nice > 0);
        const qint64 total = sources.memoryTotal();
        QVERIFY(total > 0);
        const std::optional<qint64> used = sources.memoryUsed();
        QVERIFY(used);
        QVERIFY2(*used > 0 && *used <= total, qPrintable(u"%1 of %2"_s.arg(*used).arg(total)));
        const int level = sources.memoryPressure().value_or(0);
        QVERIFY2(level == 1 || level == 2 || level == 4, qPrintable(QString::number(level)));
        QVERIFY(sources.interfaces());
        QVERIFY(sources.diskUsage(u"/"_s).total > 0);

        // A pass runs every two seconds for the life of the app: it must stay in the tens of
        // microseconds, far from anything that spawns processes or parses through streams.
        QElapsedTimer timer;
        timer.start();
        const double start = sources.now();
        constexpr int kPasses = 200;
        for (int i = 0; i < kPasses; ++i) {
            QVERIFY(sources.cpuTicks());
            QVERIFY(sources.memoryUsed());
            QVERIFY(sources.memoryPressure());
            sources.battery();
            QVERIFY(sources.interfaces());
        }
        const double seconds = sources.now() - start;
        QVERIFY(seconds >= 0);
        QVERIFY2(timer.nsecsElapsed() / kPasses < 2'000'000,
                 qPrintable(u"%1 µs a pass"_s.arg(timer.nsecsElapsed() / kPasses / 1000)));
    }

private:
    std::unique_ptr<TestHome> m_home;
};

QTEST_GUILESS_MAIN(TestSourceParsers)
#include "tst_sourceparsers.moc"
