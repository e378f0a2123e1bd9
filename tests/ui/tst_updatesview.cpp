#include "common/TestHome.h"
#include "core/models/AppUpdater.h"
#include "core/text/L10n.h"
#include "ui/CleanPageProbe.h"
#include "ui/kit/ElidedLabel.h"
#include "ui/kit/Spinner.h"
#include "ui/pages/UpdatesView.h"

#include <memory>

using namespace Qt::StringLiterals;
using namespace Probe;

Q_DECLARE_METATYPE(OutdatedApp::Source)

namespace {

using Source = OutdatedApp::Source;

const QString kDescriptionEn =
    u"Covers Homebrew, the Mac App Store and apps with a built-in (Sparkle) updater."_s;
const QString kDescriptionZh = u"覆盖 Homebrew、Mac App Store 和自带更新器（Sparkle）的应用。"_s;

OutdatedApp record(const QString &name, Source source, std::optional<QString> appPath = {})
{
    return {u"id:"_s + name, name, u"1.0"_s, u"2.0"_s, source, std::move(appPath)};
}

// The Homebrew listing and upgrades can be held at a gate (they run on the process pool);
// every App Store and appcast check waits until the test answers it (finding nothing).
struct Fakes
{
    QList<OutdatedApp> brew;
    QList<AppInfo> apps;
    QSemaphore *brewGate = nullptr;
    QSemaphore *upgradeGate = nullptr;
    std::atomic<int> listings{0};
    std::atomic<int> upgradesRunning{0};
    QStringList upgraded; // read only once the upgrade has reported back
    QList<Finding> held;

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
        s.checkAppStore = [this](auto &, Finding done) { held.append(done); };
        s.checkSparkle = [this](auto &, auto &, Finding done) { held.append(done); };
        s.brewPath = [] { return std::optional(u"/fake/brew"_s); };
        s.upgrade = [this](const OutdatedApp &a) -> std::optional<QString> {
            ++upgradesRunning;
            if (upgradeGate)
                upgradeGate->acquire();
            upgraded.append(a.name);
            --upgradesRunning;
            return u"==> Upgrading "_s + a.name;
        };
        return s;
    }

    void answerOldest() { held.takeFirst()(std::nullopt); }
};

// A shown page over an updater on the fakes, with the launches it asked for.
struct Page
{
    Fakes fakes;
    QStringList opened;
    std::unique_ptr<AppUpdater> updater = std::make_unique<AppUpdater>(fakes.services());
    std::unique_ptr<UpdatesView> view;

    // A failed check may leave work held: let it all finish before the fakes go.
    ~Page()
    {
        for (QSemaphore *gate : {fakes.brewGate, fakes.upgradeGate}) {
            if (gate)
                gate->release(1000);
        }
        if (!settled())
            qFatal("the updater never settled");
        view.reset();
        updater.reset();
        QTest::qWait(20); // posted results must find the updater gone, not the fakes
    }
    bool settled()
    {
        return QTest::qWaitFor(
            [&] {
                while (!fakes.held.isEmpty())
                    fakes.answerOldest();
                return !updater->scanning() && fakes.upgradesRunning == 0;
            },
            10'000);
    }
    void show()
    {
        view = std::make_unique<UpdatesView>(*updater, [this](const QString &p) { opened << p; });
        view->resize(900, 620);
        view->show();
    }
    bool showScanned()
    {
        show();
        view->appeared();
        return settled();
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
    // The button on the row whose title is `name`.
    QAbstractButton *rowButton(const QString &name) const
    {
        for (const QLabel *label : view->findChildren<QLabel *>()) {
            if (label->text() == name && label->isVisibleTo(view.get()))
                return label->parentWidget()->findChild<QAbstractButton *>();
        }
        return nullptr;
    }
};

} // namespace

class UpdatesViewTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { m_home = std::make_unique<TestHome>(); }
    void init() { L10n::overrideForTesting(false); }
    void row_data();
    void row();
    void emptyPanel_data();
    void emptyPanel();
    void upgradeThenRescan();

private:
    std::unique_ptr<TestHome> m_home;
};

void UpdatesViewTest::row_data()
{
    QTest::addColumn<bool>("zh");
    QTest::addColumn<Source>("source");
    QTest::addColumn<QString>("appPath"); // empty: the record has none
    QTest::addColumn<QString>("subtitle");
    QTest::addColumn<QString>("action");
    QTest::addColumn<QString>("done"); // the status after a press; empty: unchanged
    const QString app = u"/Applications/Lumen.app"_s;
    QTest::newRow("formula") << false << Source::brewFormula << QString() << u"Homebrew"_s
                             << u"Upgrade"_s << u"Done: Lumen"_s;
    QTest::newRow("cask zh") << true << Source::brewCask << QString() << u"Homebrew Cask"_s
                             << u"升级"_s << u"已升级：Lumen"_s;
    QTest::newRow("App Store") << false << Source::appStore << app << u"App Store"_s
                               << u"Open App Store"_s << QString();
    QTest::newRow("App Store zh") << true << Source::appStore << app << u"App Store"_s
                                  << u"打开 App Store"_s << QString();
    QTest::newRow("appcast") << false << Source::sparkle << app << u"In-app updater"_s
                             << u"Open app to update"_s << QString();
    QTest::newRow("appcast zh, no bundle") << true << Source::sparkle << QString()
                                           << u"应用内更新"_s << u"打开应用更新"_s << QString();
}

void UpdatesViewTest::row()
{
    QFETCH(bool, zh);
    QFETCH(Source, source);
    QFETCH(QString, appPath);
    QFETCH(QString, subtitle);
    QFETCH(QString, action);
    QFETCH(QString, done);
    L10n::overrideForTesting(zh);
    Page page;
    page.fakes.brew = {
        record(u"Lumen"_s, source, appPath.isEmpty() ? std::nullopt : std::optional(appPath))};
    QVERIFY(page.showScanned());
    const QStringList texts = page.texts();
    QVERIFY2(texts.contains(u"1.0 → 2.0 · "_s + subtitle), qPrintable(texts.join(u" | ")));
    QVERIFY(!texts.contains(zh ? kDescriptionZh : kDescriptionEn));
    QAbstractButton *b = page.rowButton(u"Lumen"_s);
    QVERIFY(b && b->isEnabled());
    QCOMPARE(b->text(), action);
    page.view->appeared(); // with rows found, coming back checks nothing
    QVERIFY(!page.updater->scanning());

    const QString before = page.status();
    QTest::mouseClick(b, Qt::LeftButton);
    if (done.isEmpty()) {
        // Handing over to another application leaves the page as it was; an appcast app
        // is opened only when its bundle is known.
        QTest::qWait(50);
        QCOMPARE(page.status(), before);
        QVERIFY(page.rowButton(u"Lumen"_s));
        const bool opens = source == Source::sparkle && !appPath.isEmpty();
        QCOMPARE(page.opened, opens ? QStringList{appPath} : QStringList{});
    } else {
        QTRY_COMPARE(page.status(), done);
        QCOMPARE(page.fakes.upgraded, QStringList{u"Lumen"_s});
    }
}

void UpdatesViewTest::emptyPanel_data()
{
    QTest::addColumn<bool>("zh");
    QTest::addColumn<bool>("checked");
    QTest::addColumn<QString>("title");
    QTest::newRow("before a check") << false << false << u"Check for app updates"_s;
    QTest::newRow("nothing found") << false << true << u"Everything is up to date."_s;
    QTest::newRow("before a check zh") << true << false << u"检查应用更新"_s;
    QTest::newRow("nothing found zh") << true << true << u"所有应用都是最新版。"_s;
}

void UpdatesViewTest::emptyPanel()
{
    QFETCH(bool, zh);
    QFETCH(bool, checked);
    QFETCH(QString, title);
    L10n::overrideForTesting(zh);
    Page page;
    if (checked)
        QVERIFY(page.showScanned());
    else
        page.show();
    const QStringList texts = page.texts();
    QVERIFY2(texts.contains(title), qPrintable(texts.join(u" | ")));
    QVERIFY(texts.contains(zh ? kDescriptionZh : kDescriptionEn));
    // The status line says the same after a check, and nothing before one.
    QCOMPARE(page.status(), checked ? title : QString());
    QVERIFY(page.checkNow()->isEnabled());
    QVERIFY(!page.spinning());
    // Building the page is not appearing; once a check has ended, coming back shows its
    // result without a new one.
    page.view->appeared();
    QCOMPARE(page.updater->scanning(), !checked);
    QVERIFY(page.settled());
    QCOMPARE(page.fakes.listings.load(), 1);
}

void UpdatesViewTest::upgradeThenRescan()
{
    QSemaphore upgradeGate, brewGate;
    Page page;
    page.fakes.upgradeGate = &upgradeGate;
    page.fakes.brew = {record(u"wget"_s, Source::brewFormula),
                       record(u"iterm2"_s, Source::brewCask), record(u"Notes"_s, Source::appStore)};
    QVERIFY(page.showScanned());

    QTest::mouseClick(page.rowButton(u"wget"_s), Qt::LeftButton);
    QCOMPARE(page.status(), u"Upgrading wget…"_s);
    // An upgrade is not a scan: every button stays usable while it runs.
    for (const QString &name : {u"wget"_s, u"iterm2"_s, u"Notes"_s})
        QVERIFY2(page.rowButton(name)->isEnabled(), qPrintable(name));
    QVERIFY(page.checkNow()->isEnabled());
    QVERIFY(!page.spinning());
    upgradeGate.release();
    QTRY_COMPARE(page.status(), u"Done: wget"_s);
    QTRY_VERIFY(!page.rowButton(u"wget"_s));
    QVERIFY(page.rowButton(u"Notes"_s));

    // A scan starts from an empty list: no Upgrade can be pressed until it ends.
    page.fakes.brewGate = &brewGate;
    page.fakes.brew.removeFirst();
    AppInfo appStoreApp;
    appStoreApp.mas = true;
    page.fakes.apps.fill(appStoreApp, 9);
    QTest::mouseClick(page.checkNow(), Qt::LeftButton);
    QCOMPARE(page.status(), u"Checking Homebrew…"_s);
    QVERIFY(!button(page.view.get(), u"Upgrade"_s));
    QVERIFY(!page.rowButton(u"Notes"_s));

    brewGate.release();
    const QString checking = u"Checking App Store and in-app updaters…"_s;
    QTRY_COMPARE(page.status(), checking); // no count before the first check finishes
    for (int finished = 1; finished <= 8; ++finished) {
        page.fakes.answerOldest();
        QCOMPARE(page.status(), checking + u" (%1)"_s.arg(finished));
        QVERIFY(!page.checkNow()->isEnabled());
        QVERIFY(page.spinning());
        QVERIFY(!page.texts().contains(kDescriptionEn));
    }
    QTest::mouseClick(page.checkNow(), Qt::LeftButton); // disabled: starts nothing
    QCOMPARE(page.fakes.listings.load(), 2);

    page.fakes.answerOldest();
    QCOMPARE(page.status(), u"2 update(s) available"_s);
    QVERIFY(page.rowButton(u"iterm2"_s)->isEnabled());
    QVERIFY(page.rowButton(u"Notes"_s));
    QVERIFY(page.checkNow()->isEnabled());
    QVERIFY(!page.spinning());
}

QTEST_MAIN(UpdatesViewTest)
#include "tst_updatesview.moc"
