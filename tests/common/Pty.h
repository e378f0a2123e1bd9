#pragma once

#include <QByteArray>
#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

// A pseudo-terminal for a child's standard input or error: the child gets `slave` (dup2
// it in the child), the test writes to or drains `master`. Neither end leaks into the
// child beyond the descriptor made from it.
struct Pty
{
    int master = -1;
    int slave = -1;
    Pty(const Pty &) = delete;
    Pty &operator=(const Pty &) = delete;
    Pty()
    {
        master = posix_openpt(O_RDWR | O_NOCTTY);
        if (master < 0 || grantpt(master) != 0 || unlockpt(master) != 0)
            return;
        fcntl(master, F_SETFD, FD_CLOEXEC);
        fcntl(master, F_SETFL, O_NONBLOCK);
        slave = ::open(ptsname(master), O_RDWR | O_NOCTTY | O_CLOEXEC);
    }
    ~Pty()
    {
        for (int fd : {master, slave}) {
            if (fd >= 0)
                ::close(fd);
        }
    }
    // Everything written so far; our open slave keeps the master from reporting the end.
    QByteArray drain() const
    {
        QByteArray all;
        char buffer[4096];
        ssize_t n = 0;
        while ((n = ::read(master, buffer, sizeof buffer)) > 0)
            all.append(buffer, n);
        return all;
    }
};
