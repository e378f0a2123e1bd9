#include "core/cleanup/CleanScanners.h"

#include "core/cleanup/SafetyGuard.h"
#include "core/cleanup/ScanPrimitives.h"
#include "core/disk/DiskWalker.h"
#include "core/text/PathText.h"
#include "core/util/MainThread.h"
#include "core/util/Utf8.h"
#include "platform/DateText.h"
#include "platform/Packages.h"

#include <QDateTime>
#include <QFile>
#include <algorithm>
#include <array>
#include <cstring>

using namespace Qt::StringLiterals;

namespace Cleaner {
namespace {

constexpr qint64 kProgressStep = 2000;

constexpr std::array<const char *, 5> kSkippedAtTop{"Library", ".Trash", ".git", "node_modules",
                                                    ".build"};

bool hasProtectedExtension(const char *name)
{
    const char *dot = std::strrchr(name, '.');
    return dot != nullptr && SafetyGuard::isProtectedExtension(QString::fromUtf8(dot + 1));
}

struct LargeFileVisitor
{
    qint64 minBytes;
    const std::function<void(qint64)> *progress;
    const QByteArray *relativeFolder; // the walker's current folder, relative to home
    const Locations *where;
    QString home;
    QList<CleanItem> found;
    qint64 visited = 0;

    bool wantsStat(unsigned char type) const { return type == DT_REG; }
    bool stop() const { return false; }
    void leave(int) {}

    // Hidden entries are never visited, so never counted; everything else counts once.
    bool count(const DiskWalker::Entry &entry)
    {
        if (entry.name[0] == '.')
            return false;
        ++visited;
        if (visited % kProgressStep == 0 && *progress)
            MainThread::post([progress = *progress, n = visited] { progress(n); });
        return true;
    }

    bool enter(const DiskWalker::Entry &entry)
    {
        if (!count(entry))
            return false;
        if (entry.depth == 1 && isSkippedAtTop(entry.name))
            return false;
        if (Platform::isPackage(entry.dirFd, entry.name))
            return false;
        // A name that is not UTF-8 could not be shown or moved back to the same file.
        return Utf8::isValid(entry.name, entry.nameLength);
    }

    void file(const DiskWalker::Entry &entry)
    {
        if (!count(entry) || !entry.st || entry.type != DT_REG)
            return;
        if (entry.depth == 1 && isSkippedAtTop(entry.name))
            return;
        const qint64 bytes = qint64(entry.st->st_blocks) * 512;
        if (bytes < minBytes || hasProtectedExtension(entry.name))
            return;
        if (!Utf8::isValid(entry.name, entry.nameLength))
            return;
        const QString folder =
            relativeFolder->isEmpty() ? home : home + u'/' + QString::fromUtf8(*relativeFolder);
        if (folder.contains(u"Backups.backupdb") ||
            std::strstr(entry.name, "Backups.backupdb") != nullptr)
            return;
        const QString name = QString::fromUtf8(entry.name, qsizetype(entry.nameLength));
        found.append({folder + u'/' + name, name, subtitle(folder, *entry.st), bytes,
                      CleanCategory::largeFiles, CleanMethod::trash});
    }

    QString subtitle(const QString &folder, const struct stat &st) const
    {
        const QString shown = where->tilde(folder);
        // st_mtime is POSIX on both systems; a date needs no sub-second part.
        return shown + u" · "_s +
               Platform::mediumDate(QDateTime::fromSecsSinceEpoch(qint64(st.st_mtime)));
    }

    static bool isSkippedAtTop(const char *name)
    {
        return std::any_of(kSkippedAtTop.begin(), kSkippedAtTop.end(),
                           [&](const char *skip) { return std::strcmp(name, skip) == 0; });
    }
};

} // namespace

QList<CleanItem> largeFiles(qint64 minBytes, const std::function<void(qint64)> &progress,
                            const Locations &where)
{
    const QString &home = where.home();
    QByteArray relative;
    LargeFileVisitor visitor{minBytes, &progress, &relative, &where, home, {}};
    DiskWalker::walk(DiskWalker::openRoot(QFile::encodeName(home)), visitor, &relative);
    ScanPrimitives::sortBySize(visitor.found);
    return visitor.found;
}

} // namespace Cleaner
