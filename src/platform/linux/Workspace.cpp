#include "platform/Workspace.h"

namespace Platform {

// Linux desktops have no registry of running application bundles.
QList<RunningApplication> runningApplications()
{
    return {};
}

// Linux has no per-app file access list to show.
void openFullDiskAccessSettings() {}

// There is no App Store to open on Linux.
void openAppStoreUpdates() {}

} // namespace Platform

namespace Platform {

// (being written)
void openApplication(const QString &) {}

std::optional<QString> shortVersion()
{
    return std::nullopt;
}

} // namespace Platform
