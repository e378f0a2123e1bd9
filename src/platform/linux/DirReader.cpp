#include "platform/DirReader.h"

#include <dirent.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace Platform {
namespace {

struct LinuxDirent64
{
    ino64_t d_ino;
    off64_t d_off;
    unsigned short d_reclen;
    unsigned char d_type;
    char d_name[1];
};

} // namespace

DirReader::DirReader(int fd, char *buffer) : m_fd(fd), m_buffer(buffer) {}

DirReader::~DirReader() = default;

bool DirReader::next(const char *&name, unsigned char &type)
{
    if (m_offset >= m_length) {
        m_length = long(syscall(SYS_getdents64, m_fd, m_buffer, kBufferSize));
        m_offset = 0;
        if (m_length <= 0)
            return false;
    }
    const auto *entry = reinterpret_cast<const LinuxDirent64 *>(m_buffer + m_offset);
    m_offset += entry->d_reclen;
    name = entry->d_name;
    type = entry->d_type;
    return true;
}

} // namespace Platform
