#pragma once

#include <QString>
#include <QStringView>
#include <array>
#include <optional>

// Which scan found an item; the raw value is also the removal log's category column.
enum class CleanCategory { userCache, logs, ai, developer, leftovers, largeFiles, unusedApps };

// Whether the owner regenerates the item (delete_) or may want it back (trash). It never
// changes how an item is removed: everything goes to the Trash. (delete is a keyword.)
enum class CleanMethod { delete_, trash };

inline constexpr std::array<CleanCategory, 7> kAllCleanCategories{
    CleanCategory::userCache,  CleanCategory::logs,      CleanCategory::ai,
    CleanCategory::developer,  CleanCategory::leftovers, CleanCategory::largeFiles,
    CleanCategory::unusedApps,
};

QString rawValue(CleanCategory category);
// Exact raw values only; "LargeFiles" gives nullopt.
std::optional<CleanCategory> cleanCategoryFromRaw(QStringView raw);

inline size_t qHash(CleanCategory category, size_t seed = 0) noexcept
{
    return size_t(category) ^ seed;
}
