#pragma once

#include "core/cleanup/CleanItem.h"
#include "platform/Trash.h"

#include <QList>
#include <QString>
#include <functional>
#include <optional>

// One slice of the disk overview; ids are "documents", "applications", "desktop",
// "downloads", "other", "free".
struct DiskCategory
{
    QString id;
    QString name; // in the language of the scan
    qint64 bytes = 0;
};

struct TrashSize
{
    qint64 bytes = 0;
    int count = 0;                    // direct entries, hidden ones included
    Platform::TrashContents contents; // which entries were counted, for emptying them
};

// What emptying the Trash did.
struct TrashEmptyResult
{
    enum class Code { emptied, partial, failed };
    Code code = Code::emptied;
    int left = 0;       // partial: counted entries that remain
    int kept = 0;       // entries that arrived after the count, left in the Trash
    QString systemText; // failed: the system's own words, when it gave any
};

// Measurements of space: allocated sizes (blocks × 512) of regular files, links never
// followed. Synchronous and slow on big trees: call from worker threads.
namespace DiskScanner {

using Cancel = std::function<bool()>;
using CountProgress = std::function<void(qint64 visited)>;
using NameProgress = std::function<void(const QString &name)>;

// One item of any kind, measured as itself: a link is the link, a folder its tree.
qint64 itemSize(const QString &path);

// Every regular file below `path`, hidden files and package contents included. Without
// a cancel test the walk fans out over several threads; with one it stays on this thread
// and stops as soon as the test answers true.
qint64 directorySize(const QString &path, const Cancel &cancel = {});

// The home Trash; (0, 0) when it was never created, nullopt when it exists but cannot be
// listed.
std::optional<TrashSize> trashSize();

// The six slices in their fixed order; each category's name is posted to `progress` on
// the main thread before it is measured.
QList<DiskCategory> categories(const NameProgress &progress,
                               const QStringList &applicationFolders = {});

// Every file in the home folder whose allocated size reaches `minBytes`, largest first
// (equal sizes in walk order). `progress` gets the visited count at every 2,000th entry,
// on the main thread.
QList<CleanItem> largeFiles(qint64 minBytes, const CountProgress &progress);

// Empties the entries of the home Trash that `confirmed` counted (see Platform::emptyTrash).
TrashEmptyResult emptyTrash(const std::optional<Platform::TrashContents> &confirmed);
// Shows where the user grants Full Disk Access (nothing on Linux).
void openFullDiskAccessSettings();

// /Applications and ~/Applications, the folders the overview counts as applications.
QStringList defaultApplicationFolders();

} // namespace DiskScanner
