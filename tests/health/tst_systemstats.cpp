#include "common/TestHome.h"
#include "health/FakeSources.h"

#include "core/health/SystemStats.h"

#include <QSignalSpy>
#include <QtTest>
#include <limits>
#include <memory>

using namespace Qt::StringLiterals;

namespace {

constexpr int kFails = std::numeric_limits<int>::min(); // a read that fails, in int tables

// One interface per step; rx -1 stands for a listing that failed, -2 for an empty one.
struct NetStep
{
    qint64 rx;
    quint64 tx;
    double t;
    double up;
    double down;
};

using Readings = QList<std::optional<BatteryReading>>;
using Interfaces = QList<InterfaceCounters>;

} // namespace

Q_DECLARE_METATYPE(CpuTicks)
Q_DECLARE_METATYPE(MemoryPressureLevel)
Q_DECLARE_METATYPE(HealthGrade)
Q_DECLARE_METATYPE(Readings)
Q_DECLARE_METATYPE(std::optional<Interfaces>)
Q_DECLARE_METATYPE(QList<NetStep>)
Q_DECLARE_METATYPE(BatteryReading)

// The sampler's figures and grade; the panel's texts are in tst_healthtiles.
class SystemStatsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { m_home = std::make_unique<TestHome>(); }

    void cpuLoad_data();
    void cpuLoad();
    void identicalTicksKeepLoad();
    void failedCpuReadKeepsCounters();
    void pressure_data();
    void pressure();
    void memoryUsedAndTotal();
    void battery_data();
    void battery();
    void primaryInterface_data();
    void primaryInterface();
    void rates_data();
    void rates();
    void ratesSumInterfaces();
    void grade_data();
    void grade();
    void modelGradeAndDisk();
    void changedOncePerChangingPass();
    void startSamplesAtOnceAndRepeats();
    void secondStartChangesNothing();
    void nothingRunsOnceGone();

private:
    std::unique_ptr<TestHome> m_home;
};

void SystemStatsTest::cpuLoad_data()
{
    QTest::addColumn<CpuTicks>("first");
    QTest::addColumn<CpuTicks>("second");
    QTest::addColumn<double>("expected");
    QTest::newRow("example") << ticks(100, 50, 800, 50) << ticks(130, 60, 900, 60) << 100.0 / 3;
    QTest::newRow("nice is busy") << ticks(0, 0, 0, 0) << ticks(0, 0, 50, 50) << 50.0;
    QTest::newRow("all idle") << ticks(5, 5, 5, 5) << ticks(5, 5, 105, 5) << 0.0;
    QTest::newRow("32-bit wrap") << ticks(0xFFFFFFF0, 0, 0xFFFFFF00, 0, true)
                                 << ticks(0x10, 0, 0x20, 0, true) << 32.0 / (32 + 0x120) * 100;
    QTest::newRow("iowait back on 64")
        << ticks(100, 100, 1000, 0) << ticks(130, 110, 990, 0) << 100.0;
    QTest::newRow("user back on 64")
        << ticks(100, 50, 800, 50) << ticks(90, 60, 900, 60) << 20.0 / 120 * 100;
    QTest::newRow("64-bit, beyond 2^32")
        << ticks(0, 0, 0, 0) << ticks(1ULL << 33, 0, 1ULL << 33, 0) << 50.0;
}

void SystemStatsTest::cpuLoad()
{
    QFETCH(CpuTicks, first);
    QFETCH(CpuTicks, second);
    QFETCH(double, expected);
    Fake fake;
    SystemStats stats(fake.sources());
    fake.ticks = first;
    stats.samplePass();
    QCOMPARE(stats.cpuLoad(), 0.0);
    fake.ticks = second;
    stats.samplePass();
    QVERIFY2(qAbs(stats.cpuLoad() - expected) < 1e-9, qPrintable(QString::number(stats.cpuLoad())));
}

void SystemStatsTest::identicalTicksKeepLoad()
{
    Fake fake;
    SystemStats stats(fake.sources());
    for (const CpuTicks &t : {ticks(100, 50, 800, 50), ticks(130, 60, 900, 60),
                              ticks(130, 60, 900, 60), ticks(130, 60, 900, 60, true)})
        fake.ticks = t, stats.samplePass();
    QCOMPARE(stats.cpuLoad(), 100.0 / 3);
}

void SystemStatsTest::failedCpuReadKeepsCounters()
{
    Fake fake;
    SystemStats stats(fake.sources());
    stats.samplePass(); // fails before any counters: still the first measurement to come
    QCOMPARE(stats.cpuLoad(), 0.0);
    fake.ticks = ticks(0, 0, 0, 0);
    stats.samplePass();
    QCOMPARE(stats.cpuLoad(), 0.0);
    fake.ticks = ticks(50, 0, 50, 0);
    stats.samplePass();
    QCOMPARE(stats.cpuLoad(), 50.0);
    fake.ticks.reset();
    stats.samplePass();
    QCOMPARE(stats.cpuLoad(), 50.0);
    fake.ticks = ticks(80, 0, 70, 0); // from (50, 0, 50, 0): 30 busy of 50
    stats.samplePass();
    QCOMPARE(stats.cpuLoad(), 60.0);
    QCOMPARE(fake.cpuReads, 5);
}

void SystemStatsTest::pressure_data()
{
    QTest::addColumn<QList<int>>("reads");
    QTest::addColumn<MemoryPressureLevel>("expected");
    QTest::newRow("initial") << QList<int>{} << MemoryPressureLevel::normal;
    QTest::newRow("warning") << QList<int>{2} << MemoryPressureLevel::warning;
    QTest::newRow("critical") << QList<int>{4} << MemoryPressureLevel::critical;
    QTest::newRow("back to normal") << QList<int>{4, 1} << MemoryPressureLevel::normal;
    QTest::newRow("3 unchanged") << QList<int>{2, 3} << MemoryPressureLevel::warning;
    QTest::newRow("0 unchanged") << QList<int>{4, 0} << MemoryPressureLevel::critical;
    QTest::newRow("5 unchanged") << QList<int>{2, 5} << MemoryPressureLevel::warning;
    QTest::newRow("-1 unchanged") << QList<int>{4, -1} << MemoryPressureLevel::critical;
    QTest::newRow("failed unchanged") << QList<int>{2, kFails} << MemoryPressureLevel::warning;
}

void SystemStatsTest::pressure()
{
    QFETCH(QList<int>, reads);
    QFETCH(MemoryPressureLevel, expected);
    Fake fake;
    SystemStats stats(fake.sources());
    for (int raw : reads) {
        fake.pressure = raw == kFails ? std::nullopt : std::optional<int>(raw);
        stats.samplePass();
    }
    QCOMPARE(stats.memoryPressure(), expected);
    QCOMPARE(memoryPressureLevelFromRaw(rawValue(expected)), std::optional(expected));
}

void SystemStatsTest::memoryUsedAndTotal()
{
    Fake fake;
    fake.total = 8 * GB;
    SystemStats stats(fake.sources());
    QCOMPARE(stats.memoryTotal(), 8 * GB);
    fake.total = 32 * GB;
    fake.used = 5 * GB;
    stats.samplePass();
    QCOMPARE(stats.memoryUsed(), 5 * GB);
    fake.used.reset();
    stats.samplePass();
    QCOMPARE(stats.memoryUsed(), 5 * GB);
    QCOMPARE(stats.memoryTotal(), 8 * GB); // read once, at creation
    QCOMPARE(fake.totalReads, 1);
}

void SystemStatsTest::battery_data()
{
    QTest::addColumn<Readings>("readings");
    QTest::addColumn<BatteryReading>("expected");
    const BatteryReading laptop{true, 55, true, true};
    const BatteryReading ups{false, 99, false, false}; // the list had only another kind
    QTest::newRow("desktop") << Readings{std::nullopt} << BatteryReading{};
    QTest::newRow("ups alone") << Readings{ups} << BatteryReading{};
    QTest::newRow("laptop") << Readings{laptop} << laptop;
    QTest::newRow("laptop, then ups only")
        << Readings{laptop, ups} << BatteryReading{false, 55, true, true};
    QTest::newRow("laptop, then no list")
        << Readings{laptop, std::nullopt} << BatteryReading{false, 55, true, true};
    QTest::newRow("unplugged later") << Readings{laptop, BatteryReading{true, 12, false, false}}
                                     << BatteryReading{true, 12, false, false};
}

void SystemStatsTest::battery()
{
    QFETCH(Readings, readings);
    QFETCH(BatteryReading, expected);
    Fake fake;
    SystemStats stats(fake.sources());
    for (const auto &reading : readings)
        fake.battery = reading, stats.samplePass();
    QCOMPARE(stats.batteryPresent(), expected.present);
    QCOMPARE(stats.batteryPercent(), expected.percent);
    QCOMPARE(stats.batteryCharging(), expected.charging);
    QCOMPARE(stats.batteryOnAC(), expected.onAC);
}

void SystemStatsTest::primaryInterface_data()
{
    // After a first pass that made wlan0 the primary one.
    QTest::addColumn<std::optional<Interfaces>>("list");
    QTest::addColumn<QString>("expected");
    QTest::newRow("en1 busier") << std::optional(
                                       Interfaces{{u"en0"_s, GB / 2, GB / 2}, {u"en1"_s, GB, GB}})
                                << u"en1"_s;
    QTest::newRow("tie: first") << std::optional(Interfaces{{u"en0"_s, 10, 0}, {u"en1"_s, 0, 10}})
                                << u"en0"_s;
    QTest::newRow("later wins") << std::optional(Interfaces{
                                       {u"en0"_s, 1, 0}, {u"en1"_s, 0, 0}, {u"bridge0"_s, 1, 1}})
                                << u"bridge0"_s;
    QTest::newRow("no traffic keeps") << std::optional(Interfaces{{u"en0"_s, 0, 0}}) << u"wlan0"_s;
    QTest::newRow("empty keeps") << std::optional(Interfaces{}) << u"wlan0"_s;
    QTest::newRow("failed keeps") << std::optional<Interfaces>() << u"wlan0"_s;
}

void SystemStatsTest::primaryInterface()
{
    QFETCH(std::optional<Interfaces>, list);
    QFETCH(QString, expected);
    Fake fake;
    SystemStats stats(fake.sources());
    fake.interfaces = Interfaces{{u"wlan0"_s, 5, 5}};
    stats.samplePass();
    QCOMPARE(stats.primaryInterface(), u"wlan0"_s);
    fake.interfaces = list;
    stats.samplePass();
    QCOMPARE(stats.primaryInterface(), expected);
}

void SystemStatsTest::rates_data()
{
    // Each step: the counters and clock read, then the rates expected after that pass.
    QTest::addColumn<QList<NetStep>>("steps");
    using L = QList<NetStep>;
    QTest::newRow("first sample") << L{{1000, 500, 10, 0, 0}};
    QTest::newRow("measured each pass")
        << L{{1000, 500, 10, 0, 0}, {3000, 1500, 12, 500, 1000}, {3300, 1530, 13, 30, 300}};
    QTest::newRow("rx wrapped keeps, then measures from it") << L{{1000, 500, 10, 0, 0},
                                                                  {3000, 1500, 12, 500, 1000},
                                                                  {100, 1600, 14, 500, 1000},
                                                                  {4100, 1700, 16, 50, 2000}};
    QTest::newRow("tx went down keeps") << L{{1000, 500, 10, 0, 0},
                                             {3000, 1500, 12, 500, 1000},
                                             {5000, 10, 14, 500, 1000},
                                             {5200, 30, 15, 20, 200}};
    QTest::newRow("dt zero keeps, then measures") << L{{1000, 500, 10, 0, 0},
                                                       {3000, 1500, 12, 500, 1000},
                                                       {9000, 9500, 12, 500, 1000},
                                                       {9400, 9600, 14, 50, 200}};
    QTest::newRow("clock back keeps")
        << L{{1000, 500, 10, 0, 0}, {3000, 1500, 12, 500, 1000}, {9000, 9500, 11, 500, 1000}};
    QTest::newRow("failed list changes nothing")
        << L{{1000, 500, 10, 0, 0}, {-1, 0, 11, 0, 0}, {3000, 1500, 12, 500, 1000}};
    QTest::newRow("empty list changes nothing")
        << L{{1000, 500, 10, 0, 0}, {-2, 0, 11, 0, 0}, {3000, 1500, 12, 500, 1000}};
    QTest::newRow("fractional dt") << L{{0, 0, 1.0, 0, 0}, {300, 30, 1.5, 60, 600}};
    QTest::newRow("64-bit totals")
        << L{{qint64(1) << 40, 0, 0, 0, 0}, {(qint64(1) << 40) + 4096, 8, 4, 2, 1024}};
}

void SystemStatsTest::rates()
{
    QFETCH(QList<NetStep>, steps);
    Fake fake;
    SystemStats stats(fake.sources());
    for (qsizetype i = 0; i < steps.size(); ++i) {
        const NetStep &step = steps[i];
        fake.interfaces.reset();
        if (step.rx >= 0)
            fake.interfaces = Interfaces{{u"en0"_s, quint64(step.rx), step.tx}};
        else if (step.rx == -2)
            fake.interfaces = Interfaces{};
        fake.clock = step.t;
        stats.samplePass();
        QVERIFY2(stats.netUp() == step.up && stats.netDown() == step.down,
                 qPrintable(
                     u"step %1: up %2, down %3"_s.arg(i).arg(stats.netUp()).arg(stats.netDown())));
    }
}

void SystemStatsTest::ratesSumInterfaces()
{
    Fake fake;
    SystemStats stats(fake.sources());
    fake.interfaces = Interfaces{{u"en0"_s, 100, 10}, {u"en1"_s, 1000, 20}};
    stats.samplePass();
    fake.interfaces = Interfaces{{u"en0"_s, 300, 30}, {u"en1"_s, 1200, 60}};
    fake.clock = 2;
    stats.samplePass();
    QCOMPARE(stats.netDown(), 200.0);
    QCOMPARE(stats.netUp(), 30.0);
}

void SystemStatsTest::grade_data()
{
    QTest::addColumn<double>("cpu");
    QTest::addColumn<MemoryPressureLevel>("pressure");
    QTest::addColumn<qint64>("freeGB");
    QTest::addColumn<qint64>("totalGB");
    QTest::addColumn<HealthGrade>("expected");
    const auto normal = MemoryPressureLevel::normal;
    const auto warning = MemoryPressureLevel::warning;
    const auto critical = MemoryPressureLevel::critical;
    QTest::newRow("40 of 1000") << 10.0 << normal << 40LL << 1000LL << HealthGrade::poor;
    QTest::newRow("100 of 1000") << 10.0 << normal << 100LL << 1000LL << HealthGrade::fair;
    QTest::newRow("200, warning") << 10.0 << warning << 200LL << 1000LL << HealthGrade::fair;
    QTest::newRow("200, 90 %") << 90.0 << normal << 200LL << 1000LL << HealthGrade::fair;
    QTest::newRow("200, 85 %") << 85.0 << normal << 200LL << 1000LL << HealthGrade::good;
    QTest::newRow("200, fine") << 10.0 << normal << 200LL << 1000LL << HealthGrade::good;
    QTest::newRow("exactly 5 %") << 10.0 << normal << 50LL << 1000LL << HealthGrade::fair;
    QTest::newRow("exactly 15 %") << 10.0 << normal << 150LL << 1000LL << HealthGrade::good;
    QTest::newRow("critical") << 0.0 << critical << 900LL << 1000LL << HealthGrade::poor;
    QTest::newRow("unknown disk") << 0.0 << normal << 0LL << 0LL << HealthGrade::poor;
    QTest::newRow("full disk") << 0.0 << normal << 0LL << 1000LL << HealthGrade::poor;
}

void SystemStatsTest::grade()
{
    QFETCH(double, cpu);
    QFETCH(MemoryPressureLevel, pressure);
    QFETCH(qint64, freeGB);
    QFETCH(qint64, totalGB);
    QFETCH(HealthGrade, expected);
    QCOMPARE(SystemStats::gradeFor(cpu, pressure, DiskUsage{totalGB * GB, freeGB * GB}), expected);
}

void SystemStatsTest::modelGradeAndDisk()
{
    Fake fake;
    SystemStats stats(fake.sources());
    QCOMPARE(stats.grade(), HealthGrade::poor); // nothing sampled: the disk is unknown
    fake.disk = {1000 * GB, 120 * GB};
    stats.samplePass();
    QCOMPARE(fake.diskPaths, QStringList{u"/"_s});
    QCOMPARE(stats.disk().free, 120 * GB);
    QCOMPARE(stats.grade(), HealthGrade::fair);
    fake.pressure = 4;
    stats.samplePass();
    QCOMPARE(stats.grade(), HealthGrade::poor);
}

void SystemStatsTest::changedOncePerChangingPass()
{
    Fake fake;
    fake.ticks = ticks(0, 0, 0, 0);
    SystemStats stats(fake.sources());
    QSignalSpy spy(&stats, &SystemStats::changed);
    stats.samplePass(); // the disk arrives
    QCOMPARE(spy.count(), 1);
    stats.samplePass(); // identical everything
    QCOMPARE(spy.count(), 1);
    fake.ticks = ticks(10, 10, 10, 10);
    fake.used = GB;
    fake.battery = BatteryReading{true, 40, false, false};
    stats.samplePass();
    QCOMPARE(spy.count(), 2);
}

void SystemStatsTest::startSamplesAtOnceAndRepeats()
{
    Fake fake;
    SystemStats stats(fake.sources());
    QVERIFY(!stats.started());
    stats.start(0.02);
    QCOMPARE(fake.cpuReads, 1); // before any event runs
    QVERIFY(stats.started());
    QTRY_VERIFY_WITH_TIMEOUT(fake.cpuReads >= 4, 5000);
}

void SystemStatsTest::secondStartChangesNothing()
{
    Fake fake;
    SystemStats stats(fake.sources());
    stats.start(3600);
    stats.start(0.01); // neither a pass nor a shorter interval
    QCOMPARE(fake.cpuReads, 1);
    QTest::qWait(200);
    QCOMPARE(fake.cpuReads, 1);
}

void SystemStatsTest::nothingRunsOnceGone()
{
    Fake fake;
    auto *stats = new SystemStats(fake.sources());
    stats->start(0.01);
    QTRY_VERIFY_WITH_TIMEOUT(fake.cpuReads >= 2, 5000);
    delete stats;
    const int reads = fake.cpuReads;
    QTest::qWait(100);
    QCOMPARE(fake.cpuReads, reads);
}

QTEST_GUILESS_MAIN(SystemStatsTest)
#include "tst_systemstats.moc"
