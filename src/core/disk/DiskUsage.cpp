#include "core/disk/DiskUsage.h"

#include "platform/Volume.h"

DiskUsage volumeUsage(const QString &path)
{
    const auto capacity = Platform::volumeCapacity(path);
    if (!capacity || capacity->total <= 0)
        return {};
    return {capacity->total, capacity->available};
}
