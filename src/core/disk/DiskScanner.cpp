#include "core/disk/DiskScanner.h"

#include "core/disk/DiskWalker.h"
#include "core/disk/ParallelSize.h"
#include "core/health/SystemStats.h"
#include "core/text/L10n.h"
#include "core/util/MainThread.h"
#include "platform/Trash.h"
#include "platform/Workspace.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QThread>
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

int walkThreads()
{
    return std::clamp(QThread::idealThreadCount(), 2, 4);
}

// The tree below an open folder (owned); the caller has checked it is a folder.
qint64 folderSize(int fd, const Cancel &cancel)
{
    if (!cancel)
        return ParallelSize::sum(fd, walkThreads());
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

qint64 itemSize(const QString &path)
{
    return directorySize(path);
}

qint64 directorySize(const QString &path, const Cancel &cancel)
{
    // "link/" would make lstat and open follow the link; the entry meant is the link.
    QByteArray native = QFile::encodeName(path);
    while (native.size() > 1 && native.endsWith('/'))
        native.chop(1);
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

std::optional<TrashSize> trashSize()
{
    const QByteArray native = QFile::encodeName(Platform::homeTrashItemsPath());
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
        if (name[0] == '.' && (name[1] == 0 || (name[1] == '.' && name[2] == 0)))
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

TrashEmptyResult emptyTrash(const std::optional<Platform::TrashContents> &confirmed)
{
    const Platform::TrashEmptying done = Platform::emptyTrash(confirmed);
    TrashEmptyResult result;
    result.kept = done.kept;
    if (done.scriptFailed) {
        result.code = TrashEmptyResult::Code::failed;
        result.systemText = done.systemText;
    } else if (!done.emptied) {
        result.code = TrashEmptyResult::Code::partial;
        result.left = done.remaining;
    }
    return result;
}
void openFullDiskAccessSettings()
{
    Platform::openFullDiskAccessSettings();
}

QStringList defaultApplicationFolders()
{
    return {u"/Applications"_s, QDir::homePath() + u"/Applications"_s};
}

QList<DiskCategory> categories(const NameProgress &progress, const QStringList &applicationFolders)
{
    const DiskUsage usage = SystemStats::diskUsage(u"/"_s);
    const QString home = QDir::homePath();
    struct Plan
    {
        const char *id;
        QString name;
        QStringList folders;
    };
    const QList<Plan> plans{
        {"documents", L10n::pick(u"Documents"_s, u"文稿"_s), {home + u"/Documents"_s}},
        {"applications", L10n::pick(u"Applications"_s, u"应用程序"_s),
         applicationFolders.isEmpty() ? defaultApplicationFolders() : applicationFolders},
        {"desktop", L10n::pick(u"Desktop"_s, u"桌面"_s), {home + u"/Desktop"_s}},
        {"downloads", L10n::pick(u"Downloads"_s, u"下载"_s), {home + u"/Downloads"_s}},
    };
    QList<DiskCategory> result;
    qint64 known = 0;
    for (const Plan &plan : plans) {
        if (progress)
            MainThread::post([progress, name = plan.name] { progress(name); });
        qint64 bytes = 0;
        for (const QString &folder : plan.folders) {
            if (existsAt(folder))
                bytes += directorySize(folder);
        }
        result.append({QString::fromLatin1(plan.id), plan.name, bytes});
        known += bytes;
    }
    const qint64 used = std::max<qint64>(0, usage.total - usage.free);
    result.append(
        {u"other"_s, L10n::pick(u"Other"_s, u"其他"_s), std::max<qint64>(0, used - known)});
    result.append({u"free"_s, L10n::pick(u"Free"_s, u"可用"_s), usage.free});
    return result;
}

} // namespace DiskScanner
