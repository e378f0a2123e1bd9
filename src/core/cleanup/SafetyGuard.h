#pragma once

#include "core/cleanup/CleanCategory.h"

#include <QString>
#include <optional>

// Decides, per item and at the moment of the move, whether a path may go to the Trash.
namespace SafetyGuard {

// nullopt: allowed. Otherwise the refusal message in the current language. Reads nothing
// but an application's Info.plist (category unusedApps).
std::optional<QString> refusal(const QString &path, CleanCategory category);

} // namespace SafetyGuard
