#include "core/screenclean/ScreenCleanMode.h"
#include "core/text/L10n.h"
#include "screenclean/FakeLock.h"

#include <QSignalSpy>
#include <QtTest>
#include <memory>

using namespace Qt::StringLiterals;

namespace {

// Everything the lock and the host are asked, in order.
using Log = QStringList;
const Log kStartCalls{u"install"_s, u"showWindows"_s, u"hidePointer"_s};
const Log kStopCalls{u"release"_s, u"closeWindows"_s, u"showPointer"_s};

struct Job
{
    double at = 0;
    std::function<void()> run;
    bool cancelled = false;
};

// A controller on fakes, hosting its windows too; the test moves the clock and fires
// scheduled jobs itself.
struct Rig final : ScreenCleanMode::OverlayHost
{
    Log log;
    FakeLock *lock = nullptr; // owned by the mode
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
        mode->setOverlayHost(this);
    }

    void showWindows(ScreenCleanMode &) override { log.append(u"showWindows"_s); }
    void closeWindows() override { log.append(u"closeWindows"_s); }

    // An Esc key down at `t`, delivered the way the lock delivers it.
    void press(double t)
    {
        now = t;
        QVERIFY(lock->esc);
        lock->esc();
        QCoreApplication::processEvents();
    }
};

} // namespace

class ScreenCleanModeTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { L10n::overrideForTesting(false); }
    void escRule_data()
    {
        QTest::addColumn<QList<double>>("presses");
        QTest::addColumn<QList<int>>("counts"); // escCount after each press
        QTest::addColumn<bool>("activeAfter");

        QTest::newRow("0/1/1.9 ends") << QList<double>{0, 1, 1.9} << QList<int>{1, 2, 0} << false;
        QTest::newRow("0/1/2.1 stays at 2")
            << QList<double>{0, 1, 2.1} << QList<int>{1, 2, 2} << true;
        QTest::newRow("0/1/2 expires") << QList<double>{0, 1, 2} << QList<int>{1, 2, 2} << true;
        QTest::newRow("0/1.5/3/4.5 never ends")
            << QList<double>{0, 1.5, 3, 4.5} << QList<int>{1, 2, 2, 2} << true;
    }

    void escRule()
    {
        QFETCH(QList<double>, presses);
        QFETCH(QList<int>, counts);
        QFETCH(bool, activeAfter);

        Rig rig;
        rig.mode->start();
        QList<int> seen;
        for (double t : presses) {
            rig.press(t);
            seen.append(rig.mode->escCount());
        }
        QCOMPARE(seen, counts);
        QCOMPARE(rig.mode->active(), activeAfter);
        QCOMPARE(rig.log.count(u"release"_s), activeAfter ? 0 : 1);
        // Ending by Esc cancels the ten-minute stop.
        QCOMPARE(rig.jobs.at(0)->cancelled, !activeAfter);
    }

    void escIsQueued()
    {
        Rig rig;
        QSignalSpy changed(rig.mode.get(), &ScreenCleanMode::changed);
        rig.mode->start();
        // Four presses within one pass of the lock's handler: nothing may stop inside it, and
        // the fourth, queued behind the stop, must count for nothing.
        const std::function<void()> esc = rig.lock->esc;
        for (int i = 0; i < 4; ++i)
            esc();
        QVERIFY(rig.mode->active());
        QCoreApplication::processEvents();
        QVERIFY(!rig.mode->active());
        QCOMPARE(rig.mode->escCount(), 0);
        QCOMPARE(changed.count(), 4); // start, 1, 2, stop
        QCOMPARE(rig.log.count(u"release"_s), 1);
    }

    void stopping_data()
    {
        QTest::addColumn<QString>("by");
        for (const char *by : {"stop", "ten minutes", "destruction"})
            QTest::newRow(by) << QString::fromLatin1(by);
    }

    void stopping()
    {
        QFETCH(QString, by);
        Rig rig;
        rig.now = 50;
        rig.mode->start();
        rig.mode->start();
        QCOMPARE(rig.log, kStartCalls);
        QCOMPARE(rig.jobs.size(), 1);
        const std::shared_ptr<Job> job = rig.jobs.at(0);
        QCOMPARE(job->at, 650.0);

        rig.log.clear();
        if (by == u"stop"_s)
            rig.mode->stop();
        else if (by == u"ten minutes"_s)
            job->run();
        else
            rig.mode.reset();
        QCOMPARE(rig.log, kStopCalls);
        QVERIFY(!rig.mode || !rig.mode->active());
        QVERIFY(job->cancelled);
        // A job firing late, even for a destroyed mode, and a second stop reach nothing.
        job->run();
        if (rig.mode)
            rig.mode->stop();
        QCOMPARE(rig.log, kStopCalls);
    }

    void failures_data()
    {
        QTest::addColumn<bool>("trusted");
        QTest::addColumn<bool>("chinese");
        QTest::addColumn<Log>("calls");
        QTest::addColumn<QString>("message");

        QTest::newRow("untrusted") << false << false << Log{u"requestTrust"_s} << kPermissionEn;
        QTest::newRow("refused") << true << false << Log{u"install"_s} << kLockEn;
        QTest::newRow("untrusted, Chinese")
            << false << true << Log{u"requestTrust"_s}
            << u"请在「系统设置 → 隐私与安全性 → 辅助功能」里允许 Quorvel，然后再试。"_s;
        QTest::newRow("refused, Chinese")
            << true << true << Log{u"install"_s} << u"无法锁定键盘，请检查辅助功能权限。"_s;
    }

    void failures()
    {
        QFETCH(bool, trusted);
        QFETCH(bool, chinese);
        QFETCH(Log, calls);
        QFETCH(QString, message);

        L10n::overrideForTesting(chinese);
        Rig rig;
        rig.lock->isTrusted = trusted;
        rig.lock->accepts = false;
        rig.mode->start();
        QCOMPARE(rig.log, calls);
        QCOMPARE(rig.mode->lastError(), std::optional<QString>(message));
        QVERIFY(!rig.mode->active());
        QVERIFY(rig.jobs.isEmpty());
        // Nothing to undo, and the message stays until a start succeeds.
        rig.mode->stop();
        QCOMPARE(rig.log, calls);
        QCOMPARE(rig.mode->lastError(), std::optional<QString>(message));

        rig.lock->isTrusted = rig.lock->accepts = true;
        rig.mode->start();
        QVERIFY(rig.mode->active());
        QCOMPARE(rig.mode->lastError(), std::nullopt);
    }

    void exitHint()
    {
        Rig rig;
        rig.mode->start();
        QCOMPARE(rig.mode->exitHint(), u"Press Esc 3 times quickly to exit  (0/3)"_s);
        rig.press(0);
        QCOMPARE(rig.mode->exitHint(), u"Press Esc 3 times quickly to exit  (1/3)"_s);
        L10n::overrideForTesting(true);
        QCOMPARE(rig.mode->exitHint(), u"连按 3 次 Esc 退出  (1/3)"_s);
    }

    void realClockAndScheduler()
    {
        ScreenCleanMode::Services real = ScreenCleanMode::Services::real();
        const double before = real.now();
        int fired = 0;
        real.schedule(0.02, [&] { ++fired; });
        real.schedule(0.02, [&] { fired += 100; })(); // cancelled at once
        // The job that stops the mode cancels itself while it runs.
        std::function<void()> own;
        own = real.schedule(0.01, [&] {
            ++fired;
            own();
        });
        QTRY_COMPARE(fired, 2);
        QTest::qWait(80);
        QCOMPARE(fired, 2);
        const double elapsed = real.now() - before;
        QVERIFY2(elapsed >= 0.08 && elapsed < 5, qPrintable(QString::number(elapsed)));
    }
};

QTEST_GUILESS_MAIN(ScreenCleanModeTest)
#include "tst_screencleanmode.moc"
