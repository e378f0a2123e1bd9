#include "platform/Volume.h"

#include <QFile>
#include <sys/statvfs.h>

namespace Platform {

std::optional<VolumeCapacity> volumeCapacity(const QString &path)
{
    struct statvfs fs;
    if (path.isEmpty() || statvfs(QFile::encodeName(path).constData(), &fs) != 0)
        return std::nullopt;
    // f_bavail, not f_bfree: the blocks reserved for root are not the user's to use.
    return VolumeCapacity{qint64(fs.f_blocks) * qint64(fs.f_frsize),
                          qint64(fs.f_bavail) * qint64(fs.f_frsize)};
}

} // namespace Platform
