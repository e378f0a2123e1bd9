#pragma once

#include "core/system/Locations.h"
#include "core/updates/AppInfo.h"

#include <QList>
#include <QStringList>

// The installed applications the update checks look at. Reads every Info.plist, so it
// belongs on a worker thread.
namespace Inventory {

// The applications in `folders` (Locations::Apps::updatable), in listing order.
QList<AppInfo> applications(const QStringList &folders, const Locations &where);

} // namespace Inventory
