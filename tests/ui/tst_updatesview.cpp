#include "common/TestHome.h"
#include "core/text/L10n.h"
#include "core/updates/AppUpdater.h"
#include "ui/CleanPageProbe.h"
#include "ui/kit/ElidedLabel.h"
#include "ui/kit/Spinner.h"
#include "ui/pages/UpdatesView.h"

#include <QMutex>
#include <memory>

using namespace Qt::StringLiterals;
using namespace Probe;

Q_DECLARE_METATYPE(OutdatedApp::Source)

namespace {

using Source = OutdatedApp::Source;

const QString kDescriptionEn =
    u"Covers Homebrew, the Mac App Store and apps with a built-in (Sparkle) updater."_s;

OutdatedApp record(const QString &name, Source source, std::optional<QString> appPath = {})
{
    const QString prefix = source == Source::brewCask ? u"cask:"_s : u"brew:"_s;
    return {prefix + name, name, u"1.0"_s, u"2.0"_s, source, std::move(appPath)};
}

AppUpdater::AppInfo appWithFeed(const QString &name)
{
    return {u"/Applications/"_s + name + u".app"_s,
            name,
            u"org.example."_s + name,
            u"1.0"_s,
            u"1"_s,
            u"https://example.org/"_s + name + u".xml"_s,
            false};
}

// Sources the test drives: the Homebrew listing and upgrades can be held at a gate (they
// run on the process pool), and every appcast check waits until the test answers it.
struct Fakes
{
    QList<OutdatedApp> brew;
    QList<AppUpdater::AppInfo> apps;
    QSet<QString> outdated; // app names whose check finds an update
    QSemaphore *brewGate = nullptr;
    QSemaphore *upgradeGate = nullptr;
    std::atomic<int> listings{0};
    std::atomic<int> upgradesRunning{0};
    QMutex mutex;
    QStringList upgraded; // guarded by mutex
    QList<std::pair<AppUpdater::AppInfo, AppUpdater::Finding>> held;

    AppUpdater::Services services()
    {
        AppUpdater::Services s;
        s.brewOutdated = [this] {
            ++listings;
            if (brewGate)
                brewGate->acquire();
            return brew;
        };
        s.applications = [this] { return apps; };
        s.checkAppStore = [this](const AppUpdater::AppInfo &a, AppUpdater::Finding done) {
            held.append({a, std::move(done)});
        };
        s.checkSparkle = [this](const AppUpdater::AppInfo &a, const QUrl &,
                                AppUpdater::Finding done) {
            held.append({a, std::move(done)});
        };
        s.brewPath = [] { return std::optional(u"/fake/brew"_s); };
        s.upgrade = [this](const OutdatedApp &a) -> std::optional<QString> {
            ++upgradesRunning;
            if (upgradeGate)
                upgradeGate->acquire();
            {
                QMutexLocker lock(&mutex);
                upgraded.append(a.name);
            }
            --upgradesRunning;
            return u"==> Upgrading "_s + a.name;
        };
        return s;
    }

    // Answers the check that started first.
    void answerOldest()
    {
        auto [app, done] = held.takeFirst();
        if (outdated.contains(app.name))
            done(OutdatedApp{app.bundleID, app.name, app.shortVersion, u"9.0"_s, Source::sparkle,
                             app.path});
        else
            done(std::nullopt);
    }

    QStringList upgrades()
    {
        QMutexLocker lock(&mutex);
        return upgraded;
    }
};

// A shown page over an updater on the fakes, with the launches it asked for.
struct Page
{
    Fakes fakes;
    QStringList opened;
    std::unique_ptr<AppUpdater> updater;
    std::unique_ptr<UpdatesView> view;

    Page() { updater = std::make_unique<AppUpdater>(fakes.services()); }
    // A failed check may leave work held: let it all finish before the fakes go.
    ~Page()
    {
        for (QSemaphore *gate : {fakes.brewGate, fakes.upgradeGate}) {
            if (gate)
                gate->release(1000);
        }
        const bool idle = QTest::qWaitFor(
            [&] {
                while (!fakes.held.isEmpty())
                    fakes.answerOldest();
                return !updater->scanning() && fakes.upgradesRunning == 0;
            },
            10'000);
        if (!idle)
            qFatal("the updater never settled");
        view.reset();
        updater.reset();
        // Posted results of finished work must find the updater gone, not the fakes.
        QTest::qWait(20);
    }
    void show()
    {
        view = std::make_unique<UpdatesView>(*updater,
                                             [this](const QString &path) { opened.append(path); });
        view->resize(900, 620);
        view->show();
        QVERIFY(QTest::qWaitForWindowExposed(view.get()));
    }
    // Shows the page and lets its first check run to the end.
    bool showScanned()
    {
        show();
        view->appeared();
        return QTest::qWaitFor(
            [&] {
                while (!fakes.held.isEmpty())
                    fakes.answerOldest();
                return !updater->scanning();
            },
            10'000);
    }
    QStringList texts() const { return visibleTexts(view.get()); }
    QString status() const { return view->findChild<ElidedLabel *>()->text(); }
    bool spinning() const
    {
        const Spinner *spinner = view->findChild<Spinner *>();
        return spinner->isVisibleTo(view.get()) && spinner->isRunning();
    }
    QAbstractButton *checkNow() const
    {
        return button(view.get(), L10n::pick(u"Check now"_s, u"立即检查"_s));
    }
};

// The button on the row whose title is `name`.
QAbstractButton *rowButton(const QWidget *page, const QString &name)
{
    for (const QLabel *label : page->findChildren<QLabel *>()) {
        if (label->text() == name && label->isVisibleTo(page))
            return label->parentWidget()->findChild<QAbstractButton *>();
    }
    return nullptr;
}

} // namespace

class UpdatesViewTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { m_home = std::make_unique<TestHome>(); }
    void init() { L10n::overrideForTesting(false); }

    void row_data();
    void row();
    void rowAction_data();
    void rowAction();
    void emptyPanel_data();
    void emptyPanel();
    void statusWhileScanning_data();
    void statusWhileScanning();
    void scansOnFirstAppearanceOnly_data();
    void scansOnFirstAppearanceOnly();
    void rescanClearsRows();
    void upgradeRemovesItsRow_data();
    void upgradeRemovesItsRow();

private:
    std::unique_ptr<TestHome> m_home;
};

void UpdatesViewTest::row_data()
{
    QTest::addColumn<bool>("zh");
    QTest::addColumn<Source>("source");
    QTest::addColumn<QString>("subtitle");
    QTest::addColumn<QString>("action");
    QTest::newRow("formula") << false << Source::brewFormula << u"1.0 → 2.0 · Homebrew"_s
                             << u"Upgrade"_s;
    QTest::newRow("cask") << false << Source::brewCask << u"1.0 → 2.0 · Homebrew Cask"_s
                          << u"Upgrade"_s;
    QTest::newRow("App Store") << false << Source::appStore << u"1.0 → 2.0 · App Store"_s
                               << u"Open App Store"_s;
    QTest::newRow("appcast") << false << Source::sparkle << u"1.0 → 2.0 · In-app updater"_s
                             << u"Open app to update"_s;
    QTest::newRow("formula zh") << true << Source::brewFormula << u"1.0 → 2.0 · Homebrew"_s
                                << u"升级"_s;
    QTest::newRow("cask zh") << true << Source::brewCask << u"1.0 → 2.0 · Homebrew Cask"_s
                             << u"升级"_s;
    QTest::newRow("App Store zh") << true << Source::appStore << u"1.0 → 2.0 · App Store"_s
                                  << u"打开 App Store"_s;
    QTest::newRow("appcast zh") << true << Source::sparkle << u"1.0 → 2.0 · 应用内更新"_s
                                << u"打开应用更新"_s;
}

void UpdatesViewTest::row()
{
    QFETCH(bool, zh);
    QFETCH(Source, source);
    QFETCH(QString, subtitle);
    QFETCH(QString, action);
    L10n::overrideForTesting(zh);
    Page page;
    page.fakes.brew = {record(u"Lumen"_s, source)};
    QVERIFY(page.showScanned());
    const QStringList texts = page.texts();
    QVERIFY2(texts.contains(u"Lumen"_s), qPrintable(texts.join(u" | ")));
    QVERIFY2(texts.contains(subtitle), qPrintable(texts.join(u" | ")));
    QAbstractButton *b = rowButton(page.view.get(), u"Lumen"_s);
    QVERIFY(b);
    QCOMPARE(b->text(), action);
    QVERIFY(b->isEnabled());
    QVERIFY(page.checkNow()->isEnabled());
    // With a row to show, the empty-state panel is gone.
    for (const QString &text : texts)
        QVERIFY2(!text.startsWith(u"Covers"_s) && !text.startsWith(u"覆盖"_s), qPrintable(text));
}

void UpdatesViewTest::rowAction_data()
{
    QTest::addColumn<Source>("source");
    QTest::addColumn<QString>("appPath"); // empty: the record has none
    QTest::addColumn<QStringList>("opened");
    QTest::addColumn<QStringList>("upgraded");
    const QString bundle = u"/Applications/Lumen.app"_s;
    QTest::newRow("formula") << Source::brewFormula << QString() << QStringList{}
                             << QStringList{u"Lumen"_s};
    QTest::newRow("cask") << Source::brewCask << QString() << QStringList{}
                          << QStringList{u"Lumen"_s};
    QTest::newRow("App Store") << Source::appStore << bundle << QStringList{} << QStringList{};
    QTest::newRow("appcast with bundle")
        << Source::sparkle << bundle << QStringList{bundle} << QStringList{};
    QTest::newRow("appcast without bundle")
        << Source::sparkle << QString() << QStringList{} << QStringList{};
}

void UpdatesViewTest::rowAction()
{
    QFETCH(Source, source);
    QFETCH(QString, appPath);
    QFETCH(QStringList, opened);
    QFETCH(QStringList, upgraded);
    Page page;
    page.fakes.brew = {
        record(u"Lumen"_s, source, appPath.isEmpty() ? std::nullopt : std::optional(appPath))};
    QVERIFY(page.showScanned());
    const QString before = page.updater->status();
    QAbstractButton *b = rowButton(page.view.get(), u"Lumen"_s);
    QVERIFY(b);
    QTest::mouseClick(b, Qt::LeftButton);
    if (!upgraded.isEmpty()) {
        QTRY_COMPARE(page.updater->status(), u"Done: Lumen"_s);
    } else {
        // Handing over to another application leaves the page as it was.
        QTest::qWait(50);
        QCOMPARE(page.updater->status(), before);
        QCOMPARE(page.updater->items().size(), 1);
    }
    QCOMPARE(page.opened, opened);
    QCOMPARE(page.fakes.upgrades(), upgraded);
}

void UpdatesViewTest::emptyPanel_data()
{
    QTest::addColumn<bool>("zh");
    QTest::addColumn<bool>("checked");
    QTest::addColumn<QString>("title");
    QTest::addColumn<QString>("description");
    const QString zhDescription = u"覆盖 Homebrew、Mac App Store 和自带更新器（Sparkle）的应用。"_s;
    QTest::newRow("before a check")
        << false << false << u"Check for app updates"_s << kDescriptionEn;
    QTest::newRow("nothing found")
        << false << true << u"Everything is up to date."_s << kDescriptionEn;
    QTest::newRow("before a check zh") << true << false << u"检查应用更新"_s << zhDescription;
    QTest::newRow("nothing found zh") << true << true << u"所有应用都是最新版。"_s << zhDescription;
}

void UpdatesViewTest::emptyPanel()
{
    QFETCH(bool, zh);
    QFETCH(bool, checked);
    QFETCH(QString, title);
    QFETCH(QString, description);
    L10n::overrideForTesting(zh);
    Page page;
    page.fakes.apps = {appWithFeed(u"Lumen"_s)};
    if (checked)
        QVERIFY(page.showScanned());
    else
        page.show();
    const QStringList texts = page.texts();
    QVERIFY2(texts.contains(title), qPrintable(texts.join(u" | ")));
    QVERIFY2(texts.contains(description), qPrintable(texts.join(u" | ")));
    // The status line says the same after a check, and nothing before one.
    QCOMPARE(page.status(), checked ? title : QString());
    QVERIFY(page.checkNow()->isEnabled());
    QVERIFY(!page.spinning());
}

void UpdatesViewTest::statusWhileScanning_data()
{
    QTest::addColumn<bool>("zh");
    QTest::addColumn<QString>("homebrew");
    QTest::addColumn<QString>("checking");
    QTest::addColumn<QString>("done");
    QTest::newRow("English") << false << u"Checking Homebrew…"_s
                             << u"Checking App Store and in-app updaters…"_s
                             << u"1 update(s) available"_s;
    QTest::newRow("Chinese") << true << u"正在检查 Homebrew…"_s
                             << u"正在检查 App Store 和应用自带更新…"_s << u"有 1 个更新"_s;
}

void UpdatesViewTest::statusWhileScanning()
{
    QFETCH(bool, zh);
    QFETCH(QString, homebrew);
    QFETCH(QString, checking);
    QFETCH(QString, done);
    L10n::overrideForTesting(zh);
    QSemaphore brewGate;
    Page page;
    page.fakes.brewGate = &brewGate;
    for (int i = 0; i < 9; ++i)
        page.fakes.apps.append(appWithFeed(u"app%1"_s.arg(i)));
    page.fakes.outdated = {u"app4"_s};
    page.show();
    const QString description =
        zh ? u"覆盖 Homebrew、Mac App Store 和自带更新器（Sparkle）的应用。"_s : kDescriptionEn;
    QVERIFY(page.texts().contains(description));

    QTest::mouseClick(page.checkNow(), Qt::LeftButton);
    QVERIFY(page.updater->scanning());
    QCOMPARE(page.status(), homebrew);
    QVERIFY(!page.checkNow()->isEnabled());
    QVERIFY(page.spinning());
    QVERIFY(!page.texts().contains(description));

    brewGate.release();
    QTRY_COMPARE(page.status(), checking); // no count before the first check finishes
    QCOMPARE(page.fakes.held.size(), AppUpdater::kMaxChecks);
    for (int finished = 1; finished <= 8; ++finished) {
        page.fakes.answerOldest();
        QCOMPARE(page.status(), checking + u" ("_s + QString::number(finished) + u")"_s);
        QVERIFY(!page.checkNow()->isEnabled());
        QVERIFY(page.spinning());
        QVERIFY(!page.texts().contains(description));
    }
    // A press on the disabled button starts nothing.
    QTest::mouseClick(page.checkNow(), Qt::LeftButton);
    QCOMPARE(page.fakes.listings.load(), 1);

    page.fakes.answerOldest();
    QVERIFY(!page.updater->scanning());
    QVERIFY(page.texts().contains(u"app4"_s));
    QCOMPARE(page.status(), done);
    QVERIFY(page.checkNow()->isEnabled());
    QVERIFY(!page.spinning());
}

void UpdatesViewTest::scansOnFirstAppearanceOnly_data()
{
    QTest::addColumn<QList<OutdatedApp>>("found");
    QTest::newRow("nothing found") << QList<OutdatedApp>{};
    QTest::newRow("updates found") << QList<OutdatedApp>{record(u"wget"_s, Source::brewFormula)};
}

void UpdatesViewTest::scansOnFirstAppearanceOnly()
{
    QFETCH(QList<OutdatedApp>, found);
    auto page = std::make_unique<Page>();
    page->fakes.brew = found;
    page->show();
    QCOMPARE(page->fakes.listings.load(), 0); // building the page is not appearing
    page->view->appeared();
    QVERIFY(page->updater->scanning());
    QTRY_VERIFY(!page->updater->scanning());
    QCOMPARE(page->fakes.listings.load(), 1);

    // Coming back to the page shows the last result.
    page->view->appeared();
    QVERIFY(!page->updater->scanning());
    QTest::qWait(50);
    QCOMPARE(page->fakes.listings.load(), 1);

    // A reopened window brings a fresh updater, which checks again.
    page = std::make_unique<Page>();
    page->fakes.brew = found;
    page->show();
    page->view->appeared();
    QVERIFY(page->updater->scanning());
    QTRY_VERIFY(!page->updater->scanning());
    QCOMPARE(page->fakes.listings.load(), 1);
}

void UpdatesViewTest::rescanClearsRows()
{
    QSemaphore brewGate;
    Page page;
    page.fakes.brew = {record(u"wget"_s, Source::brewFormula), record(u"Lumen"_s, Source::sparkle)};
    QVERIFY(page.showScanned());
    QVERIFY(rowButton(page.view.get(), u"wget"_s)->isEnabled());

    page.fakes.brewGate = &brewGate;
    QTest::mouseClick(page.checkNow(), Qt::LeftButton);
    // A scan starts from an empty list: no Upgrade can be pressed until it ends.
    QVERIFY(!button(page.view.get(), u"Upgrade"_s));
    QVERIFY(!rowButton(page.view.get(), u"wget"_s));
    QVERIFY(!rowButton(page.view.get(), u"Lumen"_s));
    QVERIFY(!page.texts().contains(kDescriptionEn));

    page.fakes.brew.removeFirst();
    brewGate.release();
    QTRY_VERIFY(!page.updater->scanning());
    QVERIFY(!rowButton(page.view.get(), u"wget"_s));
    QVERIFY(rowButton(page.view.get(), u"Lumen"_s)->isEnabled());
    QCOMPARE(page.status(), u"1 update(s) available"_s);
}

void UpdatesViewTest::upgradeRemovesItsRow_data()
{
    QTest::addColumn<bool>("zh");
    QTest::addColumn<QString>("upgrading");
    QTest::addColumn<QString>("done");
    QTest::addColumn<QString>("lastDone");
    QTest::newRow("English") << false << u"Upgrading wget…"_s << u"Done: wget"_s
                             << u"Done: iterm2"_s;
    QTest::newRow("Chinese") << true << u"正在升级 wget…"_s << u"已升级：wget"_s
                             << u"已升级：iterm2"_s;
}

void UpdatesViewTest::upgradeRemovesItsRow()
{
    QFETCH(bool, zh);
    QFETCH(QString, upgrading);
    QFETCH(QString, done);
    QFETCH(QString, lastDone);
    L10n::overrideForTesting(zh);
    QSemaphore upgradeGate;
    Page page;
    page.fakes.upgradeGate = &upgradeGate;
    page.fakes.brew = {record(u"wget"_s, Source::brewFormula),
                       record(u"iterm2"_s, Source::brewCask), record(u"Lumen"_s, Source::sparkle),
                       record(u"Notes"_s, Source::appStore)};
    QVERIFY(page.showScanned());

    QTest::mouseClick(rowButton(page.view.get(), u"wget"_s), Qt::LeftButton);
    QCOMPARE(page.status(), upgrading);
    // An upgrade is not a scan: every button stays usable while it runs.
    for (const QString &name : {u"wget"_s, u"iterm2"_s, u"Lumen"_s, u"Notes"_s})
        QVERIFY2(rowButton(page.view.get(), name)->isEnabled(), qPrintable(name));
    QVERIFY(page.checkNow()->isEnabled());
    QVERIFY(!page.spinning());

    upgradeGate.release();
    QTRY_COMPARE(page.status(), done);
    QTRY_VERIFY(!rowButton(page.view.get(), u"wget"_s));
    const QStringList texts = page.texts();
    for (const QString &name : {u"iterm2"_s, u"Lumen"_s, u"Notes"_s})
        QVERIFY2(texts.contains(name), qPrintable(name));
    QVERIFY(rowButton(page.view.get(), u"iterm2"_s)->isEnabled());
    QCOMPARE(page.fakes.upgrades(), QStringList{u"wget"_s});

    // The last Homebrew row goes the same way; the other sources keep theirs.
    upgradeGate.release();
    QTest::mouseClick(rowButton(page.view.get(), u"iterm2"_s), Qt::LeftButton);
    QTRY_COMPARE(page.status(), lastDone);
    QTRY_VERIFY(!rowButton(page.view.get(), u"iterm2"_s));
    QVERIFY(rowButton(page.view.get(), u"Lumen"_s));
    QVERIFY(rowButton(page.view.get(), u"Notes"_s));
}

QTEST_MAIN(UpdatesViewTest)
#include "tst_updatesview.moc"
