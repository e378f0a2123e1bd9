#include "platform/NoLinkPath.h"

#include <QList>

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#if defined(__linux__) && __has_include(<linux/openat2.h>)
#include <linux/openat2.h>
#include <sys/syscall.h>
#define QUORVEL_HAVE_OPENAT2 1
#endif

namespace Platform::NoLinkPath {
namespace {

constexpr int folderFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;

// One name at a time, none of them followed; works on every kernel.
[[maybe_unused]] int walk(int fd, const QByteArray &relative)
{
    for (const QByteArray &name : relative.split('/')) {
        if (fd < 0)
            break;
        if (name.isEmpty())
            continue;
        const int next = ::openat(fd, name.constData(), folderFlags | O_NOFOLLOW);
        const int error = errno;
        ::close(fd);
        errno = error;
        fd = next;
    }
    return fd;
}

} // namespace

int openFolder(const QByteArray &anchor, const QByteArray &relative)
{
    const int base = ::open(anchor.constData(), folderFlags);
    if (base < 0 || relative.isEmpty())
        return base;
    const int fd = openBelow(base, relative);
    const int error = errno;
    ::close(base);
    errno = error;
    return fd;
}

int openBelow(int base, const QByteArray &relative)
{
    for (const QByteArray &name : relative.split('/')) {
        if (name == "." || name == "..") { // would climb out of what was checked
            errno = EINVAL;
            return -1;
        }
    }
    if (relative.isEmpty())
        return ::fcntl(base, F_DUPFD_CLOEXEC, 0);
#if defined(QUORVEL_HAVE_OPENAT2) && defined(SYS_openat2)
    // The kernel refuses every link on the way in one call; older kernels say ENOSYS.
    open_how how = {};
    how.flags = folderFlags;
    how.resolve = RESOLVE_NO_SYMLINKS | RESOLVE_NO_MAGICLINKS | RESOLVE_BENEATH;
    const int fd = int(::syscall(SYS_openat2, base, relative.constData(), &how, sizeof how));
    if (fd >= 0 || (errno != ENOSYS && errno != EPERM))
        return fd;
#endif
#if defined(O_NOFOLLOW_ANY)
    // No link anywhere in the relative part, checked by the kernel in one call (macOS 11+).
    return ::openat(base, relative.constData(), folderFlags | O_NOFOLLOW_ANY);
#else
    return walk(::fcntl(base, F_DUPFD_CLOEXEC, 0), relative);
#endif
}

bool passesThroughLink(const QByteArray &anchor, const QByteArray &relative)
{
    QByteArray path = anchor;
    for (const QByteArray &name : relative.split('/')) {
        if (name.isEmpty())
            continue;
        path += (path.endsWith('/') ? "" : "/") + name;
        struct stat st = {};
        if (::lstat(path.constData(), &st) != 0)
            return false;
        if (S_ISLNK(st.st_mode))
            return true;
    }
    return false;
}

bool relativeTo(const QByteArray &anchor, const QByteArray &path, QByteArray *relative)
{
    if (path == anchor) {
        relative->clear();
        return true;
    }
    const QByteArray prefix = anchor.endsWith('/') ? anchor : anchor + '/';
    if (!path.startsWith(prefix))
        return false;
    *relative = path.mid(prefix.size());
    return true;
}

} // namespace Platform::NoLinkPath
