#include "common/TestHome.h"
#include "core/health/SystemStats.h"
#include "core/text/L10n.h"
#include "ui/HealthPanel.h"
#include "ui/Theme.h"

#include <QAbstractButton>
#include <QLabel>
#include <QPointer>
#include <QSysInfo>
#include <QtTest>
#include <memory>
#include <optional>

using namespace Qt::StringLiterals;

namespace {

// What the fake machine reports over one measured interval.
struct Machine
{
    int cpu = 37; // percent busy
    MemoryPressureLevel pressure = MemoryPressureLevel::normal;
    qint64 memoryUsed = 8'000'000'000;
    qint64 memoryTotal = 16'000'000'000;
    DiskUsage disk{500'000'000'000, 250'000'000'000};
    std::optional<BatteryReading> battery; // none: a desktop
    QString interface = u"eth0"_s;         // empty: no counted interface yet
    double up = 2048;                      // bytes per second
    double down = 3 * 1048576.0;
};

// Sources with exact numbers. The first pass only sets the baselines for CPU and network,
// as on a real machine; the second measures `machine` over a 2-second interval.
struct FakeSources
{
    Machine machine;
    CpuTicks ticks;
    quint64 rx = 0, tx = 0;
    double clock = 0;
    bool cpuPrimed = false, netPrimed = false;

    StatsSources sources()
    {
        StatsSources s;
        s.cpuTicks = [this] {
            if (cpuPrimed)
                ticks.user += quint64(machine.cpu), ticks.idle += quint64(100 - machine.cpu);
            cpuPrimed = true;
            return std::optional(ticks);
        };
        s.memoryPressure = [this] { return std::optional(rawValue(machine.pressure)); };
        s.memoryUsed = [this] { return std::optional(machine.memoryUsed); };
        s.memoryTotal = [this] { return machine.memoryTotal; };
        s.diskUsage = [this](const QString &) { return machine.disk; };
        s.battery = [this] { return machine.battery; };
        s.interfaces = [this] {
            if (netPrimed)
                clock += 2, rx += quint64(machine.down * 2), tx += quint64(machine.up * 2);
            netPrimed = true;
            QList<InterfaceCounters> list;
            if (!machine.interface.isEmpty())
                list.append({machine.interface, rx, tx});
            return std::optional(list);
        };
        s.now = [this] { return clock; };
        return s;
    }
};

// A panel on a fake machine, built before the first pass so it draws from changed().
struct PanelRig
{
    FakeSources fake;
    std::unique_ptr<SystemStats> stats;
    std::unique_ptr<HealthPanel> panel;
    int opened = 0;
    int quitted = 0;

    explicit PanelRig(const Machine &machine, Qt::WindowFlags flags = {})
    {
        fake.machine = machine;
        stats = std::make_unique<SystemStats>(fake.sources());
        panel = std::make_unique<HealthPanel>(
            *stats, [this] { ++opened; }, [this] { ++quitted; });
        panel->setWindowFlags(flags);
        stats->samplePass();
        stats->samplePass();
    }
    QWidget *tile(const QString &name) const { return panel->findChild<QWidget *>(name); }
};

// Expected texts written as one '|'-separated string, to keep the tables readable.
QStringList texts(const QString &joined)
{
    return joined.split(u'|');
}

QStringList shownTexts(const QWidget *root)
{
    QStringList found;
    for (const QLabel *l : root->findChildren<QLabel *>())
        if (!l->text().isEmpty())
            found << l->text();
    for (const QAbstractButton *b : root->findChildren<QAbstractButton *>())
        found << b->text();
    found.sort();
    return found;
}

QColor textColour(const QWidget *w)
{
    return w->palette().color(w->foregroundRole());
}

QColor gradeColour(HealthGrade grade)
{
    return grade == HealthGrade::good   ? Theme::good()
           : grade == HealthGrade::fair ? Theme::fair()
                                        : Theme::poor();
}

Machine laptop(int percent, bool charging, bool onAC)
{
    Machine m;
    m.battery = BatteryReading{true, percent, charging, onAC};
    return m;
}

} // namespace

Q_DECLARE_METATYPE(Machine)
Q_DECLARE_METATYPE(HealthGrade)

// The health panel on a fake machine: its texts, grade, tiles and buttons.
class HealthPanelTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init() { L10n::overrideForTesting(false); }

    void panelTexts_data();
    void panelTexts();
    void panelGrade_data();
    void panelGrade();
    void panelTiles_data();
    void panelTiles();
    void panelActions_data();
    void panelActions();
    void panelUpdatesInPlace();

private:
    std::unique_ptr<TestHome> m_home;
};

void HealthPanelTest::initTestCase()
{
    m_home = std::make_unique<TestHome>();
}

void HealthPanelTest::panelTexts_data()
{
    QTest::addColumn<bool>("zh");
    QTest::addColumn<Machine>("machine");
    QTest::addColumn<QStringList>("expected");
    QTest::newRow("desktop, English")
        << false << Machine{}
        << texts(u"Mac Health:|Good|CPU|37%|load|Memory|Normal|8 GB / 16 GB|"
                 u"Macintosh HD|250 GB|available of 500 GB|Power|Desktop|"
                 u"No battery|Network · eth0|2 KB/s|3.0 MB/s|Open Quorvel|Quit"_s);
    QTest::newRow("desktop, Chinese")
        << true << Machine{}
        << texts(u"Mac 健康：|良好|CPU|37%|负载|内存|正常|8 GB / 16 GB|磁盘|250 GB|"
                 u"可用，共 500 GB|电源|台式机|无电池|网络 · eth0|2 KB/s|3.0 MB/s|打开 Quorvel|"
                 u"退出"_s);
    Machine busy = laptop(64, false, false);
    busy.cpu = 90;
    busy.interface.clear();
    QTest::newRow("busy laptop, no interface, English")
        << false << busy
        << texts(u"Mac Health:|Fair|CPU|90%|load|Memory|Normal|8 GB / 16 GB|"
                 u"Macintosh HD|250 GB|available of 500 GB|Battery|64%|"
                 u"On battery|Network|0 B/s|0 B/s|Open Quorvel|Quit"_s);
    Machine full = laptop(100, true, true);
    full.disk = {};
    full.pressure = MemoryPressureLevel::warning;
    QTest::newRow("unknown disk, charging, Chinese")
        << true << full
        << texts(u"Mac 健康：|需处理|CPU|37%|负载|内存|偏高|8 GB / 16 GB|磁盘|零 KB|可用，共 零 KB|"
                 u"电池|100%|充电中|网络 · eth0|2 KB/s|3.0 MB/s|打开 Quorvel|退出"_s);
}

void HealthPanelTest::panelTexts()
{
    QFETCH(bool, zh);
    QFETCH(Machine, machine);
    QFETCH(QStringList, expected);
    L10n::overrideForTesting(zh);
    PanelRig rig(machine);
    rig.panel->show();
    const QString host = QSysInfo::machineHostName();
    expected << (host.isEmpty() ? u"Mac"_s : host);
    expected.sort();
    QCOMPARE(shownTexts(rig.panel.get()), expected);
    QCOMPARE(rig.panel->width(), HealthPanel::kWidth);
    QCOMPARE(rig.panel->width(), 380);
    rig.panel->adjustSize();
    QCOMPARE(rig.panel->width(), 380);
}

void HealthPanelTest::panelGrade_data()
{
    QTest::addColumn<Machine>("machine");
    QTest::addColumn<QString>("word");
    QTest::addColumn<HealthGrade>("grade");
    Machine m;
    QTest::newRow("good") << m << u"Good"_s << HealthGrade::good;
    m.cpu = 86;
    QTest::newRow("fair: busy") << m << u"Fair"_s << HealthGrade::fair;
    m = {};
    m.disk = {1'000'000'000'000, 100'000'000'000};
    QTest::newRow("fair: 10% free") << m << u"Fair"_s << HealthGrade::fair;
    m = {};
    m.pressure = MemoryPressureLevel::critical;
    QTest::newRow("poor: critical pressure") << m << u"Poor"_s << HealthGrade::poor;
    m = {};
    m.disk = {};
    QTest::newRow("poor: unknown disk") << m << u"Poor"_s << HealthGrade::poor;
}

void HealthPanelTest::panelGrade()
{
    QFETCH(Machine, machine);
    QFETCH(QString, word);
    QFETCH(HealthGrade, grade);
    PanelRig rig(machine);
    const QLabel *label = rig.panel->findChild<QLabel *>(u"grade"_s);
    QVERIFY(label);
    QCOMPARE(label->text(), word);
    QCOMPARE(textColour(label), gradeColour(grade));
}

void HealthPanelTest::panelTiles_data()
{
    QTest::addColumn<Machine>("machine");
    QTest::addColumn<QString>("tile");
    QTest::addColumn<QString>("value");
    QTest::addColumn<QString>("sub");
    QTest::addColumn<QString>("icon");
    QTest::addColumn<bool>("warn");
    QTest::addColumn<double>("ratio");
    Machine m;
    m.cpu = 85;
    QTest::newRow("CPU 85 does not warn")
        << m << u"cpuTile"_s << u"85%"_s << u"load"_s << u"cpu"_s << false << 0.85;
    m.cpu = 86;
    QTest::newRow("CPU 86 warns") << m << u"cpuTile"_s << u"86%"_s << u"load"_s << u"cpu"_s << true
                                  << 0.86;
    m = {};
    m.pressure = MemoryPressureLevel::warning;
    m.memoryUsed = 2'000'000'000;
    QTest::newRow("memory pressure warns with a short bar")
        << m << u"memoryTile"_s << u"Warning"_s << u"2 GB / 16 GB"_s << u"memorychip"_s << true
        << 0.125;
    m = {};
    m.memoryUsed = 20'000'000'000;
    QTest::newRow("memory over its total fills the bar, no more")
        << m << u"memoryTile"_s << u"Normal"_s << u"20 GB / 16 GB"_s << u"memorychip"_s << false
        << 1.0;
    m = {};
    m.disk = {};
    QTest::newRow("unknown disk: full bar, warning")
        << m << u"diskTile"_s << u"Zero KB"_s << u"available of Zero KB"_s << u"internaldrive"_s
        << true << 1.0;
    m.disk = {1'000'000'000'000, 100'000'000'000};
    QTest::newRow("disk 10% free warns")
        << m << u"diskTile"_s << u"100 GB"_s << u"available of 1 TB"_s << u"internaldrive"_s << true
        << 0.9;
    QTest::newRow("15% on battery warns")
        << laptop(15, false, false) << u"batteryTile"_s << u"15%"_s << u"On battery"_s
        << u"battery.75percent"_s << true << 0.15;
    QTest::newRow("15% plugged in does not warn")
        << laptop(15, false, true) << u"batteryTile"_s << u"15%"_s << u"On power"_s
        << u"battery.100percent.bolt"_s << false << 0.15;
    QTest::newRow("15% charging does not warn")
        << laptop(15, true, true) << u"batteryTile"_s << u"15%"_s << u"Charging"_s
        << u"battery.100percent.bolt"_s << false << 0.15;
    QTest::newRow("no battery: empty Power tile")
        << Machine{} << u"batteryTile"_s << u"Desktop"_s << u"No battery"_s << u"powerplug"_s
        << false << 0.0;
}

void HealthPanelTest::panelTiles()
{
    QFETCH(Machine, machine);
    QFETCH(QString, tile);
    QFETCH(QString, value);
    QFETCH(QString, sub);
    QFETCH(QString, icon);
    QFETCH(bool, warn);
    QFETCH(double, ratio);
    PanelRig rig(machine);
    const QWidget *card = rig.tile(tile);
    QVERIFY(card);
    const auto *valueLabel = card->findChild<QLabel *>(u"value"_s);
    const auto *subLabel = card->findChild<QLabel *>(u"sub"_s);
    const auto *iconLabel = card->findChild<QLabel *>(u"icon"_s);
    const QWidget *bar = card->findChild<QWidget *>(u"bar"_s);
    QVERIFY(valueLabel && subLabel && iconLabel && bar);
    QCOMPARE(valueLabel->text(), value);
    QCOMPARE(subLabel->text(), sub);
    const QPixmap shown = iconLabel->pixmap();
    QVERIFY(!shown.isNull());
    QCOMPARE(shown.toImage(), Theme::symbol(icon, shown.width(), Theme::accent()).toImage());
    QCOMPARE(textColour(valueLabel) == Theme::fair(), warn);
    QCOMPARE(bar->property("color").value<QColor>(), warn ? Theme::fair() : Theme::accent());
    QVERIFY2(qAbs(bar->property("ratio").toDouble() - ratio) < 1e-9,
             qPrintable(bar->property("ratio").toString()));
}

void HealthPanelTest::panelActions_data()
{
    QTest::addColumn<QString>("button");
    QTest::addColumn<bool>("popup");
    QTest::addColumn<int>("opened");
    QTest::addColumn<int>("quitted");
    QTest::newRow("Open") << u"openTools"_s << false << 1 << 0;
    QTest::newRow("Open from the popup") << u"openTools"_s << true << 1 << 0;
    QTest::newRow("Quit") << u"quit"_s << false << 0 << 1;
}

void HealthPanelTest::panelActions()
{
    QFETCH(QString, button);
    QFETCH(bool, popup);
    QFETCH(int, opened);
    QFETCH(int, quitted);
    PanelRig rig(Machine{}, popup ? Qt::Popup : Qt::Widget);
    rig.panel->show();
    auto *b = rig.panel->findChild<QAbstractButton *>(button);
    QVERIFY(b);
    b->click();
    QCOMPARE(rig.opened, opened);
    QCOMPARE(rig.quitted, quitted);
    // Only the popup closes itself on Open; a panel embedded elsewhere stays.
    QCOMPARE(rig.panel->isVisible(), !popup);
}

// Each sample refills the same labels; nothing is rebuilt.
void HealthPanelTest::panelUpdatesInPlace()
{
    PanelRig rig(laptop(50, false, true));
    const QList<QLabel *> before = rig.panel->findChildren<QLabel *>();
    QPointer<QLabel> cpu = rig.tile(u"cpuTile"_s)->findChild<QLabel *>(u"value"_s);
    QPointer<QLabel> icon = rig.tile(u"batteryTile"_s)->findChild<QLabel *>(u"icon"_s);
    QCOMPARE(cpu->text(), u"37%"_s);
    const QImage plugged = icon->pixmap().toImage();

    rig.fake.machine.cpu = 72;
    rig.fake.machine.battery->onAC = false;
    rig.stats->samplePass();
    QVERIFY(cpu && icon);
    QCOMPARE(cpu->text(), u"72%"_s);
    QCOMPARE(rig.tile(u"cpuTile"_s)->findChild<QLabel *>(u"value"_s), cpu.data());
    QVERIFY(icon->pixmap().toImage() != plugged);
    QCOMPARE(
        icon->pixmap().toImage(),
        Theme::symbol(u"battery.75percent"_s, icon->pixmap().width(), Theme::accent()).toImage());
    QCOMPARE(rig.panel->findChildren<QLabel *>(), before);

    // A warning's colour comes and goes with the warning.
    rig.fake.machine.cpu = 90;
    rig.stats->samplePass();
    QCOMPARE(textColour(cpu), Theme::fair());
    rig.fake.machine.cpu = 40;
    rig.stats->samplePass();
    QCOMPARE(cpu->text(), u"40%"_s);
    QVERIFY(textColour(cpu) != Theme::fair());
    QCOMPARE(textColour(cpu), textColour(rig.panel.get()));
}

QTEST_MAIN(HealthPanelTest)
#include "tst_healthpanel.moc"
