#include "platform/Spotlight.h"

// Linux has no Spotlight; the executable's access time stands alone.
std::optional<QDateTime> Platform::spotlightLastUsed(const QString &)
{
    return std::nullopt;
}
