#include "core/cleanup/CleanScanners.h"

#include "core/cleanup/ScanPrimitives.h"
#include "core/disk/Listing.h"
#include "core/text/PathText.h"

#include <QFile>
#include <array>
#include <sys/stat.h>

using namespace Qt::StringLiterals;

namespace Cleaner {
namespace {

// Shared by the system and other applications; removing them only causes trouble.
constexpr std::array<const char *, 6> kProtectedCacheNames{
    "CloudKit", "FamilyCircle", "GeoServices", "MediaAnalysis", "Metadata", "com.crashlytics.data",
};

constexpr std::array<const char *, 17> kAiLocations{
    "~/.cache/huggingface",
    "~/.ollama/models",
    "~/.cache/torch",
    "~/.cache/whisper",
    "~/.lmstudio/models",
    "~/.cache/lm-studio",
    "~/.cache/pip",
    "~/Library/Caches/pip",
    "~/.npm/_cacache",
    "~/.cache/ms-playwright",
    "~/Library/Caches/ms-playwright",
    "~/Library/Caches/com.anthropic.claudefordesktop",
    "~/Library/Caches/claude-cli-nodejs",
    "~/.cache/uv",
    "~/Library/Caches/uv",
    "~/.cache/pypoetry",
    "~/.cursor/extensions",
};

constexpr std::array<const char *, 6> kDeveloperLocations{
    "~/Library/Developer/Xcode/DerivedData",    "~/Library/Developer/Xcode/iOS DeviceSupport",
    "~/Library/Developer/CoreSimulator/Caches", "~/Library/Developer/Xcode/Archives",
    "~/Library/Caches/org.swift.swiftpm",       "~/Library/Caches/Homebrew",
};

bool isProtectedCacheName(const QString &name)
{
    for (const char *protectedName : kProtectedCacheNames) {
        if (name == QLatin1String(protectedName))
            return true;
    }
    return false;
}

// Every path that yields a size, as an item, largest first.
QList<CleanItem> measured(const QStringList &paths, CleanCategory category, const Locations &where)
{
    QList<CleanItem> items;
    for (const QString &path : paths) {
        if (std::optional<CleanItem> item =
                ScanPrimitives::measuredItem(path, category, CleanMethod::delete_, where))
            items.append(*item);
    }
    ScanPrimitives::sortBySize(items);
    return items;
}

template <size_t N>
QList<CleanItem> fixedLocations(const std::array<const char *, N> &locations,
                                CleanCategory category, const Locations &where)
{
    QStringList present;
    for (const char *location : locations) {
        const QString path = where.inHome(QString::fromUtf8(location));
        struct stat st;
        // A link here is not the tool's data but a pointer to somewhere else: not an item.
        if (!Listing::reachedThroughLink(path, where) &&
            lstat(QFile::encodeName(path).constData(), &st) == 0 && !S_ISLNK(st.st_mode))
            present.append(path);
    }
    return measured(present, category, where);
}

} // namespace

QList<CleanItem> userCaches(const Locations &where, const QSet<QString> &excluding)
{
    QSet<QString> excluded;
    for (const QString &path : excluding)
        excluded.insert(PathText::standardized(path));
    QStringList candidates;
    for (const QString &path : Listing::children(where.library(u"Caches"_s), where)) {
        const QString name = PathText::lastComponent(path);
        if (name.startsWith(u"com.apple."_s) || isProtectedCacheName(name) ||
            excluding.contains(path) || excluded.contains(PathText::standardized(path)))
            continue;
        candidates.append(path);
    }
    return measured(candidates, CleanCategory::userCache, where);
}

QList<CleanItem> logs(const Locations &where)
{
    QStringList children = Listing::children(where.library(u"Logs"_s), where);
    children.removeAll(where.removalLogFolder()); // refused by the guard: no candidate
    return measured(children, CleanCategory::logs, where);
}

QList<CleanItem> aiClutter(const Locations &where)
{
    return fixedLocations(kAiLocations, CleanCategory::ai, where);
}

QList<CleanItem> developerJunk(const Locations &where)
{
    return fixedLocations(kDeveloperLocations, CleanCategory::developer, where);
}

} // namespace Cleaner
