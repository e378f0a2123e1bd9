#pragma once

#include "core/outcomes/Refusal.h"
#include "core/system/Locations.h"
#include "core/types/CleanCategory.h"

#include <QString>
#include <optional>

// Decides, per item and at the moment of the move, whether a path may go to the Trash.
namespace SafetyGuard {

// nullopt: allowed. Reads an application's Info.plist (category unusedApps) and looks at
// the folders on the way to the item, none of which may be a symbolic link.
std::optional<Refusal> refusal(const QString &path, CleanCategory category, const Locations &where);

// The folder below which a standardized path must hold no link: the home folder for what
// lies inside it, else the root. The move walks down from here.
QString anchor(const QString &standardPath, const Locations &where);

// Photo libraries, disk images, virtual machines, keychains: never cleaned, whatever the
// category. `extension` without its dot, any case.
bool isProtectedExtension(QStringView extension);

} // namespace SafetyGuard
