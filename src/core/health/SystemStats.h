#pragma once

#include <QObject>
#include <QString>

// Capacity of a volume; (0, 0) means unknown.
struct DiskUsage
{
    qint64 total = 0;
    qint64 free = 0; // available for important use: purgeable space counts as free
};

// The machine's health figures. For now only the volume query, which the disk overview
// shares with the sampler.
class SystemStats final : public QObject
{
    Q_OBJECT

public:
    // Safe from any thread; (0, 0) when the path does not exist or cannot be read.
    static DiskUsage diskUsage(const QString &path);
};
