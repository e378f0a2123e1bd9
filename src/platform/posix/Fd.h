#pragma once

#include <unistd.h>
#include <utility>

namespace Platform {

// An open descriptor, closed when the holder goes.
class Fd
{
public:
    explicit Fd(int fd = -1) : m_fd(fd) {}
    ~Fd()
    {
        if (m_fd >= 0)
            ::close(m_fd);
    }
    Fd(const Fd &) = delete;
    Fd &operator=(const Fd &) = delete;
    Fd(Fd &&other) noexcept : m_fd(std::exchange(other.m_fd, -1)) {}
    Fd &operator=(Fd &&other) noexcept
    {
        std::swap(m_fd, other.m_fd);
        return *this;
    }
    int get() const { return m_fd; }

private:
    int m_fd;
};

} // namespace Platform
