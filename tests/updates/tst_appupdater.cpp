#include "core/models/AppUpdater.h"
#include "core/text/L10n.h"

#include <QTimer>
#include <QtTest>

using namespace Qt::StringLiterals;

namespace {

OutdatedApp finding(const QString &name, OutdatedApp::Source source = OutdatedApp::Source::sparkle)
{
    return {u"id."_s + name, name, u"1"_s, u"2"_s, source, std::nullopt};
}

AppInfo app(const QString &name, bool mas, std::optional<QString> feed)
{
    return {u"/Applications/"_s + name + u".app"_s,
            name,
            u"org."_s + name,
            u"1.0"_s,
            u"1"_s,
            std::move(feed),
            mas};
}

// Checks that answer after a delay and record how many ran at once.
struct FakeNetwork
{
    int inFlight = 0;
    int maxInFlight = 0;
    QStringList appStore, sparkle;
    QMap<QString, int> delayMs; // by app name; default 20
    QSet<QString> outdated;     // app names that yield a finding

    void answer(const AppInfo &a, Finding done)
    {
        ++inFlight;
        maxInFlight = std::max(maxInFlight, inFlight);
        QTimer::singleShot(delayMs.value(a.name, 20), [this, a, done = std::move(done)] {
            --inFlight;
            done(outdated.contains(a.name) ? std::optional(finding(a.name)) : std::nullopt);
        });
    }
};

AppUpdater::Services services(FakeNetwork &net, QList<AppInfo> apps, QList<OutdatedApp> brew = {},
                              bool hasBrew = true)
{
    AppUpdater::Services s;
    s.brewOutdated = [brew] { return brew; };
    // The inventory reads every Info.plist: on the main thread it would find nothing here.
    s.applications = [apps] {
        return QThread::currentThread() == qApp->thread() ? QList<AppInfo>{} : apps;
    };
    s.checkAppStore = [&net](const AppInfo &a, Finding done) {
        net.appStore.append(a.name);
        net.answer(a, std::move(done));
    };
    s.checkSparkle = [&net](const AppInfo &a, const QUrl &, Finding done) {
        net.sparkle.append(a.name);
        net.answer(a, std::move(done));
    };
    s.brewPath = [hasBrew]() -> std::optional<QString> {
        return hasBrew ? std::optional(u"/fake/brew"_s) : std::nullopt;
    };
    s.upgrade = [](const OutdatedApp &a) -> std::optional<QString> {
        return u"==> Upgrading "_s + a.name;
    };
    return s;
}

QStringList names(const QList<OutdatedApp> &items)
{
    QStringList result;
    for (const OutdatedApp &i : items)
        result.append(i.name);
    return result;
}

} // namespace

class AppUpdaterTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { L10n::overrideForTesting(false); }
    void nothingToFind();
    void concurrencyCapAndRouting();
    void sortKeepsFoundOrderForEqualNames_data();
    void sortKeepsFoundOrderForEqualNames();
    void statusTexts_data();
    void statusTexts();
    void secondScanIsIgnored();
    void upgrade();
    void upgradeWithoutBrew();
};

void AppUpdaterTest::nothingToFind()
{
    FakeNetwork net;
    AppUpdater updater(services(net, {}, {}, false));
    QVERIFY(updater.status().isEmpty());
    updater.scan();
    QCOMPARE(updater.status(), u"Checking Homebrew…"_s);
    QTRY_VERIFY(!updater.scanning());
    QCOMPARE(updater.status(), u"Everything is up to date."_s);
    QCOMPARE(updater.checkedCount(), 0);
    QVERIFY(updater.items().isEmpty());
}

void AppUpdaterTest::concurrencyCapAndRouting()
{
    FakeNetwork net;
    QList<AppInfo> apps;
    for (int i = 0; i < 3; ++i)
        apps.append(app(u"store%1"_s.arg(i), true, u"https://example.org/feed.xml"_s));
    for (int i = 0; i < 4; ++i)
        apps.append(app(u"feed%1"_s.arg(i), false, u"https://example.org/f%1.xml"_s.arg(i)));
    apps.append(app(u"plain"_s, false, std::nullopt));
    apps.append(app(u"badfeed"_s, false, u"not a url"_s));
    apps.append(app(u"empty"_s, false, QString()));
    for (const auto &a : apps)
        net.delayMs[a.name] = 60;
    net.outdated = {u"store1"_s, u"feed2"_s};
    AppUpdater updater(services(net, apps, {finding(u"wget"_s, OutdatedApp::Source::brewFormula)}));
    QStringList statuses;
    QObject context;
    connect(&updater, &AppUpdater::changed, &context, [&] {
        if (statuses.isEmpty() || statuses.last() != updater.status())
            statuses.append(updater.status());
    });
    updater.scan();
    QTRY_VERIFY_WITH_TIMEOUT(!updater.scanning(), 10'000);
    QCOMPARE(updater.checkedCount(), 10);
    QCOMPARE(net.maxInFlight, AppUpdater::kMaxChecks);
    // App Store wins over a feed; only feeds that form a URL are fetched.
    QCOMPARE(net.appStore, (QStringList{u"store0"_s, u"store1"_s, u"store2"_s}));
    QCOMPARE(net.sparkle, (QStringList{u"feed0"_s, u"feed1"_s, u"feed2"_s, u"feed3"_s}));
    QCOMPARE(names(updater.items()), (QStringList{u"feed2"_s, u"store1"_s, u"wget"_s}));
    QCOMPARE(statuses,
             (QStringList{u"Checking Homebrew…"_s, u"Checking App Store and in-app updaters…"_s,
                          u"3 update(s) available"_s}));
}

void AppUpdaterTest::sortKeepsFoundOrderForEqualNames_data()
{
    QTest::addColumn<QStringList>("finishOrder");
    QTest::addColumn<QStringList>("listed");
    QTest::newRow("Alpha first") << QStringList{u"beta"_s, u"Alpha"_s, u"alpha"_s}
                                 << QStringList{u"Alpha"_s, u"alpha"_s, u"beta"_s};
    QTest::newRow("alpha first") << QStringList{u"alpha"_s, u"beta"_s, u"Alpha"_s}
                                 << QStringList{u"alpha"_s, u"Alpha"_s, u"beta"_s};
}

void AppUpdaterTest::sortKeepsFoundOrderForEqualNames()
{
    QFETCH(QStringList, finishOrder);
    QFETCH(QStringList, listed);
    FakeNetwork net;
    QList<AppInfo> apps;
    // Launched in reverse, finishing in the wanted order: results land in finish order.
    for (qsizetype i = finishOrder.size() - 1; i >= 0; --i) {
        apps.append(app(finishOrder[i], false, u"https://example.org/x"_s));
        net.delayMs[finishOrder[i]] = int(20 + 80 * i);
        net.outdated.insert(finishOrder[i]);
    }
    AppUpdater updater(services(net, apps));
    updater.scan();
    QTRY_VERIFY(!updater.scanning());
    QCOMPARE(names(updater.items()), listed);
}

void AppUpdaterTest::statusTexts_data()
{
    QTest::addColumn<bool>("zh");
    QTest::addColumn<int>("found");
    QTest::addColumn<QString>("status");
    QTest::newRow("one") << false << 1 << u"1 update(s) available"_s;
    QTest::newRow("one zh") << true << 1 << u"有 1 个更新"_s;
    QTest::newRow("none zh") << true << 0 << u"所有应用都是最新版。"_s;
}

void AppUpdaterTest::statusTexts()
{
    QFETCH(bool, zh);
    QFETCH(int, found);
    QFETCH(QString, status);
    L10n::overrideForTesting(zh);
    FakeNetwork net;
    QList<OutdatedApp> brew;
    for (int i = 0; i < found; ++i)
        brew.append(finding(u"pkg%1"_s.arg(i), OutdatedApp::Source::brewFormula));
    AppUpdater updater(services(net, {}, brew));
    updater.scan();
    QCOMPARE(updater.status(), zh ? u"正在检查 Homebrew…"_s : u"Checking Homebrew…"_s);
    QTRY_VERIFY(!updater.scanning());
    QCOMPARE(updater.status(), status);
}

void AppUpdaterTest::secondScanIsIgnored()
{
    FakeNetwork net;
    QList<AppInfo> apps{app(u"a"_s, false, u"https://e.org/a"_s),
                        app(u"b"_s, false, u"https://e.org/b"_s)};
    net.delayMs[u"a"_s] = 10;
    net.delayMs[u"b"_s] = 300;
    AppUpdater updater(services(net, apps));
    updater.scan();
    QTRY_COMPARE(updater.checkedCount(), 1);
    updater.scan();
    QCOMPARE(updater.checkedCount(), 1);
    QTRY_VERIFY(!updater.scanning());
    QCOMPARE(net.sparkle, (QStringList{u"a"_s, u"b"_s}));
}

void AppUpdaterTest::upgrade()
{
    FakeNetwork net;
    const OutdatedApp wget = finding(u"wget"_s, OutdatedApp::Source::brewFormula);
    AppUpdater updater(services(net, {}, {wget, finding(u"curl"_s), wget}));
    updater.scan();
    QTRY_VERIFY(!updater.scanning());
    QCOMPARE(updater.items().size(), 3);
    updater.brewUpgrade(wget);
    QCOMPARE(updater.status(), u"Upgrading wget…"_s);
    QTRY_COMPARE(updater.status(), u"Done: wget"_s);
    QCOMPARE(updater.log(), u"==> Upgrading wget"_s);
    QCOMPARE(names(updater.items()), QStringList{u"curl"_s});
    // A later scan leaves the log alone.
    updater.scan();
    QTRY_VERIFY(!updater.scanning());
    QCOMPARE(updater.log(), u"==> Upgrading wget"_s);
}

void AppUpdaterTest::upgradeWithoutBrew()
{
    FakeNetwork net;
    AppUpdater updater(services(net, {}, {}, false));
    int changes = 0;
    QObject context;
    connect(&updater, &AppUpdater::changed, &context, [&] { ++changes; });
    updater.brewUpgrade(finding(u"wget"_s, OutdatedApp::Source::brewFormula));
    QTest::qWait(50);
    QCOMPARE(changes, 0);
    QVERIFY(updater.status().isEmpty());
}

QTEST_GUILESS_MAIN(AppUpdaterTest)
#include "tst_appupdater.moc"
