#include "core/outcomes/Refusal.h"

namespace SafetyGuard {

QString rawValue(Refusal refusal)
{
    switch (refusal) {
    case Refusal::outsideHome:
        return QStringLiteral("outsideHome");
    case Refusal::insideLibrary:
        return QStringLiteral("insideLibrary");
    case Refusal::protectedLocation:
        return QStringLiteral("protectedLocation");
    case Refusal::protectedExtension:
        return QStringLiteral("protectedExtension");
    case Refusal::notCleanable:
        return QStringLiteral("notCleanable");
    case Refusal::notAnApplication:
        return QStringLiteral("notAnApplication");
    case Refusal::appleApplication:
        return QStringLiteral("appleApplication");
    case Refusal::symbolicLink:
        break;
    }
    return QStringLiteral("symbolicLink");
}

} // namespace SafetyGuard
