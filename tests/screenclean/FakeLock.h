#pragma once

#include "platform/InputLock.h"

#include <QString>
#include <QStringList>
#include <functional>

// An input lock logging what it is asked, in order, into a log shared with other fakes; the
// test decides whether it is trusted and takes the lock, and presses Esc through its callback.
struct FakeLock final : Platform::InputLock
{
    QStringList &log;
    bool isTrusted = true;
    bool accepts = true;
    std::function<void()> esc; // the callback of the current installation

    explicit FakeLock(QStringList &l) : log(l) {}
    bool trusted() override { return isTrusted; }
    void requestTrust() override { log.append(QStringLiteral("requestTrust")); }
    bool install(std::function<void()> escPressed) override
    {
        log.append(QStringLiteral("install"));
        if (!accepts)
            return false;
        esc = std::move(escPressed);
        return true;
    }
    void release() override
    {
        log.append(QStringLiteral("release"));
        esc = nullptr;
    }
    void hidePointer() override { log.append(QStringLiteral("hidePointer")); }
    void showPointer() override { log.append(QStringLiteral("showPointer")); }
};

inline const QString kPermissionEn = QStringLiteral(
    "Allow Quorvel in System Settings → Privacy & Security → Accessibility, then try again.");
inline const QString kLockEn =
    QStringLiteral("Could not install the keyboard lock. Check the Accessibility permission.");
