#include "core/cleanup/CleanScanners.h"

#include "core/cleanup/LargeFileWalk.h"
#include "core/cleanup/ScanPrimitives.h"
#include "core/disk/DiskWalker.h"
#include "core/disk/FolderPool.h"
#include "platform/DateText.h"

#include <QDateTime>
#include <QFile>

using namespace Qt::StringLiterals;

namespace Cleaner {

QList<CleanItem> largeFiles(qint64 minBytes, const std::function<void(qint64)> &progress,
                            const Locations &where, int threads)
{
    const QString &home = where.home();
    const int rootFd = DiskWalker::openRoot(QFile::encodeName(home));
    LargeFileWalk::VisitCount count(progress);
    const std::vector<LargeFileWalk::Candidate> candidates =
        threads == 1 ? LargeFileWalk::sequential(rootFd, minBytes, count)
                     : LargeFileWalk::parallel(rootFd, minBytes, count,
                                               threads > 1 ? threads : defaultWalkThreads());
    QList<CleanItem> found;
    for (const LargeFileWalk::Candidate &candidate : candidates) {
        const QString folder =
            candidate.folder.isEmpty() ? home : home + u'/' + QString::fromUtf8(candidate.folder);
        if (folder.contains(u"Backups.backupdb") || candidate.name.contains("Backups.backupdb"))
            continue;
        const QString name = QString::fromUtf8(candidate.name);
        // A date needs no sub-second part.
        const QString subtitle =
            where.tilde(folder) + u" · "_s +
            Platform::mediumDate(QDateTime::fromSecsSinceEpoch(candidate.modified));
        found.append({folder + u'/' + name, name, subtitle, candidate.bytes,
                      CleanCategory::largeFiles, CleanMethod::trash});
    }
    ScanPrimitives::sortBySize(found);
    return found;
}

} // namespace Cleaner
