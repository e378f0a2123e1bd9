#include "common/TestHome.h"
#include "health/FakeSources.h"

#include "core/health/SourceParsers.h"
#include "core/health/SystemStats.h"
#include "core/text/L10n.h"
#include "core/words/HealthTiles.h"
#include "platform/ComputerName.h"
#include "platform/HealthSources.h"

#include <QtTest>

using namespace Qt::StringLiterals;

namespace {

using Level = MemoryPressureLevel;
using Snapshot = HealthTiles::Snapshot;

// One parser's answer: s /proc/stat, m meminfo, p PSI, b power supplies.
struct Parse
{
    char parser;
    QByteArray input;
    const char *expected;
};

QByteArray fixture(const QString &name)
{
    QFile file(QFINDTESTDATA(u"fixtures/"_s + name));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QString line(const std::optional<CpuTicks> &t)
{
    if (!t)
        return u"none"_s;
    return u"%1 %2 %3 %4"_s.arg(t->user).arg(t->nice).arg(t->system).arg(t->idle) +
           (t->wraps32 ? u" wraps"_s : QString());
}

QString line(const std::optional<BatteryReading> &r)
{
    if (!r || !r->present)
        return r ? u"absent"_s : u"none"_s;
    return u"%1%"_s.arg(r->percent) + (r->charging ? u" charging"_s : QString()) +
           (r->onAC ? u" AC"_s : QString());
}

QString line(const QList<InterfaceCounters> &list)
{
    QStringList parts;
    for (const InterfaceCounters &entry : list)
        parts << u"%1 %2 %3"_s.arg(entry.name).arg(entry.rx).arg(entry.tx);
    return parts.join(u", ");
}

template <class T> QString line(const std::optional<T> &value)
{
    return value ? QString::number(*value) : u"none"_s;
}

// "type=Mains online=1|type=Battery capacity=64": one sysfs supply folder per part.
QList<QMap<QString, QString>> supplies(const QByteArray &text)
{
    QList<QMap<QString, QString>> list;
    for (const QString &folder : QString::fromUtf8(text).split(u'|', Qt::SkipEmptyParts)) {
        list.append(QMap<QString, QString>());
        for (const QString &pair : folder.split(u' '))
            list.last().insert(pair.section(u'=', 0, 0), pair.section(u'=', 1));
    }
    return list;
}

QVariantMap mac(const QVariant &capacity, const QVariant &charging = false,
                const QVariant &state = u"Battery Power"_s,
                const QVariant &type = u"InternalBattery"_s)
{
    return {{u"Type"_s, type},
            {u"Current Capacity"_s, capacity},
            {u"Is Charging"_s, charging},
            {u"Power Source State"_s, state}};
}

// "cpu level usedGB/totalGB freeGB/totalGB [percent[+charging][+ac]]", no percent: no battery.
Snapshot parseSnapshot(const QString &text)
{
    const QStringList f = text.split(QRegularExpression(u"[ /]"_s));
    Snapshot s;
    s.cpuLoad = f[0].toDouble();
    s.memoryPressure = Level(f[1].toInt());
    s.memoryUsed = qRound64(f[2].toDouble() * GB);
    s.memoryTotal = qRound64(f[3].toDouble() * GB);
    s.disk = {qRound64(f[5].toDouble() * GB), qRound64(f[4].toDouble() * GB)};
    s.batteryPresent = f.size() > 6;
    s.batteryPercent = f.value(6).section(u'+', 0, 0).toInt();
    s.batteryCharging = f.value(6).contains(u"+charging"_s);
    s.batteryOnAC = f.value(6).contains(u"+ac"_s);
    return s;
}

} // namespace

Q_DECLARE_METATYPE(Parse)
Q_DECLARE_METATYPE(Snapshot)

class HealthTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup() { L10n::overrideForTesting(false); }

    void parsers_data()
    {
        const auto psi = [](const char *some, const char *full) {
            return "some avg10=" + QByteArray(some) + " avg60=0.00 avg300=0.00 total=10\n" +
                   "full avg10=" + QByteArray(full) + " avg60=50.00 avg300=0.00 total=5\n";
        };
        const QByteArray bat0 = "type=Battery capacity=64 status=Discharging|";
        const Parse cases[] = {
            // user nice system idle: irq, softirq and steal are system time, iowait idle.
            {'s', "cpu  10 20 30 40 50 60 70 80 90 100\n", "10 20 240 90"},
            {'s', "cpu\t5\t6\t7\t8\r\n", "5 6 7 8"},
            {'s', "cpu 1 2 3 4 5 6 7 8 9 10 11 x", "1 2 24 9"},
            {'s', "cpu 18446744073709551616 0 0 0", "none"},
            {'s', "cpu 1 2 3\n", "none"},
            {'s', "cpu0 1 2 3 4\n", "none"},
            {'s', "intr 5\ncpu 1 2 3 4\n", "none"},
            {'s', "cpu 1 -2 3 4", "none"},
            // MemTotal − MemAvailable, in bytes.
            {'m', "MemAvailable: 100 kB\nMemTotal: 300 kB\n", "204800"},
            {'m', "MemTotal: 8 kB\nMemAvailable: 8 kB", "0"},
            {'m', "MemTotal: 300 kB\nMemFree: 100 kB\n", "none"},
            {'m', "MemTotal: 1 kB\nMemAvailable: 3 kB\n", "none"},
            {'m', "MemTotal: 300\nMemAvailable: 100\n", "none"},
            {'m', "MemTotal: 18446744073709551615 kB\nMemAvailable: 0 kB\n", "none"},
            // avg10 only: warning at some ≥ 10, critical at full ≥ 10.
            {'p', psi("9.99", "1.00"), "1"},
            {'p', psi("10.00", "0.00"), "2"},
            {'p', psi("60.00", "9.99"), "2"},
            {'p', psi("40.00", "10.00"), "4"},
            {'p', "some total=3 avg10=12.5", "2"},
            {'p', "full avg10=12.5 total=3", "none"},
            {'p', psi("n/a", "0.00"), "none"},
            {'p', "some avg10=1.00\nfull total=4\n", "none"},
            // The first battery of this machine (not a Device's) in name order.
            {'b', bat0 + "type=Mains online=0", "64%"},
            {'b', "type=Mains online=1|type=Battery capacity=80 status=Charging",
             "80% charging AC"},
            {'b', "", "none"},
            {'b', "type=UPS scope=System capacity=100 online=1", "absent"},
            {'b', "type=Battery scope=Device capacity=55|type=Battery scope=Unknown", "0%"},
            {'b', bat0 + "type=USB_C online=2", "64% AC"},
            {'b', bat0 + "type=USB scope=Device online=1", "64%"},
            {'b', "type=Battery capacity=full status=Charging", "0% charging"},
            {'b', "type=Battery capacity=101", "100%"},
        };
        QTest::addColumn<Parse>("c");
        for (const Parse &c : cases)
            QTest::addRow("%c %d: %s", c.parser, int(&c - cases), c.expected) << c;
    }
    void parsers()
    {
        QFETCH(Parse, c);
        using namespace SourceParsers;
        const QString got = c.parser == 's'   ? line(procStatCpu(c.input))
                            : c.parser == 'm' ? line(meminfoUsed(c.input))
                            : c.parser == 'p' ? line(psiLevel(c.input))
                                              : line(batteryFromSupplies(supplies(c.input)));
        QCOMPARE(got, QString::fromUtf8(c.expected));
    }

    // The macOS answers, parsed wherever the tests run.
    void macSources()
    {
        using namespace SourceParsers;
        const auto reads = [](const QList<QVariantMap> &list) {
            return line(batteryFromDescriptions(list));
        };
        const QVariantMap ups{{u"Type"_s, u"UPS"_s}, {u"Current Capacity"_s, 100}};
        QCOMPARE(reads({ups, mac(73, true, u"AC Power"_s), mac(12)}), u"73% charging AC"_s);
        QCOMPARE(reads({ups, {}}) + reads({}), u"absentnone"_s);
        // Only the right types count: bytes are no text, a Boolean no number.
        QCOMPARE(reads({mac(73, false, {}, QByteArray("InternalBattery"))}), u"absent"_s);
        QCOMPARE(reads({mac(u"80"_s, qlonglong(1), QByteArray("AC Power"))}), u"0%"_s);
        QCOMPARE(reads({mac(qlonglong(55))}) + reads({mac(55.0)}) + reads({mac(104)}),
                 u"55%55%100%"_s);
        QCOMPARE(reads({mac(55.5)}) + reads({mac(-3)}) + reads({mac(1e16)}), u"0%0%0%"_s);

        const Platform::RawCpuTicks mach{
            Platform::RawCpuTicks::Format::machCounters, 4294967295u, 2, 3, 4, "cpu 9 9 9 9"};
        QCOMPARE(line(cpuTicks(mach)), u"4294967295 4 2 3 wraps"_s);
        QCOMPARE(line(memoryUsed({Platform::RawMemory::Format::machPages, 3, 2, 1, 16384, {}})),
                 QString::number(6 * 16384));
        const quint64 overflows[][4] = {{5, 5, 5, 0},
                                        {~0ULL, 2, 0, 1},
                                        {0, 1, ~0ULL, 1},
                                        {1ULL << 61, 0, 0, 4},
                                        {1ULL << 62, 0, 0, 8}};
        for (const auto &v : overflows)
            QCOMPARE(machMemoryUsed(v[0], v[1], v[2], v[3]), std::nullopt);
        for (int raw : {-1, 0, 1, 2, 3, 4, 5})
            QCOMPARE(line(memoryPressure({Platform::RawPressure::Format::kernelLevel, raw, "x"})),
                     raw == 1 || raw == 2 || raw == 4 ? QString::number(raw) : u"none"_s);
        Platform::RawPowerSources power{Platform::RawPowerSources::Format::ioKitDescriptions,
                                        {mac(73)},
                                        supplies("type=Battery capacity=20")};
        QCOMPARE(line(battery(power)), u"73%"_s);
        power.format = Platform::RawPowerSources::Format::sysfsSupplies;
        QCOMPARE(line(battery(power)), u"20%"_s);
        QCOMPARE(line(interfaces({Platform::RawInterfaces::Format::machLink,
                                  {{u"lo0"_s, 9, 9, {}, {}},
                                   {u"en0"_s, 7, 3, {}, {}},
                                   {u"utun0"_s, 8, 1, {}, {}},
                                   {u"bridge0"_s, 1, 2, {}, {}}}})),
                 u"en0 7 3, bridge0 1 2"_s); // Ethernet, Wi-Fi and bridges count
    }

    // The Linux readers on a fake root: what reaches the parsers, and when nothing does.
    void readers_data()
    {
        // "folder:" then its files "name=content" ("@name" a fixture, "/" a folder).
        QTest::addColumn<QString>("files");
        QTest::addColumn<QString>("expected"); // cpu|used|level|battery|interfaces
        QTest::newRow("server") << u"proc: stat=@procstat-64core.txt meminfo=@meminfo-laptop.txt "
                                   u"pressure/memory=some\tavg10=23.45"_s
                                << u"35024000 155472 12555324 818852517|6376628224|2|none|none"_s;
        QTest::newRow("laptop without PSI")
            << u"sys/class/power_supply/hid: type=Battery scope=Device "
               u"sys/class/power_supply/BAT1: type=Battery capacity=20 "
               u"sys/class/power_supply/BAT0: type=Battery capacity=64 status=Charging "
               u"sys/class/power_supply/AC: type=Mains online=1 "
               u"sys/class/net/wlp2s0: statistics/rx_bytes=5000 statistics/tx_bytes=6000 device=/ "
               u"sys/class/net/lo: statistics/rx_bytes=1 statistics/tx_bytes=1 "
               u"sys/class/net/eth0: device=/ sys/class/net/eth1: statistics/rx_bytes=-5 "
               u"statistics/tx_bytes=1 device=/ sys/class/net/eth2: statistics/rx_bytes=1x "
               u"statistics/tx_bytes=2 device=/ sys/class/net/wlan0: device=/ "
               u"statistics/rx_bytes=18446744073709551615 statistics/tx_bytes=0"_s
            << u"none|none|1|64% charging AC|wlan0 18446744073709551615 0, wlp2s0 5000 6000"_s;
        QTest::newRow("empty") << u"proc: stat= meminfo= pressure/memory= "
                                  u"sys/class: power_supply=/ net=/"_s
                               << u"none|none|none|none|"_s;
        QTest::newRow("no PSI folder") << u"proc: pressure=x"_s << u"none|none|1|none|none"_s;
        QTest::newRow("PSI unreadable")
            << u"proc: pressure/memory=/"_s << u"none|none|none|none|none"_s;
    }
    void readers()
    {
        QFETCH(QString, files);
        QFETCH(QString, expected);
        QTemporaryDir dir;
        QString folder;
        for (const QString &file : files.split(u' ')) {
            const QString path = dir.filePath(folder + file.section(u'=', 0, 0));
            const QString content = file.section(u'=', 1);
            QFile out(path);
            if (file.endsWith(u':'))
                folder = file.chopped(1) + u'/';
            else if (content == u"/"_s)
                QVERIFY(QDir().mkpath(path));
            else
                QVERIFY(QDir().mkpath(QFileInfo(path).path()) && out.open(QIODevice::WriteOnly) &&
                        out.write(content.startsWith(u'@') ? fixture(content.mid(1))
                                                           : content.toUtf8() + '\n') > 0);
        }
        const QByteArray root = QFile::encodeName(dir.path());
        const auto stat = Platform::readCpuTicks(root.constData());
        if (stat && stat->format != Platform::RawCpuTicks::Format::procStat)
            QSKIP("this system's readers query the kernel, not files");
        const auto memory = Platform::readMemory(root.constData());
        const auto pressure = Platform::readMemoryPressure(root.constData());
        const auto power = Platform::readPowerSources(root.constData());
        const auto net = Platform::readInterfaces(root.constData());
        using namespace SourceParsers;
        QCOMPARE(QStringList({line(stat ? cpuTicks(*stat) : std::nullopt),
                              line(memory ? memoryUsed(*memory) : std::nullopt),
                              line(pressure ? memoryPressure(*pressure) : std::nullopt),
                              line(power ? battery(*power) : std::nullopt),
                              net ? line(interfaces(*net)) : u"none"_s})
                     .join(u'|'),
                 expected);
        const QByteArray longRoot = root + '/' + QByteArray(600, 'x');
        const char *tooLong = longRoot.constData();
        QVERIFY(!Platform::readCpuTicks(tooLong) && !Platform::readMemory(tooLong) &&
                !Platform::readMemoryPressure(tooLong) && !Platform::readPowerSources(tooLong) &&
                !Platform::readInterfaces(tooLong));
    }

    void cpuLoad_data()
    {
        // Each pass: "user system idle nice" ("w" 32-bit, "-" a failed read) > the load after.
        QTest::addColumn<QStringList>("passes");
        QTest::newRow("nice is busy") << QStringList{u"0 0 0 0 > 0"_s, u"10 20 50 20 > 50"_s};
        QTest::newRow("32-bit wrap")
            << QStringList{u"4294967280 0 4294967040 0 w > 0"_s, u"16 0 32 0 w > 10"_s};
        QTest::newRow("64-bit back counts none")
            << QStringList{u"100 100 1000 0 > 0"_s, u"90 130 990 0 > 100"_s};
        QTest::newRow("no ticks keep the load")
            << QStringList{u"100 50 800 50 > 0"_s, u"130 60 900 60 > 33.3333"_s,
                           u"130 60 900 60 > 33.3333"_s, u"130 60 900 60 w > 33.3333"_s};
        QTest::newRow("failed reads keep the counters") << QStringList{
            u"- > 0"_s, u"0 0 0 0 > 0"_s, u"50 0 50 0 > 50"_s, u"- > 50"_s, u"80 0 70 0 > 60"_s};
    }
    void cpuLoad()
    {
        QFETCH(QStringList, passes);
        Fake fake;
        SystemStats stats(fake.sources());
        for (const QString &pass : passes) {
            const QStringList f = pass.split(u' ');
            fake.ticks.reset();
            if (f.size() > 3)
                fake.ticks = CpuTicks{f[0].toULongLong(), f[1].toULongLong(), f[2].toULongLong(),
                                      f[3].toULongLong(), f[4] == u"w"_s};
            stats.samplePass();
            QCOMPARE(QString::number(stats.cpuLoad()) + u" after "_s + pass,
                     f.last() + u" after "_s + pass);
        }
        QCOMPARE(fake.cpuReads, passes.size());
    }

    void network_data()
    {
        // Each pass: "name=rx/tx ..." ("-" no list, "0" empty), clock, rates up/down, primary.
        QTest::addColumn<QStringList>("passes");
        const QString a = u"en0=1000/0 en1=0/500 10 0 0 en0"_s;
        const QString b = u"en0=3000/0 en1=0/1500 12 500 1000 en0"_s;
        QTest::newRow("summed") << QStringList{a, b, u"en0=3300/0 en1=0/1530 13 30 300 en0"_s};
        QTest::newRow("rx back") << QStringList{a, b, u"en0=100/0 en1=0/1600 14 500 1000 en1"_s,
                                                u"en0=4100/0 en1=0/1700 16 50 2000 en0"_s};
        QTest::newRow("tx back") << QStringList{a, b, u"en0=5000/0 en1=0/10 14 500 1000 en0"_s,
                                                u"en0=5200/0 en1=0/30 15 20 200 en0"_s};
        QTest::newRow("no time") << QStringList{a, b, u"en0=9000/0 en1=0/9500 12 500 1000 en1"_s,
                                                u"en0=9400/0 en1=0/9600 14 50 200 en1"_s};
        QTest::newRow("no list") << QStringList{a, u"- 11 0 0 en0"_s, u"0 11 0 0 en0"_s, b};
        QTest::newRow("fraction") << QStringList{u"en0=0/0 1 0 0 "_s,
                                                 u"en0=300/30 1.5 60 600 en0"_s};
        QTest::newRow("tie; idle")
            << QStringList{u"en0=10/0 en1=0/10 1 0 0 en0"_s, u"en0=10/0 en1=5/15 2 5 5 en1"_s,
                           u"en2=0/0 3 5 5 en1"_s};
    }
    void network()
    {
        QFETCH(QStringList, passes);
        Fake fake;
        SystemStats stats(fake.sources());
        for (const QString &pass : passes) {
            QStringList f = pass.split(u' ');
            const QString expected = f.mid(f.size() - 3).join(u' ');
            fake.clock = f[f.size() - 4].toDouble();
            fake.interfaces =
                f[0] == u"-"_s ? std::nullopt : std::optional(QList<InterfaceCounters>());
            for (const QString &entry : f.first(f.size() - 4)) {
                const QStringList n = entry.split(QRegularExpression(u"[=/]"_s));
                if (n.size() == 3)
                    fake.interfaces->append(
                        InterfaceCounters{n[0], n[1].toULongLong(), n[2].toULongLong()});
            }
            stats.samplePass();
            QCOMPARE(
                u"%1 %2 %3"_s.arg(stats.netUp()).arg(stats.netDown()).arg(stats.primaryInterface()),
                expected);
        }
    }

    // A sampler's state as the panel reads it, and one changed() per pass that changed it.
    void passes()
    {
        Fake fake;
        fake.total = 7 * GB;
        SystemStats stats(fake.sources());
        QCOMPARE(stats.grade(), HealthGrade::poor); // nothing sampled: the disk is unknown
        QSignalSpy changed(&stats, &SystemStats::changed);
        fake.total = 9 * GB;                                  // read once, at creation
        fake.battery = BatteryReading{false, 99, true, true}; // a UPS alone
        stats.samplePass();
        stats.samplePass();
        QCOMPARE(changed.count(), 1);
        fake.pressure = 2;
        fake.used = 3 * GB;
        fake.disk = {900 * GB, 300 * GB};
        fake.battery = BatteryReading{true, 64, false, true};
        stats.samplePass();
        QVERIFY(changed.count() == 2 && stats.batteryPresent());
        fake.used.reset();
        fake.pressure = 3;    // no level
        fake.battery.reset(); // the other battery figures stay
        stats.samplePass();
        const Snapshot s = HealthTiles::fromStats(stats);
        QCOMPARE(
            (QList<qint64>{s.memoryUsed, s.memoryTotal, rawValue(s.memoryPressure), s.disk.total,
                           s.disk.free, s.batteryPercent, s.batteryOnAC, s.batteryPresent}),
            (QList<qint64>{3 * GB, 7 * GB, 2, 900 * GB, 300 * GB, 64, 1, 0}));
        QCOMPARE(HealthTiles::grade(s), HealthGrade::fair);
        fake.pressure = 1;
        stats.samplePass();
        QCOMPARE(stats.memoryPressure(), Level::normal);
        QVERIFY(fake.totalReads == 1 && fake.diskPaths == QStringList(5, u"/"_s));
    }

    // A pass at once, then one per interval until the sampler goes; a second start is ignored.
    void timer()
    {
        Fake fake, once;
        SystemStats first(once.sources());
        first.start(3600);
        first.start(0.01);
        auto stats = std::make_unique<SystemStats>(fake.sources());
        stats->start(0.01);
        QVERIFY(stats->started() && first.started() && fake.cpuReads == 1);
        QTRY_VERIFY_WITH_TIMEOUT(fake.cpuReads >= 3, 5000);
        stats.reset();
        const int reads = fake.cpuReads;
        QTest::qWait(60);
        QCOMPARE(fake.cpuReads + once.cpuReads, reads + 1);
    }

    // What the panel shows for a snapshot: a tile's icon|value|sub|ratio|warn, or the grade.
    void panel_data()
    {
        QTest::addColumn<QString>("snapshot");
        QTest::addColumn<int>("tile"); // the grid's order: CPU, memory, disk, battery; -1 grade
        QTest::addColumn<QString>("shows");
        const auto row = [](const char *snapshot, int tile, const char *shows) {
            QTest::addRow("%s: %d", snapshot, tile)
                << QString::fromLatin1(snapshot) << tile << QString::fromUtf8(shows);
        };
        // Poor under 5 % free or when critical; fair under 15 %, at warning or above 85 % load.
        row("85 1 0/0 150/1000", -1, "Good");
        row("85.1 1 0/0 150/1000", -1, "Fair");
        row("0 1 0/0 149/1000", -1, "Fair");
        row("0 2 0/0 900/1000", -1, "Fair");
        row("0 1 0/0 50/1000", -1, "Fair");
        row("0 1 0/0 49/1000", -1, "Poor");
        row("0 4 0/0 900/1000", -1, "Poor");
        row("0 1 0/0 0/0", -1, "Poor");
        row("0 1 0/0 1e-9/1e-9", -1, "Good");
        row("36.5 1 0/0 0/0", 0, "cpu|36%|load|0.365|0"); // printf's rounding
        row("85 1 0/0 0/0", 0, "cpu|85%|load|0.85|0");
        row("85.4 1 0/0 0/0", 0, "cpu|85%|load|0.854|1");
        row("0 1 8/16 0/0", 1, "memorychip|Normal|8 GB / 16 GB|0.5|0");
        row("0 2 2/16 0/0", 1, "memorychip|Warning|2 GB / 16 GB|0.125|1");
        row("0 4 0/0 0/0", 1, "memorychip|Critical|Zero KB / Zero KB|0|1");
        row("0 1 0/0 0/0", 2, "internaldrive|Zero KB|available of Zero KB|1|1");
        row("0 1 0/0 1e-9/1e-9", 2, "internaldrive|1 KB|available of 1 KB|0|0");
        row("0 1 0/0 75/500", 2, "internaldrive|75 GB|available of 500 GB|0.85|0");
        row("0 1 0/0 74.99/500", 2, "internaldrive|74.99 GB|available of 500 GB|0.85002|1");
        row("0 1 0/0 0/0 19", 3, "battery.75percent|19%|On battery|0.19|1");
        row("0 1 0/0 0/0 20", 3, "battery.75percent|20%|On battery|0.2|0");
        row("0 1 0/0 0/0 15+ac", 3, "battery.100percent.bolt|15%|On power|0.15|0");
        row("0 1 0/0 0/0 50+charging", 3, "battery.75percent|50%|Charging|0.5|0");
        row("0 1 0/0 0/0", 3, "powerplug|Desktop|No battery|0|0");
    }
    void panel()
    {
        QFETCH(QString, snapshot);
        QFETCH(int, tile);
        QFETCH(QString, shows);
        const Snapshot s = parseSnapshot(snapshot);
        const StatCard c = HealthTiles::tiles(s)[qMax(tile, 0)];
        const QString card =
            u"%1|%2|%3|%4|%5"_s.arg(c.icon, c.value, c.sub).arg(c.ratio).arg(int(c.warn));
        QCOMPARE(tile < 0 ? HealthTiles::gradeWord(HealthTiles::grade(s)) : card, shows);
    }

    // The label names the primary interface only when there is one, in either language.
    void words()
    {
        Snapshot s = parseSnapshot(u"0 4 0/0 0/0"_s);
        s.netUp = 1536;
        s.netDown = 5e6;
        const NetworkLine n = HealthTiles::network(s);
        QCOMPARE(n.label + u' ' + n.up + u' ' + n.down, u"Network 2 KB/s 4.8 MB/s"_s);
        s.primaryInterface = u"en0"_s;
        L10n::overrideForTesting(true);
        QCOMPARE(HealthTiles::network(s).label + HealthTiles::gradeWord(HealthTiles::grade(s)),
                 u"网络 · en0需处理"_s);
    }

    // systemd's pretty name (quoted or bare, escapes, the last line winning), else the
    // host name.
    void computerName_data()
    {
        QTest::addColumn<QByteArray>("file"); // "P=": the name's key
        QTest::addColumn<QString>("name");    // empty: the host name
        QTest::newRow("double") << QByteArray("P=a\n#\nP=\"A\\'s \\\"M\\\"\"") << u"A's \"M\""_s;
        QTest::newRow("single, CRLF") << QByteArray("P='C:\\ 王 '\r\nX=1") << u"C:\\ 王"_s;
        QTest::newRow("bare") << QByteArray("P= Büro 2 \n") << u"Büro 2"_s;
        QTest::newRow("blank") << QByteArray("P=\" \"\nX_P=x") << QString();
    }
    void computerName()
    {
#ifdef Q_OS_MACOS
        QSKIP("macOS asks the system, not a file");
#endif
        QFETCH(QByteArray, file);
        QFETCH(QString, name);
        QTemporaryDir dir;
        QFile out(dir.filePath(u"machine-info"_s));
        file.replace("P=", "PRETTY_HOSTNAME="); // the key, spelt out once
        QVERIFY(out.open(QIODevice::WriteOnly) && out.write(file) == file.size() && out.flush());
        QCOMPARE(Platform::computerName(out.fileName()),
                 name.isEmpty() ? QSysInfo::machineHostName() : name);
    }

private:
    TestHome m_home;
};

QTEST_GUILESS_MAIN(HealthTest)
#include "tst_health.moc"
