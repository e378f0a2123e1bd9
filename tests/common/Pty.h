#pragma once

#include <fcntl.h>
#include <initializer_list>
#include <stdlib.h>
#include <unistd.h>

// A pseudo-terminal for a child's standard input: the child gets `slave` (dup2 it in the
// child), the test writes to `master`. Neither end leaks into the child beyond the
// descriptor made from it.
struct Pty
{
    int master = posix_openpt(O_RDWR | O_NOCTTY), slave = -1;
    Pty(const Pty &) = delete;
    Pty &operator=(const Pty &) = delete;
    Pty()
    {
        if (master >= 0 && grantpt(master) == 0 && unlockpt(master) == 0 &&
            fcntl(master, F_SETFD, FD_CLOEXEC) == 0)
            slave = ::open(ptsname(master), O_RDWR | O_NOCTTY | O_CLOEXEC);
    }
    ~Pty()
    {
        for (int fd : {master, slave})
            if (fd >= 0)
                ::close(fd);
    }
};
