#include "platform/InputLock.h"

#include <QCoreApplication>
#include <QMetaObject>
#include <QSocketNotifier>

// Xlib's macros (None, Bool, KeyPress...) would clash with Qt's headers: include it last.
#include <X11/Xlib.h>
#include <X11/extensions/Xfixes.h>
#include <X11/keysym.h>

using namespace Qt::StringLiterals;

// The X11 lock: grabs on the root window through a connection of its own. The server drops
// every grab, and shows the pointer again, the moment that connection closes, so even a
// killed process cannot leave the session locked. What the server handles itself (VT
// switching, Ctrl+Alt+Backspace, the power key) is out of any client's reach.
namespace Platform {

namespace {

// Set by the temporary handler while a grab is checked; Xlib's own handler would exit.
bool g_refused = false;

int noteRefusal(Display *, XErrorEvent *error)
{
    if (error->error_code == BadAccess)
        g_refused = true;
    return 0;
}

// A passive grab clashes (BadAccess) with another client's grab of the same buttons; the
// error arrives only after a round trip.
bool grabButtonsPassively(Display *display, Window root)
{
    g_refused = false;
    XSync(display, False);
    const auto previous = XSetErrorHandler(noteRefusal);
    XGrabButton(display, AnyButton, AnyModifier, root, False,
                ButtonPressMask | ButtonReleaseMask | ButtonMotionMask, GrabModeAsync,
                GrabModeAsync, 0, 0);
    XSync(display, False);
    XSetErrorHandler(previous);
    return !g_refused;
}

bool isWayland()
{
    return !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY") ||
           qEnvironmentVariable("XDG_SESSION_TYPE") == u"wayland"_s;
}

class X11Lock final : public InputLock
{
public:
    ~X11Lock() override { release(); }

    bool trusted() override { return true; }
    void requestTrust() override {}

    bool install(std::function<void()> escPressed) override
    {
        if (m_display)
            return true;
        // Under Wayland an X11 grab would only reach other X11 clients.
        if (isWayland())
            return false;
        Display *display = XOpenDisplay(nullptr);
        if (!display)
            return false;
        const Window root = DefaultRootWindow(display);
        if (XGrabKeyboard(display, root, False, GrabModeAsync, GrabModeAsync, CurrentTime) !=
            GrabSuccess) {
            XCloseDisplay(display);
            return false;
        }
        // An active pointer grab first: it fails while another client holds the pointer
        // (a menu, a drag), whose clicks would otherwise pass the lock.
        if (XGrabPointer(display, root, False,
                         ButtonPressMask | ButtonReleaseMask | ButtonMotionMask, GrabModeAsync,
                         GrabModeAsync, 0, 0, CurrentTime) != GrabSuccess) {
            XUngrabKeyboard(display, CurrentTime);
            XCloseDisplay(display);
            return false;
        }
        // Then the outermost passive grab, which wins every press and keeps the drag until
        // release while plain motion goes on to the windows under the pointer. Where another
        // client holds that grab already, the active one stays: it holds motion too.
        m_activePointerGrab = !grabButtonsPassively(display, root);
        if (!m_activePointerGrab)
            XUngrabPointer(display, CurrentTime);
        XFlush(display);

        m_display = display;
        m_root = root;
        m_escPressed = std::move(escPressed);
        m_installed = std::make_shared<bool>(true);
        m_escKeycode = XKeysymToKeycode(display, XK_Escape);
        int eventBase = 0;
        int errorBase = 0;
        int major = 4;
        int minor = 0;
        // Hiding the cursor came with version 4 of the extension.
        m_canHide = XFixesQueryExtension(display, &eventBase, &errorBase) &&
                    XFixesQueryVersion(display, &major, &minor) && major >= 4;
        m_notifier =
            std::make_unique<QSocketNotifier>(ConnectionNumber(display), QSocketNotifier::Read);
        QObject::connect(m_notifier.get(), &QSocketNotifier::activated, m_notifier.get(),
                         [this] { readEvents(); });
        readEvents(); // whatever Xlib buffered while grabbing
        return true;
    }

    void release() override
    {
        if (!m_display)
            return;
        m_notifier.reset();
        m_installed.reset(); // Esc presses still queued are dropped
        showPointer();
        XUngrabKeyboard(m_display, CurrentTime);
        if (m_activePointerGrab)
            XUngrabPointer(m_display, CurrentTime);
        else
            XUngrabButton(m_display, AnyButton, AnyModifier, m_root);
        XCloseDisplay(m_display); // flushes the ungrabs
        m_display = nullptr;
        m_escPressed = {};
    }

    void hidePointer() override
    {
        if (!m_display || !m_canHide || m_hidden)
            return;
        // The server counts hides per connection: a second one would need a second show.
        for (int screen = 0; screen < ScreenCount(m_display); ++screen)
            XFixesHideCursor(m_display, RootWindow(m_display, screen));
        XFlush(m_display);
        m_hidden = true;
    }

    void showPointer() override
    {
        if (!m_display || !m_hidden)
            return;
        for (int screen = 0; screen < ScreenCount(m_display); ++screen)
            XFixesShowCursor(m_display, RootWindow(m_display, screen));
        XFlush(m_display);
        m_hidden = false;
    }

private:
    void readEvents()
    {
        while (XPending(m_display) > 0) {
            XEvent event;
            XNextEvent(m_display, &event);
            if (event.type == MappingNotify) {
                XRefreshKeyboardMapping(&event.xmapping);
                m_escKeycode = XKeysymToKeycode(m_display, XK_Escape);
            } else if (event.type == KeyPress && event.xkey.keycode == m_escKeycode) {
                // Queued, so a callback that releases the lock never runs inside this loop.
                QMetaObject::invokeMethod(
                    QCoreApplication::instance(),
                    [this, installed = std::weak_ptr<bool>(m_installed)] {
                        if (installed.expired())
                            return;
                        const auto escPressed = m_escPressed; // it may release us
                        escPressed();
                    },
                    Qt::QueuedConnection);
            }
        }
    }

    Display *m_display = nullptr;
    Window m_root = 0;
    bool m_activePointerGrab = false;
    bool m_canHide = false;
    bool m_hidden = false;
    unsigned m_escKeycode = 0;
    std::function<void()> m_escPressed;
    // Alive from install to release; the queued Esc calls hold it weakly.
    std::shared_ptr<bool> m_installed;
    std::unique_ptr<QSocketNotifier> m_notifier;
};

} // namespace

std::unique_ptr<InputLock> InputLock::create()
{
    return std::make_unique<X11Lock>();
}

void openAccessibilitySettings() {}

void placeOverlayWindow(quintptr) {}

} // namespace Platform
