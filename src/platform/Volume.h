#pragma once

#include <QString>
#include <optional>

namespace Platform {

struct VolumeCapacity
{
    qint64 total = 0;
    qint64 available = 0; // for important use: purgeable space counts as available
};

// The capacity of the volume holding `path`; nullopt when it cannot be read.
std::optional<VolumeCapacity> volumeCapacity(const QString &path);

} // namespace Platform
