#pragma once

#include "core/system/Locations.h"

#include <QString>
#include <optional>

// What the window asks of the desktop beyond the user's files: the login item, the app's
// version, showing and opening things. Views reach the system through here, never around
// the engine.
namespace Desktop {

bool loginItemEnabled(const Locations &where);
// The system's reason when it refuses.
std::optional<QString> setLoginItem(const Locations &where, bool on);
// Where the user grants Full Disk Access (nothing on Linux).
void openFullDiskAccessSettings();
void openApplication(const QString &bundlePath);
void reveal(const QString &path);
// The version shown to people; nullopt when the build does not say.
std::optional<QString> version();

} // namespace Desktop
