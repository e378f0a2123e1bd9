#include "core/types/DiskUsage.h"

#include "platform/Volume.h"

DiskUsage DiskUsage::of(const QString &path)
{
    const auto capacity = Platform::volumeCapacity(path);
    if (!capacity || capacity->total <= 0)
        return {};
    return {capacity->total, capacity->available};
}
