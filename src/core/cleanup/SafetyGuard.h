#pragma once

#include "core/cleanup/CleanCategory.h"

#include <QString>
#include <optional>

// Decides, per item and at the moment of the move, whether a path may go to the Trash.
namespace SafetyGuard {

// Which rule refused a path. Words::refusal renders it; rawValue gives the stable code.
enum class Refusal {
    outsideHome,
    insideLibrary,
    protectedLocation,
    protectedExtension,
    notCleanable,
    notAnApplication,
    appleApplication,
    symbolicLink,
};

// "outsideHome", "protectedExtension", …: the same in every language.
QString rawValue(Refusal refusal);

// nullopt: allowed. Reads an application's Info.plist (category unusedApps) and looks at
// the folders on the way to the item, none of which may be a symbolic link.
std::optional<Refusal> refusal(const QString &path, CleanCategory category);

// The folder below which a standardized path must hold no link: the home folder for what
// lies inside it, else the root. The move walks down from here.
QString anchor(const QString &standardPath);

} // namespace SafetyGuard
