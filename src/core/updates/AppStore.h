#pragma once

#include "core/updates/AppInfo.h"
#include "core/updates/OutdatedApp.h"

#include <QByteArray>
#include <QLocale>
#include <QString>
#include <optional>

// The App Store's lookup service, asked one application at a time.
namespace AppStore {

// Main thread; `done` is called exactly once, on the main thread, after this returns.
void checkAppStore(const AppInfo &app, Finding done);
// The finding for one lookup answer, or nullopt.
std::optional<OutdatedApp> parseAppStoreAnswer(const AppInfo &app, const QByteArray &json);
// The storefront region: the locale's territory, "NZ" when it has none.
QString appStoreRegion(const QLocale &locale = QLocale::system());
// Opens the App Store's updates page.
void openAppStoreUpdates();

} // namespace AppStore
