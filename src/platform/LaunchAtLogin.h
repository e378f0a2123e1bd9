#pragma once

#include "platform/UserFolders.h"

#include <QString>
#include <optional>

// The app as a login item of the current user. The state lives with the system only
// (macOS: the app's service registration; Linux: the XDG autostart entry
// $XDG_CONFIG_HOME/autostart/quorvel.desktop); the program never stores it.
namespace Platform::LaunchAtLogin {

// On exactly when the system says the app starts at login.
bool enabled(const UserFolders &user);
// Adds or removes the login item; the system's reason when it refuses.
std::optional<QString> set(const UserFolders &user, bool on);

// Linux: the program path as the autostart entry's Exec line writes it, quoted and escaped
// so that no path (spaces, quotes, "$", "%", backslashes) becomes another command.
QString execValue(const QString &program);

} // namespace Platform::LaunchAtLogin
