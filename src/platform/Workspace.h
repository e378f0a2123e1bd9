#pragma once

#include <QList>
#include <QString>

namespace Platform {

struct RunningApplication
{
    QString bundleIdentifier; // empty when it has none
    QString bundlePath;       // empty when it has no bundle
};

// The user's running applications; none where the system has no such notion (Linux).
QList<RunningApplication> runningApplications();

// Shows the system's privacy settings at the Full Disk Access list; nothing where the
// system has no such list (Linux).
void openFullDiskAccessSettings();

// Opens the App Store's updates page; nothing where there is no App Store (Linux).
void openAppStoreUpdates();

} // namespace Platform
