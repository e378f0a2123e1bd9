#include "common/TestHome.h"
#include "health/FakeSources.h"

#include "core/health/SystemStats.h"
#include "core/text/L10n.h"
#include "core/words/HealthTiles.h"

#include <QtTest>
#include <memory>

using namespace Qt::StringLiterals;

namespace {

using Interfaces = QList<InterfaceCounters>;

enum class Tile { cpu, memory, disk, battery };

HealthTiles::Snapshot load(double cpu)
{
    HealthTiles::Snapshot s;
    s.cpuLoad = cpu;
    return s;
}

HealthTiles::Snapshot memory(MemoryPressureLevel pressure, qint64 used, qint64 total)
{
    HealthTiles::Snapshot s;
    s.memoryPressure = pressure;
    s.memoryUsed = used;
    s.memoryTotal = total;
    return s;
}

HealthTiles::Snapshot volume(qint64 free, qint64 total)
{
    HealthTiles::Snapshot s;
    s.disk = {total, free};
    return s;
}

HealthTiles::Snapshot power(bool present, int percent, bool charging, bool onAC)
{
    HealthTiles::Snapshot s;
    s.batteryPresent = present;
    s.batteryPercent = percent;
    s.batteryCharging = charging;
    s.batteryOnAC = onAC;
    return s;
}

} // namespace

Q_DECLARE_METATYPE(HealthTiles::Snapshot)
Q_DECLARE_METATYPE(Tile)

// The panel's figures and texts, from a sampler's state to each tile's words.
class HealthTilesTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { m_home = std::make_unique<TestHome>(); }
    void cleanup() { L10n::overrideForTesting(false); }

    void snapshotFromStats();
    void words_data();
    void words();
    void tiles_data();
    void tiles();
    void networkLine_data();
    void networkLine();

private:
    std::unique_ptr<TestHome> m_home;
};

void HealthTilesTest::snapshotFromStats()
{
    Fake fake;
    fake.total = 7 * GB;
    SystemStats stats(fake.sources());
    fake.ticks = ticks(0, 0, 0, 0);
    fake.interfaces = Interfaces{{u"en3"_s, 100, 10}};
    stats.samplePass();
    fake.ticks = ticks(25, 0, 75, 0);
    fake.pressure = 2;
    fake.used = 3 * GB;
    fake.disk = {900 * GB, 300 * GB};
    fake.battery = BatteryReading{true, 64, false, true};
    fake.interfaces = Interfaces{{u"en3"_s, 500, 30}};
    fake.clock = 2;
    stats.samplePass();
    const HealthTiles::Snapshot s = HealthTiles::fromStats(stats);
    QCOMPARE(s.cpuLoad, 25.0);
    QCOMPARE(s.memoryUsed, 3 * GB);
    QCOMPARE(s.memoryTotal, 7 * GB);
    QCOMPARE(s.memoryPressure, MemoryPressureLevel::warning);
    QCOMPARE(s.disk.total, 900 * GB);
    QCOMPARE(s.disk.free, 300 * GB);
    QVERIFY(s.batteryPresent && !s.batteryCharging && s.batteryOnAC);
    QCOMPARE(s.batteryPercent, 64);
    QCOMPARE(s.netUp, 10.0);
    QCOMPARE(s.netDown, 200.0);
    QCOMPARE(s.primaryInterface, u"en3"_s);
    QCOMPARE(HealthTiles::grade(s), HealthGrade::fair);
}

void HealthTilesTest::words_data()
{
    QTest::addColumn<bool>("zh");
    QTest::addColumn<QStringList>("expected"); // heading, grades, pressures
    QTest::newRow("en") << false
                        << QStringList{u"Mac Health:"_s, u"Good"_s,    u"Fair"_s,    u"Poor"_s,
                                       u"Normal"_s,      u"Warning"_s, u"Critical"_s};
    QTest::newRow("zh") << true << QStringList{u"Mac 健康："_s, u"良好"_s, u"一般"_s, u"需处理"_s,
                                               u"正常"_s,       u"偏高"_s, u"严重"_s};
}

void HealthTilesTest::words()
{
    QFETCH(bool, zh);
    QFETCH(QStringList, expected);
    L10n::overrideForTesting(zh);
    using namespace HealthTiles;
    QCOMPARE(
        QStringList({headingLabel(), gradeWord(HealthGrade::good), gradeWord(HealthGrade::fair),
                     gradeWord(HealthGrade::poor), pressureWord(MemoryPressureLevel::normal),
                     pressureWord(MemoryPressureLevel::warning),
                     pressureWord(MemoryPressureLevel::critical)}),
        expected);
    QCOMPARE(caseName(HealthGrade::fair), u"fair"_s); // never translated
    QCOMPARE(caseName(MemoryPressureLevel::critical), u"critical"_s);
}

void HealthTilesTest::tiles_data()
{
    QTest::addColumn<bool>("zh");
    QTest::addColumn<Tile>("tile");
    QTest::addColumn<HealthTiles::Snapshot>("snapshot");
    QTest::addColumn<QString>("texts"); // icon|title|value|sub
    QTest::addColumn<double>("ratio");
    QTest::addColumn<bool>("warn");
    const auto row = [](const char *name, bool zh, Tile tile, const HealthTiles::Snapshot &s,
                        const QString &texts, double ratio, bool warn) {
        QTest::newRow(name) << zh << tile << s << texts << ratio << warn;
    };
    const auto normal = MemoryPressureLevel::normal;
    row("cpu 0", false, Tile::cpu, load(0), u"cpu|CPU|0%|load"_s, 0, false);
    row("cpu 37.5 to even", false, Tile::cpu, load(37.5), u"cpu|CPU|38%|load"_s, .375, false);
    row("cpu 36.5 to even", false, Tile::cpu, load(36.5), u"cpu|CPU|36%|load"_s, .365, false);
    row("cpu 85 calm", false, Tile::cpu, load(85), u"cpu|CPU|85%|load"_s, .85, false);
    row("cpu 85.4 warns", false, Tile::cpu, load(85.4), u"cpu|CPU|85%|load"_s, .854, true);
    row("cpu 86 zh", true, Tile::cpu, load(86), u"cpu|CPU|86%|负载"_s, .86, true);
    row("memory normal", false, Tile::memory, memory(normal, 8 * GB, 16 * GB),
        u"memorychip|Memory|Normal|8 GB / 16 GB"_s, .5, false);
    row("memory warning, short bar", false, Tile::memory,
        memory(MemoryPressureLevel::warning, 2 * GB, 16 * GB),
        u"memorychip|Memory|Warning|2 GB / 16 GB"_s, .125, true);
    row("memory no total", false, Tile::memory, memory(normal, 0, 0),
        u"memorychip|Memory|Normal|Zero KB / Zero KB"_s, 0, false);
    row("memory zh critical", true, Tile::memory,
        memory(MemoryPressureLevel::critical, 15'500'000'000, 16 * GB),
        u"memorychip|内存|严重|15.5 GB / 16 GB"_s, 15.5 / 16, true);
    row("disk unknown", false, Tile::disk, volume(0, 0),
        u"internaldrive|Macintosh HD|Zero KB|available of Zero KB"_s, 1, true);
    row("disk exactly 15 %", false, Tile::disk, volume(75 * GB, 500 * GB),
        u"internaldrive|Macintosh HD|75 GB|available of 500 GB"_s, .85, false);
    row("disk below 15 %", false, Tile::disk, volume(74'990'000'000, 500 * GB),
        u"internaldrive|Macintosh HD|74.99 GB|available of 500 GB"_s, 1 - 74.99 / 500, true);
    row("disk zh", true, Tile::disk, volume(250 * GB, 1000 * GB),
        u"internaldrive|磁盘|250 GB|可用，共 1 TB"_s, .75, false);
    row("disk zh unknown", true, Tile::disk, volume(0, 0),
        u"internaldrive|磁盘|零 KB|可用，共 零 KB"_s, 1, true);
    const QString plain = u"battery.75percent|Battery|"_s;
    const QString bolt = u"battery.100percent.bolt|Battery|"_s;
    row("15 on battery", false, Tile::battery, power(true, 15, false, false),
        plain + u"15%|On battery"_s, .15, true);
    row("15 plugged", false, Tile::battery, power(true, 15, false, true), bolt + u"15%|On power"_s,
        .15, false);
    row("15 charging", false, Tile::battery, power(true, 15, true, true), bolt + u"15%|Charging"_s,
        .15, false);
    row("19 on battery", false, Tile::battery, power(true, 19, false, false),
        plain + u"19%|On battery"_s, .19, true);
    row("20 on battery", false, Tile::battery, power(true, 20, false, false),
        plain + u"20%|On battery"_s, .2, false);
    row("desktop", false, Tile::battery, power(false, 80, true, true),
        u"powerplug|Power|Desktop|No battery"_s, 0, false);
    row("zh on battery", true, Tile::battery, power(true, 15, false, false),
        u"battery.75percent|电池|15%|电池供电"_s, .15, true);
    row("zh plugged", true, Tile::battery, power(true, 100, false, true),
        u"battery.100percent.bolt|电池|100%|已接电源"_s, 1, false);
    row("zh charging", true, Tile::battery, power(true, 50, true, false),
        u"battery.75percent|电池|50%|充电中"_s, .5, false);
    row("zh desktop", true, Tile::battery, power(false, 0, false, false),
        u"powerplug|电源|台式机|无电池"_s, 0, false);
}

void HealthTilesTest::tiles()
{
    QFETCH(bool, zh);
    QFETCH(Tile, tile);
    QFETCH(HealthTiles::Snapshot, snapshot);
    QFETCH(QString, texts);
    QFETCH(double, ratio);
    QFETCH(bool, warn);
    L10n::overrideForTesting(zh);
    const StatCard card = HealthTiles::tiles(snapshot)[int(tile)]; // the grid's order
    QCOMPARE(QStringList({card.icon, card.title, card.value, card.sub}).join(u'|'), texts);
    QVERIFY2(qAbs(card.ratio - ratio) < 1e-12, qPrintable(QString::number(card.ratio)));
    QCOMPARE(card.warn, warn);
}

void HealthTilesTest::networkLine_data()
{
    QTest::addColumn<bool>("zh");
    QTest::addColumn<QString>("interface");
    QTest::addColumn<double>("up");
    QTest::addColumn<double>("down");
    QTest::addColumn<QStringList>("texts"); // label, up, down
    QTest::newRow("none yet") << false << QString() << 0.0 << 0.0
                              << QStringList{u"Network"_s, u"0 B/s"_s, u"0 B/s"_s};
    QTest::newRow("en0") << false << u"en0"_s << 1536.0 << 5e6
                         << QStringList{u"Network · en0"_s, u"2 KB/s"_s, u"4.8 MB/s"_s};
    QTest::newRow("zh none") << true << QString() << 1023.6 << 1024.0
                             << QStringList{u"网络"_s, u"1024 B/s"_s, u"1 KB/s"_s};
    QTest::newRow("zh en1") << true << u"en1"_s << 1048576.0 << 1048575.0
                            << QStringList{u"网络 · en1"_s, u"1.0 MB/s"_s, u"1024 KB/s"_s};
}

void HealthTilesTest::networkLine()
{
    QFETCH(bool, zh);
    QFETCH(QString, interface);
    QFETCH(double, up);
    QFETCH(double, down);
    QFETCH(QStringList, texts);
    L10n::overrideForTesting(zh);
    HealthTiles::Snapshot s;
    s.primaryInterface = interface;
    s.netUp = up;
    s.netDown = down;
    const NetworkLine line = HealthTiles::network(s);
    QCOMPARE(QStringList({line.label, line.up, line.down}), texts);
    QCOMPARE(QStringList({line.icon, line.upIcon, line.downIcon}),
             QStringList({u"network"_s, u"arrow.up"_s, u"arrow.down"_s}));
}

QTEST_GUILESS_MAIN(HealthTilesTest)
#include "tst_healthtiles.moc"
