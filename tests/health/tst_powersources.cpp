#include "common/TestHome.h"
#include "health/SourceTestHelpers.h"

#include "core/health/SourceParsers.h"
#include "platform/HealthSources.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>
#include <memory>

using namespace Qt::StringLiterals;
using namespace SourceTest;

namespace {

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

// Batteries and network interfaces: both systems' parsers and the sysfs readers.
class TestPowerSources : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { m_home = std::make_unique<TestHome>(); }

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

private:
    std::unique_ptr<TestHome> m_home;
};

QTEST_GUILESS_MAIN(TestPowerSources)
#include "tst_powersources.moc"
