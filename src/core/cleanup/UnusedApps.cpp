#include "core/cleanup/CleanScanners.h"

#include "core/AppIdentity.h"
#include "core/cleanup/ScanPrimitives.h"
#include "core/disk/DiskScanner.h"
#include "core/disk/Listing.h"
#include "core/text/PathText.h"
#include "core/words/ScanWords.h"
#include "platform/DateText.h"
#include "platform/FileTimes.h"

#include <QDir>
#include <QFile>

using namespace Qt::StringLiterals;

namespace Cleaner {
namespace {

QSet<QString> runningBundlePaths(const System &system)
{
    QSet<QString> paths;
    for (const Platform::RunningApplication &app : system.runningApplications()) {
        if (!app.bundlePath.isEmpty())
            paths.insert(PathText::standardized(app.bundlePath));
    }
    return paths;
}

} // namespace

std::optional<QDateTime> lastUsed(const QString &appPath, const System &system)
{
    const std::optional<QDateTime> spotlight = system.lastUsedDate(appPath);
    const std::optional<QString> executable =
        ScanPrimitives::infoString(appPath, "CFBundleExecutable");
    if (!executable)
        return spotlight;
    const std::optional<QDateTime> accessed =
        Platform::accessTime(appPath + u"/Contents/MacOS/"_s + *executable);
    if (!accessed)
        return spotlight;
    if (spotlight && *spotlight > *accessed)
        return spotlight;
    return accessed;
}

QList<CleanItem> unusedApps(int days, const QStringList &folders, const System &system)
{
    const Locations &where = system.where();
    const QDateTime cutoff = system.now().addSecs(-qint64(days) * 86400);
    const QSet<QString> running = runningBundlePaths(system);
    const QString ownID = QString::fromLatin1(kQuorvelBundleIdentifier);
    const QString lastOpened = Words::lastOpened();
    QList<CleanItem> items;
    for (const QString &folder : folders) {
        for (const QString &name : Listing::entryNames(folder, where, Listing::Hidden::keep)) {
            if (!name.endsWith(u".app"_s))
                continue;
            const QString path = folder + u'/' + name;
            const std::optional<QString> id =
                ScanPrimitives::infoString(path, "CFBundleIdentifier");
            if (!id || id->startsWith(u"com.apple."_s) || *id == ownID ||
                running.contains(PathText::standardized(path)))
                continue;
            const std::optional<QDateTime> used = lastUsed(path, system);
            if (!used || !(*used < cutoff))
                continue;
            // Sizes come from the walker's stat calls alone, so measuring changes no
            // access date.
            const qint64 bytes = DiskScanner::directorySize(path);
            items.append({path, name.chopped(4),
                          lastOpened + u' ' + Platform::mediumDate(*used) + u" · "_s + folder,
                          bytes, CleanCategory::unusedApps, CleanMethod::trash});
        }
    }
    ScanPrimitives::sortBySize(items);
    return items;
}

} // namespace Cleaner
