#pragma once

#include "core/outcomes/TrashEmptying.h"
#include "core/system/System.h"

#include <QList>
#include <QString>
#include <functional>
#include <optional>

// One slice of the disk overview; ids are "documents", "applications", "desktop",
// "downloads", "other", "free".
struct DiskCategory
{
    QString id;
    QString name; // in the language of the scan; the overview model names the slices
    qint64 bytes = 0;
};

struct TrashSize
{
    qint64 bytes = 0;
    int count = 0;                    // direct entries, hidden ones included
    Platform::TrashContents contents; // which entries were counted, for emptying them
};

// Measurements of space: allocated sizes (blocks × 512) of regular files, links never
// followed. Synchronous and slow on big trees: call from worker threads.
namespace DiskScanner {

using Cancel = std::function<bool()>;
using NameProgress = std::function<void(const QString &name)>;

// One item of any kind, measured as itself: a link is the link, a file its blocks, a folder
// every regular file below it, hidden files and package contents included. Without a
// cancel test the walk fans out over several threads; with one it stays on this thread and
// stops as soon as the test answers true.
qint64 directorySize(const QString &path, const Cancel &cancel = {});

// The home Trash; (0, 0) when it was never created, nullopt when it exists but cannot be
// listed.
std::optional<TrashSize> trashSize(const System &system);

// The six slices in their fixed order, `applicationFolders` counted as applications; each
// category's id is posted to `progress` on the main thread before it is measured. Names
// are left empty: words are not the walker's business.
QList<DiskCategory> categories(const NameProgress &progress, const System &system,
                               const QStringList &applicationFolders);

// Empties the entries of the home Trash that `confirmed` counted (see Platform::emptyTrash).
TrashEmptyResult emptyTrash(const std::optional<Platform::TrashContents> &confirmed,
                            const System &system);

} // namespace DiskScanner
