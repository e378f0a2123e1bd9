#include "common/TestHome.h"
#include "core/screenclean/ScreenCleanMode.h"
#include "core/text/L10n.h"
#include "screenclean/FakeLock.h"

#include <QSignalSpy>
#include <QtTest>

#ifdef QUORVEL_LOCKPROBE_PATH
#include "common/Xvfb.h"
// Xlib's macros clash with Qt's headers: it comes last.
#include <X11/Xlib.h>
#endif

using namespace Qt::StringLiterals;

namespace {

struct Job
{
    double at = 0;
    std::function<void()> run;
    bool cancelled = false;
};

// A mode on a fake lock and clock, hosting its windows too; the test fires scheduled jobs.
struct Rig final : ScreenCleanMode::OverlayHost
{
    QStringList log; // what the lock and the host are asked, in order
    FakeLock *lock = nullptr;
    double now = 0;
    QList<std::shared_ptr<Job>> jobs;
    std::unique_ptr<ScreenCleanMode> mode;

    Rig()
    {
        auto fake = std::make_unique<FakeLock>(log);
        lock = fake.get();
        mode = std::make_unique<ScreenCleanMode>(ScreenCleanMode::Services{
            std::move(fake), [this] { return now; },
            [this](double seconds, std::function<void()> run) {
                jobs.append(std::make_shared<Job>(Job{now + seconds, std::move(run)}));
                return std::function<void()>([job = jobs.last()] { job->cancelled = true; });
            }});
        mode->setOverlayHost(this);
    }
    void showWindows(ScreenCleanMode &) override { log.append(u"showWindows"_s); }
    void closeWindows() override { log.append(u"closeWindows"_s); }
};

} // namespace

class ScreenCleanTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { L10n::overrideForTesting(false); }

    // Three presses within two seconds end the mode; a press two seconds old has expired.
    void escRule_data()
    {
        QTest::addColumn<QList<double>>("presses");
        QTest::addColumn<QList<int>>("counts"); // escCount after each press
        QTest::newRow("0 1 1.9 ends") << QList<double>{0, 1, 1.9} << QList<int>{1, 2, 0};
        QTest::newRow("0 1 2 expires") << QList<double>{0, 1, 2} << QList<int>{1, 2, 2};
        QTest::newRow("0 1.5 3 4.5") << QList<double>{0, 1.5, 3, 4.5} << QList<int>{1, 2, 2, 2};
    }
    void escRule()
    {
        QFETCH(QList<double>, presses);
        QFETCH(QList<int>, counts);
        Rig rig;
        rig.mode->start();
        QList<int> seen;
        for (double t : presses) {
            rig.now = t;
            rig.lock->esc();
            QCoreApplication::processEvents();
            seen.append(rig.mode->escCount());
        }
        QCOMPARE(seen, counts);
        const bool ended = counts.last() == 0;
        QCOMPARE(rig.mode->active(), !ended);
        QCOMPARE(rig.log.count(u"release"_s), int(ended));
        QCOMPARE(rig.jobs.at(0)->cancelled, ended); // the ten-minute stop goes with it
        QCOMPARE(rig.mode->exitHint(),
                 u"Press Esc 3 times quickly to exit  (%1/3)"_s.arg(counts.last()));
    }

    // Presses within one pass of the lock's handler: nothing stops inside it, and a fourth,
    // queued behind the stop, counts for nothing.
    void escIsQueued()
    {
        Rig rig;
        QSignalSpy changed(rig.mode.get(), &ScreenCleanMode::changed);
        rig.mode->start();
        const std::function<void()> esc = rig.lock->esc;
        for (int i = 0; i < 4; ++i)
            esc();
        QVERIFY(rig.mode->active());
        QCoreApplication::processEvents();
        QVERIFY(!rig.mode->active() && rig.mode->escCount() == 0);
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
        QCOMPARE(rig.log.join(u' '), u"install showWindows hidePointer"_s);
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
        QVERIFY(!rig.mode || !rig.mode->active());
        QVERIFY(job->cancelled);
        // A job firing late, even for a destroyed mode, and a second stop reach nothing.
        job->run();
        if (rig.mode)
            rig.mode->stop();
        QCOMPARE(rig.log.join(u' '), u"release closeWindows showPointer"_s);
    }

    void failures_data()
    {
        QTest::addColumn<bool>("trusted");
        QTest::addColumn<bool>("zh");
        QTest::addColumn<QString>("message");
        QTest::newRow("untrusted") << false << false << kPermissionEn;
        QTest::newRow("refused, zh") << true << true << u"无法锁定键盘，请检查辅助功能权限。"_s;
    }
    void failures()
    {
        QFETCH(bool, trusted);
        QFETCH(bool, zh);
        QFETCH(QString, message);
        L10n::overrideForTesting(zh);
        Rig rig;
        QSignalSpy changed(rig.mode.get(), &ScreenCleanMode::changed);
        rig.lock->isTrusted = trusted;
        rig.lock->accepts = false;
        QCOMPARE(rig.mode->trusted(), trusted);
        rig.mode->start();
        rig.mode->stop(); // nothing to undo, and the message stays
        QCOMPARE(rig.log, QStringList{trusted ? u"install"_s : u"requestTrust"_s});
        QCOMPARE(rig.mode->lastError(), std::optional<QString>(message));
        QVERIFY(!rig.mode->active() && rig.jobs.isEmpty() && changed.count() == 1);
        rig.lock->isTrusted = rig.lock->accepts = true;
        rig.mode->start();
        QVERIFY(rig.mode->active() && !rig.mode->lastError());
        rig.mode->requestPermission();
        QCOMPARE(rig.log.last(), u"requestTrust"_s);
    }

#ifdef QUORVEL_LOCKPROBE_PATH
    // The X11 lock on a private server, watched by a window of ours: keys and buttons are held,
    // motion passes, and all is let go when three Esc presses end the mode or it is killed.
    void x11Lock()
    {
        if (!startX())
            QSKIP("needs /usr/bin/Xvfb and xdotool");
        for (const bool killed : {false, true}) {
            QProcess probe; // prints "locked", then "esc <n>" as the count changes
            probe.start(QStringLiteral(QUORVEL_LOCKPROBE_PATH), {});
            QVERIFY(probe.waitForReadyRead(5000));
            QCOMPARE(probe.readLine(), QByteArray("locked\n"));
            xdotool(u"key a click 1 click 4 mousemove 300 250"_s);
            QCOMPARE(collect({MotionNotify}), QList<int>{MotionNotify});
            killed ? probe.kill() : xdotool(u"key Escape Escape Escape"_s);
            QVERIFY(probe.waitForFinished(3000));
            QCOMPARE(probe.readAll(), QByteArray(killed ? "" : "esc 1\nesc 2\nesc 0\n"));
            verifyUnlocked();
        }
    }

    void x11Refused_data()
    {
        QTest::addColumn<QString>("setup"); // an environment variable, or another client's grab
        QTest::addColumn<bool>("locks");
        QTest::newRow("Wayland display") << u"WAYLAND_DISPLAY=wayland-0"_s << false;
        QTest::newRow("Wayland session") << u"XDG_SESSION_TYPE=wayland"_s << false;
        QTest::newRow("empty Wayland display") << u"WAYLAND_DISPLAY="_s << true;
        QTest::newRow("no display") << u"DISPLAY="_s << false;
        QTest::newRow("keyboard grabbed") << u"grab=keyboard"_s << false;
        QTest::newRow("pointer grabbed") << u"grab=pointer"_s << false;
        // An active pointer grab stands in for the taken passive one.
        QTest::newRow("buttons grabbed") << u"grab=buttons"_s << true;
    }
    void x11Refused()
    {
        QFETCH(QString, setup);
        QFETCH(bool, locks);
        if (!startX())
            QSKIP("needs /usr/bin/Xvfb and xdotool");
        const QByteArray name = setup.section(u'=', 0, 0).toUtf8(), saved = qgetenv(name.data());
        const QString value = setup.section(u'=', 1);
        Display *other = XOpenDisplay(qPrintable(m_x->display()));
        const Window root = DefaultRootWindow(other);
        const unsigned buttons = ButtonPressMask | ButtonReleaseMask;
        if (value == u"keyboard"_s)
            XGrabKeyboard(other, root, False, GrabModeAsync, GrabModeAsync, CurrentTime);
        else if (value == u"pointer"_s)
            XGrabPointer(other, root, False, buttons, GrabModeAsync, GrabModeAsync, 0, 0, 0);
        else if (value == u"buttons"_s)
            XGrabButton(other, AnyButton, AnyModifier, root, False, buttons, GrabModeAsync,
                        GrabModeAsync, 0, 0);
        XSync(other, False);
        if (name != "grab")
            qputenv(name.data(), value.toUtf8());
        const auto lock = Platform::InputLock::create();
        const bool installed = lock->install([] {});
        saved.isEmpty() ? qunsetenv(name.data()) : qputenv(name.data(), saved);
        if (installed) {
            xdotool(u"key a click 1 click 4"_s);
            QCOMPARE(collect(), QList<int>{});
            XSync(other, False);
            QVERIFY2(XPending(other) == 0, "the lock's grab must come first");
        }
        lock->release();
        XCloseDisplay(other);
        QCOMPARE(installed, locks);
        verifyUnlocked(); // whatever was taken before a refusal is let go
    }

    // Esc calls back while installed, never after a release, even one from the callback.
    void x11EscCallback()
    {
        if (!startX())
            QSKIP("needs /usr/bin/Xvfb and xdotool");
        const auto lock = Platform::InputLock::create();
        int presses = 0;
        QVERIFY(lock->install([&] { ++presses; }));
        QVERIFY(lock->install([&] { presses += 100; })); // held already: nothing changes
        xdotool(u"key Escape a Escape"_s);
        QTRY_COMPARE(presses, 2);
        lock->release();
        QVERIFY(lock->install([&] {
            ++presses;
            lock->release();
        }));
        xdotool(u"key Escape Escape"_s);
        QTRY_COMPARE(presses, 3);
        QTest::qWait(200);
        QCOMPARE(presses, 3);
        verifyUnlocked();
    }

private:
    // A private X server, our window focused under the pointer, its queue drained; or false.
    bool startX()
    {
        if (!QFileInfo::exists(AppHarness::Xvfb::binary()) ||
            !QFileInfo::exists(u"/usr/bin/xdotool"_s))
            return false;
        if (!m_x) {
            m_x = std::make_unique<AppHarness::Xvfb>();
            if (!m_x->start())
                return false;
            qputenv("DISPLAY", m_x->display().toUtf8());
            for (const char *name : {"WAYLAND_DISPLAY", "XDG_SESSION_TYPE"})
                qunsetenv(name);
            m_watch.reset(XOpenDisplay(nullptr));
            m_window = XCreateSimpleWindow(m_watch.get(), DefaultRootWindow(m_watch.get()), 100,
                                           100, 400, 300, 0, 0, 0);
            XSelectInput(m_watch.get(), m_window,
                         KeyPressMask | ButtonPressMask | ButtonReleaseMask | PointerMotionMask);
            XMapWindow(m_watch.get(), m_window);
            XSync(m_watch.get(), False);
        }
        xdotool(u"mousemove 150 150"_s);
        XSetInputFocus(m_watch.get(), m_window, RevertToPointerRoot, CurrentTime);
        collect({}, 100);
        return true;
    }

    static void xdotool(const QString &arguments)
    {
        QCOMPARE(QProcess::execute(u"/usr/bin/xdotool"_s, arguments.split(u' ')), 0);
    }

    // The event types that reached the window, sorted: once `awaited` are in, else after `ms`.
    QList<int> collect(const QList<int> &awaited = {}, int ms = 300)
    {
        QSet<int> seen;
        const QSet<int> wanted(awaited.cbegin(), awaited.cend());
        AppHarness::waitFor(
            [&] {
                XSync(m_watch.get(), False);
                while (XPending(m_watch.get()) > 0) {
                    XEvent event;
                    XNextEvent(m_watch.get(), &event);
                    seen.insert(event.type);
                }
                return !wanted.isEmpty() && seen.contains(wanted);
            },
            wanted.isEmpty() ? ms : 2000);
        QList<int> types(seen.cbegin(), seen.cend());
        std::sort(types.begin(), types.end());
        return types;
    }

    void verifyUnlocked()
    {
        xdotool(u"key a click 1"_s);
        const QList<int> seen = collect({KeyPress, ButtonPress});
        QVERIFY2(seen.contains(KeyPress) && seen.contains(ButtonPress), "input must pass again");
    }

    std::unique_ptr<AppHarness::Xvfb> m_x;
    std::unique_ptr<Display, decltype(&XCloseDisplay)> m_watch{nullptr, &XCloseDisplay};
    Window m_window = 0;
#endif

private:
    TestHome m_home;
};

QTEST_GUILESS_MAIN(ScreenCleanTest)
#include "tst_screenclean.moc"
