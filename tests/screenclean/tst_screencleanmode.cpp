#include "core/screenclean/ScreenCleanMode.h"
#include "core/text/L10n.h"
#include "screenclean/FakeLock.h"

#include <QSignalSpy>
#include <QtTest>
#include <memory>

using namespace Qt::StringLiterals;

namespace {

// Everything the lock, the host and the clock are asked, in order.
using Log = QStringList;

struct FakeHost final : ScreenCleanMode::OverlayHost
{
    Log &log;
    explicit FakeHost(Log &l) : log(l) {}
    void showWindows(ScreenCleanMode &) override { log.append(u"showWindows"_s); }
    void closeWindows() override { log.append(u"closeWindows"_s); }
};

struct Job
{
    double at = 0;
    std::function<void()> run;
    bool cancelled = false;
};

// A controller on fakes; the test moves the clock and fires scheduled jobs itself.
struct Rig
{
    Log log;
    FakeLock *lock = nullptr; // owned by the mode
    FakeHost host{log};
    double now = 0;
    QList<std::shared_ptr<Job>> jobs;
    std::unique_ptr<ScreenCleanMode> mode;

    Rig()
    {
        auto fake = std::make_unique<FakeLock>(log);
        lock = fake.get();
        ScreenCleanMode::Services s;
        s.lock = std::move(fake);
        s.now = [this] { return now; };
        s.schedule = [this](double seconds, std::function<void()> run) {
            auto job = std::make_shared<Job>(Job{now + seconds, std::move(run)});
            jobs.append(job);
            return std::function<void()>([job] { job->cancelled = true; });
        };
        mode = std::make_unique<ScreenCleanMode>(std::move(s));
        mode->setOverlayHost(&host);
    }

    // An Esc key down at `t`, delivered the way the lock delivers it.
    void press(double t)
    {
        now = t;
        QVERIFY(lock->esc);
        lock->esc();
        QCoreApplication::processEvents();
    }
};

QList<double> times(std::initializer_list<double> list)
{
    return QList<double>(list);
}

} // namespace

class ScreenCleanModeTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { L10n::overrideForTesting(false); }
    void escRule_data();
    void escRule();
    void escReachesModeOnlyThroughEventLoop();
    void startTwice();
    void startAndStopOrder();
    void untrusted();
    void installRefused();
    void messageStaysUntilSuccess();
    void autoExit();
    void manualStopCancelsAutoExit();
    void autoExitOfDestroyedModeDoesNothing();
    void stopWhenInactive();
    void chineseMessages_data();
    void chineseMessages();
    void exitHint();
    void destroyingActiveModeReleases();
    void changedSignals();
    void realClockAndScheduler();
};

void ScreenCleanModeTest::escRule_data()
{
    QTest::addColumn<QList<double>>("presses");
    QTest::addColumn<QList<int>>("counts"); // escCount after each press
    QTest::addColumn<bool>("activeAfter");

    QTest::newRow("three within 2 s") << times({0, 1, 1.9}) << QList<int>{1, 2, 0} << false;
    QTest::newRow("third after first expired") << times({0, 1, 2.1}) << QList<int>{1, 2, 2} << true;
    QTest::newRow("exactly 2 s apart expires") << times({0, 1, 2}) << QList<int>{1, 2, 2} << true;
    QTest::newRow("steady 1.5 s never ends")
        << times({0, 1.5, 3, 4.5}) << QList<int>{1, 2, 2, 2} << true;
    QTest::newRow("slow presses restart at 1") << times({0, 2.5, 5}) << QList<int>{1, 1, 1} << true;
    QTest::newRow("auto-repeat burst") << times({0, 0.03, 0.06}) << QList<int>{1, 2, 0} << false;
    QTest::newRow("late quick run ends")
        << times({0, 3, 3.5, 3.9}) << QList<int>{1, 1, 2, 0} << false;
}

void ScreenCleanModeTest::escRule()
{
    QFETCH(QList<double>, presses);
    QFETCH(QList<int>, counts);
    QFETCH(bool, activeAfter);

    Rig rig;
    rig.mode->start();
    QVERIFY(rig.mode->active());
    QList<int> seen;
    for (double t : presses) {
        rig.press(t);
        seen.append(rig.mode->escCount());
    }
    QCOMPARE(seen, counts);
    QCOMPARE(rig.mode->active(), activeAfter);
    QCOMPARE(rig.log.count(u"release"_s), activeAfter ? 0 : 1);
}

void ScreenCleanModeTest::escReachesModeOnlyThroughEventLoop()
{
    Rig rig;
    rig.mode->start();
    // Three presses within one pass of the lock's handler: nothing may stop inside it.
    rig.lock->esc();
    rig.lock->esc();
    rig.lock->esc();
    QCOMPARE(rig.mode->escCount(), 0);
    QVERIFY(rig.mode->active());
    QCoreApplication::processEvents();
    QVERIFY(!rig.mode->active());
    QCOMPARE(rig.log.count(u"release"_s), 1);
}

void ScreenCleanModeTest::startTwice()
{
    Rig rig;
    rig.mode->start();
    rig.mode->start();
    QVERIFY(rig.mode->active());
    QCOMPARE(rig.log.count(u"install"_s), 1);
    QCOMPARE(rig.log.count(u"showWindows"_s), 1);
    QCOMPARE(rig.log.count(u"hidePointer"_s), 1);
    QCOMPARE(rig.jobs.size(), 1);
}

void ScreenCleanModeTest::startAndStopOrder()
{
    Rig rig;
    rig.mode->start();
    QCOMPARE(rig.log, (Log{u"install"_s, u"showWindows"_s, u"hidePointer"_s}));
    rig.log.clear();
    rig.mode->stop();
    QCOMPARE(rig.log, (Log{u"release"_s, u"closeWindows"_s, u"showPointer"_s}));
    QVERIFY(!rig.mode->active());
    QVERIFY(rig.jobs.at(0)->cancelled);
}

void ScreenCleanModeTest::untrusted()
{
    Rig rig;
    rig.lock->isTrusted = false;
    rig.mode->start();
    QCOMPARE(rig.log, Log{u"requestTrust"_s});
    QCOMPARE(rig.mode->lastError(), std::optional<QString>(kPermissionEn));
    QVERIFY(!rig.mode->active());
    QVERIFY(rig.jobs.isEmpty());
    QVERIFY(!rig.mode->trusted());

    // The page's own button prompts and changes nothing else.
    rig.log.clear();
    rig.mode->requestPermission();
    QCOMPARE(rig.log, Log{u"requestTrust"_s});
    QVERIFY(!rig.mode->active());
}

void ScreenCleanModeTest::installRefused()
{
    Rig rig;
    rig.lock->accepts = false;
    rig.mode->start();
    QCOMPARE(rig.log, Log{u"install"_s});
    QCOMPARE(rig.mode->lastError(), std::optional<QString>(kLockEn));
    QVERIFY(!rig.mode->active());
    QVERIFY(rig.jobs.isEmpty());
    // Nothing to undo: a stop now must not touch the lock or the host.
    rig.mode->stop();
    QCOMPARE(rig.log, Log{u"install"_s});
}

void ScreenCleanModeTest::messageStaysUntilSuccess()
{
    Rig rig;
    rig.lock->accepts = false;
    rig.mode->start();
    QCOMPARE(rig.mode->lastError(), std::optional<QString>(kLockEn));
    rig.mode->stop();
    QCOMPARE(rig.mode->lastError(), std::optional<QString>(kLockEn));
    rig.lock->isTrusted = false;
    rig.mode->start();
    QCOMPARE(rig.mode->lastError(), std::optional<QString>(kPermissionEn));

    rig.lock->isTrusted = true;
    rig.lock->accepts = true;
    rig.mode->start();
    QVERIFY(rig.mode->active());
    QCOMPARE(rig.mode->lastError(), std::nullopt);
}

void ScreenCleanModeTest::autoExit()
{
    Rig rig;
    rig.now = 50;
    rig.mode->start();
    QCOMPARE(rig.jobs.size(), 1);
    QCOMPARE(rig.jobs.at(0)->at, 650.0);
    rig.now = 650;
    rig.jobs.at(0)->run();
    QVERIFY(!rig.mode->active());
    QCOMPARE(rig.log.count(u"release"_s), 1);
    QCOMPARE(rig.log.count(u"closeWindows"_s), 1);
    QCOMPARE(rig.log.count(u"showPointer"_s), 1);
}

void ScreenCleanModeTest::manualStopCancelsAutoExit()
{
    Rig rig;
    rig.mode->start();
    rig.now = 100;
    rig.mode->stop();
    QVERIFY(rig.jobs.at(0)->cancelled);

    rig.now = 200;
    rig.mode->start();
    QCOMPARE(rig.jobs.size(), 2);
    QCOMPARE(rig.jobs.at(1)->at, 800.0);
    QVERIFY(!rig.jobs.at(1)->cancelled);

    // A fresh ten minutes: stopping by Esc cancels this one too.
    rig.press(201);
    rig.press(201.5);
    rig.press(202);
    QVERIFY(!rig.mode->active());
    QVERIFY(rig.jobs.at(1)->cancelled);
}

void ScreenCleanModeTest::autoExitOfDestroyedModeDoesNothing()
{
    Rig rig;
    rig.mode->start();
    const std::shared_ptr<Job> job = rig.jobs.at(0);
    rig.mode.reset();
    QCOMPARE(rig.log.count(u"release"_s), 1);
    rig.log.clear();
    job->run(); // must neither crash nor reach the lock or host again
    QVERIFY(rig.log.isEmpty());
}

void ScreenCleanModeTest::stopWhenInactive()
{
    Rig rig;
    QSignalSpy changed(rig.mode.get(), &ScreenCleanMode::changed);
    rig.mode->stop();
    QVERIFY(rig.log.isEmpty());
    QCOMPARE(changed.count(), 0);

    rig.mode->start();
    rig.mode->stop();
    rig.log.clear();
    rig.mode->stop();
    QVERIFY(rig.log.isEmpty());
}

void ScreenCleanModeTest::chineseMessages_data()
{
    QTest::addColumn<bool>("trusted");
    QTest::addColumn<QString>("message");
    QTest::newRow("permission")
        << false << u"请在「系统设置 → 隐私与安全性 → 辅助功能」里允许 Quorvel，然后再试。"_s;
    QTest::newRow("lock") << true << u"无法锁定键盘，请检查辅助功能权限。"_s;
}

void ScreenCleanModeTest::chineseMessages()
{
    QFETCH(bool, trusted);
    QFETCH(QString, message);
    L10n::overrideForTesting(true);
    Rig rig;
    rig.lock->isTrusted = trusted;
    rig.lock->accepts = false;
    rig.mode->start();
    QCOMPARE(rig.mode->lastError(), std::optional<QString>(message));
}

void ScreenCleanModeTest::exitHint()
{
    Rig rig;
    rig.mode->start();
    QCOMPARE(rig.mode->exitHint(), u"Press Esc 3 times quickly to exit  (0/3)"_s);
    rig.press(0);
    QCOMPARE(rig.mode->exitHint(), u"Press Esc 3 times quickly to exit  (1/3)"_s);
    rig.press(1);
    QCOMPARE(rig.mode->exitHint(), u"Press Esc 3 times quickly to exit  (2/3)"_s);
    rig.press(3.5);
    QCOMPARE(rig.mode->exitHint(), u"Press Esc 3 times quickly to exit  (1/3)"_s);

    L10n::overrideForTesting(true);
    QCOMPARE(rig.mode->exitHint(), u"连按 3 次 Esc 退出  (1/3)"_s);
}

void ScreenCleanModeTest::destroyingActiveModeReleases()
{
    Rig rig;
    rig.mode->start();
    rig.log.clear();
    rig.mode.reset();
    QCOMPARE(rig.log, (Log{u"release"_s, u"closeWindows"_s, u"showPointer"_s}));
}

void ScreenCleanModeTest::changedSignals()
{
    Rig rig;
    QSignalSpy changed(rig.mode.get(), &ScreenCleanMode::changed);
    rig.mode->start();
    QCOMPARE(changed.count(), 1);
    rig.press(0);
    QCOMPARE(changed.count(), 2);
    // A press that arrives after the stop (queued before it) changes nothing.
    std::function<void()> stale = rig.lock->esc;
    rig.mode->stop();
    QCOMPARE(changed.count(), 3);
    stale();
    QCoreApplication::processEvents();
    QCOMPARE(rig.mode->escCount(), 0);
    QCOMPARE(changed.count(), 3);
}

void ScreenCleanModeTest::realClockAndScheduler()
{
    ScreenCleanMode::Services real = ScreenCleanMode::Services::real();
    const double before = real.now();
    QTest::qWait(60);
    const double elapsed = real.now() - before;
    QVERIFY2(elapsed >= 0.05 && elapsed < 5, qPrintable(QString::number(elapsed)));

    int fired = 0;
    real.schedule(0.02, [&] { ++fired; });
    int cancelledFired = 0;
    const std::function<void()> cancel = real.schedule(0.02, [&] { ++cancelledFired; });
    cancel();
    // The job that stops the mode cancels itself while it runs.
    int selfCancelling = 0;
    std::function<void()> own;
    own = real.schedule(0.01, [&] {
        ++selfCancelling;
        own();
    });
    QTRY_COMPARE(fired, 1);
    QTRY_COMPARE(selfCancelling, 1);
    QTest::qWait(80);
    QCOMPARE(fired, 1);
    QCOMPARE(cancelledFired, 0);
    QCOMPARE(selfCancelling, 1);
    own(); // a late cancel of a finished job is harmless
    cancel();
}

QTEST_GUILESS_MAIN(ScreenCleanModeTest)
#include "tst_screencleanmode.moc"
