#include "core/cleanup/CleanScanners.h"

#include "core/cleanup/LeftoverRules.h"
#include "core/cleanup/ScanPrimitives.h"
#include "core/disk/Listing.h"
#include "core/words/ScanWords.h"

#include <QDir>
#include <algorithm>
#include <array>

using namespace Qt::StringLiterals;

namespace Cleaner {
namespace {

// Spotlight's query tool: where applications live beyond the usual folders (macOS only).
const QString kMdfind = QStringLiteral("/usr/bin/mdfind");

// Where applications keep per-identifier data in ~/Library, and the ending a name must
// have (and loses) before it is tested. Words::libraryPlace names each for people.
struct LibraryFolder
{
    const char *folder;
    const char *ending;
};

constexpr std::array<LibraryFolder, 9> kLibraryFolders{{
    {"Containers", nullptr},
    {"Group Containers", nullptr},
    {"Preferences", ".plist"},
    {"Caches", nullptr},
    {"Saved Application State", ".savedState"},
    {"HTTPStorages", nullptr},
    {"WebKit", nullptr},
    {"Application Scripts", nullptr},
    {"Logs", nullptr},
}};

QStringList bundlePaths(const QStringList &folders, const System &system)
{
    const Locations &where = system.where();
    using Listing::Hidden;
    QStringList paths;
    for (const QString &folder : folders) {
        for (const QString &name : Listing::entryNames(folder, where, Hidden::keep)) {
            const QString path = folder + u'/' + name;
            if (name.endsWith(u".app"_s)) {
                paths.append(path);
                continue;
            }
            for (const QString &inner : Listing::entryNames(path, where, Hidden::keep)) {
                if (inner.endsWith(u".app"_s))
                    paths.append(path + u'/' + inner);
            }
        }
    }
    const std::optional<QString> found =
        system.runTool(kMdfind, {u"kMDItemContentType == 'com.apple.application-bundle'"_s}, 20.0);
    if (found)
        paths += found->split(u'\n', Qt::SkipEmptyParts);
    return paths;
}

} // namespace

QSet<QString> installedBundleIDs(const QStringList &folders, const System &system)
{
    QStringList paths = bundlePaths(folders, system);
    paths.removeDuplicates();
    QSet<QString> ids;
    for (const QString &path : std::as_const(paths)) {
        if (std::optional<QString> id = ScanPrimitives::infoString(path, "CFBundleIdentifier"))
            ids.insert(*id);
    }
    for (const Platform::RunningApplication &app : system.runningApplications()) {
        if (!app.bundleIdentifier.isEmpty())
            ids.insert(app.bundleIdentifier);
    }
    return ids;
}

QList<CleanItem> leftovers(const QStringList &appFolders, const System &system)
{
    const Locations &where = system.where();
    const KnownApps known = KnownApps::from(installedBundleIDs(appFolders, system));
    const QString library = where.library(QString());
    QList<CleanItem> items;
    for (const LibraryFolder &place : kLibraryFolders) {
        const QString folder = QString::fromUtf8(place.folder);
        const QString subtitle = Words::libraryPlace(folder) + u" · ~/Library/"_s + folder;
        const QString ending = place.ending ? QString::fromUtf8(place.ending) : QString();
        for (const QString &name : Listing::entryNames(library + folder, where)) {
            if (!ending.isEmpty() && !name.endsWith(ending))
                continue;
            const QString tested = name.left(name.size() - ending.size());
            if (tested.isEmpty() || owned(tested, known))
                continue;
            const QString path = library + folder + u'/' + name;
            if (const std::optional<qint64> bytes = ScanPrimitives::entrySize(path))
                items.append(
                    {path, name, subtitle, *bytes, CleanCategory::leftovers, CleanMethod::trash});
        }
    }
    // By title, so that one application's remains in the different folders sit together.
    std::stable_sort(items.begin(), items.end(), [](const CleanItem &a, const CleanItem &b) {
        if (a.title != b.title)
            return a.title < b.title;
        return a.bytes > b.bytes;
    });
    return items;
}

} // namespace Cleaner
