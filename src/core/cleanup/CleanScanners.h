#pragma once

#include "core/cleanup/CleanItem.h"
#include "platform/Workspace.h"

#include <QDateTime>
#include <QList>
#include <QSet>
#include <QString>
#include <QStringList>
#include <optional>

// The read-only scans that fill the clean-up lists. They never fail: whatever cannot be
// read contributes nothing. Synchronous; run them on a worker thread.
namespace Cleaner {

// What the application scans ask of the system; tests replace each part with a fake.
struct AppScanServices
{
    // Spotlight's tools; a path that is not an executable file is simply not run.
    QString mdfind = QStringLiteral("/usr/bin/mdfind");
    QString mdls = QStringLiteral("/usr/bin/mdls");
    // nullopt: ask the workspace.
    std::optional<QList<Platform::RunningApplication>> running;
    // Invalid: the current time.
    QDateTime now;
};

// ~/Library/Caches entries, without com.apple.*, the protected names and `excluding`
// (full paths another scanner of the same page already listed).
QList<CleanItem> userCaches(const QSet<QString> &excluding = {});
// ~/Library/Logs entries.
QList<CleanItem> logs();
// The fixed AI-tool and developer locations, each as one item.
QList<CleanItem> aiClutter();
QList<CleanItem> developerJunk();

// Folders searched for installed applications, in order.
QStringList defaultInstalledAppFolders();
// Bundle identifiers of installed and running applications, as written in Info.plist.
QSet<QString> installedBundleIDs(const QStringList &folders = defaultInstalledAppFolders(),
                                 const AppScanServices &services = {});
// Library entries named after applications that are no longer installed.
QList<CleanItem> leftovers(const QStringList &appFolders = defaultInstalledAppFolders(),
                           const AppScanServices &services = {});

// /Applications and ~/Applications.
QStringList defaultUnusedAppFolders();
// The later of Spotlight's last-used date and the executable's access date. Reads only
// the bundle's Info.plist and the executable's metadata, never the executable itself.
std::optional<QDateTime> lastUsed(const QString &appPath, const AppScanServices &services = {});
// Applications not opened for `days` days.
QList<CleanItem> unusedApps(int days, const QStringList &folders = defaultUnusedAppFolders(),
                            const AppScanServices &services = {});

} // namespace Cleaner
