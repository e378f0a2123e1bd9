#pragma once

#include <QtGlobal>
#include <functional>
#include <memory>

namespace Platform {

// The session-wide input lock behind screen-cleaning mode. While installed, every key,
// mouse button, drag and scroll is swallowed before any application sees it; pointer
// motion still passes. Main thread only.
class InputLock
{
public:
    virtual ~InputLock() = default;

    // Whether the system lets this process lock input (macOS: Accessibility trust;
    // always true on Linux, where no such permission exists).
    virtual bool trusted() = 0;
    // Asks the system to show its permission prompt; changes nothing else.
    virtual void requestTrust() = 0;
    // Takes the keyboard and the pointer buttons. False, with nothing held, when the
    // system refuses (Wayland, no display, another grab). `escPressed` runs on the main
    // thread for every Esc key down while installed, auto-repeats included.
    virtual bool install(std::function<void()> escPressed) = 0;
    // Lets go of everything; safe when not installed. The system also lets go when the
    // process dies, so the lock can never outlive it.
    virtual void release() = 0;
    // Hides or shows the pointer on every screen; a hidden pointer still moves.
    virtual void hidePointer() = 0;
    virtual void showPointer() = 0;

    // The lock of this system.
    static std::unique_ptr<InputLock> create();
};

// Opens the system's privacy settings at the Accessibility list; nothing on Linux.
void openAccessibilitySettings();

// Puts an overlay window (its native handle, Qt's winId()) above everything on every
// space without activating the app; Linux needs nothing beyond the window's Qt flags.
void placeOverlayWindow(quintptr nativeHandle);

} // namespace Platform
