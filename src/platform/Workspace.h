#pragma once

#include <QList>
#include <QString>
#include <optional>

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

// Launches the application bundle at `bundlePath` with default options. Linux has no
// bundles to launch: it opens the bundle's folder in the file manager.
void openApplication(const QString &bundlePath);

// Shows the item in the file manager (Linux: opens its folder).
void revealInFileManager(const QString &path);

// The app's own short version ("1.2"), or none for a development build without one.
std::optional<QString> shortVersion();

} // namespace Platform
