#include "platform/Trash.h"

#include "platform/linux/XdgTrashPaths.h"

#include <QDir>
#include <QFile>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>
#include <variant>

// The XDG Trash: files/<name> holds the item, info/<name>.trashinfo says where it came from.
// The info file is claimed exclusively and written in full before the item moves, and the
// move never replaces anything, so concurrent removals cannot overwrite each other and an
// item in the Trash always has its record. Nothing is ever copied: an item the kernel cannot
// rename into a Trash stays where it is.
namespace Platform {

namespace {

using XdgTrash::joined;

// Enough for any sane Trash; a bound so that a pathological one cannot spin forever.
constexpr int maxNameAttempts = 100000;

// The kernel offers only an errno here, which errorCode carries; callers word it themselves,
// so systemText stays empty.
TrashMove failed(TrashFailure failure, int errorCode)
{
    TrashMove move;
    move.failure = failure;
    move.errorCode = errorCode;
    return move;
}

TrashMove failedWith(int errorCode)
{
    switch (errorCode) {
    case ENOENT:
        return failed(TrashFailure::missing, errorCode);
    case EACCES:
    case EPERM:
    case EROFS:
        return failed(TrashFailure::permissionDenied, errorCode);
    case EXDEV:
        return failed(TrashFailure::noTrash, errorCode);
    case ENAMETOOLONG:
        return failed(TrashFailure::nameTooLong, errorCode);
    default:
        return failed(TrashFailure::other, errorCode);
    }
}

bool isWithin(const QByteArray &path, const QByteArray &folder)
{
    return path == folder || path.startsWith(folder.endsWith('/') ? folder : folder + '/');
}

std::optional<QByteArray> realPath(const QByteArray &path)
{
    char *resolved = ::realpath(path.constData(), nullptr);
    if (resolved == nullptr)
        return std::nullopt;
    QByteArray result(resolved);
    std::free(resolved);
    return result;
}

// Creates `path` exclusively and writes `text` in full. 0, or the errno; EEXIST means the
// name is taken. A partly written file is removed again.
int writeNewFile(const QByteArray &path, const QByteArray &text)
{
    const int fd = ::open(path.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd < 0)
        return errno;
    int error = 0;
    for (qsizetype done = 0; done < text.size() && error == 0;) {
        const ssize_t written = ::write(fd, text.constData() + done, size_t(text.size() - done));
        if (written >= 0)
            done += written;
        else if (errno != EINTR)
            error = errno;
    }
    if (::close(fd) != 0 && error == 0 && errno != EINTR)
        error = errno;
    if (error != 0)
        ::unlink(path.constData());
    return error;
}

// rename(2) that fails with EEXIST instead of replacing an existing target. File systems
// without RENAME_NOREPLACE get a look-then-rename, which is as close as they allow.
int renameNoReplace(const QByteArray &from, const QByteArray &to)
{
    if (::renameat2(AT_FDCWD, from.constData(), AT_FDCWD, to.constData(), RENAME_NOREPLACE) == 0)
        return 0;
    if (errno != EINVAL && errno != ENOSYS)
        return errno;
    struct stat st = {};
    if (::lstat(to.constData(), &st) == 0)
        return EEXIST;
    if (::rename(from.constData(), to.constData()) == 0)
        return 0;
    return errno == ENOTEMPTY ? EEXIST : errno;
}

// The item as the kernel should see it: absolute, without trailing slashes (so "link/"
// names the link), its folder resolved so it can be compared with Trash folders.
struct Item
{
    QByteArray path; // parent resolved, the entry itself not
    QByteArray name;
    dev_t device = 0; // of the entry, not of what a link points to
};

std::variant<Item, TrashMove> locate(const QString &given)
{
    if (given.isEmpty())
        return failed(TrashFailure::missing, ENOENT);
    if (given.contains(QChar(u'\0'))) // would silently shorten the path at the C boundary
        return failed(TrashFailure::other, EINVAL);

    QByteArray path = QFile::encodeName(given);
    if (!path.startsWith('/'))
        path = joined(QFile::encodeName(QDir::currentPath()), path);
    while (path.size() > 1 && path.endsWith('/'))
        path.chop(1);

    const QByteArray name = path.mid(path.lastIndexOf('/') + 1);
    if (name.isEmpty() || name == "." || name == "..")
        return failed(TrashFailure::other, EINVAL);

    struct stat st = {};
    if (::lstat(path.constData(), &st) != 0) // ENOTDIR: a file stands where a folder should be
        return errno == ENOTDIR ? failed(TrashFailure::missing, errno) : failedWith(errno);
    const std::optional<QByteArray> folder = realPath(XdgTrash::parentOf(path));
    if (!folder)
        return failedWith(errno);
    return Item{joined(*folder, name), name, st.st_dev};
}

XdgTrash::Folder trashFor(const Item &item)
{
    const QByteArray home = XdgTrash::homeTrashPath();
    const std::optional<dev_t> homeDevice =
        home.isEmpty() ? std::nullopt : XdgTrash::deviceOf(home);
    if (!homeDevice)
        return {{}, {}, TrashFailure::noTrash, 0};
    if (item.device == *homeDevice)
        return XdgTrash::prepareHomeTrash(home);

    // The item's own folder must be on the item's file system, or the item is a mount
    // point, which no rename can move.
    const QByteArray folder = XdgTrash::parentOf(item.path);
    struct stat st = {};
    if (::stat(folder.constData(), &st) != 0 || st.st_dev != item.device)
        return {{}, {}, TrashFailure::noTrash, EXDEV};
    return XdgTrash::prepareTopTrash(folder, item.device);
}

} // namespace

TrashMove moveToTrash(const QString &path)
{
    const std::variant<Item, TrashMove> located = locate(path);
    if (const TrashMove *failure = std::get_if<TrashMove>(&located))
        return *failure;
    const Item &item = std::get<Item>(located);

    const XdgTrash::Folder trash = trashFor(item);
    if (trash.failure != TrashFailure::none)
        return failed(trash.failure, trash.errorCode);

    // Neither the Trash, nor anything in it, nor a folder holding it may go in.
    const std::optional<QByteArray> realTrash = realPath(trash.path);
    if (!realTrash)
        return failedWith(errno);
    if (isWithin(item.path, *realTrash) || isWithin(*realTrash, item.path))
        return failed(TrashFailure::other, EINVAL);

    const QByteArray recorded =
        trash.topDir.isEmpty()
            ? item.path
            : item.path.mid(trash.topDir.size() + (trash.topDir.endsWith('/') ? 0 : 1));
    const QByteArray info = XdgTrash::infoText(recorded);

    for (int attempt = 1; attempt <= maxNameAttempts; ++attempt) {
        const QByteArray stored = XdgTrash::storedName(item.name, attempt);
        const QByteArray infoPath = joined(trash.path, "info/" + stored + ".trashinfo");
        if (const int error = writeNewFile(infoPath, info)) {
            if (error == EEXIST)
                continue;
            return error == ENOENT ? failed(TrashFailure::noTrash, error) : failedWith(error);
        }

        const QByteArray target = joined(trash.path, "files/" + stored);
        const int error = renameNoReplace(item.path, target);
        if (error == 0) {
            TrashMove move;
            move.moved = true;
            move.trashedPath = QFile::decodeName(target);
            return move;
        }
        ::unlink(infoPath.constData());
        if (error == EEXIST)
            continue;
        if (error == ENOENT) { // the item vanished, or the Trash did
            struct stat st = {};
            const bool itemGone = ::lstat(item.path.constData(), &st) != 0;
            return failed(itemGone ? TrashFailure::missing : TrashFailure::noTrash, error);
        }
        return failedWith(error);
    }
    return failed(TrashFailure::other, EEXIST);
}

QString homeTrashItemsPath()
{
    const QByteArray trash = XdgTrash::homeTrashPath();
    return trash.isEmpty() ? QString() : QFile::decodeName(joined(trash, "files"));
}

} // namespace Platform
