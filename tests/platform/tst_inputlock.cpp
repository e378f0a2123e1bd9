#include "common/TestHome.h"
#include "common/Xvfb.h"
#include "platform/InputLock.h"

#include <QFileInfo>
#include <QPoint>
#include <QProcess>
#include <QSet>
#include <QtTest>
#include <algorithm>
#include <memory>

// Xlib's macros clash with Qt's headers: it comes last.
#include <X11/Xlib.h>
#include <X11/keysym.h>

using namespace Qt::StringLiterals;
using AppHarness::waitFor;

namespace {

const QString kXdotool = u"/usr/bin/xdotool"_s;
const QString kLockFailure =
    u"failed: Could not install the keyboard lock. Check the Accessibility permission."_s;
// Where every case starts the pointer, inside the window, and where moves take it.
const QPoint kStart(150, 150);
const QPoint kMoved(300, 250);

// What reached the watched window: event types, buttons pressed and keys pressed.
struct Seen
{
    QSet<int> types;
    QList<qulonglong> buttons;
    QList<qulonglong> keys;
};

// A window of the test's own on its own connection, focused, watching what a user's input
// would deliver to an application.
class Watched
{
public:
    bool open(const QByteArray &display)
    {
        m_display = XOpenDisplay(display.constData());
        if (!m_display)
            return false;
        const Window root = DefaultRootWindow(m_display);
        m_window = XCreateSimpleWindow(m_display, root, 100, 100, 400, 300, 0, 0, 0);
        XSelectInput(m_display, m_window,
                     KeyPressMask | ButtonPressMask | ButtonReleaseMask | PointerMotionMask |
                         StructureNotifyMask);
        XMapWindow(m_display, m_window);
        XEvent event;
        do
            XNextEvent(m_display, &event);
        while (event.type != MapNotify);
        return true;
    }
    ~Watched()
    {
        if (m_display)
            XCloseDisplay(m_display);
    }

    void focus()
    {
        XSetInputFocus(m_display, m_window, RevertToPointerRoot, CurrentTime);
        XSync(m_display, False);
    }

    // Collects for up to `ms`, stopping early once every type of `awaited` has arrived;
    // with nothing awaited it waits the whole time, so that absent events can be told.
    Seen collect(const QSet<int> &awaited, int ms)
    {
        Seen seen;
        waitFor(
            [&] {
                XSync(m_display, False);
                while (XPending(m_display) > 0) {
                    XEvent event;
                    XNextEvent(m_display, &event);
                    seen.types.insert(event.type);
                    if (event.type == ButtonPress)
                        seen.buttons.append(event.xbutton.button);
                    if (event.type == KeyPress)
                        seen.keys.append(XLookupKeysym(&event.xkey, 0));
                }
                return !awaited.isEmpty() && seen.types.contains(awaited);
            },
            ms);
        if (!awaited.isEmpty())
            QThread::msleep(100); // stragglers of the same input
        XSync(m_display, False);
        while (XPending(m_display) > 0) {
            XEvent event;
            XNextEvent(m_display, &event);
            seen.types.insert(event.type);
        }
        return seen;
    }
    void discard() { collect({}, 100); }

    QPoint pointer()
    {
        Window rootReturn = 0;
        Window child = 0;
        int x = 0;
        int y = 0;
        int winX = 0;
        int winY = 0;
        unsigned mask = 0;
        XQueryPointer(m_display, DefaultRootWindow(m_display), &rootReturn, &child, &x, &y, &winX,
                      &winY, &mask);
        return {x, y};
    }

private:
    Display *m_display = nullptr;
    Window m_window = 0;
};

// A client holding some grab, as a window manager or another locker would.
class OtherClient
{
public:
    enum Holds { keyboard, pointer, buttons };
    OtherClient(const QByteArray &display, Holds holds) : m_display(XOpenDisplay(display))
    {
        const Window root = DefaultRootWindow(m_display);
        const unsigned mask = ButtonPressMask | ButtonReleaseMask;
        if (holds == keyboard)
            m_ok = XGrabKeyboard(m_display, root, False, GrabModeAsync, GrabModeAsync,
                                 CurrentTime) == GrabSuccess;
        else if (holds == pointer)
            m_ok = XGrabPointer(m_display, root, False, mask, GrabModeAsync, GrabModeAsync, 0, 0,
                                CurrentTime) == GrabSuccess;
        else
            XGrabButton(m_display, AnyButton, AnyModifier, root, False, mask, GrabModeAsync,
                        GrabModeAsync, 0, 0);
        XSync(m_display, False);
    }
    ~OtherClient() { XCloseDisplay(m_display); }
    bool holds() const { return m_ok; }
    // Whether one of its grabs delivered anything to it.
    bool received()
    {
        XSync(m_display, False);
        return XPending(m_display) > 0;
    }

private:
    Display *m_display;
    bool m_ok = true;
};

// The lock probe process, never left running past its case.
class Probe final : public QProcess
{
public:
    ~Probe() override
    {
        if (state() == QProcess::NotRunning)
            return;
        kill();
        waitForFinished(2000);
    }
};

QList<int> sorted(const QSet<int> &types)
{
    QList<int> list(types.cbegin(), types.cend());
    std::sort(list.begin(), list.end());
    return list;
}

} // namespace

Q_DECLARE_METATYPE(OtherClient::Holds)

class InputLockTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();

    void input_data();
    void input();
    void escPresses_data();
    void escPresses();
    void killReleasesAtOnce();
    void refusedOutsideX11_data();
    void refusedOutsideX11();
    void grabbedElsewhere_data();
    void grabbedElsewhere();
    void escCallsBackWhileInstalled();
    void releaseFromTheCallback();

private:
    QProcessEnvironment probeEnvironment() const;
    // Starts the probe and returns its first line, "" when it said nothing in time.
    QString startProbe(QProcess &probe, const QProcessEnvironment &environment);
    QString startProbe(QProcess &probe) { return startProbe(probe, probeEnvironment()); }
    static void xdotool(const QStringList &arguments);
    // Key "a" and a left click both reach the window: nothing is locked.
    void verifyUnlocked();

    std::unique_ptr<TestHome> m_home;
    std::unique_ptr<AppHarness::Xvfb> m_x;
    Watched m_window;
};

void InputLockTest::initTestCase()
{
    if (!QFileInfo::exists(AppHarness::Xvfb::binary()) || !QFileInfo::exists(kXdotool))
        QSKIP("needs /usr/bin/Xvfb and xdotool");
    m_home = std::make_unique<TestHome>();
    m_x = std::make_unique<AppHarness::Xvfb>();
    QVERIFY(m_x->start());
    // The in-process locks open the display named here.
    qputenv("DISPLAY", m_x->display().toUtf8());
    qunsetenv("WAYLAND_DISPLAY");
    qunsetenv("XDG_SESSION_TYPE");
    QVERIFY(m_window.open(m_x->display().toUtf8()));
}

void InputLockTest::init()
{
    xdotool({u"mousemove"_s, QString::number(kStart.x()), QString::number(kStart.y())});
    m_window.focus();
    m_window.discard();
}

QProcessEnvironment InputLockTest::probeEnvironment() const
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"DISPLAY"_s, m_x->display());
    environment.insert(u"HOME"_s, m_home->path());
    environment.insert(u"LANG"_s, u"en_US.UTF-8"_s);
    for (const QString &name : {u"LANGUAGE"_s, u"LC_ALL"_s, u"LC_MESSAGES"_s, u"WAYLAND_DISPLAY"_s,
                                u"XDG_SESSION_TYPE"_s})
        environment.remove(name);
    return environment;
}

QString InputLockTest::startProbe(QProcess &probe, const QProcessEnvironment &environment)
{
    probe.setProcessEnvironment(environment);
    probe.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    probe.start(QStringLiteral(QUORVEL_LOCKPROBE_PATH), {});
    if (!probe.waitForStarted(5000))
        return {};
    waitFor(
        [&] {
            probe.waitForReadyRead(50);
            return probe.canReadLine() || probe.state() == QProcess::NotRunning;
        },
        5000);
    return QString::fromUtf8(probe.readLine()).trimmed();
}

void InputLockTest::xdotool(const QStringList &arguments)
{
    QProcess tool;
    tool.start(kXdotool, arguments);
    QVERIFY(tool.waitForFinished(10'000));
    QCOMPARE(tool.exitCode(), 0);
}

void InputLockTest::verifyUnlocked()
{
    xdotool({u"key"_s, u"a"_s, u"click"_s, u"1"_s});
    const Seen seen = m_window.collect({KeyPress, ButtonPress}, 2000);
    QVERIFY2(seen.types.contains(KeyPress), "keys must reach the window again");
    QVERIFY2(seen.types.contains(ButtonPress), "clicks must reach the window again");
}

void InputLockTest::input_data()
{
    QTest::addColumn<bool>("locked");
    QTest::addColumn<QStringList>("command");
    QTest::addColumn<QSet<int>>("reaching");
    QTest::addColumn<qulonglong>("button"); // 0: none expected
    QTest::addColumn<qulonglong>("key");    // 0: none expected
    QTest::addColumn<QPoint>("pointer");

    const QString x = QString::number(kMoved.x());
    const QString y = QString::number(kMoved.y());
    const QSet<int> click{ButtonPress, ButtonRelease};
    struct Input
    {
        const char *name;
        QStringList command;
        QSet<int> reachingFree;
        qulonglong button;
        qulonglong key;
        QPoint pointer;
    };
    const QList<Input> inputs{
        {"key", {u"key"_s, u"a"_s}, {KeyPress}, 0, XK_a, kStart},
        {"modified key", {u"key"_s, u"ctrl+shift+a"_s}, {KeyPress}, 0, XK_a, kStart},
        {"left click", {u"click"_s, u"1"_s}, click, 1, 0, kStart},
        {"right click", {u"click"_s, u"3"_s}, click, 3, 0, kStart},
        {"scroll up", {u"click"_s, u"4"_s}, click, 4, 0, kStart},
        {"scroll down", {u"click"_s, u"5"_s}, click, 5, 0, kStart},
        {"drag",
         {u"mousedown"_s, u"1"_s, u"mousemove"_s, x, y, u"mouseup"_s, u"1"_s},
         {ButtonPress, MotionNotify, ButtonRelease},
         1,
         0,
         kMoved},
        {"motion", {u"mousemove"_s, x, y}, {MotionNotify}, 0, 0, kMoved},
    };
    // Unlocked first, so that each locked check below is shown able to fail.
    for (const Input &input : inputs)
        QTest::addRow("%s, free", input.name) << false << input.command << input.reachingFree
                                              << input.button << input.key << input.pointer;
    for (const Input &input : inputs) {
        // Only plain motion gets through a lock.
        const bool motion = input.reachingFree == QSet<int>{MotionNotify};
        QTest::addRow("%s, locked", input.name)
            << true << input.command << (motion ? input.reachingFree : QSet<int>{}) << qulonglong(0)
            << qulonglong(0) << input.pointer;
    }
}

void InputLockTest::input()
{
    QFETCH(bool, locked);
    QFETCH(QStringList, command);
    QFETCH(QSet<int>, reaching);
    QFETCH(qulonglong, button);
    QFETCH(qulonglong, key);
    QFETCH(QPoint, pointer);

    Probe probe;
    if (locked)
        QCOMPARE(startProbe(probe), u"locked"_s);
    xdotool(command);
    const Seen seen = m_window.collect(reaching, reaching.isEmpty() ? 250 : 2000);
    QCOMPARE(sorted(seen.types), sorted(reaching));
    if (button)
        QVERIFY(seen.buttons.contains(button));
    if (key)
        QVERIFY(seen.keys.contains(key));
    QCOMPARE(m_window.pointer(), pointer);
    if (locked)
        QCOMPARE(probe.state(), QProcess::Running);
}

void InputLockTest::escPresses_data()
{
    QTest::addColumn<QStringList>("command");
    QTest::addColumn<bool>("ends");
    QTest::addColumn<QStringList>("counts"); // the probe's first count lines
    QTest::addColumn<bool>("escReachesWindow");

    const QString esc = u"Escape"_s;
    const QStringList oneTwo{u"esc 1"_s, u"esc 2"_s};
    QTest::newRow("one") << QStringList{u"key"_s, esc} << false << QStringList{u"esc 1"_s} << false;
    QTest::newRow("two") << QStringList{u"key"_s, esc, esc} << false << oneTwo << false;
    QTest::newRow("three") << QStringList{u"key"_s, esc, esc, esc} << true << oneTwo << false;
    QTest::newRow("other keys between")
        << QStringList{u"key"_s, esc, u"a"_s, esc, u"Return"_s, esc} << true << oneTwo << false;
    // The server's auto-repeat turns one held key into a stream of presses: the third ends
    // the mode, and the key, still held, then repeats into the focused window.
    QTest::newRow("held") << QStringList{u"keydown"_s, esc, u"sleep"_s, u"1.2"_s, u"keyup"_s, esc}
                          << true << oneTwo << true;
}

void InputLockTest::escPresses()
{
    QFETCH(QStringList, command);
    QFETCH(bool, ends);
    QFETCH(QStringList, counts);
    QFETCH(bool, escReachesWindow);

    Probe probe;
    QCOMPARE(startProbe(probe), u"locked"_s);
    xdotool(command);
    if (ends) {
        QVERIFY2(probe.waitForFinished(3000), "the mode must end");
        QCOMPARE(probe.exitStatus(), QProcess::NormalExit);
        QCOMPARE(probe.exitCode(), 0);
    } else {
        QVERIFY2(!probe.waitForFinished(300), "the mode must go on");
    }
    const QStringList lines =
        QString::fromUtf8(probe.readAllStandardOutput()).split(u'\n', Qt::SkipEmptyParts);
    QCOMPARE(lines.mid(0, counts.size()), counts);
    QCOMPARE(m_window.collect({}, 100).keys.contains(XK_Escape), escReachesWindow);
    if (ends) {
        verifyUnlocked();
    } else {
        xdotool({u"key"_s, u"a"_s});
        QCOMPARE(sorted(m_window.collect({}, 300).types), QList<int>{});
    }
}

void InputLockTest::killReleasesAtOnce()
{
    Probe probe;
    QCOMPARE(startProbe(probe), u"locked"_s);
    probe.kill(); // SIGKILL: no chance to let go itself
    QVERIFY(probe.waitForFinished(2000));
    QCOMPARE(probe.exitStatus(), QProcess::CrashExit);
    verifyUnlocked();
    // Plain motion kept working throughout and still does.
    xdotool({u"mousemove"_s, QString::number(kMoved.x()), QString::number(kMoved.y())});
    QVERIFY(m_window.collect({MotionNotify}, 2000).types.contains(MotionNotify));
}

void InputLockTest::refusedOutsideX11_data()
{
    QTest::addColumn<QStringList>("set"); // name=value
    QTest::addColumn<QStringList>("unset");
    QTest::addColumn<bool>("locks");

    QTest::newRow("Wayland display")
        << QStringList{u"WAYLAND_DISPLAY=wayland-0"_s} << QStringList{} << false;
    QTest::newRow("Wayland session")
        << QStringList{u"XDG_SESSION_TYPE=wayland"_s} << QStringList{} << false;
    QTest::newRow("Wayland without X")
        << QStringList{u"WAYLAND_DISPLAY=wayland-0"_s} << QStringList{u"DISPLAY"_s} << false;
    QTest::newRow("no display") << QStringList{} << QStringList{u"DISPLAY"_s} << false;
    QTest::newRow("empty Wayland display")
        << QStringList{u"WAYLAND_DISPLAY="_s} << QStringList{} << true;
    QTest::newRow("X11 session") << QStringList{u"XDG_SESSION_TYPE=x11"_s} << QStringList{} << true;
}

void InputLockTest::refusedOutsideX11()
{
    QFETCH(QStringList, set);
    QFETCH(QStringList, unset);
    QFETCH(bool, locks);

    QProcessEnvironment environment = probeEnvironment();
    for (const QString &pair : std::as_const(set))
        environment.insert(pair.section(u'=', 0, 0), pair.section(u'=', 1));
    for (const QString &name : std::as_const(unset))
        environment.remove(name);
    Probe probe;
    const QString first = startProbe(probe, environment);
    if (locks) {
        QCOMPARE(first, u"locked"_s);
        return;
    }
    QCOMPARE(first, kLockFailure);
    QVERIFY(probe.waitForFinished(2000));
    QCOMPARE(probe.exitCode(), 3);
}

void InputLockTest::grabbedElsewhere_data()
{
    QTest::addColumn<OtherClient::Holds>("holds");
    QTest::addColumn<bool>("installs");

    QTest::newRow("keyboard grabbed") << OtherClient::keyboard << false;
    QTest::newRow("pointer grabbed") << OtherClient::pointer << false;
    // An active pointer grab stands in for the taken passive one.
    QTest::newRow("buttons grabbed") << OtherClient::buttons << true;
}

void InputLockTest::grabbedElsewhere()
{
    QFETCH(OtherClient::Holds, holds);
    QFETCH(bool, installs);

    auto other = std::make_unique<OtherClient>(m_x->display().toUtf8(), holds);
    QVERIFY(other->holds());
    const auto lock = Platform::InputLock::create();
    QCOMPARE(lock->install([] {}), installs);
    if (installs) {
        xdotool({u"key"_s, u"a"_s, u"click"_s, u"1"_s, u"click"_s, u"4"_s});
        QCOMPARE(sorted(m_window.collect({}, 400).types), QList<int>{});
        QVERIFY2(!other->received(), "the lock's grab must come first");
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

void InputLockTest::escCallsBackWhileInstalled()
{
    const auto lock = Platform::InputLock::create();
    QVERIFY(lock->trusted());
    lock->release(); // harmless before any install
    int presses = 0;
    QVERIFY(lock->install([&] { ++presses; }));
    lock->hidePointer();
    xdotool({u"key"_s, u"Escape"_s, u"a"_s, u"Escape"_s});
    QTRY_COMPARE(presses, 2);
    QTest::qWait(200);
    QCOMPARE(presses, 2); // "a" is swallowed without a call
    QCOMPARE(sorted(m_window.collect({}, 100).types), QList<int>{});

    lock->release();
    lock->release();
    xdotool({u"key"_s, u"Escape"_s});
    const Seen seen = m_window.collect({KeyPress}, 2000);
    QCOMPARE(seen.keys, QList<qulonglong>{XK_Escape});
    QTest::qWait(200);
    QCOMPARE(presses, 2);

    // A released lock can be taken again.
    QVERIFY(lock->install([&] { presses += 10; }));
    xdotool({u"key"_s, u"Escape"_s});
    QTRY_COMPARE(presses, 12);
}

void InputLockTest::releaseFromTheCallback()
{
    const auto lock = Platform::InputLock::create();
    int presses = 0;
    QVERIFY(lock->install([&] {
        ++presses;
        lock->release();
    }));
    // Both presses are read in one go; the second must not call a released lock back.
    xdotool({u"key"_s, u"Escape"_s, u"Escape"_s});
    QTRY_COMPARE(presses, 1);
    QTest::qWait(300);
    QCOMPARE(presses, 1);
    verifyUnlocked();
}

QTEST_GUILESS_MAIN(InputLockTest)
#include "tst_inputlock.moc"
