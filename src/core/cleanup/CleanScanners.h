#pragma once

#include "core/system/System.h"
#include "core/types/CleanItem.h"

#include <QDateTime>
#include <QList>
#include <QSet>
#include <QString>
#include <QStringList>
#include <functional>
#include <optional>

// The read-only scans that fill the clean-up lists. They never fail: whatever cannot be
// read contributes nothing. Synchronous; run them on a worker thread.
namespace Cleaner {

// ~/Library/Caches entries, without com.apple.*, the protected names and `excluding`
// (full paths another scanner of the same page already listed).
QList<CleanItem> userCaches(const Locations &where, const QSet<QString> &excluding = {});
// ~/Library/Logs entries.
QList<CleanItem> logs(const Locations &where);
// The fixed AI-tool and developer locations, each as one item.
QList<CleanItem> aiClutter(const Locations &where);
QList<CleanItem> developerJunk(const Locations &where);

// Bundle identifiers of installed and running applications, as written in Info.plist;
// `folders` are searched in order (Locations::Apps::installed).
QSet<QString> installedBundleIDs(const QStringList &folders, const System &system);
// Library entries named after applications that are no longer installed.
QList<CleanItem> leftovers(const QStringList &appFolders, const System &system);

// The later of Spotlight's last-used date and the executable's access date. Reads only
// the bundle's Info.plist and the executable's metadata, never the executable itself.
std::optional<QDateTime> lastUsed(const QString &appPath, const System &system);
// Applications not opened for `days` days, in `folders` (Locations::Apps::userFacing).
QList<CleanItem> unusedApps(int days, const QStringList &folders, const System &system);

// Every file in the home folder whose allocated size reaches `minBytes`, largest first
// (equal sizes in the order of a depth-first walk). `progress` gets the visited count at
// every 2,000th entry, on the main thread. `threads` 1 walks depth-first on this thread;
// otherwise the walk is shared out over that many threads (0: the folder sums' number)
// with the same result.
QList<CleanItem> largeFiles(qint64 minBytes, const std::function<void(qint64)> &progress,
                            const Locations &where, int threads = 0);

} // namespace Cleaner
