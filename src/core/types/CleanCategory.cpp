#include "core/types/CleanCategory.h"

QString rawValue(CleanCategory category)
{
    switch (category) {
    case CleanCategory::userCache:
        return QStringLiteral("userCache");
    case CleanCategory::logs:
        return QStringLiteral("logs");
    case CleanCategory::ai:
        return QStringLiteral("ai");
    case CleanCategory::developer:
        return QStringLiteral("developer");
    case CleanCategory::leftovers:
        return QStringLiteral("leftovers");
    case CleanCategory::largeFiles:
        return QStringLiteral("largeFiles");
    case CleanCategory::unusedApps:
        return QStringLiteral("unusedApps");
    }
    return {};
}

std::optional<CleanCategory> cleanCategoryFromRaw(QStringView raw)
{
    for (CleanCategory c : kAllCleanCategories) {
        if (raw == rawValue(c))
            return c;
    }
    return std::nullopt;
}
