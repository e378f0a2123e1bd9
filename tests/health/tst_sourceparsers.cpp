#include "common/TestHome.h"
#include "health/SourceTestHelpers.h"

#include "core/health/SourceParsers.h"
#include "core/health/StatsSources.h"
#include "platform/HealthSources.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>
#include <memory>

using namespace Qt::StringLiterals;
using namespace SourceTest;

namespace {

QByteArray fixture(const char *name)
{
    QFile file(QFINDTESTDATA(u"fixtures/"_s + QLatin1String(name)));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

const QByteArray kIdlePsi = "some avg10=0.00 avg60=0.00 avg300=0.00 total=0\n"
                            "full avg10=0.00 avg60=0.00 avg300=0.00 total=0\n";
const QByteArray kBusyPsi = "some avg10=23.45 avg60=12.10 avg300=3.02 total=912344871\n"
                            "full avg10=2.10 avg60=1.04 avg300=0.20 total=120938811\n";
const QByteArray kServerMeminfo = "MemTotal:       263842516 kB\nMemFree:         3120044 kB\n"
                                  "MemAvailable:   190133268 kB\nBuffers:         1022288 kB\n";

} // namespace

// CPU, memory and memory pressure; batteries and interfaces are in tst_powersources.
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
