#include "platform/TrashRestore.h"

#include "platform/NoLinkPath.h"
#include "platform/linux/XdgTrashPaths.h"
#include "platform/posix/Fd.h"
#include "platform/posix/Pipeline.h"

#include <QFile>

#include <cerrno>
#include <fcntl.h>
#include <map>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>
#include <variant>

// Only entries of the Trashes this user's moves can land in count: the home Trash's files/,
// and on another file system its top folder's .Trash-$uid/files or .Trash/$uid/files. The
// item is acted on through the Trash's own folder descriptors, never through a path.
namespace Platform {
namespace {

using XdgTrash::isStandard; // a log line that needs tidying was not written by us
using XdgTrash::joined;
using XdgTrash::parentOf;

constexpr int kFolderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
constexpr qint64 kMaxRecordBytes = 64 * 1024;

QByteArray lastComponent(const QByteArray &path)
{
    return path.mid(path.lastIndexOf('/') + 1);
}

RestoreFailure failureOf(int error)
{
    switch (error) {
    case ENOENT:
        return RestoreFailure::gone;
    case ELOOP:
        return RestoreFailure::throughLink;
    case EACCES:
    case EPERM:
    case EROFS:
        return RestoreFailure::permissionDenied;
    case EXDEV:
        return RestoreFailure::crossDevice;
    case EEXIST:
    case ENOTEMPTY:
        return RestoreFailure::destinationExists;
    default:
        return RestoreFailure::other;
    }
}

struct Failed
{
    RestoreFailure failure;
    int errorCode = 0;
};

// The Trash entry, held by its folders.
struct Entry
{
    Fd files;
    Fd info;
    QByteArray name;
    QByteArray topDir; // what a volume Trash's Path= is relative to; empty for the home Trash
};

bool isMountTop(const QByteArray &dir)
{
    struct stat here = {};
    struct stat up = {};
    return dir == "/" || (::lstat(dir.constData(), &here) == 0 &&
                          ::stat(parentOf(dir).constData(), &up) == 0 && here.st_dev != up.st_dev);
}

// A volume Trash: reached from "/" without a link, the user's own, at its mount's top; the
// shared .Trash only with the sticky bit an administrator gives it.
std::variant<Fd, Failed> openVolumeTrash(const QByteArray &root, const QByteArray &topDir,
                                         bool shared)
{
    if (!isMountTop(topDir))
        return Failed{RestoreFailure::notInTrash};
    Fd fd(NoLinkPath::openFolder("/", root.mid(1)));
    if (fd.get() < 0) {
        const int error = errno;
        if (error == ELOOP || error == ENOTDIR)
            return Failed{NoLinkPath::passesThroughLink("/", root.mid(1))
                              ? RestoreFailure::throughLink
                              : RestoreFailure::notInTrash,
                          error};
        return Failed{failureOf(error), error};
    }
    struct stat st = {};
    if (::fstat(fd.get(), &st) != 0 || st.st_uid != ::geteuid())
        return Failed{RestoreFailure::notInTrash};
    if (shared && (::lstat(parentOf(root).constData(), &st) != 0 || !(st.st_mode & S_ISVTX)))
        return Failed{RestoreFailure::notInTrash};
    return fd;
}

std::variant<Entry, Failed> locate(const QByteArray &trashed, const UserFolders &user)
{
    const QByteArray filesDir = parentOf(trashed);
    const QByteArray name = lastComponent(trashed);
    if (!isStandard(trashed) || lastComponent(filesDir) != "files")
        return Failed{RestoreFailure::notInTrash};
    const QByteArray root = parentOf(filesDir);
    const QByteArray uid = QByteArray::number(::geteuid());
    Entry entry;
    entry.name = name;
    Fd rootFd;
    if (root == XdgTrash::homeTrashPath(user)) {
        // Where the home Trash lives is the user's choice, links and all, as for the move.
        rootFd = Fd(::open(root.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        if (rootFd.get() < 0)
            return Failed{failureOf(errno), errno};
    } else {
        const bool shared = lastComponent(root) == uid && lastComponent(parentOf(root)) == ".Trash";
        if (!shared && lastComponent(root) != ".Trash-" + uid)
            return Failed{RestoreFailure::notInTrash};
        entry.topDir = shared ? parentOf(parentOf(root)) : parentOf(root);
        auto opened = openVolumeTrash(root, entry.topDir, shared);
        if (const Failed *failed = std::get_if<Failed>(&opened))
            return *failed;
        rootFd = std::move(std::get<Fd>(opened));
    }
    entry.files = Fd(::openat(rootFd.get(), "files", kFolderFlags));
    if (entry.files.get() < 0) {
        const int error = errno;
        struct stat st = {};
        if (::fstatat(rootFd.get(), "files", &st, AT_SYMLINK_NOFOLLOW) == 0 && S_ISLNK(st.st_mode))
            return Failed{RestoreFailure::throughLink, error};
        return Failed{error == ENOTDIR ? RestoreFailure::notInTrash : failureOf(error), error};
    }
    entry.info = Fd(::openat(rootFd.get(), "info", kFolderFlags));
    struct stat st = {};
    if (::fstatat(entry.files.get(), name.constData(), &st, AT_SYMLINK_NOFOLLOW) != 0)
        return Failed{failureOf(errno), errno};
    return entry;
}

// The .trashinfo beside the entry names `original`: the move's own record, not a guess.
bool recordAgrees(const Entry &entry, const QByteArray &original)
{
    if (entry.info.get() < 0)
        return false;
    const QByteArray infoName = entry.name + ".trashinfo";
    Fd fd(::openat(entry.info.get(), infoName.constData(),
                   O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat st = {};
    if (fd.get() < 0 || ::fstat(fd.get(), &st) != 0 || !S_ISREG(st.st_mode) ||
        st.st_size > kMaxRecordBytes)
        return false;
    QByteArray text(qsizetype(st.st_size), '\0');
    if (::read(fd.get(), text.data(), size_t(text.size())) != ssize_t(text.size()))
        return false;
    const QList<QByteArray> lines = text.split('\n');
    if (lines.isEmpty() || lines.first().trimmed() != "[Trash Info]")
        return false;
    for (const QByteArray &line : lines) {
        if (!line.startsWith("Path="))
            continue;
        QByteArray recorded = QByteArray::fromPercentEncoding(line.mid(5).trimmed());
        if (!recorded.startsWith('/') && !entry.topDir.isEmpty())
            recorded = joined(entry.topDir, recorded);
        return recorded == original;
    }
    return false;
}

// The original's folder, reached without a link from the anchor, open as `base`; missing
// folders made private when allowed.
std::variant<Fd, Failed> openDestination(int base, const QByteArray &anchor,
                                         const QByteArray &original, bool createFolders)
{
    QByteArray relative;
    if (base < 0)
        return Failed{failureOf(errno), errno};
    if (!NoLinkPath::relativeTo(anchor, parentOf(original), &relative))
        return Failed{RestoreFailure::other, EINVAL};
    Fd fd(NoLinkPath::openBelow(base, relative));
    if (fd.get() >= 0)
        return fd;
    const int error = errno;
    if (error == ELOOP || error == ENOTDIR)
        return Failed{NoLinkPath::passesThroughLink(anchor, relative)
                          ? RestoreFailure::throughLink
                          : RestoreFailure::parentMissing,
                      error};
    if (error != ENOENT)
        return Failed{failureOf(error), error};
    if (!createFolders)
        return Failed{RestoreFailure::parentMissing, error};
    fd = Fd(::fcntl(base, F_DUPFD_CLOEXEC, 0));
    for (const QByteArray &name : relative.split('/')) {
        if (fd.get() < 0)
            break;
        if (::mkdirat(fd.get(), name.constData(), 0700) != 0 && errno != EEXIST)
            return Failed{failureOf(errno), errno};
        fd = Fd(::openat(fd.get(), name.constData(), kFolderFlags));
    }
    if (fd.get() < 0)
        return Failed{errno == ELOOP ? RestoreFailure::throughLink : failureOf(errno), errno};
    return fd;
}

// Anchors opened once for many restores (a link in an anchor itself is followed).
class Anchors
{
public:
    // The anchor's descriptor, or -1 with errno set (a failure is not kept).
    int open(const QByteArray &anchor)
    {
        if (const auto known = m_open.find(anchor); known != m_open.end())
            return known->second.get();
        Fd fd(::open(anchor.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        const int raw = fd.get();
        if (raw >= 0)
            m_open.emplace(anchor, std::move(fd));
        return raw;
    }

private:
    std::map<QByteArray, Fd> m_open;
};

// An entry whose record agrees, and where it goes back to. The way to the original's folder
// is taken ahead only when no item before it in the batch can be that folder or hold it;
// otherwise at its turn, once those are back.
struct Staged
{
    Entry entry;
    QByteArray original;
    QByteArray anchor;
    bool createFolders = false;
    std::optional<std::variant<Fd, Failed>> destination;
};

std::variant<Staged, Failed> stage(const RestoreRequest &request, const UserFolders &user)
{
    const QByteArray original = QFile::encodeName(request.original);
    const QByteArray anchor = QFile::encodeName(request.anchor);
    if (!isStandard(original) || anchor.isEmpty())
        return Failed{RestoreFailure::other, EINVAL};
    auto located = locate(QFile::encodeName(request.trashedPath), user);
    if (const Failed *failed = std::get_if<Failed>(&located))
        return *failed;
    Entry entry = std::move(std::get<Entry>(located));
    if (!recordAgrees(entry, original))
        return Failed{RestoreFailure::recordMismatch};
    return Staged{std::move(entry), original, anchor, request.createFolders, std::nullopt};
}

TrashRestore failedWith(const Failed &failed)
{
    TrashRestore result;
    result.failure = failed.failure;
    result.errorCode = failed.errorCode;
    return result;
}

TrashRestore land(Staged &staged, Anchors &anchors)
{
    const std::variant<Fd, Failed> destination =
        staged.destination ? std::move(*staged.destination)
                           : openDestination(anchors.open(staged.anchor), staged.anchor,
                                             staged.original, staged.createFolders);
    if (const Failed *failed = std::get_if<Failed>(&destination))
        return failedWith(*failed);
    const Entry &entry = staged.entry;
    const int folder = std::get<Fd>(destination).get();
    if (const int error =
            XdgTrash::renameNoReplace(entry.files.get(), entry.name.constData(), folder,
                                      lastComponent(staged.original).constData())) {
        struct stat st = {};
        // ENOENT names either side; only a vanished entry means someone else took it.
        const bool entryGone =
            ::fstatat(entry.files.get(), entry.name.constData(), &st, AT_SYMLINK_NOFOLLOW) != 0;
        if (error == ENOENT && !entryGone)
            return failedWith({RestoreFailure::parentMissing, error});
        return failedWith({failureOf(error), error});
    }
    TrashRestore result;
    result.restored = true;
    const QByteArray infoName = entry.name + ".trashinfo";
    result.recordKept = ::unlinkat(entry.info.get(), infoName.constData(), 0) != 0;
    return result;
}

} // namespace

RestoreFailure checkRestore(const QString &trashedPath, const QString &original,
                            const QString &anchor, bool createFolders, const UserFolders &user)
{
    auto staged = stage({trashedPath, original, anchor, false}, user);
    if (const Failed *failed = std::get_if<Failed>(&staged))
        return failed->failure;
    const Staged &s = std::get<Staged>(staged);
    Anchors anchors;
    const std::variant<Fd, Failed> destination =
        openDestination(anchors.open(s.anchor), s.anchor, s.original, false);
    if (const Failed *failed = std::get_if<Failed>(&destination))
        return createFolders && failed->failure == RestoreFailure::parentMissing &&
                       failed->errorCode == ENOENT
                   ? RestoreFailure::none // recreated on the way back
                   : failed->failure;
    const int folder = std::get<Fd>(destination).get();
    struct stat st = {};
    if (::fstatat(folder, lastComponent(s.original).constData(), &st, AT_SYMLINK_NOFOLLOW) == 0)
        return RestoreFailure::destinationExists;
    struct stat trash = {};
    if (::fstat(folder, &st) == 0 && ::fstat(s.entry.files.get(), &trash) == 0 &&
        st.st_dev != trash.st_dev)
        return RestoreFailure::crossDevice;
    return RestoreFailure::none;
}

TrashRestore restoreFromTrash(const QString &trashedPath, const QString &original,
                              const QString &anchor, bool createFolders, const UserFolders &user)
{
    auto staged = stage({trashedPath, original, anchor, createFolders}, user);
    if (const Failed *failed = std::get_if<Failed>(&staged))
        return failedWith(*failed);
    Anchors anchors;
    return land(std::get<Staged>(staged), anchors);
}

// Finding an entry and reading its record cost as much as the rename and the record's
// removal: the next entries are found on a second thread while this one goes back.
void restoreAll(const QList<RestoreRequest> &requests, const UserFolders &user,
                const Restored &restored)
{
    using Step = std::variant<Staged, Failed>;
    constexpr qsizetype stagedAhead = 16; // each holds up to three folders open
    Anchors stagerAnchors, landerAnchors; // each thread its own
    EarlierPaths earlier;                 // originals of the requests staged so far
    pipeline<Step>(
        requests.size(), stagedAhead,
        [&](qsizetype i) {
            Step step = stage(requests[i], user);
            if (Staged *s = std::get_if<Staged>(&step)) {
                if (!earlier.holdOneOf(s->original))
                    s->destination = openDestination(stagerAnchors.open(s->anchor), s->anchor,
                                                     s->original, s->createFolders);
                earlier.add(s->original);
            }
            return step;
        },
        [&](qsizetype i, Step step) {
            Staged *staged = std::get_if<Staged>(&step);
            restored(i, staged ? land(*staged, landerAnchors) : failedWith(std::get<Failed>(step)));
        });
}

} // namespace Platform
