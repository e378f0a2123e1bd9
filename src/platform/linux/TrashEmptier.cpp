#include "platform/Trash.h"

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

bool isDots(const char *name)
{
    return name[0] == '.' && (name[1] == 0 || (name[1] == '.' && name[2] == 0));
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

// True when this emptying removed the entry; one that vanished meanwhile was not ours.
bool removeEntry(int filesFd, const char *name, const Identity &home)
{
    struct stat st = {};
    if (::fstatat(filesFd, name, &st, AT_SYMLINK_NOFOLLOW) != 0)
        return false;
    if (!S_ISDIR(st.st_mode))
        return ::unlinkat(filesFd, name, 0) == 0;
    return TreeRemoval(home).run(filesFd, name);
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

// The folder homeTrashPath() builds on; the Trash must resolve to somewhere inside it.
QByteArray trashBase()
{
    const QByteArray dataHome = qgetenv("XDG_DATA_HOME");
    if (dataHome.startsWith('/'))
        return dataHome;
    const QByteArray home = qgetenv("HOME");
    return home.startsWith('/') ? home : QByteArray();
}

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
    return {false, std::max(1, names ? int(names->size()) : 0), false, {}};
}

} // namespace

TrashEmptying emptyTrash()
{
    const QByteArray trash = XdgTrash::homeTrashPath();
    const QByteArray base = trashBase();
    if (trash.isEmpty() || base.isEmpty())
        return {}; // no home, so no home Trash
    const std::optional<QByteArray> realTrash = realPath(trash);
    if (!realTrash) // never created is empty; anything else is not known to be
        return errno == ENOENT || errno == ENOTDIR ? TrashEmptying{} : refused(nullptr);
    const QByteArray realBase = realPath(base).value_or(QByteArray());
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
    if (!infoUsable || !home)
        return refused(files);

    openUp(filesFd, *home);
    if (const std::optional<Identity> infoId = identify(infoFd))
        openUp(infoFd, *infoId);
    const std::optional<std::vector<std::string>> names = entriesOf(filesFd);
    if (!names)
        return refused(files);
    for (const std::string &name : *names) {
        if (removeEntry(filesFd, name.c_str(), *home) && infoFd >= 0)
            ::unlinkat(infoFd, (name + ".trashinfo").c_str(), 0);
    }

    const std::optional<std::vector<std::string>> left = entriesOf(filesFd);
    TrashEmptying result;
    result.remaining = left ? int(left->size()) : 1;
    result.emptied = left && left->empty();
    return result;
}

} // namespace Platform
