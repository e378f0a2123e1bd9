#include "platform/Trash.h"

#include "platform/NoLinkPath.h"
#include "platform/linux/TrashBatchState.h"
#include "platform/linux/XdgTrashPaths.h"
#include "platform/posix/Fd.h"

#include <QFile>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <map>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
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

// Creates `name` in `dirFd` exclusively and writes `text` in full. 0, or the errno; EEXIST
// means the name is taken. A partly written file is removed again.
int writeNewFile(int dirFd, const QByteArray &name, const QByteArray &text)
{
    const int fd = ::openat(dirFd, name.constData(),
                            O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
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
        ::unlinkat(dirFd, name.constData(), 0);
    return error;
}

using XdgTrash::Anchor;
using XdgTrash::Item;
using XdgTrash::OpenTrash;
using XdgTrash::Retry;
using XdgTrash::Staged;

std::variant<Item, TrashMove> locate(const QString &given, const QString &anchorText,
                                     std::map<QByteArray, Anchor> &anchors)
{
    if (given.isEmpty())
        return failed(TrashFailure::missing, ENOENT);
    if (given.contains(QChar(u'\0')) || anchorText.contains(QChar(u'\0')))
        return failed(TrashFailure::other, EINVAL); // would shorten the path at the C boundary

    const QByteArray path = XdgTrash::standardized(given);
    const QByteArray anchor = XdgTrash::standardized(anchorText);
    const QByteArray name = path.mid(path.lastIndexOf('/') + 1);
    QByteArray relative;
    if (name.isEmpty() || !NoLinkPath::relativeTo(anchor, XdgTrash::parentOf(path), &relative))
        return failed(TrashFailure::other, EINVAL);

    auto known = anchors.find(anchor);
    if (known == anchors.end()) {
        Fd fd(::open(anchor.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        const std::optional<QByteArray> real =
            fd.get() < 0 ? std::nullopt : XdgTrash::realPath(anchor);
        if (!real)
            return failedWith(errno);
        known = anchors.emplace(anchor, Anchor{std::move(fd), *real}).first;
    }
    const Anchor &base = known->second;

    Fd parent(NoLinkPath::openBelow(base.fd.get(), relative));
    if (parent.get() < 0) {
        const int error = errno;
        if (error == ELOOP || error == ENOTDIR) // a link, or a file where a folder should be
            return NoLinkPath::passesThroughLink(anchor, relative)
                       ? failed(TrashFailure::other, ELOOP)
                       : failed(TrashFailure::missing, ENOTDIR);
        return failedWith(error);
    }
    struct stat st = {};
    if (::fstatat(parent.get(), name.constData(), &st, AT_SYMLINK_NOFOLLOW) != 0)
        return failedWith(errno);
    const QByteArray realParent = relative.isEmpty() ? base.real : joined(base.real, relative);
    return Item{std::move(parent), joined(realParent, name), name, st.st_dev};
}

// A home Trash may sit behind a link the user made; a volume's Trash is shared ground and
// is reached without any.
std::variant<OpenTrash, TrashMove> openTrash(XdgTrash::Folder trash)
{
    if (trash.failure != TrashFailure::none)
        return failed(trash.failure, trash.errorCode);
    const std::optional<QByteArray> real = XdgTrash::realPath(trash.path);
    if (!real)
        return failedWith(errno);
    Fd root(trash.topDir.isEmpty()
                ? ::open(trash.path.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)
                : NoLinkPath::openFolder("/", trash.path.mid(1)));
    if (root.get() < 0)
        return failed(TrashFailure::noTrash, errno);
    constexpr int flags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
    OpenTrash open{std::move(trash), *real, Fd(::openat(root.get(), "files", flags)),
                   Fd(::openat(root.get(), "info", flags))};
    if (open.files.get() < 0 || open.info.get() < 0)
        return failed(TrashFailure::noTrash, errno);
    return open;
}

} // namespace

std::variant<std::shared_ptr<OpenTrash>, TrashMove> TrashBatch::State::trashFor(const Item &item)
{
    if (!home) {
        home = XdgTrash::homeTrashPath(user);
        if (!home->isEmpty())
            homeDevice = XdgTrash::deviceOf(*home);
    }
    if (!homeDevice)
        return failed(TrashFailure::noTrash, 0);
    const bool atHome = item.device == *homeDevice;
    if (!atHome) {
        // The item's own folder must be on the item's file system, or the item is a
        // mount point, which no rename can move.
        struct stat st = {};
        if (::fstat(item.parent.get(), &st) != 0 || st.st_dev != item.device)
            return failed(TrashFailure::noTrash, EXDEV);
    }
    const auto known = trashes.find(item.device);
    // A bind mount shares its device with another mount top: such an item gets its own.
    if (known != trashes.end() && (atHome || isWithin(item.path, known->second->folder.topDir)))
        return known->second;
    std::variant<OpenTrash, TrashMove> opened =
        openTrash(atHome ? XdgTrash::prepareHomeTrash(*home)
                         : XdgTrash::prepareTopTrash(XdgTrash::parentOf(item.path), item.device));
    if (TrashMove *failure = std::get_if<TrashMove>(&opened))
        return *failure;
    auto trash = std::make_shared<OpenTrash>(std::move(std::get<OpenTrash>(opened)));
    trashes.insert_or_assign(item.device, trash);
    return trash;
}

void TrashBatch::State::forget(const std::shared_ptr<OpenTrash> &trash)
{
    for (auto it = trashes.begin(); it != trashes.end(); ++it) {
        if (it->second == trash) {
            trashes.erase(it);
            return;
        }
    }
}

// Writes the item's record under the first free name from `firstAttempt` on, in the
// staged Trash or, when that went away (or there is none yet), in one prepared afresh:
// at most twice per item, and only then is the Trash's absence the item's failure.
std::optional<TrashMove> TrashBatch::State::claim(Staged &staged, int firstAttempt)
{
    const Item &item = staged.item;
    for (int attempt = firstAttempt;;) {
        if (!staged.trash) {
            if (staged.preparations++ == 2)
                return failed(TrashFailure::noTrash, ENOENT);
            std::variant<std::shared_ptr<OpenTrash>, TrashMove> trash = trashFor(item);
            if (const TrashMove *failure = std::get_if<TrashMove>(&trash))
                return *failure;
            staged.trash = std::get<std::shared_ptr<OpenTrash>>(std::move(trash));
            attempt = 1;
        }
        const OpenTrash &trash = *staged.trash;
        // Neither the Trash, nor anything in it, nor a folder holding it may go in.
        if (isWithin(item.path, trash.real) || isWithin(trash.real, item.path))
            return failed(TrashFailure::other, EINVAL);
        const QByteArray &topDir = trash.folder.topDir;
        const QByteArray info = XdgTrash::infoText(
            topDir.isEmpty() ? item.path
                             : item.path.mid(topDir.size() + (topDir.endsWith('/') ? 0 : 1)));
        int error = EEXIST;
        for (; attempt <= maxNameAttempts && error == EEXIST; ++attempt) {
            staged.stored = XdgTrash::storedName(item.name, attempt);
            error = writeNewFile(trash.info.get(), staged.stored + ".trashinfo", info);
        }
        if (error == 0) {
            staged.attempt = attempt - 1;
            staged.written = std::chrono::steady_clock::now();
            return std::nullopt;
        }
        if (error != ENOENT)
            return failedWith(error);
        forget(staged.trash); // info/ went away under it
        staged.trash.reset();
    }
}

std::variant<Staged, TrashMove> TrashBatch::State::stage(const QString &path, const QString &anchor)
{
    std::variant<Item, TrashMove> located = locate(path, anchor, anchors);
    if (const TrashMove *failure = std::get_if<TrashMove>(&located))
        return *failure;
    Staged staged{std::get<Item>(std::move(located)), nullptr, {}, 0, 0, {}};
    if (std::optional<TrashMove> failure = claim(staged, 1))
        return *failure;
    return staged;
}

std::optional<TrashMove> TrashBatch::State::restage(Staged &staged, Retry why)
{
    if (why != Retry::trashGone)
        return claim(staged, staged.attempt + (why == Retry::nameTaken ? 1 : 0));
    forget(staged.trash);
    staged.trash.reset();
    return claim(staged, 1);
}

std::variant<TrashMove, Retry> TrashBatch::State::land(const Staged &staged)
{
    const Item &item = staged.item;
    const OpenTrash &trash = *staged.trash;
    // An emptying elsewhere takes records without an item once they are two seconds older
    // than its count: one written ahead and held up for a second is looked for first.
    const QByteArray record = staged.stored + ".trashinfo";
    struct stat st = {};
    if (std::chrono::steady_clock::now() - staged.written > std::chrono::seconds(1) &&
        ::fstatat(trash.info.get(), record.constData(), &st, AT_SYMLINK_NOFOLLOW) != 0)
        return Retry::recordGone;
    const int error = XdgTrash::renameNoReplace(item.parent.get(), item.name.constData(),
                                                trash.files.get(), staged.stored.constData());
    if (error == 0) {
        TrashMove move;
        move.moved = true;
        move.trashedPath = QFile::decodeName(joined(trash.folder.path, "files/" + staged.stored));
        return move;
    }
    ::unlinkat(trash.info.get(), record.constData(), 0);
    if (error == EEXIST)
        return Retry::nameTaken;
    if (error == ENOENT) { // the item vanished, or the Trash did
        if (::fstatat(item.parent.get(), item.name.constData(), &st, AT_SYMLINK_NOFOLLOW) != 0)
            return failed(TrashFailure::missing, error);
        return Retry::trashGone;
    }
    return failedWith(error);
}

TrashMove TrashBatch::State::finish(Staged staged)
{
    for (;;) {
        std::variant<TrashMove, Retry> landed = land(staged);
        if (const TrashMove *move = std::get_if<TrashMove>(&landed))
            return *move;
        const std::lock_guard lock(mutex);
        if (std::optional<TrashMove> failure = restage(staged, std::get<Retry>(landed)))
            return *failure;
    }
}

TrashBatch::TrashBatch(UserFolders user) : m_state(std::make_unique<State>())
{
    m_state->user = std::move(user);
}

TrashBatch::~TrashBatch() = default;

TrashMove TrashBatch::move(const QString &path, const QString &anchor)
{
    std::unique_lock lock(m_state->mutex);
    std::variant<Staged, TrashMove> staged = m_state->stage(path, anchor);
    lock.unlock();
    if (const TrashMove *failure = std::get_if<TrashMove>(&staged))
        return *failure;
    return m_state->finish(std::get<Staged>(std::move(staged)));
}

TrashMove moveToTrash(const QString &path, const QString &anchor, const UserFolders &user)
{
    return TrashBatch(user).move(path, anchor);
}

QString homeTrashItemsPath(const UserFolders &user)
{
    const QByteArray trash = XdgTrash::homeTrashPath(user);
    return trash.isEmpty() ? QString() : QFile::decodeName(joined(trash, "files"));
}

} // namespace Platform
