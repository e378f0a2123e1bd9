#include "platform/InputLock.h"

#import <AppKit/AppKit.h>
#import <ApplicationServices/ApplicationServices.h>
#import <CoreGraphics/CoreGraphics.h>
#include <dispatch/dispatch.h>

// A session event tap that drops what it takes. Needs the Accessibility permission; the
// window server removes the tap when the process dies.
namespace Platform {

namespace {

constexpr int64_t kEscKeycode = 53;
constexpr CGEventType kSystemDefined = CGEventType(14); // media and brightness keys

// Buttons, drags, keys, modifiers, special keys, scrolling and the trackpad's gestures
// (the Dock reads swipes and pinches for Mission Control and Spaces, so wiping a trackpad
// would otherwise move the desktop away); plain motion (5) passes. The gesture types have
// no CGEventType names; NSEventType shares the numbering.
constexpr CGEventMask kGestureEvents =
    CGEventMaskBit(NSEventTypeRotate) | CGEventMaskBit(NSEventTypeBeginGesture) |
    CGEventMaskBit(NSEventTypeEndGesture) | CGEventMaskBit(NSEventTypeGesture) |
    CGEventMaskBit(NSEventTypeMagnify) | CGEventMaskBit(NSEventTypeSwipe) |
    CGEventMaskBit(NSEventTypeSmartMagnify) | CGEventMaskBit(NSEventTypePressure);
constexpr CGEventMask kLockedEvents =
    kGestureEvents | CGEventMaskBit(kCGEventLeftMouseDown) | CGEventMaskBit(kCGEventLeftMouseUp) |
    CGEventMaskBit(kCGEventRightMouseDown) | CGEventMaskBit(kCGEventRightMouseUp) |
    CGEventMaskBit(kCGEventLeftMouseDragged) | CGEventMaskBit(kCGEventRightMouseDragged) |
    CGEventMaskBit(kCGEventKeyDown) | CGEventMaskBit(kCGEventKeyUp) |
    CGEventMaskBit(kCGEventFlagsChanged) | CGEventMaskBit(kSystemDefined) |
    CGEventMaskBit(kCGEventScrollWheel) | CGEventMaskBit(kCGEventOtherMouseDown) |
    CGEventMaskBit(kCGEventOtherMouseUp) | CGEventMaskBit(kCGEventOtherMouseDragged);

class TapLock final : public InputLock
{
public:
    ~TapLock() override { release(); }

    // Key events reach a tap only with the listen-event grant (Input Monitoring) as well;
    // asking for both up front shows a refusal as the permission box, not as a lock that
    // failed to start.
    bool trusted() override { return AXIsProcessTrusted() && CGPreflightListenEventAccess(); }

    void requestTrust() override
    {
        @autoreleasepool {
            NSDictionary *options = @{(__bridge NSString *)kAXTrustedCheckOptionPrompt : @YES};
            AXIsProcessTrustedWithOptions((__bridge CFDictionaryRef)options);
        }
        if (!CGPreflightListenEventAccess())
            CGRequestListenEventAccess();
    }

    bool install(std::function<void()> escPressed) override
    {
        if (m_tap)
            return true;
        CFMachPortRef tap =
            CGEventTapCreate(kCGSessionEventTap, kCGHeadInsertEventTap, kCGEventTapOptionDefault,
                             kLockedEvents, &TapLock::filter, this);
        if (!tap)
            return false;
        CFRunLoopSourceRef source = CFMachPortCreateRunLoopSource(kCFAllocatorDefault, tap, 0);
        if (!source) {
            CFMachPortInvalidate(tap);
            CFRelease(tap);
            return false;
        }
        m_tap = tap;
        m_source = source;
        m_escPressed = std::move(escPressed);
        m_installed = std::make_shared<bool>(true);
        CFRunLoopAddSource(CFRunLoopGetMain(), m_source, kCFRunLoopCommonModes);
        CGEventTapEnable(m_tap, true);
        return true;
    }

    void release() override
    {
        if (!m_tap)
            return;
        showPointer();
        CGEventTapEnable(m_tap, false);
        CFRunLoopRemoveSource(CFRunLoopGetMain(), m_source, kCFRunLoopCommonModes);
        CFRelease(m_source);
        CFMachPortInvalidate(m_tap);
        CFRelease(m_tap);
        m_source = nullptr;
        m_tap = nullptr;
        m_installed.reset(); // Esc presses still queued are dropped
        m_escPressed = {};
    }

    // NSCursor counts hides: one hide per install keeps show and hide balanced.
    void hidePointer() override
    {
        if (!m_tap || m_hidden)
            return;
        [NSCursor hide];
        m_hidden = true;
    }

    void showPointer() override
    {
        if (!m_hidden)
            return;
        [NSCursor unhide];
        m_hidden = false;
    }

private:
    // Runs on the main run loop; decides on type and keycode only and defers the rest.
    static CGEventRef filter(CGEventTapProxy, CGEventType type, CGEventRef event, void *info)
    {
        auto *lock = static_cast<TapLock *>(info);
        if (!lock)
            return event;
        // The system turns a slow or user-disabled tap off; the lock must hold regardless.
        if (type == kCGEventTapDisabledByTimeout || type == kCGEventTapDisabledByUserInput) {
            if (lock->m_tap)
                CGEventTapEnable(lock->m_tap, true);
            return event;
        }
        if (type == kCGEventKeyDown &&
            CGEventGetIntegerValueField(event, kCGKeyboardEventKeycode) == kEscKeycode) {
            std::weak_ptr<bool> installed = lock->m_installed;
            dispatch_async(dispatch_get_main_queue(), ^{
              if (installed.expired())
                  return;
              const std::function<void()> escPressed = lock->m_escPressed; // it may release us
              escPressed();
            });
        }
        return nullptr;
    }

    CFMachPortRef m_tap = nullptr;
    CFRunLoopSourceRef m_source = nullptr;
    bool m_hidden = false;
    std::function<void()> m_escPressed;
    // Alive from install to release; the queued Esc calls hold it weakly.
    std::shared_ptr<bool> m_installed;
};

} // namespace

std::unique_ptr<InputLock> InputLock::create()
{
    return std::make_unique<TapLock>();
}

void openAccessibilitySettings()
{
    @autoreleasepool {
        NSURL *url = [NSURL
            URLWithString:
                @"x-apple.systempreferences:com.apple.preference.security?Privacy_Accessibility"];
        if (url != nil)
            [[NSWorkspace sharedWorkspace] openURL:url];
    }
}

// Qt's winId() on macOS is the window's content NSView.
void placeOverlayWindow(quintptr nativeHandle)
{
    if (nativeHandle == 0)
        return;
    @autoreleasepool {
        NSView *view = (__bridge NSView *)reinterpret_cast<void *>(nativeHandle);
        NSWindow *window = view.window;
        if (window == nil)
            return;
        window.level = 1000; // the screen saver's level, above the menu bar and the Dock
        window.collectionBehavior = NSWindowCollectionBehaviorCanJoinAllSpaces |
                                    NSWindowCollectionBehaviorStationary |
                                    NSWindowCollectionBehaviorFullScreenAuxiliary; // 0x111
        window.opaque = YES;
        window.backgroundColor = [NSColor blackColor];
        window.ignoresMouseEvents = YES;
        [window orderFrontRegardless];
    }
}

} // namespace Platform
