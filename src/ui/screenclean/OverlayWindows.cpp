#include "ui/screenclean/OverlayWindows.h"

#include "platform/InputLock.h"
#include "ui/screenclean/ScreenCleanOverlay.h"

#include <QGuiApplication>
#include <QScreen>
#include <utility>

OverlayWindows::~OverlayWindows()
{
    closeWindows();
}

void OverlayWindows::showWindows(ScreenCleanMode &mode)
{
    closeWindows();
    // A snapshot of the screens now: a screen attached later gets no window.
    const QList<QScreen *> screens = QGuiApplication::screens();
    for (QScreen *screen : screens) {
        auto *window = new ScreenCleanOverlay(mode);
        window->setWindowFlags(Qt::Window | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint |
                               Qt::X11BypassWindowManagerHint | Qt::WindowTransparentForInput |
                               Qt::WindowDoesNotAcceptFocus);
        window->setAttribute(Qt::WA_ShowWithoutActivating);
        window->setScreen(screen);
        window->setGeometry(screen->geometry());
        window->show();
        Platform::placeOverlayWindow(quintptr(window->winId()));
        m_windows.append(window);
    }
}

void OverlayWindows::closeWindows()
{
    const QList<QPointer<ScreenCleanOverlay>> windows = std::exchange(m_windows, {});
    for (const QPointer<ScreenCleanOverlay> &window : windows) {
        if (!window)
            continue;
        window->hide();
        delete window.data();
    }
}

QList<ScreenCleanOverlay *> OverlayWindows::windows() const
{
    QList<ScreenCleanOverlay *> list;
    for (const QPointer<ScreenCleanOverlay> &window : m_windows) {
        if (window)
            list.append(window);
    }
    return list;
}
