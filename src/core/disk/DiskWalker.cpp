#include "core/disk/DiskWalker.h"

#include <QFile>
#include <fcntl.h>
#include <mutex>
#include <sys/resource.h>
#include <unistd.h>

namespace DiskWalker {

int openFolder(int dirFd, const char *name)
{
    return ::openat(dirFd, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
}

int openRoot(const QByteArray &path)
{
    ensureFileLimit();
    return ::open(path.constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
}

void ensureFileLimit()
{
    static std::once_flag once;
    std::call_once(once, [] {
        rlimit limit{};
        if (getrlimit(RLIMIT_NOFILE, &limit) != 0)
            return;
        const rlim_t wanted = 8192;
        if (limit.rlim_cur != RLIM_INFINITY && limit.rlim_cur < wanted) {
            limit.rlim_cur = (limit.rlim_max == RLIM_INFINITY || limit.rlim_max > wanted)
                                 ? wanted
                                 : limit.rlim_max;
            setrlimit(RLIMIT_NOFILE, &limit);
        }
    });
}

unsigned char typeOf(const struct stat &st)
{
    if (S_ISREG(st.st_mode))
        return DT_REG;
    if (S_ISDIR(st.st_mode))
        return DT_DIR;
    if (S_ISLNK(st.st_mode))
        return DT_LNK;
    if (S_ISFIFO(st.st_mode))
        return DT_FIFO;
    if (S_ISSOCK(st.st_mode))
        return DT_SOCK;
    if (S_ISCHR(st.st_mode))
        return DT_CHR;
    if (S_ISBLK(st.st_mode))
        return DT_BLK;
    return DT_UNKNOWN;
}

} // namespace DiskWalker
