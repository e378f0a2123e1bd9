#include "platform/Trash.h"

#include "platform/DirReader.h"

#include "platform/linux/XdgTrashPaths.h"

#include <QByteArray>
#include <QList>
#include <QtGlobal>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <optional>
#include <string>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>
#include <unordered_set>
#include <vector>

// Emptying works on descriptors only. The Trash folder is reached from the resolved home one
// name at a time without following a link, and every later step is an *at() call relative to
// a folder already open, so renaming or relinking something meanwhile cannot steer a removal
// outside the Trash. No path is ever built, so a tree's depth is bounded by memory alone.
// Open folders are held by inode, not by name: one that a racing rename moves out of the
// Trash while it is being emptied is still emptied, as with any descriptor-based walk.
namespace Platform {

namespace {

constexpr int folderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

// Folders held open on the way down. Ancestors above them are closed and found again through
// "..", checked to be the very folder left, so any depth costs at most this many descriptors
// and ordinary trees never take the slower way back.
constexpr size_t heldFolders = 32;

struct DirCloser
{
    void operator()(DIR *dir) const { ::closedir(dir); }
};
using Dir = std::unique_ptr<DIR, DirCloser>;

// Takes over `fd` (-1 allowed, errno then left alone); null when it is no listable folder.
Dir adopt(int fd)
{
    DIR *dir = fd >= 0 ? ::fdopendir(fd) : nullptr;
    if (dir == nullptr && fd >= 0)
        ::close(fd);
    return Dir(dir);
}

struct Identity
{
    dev_t device = 0;
    ino_t inode = 0;
    std::optional<uint64_t> mount; // absent where the kernel does not tell
    mode_t mode = 0;

    bool sameFolder(const Identity &o) const { return device == o.device && inode == o.inode; }
    // A folder of another device or mount is something mounted into the Trash: what it
    // shows is not the Trash's to remove.
    bool sameMount(const Identity &o) const
    {
        return device == o.device && (!mount || !o.mount || *mount == *o.mount);
    }
};

std::optional<Identity> identify(int fd)
{
    struct statx sx = {};
    const unsigned mask = STATX_TYPE | STATX_MODE | STATX_INO | STATX_MNT_ID;
    if (fd < 0 || ::statx(fd, "", AT_EMPTY_PATH | AT_SYMLINK_NOFOLLOW, mask, &sx) != 0)
        return std::nullopt;
    Identity id{makedev(sx.stx_dev_major, sx.stx_dev_minor), sx.stx_ino, {}, sx.stx_mode};
    if (sx.stx_mask & STATX_MNT_ID)
        id.mount = sx.stx_mnt_id;
    return id;
}

// Adds u+rwx, which listing and unlinking need; a failure shows later as entries that stay.
void openUp(int fd, const Identity &id)
{
    if ((id.mode & S_IRWXU) != S_IRWXU)
        ::fchmod(fd, (id.mode & 07777) | S_IRWXU);
}

// A folder we may not read cannot be opened for fchmod. A path descriptor still names it
// (never a link, never another mount), and /proc turns that into a name chmod accepts.
int openUnreadable(int dirFd, const char *name, const Identity &home)
{
    const int path = ::openat(dirFd, name, O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    const std::optional<Identity> id = identify(path);
    const std::string proc = "/proc/self/fd/" + std::to_string(path);
    int fd = -1;
    if (id && id->sameMount(home) && ::chmod(proc.c_str(), (id->mode & 07777) | S_IRWXU) == 0)
        fd = ::openat(path, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (path >= 0)
        ::close(path);
    return fd;
}

// The folder `name` of `dirFd`, writable for its owner; null when it is a link, no folder,
// on another mount, or cannot be opened.
Dir openFolder(int dirFd, const char *name, const Identity &home, Identity *opened)
{
    int fd = ::openat(dirFd, name, folderFlags);
    if (fd < 0 && errno == EACCES)
        fd = openUnreadable(dirFd, name, home);
    Dir dir = adopt(fd);
    const std::optional<Identity> id = dir ? identify(fd) : std::nullopt;
    if (!id || !id->sameMount(home))
        return nullptr;
    openUp(fd, *id);
    *opened = *id;
    return dir;
}

// The names in an open folder, read through a descriptor of its own; nullopt when it cannot
// be listed.
std::optional<std::vector<std::string>> entriesOf(int folderFd)
{
    const Dir dir = adopt(::openat(folderFd, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!dir)
        return std::nullopt;
    std::vector<std::string> names;
    while (const dirent *d = ::readdir(dir.get())) {
        if (!isDots(d->d_name))
            names.emplace_back(d->d_name);
    }
    return names;
}

// One folder tree below files/, removed depth first without recursion.
class TreeRemoval
{
public:
    explicit TreeRemoval(const Identity &home) : m_home(home) {}

    // True when the folder `name` of `topFd` is gone with everything in it.
    bool run(int topFd, const char *name)
    {
        if (!descend(topFd, name))
            return false;
        for (;;) {
            Level &level = m_levels.back();
            const dirent *d = ::readdir(level.dir.get());
            if (d == nullptr) {
                if (m_levels.size() == 1)
                    break;
                if (!ascend())
                    return false;
                continue;
            }
            const char *entry = d->d_name;
            if (isDots(entry) || level.kept.count(entry) != 0)
                continue;
            const int fd = ::dirfd(level.dir.get());
            // A link goes as itself, a read-only file as any other: both need only the
            // folder's rights. EISDIR: a folder the file system did not type.
            if (d->d_type != DT_DIR) {
                const bool gone = ::unlinkat(fd, entry, 0) == 0 || errno == ENOENT;
                const bool folder = !gone && errno == EISDIR;
                if (!gone && !folder)
                    level.kept.emplace(entry);
                if (!folder)
                    continue;
            }
            if (!descend(fd, entry))
                level.kept.emplace(entry);
        }
        m_levels.clear();
        return ::unlinkat(topFd, name, AT_REMOVEDIR) == 0;
    }

private:
    struct Level
    {
        Dir dir; // null while released to spare descriptors
        Identity id;
        std::string name; // in the folder above
        // Entries that resisted removal, skipped when the folder is read again from the start.
        std::unordered_set<std::string> kept;
    };

    bool descend(int dirFd, const char *name)
    {
        Identity id;
        Dir dir = openFolder(dirFd, name, m_home, &id);
        if (!dir)
            return false;
        if (m_held == heldFolders) {
            m_levels[m_levels.size() - m_held].dir.reset();
            --m_held;
        }
        m_levels.push_back({std::move(dir), id, name, {}});
        ++m_held;
        return true;
    }

    // Leaves the folder on top, read to its end, and removes it from the one above; false when
    // the way back no longer leads to the folder left.
    bool ascend()
    {
        const Level done = std::move(m_levels.back());
        m_levels.pop_back();
        --m_held;
        Level &parent = m_levels.back();
        if (!parent.dir) {
            parent.dir = adopt(::openat(::dirfd(done.dir.get()), "..", folderFlags));
            const std::optional<Identity> id =
                parent.dir ? identify(::dirfd(parent.dir.get())) : std::nullopt;
            if (!id || !id->sameFolder(parent.id))
                return false;
            ++m_held;
        }
        if (::unlinkat(::dirfd(parent.dir.get()), done.name.c_str(), AT_REMOVEDIR) != 0 &&
            errno != ENOENT)
            parent.kept.insert(done.name);
        return true;
    }

    const Identity &m_home;
    std::vector<Level> m_levels;
    size_t m_held = 0;
};

// True when the entry `name` of `dirFd` is gone, with everything in it.
bool removeEntry(int dirFd, const char *name, const Identity &home)
{
    struct stat st = {};
    if (::fstatat(dirFd, name, &st, AT_SYMLINK_NOFOLLOW) != 0)
        return errno == ENOENT;
    if (!S_ISDIR(st.st_mode))
        return ::unlinkat(dirFd, name, 0) == 0 || errno == ENOENT;
    return TreeRemoval(home).run(dirFd, name);
}

bool sameEntry(const struct stat &st, const TrashEntry &entry)
{
    return quint64(st.st_dev) == entry.device && quint64(st.st_ino) == entry.inode;
}

// Puts a staged entry back into files/ under its own name, or a free variant of it, so
// that what could not be deleted stays visible in the Trash.
void restage(int stagingFd, const std::string &staged, int filesFd, const std::string &name)
{
    for (int attempt = 1; attempt < 1000; ++attempt) {
        const std::string target = attempt == 1 ? name : name + '.' + std::to_string(attempt);
        const int error =
            XdgTrash::renameNoReplace(stagingFd, staged.c_str(), filesFd, target.c_str());
        if (error != EEXIST)
            return;
    }
}

// The Trash's private staging folder, made when missing; null unless it is a real folder
// of ours on the Trash's own mount.
Dir openStaging(int trashFd, const Identity &files)
{
    if (::mkdirat(trashFd, "expunged", 0700) != 0 && errno != EEXIST)
        return nullptr;
    Identity id;
    Dir dir = openFolder(trashFd, "expunged", files, &id);
    struct stat st = {};
    if (dir && (::fstat(::dirfd(dir.get()), &st) != 0 || st.st_uid != ::geteuid()))
        return nullptr;
    return dir;
}

struct Emptier
{
    int filesFd;
    int infoFd; // -1 when there is no info/
    int stagingFd;
    Identity files;
    int serial = 0;

    // Takes one counted entry out of files/ and deletes it in the staging folder. An entry
    // gone or replaced since the count is not touched.
    void empty(const TrashEntry &entry)
    {
        const std::string name = entry.name.toStdString();
        struct stat st = {};
        if (::fstatat(filesFd, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0 ||
            !sameEntry(st, entry))
            return;
        // Moving a folder to another parent rewrites its "..": it must be writable. Opened,
        // not chmod'ed by name, so a swap cannot aim the change elsewhere.
        if (S_ISDIR(st.st_mode) && (st.st_mode & S_IRWXU) != S_IRWXU) {
            Identity id;
            const Dir folder = openFolder(filesFd, name.c_str(), files, &id);
            if (!folder || quint64(id.device) != entry.device || quint64(id.inode) != entry.inode)
                return;
        }
        std::string staged;
        int error = EEXIST;
        while (error == EEXIST) {
            staged = std::to_string(::getpid()) + '-' + std::to_string(++serial);
            error = XdgTrash::renameNoReplace(filesFd, name.c_str(), stagingFd, staged.c_str());
        }
        if (error != 0)
            return; // gone meanwhile, or cannot be taken out: it stays where it is
        // Swapped between the look and the rename: not what was counted, so it goes back.
        if (::fstatat(stagingFd, staged.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0 ||
            !sameEntry(st, entry)) {
            restage(stagingFd, staged, filesFd, name);
            return;
        }
        if (!removeEntry(stagingFd, staged.c_str(), files)) {
            restage(stagingFd, staged, filesFd, name);
            return;
        }
        if (infoFd >= 0)
            ::unlinkat(infoFd, (name + ".trashinfo").c_str(), 0);
    }

    // Info files whose item was already missing before the count: a record of nothing.
    // Younger ones may belong to a move still on its way in; the margin covers file systems
    // whose time stamps lag the clock by a tick.
    void dropStrayInfo(qint64 takenAtMs)
    {
        constexpr qint64 marginMs = 2000;
        const auto names = infoFd >= 0 ? entriesOf(infoFd) : std::nullopt;
        static const std::string suffix = ".trashinfo";
        for (const std::string &info : names.value_or(std::vector<std::string>{})) {
            if (info.size() <= suffix.size() ||
                info.compare(info.size() - suffix.size(), suffix.size(), suffix) != 0)
                continue;
            const std::string item = info.substr(0, info.size() - suffix.size());
            struct stat st = {};
            if (::fstatat(filesFd, item.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0 ||
                errno != ENOENT || ::fstatat(infoFd, info.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0 ||
                !S_ISREG(st.st_mode))
                continue;
            const qint64 modifiedMs =
                qint64(st.st_mtim.tv_sec) * 1000 + st.st_mtim.tv_nsec / 1000000;
            if (modifiedMs < takenAtMs - marginMs)
                ::unlinkat(infoFd, info.c_str(), 0);
        }
    }

    // Staged leftovers of an emptying that was cut short were confirmed then; they go now.
    void finishEarlierRun()
    {
        for (const std::string &name : entriesOf(stagingFd).value_or(std::vector<std::string>{}))
            removeEntry(stagingFd, name.c_str(), files);
    }
};

// `relative` opened below the resolved folder `base` one name at a time, none of them a link,
// so a link swapped in after realpath() cannot lead elsewhere. -1 with errno on failure.
int openBelow(const QByteArray &base, const QByteArray &relative)
{
    int fd = ::open(base.constData(), folderFlags);
    for (const QByteArray &name : relative.split('/')) {
        if (fd < 0)
            break;
        const int next = ::openat(fd, name.constData(), folderFlags);
        const int error = errno;
        ::close(fd);
        errno = error;
        fd = next;
    }
    return fd;
}

// Nothing was removed. Whatever files/ holds remains, and since something is in the way, at
// least one thing counts as remaining even when files/ itself is what cannot be read.
TrashEmptying refused(const Dir &files)
{
    const auto names = files ? entriesOf(::dirfd(files.get())) : std::nullopt;
    TrashEmptying result;
    result.emptied = false;
    result.remaining = std::max(1, names ? int(names->size()) : 0);
    return result;
}

} // namespace

TrashEmptying emptyTrash(const std::optional<TrashContents> &confirmed, const UserFolders &user)
{
    const QByteArray trash = XdgTrash::homeTrashPath(user);
    const QByteArray base = XdgTrash::trashBase(user);
    if (trash.isEmpty() || base.isEmpty())
        return {}; // no home, so no home Trash
    const std::optional<QByteArray> realTrash = XdgTrash::realPath(trash);
    if (!realTrash) // never created is empty; anything else is not known to be
        return errno == ENOENT || errno == ENOTDIR ? TrashEmptying{} : refused(nullptr);
    const QByteArray realBase = XdgTrash::realPath(base).value_or(QByteArray());
    const QByteArray prefix = realBase.endsWith('/') ? realBase : realBase + '/';
    if (realBase.isEmpty() || realTrash->size() <= prefix.size() || !realTrash->startsWith(prefix))
        return refused(nullptr);

    const Dir trashDir = adopt(openBelow(realBase, realTrash->mid(prefix.size())));
    if (!trashDir)
        return errno == ENOENT ? TrashEmptying{} : refused(nullptr);
    const Dir files = adopt(::openat(::dirfd(trashDir.get()), "files", folderFlags));
    if (!files)
        return errno == ENOENT ? TrashEmptying{} : refused(nullptr);
    // An info/ that is a link would have us unlink elsewhere; one that is missing is fine.
    const Dir info = adopt(::openat(::dirfd(trashDir.get()), "info", folderFlags));
    const bool infoUsable = info || errno == ENOENT;
    const int filesFd = ::dirfd(files.get());
    const int infoFd = info ? ::dirfd(info.get()) : -1;
    const std::optional<Identity> home = identify(filesFd);
    if (!infoUsable || !home || !confirmed)
        return refused(files);
    const Dir staging = openStaging(::dirfd(trashDir.get()), *home);
    if (!staging)
        return refused(files);

    openUp(filesFd, *home);
    if (const std::optional<Identity> infoId = identify(infoFd))
        openUp(infoFd, *infoId);
    Emptier emptier{filesFd, infoFd, ::dirfd(staging.get()), *home};
    emptier.finishEarlierRun();
    for (const TrashEntry &entry : confirmed->entries)
        emptier.empty(entry);
    emptier.dropStrayInfo(confirmed->takenAtMs);
    ::unlinkat(::dirfd(trashDir.get()), "expunged", AT_REMOVEDIR); // only when nothing stayed

    const std::optional<std::vector<std::string>> left = entriesOf(filesFd);
    if (!left)
        return refused(files);
    TrashEmptying result;
    for (const std::string &name : *left) {
        struct stat st = {};
        if (::fstatat(filesFd, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0)
            continue;
        const bool counted =
            std::any_of(confirmed->entries.begin(), confirmed->entries.end(),
                        [&](const TrashEntry &entry) { return sameEntry(st, entry); });
        ++(counted ? result.remaining : result.kept);
    }
    result.emptied = result.remaining == 0;
    return result;
}

} // namespace Platform
