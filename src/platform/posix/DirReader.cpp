#include "platform/DirReader.h"

#include <dirent.h>
#include <unistd.h>

namespace Platform {

// readdir on a duplicate, so closing the stream leaves the caller's descriptor open.
DirReader::DirReader(int fd, char *)
{
    const int copy = ::dup(fd);
    if (copy >= 0) {
        m_dir = ::fdopendir(copy);
        if (!m_dir)
            ::close(copy);
    }
}

DirReader::~DirReader()
{
    if (m_dir)
        ::closedir(static_cast<DIR *>(m_dir));
}

bool DirReader::next(const char *&name, unsigned char &type)
{
    if (!m_dir)
        return false;
    const dirent *entry = ::readdir(static_cast<DIR *>(m_dir));
    if (!entry)
        return false;
    name = entry->d_name;
    type = entry->d_type;
    return true;
}

} // namespace Platform
