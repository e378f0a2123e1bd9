#pragma once

#include "core/updates/AppInfo.h"

#include <QList>
#include <QStringList>

// The installed applications the update checks look at. Reads every Info.plist, so it
// belongs on a worker thread.
namespace Inventory {

// In order: /Applications, /Applications/Utilities, ~/Applications.
QStringList defaultApplicationFolders();
QList<AppInfo> applications(const QStringList &folders = defaultApplicationFolders());

} // namespace Inventory
