#pragma once

#include <QString>

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

} // namespace SafetyGuard
