#include "common/TestHome.h"
#include "common/Xvfb.h"
#include "platform/InputLock.h"

#include <QFileInfo>
#include <QProcess>
#include <QSet>
#include <QtTest>
#include <algorithm>
#include <memory>
#include <tuple>

// Xlib's macros clash with Qt's headers: it comes last.
#include <X11/Xlib.h>

using namespace Qt::StringLiterals;
using AppHarness::waitFor;

namespace {

const QString kXdotool = u"/usr/bin/xdotool"_s;
const QString kLockFailure =
    u"failed: Could not install the keyboard lock. Check the Accessibility permission."_s;

// A client connection of the test's own; closing it drops every grab it holds.
using Connection = std::unique_ptr<Display, decltype(&XCloseDisplay)>;

Connection openDisplay(const QString &display)
{
    return {XOpenDisplay(display.toUtf8().constData()), &XCloseDisplay};
}

// The lock probe process, never left running past its case.
class Probe final : public QProcess
{
public:
    ~Probe() override
    {
        kill();
        waitForFinished(2000);
    }
};

} // namespace

class InputLockTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        if (!QFileInfo::exists(AppHarness::Xvfb::binary()) || !QFileInfo::exists(kXdotool))
            QSKIP("needs /usr/bin/Xvfb and xdotool");
        m_home = std::make_unique<TestHome>();
        m_x = std::make_unique<AppHarness::Xvfb>();
        QVERIFY(m_x->start());
        // The in-process locks and the probe run on our X server, in English.
        qputenv("DISPLAY", m_x->display().toUtf8());
        qputenv("LANG", "en_US.UTF-8");
        for (const char *name :
             {"LANGUAGE", "LC_ALL", "LC_MESSAGES", "WAYLAND_DISPLAY", "XDG_SESSION_TYPE"})
            qunsetenv(name);
        // A window watching what a user's input would deliver to an application.
        m_watch = openDisplay(m_x->display());
        QVERIFY(m_watch);
        m_window = XCreateSimpleWindow(m_watch.get(), DefaultRootWindow(m_watch.get()), 100, 100,
                                       400, 300, 0, 0, 0);
        XSelectInput(m_watch.get(), m_window,
                     KeyPressMask | ButtonPressMask | ButtonReleaseMask | PointerMotionMask |
                         StructureNotifyMask);
        XMapWindow(m_watch.get(), m_window);
        XEvent event;
        do
            XNextEvent(m_watch.get(), &event);
        while (event.type != MapNotify);
    }

    void init()
    {
        xdotool({u"mousemove"_s, u"150"_s, u"150"_s});
        XSetInputFocus(m_watch.get(), m_window, RevertToPointerRoot, CurrentTime);
        collect({}, 100);
    }

    void input_data()
    {
        QTest::addColumn<bool>("locked");
        QTest::addColumn<QStringList>("command");
        QTest::addColumn<QList<int>>("reaching");

        const QList<int> click{ButtonPress, ButtonRelease};
        const QList<int> motion{MotionNotify};
        const QList<std::tuple<const char *, QStringList, QList<int>>> inputs{
            {"key", {u"key"_s, u"a"_s}, {KeyPress}},
            {"click", {u"click"_s, u"1"_s}, click},
            {"scroll", {u"click"_s, u"4"_s}, click},
            {"motion", {u"mousemove"_s, u"300"_s, u"250"_s}, motion},
        };
        // Unlocked first, so that each locked row is shown able to fail.
        for (const bool locked : {false, true}) {
            for (const auto &[name, command, reachesFree] : inputs)
                QTest::addRow("%s, %s", name, locked ? "locked" : "free")
                    << locked << command
                    << (locked && reachesFree != motion ? QList<int>{} : reachesFree);
        }
    }

    void input()
    {
        QFETCH(bool, locked);
        QFETCH(QStringList, command);
        QFETCH(QList<int>, reaching);

        Probe probe;
        if (locked)
            QCOMPARE(startProbe(probe), u"locked"_s);
        xdotool(command);
        QCOMPARE(collect(reaching), reaching);
        if (locked)
            QCOMPARE(probe.state(), QProcess::Running);
    }

    void threeEscPressesEnd()
    {
        Probe probe;
        QCOMPARE(startProbe(probe), u"locked"_s);
        xdotool({u"key"_s, u"Escape"_s, u"Escape"_s, u"Escape"_s});
        QVERIFY2(probe.waitForFinished(3000), "the mode must end");
        QCOMPARE(probe.exitStatus(), QProcess::NormalExit);
        QCOMPARE(probe.exitCode(), 0);
        const QStringList lines =
            QString::fromUtf8(probe.readAllStandardOutput()).split(u'\n', Qt::SkipEmptyParts);
        QCOMPARE(lines.mid(0, 2), (QStringList{u"esc 1"_s, u"esc 2"_s}));
        verifyUnlocked();
    }

    void killReleasesAtOnce()
    {
        Probe probe;
        QCOMPARE(startProbe(probe), u"locked"_s);
        probe.kill(); // SIGKILL: no chance to let go itself
        QVERIFY(probe.waitForFinished(2000));
        QCOMPARE(probe.exitStatus(), QProcess::CrashExit);
        verifyUnlocked();
    }

    void refusedOutsideX11_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("value");
        QTest::addColumn<bool>("locks");

        QTest::newRow("Wayland display") << u"WAYLAND_DISPLAY"_s << u"wayland-0"_s << false;
        QTest::newRow("Wayland session") << u"XDG_SESSION_TYPE"_s << u"wayland"_s << false;
        QTest::newRow("no display") << u"DISPLAY"_s << QString() << false;
        QTest::newRow("empty Wayland display") << u"WAYLAND_DISPLAY"_s << QString() << true;
    }

    void refusedOutsideX11()
    {
        QFETCH(QString, name);
        QFETCH(QString, value);
        QFETCH(bool, locks);

        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(name, value);
        Probe probe;
        const QString first = startProbe(probe, environment);
        QCOMPARE(first, locks ? u"locked"_s : kLockFailure);
        if (!locks) {
            QVERIFY(probe.waitForFinished(2000));
            QCOMPARE(probe.exitCode(), 3);
        }
    }

    void grabbedElsewhere_data()
    {
        QTest::addColumn<QString>("holds");
        QTest::addColumn<bool>("installs");

        QTest::newRow("keyboard grabbed") << u"keyboard"_s << false;
        QTest::newRow("pointer grabbed") << u"pointer"_s << false;
        // An active pointer grab stands in for the taken passive one.
        QTest::newRow("buttons grabbed") << u"buttons"_s << true;
    }

    void grabbedElsewhere()
    {
        QFETCH(QString, holds);
        QFETCH(bool, installs);

        // A client holding a grab, as a window manager or another locker would.
        Connection other = openDisplay(m_x->display());
        const Window root = DefaultRootWindow(other.get());
        const unsigned mask = ButtonPressMask | ButtonReleaseMask;
        int grabbed = GrabSuccess;
        if (holds == u"keyboard"_s)
            grabbed =
                XGrabKeyboard(other.get(), root, False, GrabModeAsync, GrabModeAsync, CurrentTime);
        else if (holds == u"pointer"_s)
            grabbed = XGrabPointer(other.get(), root, False, mask, GrabModeAsync, GrabModeAsync, 0,
                                   0, CurrentTime);
        else
            XGrabButton(other.get(), AnyButton, AnyModifier, root, False, mask, GrabModeAsync,
                        GrabModeAsync, 0, 0);
        XSync(other.get(), False);
        QCOMPARE(grabbed, GrabSuccess);

        const auto lock = Platform::InputLock::create();
        QCOMPARE(lock->install([] {}), installs);
        if (installs) {
            xdotool({u"key"_s, u"a"_s, u"click"_s, u"1"_s, u"click"_s, u"4"_s});
            QCOMPARE(collect(), QList<int>{});
            XSync(other.get(), False);
            QVERIFY2(XPending(other.get()) == 0, "the lock's grab must come first");
            lock->release();
        } else {
            // The same refusal reaches the user as the lock message.
            Probe probe;
            QCOMPARE(startProbe(probe), kLockFailure);
        }
        other.reset();
        // Whatever the lock took before the refusal, or until its release, is let go.
        verifyUnlocked();
    }

    void escCallsBackWhileInstalled()
    {
        const auto lock = Platform::InputLock::create();
        int presses = 0;
        QVERIFY(lock->install([&] { ++presses; }));
        xdotool({u"key"_s, u"Escape"_s, u"a"_s, u"Escape"_s});
        QTRY_COMPARE(presses, 2);
        QTest::qWait(200);
        QCOMPARE(presses, 2); // "a" is swallowed without a call

        lock->release();
        xdotool({u"key"_s, u"Escape"_s});
        QCOMPARE(collect({KeyPress}), QList<int>{KeyPress});
        QCOMPARE(presses, 2);

        // Taken again and released from its callback: both presses are read in one go, and
        // the second must not call a released lock back.
        QVERIFY(lock->install([&] {
            ++presses;
            lock->release();
        }));
        xdotool({u"key"_s, u"Escape"_s, u"Escape"_s});
        QTRY_COMPARE(presses, 3);
        QTest::qWait(300);
        QCOMPARE(presses, 3);
        verifyUnlocked();
    }

private:
    // Starts the probe and returns its first line, "" when it said nothing in time.
    QString
    startProbe(QProcess &probe,
               const QProcessEnvironment &environment = QProcessEnvironment::systemEnvironment())
    {
        probe.setProcessEnvironment(environment);
        probe.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        probe.start(QStringLiteral(QUORVEL_LOCKPROBE_PATH), {});
        probe.waitForReadyRead(5000); // one line comes in one write
        return QString::fromUtf8(probe.readLine()).trimmed();
    }

    static void xdotool(const QStringList &arguments)
    {
        QProcess tool;
        tool.start(kXdotool, arguments);
        QVERIFY(tool.waitForFinished(10'000));
        QCOMPARE(tool.exitCode(), 0);
    }

    // The event types that reached the window, sorted: as soon as all of `awaited` are in,
    // or else after `ms`, so that absent events can be told.
    QList<int> collect(const QList<int> &awaited = {}, int ms = 300)
    {
        QSet<int> seen;
        const QSet<int> wanted(awaited.cbegin(), awaited.cend());
        waitFor(
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

    // Key "a" and a left click both reach the window: nothing is locked.
    void verifyUnlocked()
    {
        xdotool({u"key"_s, u"a"_s, u"click"_s, u"1"_s});
        const QList<int> seen = collect({KeyPress, ButtonPress});
        QVERIFY2(seen.contains(KeyPress), "keys must reach the window again");
        QVERIFY2(seen.contains(ButtonPress), "clicks must reach the window again");
    }

    std::unique_ptr<TestHome> m_home;
    std::unique_ptr<AppHarness::Xvfb> m_x;
    Connection m_watch{nullptr, &XCloseDisplay};
    Window m_window = 0;
};

QTEST_GUILESS_MAIN(InputLockTest)
#include "tst_inputlock.moc"
