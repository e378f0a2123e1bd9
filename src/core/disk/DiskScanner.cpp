#include "core/disk/DiskScanner.h"

#include "core/disk/DiskWalker.h"
#include "core/disk/FolderPool.h"
#include "core/disk/ParallelSize.h"
#include "core/text/PathText.h"
#include "core/types/DiskUsage.h"
#include "core/util/MainThread.h"
#include "platform/DirReader.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <algorithm>
#include <cerrno>

using namespace Qt::StringLiterals;

namespace DiskScanner {
namespace {

struct SumVisitor
{
    const Cancel *cancel = nullptr;
    qint64 total = 0;
    bool wantsStat(unsigned char type) const { return type == DT_REG; }
    bool enter(const DiskWalker::Entry &) { return true; }
    void leave(int) {}
    void file(const DiskWalker::Entry &entry)
    {
        if (entry.st)
            total += qint64(entry.st->st_blocks) * 512;
    }
    bool stop() const { return cancel && (*cancel)(); }
};

// The tree below an open folder (owned); the caller has checked it is a folder.
qint64 folderSize(int fd, const Cancel &cancel)
{
    if (!cancel)
        return ParallelSize::sum(fd, defaultWalkThreads());
    SumVisitor visitor{&cancel};
    DiskWalker::walk(fd, visitor);
    return visitor.total;
}

// The entry `name` of an open folder, measured as itself.
qint64 entrySizeAt(int dirFd, const char *name)
{
    struct stat st;
    if (fstatat(dirFd, name, &st, AT_SYMLINK_NOFOLLOW) != 0)
        return 0;
    if (!S_ISDIR(st.st_mode))
        return S_ISREG(st.st_mode) || S_ISLNK(st.st_mode) ? qint64(st.st_blocks) * 512 : 0;
    const int fd = DiskWalker::openFolder(dirFd, name);
    return fd < 0 ? 0 : folderSize(fd, {});
}

bool existsAt(const QString &path)
{
    struct stat st;
    return lstat(QFile::encodeName(path).constData(), &st) == 0;
}

} // namespace

qint64 directorySize(const QString &path, const Cancel &cancel)
{
    // "link/" would make lstat and open follow the link; the entry meant is the link.
    const QByteArray native = QFile::encodeName(PathText::withoutTrailingSlashes(path).toString());
    struct stat st;
    if (native.isEmpty() || lstat(native.constData(), &st) != 0)
        return 0;
    if (!S_ISDIR(st.st_mode))
        return S_ISREG(st.st_mode) || S_ISLNK(st.st_mode) ? qint64(st.st_blocks) * 512 : 0;
    // A folder that cannot be opened counts 0: falling back to its item size would only
    // come back here.
    const int fd = DiskWalker::openRoot(native);
    return fd < 0 ? 0 : folderSize(fd, cancel);
}

std::optional<TrashSize> trashSize(const System &system)
{
    const QByteArray native = QFile::encodeName(system.trashItemsFolder());
    const int fd = DiskWalker::openRoot(native);
    if (fd < 0) {
        if (errno == ENOENT)
            return TrashSize{}; // never created
        return std::nullopt;
    }
    DIR *dir = fdopendir(fd);
    if (!dir) {
        ::close(fd);
        return std::nullopt;
    }
    TrashSize size;
    size.contents.takenAtMs = QDateTime::currentMSecsSinceEpoch();
    while (const dirent *d = readdir(dir)) {
        const char *name = d->d_name;
        if (Platform::isDots(name))
            continue;
        struct stat st;
        if (fstatat(dirfd(dir), name, &st, AT_SYMLINK_NOFOLLOW) != 0)
            continue; // gone since it was listed
        ++size.count;
        size.bytes += entrySizeAt(dirfd(dir), name);
        size.contents.entries.append({QByteArray(name), quint64(st.st_dev), quint64(st.st_ino)});
    }
    closedir(dir);
    return size;
}

TrashEmptyResult emptyTrash(const std::optional<Platform::TrashContents> &confirmed,
                            const System &system)
{
    const Platform::TrashEmptying done = system.emptyTrash(confirmed);
    TrashEmptyResult result;
    result.kept = done.kept;
    if (done.scriptFailed) {
        result.code = TrashEmptyResult::Code::failed;
        result.systemText = done.systemText;
    } else if (done.stillEmptying) {
        result.code = TrashEmptyResult::Code::stillEmptying;
    } else if (!done.emptied) {
        result.code = TrashEmptyResult::Code::partial;
        result.left = done.remaining;
    }
    return result;
}
QList<DiskCategory> categories(const NameProgress &progress, const System &system,
                               const QStringList &applicationFolders)
{
    const Locations &where = system.where();
    const DiskUsage usage = system.volumeUsage(u"/"_s);
    struct Plan
    {
        const char *id;
        QStringList folders;
    };
    const QList<Plan> plans{
        {"documents", {where.inHome(u"Documents"_s)}},
        {"applications", applicationFolders},
        {"desktop", {where.inHome(u"Desktop"_s)}},
        {"downloads", {where.inHome(u"Downloads"_s)}},
    };
    QList<DiskCategory> result;
    qint64 known = 0;
    for (const Plan &plan : plans) {
        const QString id = QString::fromLatin1(plan.id);
        if (progress)
            MainThread::post([progress, id] { progress(id); });
        qint64 bytes = 0;
        for (const QString &folder : plan.folders) {
            if (existsAt(folder))
                bytes += directorySize(folder);
        }
        result.append({id, {}, bytes});
        known += bytes;
    }
    const qint64 used = std::max<qint64>(0, usage.total - usage.free);
    result.append({u"other"_s, {}, std::max<qint64>(0, used - known)});
    result.append({u"free"_s, {}, usage.free});
    return result;
}

} // namespace DiskScanner
