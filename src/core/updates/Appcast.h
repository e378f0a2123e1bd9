#pragma once

#include "core/updates/AppInfo.h"
#include "core/updates/OutdatedApp.h"

#include <QUrl>

// An application's own appcast feed, fetched the way its in-app updater would.
namespace Appcast {

// Main thread; `done` is called exactly once, on the main thread, after this returns.
void checkSparkle(const AppInfo &app, const QUrl &feed, Finding done);

} // namespace Appcast
